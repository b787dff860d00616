#include "util/logging.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace wren {
namespace {

// Collects the finished lines for its lifetime.
struct Captured {
  Captured() {
    Logging::flush();
    setLogSink([this](std::string_view line) { lines.emplace_back(line); });  // under the writer's lock
  }
  ~Captured() {
    Logging::flush();
    setLogSink(nullptr);
  }
  std::vector<std::string> lines;
};

TEST(LoggingTest, RecordFormsLevelsAndOrder) {
  Captured c;
  Logging::logInfoWithTag("T", "info");
  Logging::logDebugWithTag(std::nullopt, "debug");
  Logging::logWarningWithTag("Ajax response", "timed out");
  Logging::logWarningWithTag(std::nullopt, "no tag");
  Logging::logWarningWithTag("", "empty tag");
  for (int i = 0; i < 50; ++i) Logging::logWarningWithTag("W", std::to_string(i));
  // Written at once, after every queued warning: no flush needed to see it.
  Logging::logErrorWithTag("E", "line1\r\nline2");
  systemLog("[SafariToolbar] a\nb\tc");
  std::vector<std::string> want = {"[Ajax response], timed out", "no tag", "[], empty tag"};
  for (int i = 0; i < 50; ++i) want.push_back("[W], " + std::to_string(i));
  want.insert(want.end(), {"[E], line1\\r\\nline2", "[SafariToolbar] a\\nb\tc"});
  EXPECT_EQ(c.lines, want);
}

TEST(LoggingTest, WarningsFromManyThreadsAllArrive) {
  Captured c;
  std::vector<std::thread> threads(4);
  for (auto& t : threads) t = std::thread([] { for (int i = 0; i < 200; ++i) Logging::logWarningWithTag("T", "m"); });
  for (auto& t : threads) t.join();
  Logging::flush();
  EXPECT_EQ(c.lines.size(), 800u);
}

}  // namespace
}  // namespace wren

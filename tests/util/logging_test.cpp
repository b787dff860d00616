#include "util/logging.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

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

// Stdout carries the browser protocol: not one log byte may reach it.
TEST(LoggingTest, DefaultSinkWritesStderrOnlyNeverStdout) {
  setLogSink(nullptr);
  Logging::flush();
  int saved[2], pipes[2][2];
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(::pipe2(pipes[i], O_NONBLOCK), 0);
    saved[i] = ::dup(i + 1);
    ::dup2(pipes[i][1], i + 1);
    ::close(pipes[i][1]);
  }
  Logging::logWarningWithTag("T", "warn\nx");
  Logging::logErrorWithTag(std::nullopt, "err");
  systemLog("sys");
  Logging::flush();
  std::string got[2];
  for (int i = 0; i < 2; ++i) {
    ::dup2(saved[i], i + 1);
    ::close(saved[i]);
    char buf[4096];
    for (ssize_t n; (n = ::read(pipes[i][0], buf, sizeof buf)) > 0;) got[i].append(buf, size_t(n));
    ::close(pipes[i][0]);
  }
  EXPECT_EQ(got[0], "");  // stdout
  EXPECT_EQ(got[1], "[T], warn\\nx\nerr\nsys\n");
}

}  // namespace
}  // namespace wren

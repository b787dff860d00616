#include "util/logging.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace wren {
namespace {

class LoggingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Logging::flush();
    setLogSink([this](std::string_view line) {
      std::lock_guard<std::mutex> lock(mutex_);
      lines_.emplace_back(line);
    });
  }
  void TearDown() override {
    Logging::flush();
    setLogSink(nullptr);
  }
  std::vector<std::string> lines() {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
  }

  std::mutex mutex_;
  std::vector<std::string> lines_;
};

TEST(OneLineTest, EscapesLineBreaks) {
  struct Case {
    std::string in, out;
  };
  const std::vector<Case> cases = {
      {"", ""},
      {"plain", "plain"},
      {"a\nb", "a\\nb"},
      {"a\r\nb\n", "a\\r\\nb\\n"},
      {"tab\tstays", "tab\tstays"},
  };
  for (const auto& c : cases) EXPECT_EQ(oneLine(c.in), c.out) << c.in;
}

TEST_F(LoggingTest, InfoAndDebugWriteNothing) {
  Logging::logInfoWithTag("T", "info");
  Logging::logDebugWithTag(std::nullopt, "debug");
  Logging::flush();
  EXPECT_TRUE(lines().empty());
}

TEST_F(LoggingTest, RecordTextWithAndWithoutTag) {
  Logging::logWarningWithTag("Ajax response", "timed out");
  Logging::logWarningWithTag(std::nullopt, "no tag");
  Logging::logWarningWithTag("", "empty tag");
  Logging::flush();
  EXPECT_EQ(lines(), (std::vector<std::string>{"[Ajax response], timed out", "no tag", "[], empty tag"}));
}

TEST_F(LoggingTest, ErrorComesAfterQueuedWarnings) {
  for (int i = 0; i < 50; ++i) Logging::logWarningWithTag("W", std::to_string(i));
  Logging::logErrorWithTag("E", "line1\nline2");
  // The error is written synchronously: no flush needed to see it.
  auto got = lines();
  ASSERT_EQ(got.size(), 51u);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(got[i], "[W], " + std::to_string(i));
  EXPECT_EQ(got.back(), "[E], line1\\nline2");
}

TEST_F(LoggingTest, SystemLogIsOneLine) {
  systemLog("[SafariToolbar] a\nb");
  EXPECT_EQ(lines(), std::vector<std::string>{"[SafariToolbar] a\\nb"});
}

TEST_F(LoggingTest, WarningsFromManyThreadsAllArrive) {
  constexpr int kThreads = 4, kEach = 200;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kEach; ++i) Logging::logWarningWithTag(std::to_string(t), "m");
    });
  }
  for (auto& th : threads) th.join();
  Logging::flush();
  EXPECT_EQ(lines().size(), static_cast<size_t>(kThreads * kEach));
}

// Redirects a standard descriptor into a pipe for the life of the object.
class CapturedFd {
 public:
  explicit CapturedFd(int fd) : fd_(fd), saved_(::dup(fd)) {
    int p[2];
    EXPECT_EQ(::pipe2(p, O_NONBLOCK), 0);
    read_ = p[0];
    ::dup2(p[1], fd_);
    ::close(p[1]);
  }
  ~CapturedFd() {
    restore();
    ::close(read_);
  }
  void restore() {
    if (saved_ < 0) return;
    ::dup2(saved_, fd_);
    ::close(saved_);
    saved_ = -1;
  }
  std::string take() {
    restore();
    std::string out;
    char buf[4096];
    ssize_t n;
    while ((n = ::read(read_, buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
    return out;
  }

 private:
  int fd_, saved_, read_ = -1;
};

TEST(LoggingStreamsTest, DefaultSinkWritesStderrOnlyNeverStdout) {
  setLogSink(nullptr);
  Logging::flush();
  std::string out, err;
  {
    CapturedFd stdoutCap(STDOUT_FILENO);
    CapturedFd stderrCap(STDERR_FILENO);
    Logging::logWarningWithTag("T", "warn\nx");
    Logging::logErrorWithTag(std::nullopt, "err");
    systemLog("sys");
    Logging::flush();
    out = stdoutCap.take();
    err = stderrCap.take();
  }
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "[T], warn\\nx\nerr\nsys\n");
}

}  // namespace
}  // namespace wren

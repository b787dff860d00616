// The host's frame reader on a run loop, over a pipe filled from memory: each
// case is named after the bytes it feeds the reader, and says which frames
// reach the host and whether (and why) the stream ends.
#include "host/stdin_reader.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <vector>

#include "host/framing.h"
#include "util/logging.h"

namespace wren {
namespace {

std::string header(uint32_t length) {
  FrameHeader h = encodeFrameHeader(length);
  return std::string(h.data(), h.size());
}

const std::string kHook = R"({"type":"hook","name":"validateToolbarItem"})";

struct ReaderCase {
  const char* name;
  std::vector<std::string> pieces;  // each written once the reader has taken the one before
  std::vector<std::string> frames;  // what reaches the host: a hook's name, or why the frame was dropped
  const char* endLog;               // the log line's telling part, or "" for a quiet end
};

const ReaderCase kReaderCases[] = {
    {"NothingAtAll", {}, {}, ""},
    {"TwoFramesInOneChunk", {encodeFrame(kHook) + encodeFrame("[]")},
     {"validateToolbarItem", "frame is not a JSON object"}, ""},
    {"OneFrameInPieces", {header(kHook.size()).substr(0, 1), header(kHook.size()).substr(1) + kHook.substr(0, 9),
                          kHook.substr(9)},
     {"validateToolbarItem"}, ""},
    {"ManyFramesOverAPipeful", {[] {
       std::string all;
       for (int i = 0; i < 3000; ++i) all += encodeFrame(kHook);
       return all;
     }()},
     std::vector<std::string>(3000, "validateToolbarItem"), ""},
    {"EmptyPayload", {header(0)}, {"frame is not JSON or nests deeper than 512 levels"}, ""},
    {"TruncatedLength", {header(7).substr(0, 3)}, {}, "truncated frame"},
    {"TruncatedBody", {header(7) + "{\"a\""}, {}, "truncated frame"},
    {"LengthOverTheLimit", {header(kMaxIncomingFrameBytes + 1) + kHook}, {}, "over the limit"},
};

class StdinReaderTest : public ::testing::TestWithParam<ReaderCase> {};

TEST_P(StdinReaderTest, HandsOnWhatTheBytesHold) {
  const ReaderCase& c = GetParam();
  std::vector<std::string> logged;
  setLogSink([&](std::string_view line) { logged.emplace_back(line); });
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  RunLoop loop;
  std::vector<std::string> frames;
  bool ended = false;
  StdinReader reader(
      loop, fds[0],
      [&](ParsedEnvelope&& parsed) {
        auto* hook = parsed.value ? std::get_if<IncomingHook>(&*parsed.value) : nullptr;
        frames.push_back(hook ? hook->name : parsed.error);
      },
      [&] { ended = true; });
  reader.start();
  // The writer runs beside the loop, so a piece larger than the pipe holds
  // goes in while the loop reads.
  std::thread writer([&] {
    for (const auto& piece : c.pieces) {
      for (size_t off = 0; off < piece.size();) {
        ssize_t n = ::write(fds[1], piece.data() + off, piece.size() - off);
        ASSERT_GT(n, 0);
        off += static_cast<size_t>(n);
      }
      for (auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
           std::chrono::steady_clock::now() < end; std::this_thread::yield()) {
        int left = 0;
        if (::ioctl(fds[0], FIONREAD, &left) == 0 && left == 0) break;
      }
    }
    ::close(fds[1]);
  });
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  loop.runUntil([&] { return ended || std::chrono::steady_clock::now() > deadline; });
  writer.join();
  setLogSink(nullptr);
  ::close(fds[0]);
  EXPECT_TRUE(ended);
  EXPECT_EQ(frames, c.frames);
  std::string endLog = logged.empty() ? "" : logged.back();
  if (*c.endLog)
    EXPECT_NE(endLog.find(c.endLog), std::string::npos) << endLog;
  else
    EXPECT_TRUE(logged.empty()) << endLog;
}

INSTANTIATE_TEST_SUITE_P(Bytes, StdinReaderTest, ::testing::ValuesIn(kReaderCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(WriteFrameTest, WritesWhatTheReaderReadsAndNothingOverTheLimit) {
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  EXPECT_FALSE(writeFrame(fds[1], std::string(kMaxOutgoingFrameBytes + 1, 'x')));
  ASSERT_TRUE(writeFrame(fds[1], kHook));
  ::close(fds[1]);
  RunLoop loop;
  std::vector<std::string> names;
  bool ended = false;
  StdinReader reader(
      loop, fds[0], [&](ParsedEnvelope&& parsed) { names.push_back(std::get<IncomingHook>(*parsed.value).name); },
      [&] { ended = true; });
  reader.start();
  loop.runUntil([&] { return ended; });
  ::close(fds[0]);
  EXPECT_EQ(names, std::vector<std::string>{"validateToolbarItem"});
}

}  // namespace
}  // namespace wren

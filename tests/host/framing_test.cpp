// FrameReader and writeFrame over a pipe filled from memory: each case is
// named after the bytes it feeds the reader.
#include "host/framing.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <vector>

namespace wren {
namespace {

std::string header(uint32_t length) {
  FrameHeader h = encodeFrameHeader(length);
  return std::string(h.data(), h.size());
}

struct Pipe {
  int fds[2];
  Pipe() { EXPECT_EQ(::pipe(fds), 0); }
  ~Pipe() {
    for (int fd : fds)
      if (fd >= 0) ::close(fd);
  }
  void closeWriter() { ::close(std::exchange(fds[1], -1)); }
  // Whether the reader has taken every byte written so far, within a second.
  bool drained() const {
    for (auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
         std::chrono::steady_clock::now() < end; std::this_thread::yield()) {
      int left = 0;
      if (::ioctl(fds[0], FIONREAD, &left) == 0 && left == 0) return true;
    }
    return false;
  }
};

struct Expected {
  ReadStatus status;
  std::string payload;
  uint64_t announced;
};

struct ReaderCase {
  const char* name;
  std::vector<std::string> pieces;  // each written once the reader has taken the one before
  std::vector<Expected> reads;      // the reader's results in order
};

const ReaderCase kReaderCases[] = {
    {"NothingAtAll", {}, {{ReadStatus::kEndOfStream, "", 0}}},
    {"TwoFramesInOneChunk",
     {encodeFrame("{\"a\":1}") + encodeFrame("[]")},
     {{ReadStatus::kFrame, "{\"a\":1}", 7}, {ReadStatus::kFrame, "[]", 2}, {ReadStatus::kEndOfStream, "", 0}}},
    {"OneFrameInPieces",
     {header(7).substr(0, 1), header(7).substr(1) + "{\"a", "\":1}"},
     {{ReadStatus::kFrame, "{\"a\":1}", 7}, {ReadStatus::kEndOfStream, "", 0}}},
    {"EmptyPayload", {header(0)}, {{ReadStatus::kFrame, "", 0}, {ReadStatus::kEndOfStream, "", 0}}},
    {"TruncatedLength", {header(7).substr(0, 3)}, {{ReadStatus::kTruncated, "", 0}}},
    {"TruncatedBody", {header(7) + "{\"a\""}, {{ReadStatus::kTruncated, "", 7}}},
    {"LengthOverTheLimit",
     {header(kMaxIncomingFrameBytes + 1)},
     {{ReadStatus::kTooLong, "", kMaxIncomingFrameBytes + 1}}},
};

class FrameReaderTest : public ::testing::TestWithParam<ReaderCase> {};

TEST_P(FrameReaderTest, ReadsWhatTheBytesHold) {
  const ReaderCase& c = GetParam();
  Pipe pipe;
  std::thread writer([&] {
    for (const auto& piece : c.pieces) {
      ASSERT_EQ(::write(pipe.fds[1], piece.data(), piece.size()), static_cast<ssize_t>(piece.size()));
      EXPECT_TRUE(pipe.drained());
    }
    pipe.closeWriter();
  });
  FrameReader reader(pipe.fds[0]);
  for (const Expected& want : c.reads) {
    ReadResult got = reader.next();
    EXPECT_EQ(readStatusName(got.status), readStatusName(want.status));
    EXPECT_EQ(got.payload, want.payload);
    EXPECT_EQ(got.announced, want.announced);
  }
  writer.join();
}

INSTANTIATE_TEST_SUITE_P(Bytes, FrameReaderTest, ::testing::ValuesIn(kReaderCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(FrameReaderTest, AByteOnTheCancelDescriptorEndsAWaitingRead) {
  Pipe input, cancel;
  std::thread canceller([&] {
    EXPECT_TRUE(input.drained());
    ASSERT_EQ(::write(cancel.fds[1], "x", 1), 1);
  });
  ASSERT_EQ(::write(input.fds[1], header(7).data(), 2), 2);  // half a header, then nothing
  EXPECT_EQ(FrameReader(input.fds[0], cancel.fds[0]).next().status, ReadStatus::kEndOfStream);
  canceller.join();
}

TEST(WriteFrameTest, WritesWhatTheReaderReadsAndNothingOverTheLimit) {
  Pipe pipe;
  EXPECT_FALSE(writeFrame(pipe.fds[1], std::string(kMaxOutgoingFrameBytes + 1, 'x')));
  ASSERT_TRUE(writeFrame(pipe.fds[1], "{\"type\":\"hello\"}"));
  pipe.closeWriter();
  FrameReader reader(pipe.fds[0]);
  EXPECT_EQ(reader.next().payload, "{\"type\":\"hello\"}");
  EXPECT_EQ(reader.next().status, ReadStatus::kEndOfStream);
}

}  // namespace
}  // namespace wren

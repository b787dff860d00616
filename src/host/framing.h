#pragma once
// Reading and writing native-messaging frames (host/frame_codec.h) on plain
// file descriptors; they know nothing about the JSON inside.
#include <cstdint>
#include <string>
#include <string_view>

#include "host/frame_codec.h"

namespace wren {

enum class ReadStatus { kFrame, kEndOfStream, kTruncated, kTooLong, kError };

struct ReadResult {
  ReadStatus status;
  std::string payload;   // kFrame only
  uint64_t announced = 0;  // the length read from the header
};

// Blocking reader of frames from fd. Not thread-safe; one reader thread owns it.
// When cancelFd is given, a byte (or EOF) on it ends a waiting read with
// kEndOfStream, so the owner can stop the reader thread and join it.
class FrameReader {
 public:
  explicit FrameReader(int fd, int cancelFd = -1) : fd_(fd), cancelFd_(cancelFd) {}
  ReadResult next();

 private:
  // Reads exactly n bytes; returns the count read before EOF, cancellation
  // or an error.
  size_t readFully(char* buf, size_t n, bool* error, bool* cancelled);
  int fd_;
  int cancelFd_;
};

// Writes one frame (header and payload in one go). Returns false when the
// payload is too long (nothing is written) or the write failed.
bool writeFrame(int fd, std::string_view payload);

std::string_view readStatusName(ReadStatus status);

}  // namespace wren

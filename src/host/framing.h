#pragma once
// The native-messaging byte format: each frame is a 32-bit length in native
// byte order followed by that many bytes of UTF-8 JSON. Reader and writer work
// on plain file descriptors and know nothing about the JSON inside.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace wren {

// Browsers send at most 64 MiB to a host. A longer announcement means the
// stream is corrupt and cannot be resynchronised.
inline constexpr uint32_t kMaxIncomingFrameBytes = 64u * 1024 * 1024;
// Browsers close the port on a message longer than 1 MiB from the host, so
// such a message is dropped instead of sent.
inline constexpr size_t kMaxOutgoingFrameBytes = 1024 * 1024;
inline constexpr size_t kFrameHeaderBytes = sizeof(uint32_t);

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

// A frame's bytes, for tests and tools.
std::string encodeFrame(std::string_view payload);

std::string_view readStatusName(ReadStatus status);

}  // namespace wren

#pragma once
// The native-messaging byte format, written down once: each frame is a 32-bit
// length in native byte order followed by that many bytes of UTF-8 JSON. The
// host's reader and writer, the doctor's round trip, the tests' and the
// benchmarks' stand-in browsers all encode and decode frames with this.
//
// Header-only and free of the host's other code, so test and benchmark
// drivers can use it without the host's libraries.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
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

using FrameHeader = std::array<char, kFrameHeaderBytes>;

inline FrameHeader encodeFrameHeader(uint32_t length) {
  FrameHeader header;
  std::memcpy(header.data(), &length, sizeof length);
  return header;
}

// The payload length a header announces; `header` holds kFrameHeaderBytes.
inline uint32_t decodeFrameHeader(const char* header) {
  uint32_t length;
  std::memcpy(&length, header, sizeof length);
  return length;
}

// A whole frame's bytes. The caller keeps the payload within the limit of its
// direction.
inline std::string encodeFrame(std::string_view payload) {
  const FrameHeader header = encodeFrameHeader(static_cast<uint32_t>(payload.size()));
  std::string frame(header.data(), header.size());
  frame.append(payload);
  return frame;
}

}  // namespace wren

#include "host/framing.h"

#include <errno.h>
#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>

namespace wren {

size_t FrameReader::readFully(char* buf, size_t n, bool* error, bool* cancelled) {
  size_t got = 0;
  while (got < n) {
    if (cancelFd_ >= 0) {
      pollfd fds[2] = {{fd_, POLLIN, 0}, {cancelFd_, POLLIN, 0}};
      int p = ::poll(fds, 2, -1);
      if (p < 0) {
        if (errno == EINTR) continue;
        *error = true;
        break;
      }
      if (fds[1].revents) {
        *cancelled = true;
        break;
      }
    }
    ssize_t r = ::read(fd_, buf + got, n - got);
    if (r == 0) break;
    if (r < 0) {
      if (errno == EINTR) continue;
      *error = true;
      break;
    }
    got += static_cast<size_t>(r);
  }
  return got;
}

ReadResult FrameReader::next() {
  char header[kFrameHeaderBytes];
  bool error = false, cancelled = false;
  size_t got = readFully(header, sizeof header, &error, &cancelled);
  if (cancelled) return {ReadStatus::kEndOfStream, {}, 0};
  if (error) return {ReadStatus::kError, {}, 0};
  if (got == 0) return {ReadStatus::kEndOfStream, {}, 0};
  if (got < sizeof header) return {ReadStatus::kTruncated, {}, 0};
  const uint32_t length = decodeFrameHeader(header);
  if (length > kMaxIncomingFrameBytes) return {ReadStatus::kTooLong, {}, length};
  ReadResult result{ReadStatus::kFrame, std::string(length, '\0'), length};
  got = readFully(result.payload.data(), length, &error, &cancelled);
  if (cancelled) return {ReadStatus::kEndOfStream, {}, 0};
  if (error) return {ReadStatus::kError, {}, length};
  if (got < length) return {ReadStatus::kTruncated, {}, length};
  return result;
}

bool writeFrame(int fd, std::string_view payload) {
  if (payload.size() > kMaxOutgoingFrameBytes) return false;
  FrameHeader header = encodeFrameHeader(static_cast<uint32_t>(payload.size()));
  iovec parts[2] = {{header.data(), header.size()}, {const_cast<char*>(payload.data()), payload.size()}};
  size_t total = header.size() + payload.size();
  size_t written = 0;
  while (written < total) {
    ssize_t w = ::writev(fd, parts, 2);
    if (w < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    written += static_cast<size_t>(w);
    // Advance the iovecs past what was written.
    size_t skip = static_cast<size_t>(w);
    for (auto& p : parts) {
      size_t take = std::min(skip, p.iov_len);
      p.iov_base = static_cast<char*>(p.iov_base) + take;
      p.iov_len -= take;
      skip -= take;
    }
  }
  return true;
}

std::string_view readStatusName(ReadStatus status) {
  switch (status) {
    case ReadStatus::kFrame: return "frame";
    case ReadStatus::kEndOfStream: return "end of stream";
    case ReadStatus::kTruncated: return "truncated frame";
    case ReadStatus::kTooLong: return "frame too long";
    case ReadStatus::kError: return "read error";
  }
  return "?";
}

}  // namespace wren

#include "host/stdin_reader.h"

#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "host/frame_codec.h"
#include "util/fd_io.h"
#include "util/logging.h"

namespace wren {

StdinReader::StdinReader(RunLoop& loop, int fd, Handler handle, std::function<void()> atEnd)
    : loop_(loop), fd_(fd), handle_(std::move(handle)), atEnd_(std::move(atEnd)) {}

StdinReader::~StdinReader() { stop(); }

void StdinReader::start() {
  makeNonBlocking(fd_);
  watching_ = true;
  loop_.watchReadable(fd_, [this] { onReadable(); });
}

void StdinReader::stop() {
  if (!watching_) return;
  watching_ = false;
  loop_.unwatchReadable(fd_);
}

void StdinReader::makeRoom(size_t bytes) {
  size_t unread = end_ - begin_;
  if (begin_ > 0 && unread > 0) std::memmove(buffer_.get(), buffer_.get() + begin_, unread);
  begin_ = 0;
  end_ = unread;
  if (capacity_ - end_ >= bytes) return;
  size_t capacity = std::max(end_ + bytes, 2 * capacity_);
  auto grown = std::make_unique_for_overwrite<char[]>(capacity);
  if (end_ > 0) std::memcpy(grown.get(), buffer_.get(), end_);
  buffer_ = std::move(grown);
  capacity_ = capacity;
}

void StdinReader::onReadable() {
  // Ask for a whole pipe's worth, or for the rest of a frame that is larger.
  size_t want = kReadChunk;
  if (end_ - begin_ >= kFrameHeaderBytes) {
    const uint32_t length = decodeFrameHeader(buffer_.get() + begin_);
    if (length <= kMaxIncomingFrameBytes) want = std::max<size_t>(want, kFrameHeaderBytes + length - (end_ - begin_));
  }
  if (capacity_ - end_ < want) makeRoom(want);
  ssize_t n = ::read(fd_, buffer_.get() + end_, want);
  if (n < 0) {
    if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) return;
    systemLog(std::string("[wren-bridge] read error on stdin: ") + std::strerror(errno) + "; exiting");
    return end();
  }
  if (n == 0) {
    if (end_ > begin_) systemLog("[wren-bridge] truncated frame on stdin; exiting");
    return end();
  }
  end_ += static_cast<size_t>(n);
  if (!handleFrames()) return end();
  if (begin_ == end_) {
    begin_ = end_ = 0;
    if (capacity_ > kKeptBufferBytes) {
      buffer_.reset();
      capacity_ = 0;
    }
  }
}

bool StdinReader::handleFrames() {
  while (watching_ && end_ - begin_ >= kFrameHeaderBytes) {
    const uint32_t length = decodeFrameHeader(buffer_.get() + begin_);
    if (length > kMaxIncomingFrameBytes) {
      systemLog("[wren-bridge] frame of " + std::to_string(length) + " bytes announced, over the limit of " +
                std::to_string(kMaxIncomingFrameBytes) + "; the stream cannot be resynchronised, exiting");
      return false;
    }
    if (end_ - begin_ - kFrameHeaderBytes < length) break;
    std::string_view payload(buffer_.get() + begin_ + kFrameHeaderBytes, length);
    begin_ += kFrameHeaderBytes + length;
    handle_(parseEnvelope(payload));
  }
  return true;
}

void StdinReader::end() {
  stop();
  if (atEnd_) atEnd_();
}

}  // namespace wren

#include "host/stdin_reader.h"

#include <unistd.h>

#include <memory>

#include "host/framing.h"
#include "util/logging.h"

namespace wren {

StdinReader::StdinReader(RunLoop& loop, int fd, Handler handle, std::function<void()> atEnd)
    : loop_(loop), fd_(fd), handle_(std::move(handle)), atEnd_(std::move(atEnd)) {}

StdinReader::~StdinReader() {
  stop();
  for (int fd : cancel_)
    if (fd >= 0) ::close(fd);
}

bool StdinReader::start() {
  if (::pipe(cancel_) != 0) return false;
  thread_ = std::thread([this] { run(); });
  return true;
}

void StdinReader::stop() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  room_.notify_all();
  if (cancel_[1] >= 0) (void)!::write(cancel_[1], "x", 1);
  if (thread_.joinable()) thread_.join();
}

bool StdinReader::reserve(size_t bytes) {
  std::unique_lock lock(mutex_);
  // A frame larger than the whole budget still goes through, alone.
  room_.wait(lock, [&] {
    return stopping_ || frames_ == 0 || (frames_ < kMaxWaitingFrames && bytes_ + bytes <= kMaxWaitingBytes);
  });
  if (stopping_) return false;
  ++frames_;
  bytes_ += bytes;
  return true;
}

void StdinReader::release(size_t bytes) {
  {
    std::lock_guard lock(mutex_);
    --frames_;
    bytes_ -= bytes;
  }
  room_.notify_all();
}

void StdinReader::run() {
  FrameReader frames(fd_, cancel_[0]);
  for (;;) {
    ReadResult r = frames.next();
    if (r.status == ReadStatus::kFrame) {
      size_t bytes = r.payload.size();
      if (!reserve(bytes)) return;
      auto parsed = std::make_shared<ParsedEnvelope>(parseEnvelope(r.payload));
      r.payload = std::string();  // only the parsed frame waits
      loop_.post([this, parsed, bytes] {
        handle_(std::move(*parsed));
        release(bytes);
      });
      continue;
    }
    if (r.status == ReadStatus::kTooLong)
      systemLog("[wren-bridge] frame of " + std::to_string(r.announced) + " bytes announced, over the limit of " +
                std::to_string(kMaxIncomingFrameBytes) + "; the stream cannot be resynchronised, exiting");
    else if (r.status != ReadStatus::kEndOfStream)
      systemLog(std::string("[wren-bridge] ") + std::string(readStatusName(r.status)) + " on stdin; exiting");
    // Queued behind the frames already read, so those are still handled.
    loop_.post([this] {
      if (atEnd_) atEnd_();
    });
    return;
  }
}

}  // namespace wren

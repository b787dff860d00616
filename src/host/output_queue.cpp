#include "host/output_queue.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>

namespace wren {

OutputQueue::OutputQueue(RunLoop& loop, int fd, std::function<void()> onBroken)
    : loop_(loop), fd_(fd), onBroken_(std::move(onBroken)) {
  int flags = ::fcntl(fd_, F_GETFL);
  if (flags >= 0) ::fcntl(fd_, F_SETFL, flags | O_NONBLOCK);
}

OutputQueue::~OutputQueue() {
  alive_.reset();
  if (watching_) loop_.unwatch(fd_);
}

OutputQueue::Push OutputQueue::push(std::string payload) {
  if (broken_) return Push::kBroken;
  Frame frame{encodeFrameHeader(static_cast<uint32_t>(payload.size())), std::move(payload)};
  if (bytes_ + frame.size() > kMaxQueuedBytes) return Push::kRefused;
  bytes_ += frame.size();
  peakBytes_ = std::max(peakBytes_, bytes_);
  frames_.push_back(std::move(frame));
  if (!watching_ && !flushPosted_) {
    flushPosted_ = true;
    loop_.post([this, alive = std::weak_ptr<bool>(alive_)] {
      if (!alive.lock()) return;
      flushPosted_ = false;
      if (!watching_ && !broken_) writeSome();
    });
  }
  return Push::kQueued;
}

bool OutputQueue::writeSome() {
  while (!frames_.empty()) {
    iovec parts[2 * kFramesPerWrite];
    size_t count = 0;
    size_t skip = written_;  // only the front frame can be partly written
    for (auto it = frames_.begin(); it != frames_.end() && count + 2 <= 2 * kFramesPerWrite; ++it) {
      auto add = [&](const void* data, size_t size) {
        size_t from = std::min(skip, size);
        skip -= from;
        if (from < size) parts[count++] = {const_cast<char*>(static_cast<const char*>(data)) + from, size - from};
      };
      add(it->header.data(), it->header.size());
      add(it->payload.data(), it->payload.size());
    }
    ssize_t n = ::writev(fd_, parts, static_cast<int>(count));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      watch();
      return true;
    }
    if (n <= 0) {
      breakDown();
      return false;
    }
    bytes_ -= static_cast<size_t>(n);
    size_t done = written_ + static_cast<size_t>(n);
    while (!frames_.empty() && done >= frames_.front().size()) {
      done -= frames_.front().size();
      frames_.pop_front();
    }
    written_ = done;
  }
  // Drained: a burst's worth of queue is not kept.
  if (peakBytes_ > kKeptQueueBytes) {
    std::deque<Frame>().swap(frames_);
    peakBytes_ = 0;
  }
  return true;
}

void OutputQueue::watch() {
  watching_ = true;
  loop_.watchWritable(fd_, [this] {
    watching_ = false;
    writeSome();
  });
}

void OutputQueue::breakDown() {
  broken_ = true;
  frames_.clear();
  bytes_ = 0;
  if (onBroken_) onBroken_();
}

}  // namespace wren

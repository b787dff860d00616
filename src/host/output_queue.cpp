#include "host/output_queue.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "host/framing.h"

namespace wren {

OutputQueue::OutputQueue(RunLoop& loop, int fd, std::function<void()> onBroken)
    : loop_(loop), fd_(fd), onBroken_(std::move(onBroken)) {
  int flags = ::fcntl(fd_, F_GETFL);
  if (flags >= 0) ::fcntl(fd_, F_SETFL, flags | O_NONBLOCK);
}

OutputQueue::~OutputQueue() {
  if (watching_) loop_.unwatch(fd_);
}

OutputQueue::Push OutputQueue::push(std::string_view payload) {
  if (broken_) return Push::kBroken;
  std::string frame = encodeFrame(payload);
  if (bytes_ + frame.size() > kMaxQueuedBytes) return Push::kRefused;
  bytes_ += frame.size();
  frames_.push_back(std::move(frame));
  if (!watching_ && !writeSome()) return Push::kBroken;
  return Push::kQueued;
}

bool OutputQueue::writeSome() {
  while (!frames_.empty()) {
    const std::string& front = frames_.front();
    ssize_t n = ::write(fd_, front.data() + written_, front.size() - written_);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      watch();
      return true;
    }
    if (n <= 0) {
      breakDown();
      return false;
    }
    written_ += static_cast<size_t>(n);
    bytes_ -= static_cast<size_t>(n);
    if (written_ == front.size()) {
      frames_.pop_front();
      written_ = 0;
    }
  }
  // Drained: a burst's worth of queue is not kept.
  if (bytes_ == 0) std::deque<std::string>().swap(frames_);
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

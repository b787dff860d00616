#include "net/run_loop.h"

#include <poll.h>

#include <algorithm>
#include <cassert>

#include "net/curl_transfers.h"

namespace wren {

RunLoop::RunLoop() : owner_(std::this_thread::get_id()), transfers_(std::make_unique<CurlTransfers>(*this)) {}

RunLoop::~RunLoop() = default;

RunLoop& RunLoop::main() {
  static RunLoop loop;
  return loop;
}

void RunLoop::post(Task fn) {
  bool wasEmpty;
  {
    std::lock_guard lock(mutex_);
    wasEmpty = posted_.empty();
    posted_.push_back(std::move(fn));
  }
  // The loop checks the queue (under the lock) before it sleeps, so only the
  // first task of a batch needs to wake it, and the loop's own posts none.
  if (wasEmpty && !isLoopThread()) transfers_->wakeup();
}

RunLoop::TimerId RunLoop::addTimer(std::chrono::milliseconds delay, Task fn) {
  assert(isLoopThread());
  TimerId id = nextTimer_++;
  timers_.emplace(std::chrono::steady_clock::now() + delay, std::make_pair(id, std::move(fn)));
  return id;
}

void RunLoop::cancelTimer(TimerId id) {
  assert(isLoopThread());
  for (auto it = timers_.begin(); it != timers_.end(); ++it) {
    if (it->second.first == id) {
      timers_.erase(it);
      return;
    }
  }
}

void RunLoop::run() {
  runUntil([] { return false; });
}

void RunLoop::runUntil(const std::function<bool()>& done) {
  owner_ = std::this_thread::get_id();
  while (!quit_ && !done()) turn(kMaxWaitMs);
  quit_ = false;
}

void RunLoop::quit() {
  quit_ = true;
  transfers_->wakeup();
}

bool RunLoop::isLoopThread() const { return owner_.load() == std::this_thread::get_id(); }

size_t RunLoop::pendingTransfers() const { return transfers_->pending(); }

void RunLoop::watchWritable(int fd, Task ready) {
  assert(isLoopThread());
  writable_[fd] = std::move(ready);
}

void RunLoop::unwatch(int fd) { writable_.erase(fd); }

void RunLoop::watchReadable(int fd, Task ready) {
  assert(isLoopThread());
  readable_[fd] = std::move(ready);
}

void RunLoop::unwatchReadable(int fd) { readable_.erase(fd); }

void RunLoop::runWritable(const std::vector<int>& watched) {
  if (watched.empty()) return;
  // Asked again without waiting: libcurl's poll reports only in, out and
  // priority, and a descriptor whose reader is gone reports an error, which
  // must run its watch too (the write then finds out) rather than wake every
  // poll.
  std::vector<pollfd> fds;
  fds.reserve(watched.size());
  for (int fd : watched) fds.push_back(pollfd{fd, POLLOUT, 0});
  if (::poll(fds.data(), fds.size(), 0) <= 0) return;
  for (const pollfd& p : fds) {
    if (!p.revents) continue;
    auto it = writable_.find(p.fd);
    if (it == writable_.end()) continue;
    Task ready = std::move(it->second);
    writable_.erase(it);
    if (ready) ready();
  }
}

int RunLoop::waitMs(int maxWaitMs) {
  {
    std::lock_guard lock(mutex_);
    if (!posted_.empty()) return 0;
  }
  int wait = maxWaitMs;
  if (!timers_.empty()) {
    auto until = timers_.begin()->first - std::chrono::steady_clock::now();
    auto ms = std::chrono::ceil<std::chrono::milliseconds>(until).count();
    wait = static_cast<int>(std::clamp<long long>(ms, 0, maxWaitMs));
  }
  return wait;
}

void RunLoop::turn(int maxWaitMs) {
  // Sleep first and work last, so that a caller of runUntil() sees the
  // effect of this turn's work as soon as the turn returns.
  int wait = waitMs(maxWaitMs);
  toRead_.clear();
  for (const auto& [fd, ready] : readable_) toRead_.push_back(fd);
  toWrite_.clear();
  for (const auto& [fd, ready] : writable_) toWrite_.push_back(fd);
  transfers_->wait(toRead_, toWrite_, wait);
  for (int fd : toRead_) {
    auto it = readable_.find(fd);
    if (it == readable_.end()) continue;
    Task ready = it->second;  // a copy: `ready` may unwatch its own descriptor
    ready();
  }
  transfers_->perform();
  runWritable(toWrite_);
  runPosted();
  runTimers();
}

void RunLoop::runPosted() {
  std::vector<Task> tasks;
  {
    std::lock_guard lock(mutex_);
    tasks.swap(posted_);
  }
  for (auto& task : tasks) task();
}

void RunLoop::runTimers() {
  auto now = std::chrono::steady_clock::now();
  // A timer added by a running timer waits for a later turn, so one that
  // keeps re-arming itself with no delay cannot starve the loop.
  while (!timers_.empty() && timers_.begin()->first <= now) {
    auto node = timers_.extract(timers_.begin());
    node.mapped().second();
  }
}

}  // namespace wren

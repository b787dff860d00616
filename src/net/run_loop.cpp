#include "net/run_loop.h"

#include <malloc.h>
#include <poll.h>

#include <algorithm>
#include <cassert>
#include <string>

#include "util/logging.h"

namespace wren {

namespace {

void initCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] {
    CURLcode rc = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (rc != CURLE_OK)
      Logging::logErrorWithTag(std::nullopt, std::string("curl_global_init failed: ") + curl_easy_strerror(rc));
  });
}

// Logs a multi-handle failure; returns true when the call succeeded.
bool multiOk(CURLMcode rc, const char* what) {
  if (rc == CURLM_OK) return true;
  Logging::logWarningWithTag(std::nullopt, std::string(what) + " failed: " + curl_multi_strerror(rc));
  return false;
}

}  // namespace

RunLoop::RunLoop() : owner_(std::this_thread::get_id()) {
  initCurlOnce();
  multi_ = curl_multi_init();
  if (!multi_) {
    Logging::logErrorWithTag(std::nullopt, "curl_multi_init failed");
    return;
  }
  // Idle connections kept open for reuse: no more than can be busy at once,
  // so descriptors stay bounded whatever a burst asked for.
  multiOk(curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, static_cast<long>(kMaxTransfersInFlight)),
          "CURLMOPT_MAXCONNECTS");
}

RunLoop::~RunLoop() {
  // Transfers still in flight are dropped without their completions: whoever
  // destroys a loop no longer wants its results.
  auto transfers = std::move(transfers_);
  transfers_.clear();
  for (auto& [easy, done] : transfers) {
    if (multi_) multiOk(curl_multi_remove_handle(multi_, easy), "curl_multi_remove_handle");
    curl_easy_cleanup(easy);
  }
  transfers.clear();
  for (auto& [easy, done] : waiting_) curl_easy_cleanup(easy);
  waiting_.clear();
  for (CURL* easy : idleEasy_) curl_easy_cleanup(easy);
  idleEasy_.clear();
  if (multi_) multiOk(curl_multi_cleanup(multi_), "curl_multi_cleanup");
}

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
  // first task of a batch needs to wake it.
  if (wasEmpty && multi_) multiOk(curl_multi_wakeup(multi_), "curl_multi_wakeup");
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
  if (multi_) multiOk(curl_multi_wakeup(multi_), "curl_multi_wakeup");
}

bool RunLoop::isLoopThread() const { return owner_.load() == std::this_thread::get_id(); }

void RunLoop::addTransfer(CURL* easy, std::function<void(CURLcode)> done) {
  assert(isLoopThread());
  if (multi_ && (transfers_.size() >= kMaxTransfersInFlight || !waiting_.empty())) {
    burst_ = true;
    waiting_.emplace_back(easy, std::move(done));
    if (waiting_.size() <= kMaxWaitingTransfers) return;
    CURL* oldest = waiting_.front().first;
    auto dropped = std::move(waiting_.front().second);
    waiting_.pop_front();
    // One line for the first drop of a burst; the count follows when it ends.
    if (droppedInBurst_++ == 0)
      Logging::logWarningWithTag(std::nullopt, "dropped the oldest waiting request: more than " +
                                                   std::to_string(kMaxWaitingTransfers) + " were waiting");
    post([oldest, dropped = std::move(dropped)] {
      if (dropped) dropped(kDroppedTransfer);
      curl_easy_cleanup(oldest);
    });
    return;
  }
  if (!multi_ || !multiOk(curl_multi_add_handle(multi_, easy), "curl_multi_add_handle")) {
    // Still complete, but never from inside the caller's own call.
    auto shared = std::make_shared<std::function<void(CURLcode)>>(std::move(done));
    post([easy, shared] {
      (*shared)(CURLE_FAILED_INIT);
      curl_easy_cleanup(easy);
    });
    return;
  }
  transfers_[easy] = std::move(done);
}

CURL* RunLoop::takeEasyHandle() {
  assert(isLoopThread());
  if (idleEasy_.empty()) return curl_easy_init();
  CURL* easy = idleEasy_.back();
  idleEasy_.pop_back();
  return easy;
}

void RunLoop::startWaiting() {
  while (transfers_.size() < kMaxTransfersInFlight && !waiting_.empty()) {
    auto [easy, done] = std::move(waiting_.front());
    waiting_.pop_front();
    if (multiOk(curl_multi_add_handle(multi_, easy), "curl_multi_add_handle")) {
      transfers_[easy] = std::move(done);
    } else {
      if (done) done(CURLE_FAILED_INIT);
      curl_easy_cleanup(easy);
    }
  }
  if (transfers_.empty() && waiting_.empty() && burst_) trimAfterBurst();
}

void RunLoop::trimAfterBurst() {
  burst_ = false;
  if (droppedInBurst_ > 0)
    Logging::logWarningWithTag(std::nullopt, "a burst of requests is over; " + std::to_string(droppedInBurst_) +
                                                 " waiting requests were dropped");
  droppedInBurst_ = 0;
  // The containers let go of what the burst made them grow to, then the
  // allocator hands its free pages back.
  std::deque<std::pair<CURL*, std::function<void(CURLcode)>>>().swap(waiting_);
  std::unordered_map<CURL*, std::function<void(CURLcode)>>().swap(transfers_);
  for (CURL* easy : idleEasy_) curl_easy_cleanup(easy);
  idleEasy_.clear();
  idleEasy_.shrink_to_fit();
  malloc_trim(0);
}

void RunLoop::watchWritable(int fd, Task ready) {
  assert(isLoopThread());
  writable_[fd] = std::move(ready);
}

void RunLoop::unwatch(int fd) { writable_.erase(fd); }

void RunLoop::runWritable(const std::vector<curl_waitfd>& watched) {
  if (watched.empty()) return;
  // Asked again without waiting: libcurl reports only in, out and priority,
  // and a descriptor whose reader is gone reports an error, which must run
  // its watch too (the write then finds out) rather than wake every poll.
  std::vector<pollfd> fds;
  fds.reserve(watched.size());
  for (const curl_waitfd& w : watched) fds.push_back(pollfd{w.fd, POLLOUT, 0});
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

void RunLoop::recycle(CURL* easy) {
  if (idleEasy_.size() >= kMaxIdleEasyHandles) {
    curl_easy_cleanup(easy);
    return;
  }
  // Back to libcurl's defaults: nothing of the finished request (options,
  // header list, callbacks, error buffer) carries over to the next one.
  curl_easy_reset(easy);
  idleEasy_.push_back(easy);
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
  // effect of this turn's work as soon as the turn returns. curl_multi_poll
  // also honours libcurl's own timeouts and returns early on a wakeup.
  int wait = waitMs(maxWaitMs);
  std::vector<curl_waitfd> watched;
  watched.reserve(writable_.size());
  for (const auto& [fd, ready] : writable_)
    watched.push_back(curl_waitfd{fd, CURL_WAIT_POLLOUT, 0});
  if (multi_) {
    if (!multiOk(curl_multi_poll(multi_, watched.data(), static_cast<unsigned>(watched.size()), wait, nullptr),
                 "curl_multi_poll"))
      std::this_thread::sleep_for(std::chrono::milliseconds(wait));  // don't spin on a broken handle
    int running = 0;
    multiOk(curl_multi_perform(multi_, &running), "curl_multi_perform");
    finishTransfers();
    startWaiting();
  } else {
    std::this_thread::sleep_for(std::chrono::milliseconds(std::min(wait, 10)));
  }
  runWritable(watched);
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

int RunLoop::runTimers() {
  auto now = std::chrono::steady_clock::now();
  // A timer added by a running timer waits for a later turn, so one that
  // keeps re-arming itself with no delay cannot starve the loop.
  while (!timers_.empty() && timers_.begin()->first <= now) {
    auto node = timers_.extract(timers_.begin());
    node.mapped().second();
  }
  if (timers_.empty()) return -1;
  auto until = timers_.begin()->first - std::chrono::steady_clock::now();
  return static_cast<int>(std::max<long long>(0, std::chrono::ceil<std::chrono::milliseconds>(until).count()));
}

void RunLoop::finishTransfers() {
  int queued = 0;
  while (CURLMsg* msg = curl_multi_info_read(multi_, &queued)) {
    if (msg->msg != CURLMSG_DONE) continue;
    CURL* easy = msg->easy_handle;
    CURLcode result = msg->data.result;  // msg is invalid after remove_handle
    auto it = transfers_.find(easy);
    multiOk(curl_multi_remove_handle(multi_, easy), "curl_multi_remove_handle");
    if (it == transfers_.end()) {
      curl_easy_cleanup(easy);
      continue;
    }
    auto done = std::move(it->second);
    transfers_.erase(it);
    if (done) done(result);
    recycle(easy);
    // `done` may own state the easy handle pointed at (error buffer,
    // header list); it goes only now, after the handle let go of it.
    done = nullptr;
  }
}

}  // namespace wren

#include "net/run_loop.h"

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
  if (!multi_) Logging::logErrorWithTag(std::nullopt, "curl_multi_init failed");
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
  if (multi_) {
    if (!multiOk(curl_multi_poll(multi_, nullptr, 0, wait, nullptr), "curl_multi_poll"))
      std::this_thread::sleep_for(std::chrono::milliseconds(wait));  // don't spin on a broken handle
    int running = 0;
    multiOk(curl_multi_perform(multi_, &running), "curl_multi_perform");
    finishTransfers();
  } else {
    std::this_thread::sleep_for(std::chrono::milliseconds(std::min(wait, 10)));
  }
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

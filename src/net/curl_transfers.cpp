#include "net/curl_transfers.h"

#include <malloc.h>

#include <algorithm>
#include <cassert>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "net/run_loop.h"
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

CurlTransfers::CurlTransfers(RunLoop& loop) : loop_(loop) {
  initCurlOnce();
  multi_ = curl_multi_init();
  if (!multi_) {
    Logging::logErrorWithTag(std::nullopt, "curl_multi_init failed");
    return;
  }
  // Idle connections kept open for reuse: no more than can be busy at once,
  // so descriptors stay bounded whatever a burst asked for.
  multiOk(curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, static_cast<long>(RunLoop::kMaxTransfersInFlight)),
          "CURLMOPT_MAXCONNECTS");
}

CurlTransfers::~CurlTransfers() {
  auto inFlight = std::move(inFlight_);
  inFlight_.clear();
  for (auto& [easy, done] : inFlight) {
    if (multi_) multiOk(curl_multi_remove_handle(multi_, easy), "curl_multi_remove_handle");
    curl_easy_cleanup(easy);
  }
  inFlight.clear();
  for (auto& [easy, done] : waiting_) curl_easy_cleanup(easy);
  waiting_.clear();
  for (CURL* easy : idleEasy_) curl_easy_cleanup(easy);
  idleEasy_.clear();
  if (multi_) multiOk(curl_multi_cleanup(multi_), "curl_multi_cleanup");
}

CURL* CurlTransfers::takeEasyHandle() {
  assert(loop_.isLoopThread());
  if (idleEasy_.empty()) return curl_easy_init();
  CURL* easy = idleEasy_.back();
  idleEasy_.pop_back();
  return easy;
}

void CurlTransfers::add(CURL* easy, Completion done) {
  assert(loop_.isLoopThread());
  if (multi_ && (inFlight_.size() >= RunLoop::kMaxTransfersInFlight || !waiting_.empty())) {
    burst_ = true;
    waiting_.emplace_back(easy, std::move(done));
    if (waiting_.size() <= RunLoop::kMaxWaitingTransfers) return;
    CURL* oldest = waiting_.front().first;
    auto dropped = std::move(waiting_.front().second);
    waiting_.pop_front();
    // One line for the first drop of a burst; the count follows when it ends.
    if (droppedInBurst_++ == 0)
      Logging::logWarningWithTag(std::nullopt, "dropped the oldest waiting request: more than " +
                                                   std::to_string(RunLoop::kMaxWaitingTransfers) + " were waiting");
    loop_.post([oldest, dropped = std::move(dropped)] {
      if (dropped) dropped(kDroppedTransfer);
      curl_easy_cleanup(oldest);
    });
    return;
  }
  if (!multi_ || !multiOk(curl_multi_add_handle(multi_, easy), "curl_multi_add_handle")) {
    // Still complete, but never from inside the caller's own call.
    auto shared = std::make_shared<Completion>(std::move(done));
    loop_.post([easy, shared] {
      (*shared)(CURLE_FAILED_INIT);
      curl_easy_cleanup(easy);
    });
    return;
  }
  inFlight_[easy] = std::move(done);
}

void CurlTransfers::wakeup() {
  if (multi_) multiOk(curl_multi_wakeup(multi_), "curl_multi_wakeup");
}

void CurlTransfers::wait(std::vector<int>& readable, const std::vector<int>& writable, int waitMs) {
  if (!multi_) {
    std::this_thread::sleep_for(std::chrono::milliseconds(std::min(waitMs, 10)));
    return;
  }
  // curl_multi_poll also honours libcurl's own timeouts.
  polled_.clear();
  for (int fd : readable) polled_.push_back(curl_waitfd{fd, CURL_WAIT_POLLIN, 0});
  for (int fd : writable) polled_.push_back(curl_waitfd{fd, CURL_WAIT_POLLOUT, 0});
  int events = 0;
  if (!multiOk(curl_multi_poll(multi_, polled_.data(), static_cast<unsigned>(polled_.size()), waitMs, &events),
               "curl_multi_poll")) {
    std::this_thread::sleep_for(std::chrono::milliseconds(waitMs));  // don't spin on a broken handle
    return;
  }
  if (events == 0) {
    readable.clear();
    return;
  }
  bool named = false;
  for (size_t i = 0; i < readable.size(); ++i) named = named || polled_[i].revents != 0;
  if (!named) return;  // a hang-up, perhaps: each gets its read
  size_t kept = 0;
  for (size_t i = 0; i < readable.size(); ++i)
    if (polled_[i].revents & CURL_WAIT_POLLIN) readable[kept++] = readable[i];
  readable.resize(kept);
}

void CurlTransfers::perform() {
  if (!multi_) return;
  int running = 0;
  multiOk(curl_multi_perform(multi_, &running), "curl_multi_perform");
  finishTransfers();
  startWaiting();
}

void CurlTransfers::finishTransfers() {
  int queued = 0;
  while (CURLMsg* msg = curl_multi_info_read(multi_, &queued)) {
    if (msg->msg != CURLMSG_DONE) continue;
    CURL* easy = msg->easy_handle;
    CURLcode result = msg->data.result;  // msg is invalid after remove_handle
    auto it = inFlight_.find(easy);
    multiOk(curl_multi_remove_handle(multi_, easy), "curl_multi_remove_handle");
    if (it == inFlight_.end()) {
      curl_easy_cleanup(easy);
      continue;
    }
    auto done = std::move(it->second);
    inFlight_.erase(it);
    if (done) done(result);
    recycle(easy);
    // `done` may own state the easy handle pointed at (error buffer,
    // header list); it goes only now, after the handle let go of it.
    done = nullptr;
  }
}

void CurlTransfers::startWaiting() {
  while (inFlight_.size() < RunLoop::kMaxTransfersInFlight && !waiting_.empty()) {
    auto [easy, done] = std::move(waiting_.front());
    waiting_.pop_front();
    if (multiOk(curl_multi_add_handle(multi_, easy), "curl_multi_add_handle")) {
      inFlight_[easy] = std::move(done);
    } else {
      if (done) done(CURLE_FAILED_INIT);
      curl_easy_cleanup(easy);
    }
  }
  if (inFlight_.empty() && waiting_.empty() && burst_) trimAfterBurst();
}

void CurlTransfers::trimAfterBurst() {
  burst_ = false;
  if (droppedInBurst_ > 0)
    Logging::logWarningWithTag(std::nullopt, "a burst of requests is over; " + std::to_string(droppedInBurst_) +
                                                 " waiting requests were dropped");
  droppedInBurst_ = 0;
  // The containers let go of what the burst made them grow to, then the
  // allocator hands its free pages back.
  std::deque<std::pair<CURL*, Completion>>().swap(waiting_);
  std::unordered_map<CURL*, Completion>().swap(inFlight_);
  for (CURL* easy : idleEasy_) curl_easy_cleanup(easy);
  idleEasy_.clear();
  idleEasy_.shrink_to_fit();
  malloc_trim(0);
}

void CurlTransfers::recycle(CURL* easy) {
  if (idleEasy_.size() >= kMaxIdleEasyHandles) {
    curl_easy_cleanup(easy);
    return;
  }
  // Back to libcurl's defaults: nothing of the finished request (options,
  // header list, callbacks, error buffer) carries over to the next one.
  curl_easy_reset(easy);
  idleEasy_.push_back(easy);
}

}  // namespace wren

#pragma once
// The run loop's HTTP side: libcurl's multi handle and the transfers in it.
// Private to src/net: only the folder's .cpp files include this header, so
// libcurl's header reaches nothing outside it.
//
// Runs on its loop's thread; wakeup() alone is safe from any thread. Owns the
// multi handle, every easy handle given to add() until that transfer's
// completion has run (in flight or waiting for a place), and the finished
// handles kept for reuse.
//
// At most RunLoop::kMaxTransfersInFlight transfers run at once; the rest wait
// in order. When more than RunLoop::kMaxWaitingTransfers wait, the oldest
// waiting one is dropped: its completion runs with kDroppedTransfer and one
// line is logged. The oldest goes because its page is the one most likely
// scrolled past or closed by now, while the newest request is what the user
// looks at. When a burst is over (nothing in flight or waiting) the memory it
// took goes back to the system.
#include <curl/curl.h>

#include <deque>
#include <functional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace wren {

class RunLoop;

class CurlTransfers {
 public:
  using Completion = std::function<void(CURLcode)>;

  // The result a dropped transfer completes with.
  static constexpr CURLcode kDroppedTransfer = CURLE_ABORTED_BY_CALLBACK;

  // Completions that must not run inside the caller's own call are posted
  // to `loop`, which outlives this object.
  explicit CurlTransfers(RunLoop& loop);
  // Transfers still in flight or waiting are dropped without their
  // completions: whoever destroys a loop no longer wants its results.
  ~CurlTransfers();
  CurlTransfers(const CurlTransfers&) = delete;
  CurlTransfers& operator=(const CurlTransfers&) = delete;

  // An easy handle for add(): one of an earlier, finished transfer, reset to
  // libcurl's defaults, when there is one, else a new one (nullptr when
  // libcurl cannot make one). Reuse spares a transfer the handle's
  // allocation and its download buffer.
  CURL* takeEasyHandle();

  // Takes the easy handle; `done` runs on the loop thread with the
  // transfer's result, then the handle is reused or cleaned up here. When
  // the multi handle refuses the transfer, `done` still runs (with
  // CURLE_FAILED_INIT) in a later turn.
  void add(CURL* easy, Completion done);

  // Sleeps up to waitMs, or until the network, a wakeup(), one of
  // `readable` (readable) or one of `writable` (writable or broken) calls.
  // On return `readable` keeps the descriptors worth a read: those found
  // readable, or all of them when the poll found an event it could not name,
  // as a hang-up shows in libcurl's poll (it reports only in, out and
  // priority).
  void wait(std::vector<int>& readable, const std::vector<int>& writable, int waitMs);
  // Moves the transfers on, runs the completions of finished ones and starts
  // waiting ones.
  void perform();
  // Ends the current or next wait() early. Any thread.
  void wakeup();

  // Transfers in flight or waiting.
  size_t pending() const { return inFlight_.size() + waiting_.size(); }

 private:
  // Finished easy handles kept for reuse. Enough for the transfers a busy
  // browser keeps in flight; a burst beyond it frees its extra handles, so
  // the memory they hold does not stay.
  static constexpr size_t kMaxIdleEasyHandles = 64;

  void finishTransfers();
  // The descriptors of one wait(), kept to spare an allocation a turn.
  std::vector<curl_waitfd> polled_;
  // Moves waiting transfers into the multi handle while there is room.
  void startWaiting();
  // Gives the memory of a finished burst back to the system.
  void trimAfterBurst();
  // Resets a finished handle and keeps it, or cleans it up past the bound.
  void recycle(CURL* easy);

  RunLoop& loop_;
  CURLM* multi_ = nullptr;
  std::unordered_map<CURL*, Completion> inFlight_;
  std::deque<std::pair<CURL*, Completion>> waiting_;
  size_t droppedInBurst_ = 0;
  bool burst_ = false;  // transfers had to wait since the loop was last idle
  std::vector<CURL*> idleEasy_;
};

}  // namespace wren

#pragma once
// The main run loop: one thread owns all state and runs, in order, posted
// work, due timers and finished HTTP transfers. libcurl's multi interface is
// driven from here with curl_multi_poll; post() and quit() wake it with
// curl_multi_wakeup, so nothing ever blocks the loop on the network.
//
// Owns the multi handle, every easy handle given to addTransfer() until that
// transfer's completion has run (in flight or waiting for a place), and the
// finished handles kept for reuse.
//
// At most kMaxTransfersInFlight transfers run at once; the rest wait in
// order. When more than kMaxWaitingTransfers wait, the oldest waiting one is
// dropped: its completion runs with kDroppedTransfer and one line is logged.
// The oldest goes because its page is the one most likely scrolled past or
// closed by now, while the newest request is what the user looks at. When a
// burst is over (nothing in flight or waiting) the loop gives the memory it
// took back to the system.
//
// post() and quit() are safe from any thread; everything else runs on the
// loop's thread (the thread that created the loop until run() is called).
#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

namespace wren {

class RunLoop {
 public:
  using Task = std::function<void()>;
  using TimerId = uint64_t;

  RunLoop();
  ~RunLoop();
  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;

  // The process's main loop, created on first use.
  static RunLoop& main();

  // Queues fn to run on the loop's thread, after the work already queued.
  void post(Task fn);
  // Runs fn once on the loop's thread after `delay`. Loop thread only.
  TimerId addTimer(std::chrono::milliseconds delay, Task fn);
  void cancelTimer(TimerId id);

  // Runs until quit(). The calling thread becomes the loop's thread.
  void run();
  // Runs until `done()` is true after a turn, or quit(). For tools and tests.
  void runUntil(const std::function<bool()>& done);
  // Makes run()/runUntil() return after the current turn. A quit() that
  // arrives while the loop is not running ends the next run at once.
  void quit();

  bool isLoopThread() const;
  // Transfers in flight or waiting (for "exit once nothing is pending").
  size_t pendingTransfers() const { return transfers_.size() + waiting_.size(); }
  size_t transfersInFlight() const { return transfers_.size(); }

  // Transfers run at once. The local service answers in milliseconds, so a
  // few dozen keep it busy; each one more costs a socket and its buffers.
  static constexpr size_t kMaxTransfersInFlight = 32;
  // Transfers waiting for a place, about a page's worth of seconds of
  // ratings; past this the oldest is dropped (see above).
  static constexpr size_t kMaxWaitingTransfers = 512;
  // The result a dropped transfer completes with.
  static constexpr CURLcode kDroppedTransfer = CURLE_ABORTED_BY_CALLBACK;

  // Runs `ready` once, on the loop thread, in the first turn that finds fd
  // writable (or broken). One watch a descriptor; a new one replaces it.
  // Loop thread only.
  void watchWritable(int fd, Task ready);
  void unwatch(int fd);

  // Takes the easy handle into the multi handle; `done` runs on the loop
  // thread with the transfer's result, then the handle is removed and
  // cleaned up by the loop. Loop thread only. When the multi handle refuses
  // the transfer, `done` still runs (with CURLE_FAILED_INIT) in a later turn.
  void addTransfer(CURL* easy, std::function<void(CURLcode)> done);

  // An easy handle for addTransfer(): one of an earlier, finished transfer,
  // reset to libcurl's defaults, when there is one, else a new one (nullptr
  // when libcurl cannot make one). Reuse spares a transfer the handle's
  // allocation and its download buffer. Loop thread only.
  CURL* takeEasyHandle();

  // The multi handle, shared by every transfer so connections are reused.
  CURLM* multi() const { return multi_; }

 private:
  // The longest a turn sleeps with nothing due: a safety net only, every
  // event that matters wakes the poll itself.
  static constexpr int kMaxWaitMs = 1000;
  // Finished easy handles kept for reuse. Enough for the transfers a busy
  // browser keeps in flight; a burst beyond it frees its extra handles, so
  // the memory they hold does not stay.
  static constexpr size_t kMaxIdleEasyHandles = 64;

  void turn(int maxWaitMs);
  void runPosted();
  int runTimers();  // returns ms until the next timer, or -1
  void finishTransfers();
  // Moves waiting transfers into the multi handle while there is room.
  void startWaiting();
  // Gives the memory of a finished burst back to the system.
  void trimAfterBurst();
  void runWritable(const std::vector<curl_waitfd>& polled);
  // Resets a finished handle and keeps it, or cleans it up past the bound.
  void recycle(CURL* easy);
  int waitMs(int maxWaitMs);

  CURLM* multi_ = nullptr;
  std::mutex mutex_;
  std::vector<Task> posted_;
  std::atomic<bool> quit_ = false;
  std::atomic<std::thread::id> owner_;
  TimerId nextTimer_ = 1;
  std::multimap<std::chrono::steady_clock::time_point, std::pair<TimerId, Task>> timers_;
  std::unordered_map<CURL*, std::function<void(CURLcode)>> transfers_;
  std::deque<std::pair<CURL*, std::function<void(CURLcode)>>> waiting_;
  size_t droppedInBurst_ = 0;
  bool burst_ = false;  // transfers had to wait since the loop was last idle
  std::vector<CURL*> idleEasy_;
  std::map<int, Task> writable_;
};

}  // namespace wren

#pragma once
// The main run loop: one thread owns all state and runs, in order, posted
// work, due timers and finished HTTP transfers. libcurl's multi interface is
// driven from here with curl_multi_poll; post() and quit() wake it with
// curl_multi_wakeup, so nothing ever blocks the loop on the network.
//
// Owns the multi handle, every easy handle given to addTransfer() until that
// transfer's completion has run, and the finished handles kept for reuse.
//
// post() and quit() are safe from any thread; everything else runs on the
// loop's thread (the thread that created the loop until run() is called).
#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <cstdint>
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
  // Transfers in flight (for "exit once nothing is pending").
  size_t pendingTransfers() const { return transfers_.size(); }

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
  std::vector<CURL*> idleEasy_;
};

}  // namespace wren

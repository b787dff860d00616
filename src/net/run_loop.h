#pragma once
// The main run loop: one thread owns all state and runs, in order, posted
// work, due timers and finished HTTP transfers. A turn sleeps in the poll of
// the loop's HTTP transfers (net/curl_transfers.h, libcurl's multi handle),
// which post() and quit() wake, so nothing ever blocks the loop on the
// network.
//
// Owns the posted work, the timers, the readable and writable watches and the
// HTTP transfers. At most kMaxTransfersInFlight transfers run at once; the rest
// wait in order, and past kMaxWaitingTransfers the oldest waiting one is
// dropped (net/curl_transfers.h says why that one).
//
// post() and quit() are safe from any thread; everything else runs on the
// loop's thread (the thread that created the loop until run() is called).
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace wren {

class CurlTransfers;

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
  size_t pendingTransfers() const;

  // Transfers run at once. The local service answers in milliseconds, so a
  // few dozen keep it busy; each one more costs a socket and its buffers.
  static constexpr size_t kMaxTransfersInFlight = 32;
  // Transfers waiting for a place, about a page's worth of seconds of
  // ratings; past this the oldest is dropped.
  static constexpr size_t kMaxWaitingTransfers = 512;

  // Runs `ready` once, on the loop thread, in the first turn that finds fd
  // writable (or broken). One watch a descriptor; a new one replaces it.
  // Loop thread only.
  void watchWritable(int fd, Task ready);
  void unwatch(int fd);

  // Runs `ready` on the loop thread in every turn that finds fd readable, and
  // in turns where it may have hung up (see CurlTransfers::wait): `ready`
  // reads without blocking and takes EAGAIN in its stride. It runs before
  // the transfers are moved on, so a request it starts goes out in the same
  // turn. One watch a descriptor, kept until unwatchReadable(). Loop thread
  // only.
  void watchReadable(int fd, Task ready);
  void unwatchReadable(int fd);

  // The loop's HTTP transfers, for src/net's HTTP client. The type is
  // complete only in net/curl_transfers.h, which nothing outside src/net
  // includes. Loop thread only.
  CurlTransfers& transfers() { return *transfers_; }

 private:
  // The longest a turn sleeps with nothing due: a safety net only, every
  // event that matters wakes the poll itself.
  static constexpr int kMaxWaitMs = 1000;

  void turn(int maxWaitMs);
  void runPosted();
  void runTimers();
  void runWritable(const std::vector<int>& watched);
  int waitMs(int maxWaitMs);

  std::mutex mutex_;
  std::vector<Task> posted_;
  std::atomic<bool> quit_ = false;
  std::atomic<std::thread::id> owner_;
  TimerId nextTimer_ = 1;
  std::multimap<std::chrono::steady_clock::time_point, std::pair<TimerId, Task>> timers_;
  std::map<int, Task> writable_;
  std::map<int, Task> readable_;
  // This turn's watched descriptors, kept to spare an allocation a turn.
  std::vector<int> toRead_, toWrite_;
  // Last, so it is set up after and goes before everything it may post to.
  std::unique_ptr<CurlTransfers> transfers_;
};

}  // namespace wren

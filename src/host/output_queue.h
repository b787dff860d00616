#pragma once
// The frames on their way to the browser. Writing never blocks the loop: the
// descriptor is made non-blocking, what the pipe does not take at once waits
// here in order, and goes out when the loop sees the pipe writable again. A
// browser that stops reading therefore fills this queue, not the loop's
// time; past kMaxQueuedBytes a new frame is refused (the caller logs it).
//
// Runs on the main run loop; owns the queued bytes, not the descriptor.
#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <string_view>

#include "net/run_loop.h"

namespace wren {

class OutputQueue {
 public:
  // Bytes of frames waiting for the browser to read: several of the largest
  // frames a browser accepts, and about ten thousand page answers.
  static constexpr size_t kMaxQueuedBytes = 16 * 1024 * 1024;

  enum class Push { kQueued, kRefused, kBroken };

  // onBroken runs once, on the loop, when the descriptor cannot be written to
  // any more (the browser is gone).
  OutputQueue(RunLoop& loop, int fd, std::function<void()> onBroken);
  ~OutputQueue();
  OutputQueue(const OutputQueue&) = delete;
  OutputQueue& operator=(const OutputQueue&) = delete;

  // Queues one frame's payload (the caller has checked its size) and writes
  // what the pipe takes now.
  Push push(std::string_view payload);
  size_t queuedBytes() const { return bytes_; }
  bool broken() const { return broken_; }

 private:
  // Writes until the pipe is full or the queue is empty; false when broken.
  bool writeSome();
  void watch();
  void breakDown();

  RunLoop& loop_;
  int fd_;
  std::function<void()> onBroken_;
  std::deque<std::string> frames_;  // each a whole frame, header included
  size_t written_ = 0;              // bytes of frames_.front() already written
  size_t bytes_ = 0;                // bytes in frames_ not yet written
  bool watching_ = false;
  bool broken_ = false;
};

}  // namespace wren

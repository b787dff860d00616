#pragma once
// The frames on their way to the browser. Writing never blocks the loop: the
// descriptor is made non-blocking, what the pipe does not take at once waits
// here in order, and goes out when the loop sees the pipe writable again. A
// browser that stops reading therefore fills this queue, not the loop's
// time; past kMaxQueuedBytes a new frame is refused (the caller logs it).
//
// The frames of one turn of the loop go out together, in one write at the
// end of the turn: at many pages in flight, a turn finishes several answers.
//
// Runs on the main run loop; owns the queued bytes, not the descriptor.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <deque>
#include <functional>
#include <string>
#include <string_view>

#include "host/frame_codec.h"
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

  // Queues one frame's payload (the caller has checked its size); it is
  // written at the end of this turn of the loop.
  Push push(std::string payload);
  size_t queuedBytes() const { return bytes_; }
  bool broken() const { return broken_; }

 private:
  // Frames handed to one writev: enough for a turn's answers, well under IOV_MAX.
  static constexpr size_t kFramesPerWrite = 64;
  // A queue that grew past this in a burst gives its memory back once drained.
  static constexpr size_t kKeptQueueBytes = 1024 * 1024;

  struct Frame {
    FrameHeader header;
    std::string payload;
    size_t size() const { return header.size() + payload.size(); }
  };

  // Writes until the pipe is full or the queue is empty; false when broken.
  bool writeSome();
  void watch();
  void breakDown();

  RunLoop& loop_;
  int fd_;
  std::function<void()> onBroken_;
  std::deque<Frame> frames_;
  size_t written_ = 0;  // bytes of frames_.front() already written
  size_t bytes_ = 0;    // bytes in frames_ not yet written
  size_t peakBytes_ = 0;
  bool watching_ = false;
  bool flushPosted_ = false;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  bool broken_ = false;
};

}  // namespace wren

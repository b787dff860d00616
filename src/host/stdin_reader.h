#pragma once
// The thread that reads the browser's frames from stdin and parses their
// envelopes, so that neither the wait for bytes nor the parse of a large
// frame takes the loop's time. Each parsed frame is posted to the loop.
//
// A browser can write faster than the loop handles frames; the reader then
// waits (and the browser's writes with it) while kMaxWaitingFrames frames or
// kMaxWaitingBytes bytes of them are posted and not yet handled, so a flood
// is held in the browser's pipe, not in this process's memory.
//
// Owns its thread and the budget; start() and stop() are called on the loop
// thread, the handler runs there too.
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "host/envelope.h"
#include "net/run_loop.h"

namespace wren {

class StdinReader {
 public:
  // Frames posted and not yet handled. A page's requests come one or a few
  // at a time; this is many pages' worth.
  static constexpr size_t kMaxWaitingFrames = 256;
  // Their bytes: a few of the largest frames a browser sends.
  static constexpr size_t kMaxWaitingBytes = 128 * 1024 * 1024;

  // handle(parsed) runs on the loop for each frame; atEnd runs
  // there once, after the last frame, when stdin ends or breaks.
  using Handler = std::function<void(ParsedEnvelope parsed)>;
  StdinReader(RunLoop& loop, int fd, Handler handle, std::function<void()> atEnd);
  ~StdinReader();  // stops and joins

  // False when the thread could not be set up.
  bool start();
  void stop();

 private:
  void run();
  // Waits for room for a frame of `bytes`; false when stopping.
  bool reserve(size_t bytes);
  void release(size_t bytes);

  RunLoop& loop_;
  int fd_;
  Handler handle_;
  std::function<void()> atEnd_;
  int cancel_[2] = {-1, -1};
  std::thread thread_;

  std::mutex mutex_;  // guards the four below
  std::condition_variable room_;
  size_t frames_ = 0;
  size_t bytes_ = 0;
  bool stopping_ = false;
};

}  // namespace wren

#pragma once
// The browser's frames, read from stdin on the run loop itself: the loop
// watches the descriptor beside libcurl's sockets, each turn that finds bytes
// reads what the pipe holds, and every frame complete in the buffer is parsed
// and handled at once. Frames may arrive in pieces or many in one read.
//
// A browser that writes faster than the host answers is held in its own pipe:
// one read a turn, so the loop also drives the transfers those frames start,
// and the transfers' own bounds (net/run_loop.h) keep memory in check.
//
// Runs on the loop; owns the read buffer, not the descriptor (which it makes
// non-blocking).
#include <cstddef>
#include <functional>
#include <memory>

#include "host/envelope.h"
#include "net/run_loop.h"

namespace wren {

class StdinReader {
 public:
  // Bytes asked of the pipe at once: what a Linux pipe holds.
  static constexpr size_t kReadChunk = 64 * 1024;
  // A buffer grown past this for one large frame is given back once empty.
  static constexpr size_t kKeptBufferBytes = 1024 * 1024;

  // handle(parsed) runs for each frame; atEnd runs once, after the last
  // frame, when stdin ends, breaks or announces a frame over the limit.
  using Handler = std::function<void(ParsedEnvelope&& parsed)>;
  StdinReader(RunLoop& loop, int fd, Handler handle, std::function<void()> atEnd);
  ~StdinReader();
  StdinReader(const StdinReader&) = delete;
  StdinReader& operator=(const StdinReader&) = delete;

  void start();
  void stop();

 private:
  void onReadable();
  // Handles every complete frame in the buffer; false at a frame over the limit.
  bool handleFrames();
  void end();
  // Room for `bytes` more after the unread ones, moving those to the front.
  void makeRoom(size_t bytes);

  RunLoop& loop_;
  int fd_;
  Handler handle_;
  std::function<void()> atEnd_;
  bool watching_ = false;
  std::unique_ptr<char[]> buffer_;
  size_t capacity_ = 0;
  size_t begin_ = 0;  // the first unhandled byte
  size_t end_ = 0;    // one past the last byte read
};

}  // namespace wren

#include "util/logging.h"

#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace wren {
namespace {

// How long the process waits at exit for queued warnings. A stderr that nobody
// reads any more must not keep the process alive.
constexpr auto kExitFlushTimeout = std::chrono::milliseconds(500);
// The longest record written: log lines are for people, and no page value or
// answer may make one of megabytes. A longer record is cut and says so.
constexpr size_t kMaxRecordBytes = 64 * 1024;
constexpr std::string_view kCutNote = " [cut]";
// Warnings waiting for the writer thread; one more is dropped.
constexpr size_t kMaxQueuedWarnings = 4096;

// Writes lines to stderr without ever waiting for it: the host makes stderr
// non-blocking, and a line the pipe cannot take now is dropped (and counted,
// and the count written before the next line that goes through). Only the
// rest of a line the pipe took in part is kept, so lines stay whole.
// Guarded by the writer's lock.
class StderrWriter {
 public:
  void write(std::string_view line) {
    if (!tail_.empty() && !writeOut(tail_)) {
      ++dropped_;
      return;
    }
    std::string buffer;
    if (dropped_ > 0)
      buffer = "[wren-bridge] " + std::to_string(dropped_) + " log lines dropped: stderr was not read\n";
    buffer.append(line).push_back('\n');
    size_t droppedBefore = dropped_;
    dropped_ = 0;
    if (!writeOut(buffer)) dropped_ = droppedBefore + 1;
  }

 private:
  // Writes `text` or, when the pipe is full, as much as it takes, keeping the
  // rest in tail_. False when nothing of it could be written.
  bool writeOut(std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
      ssize_t n = ::write(STDERR_FILENO, text.data() + done, text.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
    if (done == text.size()) {
      tail_.clear();
      return true;
    }
    if (done == 0) return false;
    tail_ = text.substr(done);
    return true;
  }

  std::string tail_;
  size_t dropped_ = 0;
};

// Owns the warning queue, the writer thread and the sink. It is allocated once
// and never freed: the detached writer may still run while static objects are
// being destroyed at exit, so nothing it touches may be destroyed before it.
//
// Lock order: writeMutex before queueMutex. Every line reaches the sink under
// writeMutex, which keeps the order of warnings and errors as they were logged.
struct LogState {
  std::mutex writeMutex;
  LogSink sink;  // guarded by writeMutex; empty means stderr
  StderrWriter stderrWriter;  // guarded by writeMutex

  std::mutex queueMutex;
  std::condition_variable queueChanged;
  std::deque<std::string> queue;  // guarded by queueMutex
  size_t unwritten = 0;           // queued or taken but not yet written
  std::once_flag writerStarted;

  void emit(std::string_view line) {  // writeMutex held
    if (sink) {
      sink(line);
    } else {
      stderrWriter.write(line);
    }
  }

  // Takes every queued line and writes it; writeMutex held.
  void drainLocked() {
    std::deque<std::string> batch;
    {
      std::lock_guard<std::mutex> lock(queueMutex);
      batch.swap(queue);
    }
    for (const auto& line : batch) emit(line);
    if (!batch.empty()) {
      std::lock_guard<std::mutex> lock(queueMutex);
      unwritten -= batch.size();
    }
    queueChanged.notify_all();
  }

  void writerLoop() {
    for (;;) {
      {
        std::unique_lock<std::mutex> lock(queueMutex);
        queueChanged.wait(lock, [this] { return !queue.empty(); });
      }
      std::lock_guard<std::mutex> write(writeMutex);
      drainLocked();
    }
  }

  void enqueue(std::string line) {
    std::call_once(writerStarted, [this] { std::thread([this] { writerLoop(); }).detach(); });
    {
      std::lock_guard<std::mutex> lock(queueMutex);
      if (queue.size() >= kMaxQueuedWarnings) return;  // the writer is behind: this one is dropped
      queue.push_back(std::move(line));
      ++unwritten;
    }
    queueChanged.notify_all();
  }

  template <typename Wait>
  void waitUntilWritten(Wait wait) {
    std::unique_lock<std::mutex> lock(queueMutex);
    wait(lock, [this] { return unwritten == 0; });
  }
};

LogState& state() {
  static LogState* s = new LogState;  // never freed, see LogState
  return *s;
}

// The text cut to kMaxRecordBytes, then made one line.
std::string bounded(std::string_view text) {
  if (text.size() <= kMaxRecordBytes) return oneLine(text);
  std::string line = oneLine(text.substr(0, kMaxRecordBytes));
  line.append(kCutNote);
  return line;
}

std::string record(std::optional<std::string_view> tag, std::string_view message) {
  if (!tag) return bounded(message);
  std::string text;
  text.reserve(tag->size() + std::min(message.size(), kMaxRecordBytes) + 4);
  text.append("[").append(*tag).append("], ");
  text.append(message.substr(0, kMaxRecordBytes + 1));  // enough to tell that it is cut
  return bounded(text);
}

// Writes what is still queued when the process ends normally.
struct ExitFlush {
  ~ExitFlush() {
    state().waitUntilWritten([](auto& lock, auto done) {
      state().queueChanged.wait_for(lock, kExitFlushTimeout, done);
    });
  }
} exitFlush;

}  // namespace

void Logging::logInfoWithTag(std::optional<std::string_view>, std::string_view) {}

void Logging::logDebugWithTag(std::optional<std::string_view>, std::string_view) {}

void Logging::logWarningWithTag(std::optional<std::string_view> tag, std::string_view message) {
  state().enqueue(record(tag, message));
}

void Logging::logErrorWithTag(std::optional<std::string_view> tag, std::string_view message) {
  std::string line = record(tag, message);
  LogState& s = state();
  std::lock_guard<std::mutex> write(s.writeMutex);
  s.drainLocked();  // earlier warnings first
  s.emit(line);
}

void Logging::flush() {
  state().waitUntilWritten([](auto& lock, auto done) { state().queueChanged.wait(lock, done); });
}

void systemLog(std::string_view line) {
  std::string text = bounded(line);
  LogState& s = state();
  std::lock_guard<std::mutex> write(s.writeMutex);
  s.emit(text);
}

void setLogSink(LogSink sink) {
  LogState& s = state();
  std::lock_guard<std::mutex> write(s.writeMutex);
  s.sink = std::move(sink);
}

std::string oneLine(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c == '\n') {
      out.append("\\n");
    } else if (c == '\r') {
      out.append("\\r");
    } else {
      out.push_back(c);
    }
  }
  return out;
}

}  // namespace wren

#include "util/logging.h"

#include "util/fd_io.h"

#include <errno.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace wren {
namespace {

// How long the process waits at exit for queued warnings. A stderr that nobody
// reads any more must not keep the process alive.
constexpr auto kExitFlushTimeout = std::chrono::seconds(1);

void writeToStderr(std::string_view line) {
  std::string buffer;
  buffer.reserve(line.size() + 1);
  buffer.append(line);
  buffer.push_back('\n');
  // One write() a line, so lines from several threads never interleave; a
  // write that a signal or a full pipe cut short is continued.
  writeAll(STDERR_FILENO, buffer);
}

// Owns the warning queue, the writer thread and the sink. It is allocated once
// and never freed: the detached writer may still run while static objects are
// being destroyed at exit, so nothing it touches may be destroyed before it.
//
// Lock order: writeMutex before queueMutex. Every line reaches the sink under
// writeMutex, which keeps the order of warnings and errors as they were logged.
struct LogState {
  std::mutex writeMutex;
  LogSink sink;  // guarded by writeMutex; empty means stderr

  std::mutex queueMutex;
  std::condition_variable queueChanged;
  std::deque<std::string> queue;  // guarded by queueMutex
  size_t unwritten = 0;           // queued or taken but not yet written
  std::once_flag writerStarted;

  void emit(std::string_view line) {  // writeMutex held
    if (sink) {
      sink(line);
    } else {
      writeToStderr(line);
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

std::string record(std::optional<std::string_view> tag, std::string_view message) {
  std::string text;
  if (tag) {
    text.reserve(tag->size() + message.size() + 4);
    text.append("[").append(*tag).append("], ");
  }
  text.append(message);
  return oneLine(text);
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
  std::string text = oneLine(line);
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

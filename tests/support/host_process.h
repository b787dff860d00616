#pragma once
// Runs the real wren-bridge binary as a browser would: frames on its stdin and
// stdout, its log on stderr. Used by the host tests and the load benchmark.
#include <sys/types.h>

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

namespace wren::test {

using OJson = nlohmann::ordered_json;

class HostProcess {
 public:
  // Starts exe with args and the current environment plus `env`.
  HostProcess(const std::string& exe, const std::vector<std::string>& args,
              const std::map<std::string, std::string>& env);
  ~HostProcess();

  void sendRaw(const std::string& bytes);
  void send(const OJson& frame);
  // The next frame, or nullopt on timeout or end of stream.
  std::optional<OJson> readFrame(std::chrono::milliseconds timeout = std::chrono::seconds(5));
  // Reads frames until one matches; frames read on the way are returned in `skipped` when given.
  std::optional<OJson> readFrameWhere(const std::function<bool(const OJson&)>& pred,
                                      std::chrono::milliseconds timeout = std::chrono::seconds(5),
                                      std::vector<OJson>* skipped = nullptr);
  // Everything on stdout until it closes (for the non-protocol commands).
  std::string readAllStdout(std::chrono::milliseconds timeout = std::chrono::seconds(15)) {
    std::string out;
    readToEnd(timeout, &out);
    return out;
  }
  // Whether stdout reaches end of stream (the host closed it) within the timeout.
  bool stdoutClosed(std::chrono::milliseconds timeout) { return readToEnd(timeout, nullptr); }
  void closeStdin();
  // Waits for exit; returns the exit status (or -1 on timeout, after SIGKILL).
  int wait(std::chrono::milliseconds timeout = std::chrono::seconds(10));
  void signal(int sig);
  pid_t pid() const { return pid_; }

  // Everything the host wrote to stderr so far, as lines.
  std::vector<std::string> logLines() const;
  // All the host wrote to stderr, once it closed stderr (exited); nullopt if it did not within the timeout.
  std::optional<std::string> stderrToEnd(std::chrono::milliseconds timeout = std::chrono::seconds(15)) const;
  // Waits until a stderr line contains `text`.
  bool waitForLog(const std::string& text, std::chrono::milliseconds timeout = std::chrono::seconds(5)) const;

 private:
  bool readExactly(char* buf, size_t n, std::chrono::steady_clock::time_point deadline);
  // Reads stdout until it closes (true) or the timeout passes, keeping what it read in `out` when given.
  bool readToEnd(std::chrono::milliseconds timeout, std::string* out);
  pid_t pid_ = -1;
  int in_ = -1, out_ = -1, err_ = -1;
  int exitStatus_ = -2;
  std::thread errReader_;
  mutable std::mutex mutex_;
  std::string errText_;
  bool errEnded_ = false;
};

}  // namespace wren::test

#include "host/doctor_probe.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "host/frame_codec.h"
#include "util/json.h"

extern char** environ;

namespace wren {
namespace {

// A host that has not said hello by then would look dead to a browser too.
constexpr auto kProbeHelloTimeout = std::chrono::seconds(5);
// Browsers kill a host about two seconds after closing its stdin; one that
// takes longer than this to exit is reported.
constexpr auto kProbeExitTimeout = std::chrono::seconds(3);
constexpr auto kProbeExitPoll = std::chrono::milliseconds(20);

enum class ReadOutcome { kDone, kTimedOut, kEnded };

// Reads exactly n bytes before the deadline.
ReadOutcome readWithDeadline(int fd, char* buf, size_t n, std::chrono::steady_clock::time_point deadline) {
  size_t done = 0;
  while (done < n) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return ReadOutcome::kTimedOut;
    pollfd p{fd, POLLIN, 0};
    int r = ::poll(&p, 1, static_cast<int>(left.count()));
    if (r < 0 && errno == EINTR) continue;
    if (r == 0) return ReadOutcome::kTimedOut;
    if (r < 0) return ReadOutcome::kEnded;
    ssize_t got = ::read(fd, buf + done, n - done);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return ReadOutcome::kEnded;
    done += static_cast<size_t>(got);
  }
  return ReadOutcome::kDone;
}

// Waits for the child until the deadline; -1 when it is still running.
int waitWithDeadline(pid_t pid, std::chrono::steady_clock::time_point deadline, int* status) {
  for (;;) {
    pid_t r = ::waitpid(pid, status, WNOHANG);
    if (r == pid) return 0;
    if (r < 0 && errno != EINTR) return 0;
    if (std::chrono::steady_clock::now() >= deadline) return -1;
    std::this_thread::sleep_for(kProbeExitPoll);
  }
}

}  // namespace

ProbeResult probeHost(const std::string& exe) {
  int in[2], out[2];
  if (::pipe2(in, O_CLOEXEC) != 0) return {false, std::string("cannot create a pipe: ") + std::strerror(errno)};
  if (::pipe2(out, O_CLOEXEC) != 0) {
    ::close(in[0]);
    ::close(in[1]);
    return {false, std::string("cannot create a pipe: ") + std::strerror(errno)};
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<char*> argv{const_cast<char*>(exe.c_str()), nullptr};
  pid_t pid = -1;
  int spawned = ::posix_spawn(&pid, exe.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(in[0]);
  ::close(out[1]);
  if (spawned != 0) {
    ::close(in[1]);
    ::close(out[0]);
    return {false, std::string("cannot start it: ") + std::strerror(spawned)};
  }

  ProbeResult result;
  auto helloDeadline = std::chrono::steady_clock::now() + kProbeHelloTimeout;
  FrameHeader header;
  ReadOutcome read = readWithDeadline(out[0], header.data(), header.size(), helloDeadline);
  const uint32_t length = read == ReadOutcome::kDone ? decodeFrameHeader(header.data()) : 0;
  std::string payload;
  const bool tooLong = read == ReadOutcome::kDone && length > kMaxOutgoingFrameBytes;
  if (read == ReadOutcome::kDone && !tooLong) {
    payload.resize(length);
    read = readWithDeadline(out[0], payload.data(), length, helloDeadline);
  }
  const bool framed = read == ReadOutcome::kDone && !tooLong;
  Json hello = framed ? Json::parse(payload, nullptr, false) : Json();
  const bool isHello = hello.is_object() && hello.value("type", Json()) == "hello";
  if (tooLong) {
    result.text = "first frame announces " + std::to_string(length) + " bytes, more than a browser accepts";
  } else if (read == ReadOutcome::kTimedOut) {
    result.text = "no hello frame within " + std::to_string(kProbeHelloTimeout.count()) + " s";
  } else if (read == ReadOutcome::kEnded) {
    result.text = "no hello frame: its stdout ended";
  } else if (!isHello) {
    result.text = "first frame is not a hello: " + payload.substr(0, 200);
  } else {
    const Json& version = hello["version"];
    result.text = "hello from version " + (version.is_string() ? version.get<std::string>() : version.dump());
  }

  ::close(in[1]);  // as a browser does when the port closes
  int status = 0;
  if (waitWithDeadline(pid, std::chrono::steady_clock::now() + kProbeExitTimeout, &status) != 0) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, &status, 0);
    result.text += "; did not exit within " + std::to_string(kProbeExitTimeout.count()) +
                   " s of stdin closing (browsers kill such a host)";
  } else if (WIFEXITED(status)) {
    result.text += "; exited " + std::to_string(WEXITSTATUS(status)) + " when stdin closed";
    result.ok = isHello && WEXITSTATUS(status) == 0;
  } else {
    result.text += "; ended by signal " + std::to_string(WTERMSIG(status)) + " when stdin closed";
  }
  ::close(out[0]);
  return result;
}

}  // namespace wren

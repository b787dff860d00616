#include "support/host_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

#include "host/frame_codec.h"

extern char** environ;

namespace wren::test {

using Clock = std::chrono::steady_clock;

static int msLeft(Clock::time_point deadline) {
  return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count());
}

// Pointers into `strings` for argv and envp, ending with null.
static std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> out;
  for (auto& s : strings) out.push_back(s.data());
  out.push_back(nullptr);
  return out;
}

HostProcess::HostProcess(const std::string& exe, const std::vector<std::string>& args,
                         const std::map<std::string, std::string>& env) {
  int pipes[3][2];  // the child's stdin, stdout and stderr; it reads end 0 of the first, writes end 1 of the others
  for (auto& p : pipes)
    if (pipe2(p, O_CLOEXEC)) throw std::runtime_error("pipe failed");
  std::vector<std::string> argStore{exe}, envStore;
  argStore.insert(argStore.end(), args.begin(), args.end());
  for (char** e = environ; *e; ++e) {
    const std::string kv(*e);
    if (!env.count(kv.substr(0, kv.find('=')))) envStore.push_back(kv);
  }
  for (const auto& [k, v] : env) envStore.push_back(k + "=" + v);
  auto argv = pointers(argStore), envp = pointers(envStore);

  posix_spawn_file_actions_t fa;
  posix_spawn_file_actions_init(&fa);
  for (int fd = 0; fd < 3; ++fd) posix_spawn_file_actions_adddup2(&fa, pipes[fd][fd > 0], fd);
  int rc = posix_spawn(&pid_, exe.c_str(), &fa, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&fa);
  for (int fd = 0; fd < 3; ++fd) ::close(pipes[fd][fd > 0]);
  if (rc != 0) throw std::runtime_error("spawn failed: " + std::string(strerror(rc)));
  in_ = pipes[0][1], out_ = pipes[1][0], err_ = pipes[2][0];
  errReader_ = std::thread([this] {
    char buf[4096];
    for (ssize_t n; (n = ::read(err_, buf, sizeof buf)) > 0;) {
      std::lock_guard lock(mutex_);
      errText_.append(buf, static_cast<size_t>(n));
    }
    std::lock_guard lock(mutex_);
    errEnded_ = true;
  });
}

HostProcess::~HostProcess() {
  closeStdin();
  if (exitStatus_ == -2) wait(std::chrono::seconds(5));
  if (errReader_.joinable()) errReader_.join();
  ::close(out_);
  ::close(err_);
}

void HostProcess::sendRaw(const std::string& bytes) {
  for (size_t off = 0; off < bytes.size();) {
    ssize_t w = ::write(in_, bytes.data() + off, bytes.size() - off);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) return;
    off += static_cast<size_t>(w);
  }
}

void HostProcess::send(const OJson& frame) {
  sendRaw(encodeFrame(frame.dump()));
}

bool HostProcess::readExactly(char* buf, size_t n, Clock::time_point deadline) {
  for (size_t got = 0; got < n;) {
    pollfd p{out_, POLLIN, 0};
    if (msLeft(deadline) <= 0) return false;
    if (::poll(&p, 1, msLeft(deadline)) <= 0) continue;
    ssize_t k = ::read(out_, buf + got, n - got);
    if (k <= 0) return false;
    got += static_cast<size_t>(k);
  }
  return true;
}

std::optional<OJson> HostProcess::readFrame(std::chrono::milliseconds timeout) {
  auto deadline = Clock::now() + timeout;
  FrameHeader header;
  if (!readExactly(header.data(), header.size(), deadline)) return std::nullopt;
  const uint32_t len = decodeFrameHeader(header.data());
  std::string payload(len, '\0');
  if (!readExactly(payload.data(), len, deadline + std::chrono::seconds(5))) return std::nullopt;
  OJson j = OJson::parse(payload, nullptr, false);
  if (j.is_discarded()) throw std::runtime_error("host wrote a frame that is not JSON: " + payload);
  return j;
}

std::optional<OJson> HostProcess::readFrameWhere(const std::function<bool(const OJson&)>& pred,
                                                 std::chrono::milliseconds timeout, std::vector<OJson>* skipped) {
  auto deadline = Clock::now() + timeout;
  while (msLeft(deadline) > 0) {
    auto f = readFrame(std::chrono::milliseconds(msLeft(deadline)));
    if (!f || pred(*f)) return f;
    if (skipped) skipped->push_back(*f);
  }
  return std::nullopt;
}

bool HostProcess::readToEnd(std::chrono::milliseconds timeout, std::string* out) {
  auto deadline = Clock::now() + timeout;
  char buf[4096];
  while (msLeft(deadline) > 0) {
    pollfd p{out_, POLLIN, 0};
    if (::poll(&p, 1, msLeft(deadline)) <= 0) continue;
    ssize_t k = ::read(out_, buf, sizeof buf);
    if (k <= 0) return k == 0;
    if (out) out->append(buf, static_cast<size_t>(k));
  }
  return false;
}

void HostProcess::closeStdin() { ::close(std::exchange(in_, -1)); }

int HostProcess::wait(std::chrono::milliseconds timeout) {
  auto deadline = Clock::now() + timeout;
  for (int status = 0; exitStatus_ == -2;) {
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
      exitStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    } else if (msLeft(deadline) <= 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, &status, 0);
      exitStatus_ = -1;
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  return exitStatus_;
}

void HostProcess::signal(int sig) { ::kill(pid_, sig); }

std::vector<std::string> HostProcess::logLines() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> lines;
  for (size_t start = 0, nl; (nl = errText_.find('\n', start)) != std::string::npos; start = nl + 1)
    lines.push_back(errText_.substr(start, nl - start));
  return lines;
}

std::optional<std::string> HostProcess::stderrToEnd(std::chrono::milliseconds timeout) const {
  for (auto deadline = Clock::now() + timeout;; std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
    std::lock_guard lock(mutex_);
    if (errEnded_) return errText_;
    if (Clock::now() >= deadline) return std::nullopt;
  }
}

bool HostProcess::waitForLog(const std::string& text, std::chrono::milliseconds timeout) const {
  for (auto deadline = Clock::now() + timeout; Clock::now() < deadline;) {
    for (const auto& l : logLines())
      if (l.find(text) != std::string::npos) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

}  // namespace wren::test

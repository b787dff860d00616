#include "support/host_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

extern char** environ;

namespace wren::test {

HostProcess::HostProcess(const std::string& exe, const std::vector<std::string>& args,
                         const std::map<std::string, std::string>& env) {
  int inPipe[2], outPipe[2], errPipe[2];
  if (pipe2(inPipe, O_CLOEXEC) || pipe2(outPipe, O_CLOEXEC) || pipe2(errPipe, O_CLOEXEC))
    throw std::runtime_error("pipe failed");
  std::vector<std::string> argStore{exe};
  argStore.insert(argStore.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& a : argStore) argv.push_back(a.data());
  argv.push_back(nullptr);

  std::map<std::string, std::string> merged;
  for (char** e = environ; *e; ++e) {
    std::string kv(*e);
    auto eq = kv.find('=');
    if (eq != std::string::npos) merged[kv.substr(0, eq)] = kv.substr(eq + 1);
  }
  for (const auto& [k, v] : env) merged[k] = v;
  std::vector<std::string> envStore;
  for (const auto& [k, v] : merged) envStore.push_back(k + "=" + v);
  std::vector<char*> envp;
  for (auto& e : envStore) envp.push_back(e.data());
  envp.push_back(nullptr);

  posix_spawn_file_actions_t fa;
  posix_spawn_file_actions_init(&fa);
  posix_spawn_file_actions_adddup2(&fa, inPipe[0], 0);
  posix_spawn_file_actions_adddup2(&fa, outPipe[1], 1);
  posix_spawn_file_actions_adddup2(&fa, errPipe[1], 2);
  int rc = posix_spawn(&pid_, exe.c_str(), &fa, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&fa);
  ::close(inPipe[0]);
  ::close(outPipe[1]);
  ::close(errPipe[1]);
  if (rc != 0) throw std::runtime_error("spawn failed: " + std::string(strerror(rc)));
  in_ = inPipe[1];
  out_ = outPipe[0];
  err_ = errPipe[0];
  errReader_ = std::thread([this] {
    char buf[4096];
    for (;;) {
      ssize_t n = ::read(err_, buf, sizeof buf);
      if (n <= 0) return;
      std::lock_guard lock(mutex_);
      errText_.append(buf, static_cast<size_t>(n));
    }
  });
}

HostProcess::~HostProcess() {
  closeStdin();
  if (exitStatus_ == -2) wait(std::chrono::seconds(5));
  if (errReader_.joinable()) errReader_.join();
  if (out_ >= 0) ::close(out_);
  if (err_ >= 0) ::close(err_);
}

void HostProcess::sendRaw(const std::string& bytes) {
  size_t off = 0;
  while (off < bytes.size()) {
    ssize_t w = ::write(in_, bytes.data() + off, bytes.size() - off);
    if (w <= 0) {
      if (w < 0 && errno == EINTR) continue;
      return;
    }
    off += static_cast<size_t>(w);
  }
}

void HostProcess::send(const OJson& frame) {
  std::string payload = frame.dump();
  uint32_t len = static_cast<uint32_t>(payload.size());
  sendRaw(std::string(reinterpret_cast<const char*>(&len), sizeof len) + payload);
}

bool HostProcess::readExactly(char* buf, size_t n, std::chrono::steady_clock::time_point deadline) {
  size_t got = 0;
  while (got < n) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd p{out_, POLLIN, 0};
    int r = ::poll(&p, 1, static_cast<int>(left.count()));
    if (r <= 0) continue;
    ssize_t k = ::read(out_, buf + got, n - got);
    if (k <= 0) return false;
    got += static_cast<size_t>(k);
  }
  return true;
}

std::optional<OJson> HostProcess::readFrame(std::chrono::milliseconds timeout) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  uint32_t len;
  if (!readExactly(reinterpret_cast<char*>(&len), sizeof len, deadline)) return std::nullopt;
  std::string payload(len, '\0');
  if (!readExactly(payload.data(), len, deadline + std::chrono::seconds(5))) return std::nullopt;
  OJson j = OJson::parse(payload, nullptr, false);
  if (j.is_discarded()) throw std::runtime_error("host wrote a frame that is not JSON: " + payload);
  return j;
}

std::optional<OJson> HostProcess::readFrameWhere(const std::function<bool(const OJson&)>& pred,
                                                 std::chrono::milliseconds timeout, std::vector<OJson>* skipped) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return std::nullopt;
    auto f = readFrame(left);
    if (!f) return std::nullopt;
    if (pred(*f)) return f;
    if (skipped) skipped->push_back(*f);
  }
}

std::string HostProcess::readAllStdout(std::chrono::milliseconds timeout) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  std::string out;
  char buf[4096];
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return out;
    pollfd p{out_, POLLIN, 0};
    if (::poll(&p, 1, static_cast<int>(left.count())) <= 0) continue;
    ssize_t k = ::read(out_, buf, sizeof buf);
    if (k <= 0) return out;
    out.append(buf, static_cast<size_t>(k));
  }
}

bool HostProcess::stdoutClosed(std::chrono::milliseconds timeout) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  char c;
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd p{out_, POLLIN, 0};
    if (::poll(&p, 1, static_cast<int>(left.count())) <= 0) continue;
    ssize_t k = ::read(out_, &c, 1);
    if (k == 0) return true;
    if (k < 0) return false;
  }
}

void HostProcess::closeStdin() {
  if (in_ >= 0) ::close(in_);
  in_ = -1;
}

int HostProcess::wait(std::chrono::milliseconds timeout) {
  if (exitStatus_ != -2) return exitStatus_;
  auto deadline = std::chrono::steady_clock::now() + timeout;
  int status = 0;
  while (std::chrono::steady_clock::now() < deadline) {
    pid_t r = ::waitpid(pid_, &status, WNOHANG);
    if (r == pid_) {
      exitStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      return exitStatus_;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, &status, 0);
  exitStatus_ = -1;
  return -1;
}

void HostProcess::signal(int sig) { ::kill(pid_, sig); }

std::vector<std::string> HostProcess::logLines() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> lines;
  size_t start = 0;
  for (;;) {
    size_t nl = errText_.find('\n', start);
    if (nl == std::string::npos) break;
    lines.push_back(errText_.substr(start, nl - start));
    start = nl + 1;
  }
  return lines;
}

bool HostProcess::waitForLog(const std::string& text, std::chrono::milliseconds timeout) const {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  while (std::chrono::steady_clock::now() < deadline) {
    for (const auto& l : logLines())
      if (l.find(text) != std::string::npos) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

}  // namespace wren::test

#include "load_support.h"

#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <sstream>

namespace wren::bench {
namespace {

// A probe unanswered this long is sent again, this many times at most.
constexpr auto kProbeWait = std::chrono::milliseconds(300);
constexpr int kProbeAttempts = 50;

// The simulator's port, or -1 when it did not come up.
int startSimulator(pid_t* pid) {
  int out[2];
  if (pipe(out) != 0) return -1;
  *pid = fork();
  if (*pid == 0) {
    dup2(out[1], 1);
    close(out[0]);
    execl(WREN_SIM_EXE, WREN_SIM_EXE, "--port", "0", "--quiet", static_cast<char*>(nullptr));
    _exit(127);
  }
  close(out[1]);
  // The simulator's first line names the port it took.
  std::string line;
  char c;
  while (read(out[0], &c, 1) == 1 && c != '\n') line += c;
  close(out[0]);
  auto j = wren::test::OJson::parse(line, nullptr, false);
  if (j.is_discarded() || !j.contains("port")) return -1;
  return j["port"].get<int>();
}

}  // namespace

std::map<std::string, std::string> hostEnvironment(const std::string& name, pid_t* sim) {
  int port = startSimulator(sim);
  if (port <= 0) return {};
  std::string folder = "/tmp/wren-" + name + "-XXXXXX";
  if (!mkdtemp(folder.data())) return {};
  return {{"WREN_SERVICE_ORIGIN", "http://127.0.0.1:" + std::to_string(port)}, {"XDG_CONFIG_HOME", folder}};
}

bool enableToolbar(wren::test::HostProcess& host, const wren::test::OJson& page) {
  using wren::test::OJson;
  host.send({{"type", "hook"}, {"name", "validateToolbarItem"}, {"window", nullptr}});
  for (int attempt = 0; attempt < kProbeAttempts; ++attempt) {
    host.send({{"type", "message"}, {"name", "vd_set_email"}, {"page", page}, {"userInfo", {{"email", ""}}}});
    auto answer = host.readFrameWhere(
        [&](const OJson& f) {
          if (f["type"] == "call") host.send({{"type", "result"}, {"id", f["id"]}, {"value", nullptr}});
          return f.value("page", OJson()) == page;
        },
        kProbeWait);
    if (answer) return true;
  }
  return false;
}

long statusKiB(pid_t pid, const char* field) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  const std::string name = field;
  while (std::getline(status, line))
    if (line.rfind(name, 0) == 0) return std::stol(line.substr(name.size()));
  return -1;
}

double cpuSeconds(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
  // The command name, in parentheses, may hold blanks: count fields after it.
  auto close = text.rfind(')');
  if (close == std::string::npos) return -1;
  std::istringstream fields(text.substr(close + 2));
  std::string field;
  unsigned long long utime = 0, stime = 0;
  // After the name: state is field 3, utime field 14, stime field 15.
  for (int n = 3; n <= 15 && fields >> field; ++n) {
    if (n == 14) utime = std::stoull(field);
    if (n == 15) stime = std::stoull(field);
  }
  return static_cast<double>(utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

}  // namespace wren::bench

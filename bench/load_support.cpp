#include "load_support.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

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

// A free loopback port, as the kernel hands one out; another process may take
// it before nginx does, which a benchmark can live with.
int freePort() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof addr;
  int port = -1;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &size) == 0)
    port = ntohs(addr.sin_port);
  ::close(fd);
  return port;
}

bool accepts(int port) {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<uint16_t>(port));
  bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
  ::close(fd);
  return ok;
}

constexpr const char* kNginx = "/usr/sbin/nginx";
constexpr auto kNginxStartup = std::chrono::seconds(5);

}  // namespace

std::map<std::string, std::string> staticServiceEnvironment(const std::string& name, int links, pid_t* nginx) {
  if (::access(kNginx, X_OK) != 0) return {};
  std::string folder = "/tmp/wren-" + name + "-XXXXXX";
  if (!mkdtemp(folder.data())) return {};
  int port = freePort();
  if (port <= 0) return {};
  std::string rating = R"({"results":[)";
  for (int i = 0; i < links; ++i)
    rating += std::string(i ? "," : "") + R"({"id":)" + std::to_string(i) +
              R"(,"url":"https://site.example/p","level":1,"category":"General","categoryGroup":"Other"})";
  rating += "]}";
  const std::string json = "default_type application/json; ";
  std::ofstream(folder + "/nginx.conf")
      << "daemon off; master_process off; worker_processes 1; pid " << folder << "/nginx.pid;\n"
      << "error_log " << folder << "/error.log;\n"
      << "events { worker_connections 256; }\n"
      << "http { access_log off; keepalive_requests 1000000; client_body_temp_path " << folder << ";\n"
      << "  server { listen 127.0.0.1:" << port << ";\n"
      << "    location = /BrowserExt/setting { add_header X-Wren-ToolbarStatus true; " << json
      << R"(return 200 '{"EnableAutomaticScan":1,"EnableManualScanner":1}'; })" << "\n"
      << "    location = /BrowserExt/rating { " << json << "return 200 '" << rating << "'; }\n"
      << "    location / { " << json << "return 200 '{}'; } } }\n";
  *nginx = fork();
  if (*nginx == 0) {
    execl(kNginx, kNginx, "-q", "-p", folder.c_str(), "-c", (folder + "/nginx.conf").c_str(),
          static_cast<char*>(nullptr));
    _exit(127);
  }
  for (auto end = std::chrono::steady_clock::now() + kNginxStartup; !accepts(port);) {
    if (std::chrono::steady_clock::now() > end) return {};
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return {{"WREN_SERVICE_ORIGIN", "http://127.0.0.1:" + std::to_string(port)}, {"XDG_CONFIG_HOME", folder}};
}

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

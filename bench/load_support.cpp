#include "load_support.h"

#include <unistd.h>

#include <fstream>
#include <string>

#include "support/host_process.h"

namespace wren::bench {

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

long statusKiB(pid_t pid, const char* field) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  const std::string name = field;
  while (std::getline(status, line))
    if (line.rfind(name, 0) == 0) return std::stol(line.substr(name.size()));
  return -1;
}

}  // namespace wren::bench

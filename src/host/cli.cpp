#include "host/cli.h"

#include <cstdio>
#include <cstring>

#include "util/version.h"

namespace wren {
int runCli(int argc, char** argv) {
  if (argc > 1 && std::strcmp(argv[1], "--version") == 0) {
    std::printf("wren-bridge %s\n", kVersion);
    return 0;
  }
  return 0;
}
}  // namespace wren

#pragma once
// The simulator's command line: what it listens on, its starting state and
// where its rules come from.
#include <optional>
#include <string>
#include <vector>

namespace wren::sim {

// The port the bridge expects the local protection service on.
constexpr int kDefaultServicePort = 37848;

struct Options {
  int port = kDefaultServicePort;      // 0: any free port
  std::optional<int> cloudPort;        // no cloud unless given; 0: any free port
  std::string caOut;                   // "" : a file in a fresh temp dir
  std::string rulesFile;               // "" : the built-in rules
  bool toolbar = true, autoScan = true, manualScan = true, veldrin = true;
  std::string productVersion = "9.0.0";
  bool quiet = false;
  bool help = false;
};

// Parses argv; nothing (and *error set) on an unknown flag or a bad value.
// Flags take their value as the next argument or after "=".
std::optional<Options> parseOptions(const std::vector<std::string>& args, std::string* error);

std::string usageText();

}  // namespace wren::sim

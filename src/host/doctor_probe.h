#pragma once
// The doctor's round trip with a registered host: it is started as a browser
// would start it (no arguments, frames on stdin and stdout), its hello frame
// is read with the host's own frame codec, its stdin is closed and its exit
// awaited, each within the time a browser would give it.
//
// Runs on the calling thread, synchronously; owns the child until it ends.
#include <string>

namespace wren {

struct ProbeResult {
  bool ok = false;   // said hello and exited 0 in time
  std::string text;  // what happened, for the doctor's report
};

ProbeResult probeHost(const std::string& exe);

}  // namespace wren

// What the load drivers share: the simulator started on a free port, and the
// host's figures read from /proc. Runs in the driver's own process.
#pragma once

#include <sys/types.h>

namespace wren::bench {

// Starts wren-service-sim on a free loopback port (its pid in *pid) and
// returns the port, or -1 when it did not come up.
int startSimulator(pid_t* pid);

// A "Name:" field of /proc/PID/status in KiB ("VmRSS:", "VmHWM:"), or -1.
long statusKiB(pid_t pid, const char* field);

}  // namespace wren::bench

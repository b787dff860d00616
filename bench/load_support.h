// What the load drivers share: the host started against the simulator on a
// free port and brought to the point where it answers pages, and the host's
// figures read from /proc. Runs in the driver's own process.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>

#include "support/host_process.h"

namespace wren::bench {

// Starts wren-service-sim on a free loopback port (its pid in *sim) and
// returns the environment for a host against it, with a config folder of its
// own ("/tmp/wren-NAME-XXXXXX"); empty when the simulator did not come up.
std::map<std::string, std::string> hostEnvironment(const std::string& name, pid_t* sim);

// The same against a static stand-in for the local service instead: Debian's
// nginx, when installed, on a free loopback port, turning the toolbar and both
// scans on and answering every rating with `links` results, so that a
// measurement of the host includes as little of the service's own work as
// can be. Its pid in *nginx; empty when nginx is not there or did not come up.
std::map<std::string, std::string> staticServiceEnvironment(const std::string& name, int links, pid_t* nginx);

// Sends a toolbar validation, which loads the service's settings as in the
// browser, then probes with a message from `page` until one is answered;
// false when none is.
bool enableToolbar(wren::test::HostProcess& host, const wren::test::OJson& page);

// A "Name:" field of /proc/PID/status in KiB ("VmRSS:", "VmHWM:"), or -1.
long statusKiB(pid_t pid, const char* field);

// The CPU time (user and system, all threads) the process has used, in
// seconds, from /proc/PID/stat; -1 when it cannot be read.
double cpuSeconds(pid_t pid);

}  // namespace wren::bench

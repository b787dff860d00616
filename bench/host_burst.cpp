// Burst driver: the real wren-bridge against the real service simulator,
// flooded with rating requests at once, as a page gone wild or a hostile one
// would. Samples the host's memory and descriptors meanwhile, times the
// answers to another page's messages sent amid the flood, and reads the
// memory again once the burst is over.
//
//   host_burst [--messages 20000] [--links 20]
#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/frame_codec.h"
#include "load_support.h"
#include "support/host_process.h"

using namespace std::chrono;
using wren::bench::statusKiB;
using wren::test::HostProcess;
using wren::test::OJson;

namespace {

// A probe page's message goes out every this many rating requests.
constexpr int kProbeEvery = 500;

int openDescriptors(pid_t pid) {
  DIR* d = opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
  if (!d) return -1;
  int n = 0;
  while (dirent* e = readdir(d))
    if (e->d_name[0] != '.') ++n;
  closedir(d);
  return n;
}

std::string framed(const OJson& frame) { return wren::encodeFrame(frame.dump()); }

}  // namespace

int main(int argc, char** argv) {
  int messages = 20'000, links = 20;
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string a = argv[i];
    if (a == "--messages") messages = std::stoi(argv[i + 1]);
    if (a == "--links") links = std::stoi(argv[i + 1]);
  }
  pid_t sim = -1;
  auto env = wren::bench::hostEnvironment("burst", &sim);
  if (env.empty()) {
    std::fprintf(stderr, "could not start the simulator\n");
    return 1;
  }
  HostProcess host(WREN_BRIDGE_EXE, {}, env);
  if (!host.readFrame()) return 1;
  if (!wren::bench::enableToolbar(host, "ready")) {
    std::fprintf(stderr, "the host never enabled the toolbar\n");
    return 1;
  }
  long rssBefore = statusKiB(host.pid(), "VmRSS:");

  OJson urls = OJson::array();
  for (int i = 0; i < links; ++i) urls.push_back({{"url", "https://site" + std::to_string(i) + ".example/p"}, {"id", i}});
  const std::string rating =
      framed({{"type", "message"}, {"name", "rateItems"}, {"page", "flood"},
              {"userInfo", {{"type", "AutomaticScan"}, {"urls", urls}}}});

  std::mutex mutex;
  std::map<int, steady_clock::time_point> probesSent;
  std::vector<double> probeMs;
  std::atomic<size_t> ratings{0};
  std::atomic<bool> sending{true};
  auto start = steady_clock::now();
  std::thread writer([&] {
    for (int i = 0; i < messages; ++i) {
      host.sendRaw(rating);
      if (i % kProbeEvery == 0) {
        {
          std::lock_guard lock(mutex);
          probesSent[i] = steady_clock::now();
        }
        host.sendRaw(framed({{"type", "message"}, {"name", "vd_set_email"}, {"page", i}, {"userInfo", {{"email", ""}}}}));
      }
    }
    sending = false;
  });
  std::atomic<bool> quiet{false};
  std::thread reader([&] {
    for (;;) {
      auto f = host.readFrame(2s);
      if (!f) {
        if (!sending) break;  // quiet for two seconds after the last request: the burst is over
        continue;
      }
      if (f->value("type", "") == "call") host.sendRaw(framed({{"type", "result"}, {"id", (*f)["id"]}, {"value", nullptr}}));
      if (f->value("name", "") == "rateItems") ++ratings;
      if (f->value("name", "") == "vd_set_email" && (*f)["page"].is_number_integer()) {
        std::lock_guard lock(mutex);
        probeMs.push_back(duration<double, std::milli>(steady_clock::now() - probesSent[(*f)["page"].get<int>()]).count());
      }
    }
    quiet = true;
  });
  int maxFds = 0;
  long maxRss = 0;
  while (!quiet) {
    maxFds = std::max(maxFds, openDescriptors(host.pid()));
    maxRss = std::max(maxRss, statusKiB(host.pid(), "VmRSS:"));
    std::this_thread::sleep_for(20ms);
  }
  writer.join();
  reader.join();
  double burstSeconds = duration<double>(steady_clock::now() - start).count();
  std::this_thread::sleep_for(1s);  // the host trims once it is idle
  long rssAfter = statusKiB(host.pid(), "VmRSS:");
  long peak = statusKiB(host.pid(), "VmHWM:");
  size_t dropLines = 0;
  for (const auto& line : host.logLines())
    if (line.find("waiting requests were dropped") != std::string::npos ||
        line.find("dropped the oldest waiting request") != std::string::npos)
      ++dropLines;
  host.closeStdin();
  host.wait();
  kill(sim, SIGTERM);

  std::sort(probeMs.begin(), probeMs.end());
  std::printf("burst             %d rateItems of %d links, %.1f s until quiet\n", messages, links, burstSeconds);
  std::printf("rating answers    %zu (the rest dropped unsent; %zu drop log lines)\n", ratings.load(), dropLines);
  std::printf("other page        %zu of %d probes answered, p50 %.1f ms, max %.1f ms\n", probeMs.size(),
              (messages + kProbeEvery - 1) / kProbeEvery, probeMs.empty() ? 0 : probeMs[probeMs.size() / 2],
              probeMs.empty() ? 0 : probeMs.back());
  std::printf("host RSS          %.1f MiB before, %.1f MiB peak (sampled %.1f), %.1f MiB after\n", rssBefore / 1024.0,
              peak / 1024.0, maxRss / 1024.0, rssAfter / 1024.0);
  std::printf("host descriptors  at most %d\n", maxFds);
  return 0;
}

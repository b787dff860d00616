// Load driver: the real wren-bridge against the real service simulator, with
// many pages in flight asking for link ratings. Prints throughput, latency
// percentiles, the host's peak memory and how soon it said hello.
//
//   host_load [--pages 64] [--links 20] [--seconds 5]
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "host/frame_codec.h"
#include "load_support.h"
#include "support/host_process.h"

using namespace std::chrono;
using wren::bench::statusKiB;
using wren::test::HostProcess;
using wren::test::OJson;

int main(int argc, char** argv) {
  int pages = 64, links = 20;
  double seconds = 5;
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string a = argv[i];
    if (a == "--pages") pages = std::stoi(argv[i + 1]);
    if (a == "--links") links = std::stoi(argv[i + 1]);
    if (a == "--seconds") seconds = std::stod(argv[i + 1]);
  }
  pid_t sim = -1;
  auto env = wren::bench::hostEnvironment("load", &sim);
  if (env.empty()) {
    std::fprintf(stderr, "could not start the simulator\n");
    return 1;
  }
  auto t0 = steady_clock::now();
  HostProcess host(WREN_BRIDGE_EXE, {}, env);
  auto hello = host.readFrame();
  double helloMs = duration<double, std::milli>(steady_clock::now() - t0).count();
  if (!hello) return 1;
  if (!wren::bench::enableToolbar(host, -1)) {
    std::fprintf(stderr, "the host never enabled the toolbar\n");
    return 1;
  }

  OJson urls = OJson::array();
  for (int i = 0; i < links; ++i)
    urls.push_back({{"url", (i % 5 == 0 ? "http://bit.ly/l" : "https://site" + std::to_string(i) + ".example/p")},
                    {"id", i}});
  // Each page sends the same request again and again: its frame is encoded
  // once, so the driver spends its time reading answers, not re-encoding.
  std::vector<std::string> requestFrames(pages);
  for (int p = 0; p < pages; ++p) {
    requestFrames[p] = wren::encodeFrame(OJson{{"type", "message"}, {"name", "rateItems"}, {"page", p},
                                               {"userInfo", {{"type", "AutomaticScan"}, {"urls", urls}}}}
                                             .dump());
  }
  // An answer counts when it is the page's rating: every link back, with a level.
  auto isAnswer = [&](const OJson& f, int* page) {
    if (f.value("type", "") != "message" || f.value("name", "") != "rateItems") return false;
    auto p = f.find("page");
    if (p == f.end() || !p->is_number_integer() || *p < 0 || *p >= pages) return false;
    auto results = f.find("userInfo");
    if (results == f.end() || !results->is_object() || !results->contains("results")) return false;
    const OJson& list = (*results)["results"];
    if (!list.is_array() || list.size() != static_cast<size_t>(links)) return false;
    for (const auto& item : list)
      if (!item.is_object() || !item.contains("level")) return false;
    *page = p->get<int>();
    return true;
  };
  std::vector<steady_clock::time_point> sent(pages);
  std::vector<double> latencies;
  auto start = steady_clock::now();
  auto end = start + duration_cast<steady_clock::duration>(duration<double>(seconds));
  for (int p = 0; p < pages; ++p) {
    sent[p] = steady_clock::now();
    host.sendRaw(requestFrames[p]);
  }
  size_t answers = 0, others = 0;
  while (steady_clock::now() < end) {
    auto f = host.readFrame(5s);
    if (!f) break;
    int p = -1;
    if (!isAnswer(*f, &p)) {
      ++others;
      continue;
    }
    auto now = steady_clock::now();
    latencies.push_back(duration<double, std::milli>(now - sent[p]).count());
    ++answers;
    sent[p] = now;
    host.sendRaw(requestFrames[p]);
  }
  double elapsed = duration<double>(steady_clock::now() - start).count();
  long rss = statusKiB(host.pid(), "VmHWM:");
  host.closeStdin();
  // Keep reading until the host closes its end: answers still in flight would
  // otherwise fill the pipe and block the host in a write, where it never sees
  // the end of its input.
  while (host.readFrame(5s)) {
  }
  host.wait();
  kill(sim, SIGTERM);
  std::sort(latencies.begin(), latencies.end());
  auto pct = [&](double q) { return latencies.empty() ? 0 : latencies[size_t(q * (latencies.size() - 1))]; };
  std::printf("pages in flight   %d (rateItems of %d links)\n", pages, links);
  std::printf("answers           %zu in %.2f s = %.0f answers/s\n", answers, elapsed, answers / elapsed);
  if (others > 0) std::printf("other frames      %zu (not a complete rating answer)\n", others);
  std::printf("latency           p50 %.2f ms, p99 %.2f ms, max %.2f ms\n", pct(0.5), pct(0.99), pct(1.0));
  std::printf("host peak RSS     %.1f MiB\n", rss / 1024.0);
  std::printf("hello after       %.2f ms from spawn\n", helloMs);
  return 0;
}

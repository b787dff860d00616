// Load driver: the real wren-bridge against the real service simulator, with
// many pages in flight asking for link ratings, taking turns with echo_host
// (framing and JSON only, no HTTP) so that both are measured on the same
// machine in the same minute. Prints for each: throughput, the host's CPU
// time per answer, latency percentiles, peak memory and how soon it said
// hello; then the host's CPU per answer as a multiple of the echo host's.
//
//   host_load [--pages 64] [--links 20] [--seconds 5] [--rounds 3] [--no-echo] [--host PATH]
//             [--service sim|nginx]
//
// --host measures another build of the host (or a wrapper that runs it under
// a profiler) in wren-bridge's place. --service nginx puts a static stand-in
// for the local service in the simulator's place (Debian's nginx, when
// installed), so that less of the machine goes to the service.
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
using wren::bench::cpuSeconds;
using wren::bench::statusKiB;
using wren::test::HostProcess;
using wren::test::OJson;

namespace {

struct Load {
  int pages = 64;
  int links = 20;
  double seconds = 5;
  std::map<std::string, std::string> env;
};

struct Figures {
  size_t answers = 0, others = 0;
  double elapsed = 0, cpu = 0, helloMs = 0;
  double p50 = 0, p99 = 0, max = 0;
  long rssKiB = 0;
  bool ok = false;
  double cpuPerAnswerUs() const { return answers ? cpu * 1e6 / answers : 0; }
};

// Each page sends the same request again and again: its frame is encoded
// once, so the driver spends its time reading answers, not re-encoding.
std::vector<std::string> requestFrames(const Load& load) {
  OJson urls = OJson::array();
  for (int i = 0; i < load.links; ++i)
    urls.push_back({{"url", (i % 5 == 0 ? "http://bit.ly/l" : "https://site" + std::to_string(i) + ".example/p")},
                    {"id", i}});
  std::vector<std::string> frames(load.pages);
  for (int p = 0; p < load.pages; ++p) {
    frames[p] = wren::encodeFrame(OJson{{"type", "message"}, {"name", "rateItems"}, {"page", p},
                                        {"userInfo", {{"type", "AutomaticScan"}, {"urls", urls}}}}
                                      .dump());
  }
  return frames;
}

// Whether a frame is a page's rating: every link back, with a level.
bool isAnswer(const OJson& f, const Load& load, int* page) {
  if (f.value("type", "") != "message" || f.value("name", "") != "rateItems") return false;
  auto p = f.find("page");
  if (p == f.end() || !p->is_number_integer() || *p < 0 || *p >= load.pages) return false;
  auto results = f.find("userInfo");
  if (results == f.end() || !results->is_object() || !results->contains("results")) return false;
  const OJson& list = (*results)["results"];
  if (!list.is_array() || list.size() != static_cast<size_t>(load.links)) return false;
  for (const auto& item : list)
    if (!item.is_object() || !item.contains("level")) return false;
  *page = p->get<int>();
  return true;
}

Figures measure(const char* exe, const Load& load) {
  Figures out;
  auto t0 = steady_clock::now();
  HostProcess host(exe, {}, load.env);
  if (!host.readFrame()) return out;
  out.helloMs = duration<double, std::milli>(steady_clock::now() - t0).count();
  if (!wren::bench::enableToolbar(host, -1)) {
    std::fprintf(stderr, "%s never answered a page\n", exe);
    return out;
  }
  std::vector<std::string> frames = requestFrames(load);
  std::vector<steady_clock::time_point> sent(load.pages);
  std::vector<double> latencies;
  double cpu0 = cpuSeconds(host.pid());
  auto start = steady_clock::now();
  auto end = start + duration_cast<steady_clock::duration>(duration<double>(load.seconds));
  for (int p = 0; p < load.pages; ++p) {
    sent[p] = steady_clock::now();
    host.sendRaw(frames[p]);
  }
  while (steady_clock::now() < end) {
    auto f = host.readFrame(5s);
    if (!f) break;
    int p = -1;
    if (!isAnswer(*f, load, &p)) {
      ++out.others;
      continue;
    }
    auto now = steady_clock::now();
    latencies.push_back(duration<double, std::milli>(now - sent[p]).count());
    ++out.answers;
    sent[p] = now;
    host.sendRaw(frames[p]);
  }
  out.elapsed = duration<double>(steady_clock::now() - start).count();
  out.cpu = cpuSeconds(host.pid()) - cpu0;
  out.rssKiB = statusKiB(host.pid(), "VmHWM:");
  host.closeStdin();
  // Keep reading until the host closes its end: answers still in flight would
  // otherwise fill the pipe and block the host in a write, where it never sees
  // the end of its input.
  while (host.readFrame(5s)) {
  }
  host.wait();
  std::sort(latencies.begin(), latencies.end());
  auto pct = [&](double q) { return latencies.empty() ? 0 : latencies[size_t(q * (latencies.size() - 1))]; };
  out.p50 = pct(0.5);
  out.p99 = pct(0.99);
  out.max = pct(1.0);
  out.ok = out.answers > 0;
  return out;
}

void print(const char* who, int round, const Figures& f) {
  std::printf("%-11s %5d %9.0f %10.1f %8.2f %8.2f %8.2f %8.1f %8.2f\n", who, round, f.answers / f.elapsed,
              f.cpuPerAnswerUs(), f.p50, f.p99, f.max, f.rssKiB / 1024.0, f.helloMs);
  if (f.others > 0) std::printf("            %zu other frames (not a complete rating answer)\n", f.others);
}

double median(std::vector<double> v) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  Load load;
  std::string hostExe = WREN_BRIDGE_EXE;
  int rounds = 3;
  bool echo = true;
  std::string service = "sim";
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--no-echo") {
      echo = false;
      continue;
    }
    if (i + 1 >= argc) break;
    std::string v = argv[++i];
    if (a == "--pages") load.pages = std::stoi(v);
    if (a == "--links") load.links = std::stoi(v);
    if (a == "--seconds") load.seconds = std::stod(v);
    if (a == "--rounds") rounds = std::max(1, std::stoi(v));
    if (a == "--host") hostExe = v;
    if (a == "--service") service = v;
  }
  pid_t sim = -1;
  load.env = service == "nginx" ? wren::bench::staticServiceEnvironment("load", load.links, &sim)
                                 : wren::bench::hostEnvironment("load", &sim);
  if (load.env.empty()) {
    std::fprintf(stderr, "could not start the %s\n", service == "nginx" ? "nginx stand-in" : "simulator");
    return 1;
  }

  std::printf("%d pages in flight, rateItems of %d links, %.0f s a round, against the %s\n", load.pages, load.links,
              load.seconds, service == "nginx" ? "nginx stand-in" : "simulator");
  std::printf("%-11s %5s %9s %10s %8s %8s %8s %8s %8s\n", "host", "round", "answers/s", "cpu us/ans", "p50 ms",
              "p99 ms", "max ms", "RSS MiB", "hello ms");
  std::vector<double> hostCpu, echoCpu;
  int status = 0;
  for (int round = 1; round <= rounds; ++round) {
    Figures host = measure(hostExe.c_str(), load);
    if (!host.ok) status = 1;
    print("wren-bridge", round, host);
    hostCpu.push_back(host.cpuPerAnswerUs());
    if (!echo) continue;
    Figures floor = measure(WREN_ECHO_HOST_EXE, load);
    print("echo_host", round, floor);
    echoCpu.push_back(floor.cpuPerAnswerUs());
  }
  kill(sim, SIGTERM);
  if (echo && median(echoCpu) > 0)
    std::printf("cpu per answer: wren-bridge %.1f us, echo_host %.1f us (medians): %.2fx the floor\n",
                median(hostCpu), median(echoCpu), median(hostCpu) / median(echoCpu));
  return status;
}

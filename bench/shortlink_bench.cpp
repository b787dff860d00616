// The short-link test over one large page's worth of links: 10,000 addresses,
// a mix of short links (http and https), ordinary sites, long tracking
// addresses and redirects that carry a short link in their query.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "server/wren_browser_ext_server.h"

namespace {

constexpr size_t kAddresses = 10000;

// A fixed linear congruential generator, so every run rates the same list.
struct Lcg {
  uint64_t state = 0x2545F4914F6CDD1DULL;
  uint32_t next() {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<uint32_t>(state >> 33);
  }
};

std::vector<std::string> makeAddresses() {
  const char* shortHosts[] = {"http://t.co/",    "https://t.co/",   "http://bit.ly/", "https://bit.ly/",
                              "http://goo.gl/",  "http://tinyurl.com/", "http://t.cn/", "https://mysp.ac/",
                              "HTTP://OW.LY/",   "http://www.baidu.com/link?url="};
  const char* sites[] = {"https://www.example.com/", "https://news.example.org/articles/",
                         "http://shop.example.net/item?id=", "https://docs.example.io/guide/",
                         "https://cdn.example.com/assets/img/"};
  Lcg rng;
  std::vector<std::string> out;
  out.reserve(kAddresses);
  for (size_t i = 0; i < kAddresses; ++i) {
    const uint32_t r = rng.next();
    std::string token = std::to_string(rng.next());
    switch (r % 4) {
      case 0:  // a short link
        out.push_back(shortHosts[r / 4 % std::size(shortHosts)] + token);
        break;
      case 1:  // an ordinary address
        out.push_back(sites[r / 4 % std::size(sites)] + token);
        break;
      case 2:  // a long tracking address with no short link
        out.push_back(std::string(sites[r / 4 % std::size(sites)]) + token +
                      "?utm_source=newsletter&utm_medium=email&utm_campaign=" + std::string(120, 'x') + token);
        break;
      default:  // a redirect carrying a short link in its query
        out.push_back(std::string(sites[r / 4 % std::size(sites)]) + "out?to=" +
                      shortHosts[r / 8 % std::size(shortHosts)] + token);
    }
  }
  return out;
}

void BM_IsMatchOverMixedAddresses(benchmark::State& state) {
  const std::vector<std::string> addresses = makeAddresses();
  size_t matches = 0;
  for (auto _ : state) {
    matches = 0;
    for (const std::string& a : addresses) matches += wren::WrenBrowserExtServer::isMatch(a);
    benchmark::DoNotOptimize(matches);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * addresses.size()));
  state.counters["matches"] = static_cast<double>(matches);
}
BENCHMARK(BM_IsMatchOverMixedAddresses)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

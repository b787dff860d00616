// Speed of the text helpers on the hot paths: every rated link is
// percent-encoded, and the mail scan hashes the current address.
#include <benchmark/benchmark.h>

#include <string>

#include "util/common.h"
#include "util/url_escapes.h"

namespace {

// About 100 characters with a handful of characters that must be escaped.
const std::string kUrl =
    "https://www.example.com/path/to/some page/index.html?query=caf\xC3\xA9&user=me@example.com#section:12;x";

void BM_EncodeURI(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(wren::encodeURI(kUrl));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kUrl.size()));
}
BENCHMARK(BM_EncodeURI);

void BM_DecodeURI(benchmark::State& state) {
  const std::string encoded = wren::encodeURI(kUrl);
  for (auto _ : state) benchmark::DoNotOptimize(wren::decodeURI(encoded));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * encoded.size()));
}
BENCHMARK(BM_DecodeURI);

const std::string kAddress = "someone.with.a.long.name@example-mail.com";

void BM_MD5(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(wren::MD5(kAddress));
}
BENCHMARK(BM_MD5);

void BM_md5UpToNul(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(wren::md5UpToNul(kAddress));
}
BENCHMARK(BM_md5UpToNul);

void BM_SHA256(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(wren::SHA256(kAddress));
}
BENCHMARK(BM_SHA256);

}  // namespace

BENCHMARK_MAIN();

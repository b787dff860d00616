// Ajax costs: building a query string, and a loopback GET round trip with and
// without a kept-alive connection.
#include <benchmark/benchmark.h>
#include <httplib.h>

#include <thread>

#include "net/ajax.h"

namespace wren {
namespace {

Json twentyKeys() {
  Json p = Json::object();
  for (int i = 0; i < 14; ++i) p["key" + std::to_string(19 - i)] = "value with spaces & caf\xC3\xA9 " + std::to_string(i);
  p["count"] = 1234567;
  p["ratio"] = 0.125;
  p["enabled"] = true;
  p["nothing"] = nullptr;
  p["list"] = {"a", "b", "c"};
  p["nested"] = {{"z", 1}, {"a", "x y"}};
  return p;
}

void BM_QueryString20Keys(benchmark::State& state) {
  Json p = twentyKeys();
  for (auto _ : state) benchmark::DoNotOptimize(queryStringFromParameters(p));
}
BENCHMARK(BM_QueryString20Keys);

// A loopback server answering {"ok":true}. TCP_NODELAY is on so that its two
// writes (head, body) are not held back by Nagle against delayed ACKs, which
// would measure the kernel's 40 ms timer instead of the client.
class Server {
 public:
  Server() {
    server_.set_tcp_nodelay(true);
    server_.Get("/.*", [](const httplib::Request&, httplib::Response& res) {
      res.set_content(R"({"ok":true})", "application/json");
    });
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ~Server() {
    server_.stop();
    thread_.join();
  }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/bench"; }

 private:
  httplib::Server server_;
  std::thread thread_;
  int port_ = 0;
};

bool roundTrip(RunLoop& loop, Ajax& ajax, const std::string& url) {
  bool done = false, ok = false;
  ajax.get(
      url, {}, Json{{"a", "1"}},
      [&](const HttpResponse&, const std::optional<Json>&) { done = ok = true; },
      [&](const std::optional<HttpResponse>&, const HttpError&) { done = true; });
  loop.runUntil([&] { return done; });
  return ok;
}

void BM_GetRoundTripReused(benchmark::State& state) {
  Server server;
  {
    RunLoop loop;
    Ajax ajax(loop, AjaxOptions{});
    for (auto _ : state)
      if (!roundTrip(loop, ajax, server.url())) state.SkipWithError("request failed");
  }  // the kept-alive connection closes before the server stops
}
BENCHMARK(BM_GetRoundTripReused)->UseRealTime();

// A fresh loop per request: a new multi handle and so a new connection each
// time (the cost of creating the multi handle is included).
void BM_GetRoundTripNewConnection(benchmark::State& state) {
  Server server;
  for (auto _ : state) {
    RunLoop loop;
    Ajax ajax(loop, AjaxOptions{});
    if (!roundTrip(loop, ajax, server.url())) state.SkipWithError("request failed");
  }
}
BENCHMARK(BM_GetRoundTripNewConnection)->UseRealTime();

}  // namespace
}  // namespace wren

BENCHMARK_MAIN();

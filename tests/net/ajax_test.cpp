// Ajax against a real loopback server: what goes out, many transfers in
// flight, completions on the loop thread, HTTPS trust. How an answer is judged
// is pinned where answers are decoded, and what the pages get through the host.
#include "net/ajax.h"

#include <gtest/gtest.h>
#include <strings.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <future>
#include <numeric>
#include <optional>
#include <thread>

#include "net/curl_transfers.h"
#include "support/test_server.h"

namespace wren::test {
namespace {

using namespace std::chrono_literals;

// What a request's callbacks saw.
struct Outcome {
  int calls = 0;
  bool succeeded = false;
  std::optional<HttpResponse> response;
  std::optional<Json> body;
  std::optional<HttpError> error;
  // A success or failure callback of any of the four operations, recording here.
  auto on(bool success) {
    return [this, success](const auto&... args) { ++calls, succeeded = success, (record(args), ...); };
  }
  void record(const std::optional<HttpResponse>& r) { response = r; }
  void record(const std::optional<Json>& b) { body = b; }
  void record(const std::optional<HttpError>& e) { error = e; }
};

class AjaxTest : public ::testing::Test {
 protected:
  AjaxOptions makeOptions(std::string caFile = "") {
    return {server.origin() + "/BrowserExt/sendData", [this] { return rawTimeout; }, std::move(caFile)};
  }
  // Turns the loop until `done`; false once only a hang could have taken this long.
  static bool runUntil(RunLoop& on, const std::function<bool()>& done) {
    auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    on.runUntil([&] { return done() || std::chrono::steady_clock::now() > limit; });
    return done();
  }
  // Starts a request with callbacks recording into an outcome and waits for them.
  template <class Start>
  Outcome await(Start start, RunLoop* on = nullptr) {
    Outcome o;
    start(o.on(true), o.on(false));
    EXPECT_TRUE(runUntil(on ? *on : loop, [&] { return o.calls > 0; })) << "no completion arrived";
    return o;
  }
  Outcome get(const std::string& url, const Json& parameters = Json(), const Headers& headers = {}) {
    return await([&](auto ok, auto fail) { ajax.get(url, headers, parameters, ok, fail); });
  }

  long long rawTimeout = 0;
  TestServer server;
  RunLoop loop;  // after the server: the loop's kept-alive connections close first
  Ajax ajax{loop, makeOptions()};
};

// A loopback address nothing listens on.
std::string nowhere() { return "http://127.0.0.1:" + std::to_string(TestServer().port()) + "/x"; }

size_t count(const RecordedRequest& r, const char* name) {
  return std::count_if(r.headers.begin(), r.headers.end(), [&](auto& h) { return !strcasecmp(h.first.c_str(), name); });
}

// Parameters after "?" are covered by the burst below, which reads them back.
TEST_F(AjaxTest, GetSendsParametersAfterTheQueryAndCallerHeadersSafely) {
  get(server.origin() + "/q?z=1", Json{{"b", "x y"}, {"a", {1, 2}}},
      {{"X-Plain", "v"}, {"X-Evil", "a\r\nX-Injected: 1"}, {"Bad:Name", "x"}, {"", "y"}, {"x-plain", "later wins"}});
  auto reqs = server.requests();
  ASSERT_EQ(reqs.size(), 1u);
  const auto& r = reqs[0];
  EXPECT_EQ(r.method + " " + r.target, "GET /q?z=1&a%5B%5D=1&a%5B%5D=2&b=x%20y");
  EXPECT_EQ(r.header("X-Plain"), "later wins");
  EXPECT_EQ(count(r, "X-Plain"), 1u);  // replaced where it stood, whatever the case
  // One line on the wire: CR LF went out as %0D%0A (this server decodes it); raw, it would start a header.
  EXPECT_EQ(r.header("X-Evil"), "a\r\nX-Injected: 1");
  EXPECT_FALSE(r.hasHeader("X-Injected") || r.hasHeader("Bad") || r.hasHeader("Expect"));
}

TEST_F(AjaxTest, DataRelayGetsJsonAndOtherSpellingsGetAForm) {
  server.respond(200, "text/javascript", R"({"ok":true})");
  const Json params = {{"k", "v w"}, {"n", 1}};
  const std::string relayUrl = server.origin() + "/BrowserExt/sendData";
  Outcome relay = await([&](auto ok, auto no) { ajax.post(relayUrl, params, ok, no); });
  Outcome slash = await([&](auto ok, auto no) { ajax.post(relayUrl + "/", params, ok, no); });
  auto reqs = server.requests();
  ASSERT_EQ(reqs.size(), 2u);
  EXPECT_EQ(reqs[0].method + " " + reqs[0].header("Content-Type") + " " + reqs[0].body,
            R"(POST application/json {"k":"v w","n":1})");
  EXPECT_EQ(reqs[1].header("Content-Type") + " " + reqs[1].body, "application/x-www-form-urlencoded k=v%20w&n=1");
  // The relay takes every JSON type; a form post only "application/json".
  EXPECT_TRUE(relay.succeeded);
  EXPECT_EQ(relay.body, (Json{{"ok", true}}));
  EXPECT_EQ(slash.error ? slash.error->code : 0, HttpError::kUnacceptableContentType);
}

// The ASCII body, "Accept" and a failure's body are pinned by the mail-scan client's tests.
TEST_F(AjaxTest, RawPostTakesCallerHeadersOverTheDefaultsAndTheStoredTimeout) {
  server.setHandler([](const httplib::Request&, httplib::Response& res) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));  // well past the one second allowed
    res.set_content("{}", "application/json");
  });
  rawTimeout = 1;
  const Headers plain = {{"content-type", "text/plain"}};
  Outcome o = await([&](auto ok, auto no) { ajax.post(server.origin(), plain, "{}", ok, no); });
  ASSERT_TRUE(o.error);
  EXPECT_EQ(o.error->code, CURLE_OPERATION_TIMEDOUT);
  ASSERT_TRUE(server.waitForRequests(1));  // recorded once the handler is done
  auto reqs = server.requests();
  ASSERT_EQ(reqs.size(), 1u);
  EXPECT_EQ(reqs[0].header("Content-Type"), "text/plain");
  EXPECT_EQ(count(reqs[0], "Content-Type"), 1u);
}

TEST_F(AjaxTest, AnAnswerOverTheBodyLimitFails) {
  const std::string big(Ajax::kMaxBodyBytes + 1, ' ');
  for (bool chunked : {false, true}) {
    server.setHandler([&](const httplib::Request&, httplib::Response& res) {
      if (!chunked) return res.set_content(big, "application/json");
      res.set_chunked_content_provider("application/json", [&](size_t offset, httplib::DataSink& sink) {
        return offset < big.size() ? sink.write(big.data() + offset, std::min<size_t>(1 << 20, big.size() - offset))
                                   : (sink.done(), true);
      });
    });
    Outcome o = get(server.origin() + "/big");
    ASSERT_TRUE(o.error) << "chunked " << chunked;
    EXPECT_EQ(o.error->code, HttpError::kTooLarge) << o.error->localizedDescription;
  }
}

TEST_F(AjaxTest, AbsentCallbacksAreSkippedOnEveryPath) {
  server.respond(200, "application/json", R"({"a":1})");
  for (const std::string& url : {server.origin() + "/ok", server.origin() + "/BrowserExt/sendData", nowhere()}) {
    ajax.get(url, {}, Json(), nullptr, nullptr);
    ajax.post(url, Json{{"a", 1}}, nullptr, nullptr);
    ajax.post(url, {}, "{}", nullptr, nullptr);
  }
  ajax.get("notaurl://x", {}, Json(), nullptr, nullptr);
  EXPECT_TRUE(runUntil(loop, [&] { return loop.pendingTransfers() == 0 && server.requestCount() == 6; }));
}

TEST_F(AjaxTest, ManyRequestsInFlightCompleteInTheOrderAnswered) {
  constexpr int kRequests = RunLoop::kMaxTransfersInFlight;  // all can be held at once
  // The server holds every request until all have arrived, then answers the
  // last one first; each completion releases the answer to the one before.
  // Serialised transfers, or a loop blocked by one, would never finish.
  std::mutex m;
  std::condition_variable cv;
  int arrived = 0, released = kRequests;  // requests with index >= released may answer
  server.setHandler([&](const httplib::Request& req, httplib::Response& res) {
    int index = std::stoi(req.get_param_value("i"));
    std::unique_lock lock(m);
    if (++arrived == kRequests) released = kRequests - 1;
    cv.notify_all();
    res.status = cv.wait_for(lock, 15s, [&] { return index >= released; }) ? 200 : 503;
    res.set_content(Json{{"i", index}}.dump(), "application/json");
  });
  std::vector<int> order, expected;
  auto failed = [](auto&, const HttpError& e) { ADD_FAILURE() << e.localizedDescription; };
  for (int i = 0; i < kRequests; ++i) {
    expected.insert(expected.begin(), i);
    auto answered = [&, i](const HttpResponse&, const std::optional<Json>& body) {
      EXPECT_EQ(body, (Json{{"i", i}}));
      order.push_back(i);
      std::lock_guard lock(m);
      released = i - 1;
      cv.notify_all();
    };
    ajax.get(server.origin() + "/burst", {}, Json{{"i", i}}, answered, failed);
  }
  ASSERT_TRUE(runUntil(loop, [&] { return order.size() == size_t(kRequests); }));
  EXPECT_EQ(order, expected);
}

TEST_F(AjaxTest, ABurstRunsAtMostTheCapAtOnceAndDropsTheOldestWaitingWithAFailure) {
  constexpr size_t kExtra = 10;
  constexpr size_t kRequests = RunLoop::kMaxTransfersInFlight + RunLoop::kMaxWaitingTransfers + kExtra;
  std::mutex m;
  size_t busy = 0, mostBusy = 0;
  server.setHandler([&](const httplib::Request&, httplib::Response& res) {
    {
      std::lock_guard lock(m);
      mostBusy = std::max(mostBusy, ++busy);
    }
    std::this_thread::sleep_for(1ms);  // long enough for the others to pile up
    std::lock_guard lock(m);
    --busy;
    res.set_content("{}", "application/json");
  });
  std::vector<int> calls(kRequests);
  std::vector<size_t> dropped;
  for (size_t i = 0; i < kRequests; ++i) {
    ajax.get(
        server.origin() + "/burst", {}, Json(), [&, i](auto&, auto&) { ++calls[i]; },
        [&, i](auto&, const HttpError& e) {
          ++calls[i];
          if (e.code == CurlTransfers::kDroppedTransfer) dropped.push_back(i);
        });
  }
  ASSERT_TRUE(runUntil(loop, [&] { return loop.pendingTransfers() == 0; }));
  EXPECT_EQ(calls, std::vector<int>(kRequests, 1));  // every request completes, once
  std::vector<size_t> oldestWaiting(kExtra);
  std::iota(oldestWaiting.begin(), oldestWaiting.end(), RunLoop::kMaxTransfersInFlight);
  EXPECT_EQ(dropped, oldestWaiting);
  EXPECT_LE(mostBusy, RunLoop::kMaxTransfersInFlight);
}

TEST_F(AjaxTest, CompletionsRunOnTheLoopThreadWhateverThreadCalled) {
  std::thread loopThread([&] { loop.run(); });
  std::promise<std::vector<std::thread::id>> seen;
  std::vector<std::thread::id> ids;  // touched on the loop thread only
  auto record = [&](auto&&...) {
    ids.push_back(std::this_thread::get_id());
    if (ids.size() == 3) seen.set_value(ids);
  };
  // From this (foreign) thread: a success, a failure and a raw POST.
  ajax.get(server.origin() + "/a", {}, Json(), record, nullptr);
  ajax.get(server.origin() + "/b", {}, "text/html", Json(), nullptr, record);
  ajax.post(server.origin() + "/c", {}, "{}", record, nullptr);
  auto future = seen.get_future();
  const bool ready = future.wait_for(20s) == std::future_status::ready;
  const std::thread::id loopId = loopThread.get_id();
  loop.quit();  // from another thread too
  loopThread.join();
  ASSERT_TRUE(ready);
  EXPECT_EQ(future.get(), std::vector<std::thread::id>(3, loopId));
}

TEST_F(AjaxTest, RequestsInTurnShareAConnectionButNothingElse) {
  await([&](auto ok, auto no) { ajax.post(server.origin(), {{"X-Only-Here", "1"}, {"Accept", "a/b"}}, "{}", ok, no); });
  get(server.origin() + "/two");
  auto reqs = server.requests();
  ASSERT_EQ(reqs.size(), 2u);
  EXPECT_EQ(reqs[1].method + " [" + reqs[1].body + "]", "GET []");
  EXPECT_FALSE(reqs[1].hasHeader("X-Only-Here") || reqs[1].header("Accept") == "a/b");
  EXPECT_EQ(reqs[1].remotePort, reqs[0].remotePort);
}

TEST_F(AjaxTest, HttpsVerifiesThePeerAgainstTheSystemStoreOrTheGivenBundle) {
  TestCertificate cert = TestCertificate::make();
  TestServer tls(cert);
  tls.respond(200, "application/json", R"({"secure":true})");
  RunLoop tlsLoop;  // after its server, like the fixture's
  Ajax systemStore(tlsLoop, makeOptions()), bundle(tlsLoop, makeOptions(cert.certFile));
  auto from = [&](Ajax& a) {
    return await([&](auto ok, auto fail) { a.get(tls.origin() + "/s", {}, Json(), ok, fail); }, &tlsLoop);
  };
  Outcome untrusted = from(systemStore), trusted = from(bundle);
  ASSERT_TRUE(untrusted.error);
  EXPECT_FALSE(untrusted.response);
  EXPECT_EQ(untrusted.error->code, CURLE_PEER_FAILED_VERIFICATION) << untrusted.error->localizedDescription;
  EXPECT_TRUE(trusted.succeeded) << (trusted.error ? trusted.error->localizedDescription : "");
  EXPECT_EQ(trusted.body, (Json{{"secure", true}}));
}

}  // namespace
}  // namespace wren::test

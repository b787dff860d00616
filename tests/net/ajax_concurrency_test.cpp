// Ajax under load and across threads: many transfers in flight, completions
// on the loop thread, connections reused.
#include <atomic>
#include <condition_variable>
#include <future>
#include <thread>

#include "ajax_fixture.h"

namespace wren::test {
namespace {

// A server with a thread for every request of the burst, so all of them can
// be held open at once (the shared test server has a small pool).
class WideServer {
 public:
  explicit WideServer(size_t threads) {
    server_.new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
  }
  ~WideServer() {
    server_.stop();
    if (thread_.joinable()) thread_.join();
  }
  std::string start(httplib::Server::Handler handler) {
    server_.Get("/.*", std::move(handler));
    int port = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return "http://127.0.0.1:" + std::to_string(port);
  }

 private:
  httplib::Server server_;
  std::thread thread_;
};

TEST_F(AjaxTest, ManyRequestsInFlightCompleteInTheOrderAnswered) {
  constexpr int kRequests = 50;
  // The server holds every request until all have arrived, then answers the
  // last one first; each completion releases the answer to the one before.
  // Serialised transfers would deadlock here (and fail on the time limit).
  std::mutex m;
  std::condition_variable cv;
  int arrived = 0;
  int released = kRequests;  // requests with index >= released may answer
  WideServer wide(kRequests + 4);
  std::string origin = wide.start([&](const httplib::Request& req, httplib::Response& res) {
    int index = std::stoi(req.get_param_value("i"));
    std::unique_lock lock(m);
    if (++arrived == kRequests) released = kRequests - 1;
    cv.notify_all();
    bool ok = cv.wait_for(lock, std::chrono::seconds(15), [&] { return index >= released; });
    res.status = ok ? 200 : 503;
    res.set_content(Json{{"i", index}}.dump(), "application/json");
  });

  RunLoop burstLoop;
  Ajax burst(burstLoop, makeOptions());
  std::vector<int> order;
  for (int i = 0; i < kRequests; ++i) {
    burst.get(
        origin + "/burst", {}, Json{{"i", i}},
        [&, i](const HttpResponse&, const std::optional<Json>& body) {
          EXPECT_EQ(body, (Json{{"i", i}}));
          order.push_back(i);
          std::lock_guard lock(m);
          released = i - 1;
          cv.notify_all();
        },
        [&](const std::optional<HttpResponse>&, const HttpError& e) {
          ADD_FAILURE() << e.localizedDescription;
          order.push_back(-1);
        });
  }
  ASSERT_TRUE(runUntil(burstLoop, [&] { return order.size() == size_t(kRequests); }));
  std::vector<int> expected;
  for (int i = kRequests - 1; i >= 0; --i) expected.push_back(i);
  EXPECT_EQ(order, expected);
}

TEST_F(AjaxTest, CompletionsRunOnTheLoopThreadWhateverThreadCalled) {
  std::promise<std::thread::id> loopId;
  std::thread loopThread([&] {
    loopId.set_value(std::this_thread::get_id());
    loop.run();
  });
  std::thread::id id = loopId.get_future().get();
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
  ASSERT_EQ(future.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  loop.quit();
  loopThread.join();
  auto got = future.get();
  ASSERT_EQ(got.size(), 3u);
  for (auto t : got) EXPECT_EQ(t, id);
}

TEST_F(AjaxTest, SequentialRequestsReuseOneConnection) {
  constexpr int kRequests = 5;
  for (int i = 0; i < kRequests; ++i) {
    if (i % 2) {
      EXPECT_TRUE(get(server.origin() + "/reuse").succeeded);
    } else {
      EXPECT_TRUE(post(server.origin() + "/reuse", Json{{"i", i}}).succeeded);
    }
  }
  auto reqs = server.requests();
  ASSERT_EQ(reqs.size(), size_t(kRequests));
  for (const auto& r : reqs) EXPECT_EQ(r.remotePort, reqs[0].remotePort);
}

TEST_F(AjaxTest, HttpsVerifiesThePeerAgainstTheSystemStoreOrTheGivenBundle) {
  TestCertificate cert = TestCertificate::make();
  TestServer tls(cert);
  tls.respond(200, "application/json", R"({"secure":true})");
  RunLoop tlsLoop;
  Ajax systemStore(tlsLoop, makeOptions());
  Ajax bundle(tlsLoop, makeOptions(cert.certFile));

  Outcome untrusted;
  systemStore.get(tls.origin() + "/s", {}, Json(), onSuccess(untrusted), onFailure(untrusted));
  wait(untrusted, &tlsLoop);
  ASSERT_TRUE(untrusted.error);
  EXPECT_FALSE(untrusted.response);
  EXPECT_EQ(untrusted.error->code, CURLE_PEER_FAILED_VERIFICATION) << untrusted.error->localizedDescription;

  Outcome trusted;
  bundle.get(tls.origin() + "/s", {}, Json(), onSuccess(trusted), onFailure(trusted));
  wait(trusted, &tlsLoop);
  EXPECT_TRUE(trusted.succeeded) << (trusted.error ? trusted.error->localizedDescription : "");
  EXPECT_EQ(trusted.body, (Json{{"secure", true}}));
}

}  // namespace
}  // namespace wren::test

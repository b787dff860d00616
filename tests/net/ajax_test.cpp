// Ajax against a real loopback server: what goes out and how answers come back.
#include "net/ajax.h"

#include <arpa/inet.h>
#include <strings.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "ajax_fixture.h"

namespace wren::test {
namespace {

// A loopback port that nothing listens on (bound, read, closed).
int closedPort() {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  socklen_t len = sizeof addr;
  getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  close(fd);
  return ntohs(addr.sin_port);
}

struct AnswerRow {
  const char* name;
  int status;
  std::string contentType;  // "" sends none
  std::string body;
  std::optional<std::string> accept;
  int errorCode;  // 0: success
  std::optional<Json> decoded;
};

TEST_F(AjaxTest, GetJudgesStatusTypeAndBody) {
  const AnswerRow rows[] = {
      {"object", 200, "application/json", R"({"a":[1,"x"]})", {}, 0, Json{{"a", {1, "x"}}}},
      {"array", 200, "application/json; charset=utf-8", "[1,2]", {}, 0, Json::array({1, 2})},
      {"empty body", 200, "application/json", "", {}, 0, std::nullopt},
      {"single space", 200, "application/json", " ", {}, 0, std::nullopt},
      {"no content at all", 204, "", "", {}, 0, std::nullopt},
      {"text/json is not accepted by GET", 200, "text/json", "{}", {}, HttpError::kUnacceptableContentType, {}},
      {"html by default", 200, "text/html", "{}", {}, HttpError::kUnacceptableContentType, {}},
      {"html when asked for", 200, "text/html; charset=UTF-8", R"({"ok":1})", "text/html", 0, Json{{"ok", 1}}},
      {"json when html asked for", 200, "application/json", "{}", "text/html", HttpError::kUnacceptableContentType, {}},
      {"not found", 404, "application/json", "{}", {}, HttpError::kBadStatus, {}},
      {"server error", 500, "application/json", R"({"e":1})", {}, HttpError::kBadStatus, {}},
      {"string top level", 200, "application/json", "\"s\"", {}, HttpError::kCannotDecode, {}},
      {"not JSON", 200, "application/json", "<html>", {}, HttpError::kCannotDecode, {}},
  };
  for (const auto& row : rows) {
    server.setHandler([&](const httplib::Request&, httplib::Response& res) {
      res.status = row.status;
      res.body = row.body;
      if (!row.contentType.empty()) res.set_header("Content-Type", row.contentType);
    });
    Outcome o = get(server.origin() + "/x", Json(), {}, row.accept);
    EXPECT_EQ(o.calls, 1) << row.name;
    if (row.errorCode == 0) {
      EXPECT_TRUE(o.succeeded) << row.name << ": " << (o.error ? o.error->localizedDescription : "");
      EXPECT_EQ(o.body, row.decoded) << row.name;
    } else {
      ASSERT_TRUE(o.error) << row.name;
      EXPECT_EQ(o.error->code, row.errorCode) << row.name;
    }
    // The server answered, so the response travels either way.
    ASSERT_TRUE(o.response) << row.name;
    EXPECT_EQ(o.response->statusCode, row.status) << row.name;
  }
}

TEST_F(AjaxTest, FailureCarriesResponseFieldsAndReadableText) {
  server.setHandler([](const httplib::Request&, httplib::Response& res) {
    res.status = 404;
    res.set_header("X-Reason", "gone");
    res.set_content("{}", "application/json");
  });
  Outcome o = get(server.origin() + "/missing");
  ASSERT_TRUE(o.error);
  EXPECT_EQ(o.error->localizedDescription, "Request failed: not found (404)");
  ASSERT_TRUE(o.response);
  EXPECT_EQ(o.response->header("x-reason"), "gone");
  EXPECT_EQ(o.response->url, server.origin() + "/missing");
}

TEST_F(AjaxTest, NoListenerFailsWithoutResponse) {
  Outcome o = get("http://127.0.0.1:" + std::to_string(closedPort()) + "/x");
  ASSERT_TRUE(o.error);
  EXPECT_FALSE(o.response);
  EXPECT_EQ(o.error->code, CURLE_COULDNT_CONNECT);
  EXPECT_EQ(o.error->localizedDescription.rfind("Could not connect to server: ", 0), 0u)
      << o.error->localizedDescription;
}

TEST_F(AjaxTest, ParametersTravelInTheQuery) {
  get(server.origin() + "/q", Json{{"b", "x y"}, {"a", {1, 2}}});
  get(server.origin() + "/q?z=1", Json{{"k", true}});
  get(server.origin() + "/q", Json::object());
  auto reqs = server.requests();
  ASSERT_EQ(reqs.size(), 3u);
  EXPECT_EQ(reqs[0].query, "a%5B%5D=1&a%5B%5D=2&b=x%20y");
  EXPECT_EQ(reqs[1].query, "z=1&k=1");
  EXPECT_EQ(reqs[2].target, "/q");
  EXPECT_EQ(reqs[0].method, "GET");
}

TEST_F(AjaxTest, CallerHeadersGoOutSafely) {
  get(server.origin() + "/h", Json(),
      {{"X-Plain", "v"},
       {"X-Evil", "a\r\nX-Injected: 1"},
       {"Bad:Name", "x"},
       {"", "y"},
       {"x-plain", "later wins"}});
  auto reqs = server.requests();
  ASSERT_EQ(reqs.size(), 1u);
  const auto& r = reqs[0];
  EXPECT_EQ(r.header("X-Plain"), "later wins");
  // One line on the wire: CR LF went out as %0D%0A (which this server
  // decodes again); raw, they would have started an X-Injected header.
  EXPECT_EQ(r.header("X-Evil"), "a\r\nX-Injected: 1");
  EXPECT_FALSE(r.hasHeader("X-Injected"));
  EXPECT_FALSE(r.hasHeader("Bad"));
  EXPECT_FALSE(r.hasHeader("Expect"));
  int plain = 0;
  for (const auto& [k, v] : r.headers) plain += strcasecmp(k.c_str(), "X-Plain") == 0;
  EXPECT_EQ(plain, 1);
}

TEST_F(AjaxTest, DataRelayGetsJsonAndOtherSpellingsGetAForm) {
  server.respond(200, "text/javascript", R"({"ok":true})");
  Json params = {{"k", "v w"}, {"n", 1}};
  Outcome relay = post(server.origin() + "/BrowserExt/sendData", params);
  Outcome slash = post(server.origin() + "/BrowserExt/sendData/", params);
  auto reqs = server.requests();
  ASSERT_EQ(reqs.size(), 2u);
  EXPECT_EQ(reqs[0].method, "POST");
  EXPECT_EQ(reqs[0].body, R"({"k":"v w","n":1})");
  EXPECT_EQ(reqs[0].header("Content-Type"), "application/json");
  EXPECT_EQ(reqs[1].body, "k=v%20w&n=1");
  EXPECT_EQ(reqs[1].header("Content-Type"), "application/x-www-form-urlencoded");
  // The relay takes every JSON type; a form post only "application/json".
  EXPECT_TRUE(relay.succeeded);
  EXPECT_EQ(relay.body, (Json{{"ok", true}}));
  ASSERT_TRUE(slash.error);
  EXPECT_EQ(slash.error->code, HttpError::kUnacceptableContentType);
}

TEST_F(AjaxTest, RawPostSendsAsciiAndLetsCallerHeadersReplaceTheDefaults) {
  server.respond(200, "text/json", R"({"r":1})");
  Outcome o = rawPost(server.origin() + "/raw", {{"content-type", "text/plain"}, {"X-Token", "t"}},
                      "{\"m\":\"caf\xC3\xA9 \xF0\x9F\x98\x80\"}");
  EXPECT_TRUE(o.succeeded);
  EXPECT_FALSE(o.error);
  EXPECT_EQ(o.body, (Json{{"r", 1}}));
  auto reqs = server.requests();
  ASSERT_EQ(reqs.size(), 1u);
  EXPECT_EQ(reqs[0].body, "{\"m\":\"caf? ?\"}");
  EXPECT_EQ(reqs[0].header("Content-Type"), "text/plain");
  EXPECT_EQ(reqs[0].header("Accept"), "application/json");
  EXPECT_EQ(reqs[0].header("X-Token"), "t");
}

TEST_F(AjaxTest, RawPostFailureHandsOverTheErrorBody) {
  server.respond(400, "text/html", R"({"error":"bad token"})");
  Outcome o = rawPost(server.origin() + "/raw", {}, "{}");
  EXPECT_FALSE(o.succeeded);
  ASSERT_TRUE(o.error);
  EXPECT_EQ(o.error->code, HttpError::kBadStatus);
  ASSERT_TRUE(o.response);
  EXPECT_EQ(o.response->statusCode, 400);
  EXPECT_EQ(o.body, (Json{{"error", "bad token"}}));
}

TEST_F(AjaxTest, RawPostTimesOutAfterTheStoredInterval) {
  // Shared with the server's thread, which may still be in the handler when
  // this test body returns.
  struct Gate {
    std::mutex m;
    std::condition_variable cv;
    bool released = false;
  };
  auto gate = std::make_shared<Gate>();
  server.setHandler([gate](const httplib::Request&, httplib::Response& res) {
    std::unique_lock lock(gate->m);
    gate->cv.wait_for(lock, std::chrono::seconds(3), [&] { return gate->released; });
    res.set_content("{}", "application/json");
  });
  rawTimeout = 1;
  Outcome o = rawPost(server.origin() + "/slow", {}, "{}");
  {
    std::lock_guard lock(gate->m);
    gate->released = true;
  }
  gate->cv.notify_all();
  ASSERT_TRUE(o.error);
  EXPECT_FALSE(o.succeeded);
  EXPECT_EQ(o.error->code, CURLE_OPERATION_TIMEDOUT);
}

TEST_F(AjaxTest, AnAnswerOverTheBodyLimitFails) {
  const std::string big(Ajax::kMaxBodyBytes + 1, ' ');
  for (bool chunked : {false, true}) {
    server.setHandler([&](const httplib::Request&, httplib::Response& res) {
      if (!chunked) return res.set_content(big, "application/json");
      res.set_chunked_content_provider("application/json", [&](size_t offset, httplib::DataSink& sink) {
        if (offset >= big.size()) {
          sink.done();
          return true;
        }
        return sink.write(big.data() + offset, std::min<size_t>(1 << 20, big.size() - offset));
      });
    });
    Outcome o = get(server.origin() + "/big");
    ASSERT_TRUE(o.error) << "chunked " << chunked;
    EXPECT_EQ(o.error->code, HttpError::kTooLarge) << o.error->localizedDescription;
  }
}

TEST_F(AjaxTest, AbsentCallbacksAreSkippedOnEveryPath) {
  server.respond(200, "application/json", R"({"a":1})");
  ajax.get(server.origin() + "/ok", {}, Json(), nullptr, nullptr);
  ajax.post(server.origin() + "/ok", Json{{"a", 1}}, nullptr, nullptr);
  ajax.post(server.origin() + "/BrowserExt/sendData", Json{{"a", 1}}, nullptr, nullptr);
  ajax.post(server.origin() + "/ok", {}, "{}", nullptr, nullptr);
  std::string nowhere = "http://127.0.0.1:" + std::to_string(closedPort()) + "/";
  ajax.get(nowhere, {}, Json(), nullptr, nullptr);
  ajax.post(nowhere, Json(), nullptr, nullptr);
  ajax.post(nowhere, {}, "", nullptr, nullptr);
  ajax.get("notaurl://x", {}, Json(), nullptr, nullptr);
  EXPECT_TRUE(runUntil([&] { return loop.pendingTransfers() == 0 && server.requestCount() == 4; }));
}

TEST_F(AjaxTest, TheLoopStaysFreeWhileATransferWaits) {
  std::mutex m;
  std::condition_variable cv;
  bool released = false;
  std::atomic<bool> arrived = false;
  server.setHandler([&](const httplib::Request&, httplib::Response& res) {
    arrived = true;
    std::unique_lock lock(m);
    cv.wait_for(lock, std::chrono::seconds(10), [&] { return released; });
    res.set_content("{}", "application/json");
  });
  Outcome o;
  ajax.get(server.origin() + "/slow", {}, Json(), onSuccess(o), onFailure(o));
  ASSERT_TRUE(runUntil([&] { return arrived.load(); }));
  bool ticked = false;
  loop.addTimer(std::chrono::milliseconds(1), [&] { ticked = true; });
  ASSERT_TRUE(runUntil([&] { return ticked; }));
  EXPECT_FALSE(o.done);  // the timer ran while the answer was still held back
  {
    std::lock_guard lock(m);
    released = true;
  }
  cv.notify_all();
  wait(o);
  EXPECT_TRUE(o.succeeded);
}

}  // namespace
}  // namespace wren::test

#pragma once
// A run loop, an Ajax on it and a loopback test server, with helpers that
// start a request and turn the loop until its completion arrives.
#include <gtest/gtest.h>

#include <chrono>
#include <optional>

#include "net/ajax.h"
#include "support/test_server.h"

namespace wren::test {

// What a request's callbacks saw.
struct Outcome {
  bool done = false;
  bool succeeded = false;
  int calls = 0;
  std::optional<HttpResponse> response;
  std::optional<Json> body;
  std::optional<HttpError> error;
};

class AjaxTest : public ::testing::Test {
 protected:
  // Long enough for any loopback exchange on a loaded machine; only a hang hits it.
  static constexpr std::chrono::seconds kWaitLimit{20};

  AjaxOptions makeOptions(std::string caFile = "") {
    AjaxOptions o;
    o.dataRelayUrl = server.origin() + "/BrowserExt/sendData";
    o.rawPostTimeoutSeconds = [this] { return rawTimeout; };
    o.caFile = std::move(caFile);
    return o;
  }

  static AjaxSuccess onSuccess(Outcome& o) {
    return [&o](const HttpResponse& response, const std::optional<Json>& body) {
      o.done = o.succeeded = true;
      ++o.calls;
      o.response = response;
      o.body = body;
    };
  }
  static AjaxFailure onFailure(Outcome& o) {
    return [&o](const std::optional<HttpResponse>& response, const HttpError& error) {
      o.done = true;
      ++o.calls;
      o.response = response;
      o.error = error;
    };
  }
  static RawCompletion onRaw(Outcome& o, bool success) {
    return [&o, success](const std::optional<HttpResponse>& response, const std::optional<Json>& body,
                         const std::optional<HttpError>& error) {
      o.done = true;
      o.succeeded = success;
      ++o.calls;
      o.response = response;
      o.body = body;
      o.error = error;
    };
  }

  // Turns the loop until `done` or the wait limit; false on the limit.
  bool runUntil(const std::function<bool()>& done) { return runUntil(loop, done); }
  static bool runUntil(RunLoop& on, const std::function<bool()>& done) {
    auto deadline = std::chrono::steady_clock::now() + kWaitLimit;
    bool limited = false;
    on.runUntil([&] {
      if (done()) return true;
      limited = std::chrono::steady_clock::now() > deadline;
      return limited;
    });
    return !limited;
  }
  void wait(Outcome& o, RunLoop* on = nullptr) {
    ASSERT_TRUE(runUntil(on ? *on : loop, [&] { return o.done; })) << "no completion arrived";
  }

  Outcome get(const std::string& url, const Json& parameters = Json(), const Headers& headers = {},
              std::optional<std::string> accept = std::nullopt) {
    Outcome o;
    ajax.get(url, headers, accept, parameters, onSuccess(o), onFailure(o));
    wait(o);
    return o;
  }
  Outcome post(const std::string& url, const Json& parameters) {
    Outcome o;
    ajax.post(url, parameters, onSuccess(o), onFailure(o));
    wait(o);
    return o;
  }
  Outcome rawPost(const std::string& url, const Headers& headers, const std::string& body) {
    Outcome o;
    ajax.post(url, headers, body, onRaw(o, true), onRaw(o, false));
    wait(o);
    return o;
  }

  // A server made in a test body goes before the fixture's loop, whose
  // kept-alive connections would hold its threads until they time out: such
  // tests use a loop of their own, declared after their server.
  long long rawTimeout = 0;
  TestServer server;
  RunLoop loop;
  Ajax ajax{loop, makeOptions()};
};

}  // namespace wren::test

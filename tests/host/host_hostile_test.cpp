// Hostile input from every side, through the real host: each row is one input
// (a frame on stdin, an answer of the service or of the cloud on its socket)
// and the rule it meets. After each, another page must still be answered.
#include <signal.h>

#include "host/frame_codec.h"
#include "host_fixture.h"

namespace wren::test {
namespace {

constexpr size_t kHostileDepth = 100'000;  // far past the host's bound (512)
constexpr size_t kHostileKeys = 100'000;

std::string nested(size_t depth, const std::string& inner = "0") {
  return std::string(depth, '[') + inner + std::string(depth, ']');
}
std::string wideObject(size_t keys) {
  std::string out = "{";
  for (size_t i = 0; i < keys; ++i) out += (i ? ",\"k" : "\"k") + std::to_string(i) + "\":1";
  return out + "}";
}
std::string zeros(size_t n) {
  std::string out;
  for (size_t i = 0; i < n; ++i) out += i ? ",0" : "0";
  return out;
}

class HostileHostTest : public CloudHostTest {
 protected:
  // Another page is still answered, at once.
  void expectServing(const std::string& why) {
    EXPECT_TRUE(ask("vd_set_email", "alive", OJson{{"email", ""}}, 5s)) << "stopped serving after " << why;
  }
};

TEST_F(HostileHostTest, FramesNestedTooDeepAreDroppedAndWideOnesHandled) {
  start();
  enableToolbar();
  const std::string deep = nested(kHostileDepth);
  struct Row { const char* what; std::string payload; const char* logged; const char* answeredPage; };
  const Row rows[] = {
      {"page", R"({"type":"message","name":"vd_set_email","page":)" + deep + "}", "nests deeper than 512", nullptr},
      {"userInfo", R"({"type":"message","name":"send_data","page":1,"userInfo":{"a":)" + deep + "}}",
       "nests deeper than 512", nullptr},
      {"hook window", R"({"type":"hook","name":"popoverDidClose","window":)" + deep + "}", "nests deeper than 512",
       nullptr},
      {"result value", R"({"type":"result","id":1,"value":)" + deep + "}", "nests deeper than 512", nullptr},
      {"NUL, then more", std::string(R"({"type":"message","name":"vd_set_email","page":"nul"})") + '\0' + "junk",
       "frame is not JSON", nullptr},
      {"100,000 keys", R"({"type":"message","name":"vd_set_email","page":"wide","userInfo":)" +
                           wideObject(kHostileKeys) + "}",
       nullptr, "wide"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    host_->sendRaw(encodeFrame(row.payload));
    EXPECT_TRUE(!row.logged || host_->waitForLog(row.logged));
    if (row.answeredPage) {
      const std::string page = row.answeredPage;
      EXPECT_TRUE(pump([&](const OJson& f) { return is(f, "message") && f["page"] == page; }));
    }
    expectServing(row.what);
  }
}

TEST_F(HostileHostTest, HostileServiceAnswersFailOrAreJudgedAndNeverFollowed) {
  TestServer elsewhere;
  struct Row { const char* what; int status; std::string body; const char* logged; bool answered; };
  const Row rows[] = {
      {"nested 100,000 deep", 200, nested(kHostileDepth), "nests deeper than 512", false},
      {"100,000 keys", 200, wideObject(kHostileKeys), nullptr, true},  // no "results": the items come back
      {"a redirect elsewhere", 302, "{}", "found (302)", false},
      {"a bare text", 200, "\"text\"", "results is not correct, data=text", false},
      {"a NUL, then more", 200, std::string(R"({"results":[]})") + '\0' + "{}", "not valid JSON", false},
      {"printed into the log", 200, nested(500, zeros(100'000)), "results is not correct", false},
  };
  start();
  enableToolbar();
  int n = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    answer({.other = [row, location = elsewhere.origin() + "/collect"](const httplib::Request& req,
                                                                       httplib::Response& res) {
      if (req.path != "/BrowserExt/rating") return;
      res.status = row.status;
      if (row.status == 302) res.set_header("Location", location);
      res.set_content(row.body, "application/json");
    }});
    const std::string page = "rate-" + std::to_string(n++);
    host_->send(message("rateItems", page, OJson{{"type", "AutomaticScan"}, {"urls", {{{"url", "http://a/"}, {"id", 1}}}}}));
    EXPECT_TRUE(!row.logged || host_->waitForLog(row.logged));
    EXPECT_TRUE(!row.answered || pump([&](const OJson& f) { return is(f, "message") && f["page"] == page; }));
    expectServing(row.what);
  }
  EXPECT_EQ(elsewhere.requestCount(), 0u) << "a redirect was followed";
  for (const auto& line : host_->logLines()) EXPECT_LT(line.size(), 20'000u) << line.substr(0, 200);
}

// The cloud's other hostile answers are rows of the mail-scan host test.
TEST_F(HostileHostTest, AHostileCloudAnswersLogLineStaysShort) {
  startWithCloud();
  // A dictionary 500 deep around 100,000 values: the page gets it, and the
  // service's log line describing it is cut while it is printed.
  cloud_->respond(200, "application/json", R"({"verdict":)" + nested(500, zeros(100'000)) + "}");
  ASSERT_TRUE(ask("vd_scan_email", "scan", OJson{{"jwt", "t"}, {"json", "{}"}}, 15s));
  ASSERT_TRUE(eventually([&] { return logInfos().size() >= 2; }));
  EXPECT_EQ(logInfos().back().rfind("Server response is {verdict:(", 0), 0u);
  EXPECT_LT(logInfos().back().size(), 17'000u);
  expectServing("the cloud's answers");
}

TEST_F(HostileHostTest, SettingsThatAreNotADictionarySwitchTheToolbarOff) {
  for (const char* settings : {"7", "null", "true", "\"on\""}) {
    SCOPED_TRACE(settings);
    start();
    enableToolbar();
    ServiceAnswers scalar;
    scalar.settingsBody = OJson::parse(settings);
    answer(scalar);
    service_.clear();
    host_->send(message("wtp_rating", "page", OJson{{"urls", {{{"url", "http://a/"}, {"id", 0}}}}}));
    ASSERT_TRUE(service_.waitForRequests(1));
    // The gate closes once the answer is handled: a message that is always
    // answered then is not.
    bool gated = false;
    for (auto until = std::chrono::steady_clock::now() + 5s; !gated && std::chrono::steady_clock::now() < until;)
      gated = !ask("vd_set_email", "gated", OJson{{"email", ""}}, 300ms);
    EXPECT_TRUE(gated);
    EXPECT_EQ(service_.requests()[0].path, "/BrowserExt/setting") << "the page was rated anyway";
    answer({});
  }
}

TEST_F(HostileHostTest, ABrowserThatStopsReadingCannotHoldTheHost) {
  for (bool sigterm : {false, true}) {
    SCOPED_TRACE(sigterm ? "SIGTERM" : "end of stdin");
    start();
    enableToolbar();
    // 20,000 answers nobody reads, far past what the pipe holds.
    const OJson info = {{"pad", std::string(200, 'x')}};
    for (int i = 0; i < 20'000; ++i) host_->send(message("vd_show_protect_promotion", i, info));
    sigterm ? host_->signal(SIGTERM) : host_->closeStdin();
    EXPECT_EQ(host_->wait(5s), 0) << "only SIGKILL ended it";
  }
}

}  // namespace
}  // namespace wren::test

// The mail-scan relay end to end: the real host, the fixture's HTTP server as
// the local service and a real HTTPS server as the cloud, trusted through
// WREN_CA_FILE. This test plays the extension and its web-mail page.
#include <strings.h>

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <mutex>

#include "host_fixture.h"

namespace wren::test {
namespace {

using namespace std::chrono_literals;

size_t headerCount(const RecordedRequest& r, const std::string& name) {
  return std::count_if(r.headers.begin(), r.headers.end(),
                       [&](const auto& h) { return strcasecmp(h.first.c_str(), name.c_str()) == 0; });
}

class MailScanHostTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    cert_ = TestCertificate::make();
    cloud_ = std::make_unique<TestServer>(cert_);
  }
  void TearDown() override {
    cloud_.reset();
    std::filesystem::remove_all(cert_.dir);
    HostTest::TearDown();
  }

  // A host whose cloud base is `api`, with the toolbar switched on.
  std::unique_ptr<HostProcess> startWithCloud(const std::string& api) {
    auto e = env();
    e["WREN_VELDRIN_API"] = api;
    e["WREN_CA_FILE"] = cert_.certFile;
    e["LC_ALL"] = "C";
    auto host = std::make_unique<HostProcess>(WREN_BRIDGE_EXE, std::vector<std::string>{}, e);
    auto hello = host->readFrame();
    EXPECT_TRUE(hello && (*hello)["type"] == "hello");
    enableToolbar(*host);
    return host;
  }

  // Sends a page message and returns the host's answer to that page; browser
  // lookups met on the way are answered "none".
  std::optional<OJson> ask(HostProcess& host, const std::string& name, const OJson& page,
                           const std::optional<OJson>& info) {
    host.send(message(name, page, info));
    return host.readFrameWhere(
        [&](const OJson& f) {
          if (f["type"] == "call") host.send({{"type", "result"}, {"id", f["id"]}, {"value", nullptr}});
          return f["type"] == "message" && f["page"] == page;
        },
        15s);
  }

  // The local service with the toolbar on; `more` may answer (or hold) a
  // request first. The texts of the "log" commands are kept.
  void serve(const TestServer::Handler& more = nullptr) {
    answerAsEnabledService(service_, [this, more](const httplib::Request& req, httplib::Response& res) {
      res.set_content("{}", "application/json");
      if (more) more(req, res);
      if (req.get_param_value("type") != "log") return;
      std::lock_guard lock(logMutex_);
      logInfos_.push_back(req.get_param_value("info"));
    });
  }
  std::vector<std::string> logInfos() {
    std::lock_guard lock(logMutex_);
    return logInfos_;
  }
  bool waitForLogCommands(size_t n) {
    for (int i = 0; i < 250; ++i) {
      if (logInfos().size() >= n) return true;
      std::this_thread::sleep_for(20ms);
    }
    return false;
  }

  static void expectNoSecretInLog(const HostProcess& host, const std::vector<std::string>& secrets) {
    for (const auto& line : host.logLines())
      for (const auto& secret : secrets) EXPECT_EQ(line.find(secret), std::string::npos) << "logged: " << line;
  }

  TestCertificate cert_;
  std::unique_ptr<TestServer> cloud_;
  std::mutex logMutex_;
  std::vector<std::string> logInfos_;
};

TEST_F(MailScanHostTest, ScanAndFeedbackReachTheCloudWithThePagesTokenAndBody) {
  serve();
  cloud_->respond(200, "application/json", R"({"result":1,"code":0})");
  auto host = startWithCloud(cloud_->origin());
  struct Case {
    const char* message;
    const char* path;
    const char* authorization;
  };
  const Case cases[] = {{"vd_scan_email", "/mail/key/mails", "Bearer tok.SECRET-1"},
                        {"vd_feedback", "/mail/key/user_feedback", "bearer tok.SECRET-1"}};
  const std::string body = R"({"subject":"mail-body-SECRET","from":"x@y.z"})";
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    cloud_->clear();
    auto answer =
        ask(*host, c.message, {{"tab", 3}}, OJson{{"jwt", "tok.SECRET-1"}, {"json", body}, {"ignored", "not sent"}});
    ASSERT_TRUE(answer);
    EXPECT_EQ((*answer)["name"], c.message);
    EXPECT_EQ((*answer)["userInfo"], OJson::parse(R"({"result":1,"code":0})"));
    auto reqs = cloud_->requests();
    ASSERT_EQ(reqs.size(), 1u);
    const RecordedRequest& r = reqs[0];
    EXPECT_EQ(r.method, "POST");
    EXPECT_EQ(r.target, c.path);
    EXPECT_EQ(r.header("Authorization"), c.authorization);
    EXPECT_EQ(r.header("ClientPurpose"), "GM");
    EXPECT_EQ(r.header("Content-Type"), "application/json");
    EXPECT_EQ(headerCount(r, "Content-Type"), 1u) << "the relay's Content-Type replaces the client's, not adds to it";
    EXPECT_EQ(r.header("Accept"), "application/json");
    EXPECT_EQ(r.body, body) << "the page's JSON text is the body, unchanged";
    EXPECT_EQ(r.body.find("not sent"), std::string::npos);
  }
  expectNoSecretInLog(*host, {"tok.SECRET-1", "mail-body-SECRET"});
}

TEST_F(MailScanHostTest, FailuresReachThePageInEachOperationsOwnShape) {
  serve();
  auto host = startWithCloud(cloud_->origin());
  struct Case {
    const char* message;
    int status;
    const char* contentType;
    const char* body;
    std::optional<OJson> expected;  // nullopt: an answer with no dictionary
  };
  const Case cases[] = {
      {"vd_scan_email", 401, "application/json", R"({"error":"expired"})",
       OJson::parse(R"({"code":401,"response":{"error":"expired"}})")},
      {"vd_scan_email", 500, "application/json", "", OJson::parse(R"({"code":500,"response":{}})")},
      {"vd_scan_email", 200, "application/json", "[1,2]", OJson::object()},
      {"vd_feedback", 200, "application/json", "[1,2]", OJson::parse("[1,2]")},
      {"vd_feedback", 401, "application/json", R"({"error":"expired"})", OJson::parse(R"({"error":"expired"})")},
      {"vd_feedback", 500, "application/json", "", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.message) + " " + std::to_string(c.status) + " " + c.body);
    cloud_->respond(c.status, c.contentType, c.body);
    auto answer = ask(*host, c.message, "p", OJson{{"jwt", "tok.SECRET-2"}, {"json", R"({"m":"mail-SECRET-2"})"}});
    ASSERT_TRUE(answer);
    EXPECT_EQ((*answer)["name"], c.message);
    if (c.expected) {
      ASSERT_TRUE(answer->contains("userInfo")) << answer->dump();
      EXPECT_EQ((*answer)["userInfo"], *c.expected);
    } else {
      EXPECT_FALSE(answer->contains("userInfo")) << answer->dump();
    }
  }
  // Only a scan answered with a dictionary is logged: a last good scan sends
  // exactly two lines, and nothing before it may have added any.
  cloud_->respond(200, "application/json", R"({"last":true})");
  ASSERT_TRUE(ask(*host, "vd_scan_email", "p", OJson{{"jwt", "t"}, {"json", "{}"}}));
  ASSERT_TRUE(waitForLogCommands(2));
  EXPECT_EQ(logInfos().size(), 2u);
  expectNoSecretInLog(*host, {"tok.SECRET-2", "mail-SECRET-2"});
}

TEST_F(MailScanHostTest, NoConnectionGivesCodeZeroToTheScanAndNoDictionaryToTheFeedback) {
  serve();
  int closedPort = 0;
  {
    TestServer gone(cert_);
    closedPort = gone.port();
  }
  auto host = startWithCloud("https://127.0.0.1:" + std::to_string(closedPort));
  auto scan = ask(*host, "vd_scan_email", "p", OJson{{"jwt", "t"}, {"json", "{}"}});
  ASSERT_TRUE(scan);
  EXPECT_EQ((*scan)["userInfo"], OJson::parse(R"({"code":0,"response":{}})"));
  auto feedback = ask(*host, "vd_feedback", "p", OJson{{"jwt", "t"}, {"json", "{}"}});
  ASSERT_TRUE(feedback);
  EXPECT_FALSE(feedback->contains("userInfo")) << feedback->dump();
}

TEST_F(MailScanHostTest, ThePageIsAnsweredWithoutWaitingForTheTwoLogLines) {
  // The service holds every "log" command until the page has its answer.
  std::mutex m;
  std::condition_variable cv;
  bool released = false;
  serve([&](const httplib::Request& req, httplib::Response&) {
    if (req.get_param_value("type") != "log") return;
    std::unique_lock lock(m);
    cv.wait_for(lock, 10s, [&] { return released; });
  });
  cloud_->respond(200, "application/json", R"({"result":1,"code":0,"note":"a b=c#d"})");
  auto host = startWithCloud(cloud_->origin());
  ASSERT_TRUE(ask(*host, "vd_set_email", "p", OJson{{"email", "a@b.c"}}));

  auto answer = ask(*host, "vd_scan_email", "p", OJson{{"jwt", "t"}, {"json", "{}"}});
  ASSERT_TRUE(answer);
  EXPECT_EQ((*answer)["userInfo"]["result"], 1);
  {
    std::lock_guard lock(m);
    released = true;
  }
  cv.notify_all();
  ASSERT_TRUE(waitForLogCommands(2));
  auto infos = logInfos();
  std::sort(infos.begin(), infos.end());
  ASSERT_EQ(infos.size(), 2u);
  EXPECT_EQ(infos[0], "Server response is {code:0;note:\"ab:c d\";result:1;}");
  EXPECT_EQ(infos[1], "[Veldrin]Email Hash is 5d60d4e28066df254d5452f92c910092");  // md5("a@b.c")
}

TEST_F(MailScanHostTest, TheRequestCarriesWhatThePageGaveAndNothingElse) {
  serve();
  cloud_->respond(200, "application/json", "{}");
  auto host = startWithCloud(cloud_->origin());
  struct Case {
    const char* message;
    OJson info;
    const char* authorization;
    std::string body;
  };
  const Case cases[] = {
      {"vd_scan_email", {{"json", "{}"}}, "Bearer (null)", "{}"},
      {"vd_feedback", {{"json", "{}"}}, "bearer (null)", "{}"},
      {"vd_scan_email", {{"jwt", "t"}}, "Bearer t", ""},
      // Bytes outside ASCII become one "?" per character; escapes pass.
      {"vd_scan_email",
       {{"jwt", "t"}, {"json", "{\"s\":\"\xC3\xA9\xE6\x97\xA5\xE6\x9C\xAC.\"}"}},
       "Bearer t",
       "{\"s\":\"???.\"}"},
      {"vd_feedback", {{"jwt", "t"}, {"json", R"({"s":"\u00e9"})"}}, "bearer t", R"({"s":"\u00e9"})"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.message) + " " + c.info.dump());
    cloud_->clear();
    ASSERT_TRUE(ask(*host, c.message, "p", c.info));
    auto reqs = cloud_->requests();
    ASSERT_EQ(reqs.size(), 1u);
    EXPECT_EQ(reqs[0].header("Authorization"), c.authorization);
    EXPECT_EQ(reqs[0].body, c.body);
  }
}

TEST_F(MailScanHostTest, AVeldrinApiFromTheServiceMovesTheNextScanToTheNewCloud) {
  TestServer cloud2(cert_);
  cloud_->respond(200, "application/json", R"({"from":"first"})");
  cloud2.respond(200, "application/json", R"({"from":"second"})");
  serve([&](const httplib::Request& req, httplib::Response& res) {
    if (req.get_param_value("type") == "vds")
      res.set_content(OJson{{"EnableVeldrin", true}, {"VeldrinAPI", cloud2.origin()}}.dump(), "application/json");
  });
  auto host = startWithCloud(cloud_->origin());
  auto first = ask(*host, "vd_scan_email", "p", OJson{{"jwt", "t"}, {"json", "{}"}});
  ASSERT_TRUE(first);
  EXPECT_EQ((*first)["userInfo"]["from"], "first");

  // The popover's mail-scan refresh on a Gmail page loads the account's
  // switches; the address's Base64 holds "+", "/" and "=".
  const OJson lookups = {
      {"getActiveWindow", {{"w", 1}}},
      {"getActiveTab", {{"t", 1}}},
      {"getActivePage", {{"tab", 1}, {"frame", 0}}},
      {"getPageProperties",
       {{"url", "https://mail.google.com/mail/u/0/#inbox"}, {"title", "Inbox (3) - aa~aa?@b.c - Gmail"}}}};
  service_.clear();
  host->send({{"type", "hook"}, {"name", "validateToolbarItem"}, {"window", nullptr}});
  auto shown = host->readFrameWhere(
      [&](const OJson& f) {
        if (f["type"] == "call")
          host->send(
              {{"type", "result"}, {"id", f["id"]}, {"value", lookups.value(f["method"].get<std::string>(), OJson())}});
        // The switches are stored before the row is shown usable.
        return f["type"] == "popover" && f.contains("state") &&
               f["state"]["outlets"]["lblVeldrin"]["toolTip"] == "Veldrin Scam Scanner";
      },
      10s);
  ASSERT_TRUE(shown) << "the mail-scan row never showed the loaded account";
  bool sawVds = false;
  for (const auto& r : service_.requests()) {
    if (r.query.find("type=vds") == std::string::npos) continue;
    sawVds = true;
    EXPECT_EQ(r.target, "/BrowserExt/command?type=vds&e=YWF+YWE/QGIuYw==") << "Base64 goes into the query raw";
  }
  EXPECT_TRUE(sawVds);

  auto second = ask(*host, "vd_scan_email", "p", OJson{{"jwt", "t"}, {"json", "{}"}});
  ASSERT_TRUE(second);
  EXPECT_EQ((*second)["userInfo"]["from"], "second");
  EXPECT_EQ(cloud_->requestCount(), 1u);
  ASSERT_EQ(cloud2.requestCount(), 1u);
  EXPECT_EQ(cloud2.requests()[0].target, "/mail/key/mails");
  ASSERT_TRUE(waitForLogCommands(4));  // two for each scan
  auto infos = logInfos();
  EXPECT_NE(std::find(infos.begin(), infos.end(), "[Veldrin]Email Hash is 1f59f1067ec567a8fce33111eb1a32f9"),
            infos.end())
      << "the hash is of the address the popover found";
}

}  // namespace
}  // namespace wren::test

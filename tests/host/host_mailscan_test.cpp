// The mail-scan relay end to end: the real host, the fixture's HTTP server as
// the local service and a real HTTPS server as the cloud, trusted through
// WREN_CA_FILE. This test plays the extension and its web-mail page.
#include <strings.h>

#include <algorithm>
#include <future>

#include "host_fixture.h"

namespace wren::test {
namespace {

class MailScanHostTest : public CloudHostTest {
 protected:
  void expectNoSecretInLog(const std::vector<std::string>& secrets) {
    for (const auto& line : host_->logLines())
      for (const auto& secret : secrets) EXPECT_EQ(line.find(secret), std::string::npos) << "logged: " << line;
  }
};

TEST_F(MailScanHostTest, TheCloudGetsWhatThePageGaveAndNothingElse) {
  cloud_->respond(200, "application/json", R"({"result":1,"code":0})");
  startWithCloud();
  const std::string body = R"({"subject":"mail-body-SECRET","from":"x@y.z"})";
  const OJson full = {{"jwt", "tok.SECRET-1"}, {"json", body}, {"ignored", "not sent"}};
  struct Row { const char *message; OJson info; const char *path, *authorization; std::string body; };
  const Row rows[] = {
      {"vd_scan_email", full, "/mail/key/mails", "Bearer tok.SECRET-1", body},
      {"vd_feedback", full, "/mail/key/user_feedback", "bearer tok.SECRET-1", body},
      {"vd_scan_email", {{"json", "{}"}}, "/mail/key/mails", "Bearer (null)", "{}"},
      {"vd_feedback", {{"json", "{}"}}, "/mail/key/user_feedback", "bearer (null)", "{}"},
      {"vd_scan_email", {{"jwt", "t"}}, "/mail/key/mails", "Bearer t", ""},
      {"vd_feedback", {{"jwt", 42}, {"json", {{"a", 1}}}}, "/mail/key/user_feedback", "bearer (null)", ""},  // not texts
      // Bytes outside ASCII become one "?" per character; escapes pass.
      {"vd_scan_email", {{"jwt", "t"}, {"json", "{\"s\":\"\xC3\xA9\xE6\x97\xA5\xE6\x9C\xAC.\"}"}}, "/mail/key/mails",
       "Bearer t", "{\"s\":\"???.\"}"},
      {"vd_feedback", {{"jwt", "t"}, {"json", R"({"s":"\u00e9"})"}}, "/mail/key/user_feedback", "bearer t",
       R"({"s":"\u00e9"})"},
  };
  for (const Row& c : rows) {
    SCOPED_TRACE(std::string(c.message) + " " + c.info.dump());
    cloud_->clear();
    auto got = ask(c.message, {{"tab", 3}}, c.info, 15s);
    ASSERT_TRUE(got);
    EXPECT_EQ((*got)["userInfo"], OJson::parse(R"({"result":1,"code":0})"));
    ASSERT_EQ(cloud_->requestCount(), 1u);
    const RecordedRequest r = cloud_->requests()[0];
    EXPECT_EQ(r.method + " " + r.target, std::string("POST ") + c.path);
    EXPECT_EQ(r.header("Authorization"), c.authorization);
    EXPECT_EQ(r.header("ClientPurpose"), "GM");
    EXPECT_EQ(r.header("Accept"), "application/json");
    std::string types;
    for (const auto& [name, value] : r.headers) types += strcasecmp(name.c_str(), "Content-Type") ? "" : value + ";";
    EXPECT_EQ(types, "application/json;") << "the relay's Content-Type replaces the client's, not adds to it";
    EXPECT_EQ(r.body, c.body) << "the page's JSON text is the body, unchanged";
  }
  expectNoSecretInLog({"tok.SECRET-1", "mail-body-SECRET"});
}

// What the page receives for each answer of the cloud, in its message's
// shape: a scan always gets a dictionary (a failure's status and body in it),
// feedback the cloud's own value or nothing. Only a good scan is logged at the
// service, and neither the token nor the mail ever in the host's log.
TEST_F(MailScanHostTest, EachAnswerOfTheCloudReachesThePageInItsMessagesShape) {
  startWithCloud();
  const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');  // far past the host's bound
  struct Row { const char* message; int status; std::string body; OJson answer; };  // answer: null for none
  const Row rows[] = {
      {"vd_scan_email", 200, R"({"note":"a b#c","code":0})", {{"note", "a b#c"}, {"code", 0}}},
      {"vd_feedback", 200, R"({"ok":true})", {{"ok", true}}},
      {"vd_scan_email", 200, "[1,2]", OJson::object()},
      {"vd_feedback", 200, "[1,2]", OJson::array({1, 2})},
      {"vd_scan_email", 200, "", OJson::object()},
      {"vd_feedback", 200, "", nullptr},
      {"vd_scan_email", 401, R"({"error":"expired"})", {{"code", 401}, {"response", {{"error", "expired"}}}}},
      {"vd_feedback", 401, R"({"error":"expired"})", {{"error", "expired"}}},
      {"vd_scan_email", 500, "", {{"code", 500}, {"response", OJson::object()}}},
      {"vd_feedback", 500, "", nullptr},
      {"vd_scan_email", 200, deep, {{"code", 200}, {"response", OJson::object()}}},
      {"vd_scan_email", 307, "{}", {{"code", 307}, {"response", OJson::object()}}},  // would re-post the mail
      {"vd_scan_email", 200, "7", OJson::object()},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.message) + " " + std::to_string(row.status) + " " + row.body.substr(0, 20));
    cloud_->setHandler([&row, location = cloud_->origin() + "/elsewhere"](const httplib::Request&,
                                                                          httplib::Response& res) {
      res.status = row.status;
      if (row.status == 307) res.set_header("Location", location);
      res.set_content(row.body, "application/json");
    });
    cloud_->clear();
    auto got = ask(row.message, "scan", OJson{{"jwt", "SECRET-TOKEN"}, {"json", R"({"m":"PRIVATE-MAIL"})"}}, 15s);
    ASSERT_TRUE(got);
    EXPECT_EQ(got->value("userInfo", OJson()), row.answer);
    EXPECT_EQ(cloud_->requestCount(), 1u) << "a redirect was followed";
  }
  ASSERT_TRUE(eventually([&] { return logInfos().size() >= 2; }));
  EXPECT_EQ(logInfos().size(), 2u) << "only the good scan is logged";
  expectNoSecretInLog({"SECRET-TOKEN", "PRIVATE-MAIL"});
}

TEST_F(MailScanHostTest, ThePageIsAnsweredWithoutWaitingForTheTwoLogLines) {
  // The service holds every "log" command until the page has its answer.
  std::promise<void> release;
  answer({.other = [held = release.get_future().share()](const httplib::Request& req, httplib::Response&) {
    if (req.get_param_value("type") == "log") held.wait_for(10s);
  }});
  cloud_->respond(200, "application/json", R"({"result":1,"code":0,"note":"a b=c#d"})");
  startWithCloud();
  ASSERT_TRUE(ask("vd_set_email", "p", OJson{{"email", "a@b.c"}}));
  auto got = ask("vd_scan_email", "p", OJson{{"jwt", "t"}, {"json", "{}"}}, 15s);
  ASSERT_TRUE(got);
  EXPECT_EQ((*got)["userInfo"]["result"], 1);
  release.set_value();
  ASSERT_TRUE(eventually([&] { return logInfos().size() >= 2; }));
  auto infos = logInfos();
  std::sort(infos.begin(), infos.end());
  EXPECT_EQ(infos, (std::vector<std::string>{"Server response is {code:0;note:\"ab:c d\";result:1;}",
                                             "[Veldrin]Email Hash is 5d60d4e28066df254d5452f92c910092"}))
      << "md5(\"a@b.c\")";
}

TEST_F(MailScanHostTest, AVeldrinApiFromTheServiceMovesTheNextScanToTheNewCloud) {
  TestServer cloud2(cert_);
  cloud_->respond(200, "application/json", R"({"from":"first"})");
  cloud2.respond(200, "application/json", R"({"from":"second"})");
  ServiceAnswers moved;
  moved.vdsBody = {{"EnableVeldrin", true}, {"VeldrinAPI", cloud2.origin()}};
  answer(moved);
  startWithCloud();
  auto first = ask("vd_scan_email", "p", OJson{{"jwt", "t"}, {"json", "{}"}}, 15s);
  ASSERT_TRUE(first);
  EXPECT_EQ((*first)["userInfo"]["from"], "first");

  // The popover's mail-scan refresh on a Gmail page loads the account's
  // switches; the address's Base64 holds "+", "/" and "=".
  browser_ = showing({{"url", "https://mail.google.com/mail/u/0/#inbox"}, {"title", "Inbox (3) - aa~aa?@b.c - Gmail"}});
  service_.clear();
  hook("validateToolbarItem", nullptr);
  // The switches are stored before the row is shown usable.
  ASSERT_TRUE(pump([&](const OJson&) { return outlet("lblVeldrin")["toolTip"] == "Veldrin Scam Scanner"; }))
      << "the mail-scan row never showed the loaded account";
  std::vector<std::string> vds;
  for (const auto& r : service_.requests())
    if (r.query.starts_with("type=vds")) vds.push_back(r.target);
  EXPECT_EQ(vds, std::vector<std::string>{"/BrowserExt/command?type=vds&e=YWF+YWE/QGIuYw=="}) << "Base64 goes in raw";

  auto second = ask("vd_scan_email", "p", OJson{{"jwt", "t"}, {"json", "{}"}}, 15s);
  ASSERT_TRUE(second);
  EXPECT_EQ((*second)["userInfo"]["from"], "second");
  EXPECT_EQ(cloud_->requestCount(), 1u);
  ASSERT_EQ(cloud2.requestCount(), 1u);
  EXPECT_EQ(cloud2.requests()[0].target, "/mail/key/mails");
  ASSERT_TRUE(eventually([&] { return logInfos().size() >= 4; }));  // two for each scan
  auto infos = logInfos();
  EXPECT_NE(std::find(infos.begin(), infos.end(), "[Veldrin]Email Hash is 1f59f1067ec567a8fce33111eb1a32f9"),
            infos.end())
      << "the hash is of the address the popover found";
}

}  // namespace
}  // namespace wren::test

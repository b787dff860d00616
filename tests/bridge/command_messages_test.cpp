// Messages relayed to the service as commands or data, and to the mail-scan
// relay, with the answers the page gets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "handler_fixture.h"

namespace wren::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST_F(HandlerTest, SendDataPostsTheDictionaryAsJson) {
  auto answers = exchange("send_data", R"({"kind":"visit","n":[1,2]})");
  EXPECT_TRUE(answers.empty());
  auto r = service.requests().at(0);
  EXPECT_EQ(r.method, "POST");
  EXPECT_EQ(r.path, "/BrowserExt/sendData");
  EXPECT_THAT(r.header("Content-Type"), HasSubstr("application/json"));
  EXPECT_EQ(Json::parse(r.body), Json::parse(R"({"kind":"visit","n":[1,2]})"));

  exchange("send_data", std::nullopt);
  EXPECT_EQ(Json::parse(service.requests().at(1).body), Json::object());
  EXPECT_TRUE(logs().empty());
}

TEST_F(HandlerTest, SendDataFailureIsLogged) {
  service.respond(500, "application/json", "{}");
  auto answers = exchange("send_data", R"({"a":1})");
  EXPECT_TRUE(answers.empty());
  EXPECT_EQ(linesWith("[SafariToolbar]>>send_data failed."), 1u);
}

TEST_F(HandlerTest, SendCommandMergesAnswerAndBuildVersion) {
  service.respond(200, "application/json", R"({"status":"ok","page":"service","buildVersion":"old"})");
  auto answers = exchange("vd_send_command", R"({"type":"custom","page":"mine","keep":1})");
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].name, "vd_send_command");
  EXPECT_EQ(answers[0].userInfo,
            Json::parse(R"({"type":"custom","page":"service","keep":1,"status":"ok","buildVersion":"9.8.7"})"));
  EXPECT_EQ(queryPairs(service.requests().at(0).query),
            (std::map<std::string, std::string>{{"type", "custom"}, {"page", "mine"}, {"keep", "1"}}));
}

TEST_F(HandlerTest, SendCommandFailureEchoesTheRequest) {
  for (auto [status, body] : {std::pair{500, "{}"}, std::pair{200, "[1]"}}) {
    browser.messages.clear();
    service.respond(status, "application/json", body);
    auto answers = exchange("vd_send_command", R"({"type":"custom"})");
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].userInfo, Json::parse(R"({"type":"custom"})"));
  }
}

TEST_F(HandlerTest, GetSettingSendsBase64AndAnswersWithSettings) {
  service.respond(200, "application/json", R"({"ShowVeldrin":"1","EnableVeldrin":0})");
  auto answers = exchange("vd_get_setting", R"({"e":"a@mail.test","i":{"n":1},"extra":"x"})");
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].name, "vd_get_setting");
  EXPECT_EQ(answers[0].userInfo, Json::parse(R"({"e":"a@mail.test","i":{"n":1},"extra":"x",
                                     "settings":{"ShowVeldrin":"1","EnableVeldrin":0}})"));
  auto q = queryPairs(service.requests().at(0).query);
  EXPECT_EQ(q.at("type"), "vds");
  EXPECT_EQ(q.at("e"), "YUBtYWlsLnRlc3Q=");
  EXPECT_EQ(q.at("i[n]"), "1");
  EXPECT_EQ(q.count("extra"), 0u);

  browser.messages.clear();
  service.respond(500, "application/json", "{}");
  EXPECT_TRUE(exchange("vd_get_setting", R"({"e":"a","i":1})").empty());
}

TEST_F(HandlerTest, GetSettingWithoutItsKeysIsDropped) {
  send("vd_get_setting", R"({"i":1})");
  send("vd_get_setting", R"({"e":"a"})");
  send("vd_get_setting", R"({"e":5,"i":1})");
  settle();
  EXPECT_EQ(service.requestCount(), 0u);
  EXPECT_TRUE(browser.messages.empty());
  EXPECT_THAT(logs(), ElementsAre("[SafariToolbar] vd_get_setting dropped: no e",
                                  "[SafariToolbar] vd_get_setting dropped: no i",
                                  "[SafariToolbar] vd_get_setting dropped: e is not a text"));
}

class PageContentTest : public HandlerTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(PageContentTest, TypeIsTheMessageAndHtmlIsAccepted) {
  const std::string name = GetParam();
  service.respond(200, "text/html", R"({"html":"<p>x</p>"})");
  auto answers = exchange(name, R"({"type":"page-own","lang":"en"})");
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].name, name);
  EXPECT_EQ(answers[0].userInfo, Json::parse(R"({"html":"<p>x</p>"})"));
  auto r = service.requests().at(0);
  EXPECT_EQ(r.path, "/BrowserExt/command");
  EXPECT_EQ(queryPairs(r.query), (std::map<std::string, std::string>{{"type", name}, {"lang", "en"}}));

  browser.messages.clear();
  service.respond(200, "application/json", R"({"html":"x"})");  // not the accepted type
  EXPECT_TRUE(exchange(name, R"({})").empty());
}

INSTANTIATE_TEST_SUITE_P(Names, PageContentTest, ::testing::Values("get_relevant_blog", "wtpatl"));

TEST_F(HandlerTest, MailScanMessagesWaitForTheRelay) {
  auto answers = exchange("vd_scan_email", R"({"jwt":"t","json":"{}"})");
  answers = exchange("vd_feedback", R"({"jwt":"t","json":"{}"})");
  EXPECT_TRUE(answers.empty());
  EXPECT_EQ(service.requestCount(), 0u);
}

TEST_F(HandlerTest, MailScanAnswersWhatTheRelayHands) {
  std::vector<Json> requests;
  // The relay answers success for "ok" and failure otherwise, with what "give" holds.
  auto relay = [&](const Json& req, MailScanSuccess s, MailScanFailure f) {
    requests.push_back(req);
    if (req.value("ok", false)) {
      s(req["give"]);
    } else {
      f(req.contains("give") ? std::optional<Json>(req["give"]) : std::nullopt);
    }
  };
  handler.setMailScan({relay, relay});
  send("vd_scan_email", R"({"ok":true,"give":{"verdict":"safe"}})");
  send("vd_scan_email", R"({"ok":false})");
  send("vd_feedback", R"({"ok":false,"give":"text"})");
  send("vd_feedback", R"({"ok":false})");
  ASSERT_EQ(browser.messages.size(), 4u);
  EXPECT_EQ(requests[0], Json::parse(R"({"ok":true,"give":{"verdict":"safe"}})"));
  EXPECT_EQ(browser.messages[0].name, "vd_scan_email");
  EXPECT_EQ(browser.messages[0].userInfo, Json::parse(R"({"verdict":"safe"})"));
  EXPECT_EQ(browser.messages[1].userInfo, Json::object());
  EXPECT_EQ(browser.messages[2].name, "vd_feedback");
  EXPECT_EQ(browser.messages[2].userInfo, Json("text"));
  EXPECT_FALSE(browser.messages[3].userInfo);
}

TEST_F(HandlerTest, NonDictionaryUserInfoReadsAsNone) {
  auto answers = exchange("vd_send_command", Json::array({1, 2}));
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(linesWith("vd_send_command: userInfo is not a dictionary"), 1u);
}

}  // namespace
}  // namespace wren::test

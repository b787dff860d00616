// The page-message dispatcher on a real service on loopback, with the toolbar
// switched on: the rules behind each answer. Every message's answer and
// requests on the wire, the mail-scan relay, new tabs, the block page and the
// gate are pinned end to end through the host.
#include <gmock/gmock.h>

#include "bridge/safari_extension_handler.h"
#include "server/service_fixture.h"
#include "support/fake_browser.h"

namespace wren::test {
namespace {

using S = std::optional<std::string>;

class HandlerTest : public ServiceFixture {
 protected:
  HandlerTest() { setting.setBToolbarEnabled(true); }
  void send(const std::string& name, const char* info = nullptr) {
    handler.messageReceivedWithName(name, "page-A", info ? std::optional<Json>(Json::parse(info)) : std::nullopt);
  }
  // Sends, lets every request it starts finish, and returns what the pages got.
  std::vector<FakeBrowser::Message> exchange(const std::string& name, const char* info) {
    browser.messages.clear();
    send(name, info);
    settle();
    return browser.messages;
  }

  FakeBrowser browser;
  SafariExtensionHandler handler{server, setting, ajax, browser, "9.8.7"};
};

TEST_F(HandlerTest, RateItemsRatesOnlyWhatTheFlagsAllow) {
  struct Case {
    const char* type;  // "type" as JSON, "" when absent
    bool autoScan, manualScan, rated;
  };
  for (const Case& c : {Case{"", true, true, false}, Case{R"("AutomaticScan")", false, true, false},
                        Case{R"("AutomaticScan")", true, false, true}, Case{R"("ManualScanner")", true, false, false},
                        Case{R"("ManualScanner")", false, true, true}, Case{R"("Other")", false, false, true},
                        Case{"5", false, false, true}}) {
    setting.setBAutoScanEnabled(c.autoScan);
    setting.setBManualScanEnabled(c.manualScan);
    const std::string type = *c.type ? std::string(R"(,"type":)") + c.type : "";
    auto answers = exchange("rateItems", (R"({"urls":[{"url":"u","id":1}])" + type + "}").c_str());
    EXPECT_EQ(answers.size(), c.rated ? 1u : 0u) << type;
  }
  EXPECT_TRUE(exchange("rateItems", R"({"type":"x"})").empty());  // no urls
}

TEST_F(HandlerTest, RateItemsCopiesLevelsByPositionOrAnswersNothing) {
  const std::pair<const char*, const char*> cases[] = {  // the service's answer; the page's results, "" for none
      {R"({"results":[{"level":3},{"level":"0"}]})",
       R"([{"url":"a","id":1,"level":3},{"url":"b","id":2,"level":"0"},{"url":"c","id":3}])"},
      {"{}", R"([{"url":"a","id":1},{"url":"b","id":2},{"url":"c","id":3}])"},
      {R"({"results":[{"level":1},{"level":1},{"level":1},{"level":1}]})", ""},
      {R"({"results":[{"level":1},{"category":"x"}]})", ""},
      {R"({"results":[{"level":1},"x"]})", ""},
      {R"({"results":{"level":1}})", ""}};
  for (auto [answer, result] : cases) {
    service.respond(200, "application/json", answer);
    auto answers = exchange("rateItems", R"({"type":"x","urls":[{"url":"a","id":1},{"url":"b","id":2},
                                                                {"url":"c","id":3}]})");
    ASSERT_EQ(answers.size(), *result ? 1u : 0u) << answer;
    if (*result) { EXPECT_EQ(answers[0].userInfo, Json({{"results", Json::parse(result)}})) << answer; }
  }
}

class WtpRatingTest : public HandlerTest {
 protected:
  static constexpr const char* kPage = R"({"urls":[{"url":"https://p.test/","id":9,"k":1},{"url":"o","id":10}]})";
  // The settings answer switches the toolbar on; the rating answer is `rating`.
  void serviceSays(const std::string& rating) {
    service.setHandler([=](const httplib::Request& req, httplib::Response& res) {
      const bool settings = req.path == "/BrowserExt/setting";
      if (settings) res.set_header("X-Wren-ToolbarStatus", "1");
      res.set_content(settings ? "{}" : rating, "application/json");
    });
  }
};

// The rating of the page itself on the wire is pinned through the host; here
// what the page gets for each shape of the service's results.
TEST_F(WtpRatingTest, ThePageGetsItsFirstItemRatedOrNothing) {
  serviceSays(R"({"results":[{"level":4,"category":"c","categoryGroup":"g","x":1},{"level":1}],
                  "wtp_level":2,"productVersion":"5.0"})");
  EXPECT_EQ(exchange("wtp_rating", kPage).at(0).userInfo,
            Json::parse(R"({"results":{"url":"https://p.test/","id":9,"k":1,"category":"c",
                           "categoryGroup":"g","level":4},"wtp_level":2,"productVersion":"5.0"})"));
  EXPECT_EQ(logs(), std::vector<std::string>{"https://p.test/"});
  serviceSays(R"({"results":[{}]})");  // no level anywhere: wtp_level 1, and no version
  EXPECT_EQ(exchange("wtp_rating", kPage).at(0).userInfo,
            Json::parse(R"({"results":{"url":"https://p.test/","id":9,"k":1},"wtp_level":1})"));
  for (const char* empty : {R"({"results":[]})", R"({"results":[7]})", "{}"}) {
    serviceSays(empty);
    EXPECT_TRUE(exchange("wtp_rating", kPage).empty()) << empty;
  }
  exchange("wtp_rating", R"({"urls":[{"id":1}]})");
  EXPECT_THAT(logs(), ::testing::Contains("(null)"));  // the first item's url, absent
}

TEST_F(HandlerTest, MailAddressReports) {
  const S a("a@m.test"), b("b@m.test");
  const std::tuple<const char*, const char*, S> cases[] = {  // message, dictionary, the address after
      {"vd_set_email", R"({"email":"b@m.test"})", b},   {"vd_set_email", R"({"email":"a@m.test"})", a},
      {"vd_set_email", R"({"email":""})", S("")},       {"vd_set_email", "{}", std::nullopt},
      {"vd_get_user_email", R"({"email":"b@m.test"})", b}, {"vd_get_user_email", R"({"email":""})", a},
      {"vd_get_user_email", R"({"email":7})", std::nullopt}, {"vd_get_user_email", "{}", std::nullopt}};
  for (auto [message, info, after] : cases) {
    setting.veldrinConfigItem().setCurEmail(a);
    auto answers = exchange(message, info);
    EXPECT_EQ(setting.veldrinConfigItem().curEmail(), after) << message << info;
    // vd_set_email is always answered, with no dictionary; the other never.
    ASSERT_EQ(answers.size(), std::string(message) == "vd_set_email" ? 1u : 0u);
    if (!answers.empty()) { EXPECT_FALSE(answers[0].userInfo); }
  }
  EXPECT_THAT(logs(), ::testing::ElementsAre("[SafariToolbar] safari background b@m.test",
                                             "[SafariToolbar] safari background ",
                                             "[SafariToolbar] vd_get_user_email return email is nil",
                                             "[SafariToolbar] vd_get_user_email return email is nil"));
}

}  // namespace
}  // namespace wren::test

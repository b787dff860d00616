// "rateItems" and "wtp_rating" end to end: page, dispatcher, service, page.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "handler_fixture.h"

namespace wren::test {
namespace {

constexpr const char* kTwoItems = R"({"type":"AutomaticScan","urls":[{"url":"http://bit.ly/a","id":1},
                                                                      {"url":"https://ex.test/","id":2}]})";

struct GateCase {
  const char* type;  // JSON of "type", nullptr when absent
  bool autoScan, manualScan, rated;
};

class RateItemsGateTest : public HandlerTest, public ::testing::WithParamInterface<GateCase> {};

TEST_P(RateItemsGateTest, RatesOnlyWhatTheFlagsAllow) {
  setting.setBAutoScanEnabled(GetParam().autoScan);
  setting.setBManualScanEnabled(GetParam().manualScan);
  Json info = Json::parse(R"({"urls":[{"url":"https://ex.test/","id":1}]})");
  if (GetParam().type) info["type"] = Json::parse(GetParam().type);
  auto answers = exchange("rateItems", info);
  EXPECT_EQ(service.requestCount(), GetParam().rated ? 1u : 0u);
  EXPECT_EQ(answers.size(), GetParam().rated ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Table, RateItemsGateTest,
                         ::testing::Values(GateCase{nullptr, true, true, false},
                                           GateCase{R"("AutomaticScan")", false, true, false},
                                           GateCase{R"("AutomaticScan")", true, false, true},
                                           GateCase{R"("ManualScanner")", true, false, false},
                                           GateCase{R"("ManualScanner")", false, true, true},
                                           GateCase{R"("Other")", false, false, true},
                                           GateCase{R"(5)", false, false, true}));

TEST_F(HandlerTest, RateItemsCopiesLevelsByPosition) {
  setting.setBAutoScanEnabled(true);
  service.respond(200, "application/json", R"({"results":[{"level":3},{"level":"0"}]})");
  auto answers = exchange("rateItems", R"({"type":"AutomaticScan","urls":[{"url":"http://bit.ly/a","id":1},
                                          {"url":"https://ex.test/","id":2},{"url":"u","id":3}]})");
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].page, page);
  EXPECT_EQ(answers[0].name, "rateItems");
  EXPECT_EQ(answers[0].userInfo, Json::parse(R"({"results":[{"url":"http://bit.ly/a","id":1,"level":3},
                                     {"url":"https://ex.test/","id":2,"level":"0"},{"url":"u","id":3}]})"));
  auto r = service.requests().at(0);
  EXPECT_EQ(r.path, "/BrowserExt/rating");
  EXPECT_EQ(r.header("KVExtURLs_Length"), "3");
  EXPECT_EQ(r.header("KVEExtURLs_0_needResolving"), "true");
}

TEST_F(HandlerTest, RateItemsWithoutResultsAnswersItemsUnchanged) {
  setting.setBAutoScanEnabled(true);
  auto answers = exchange("rateItems", kTwoItems);
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].userInfo, Json({{"results", Json::parse(kTwoItems)["urls"]}}));
}

struct DropCase {
  const char* request;  // the page's dictionary
  const char* answer;   // the service's body
  const char* log;
};

class RateItemsDropTest : public HandlerTest, public ::testing::WithParamInterface<DropCase> {};

TEST_P(RateItemsDropTest, NoAnswerOneLine) {
  setting.setBAutoScanEnabled(true);
  service.respond(200, "application/json", GetParam().answer);
  auto answers = exchange("rateItems", GetParam().request);
  EXPECT_TRUE(answers.empty());
  EXPECT_THAT(logs(), ::testing::ElementsAre(GetParam().log));
}

INSTANTIATE_TEST_SUITE_P(
    Table, RateItemsDropTest,
    ::testing::Values(
        DropCase{kTwoItems, R"({"results":[{"level":1},{"level":1},{"level":1}]})",
                 "[SafariToolbar] rateItems dropped: 3 results for 2 items"},
        DropCase{kTwoItems, R"({"results":[{"level":1},{"category":"x"}]})",
                 "[SafariToolbar] rateItems dropped: result 1 has no level"},
        DropCase{kTwoItems, R"({"results":[{"level":1},"x"]})",
                 "[SafariToolbar] rateItems dropped: result 1 has no level"},
        DropCase{kTwoItems, R"({"results":{"level":1}})", "[SafariToolbar] rateItems dropped: results is not a list"},
        DropCase{R"({"type":"x","urls":[{"url":"a","id":1},3]})", "{}",
                 "[SafariToolbar] rateItems dropped: item 1 is not a dictionary"},
        DropCase{R"({"type":"x","urls":"http://bit.ly/a"})", "{}",
                 "[SafariToolbar] rateItems dropped: urls is not a list"}));

TEST_F(HandlerTest, RateItemsWithoutUrlsIsIgnored) {
  auto answers = exchange("rateItems", R"({"type":"x"})");
  EXPECT_TRUE(answers.empty());
  EXPECT_EQ(service.requestCount(), 0u);
  EXPECT_TRUE(logs().empty());
}

class WtpRatingTest : public HandlerTest {
 protected:
  static constexpr const char* kPage = R"({"urls":[{"url":"https://page.test/","id":9,"keep":"me"},
                                                   {"url":"https://other.test/","id":10}]})";
  void serviceSays(const std::string& rating, const std::string& toolbar = "1", int settingStatus = 200) {
    std::vector<std::pair<std::string, std::string>> headers;
    if (!toolbar.empty()) headers.emplace_back("X-Wren-ToolbarStatus", toolbar);
    answerPaths({{"/BrowserExt/setting", {settingStatus, R"({"EnableAutomaticScan":1})"}},
                 {"/BrowserExt/rating", {200, rating}}},
                headers);
  }
};

TEST_F(WtpRatingTest, ReloadsSettingsThenRatesThePage) {
  serviceSays(R"({"results":[{"level":4,"category":"c","categoryGroup":"g","extra":1},{"level":1}],
                  "wtp_level":2,"productVersion":"5.0"})");
  auto answers = exchange("wtp_rating", kPage);
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].name, "wtp_rating");
  EXPECT_EQ(answers[0].userInfo, Json::parse(R"({"results":{"url":"https://page.test/","id":9,"keep":"me",
                                     "category":"c","categoryGroup":"g","level":4},
                                     "wtp_level":2,"productVersion":"5.0"})"));
  EXPECT_TRUE(setting.bAutoScanEnabled());
  EXPECT_FALSE(setting.bManualScanEnabled());
  auto requests = service.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].target, "/BrowserExt/setting?type=extension");
  EXPECT_EQ(requests[1].path, "/BrowserExt/rating");
  EXPECT_THAT(requests[1].query, ::testing::EndsWith("&type=wtp"));
  EXPECT_EQ(requests[1].header("KVExtURLs_Length"), "2");
  EXPECT_THAT(logs(), ::testing::ElementsAre("https://page.test/"));
}

TEST_F(WtpRatingTest, DefaultsLevelAndOmitsVersion) {
  serviceSays(R"({"results":[{"category":"c"}]})");
  auto answers = exchange("wtp_rating", kPage);
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ((*answers[0].userInfo)["wtp_level"], 1);
  EXPECT_FALSE(answers[0].userInfo->contains("productVersion"));
  EXPECT_FALSE((*answers[0].userInfo)["results"].contains("level"));
}

TEST_F(WtpRatingTest, ToolbarOffAfterReloadStopsAndGatesLaterMessages) {
  serviceSays(R"({"results":[{"level":1}]})", "");
  auto answers = exchange("wtp_rating", kPage);
  EXPECT_TRUE(answers.empty());
  EXPECT_FALSE(setting.bToolbarEnabled());
  EXPECT_EQ(service.requestCount(), 1u);
  send("vd_show_protect_promotion");
  EXPECT_TRUE(browser.messages.empty());
}

TEST_F(WtpRatingTest, FailedReloadSwitchesAllOff) {
  setting.setBManualScanEnabled(true);
  serviceSays("{}", "1", 500);
  auto answers = exchange("wtp_rating", kPage);
  EXPECT_TRUE(answers.empty());
  EXPECT_FALSE(setting.bToolbarEnabled());
  EXPECT_FALSE(setting.bAutoScanEnabled());
  EXPECT_FALSE(setting.bManualScanEnabled());
}

TEST_F(WtpRatingTest, DroppedCases) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"results":[]})", "[SafariToolbar] wtp_rating dropped: no results"},
      {R"({"other":1})", "[SafariToolbar] wtp_rating dropped: no results"},
      {R"({"results":{"level":1}})", "[SafariToolbar] wtp_rating dropped: no results"},
      {R"({"results":[7]})", "[SafariToolbar] wtp_rating dropped: result 0 is not a dictionary"},
  };
  for (const auto& [rating, line] : cases) {
    SCOPED_TRACE(rating);
    serviceSays(rating);
    const size_t before = linesWith(line);
    auto answers = exchange("wtp_rating", kPage);
    EXPECT_TRUE(answers.empty());
    EXPECT_EQ(linesWith(line), before + 1);
  }
}

TEST_F(WtpRatingTest, MalformedPageListsNeverReachTheService) {
  send("wtp_rating", R"({"urls":[]})");
  send("wtp_rating", R"({"urls":["x"]})");
  send("wtp_rating", R"({"urls":{"url":"x"}})");
  send("wtp_rating", R"({})");
  settle();
  EXPECT_EQ(service.requestCount(), 0u);
  EXPECT_THAT(logs(), ::testing::ElementsAre("[SafariToolbar] wtp_rating dropped: no items",
                                             "[SafariToolbar] wtp_rating dropped: item 0 is not a dictionary",
                                             "[SafariToolbar] wtp_rating dropped: urls is not a list"));
}

TEST_F(WtpRatingTest, LogsNullForAMissingUrl) {
  serviceSays(R"({"results":[{"level":1}]})");
  exchange("wtp_rating", R"({"urls":[{"id":1}]})");  // rated nowhere: the item is malformed for the service
  EXPECT_EQ(logs().at(0), "(null)");
}

}  // namespace
}  // namespace wren::test

// The toolbar gate and the messages answered without the service: the
// promotion, the mail address reports, new tabs and the block page.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "handler_fixture.h"

namespace wren::test {
namespace {

using ::testing::ElementsAre;

const char* const kAllNames[] = {"rateItems",         "wtp_rating",     "send_data",
                                 "vd_set_email",      "vd_send_command", "vd_scan_email",
                                 "vd_open_new_tab",   "vd_show_protect_promotion",
                                 "vd_get_user_email", "vd_feedback",    "vd_get_setting",
                                 "get_relevant_blog", "wtpatl",         "block_page",
                                 "unknown",           "RATEITEMS"};

TEST_F(HandlerTest, ToolbarOffDropsEverythingSilently) {
  setting.setBToolbarEnabled(false);
  setting.setBAutoScanEnabled(true);
  setting.setBManualScanEnabled(true);
  setting.veldrinConfigItem().setCurEmail("kept@mail.test");
  handler.setMailScan({[](const Json&, MailScanSuccess s, MailScanFailure) { s(Json::object()); },
                       [](const Json&, MailScanSuccess s, MailScanFailure) { s(Json::object()); }});
  handler.setLastBlockUrl("https://blocked.test/?code=1");
  const Json info = Json::parse(R"({"urls":[{"url":"http://bit.ly/a","id":1}],"type":"Other","email":"x@y",
                                    "url":"http://a b","e":"x","i":1,"href":"plain"})");
  for (const char* name : kAllNames) send(name, info);
  settle();
  EXPECT_TRUE(browser.messages.empty());
  EXPECT_TRUE(browser.openedTabs.empty());
  EXPECT_EQ(service.requestCount(), 0u);
  EXPECT_TRUE(logs().empty());
  EXPECT_EQ(setting.veldrinConfigItem().curEmail(), std::optional<std::string>("kept@mail.test"));
  EXPECT_EQ(handler.lastBlockUrl(), std::optional<std::string>("https://blocked.test/?code=1"));
}

TEST_F(HandlerTest, UnknownNamesAreIgnoredWithoutATrace) {
  for (const char* name : {"unknown", "RATEITEMS", "rateitems", ""}) send(name, R"({"urls":[]})");
  settle();
  EXPECT_TRUE(browser.messages.empty());
  EXPECT_EQ(service.requestCount(), 0u);
  EXPECT_TRUE(logs().empty());
}

TEST_F(HandlerTest, PromotionOncePerProcess) {
  send("vd_show_protect_promotion");
  SafariExtensionHandler other(server, setting, ajax, browser, kBuildVersion);
  other.messageReceivedWithName("vd_show_protect_promotion", "page-B", std::nullopt);
  ASSERT_EQ(browser.messages.size(), 2u);
  EXPECT_EQ(browser.messages[0].userInfo, Json::parse(R"({"isShow":true})"));
  EXPECT_EQ(browser.messages[1].page, "page-B");
  EXPECT_EQ(browser.messages[1].name, "vd_show_protect_promotion");
  EXPECT_FALSE(browser.messages[1].userInfo);
  EXPECT_THAT(logs(), ElementsAre("[SafariToolbar] vd_show_protect_promotion is 0 ",
                                  "[SafariToolbar] vd_show_protect_promotion is 1 "));
}

struct EmailCase {
  const char* message;
  const char* info;  // nullptr: no dictionary
  std::optional<std::string> before;
  std::optional<std::string> after;
  std::optional<std::string> stored;
  bool answered;
  const char* log;
};

class EmailTest : public HandlerTest, public ::testing::WithParamInterface<EmailCase> {};

TEST_P(EmailTest, StoresAndAnswers) {
  const EmailCase& c = GetParam();
  setting.veldrinConfigItem().setCurEmail(c.before);
  send(c.message, c.info ? std::optional<Json>(Json::parse(c.info)) : std::nullopt);
  EXPECT_EQ(setting.veldrinConfigItem().curEmail(), c.after);
  EXPECT_EQ(store.stringForKey("curEmail"), c.stored);
  if (c.answered) {
    ASSERT_EQ(browser.messages.size(), 1u);
    EXPECT_EQ(browser.messages[0].name, "vd_set_email");
    EXPECT_FALSE(browser.messages[0].userInfo);
  } else {
    EXPECT_TRUE(browser.messages.empty());
  }
  if (c.log) {
    EXPECT_THAT(logs(), ElementsAre(c.log));
  } else {
    EXPECT_TRUE(logs().empty());
  }
}

using S = std::optional<std::string>;
INSTANTIATE_TEST_SUITE_P(
    Table, EmailTest,
    ::testing::Values(
        EmailCase{"vd_set_email", R"({"email":"b@m.test"})", S("a@m.test"), S("b@m.test"), S("b@m.test"), true,
                  nullptr},
        EmailCase{"vd_set_email", R"({"email":"a@m.test"})", S("a@m.test"), S("a@m.test"), S("a@m.test"), true,
                  nullptr},
        EmailCase{"vd_set_email", R"({"email":""})", S("a@m.test"), S(""), S("a@m.test"), true, nullptr},
        EmailCase{"vd_set_email", R"({"email":42})", S("a@m.test"), S("a@m.test"), S("a@m.test"), true,
                  "[SafariToolbar] vd_set_email: email is not a text, not stored"},
        EmailCase{"vd_set_email", nullptr, S("a@m.test"), std::nullopt, std::nullopt, true, nullptr},
        EmailCase{"vd_get_user_email", R"({"email":"b@m.test"})", S("a@m.test"), S("b@m.test"), S("b@m.test"),
                  false, "[SafariToolbar] safari background b@m.test"},
        EmailCase{"vd_get_user_email", R"({"email":""})", S("a@m.test"), S("a@m.test"), S("a@m.test"), false,
                  "[SafariToolbar] safari background "},
        EmailCase{"vd_get_user_email", R"({"email":7})", S("a@m.test"), std::nullopt, std::nullopt, false,
                  "[SafariToolbar] vd_get_user_email return email is nil"},
        EmailCase{"vd_get_user_email", R"({})", S("a@m.test"), std::nullopt, std::nullopt, false,
                  "[SafariToolbar] vd_get_user_email return email is nil"}));

TEST_F(HandlerTest, NewTabEscapesOnlyThreeCharacters) {
  send("vd_open_new_tab", R"({"url":"http://ex.test/a b<c>%41\u00e9"})");
  ASSERT_EQ(browser.openedTabs.size(), 1u);
  EXPECT_EQ(browser.openedTabs[0].first, browser.window);
  EXPECT_EQ(browser.openedTabs[0].second, "http://ex.test/a%20b%3Cc%3E%41\u00e9");
  EXPECT_THAT(browser.activations, ElementsAre(true));
  EXPECT_TRUE(browser.messages.empty());
}

TEST_F(HandlerTest, NewTabNeedsAWindowAndATextUrl) {
  send("vd_open_new_tab", R"({"url":["x"]})");
  send("vd_open_new_tab", R"({})");
  browser.window = nullptr;
  send("vd_open_new_tab", R"({"url":"http://ex.test/"})");
  EXPECT_TRUE(browser.openedTabs.empty());
  EXPECT_EQ(linesWith("vd_open_new_tab: url is not a text"), 2u);
}

TEST_F(HandlerTest, BlockPageHandsTheRememberedAddressOutOnce) {
  send("block_page", R"({"href":"https://block.test/?code=A1"})");
  send("block_page", R"({"href":"https://block.test/?code=B2"})");  // the last one wins
  EXPECT_TRUE(browser.messages.empty());
  EXPECT_EQ(handler.lastBlockUrl(), S("https://block.test/?code=B2"));

  send("block_page", R"({"href":"https://block.test/"})");
  ASSERT_EQ(browser.messages.size(), 1u);
  EXPECT_EQ(browser.messages[0].name, "reload_block_page");
  EXPECT_EQ(browser.messages[0].userInfo, Json::parse(R"({"href":"https://block.test/?code=B2"})"));
  EXPECT_FALSE(handler.lastBlockUrl());

  send("block_page");
  EXPECT_EQ(browser.messages.size(), 1u);
  EXPECT_THAT(logs(), ElementsAre("lastBlockUrl is nil"));
}

TEST_F(HandlerTest, BlockPageCodeIsCaseSensitiveAndHrefMustBeText) {
  send("block_page", R"({"href":"https://block.test/?CODE=1"})");
  EXPECT_FALSE(handler.lastBlockUrl());
  handler.setLastBlockUrl("https://block.test/?code=9");
  send("block_page", R"({"href":["code"]})");  // not a text: as if absent
  ASSERT_EQ(browser.messages.size(), 1u);
  EXPECT_EQ(browser.messages[0].userInfo, Json::parse(R"({"href":"https://block.test/?code=9"})"));
  EXPECT_EQ(linesWith("block_page: href is not a text"), 1u);
}

}  // namespace
}  // namespace wren::test

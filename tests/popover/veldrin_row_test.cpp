// The mail-scan row: active page -> web-mail host -> account -> switches.
// The row's outcomes are pinned through the host; here the readers of host,
// address and account, Yahoo! JAPAN Mail and where a refresh stops.
#include <algorithm>

#include "mailscan/webmail_account.h"
#include "popover/safari_extension_view_controller.h"
#include "popover/strings.h"
#include "server/service_fixture.h"
#include "support/fake_browser.h"

namespace wren::test {
namespace {

TEST(WebMailAccountTest, HostsAreMatchedExactlyAndCaseSensitively) {
  using W = WebMailService;
  const std::pair<const char*, WebMailService> cases[] = {
      {"mail.google.com", W::Gmail},          {"xmail.google.com", W::None},        {"Mail.Google.com", W::None},
      {"mail.google.com.example", W::None},   {"mail.yahoo.co.jp", W::YahooJapan},  {"jp.mail.yahoo.co.jp", W::None},
      {"mail.yahoo.com", W::YahooGlobal},     {"uk.mail.yahoo.com", W::YahooGlobal}, {"MAIL.YAHOO.COM", W::None},
      {"mail.yahoo.com.example", W::YahooGlobal}, {"", W::None}};
  for (auto [host, expected] : cases) EXPECT_EQ(webMailServiceForHost(host), expected) << host;
}

TEST(WebMailAccountTest, HostOfUrl) {
  const std::pair<const char*, std::optional<std::string>> cases[] = {
      {"https://mail.google.com", "mail.google.com"},    {"https://u:p@uk.mail.yahoo.com:8443/d", "uk.mail.yahoo.com"},
      {"https://mail.yahoo.co.jp?x=@evil", "mail.yahoo.co.jp"}, {"https://a@b@mail.google.com/", "mail.google.com"},
      {"http://[::1]:8080/", "[::1]"},                   {"https://mail.google.com#frag", "mail.google.com"},
      {"mail.google.com/mail", std::nullopt},            {"about:blank", std::nullopt},
      {"https://[::1", std::nullopt},                    {"://mail.google.com/", std::nullopt}};
  for (const auto& [url, expected] : cases) EXPECT_EQ(hostOfUrl(url), expected) << url;
}

TEST(WebMailAccountTest, AccountIsTheSecondHyphenPartWithoutBlanks) {
  const std::pair<std::optional<std::string>, std::optional<std::string>> cases[] = {
      {"Inbox (3) - alice@example.com - Gmail", "alice@example.com"},
      {"a-b-c", "b"}, {"a - b c - d", "bc"}, {"a-", "a"}, {"--", ""},
      {"Inbox -    - Gmail", ""},  // blanks only: empty, not absent
      {"tab\t-\tx - y", "\tx"},    // only blanks are removed
      {"Inbox", std::nullopt}, {"", std::nullopt}, {std::nullopt, std::nullopt}};
  for (const auto& [title, expected] : cases) EXPECT_EQ(accountFromTitle(title), expected) << title.value_or("-");
}

// The controller on a real service client and a service on loopback, with a
// fake browser whose completions arrive on the loop like the host's do.
class VeldrinRowTest : public ServiceFixture {
 protected:
  Strings strings = Strings::embedded("en");
  FakeBrowser browser{&loop};
  SafariExtensionViewController controller{setting, server, loop, &browser, strings};
  PopoverView& view = controller.view();
  int changes = 0;

  VeldrinRowTest() {
    service.respond(200, "application/json", R"({"EnableVeldrin":true})");
    setting.setBToolbarEnabled(true);
    controller.setOnChange([this] { ++changes; });
  }

  VeldrinConfigItem& record() { return setting.veldrinConfigItem(); }
  void showPage(std::optional<std::string> url, std::optional<std::string> title) {
    browser.properties = PageProperties{std::move(url), std::move(title)};
  }
  bool logged(const std::string& line) {
    const auto lines = logs();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  }
  // A row that the previous refresh left usable with its check mark on;
  // changes are counted from here. Then one refresh, until `until` holds.
  void refreshFromUsableRow(const std::function<bool()>& until = nullptr) {
    view.lblVeldrin->setTextColor(TextColor::Color);
    view.lblVeldrin->setToolTip("previous");
    view.btnVeldrin->setEnabled(true);
    view.veldrinCheck->setHidden(false);
    record().setBVeldrinEnabled(true);
    changes = 0;
    refresh(until);
  }
  // Without `until`: until the lookups the refresh posts, and what they post, have run.
  void refresh(const std::function<bool()>& until = nullptr) {
    loop.post([&] { controller.updateVeldrinSetting(); });
    for (int i = 0; !until && i < 8; ++i) {
      bool ran = false;
      loop.post([&] { ran = true; });
      ASSERT_TRUE(runUntil([&] { return ran; }));
    }
    if (until) {
      ASSERT_TRUE(runUntil(until)) << "the awaited state never came";
    }
  }
};

TEST_F(VeldrinRowTest, RefreshStopsWithoutAChange) {
  showPage("https://mail.google.com/", "Inbox -    - Gmail");  // an account of blanks only
  record().setCurEmail("kept@example.com");
  refreshFromUsableRow();
  EXPECT_EQ(record().curEmail(), "kept@example.com");
  showPage("https://mail.google.com/", "Inbox - alice@example.com - Gmail");
  for (BrowserHandle* handle : {&browser.window, &browser.tab, &browser.page}) {
    const BrowserHandle saved = std::exchange(*handle, nullptr);
    refresh();
    *handle = saved;
  }
  browser.properties = std::nullopt;
  refresh();
  EXPECT_EQ(changes, 0);
  EXPECT_EQ(service.requestCount(), 0u);
}

TEST_F(VeldrinRowTest, YahooJapanAsksThePageAndUsesTheAddressReportedBefore) {
  showPage("https://mail.yahoo.co.jp/u/pc/f/message", "Yahoo!メール");
  record().setCurEmail("");  // a fresh installation: the row stays as it is
  refreshFromUsableRow();
  EXPECT_EQ(browser.messages.back(), (FakeBrowser::Message{"vd_get_user_email", std::nullopt}));
  EXPECT_TRUE(logged("[SafariToolbar] getYahooJPMailAccount enter."));
  EXPECT_TRUE(logged("Safari popup  "));
  EXPECT_EQ(changes, 0);
  EXPECT_EQ(service.requestCount(), 0u);
  record().setCurEmail("taro@yahoo.co.jp");
  refreshFromUsableRow([&] { return service.requestCount() > 0 && changes > 0; });
  EXPECT_TRUE(logged("Safari popup taro@yahoo.co.jp "));
  EXPECT_EQ(service.requests().at(0).query, "type=vds&e=dGFyb0B5YWhvby5jby5qcA==");
}

}  // namespace
}  // namespace wren::test

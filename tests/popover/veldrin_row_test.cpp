// The mail-scan row: active page -> web-mail host -> account -> switches.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <mutex>

#include <unistd.h>

#include "popover_fixture.h"
#include "util/common.h"
#include "util/logging.h"

namespace wren::test {
namespace {

constexpr const char* kUnavailable = "Works for Gmail and Yahoo Mail when you are signed in.";

class VeldrinRowTest : public PopoverTest {
 protected:
  std::vector<std::string> logLines;
  std::mutex logMutex;
  std::string vdsBody = R"({"EnableVeldrin":true})";
  int vdsStatus = 200;

  VeldrinRowTest() {
    setLogSink([this](std::string_view line) {
      std::lock_guard lock(logMutex);
      logLines.emplace_back(line);
    });
    service.setHandler([this](const httplib::Request& req, httplib::Response& res) {
      res.status = vdsStatus;
      res.set_content(vdsBody, "application/json");
      (void)req;
    });
    setting.setBToolbarEnabled(true);
  }
  ~VeldrinRowTest() override { setLogSink(nullptr); }

  VeldrinConfigItem& record() { return setting.veldrinConfigItem(); }
  void showPage(const char* url, const char* title) {
    browser.properties = PageProperties{url ? std::optional<std::string>(url) : std::nullopt,
                                        title ? std::optional<std::string>(title) : std::nullopt};
  }
  bool logged(const std::string& line) {
    std::lock_guard lock(logMutex);
    return std::find(logLines.begin(), logLines.end(), line) != logLines.end();
  }
  // A row that the previous refresh left usable with its check mark on.
  void startFromUsableRow() {
    view.lblVeldrin->setTextColor(TextColor::Color);
    view.lblVeldrin->setToolTip("previous");
    view.btnVeldrin->setEnabled(true);
    view.veldrinCheck->setHidden(false);
    record().setBVeldrinEnabled(true);
  }
  void refresh() {
    loop.post([&] { controller.updateVeldrinSetting(); });
    drain();
  }
};

// --- Outcome A: not a usable web-mail page -------------------------------

struct UnavailableCase {
  bool toolbar;
  const char* url;
};

class UnavailableTest : public VeldrinRowTest, public ::testing::WithParamInterface<UnavailableCase> {};

TEST_P(UnavailableTest, GreysTheRowWithItsTooltip) {
  setting.setBToolbarEnabled(GetParam().toolbar);
  showPage(GetParam().url, "Inbox - alice@example.com - Gmail");
  startFromUsableRow();
  refresh();
  EXPECT_EQ(view.lblVeldrin->textColor(), TextColor::Grey);
  EXPECT_EQ(view.lblVeldrin->toolTip(), kUnavailable);
  EXPECT_FALSE(view.btnVeldrin->isEnabled());
  EXPECT_TRUE(view.veldrinCheck->isHidden());
  EXPECT_TRUE(record().bVeldrinEnabled());  // the record is not touched
  EXPECT_EQ(service.requestCount(), 0u);
  EXPECT_TRUE(logged("[SafariToolbar] updateVeldrinSetting enter."));
}

INSTANTIATE_TEST_SUITE_P(Pages, UnavailableTest,
                         ::testing::Values(UnavailableCase{false, "https://mail.google.com/mail/u/0/"},
                                           UnavailableCase{true, nullptr},
                                           UnavailableCase{true, "https://www.example.com/"},
                                           UnavailableCase{true, "https://xmail.google.com/"},
                                           UnavailableCase{true, "https://MAIL.GOOGLE.COM/"},
                                           UnavailableCase{true, "https://mail.yahoo.co.jp.example/"},
                                           UnavailableCase{true, "not a url"}));

TEST_F(VeldrinRowTest, UnavailableTooltipComesFromTheTranslationWhenThereIsOne) {
  const auto dir = std::filesystem::temp_directory_path() / ("wren-strings-" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir / "en");
  std::filesystem::create_directories(dir / "fr");
  std::ofstream(dir / "en" / "veldrin.json") << R"({"other": "x"})";
  std::ofstream(dir / "fr" / "veldrin.json") << R"({"veldrin_menu_item_diable_tooltip": "Pour Gmail et Yahoo Mail."})";
  const std::pair<const char*, const char*> cases[] = {{"en", kUnavailable}, {"fr", "Pour Gmail et Yahoo Mail."}};
  for (auto [language, expected] : cases) {
    Strings translated = Strings::fromDirectory(dir, language);
    SafariExtensionViewController other(setting, server, loop, &browser, translated);
    showPage("https://www.example.com/", nullptr);
    loop.post([&] { other.updateVeldrinSetting(); });
    drain();
    EXPECT_EQ(other.view().lblVeldrin->toolTip(), expected) << language;
  }
  std::filesystem::remove_all(dir);
}

// --- Outcome B: a web-mail page without an account -----------------------

TEST_F(VeldrinRowTest, NoAccountGreysTheRowAndSwitchesTheScannerOff) {
  showPage("https://mail.google.com/mail/u/0/", "Inbox");
  startFromUsableRow();
  refresh();
  EXPECT_TRUE(logged("Mail account is null and reutrn."));
  EXPECT_EQ(view.lblVeldrin->textColor(), TextColor::Grey);
  EXPECT_EQ(view.lblVeldrin->toolTip(), "previous");
  EXPECT_FALSE(view.btnVeldrin->isEnabled());
  EXPECT_FALSE(record().bVeldrinEnabled());
  EXPECT_TRUE(view.veldrinCheck->isHidden());
  EXPECT_EQ(service.requestCount(), 0u);
}

// --- Outcomes C and D: the switches loaded or not ------------------------

struct LoadCase {
  const char* url;
  const char* title;
  const char* email;
  const char* vdsBody;
  bool checkShown;
};

class LoadedTest : public VeldrinRowTest, public ::testing::WithParamInterface<LoadCase> {};

TEST_P(LoadedTest, EnablesTheRowFromTheAccountsSwitches) {
  const LoadCase& c = GetParam();
  showPage(c.url, c.title);
  vdsBody = c.vdsBody;
  view.lblVeldrin->setTextColor(TextColor::Grey);
  view.btnVeldrin->setEnabled(false);
  view.veldrinCheck->setHidden(c.checkShown);
  loop.post([&] { controller.updateVeldrinSetting(); });
  runUntil([&] { return view.btnVeldrin->isEnabled(); });

  EXPECT_EQ(view.lblVeldrin->textColor(), TextColor::Color);
  EXPECT_EQ(view.lblVeldrin->toolTip(), "Veldrin Scam Scanner");
  EXPECT_EQ(view.veldrinCheck->isHidden(), !c.checkShown);
  EXPECT_EQ(record().curEmail(), c.email);
  EXPECT_EQ(record().bVeldrinEnabled(), c.checkShown);
  const RecordedRequest request = service.requests().at(0);
  EXPECT_EQ(request.target, "/BrowserExt/command?type=vds&e=" + base64EncodedString(c.email));
}

INSTANTIATE_TEST_SUITE_P(
    Services, LoadedTest,
    ::testing::Values(LoadCase{"https://mail.google.com/mail/u/0/#inbox", "Inbox (3) - alice@example.com - Gmail",
                               "alice@example.com", R"({"EnableVeldrin":true,"ShowDCN":1})", true},
                      LoadCase{"https://mail.google.com/", "a-b-c", "b", R"({"EnableVeldrin":"no"})", false},
                      LoadCase{"https://user@uk.mail.yahoo.com:443/d/folders/1", "Inbox - bob @yahoo.com - Yahoo Mail",
                               "bob@yahoo.com", R"({"EnableVeldrin":"1"})", true}));

TEST_F(VeldrinRowTest, FailedLoadGreysTheRowButKeepsTheCheckMark) {
  showPage("https://mail.google.com/", "Inbox - alice@example.com - Gmail");
  startFromUsableRow();
  vdsStatus = 500;
  loop.post([&] { controller.updateVeldrinSetting(); });
  runUntil([&] { return !view.btnVeldrin->isEnabled(); });
  EXPECT_EQ(view.lblVeldrin->textColor(), TextColor::Grey);
  EXPECT_EQ(view.lblVeldrin->toolTip(), "previous");
  EXPECT_FALSE(record().bVeldrinEnabled());
  EXPECT_FALSE(view.veldrinCheck->isHidden());
}

TEST_F(VeldrinRowTest, NonObjectAnswerCountsAsAFailedLoad) {
  showPage("https://mail.google.com/", "Inbox - alice@example.com - Gmail");
  startFromUsableRow();
  vdsBody = "[1]";
  loop.post([&] { controller.updateVeldrinSetting(); });
  runUntil([&] { return !view.btnVeldrin->isEnabled(); });
  EXPECT_FALSE(record().bVeldrinEnabled());
}

// --- Where the refresh stops without a change ----------------------------

TEST_F(VeldrinRowTest, BlankAccountLeavesTheRowAlone) {
  showPage("https://mail.google.com/", "Inbox -    - Gmail");
  record().setCurEmail("kept@example.com");
  startFromUsableRow();
  int changes = 0;
  controller.setOnChange([&] { ++changes; });
  refresh();
  EXPECT_EQ(changes, 0);
  EXPECT_EQ(record().curEmail(), "kept@example.com");
  EXPECT_EQ(service.requestCount(), 0u);
}

TEST_F(VeldrinRowTest, ChainEndsWhereTheBrowserHasNothing) {
  for (BrowserHandle* handle : {&browser.window, &browser.tab, &browser.page}) {
    const BrowserHandle saved = *handle;
    *handle = nullptr;
    startFromUsableRow();
    int changes = 0;
    controller.setOnChange([&] { ++changes; });
    refresh();
    EXPECT_EQ(changes, 0);
    *handle = saved;
  }
  browser.properties = std::nullopt;
  int changes = 0;
  controller.setOnChange([&] { ++changes; });
  refresh();
  EXPECT_EQ(changes, 0);
}

// --- Yahoo! JAPAN Mail asks the page -------------------------------------

TEST_F(VeldrinRowTest, YahooJapanFirstRefreshOnlyAsksThePage) {
  showPage("https://mail.yahoo.co.jp/u/pc/f/message", "Yahoo!メール");
  startFromUsableRow();
  refresh();
  ASSERT_EQ(browser.messages.size(), 1u);
  EXPECT_EQ(browser.messages[0].page, browser.page);
  EXPECT_EQ(browser.messages[0].name, "vd_get_user_email");
  EXPECT_EQ(browser.messages[0].userInfo, std::nullopt);
  EXPECT_TRUE(logged("[SafariToolbar] getYahooJPMailAccount enter."));
  EXPECT_TRUE(logged("Safari popup  "));
  // A fresh installation knows no address yet: the row stays as it is.
  EXPECT_TRUE(view.btnVeldrin->isEnabled());
  EXPECT_EQ(service.requestCount(), 0u);
}

TEST_F(VeldrinRowTest, YahooJapanUsesTheAddressThePageReportedBefore) {
  showPage("https://mail.yahoo.co.jp/", "Yahoo!メール");
  record().setCurEmail("taro@yahoo.co.jp");
  view.btnVeldrin->setEnabled(false);
  loop.post([&] { controller.updateVeldrinSetting(); });
  runUntil([&] { return view.btnVeldrin->isEnabled(); });
  EXPECT_TRUE(logged("Safari popup taro@yahoo.co.jp "));
  EXPECT_EQ(service.requests().at(0).query, "type=vds&e=" + base64EncodedString("taro@yahoo.co.jp"));
}

TEST_F(VeldrinRowTest, YahooJapanWithoutAnyAddressLogsNull) {
  record().setCurEmail(std::nullopt);
  EXPECT_EQ(controller.getYahooJPMailAccount("page-9"), std::nullopt);
  EXPECT_TRUE(logged("Safari popup (null) "));
}

TEST_F(VeldrinRowTest, WithoutABrowserOnlyTheEntryIsLogged) {
  SafariExtensionViewController headless(setting, server, loop, nullptr, strings);
  headless.view().btnVeldrin->setEnabled(true);
  loop.post([&] { headless.updateVeldrinSetting(); });
  drain();
  EXPECT_TRUE(logged("[SafariToolbar] updateVeldrinSetting enter."));
  EXPECT_TRUE(headless.view().btnVeldrin->isEnabled());
}

TEST_F(VeldrinRowTest, TitleReadersShareOneRule) {
  const std::pair<const char*, std::optional<std::string>> titles[] = {
      {"Inbox (3) - alice@example.com - Gmail", "alice@example.com"},
      {"a - b c - d", "bc"},
      {"no hyphen", std::nullopt},
  };
  for (const auto& [title, expected] : titles) {
    const PageProperties properties{"https://mail.google.com/", title};
    EXPECT_EQ(controller.getGmailAccount(properties), expected) << title;
    EXPECT_EQ(controller.getYahooGlobalMailAccount(properties), expected) << title;
  }
  EXPECT_EQ(controller.getGmailAccount(PageProperties{}), std::nullopt);
}

}  // namespace
}  // namespace wren::test

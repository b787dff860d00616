// The popover's row actions: the commands the service receives, and when the
// popover closes.
#include <gtest/gtest.h>

#include "service_fixture.h"

namespace wren::test {
namespace {

class TogglesTest : public ServiceFixture {
 protected:
  TogglesTest() {
    server.setBrowser(&browser);
    server.setDismissPopover([this] { ++dismissed; });
  }
  std::map<std::string, std::string> onlyCommand() {
    settle();
    auto requests = service.requests();
    EXPECT_EQ(requests.size(), 1u);
    if (requests.empty()) return {};
    EXPECT_EQ(requests[0].path, "/BrowserExt/command");
    return queryPairs(requests[0].query);
  }
  FakeBrowser browser;
  int dismissed = 0;
};

using Pairs = std::map<std::string, std::string>;

TEST_F(TogglesTest, AutoScanAsksForTheOppositeAndLeavesTheFlag) {
  setting.setBAutoScanEnabled(true);
  server.toggleAutoScan();
  EXPECT_EQ(dismissed, 1);  // closes before the answer
  EXPECT_EQ(onlyCommand(), (Pairs{{"type", "updateSetting"}, {"name", "EnableAutomaticScan"}, {"value", "false"}}));
  EXPECT_TRUE(setting.bAutoScanEnabled());
}

TEST_F(TogglesTest, ManualScanOffAsksForTrue) {
  server.toggleManualScan();
  EXPECT_EQ(onlyCommand(), (Pairs{{"type", "updateSetting"}, {"name", "EnableManualScanner"}, {"value", "true"}}));
  EXPECT_EQ(dismissed, 1);
}

TEST_F(TogglesTest, ProductPages) {
  server.showSettingsPage();
  EXPECT_EQ(onlyCommand(), (Pairs{{"type", "showToolbarUI"}}));
  service.clear();
  server.showHelpPage();
  EXPECT_EQ(onlyCommand(), (Pairs{{"type", "showToolbarHelp"}}));
  EXPECT_EQ(dismissed, 2);
}

TEST_F(TogglesTest, ServiceDownStillCloses) {
  WrenBrowserExtServer nowhere(ajax, setting, "http://127.0.0.1:1");
  nowhere.setDismissPopover([this] { ++dismissed; });
  nowhere.toggleAutoScan();
  settle();
  EXPECT_EQ(dismissed, 1);
  nowhere.toggleAutoScan();  // no hook installed is fine too
  WrenBrowserExtServer bare(ajax, setting, "http://127.0.0.1:1");
  bare.showHelpPage();
  settle();
}

TEST_F(TogglesTest, VeldrimReachesTheActivePage) {
  setting.veldrinConfigItem().setCurEmail("a@mail.test");
  server.toggleVeldrim();
  ASSERT_EQ(browser.messages.size(), 1u);
  EXPECT_EQ(browser.messages[0].page, browser.page);
  EXPECT_EQ(browser.messages[0].name, "vd_popoverClicked");
  EXPECT_EQ(browser.messages[0].userInfo, Json::object());
  EXPECT_EQ(dismissed, 1);
  EXPECT_EQ(service.requestCount(), 0u);
}

TEST_F(TogglesTest, VeldrimWithAbsentAddressStillGoes) {
  setting.veldrinConfigItem().setCurEmail(std::nullopt);
  server.toggleVeldrim();
  EXPECT_EQ(browser.messages.size(), 1u);
}

TEST_F(TogglesTest, VeldrimHeldBack) {
  // An empty address, and each missing link of the chain, keeps the popover open.
  setting.veldrinConfigItem().setCurEmail("");
  server.toggleVeldrim();
  setting.veldrinConfigItem().setCurEmail("a@mail.test");
  for (BrowserHandle* missing : {&browser.window, &browser.tab, &browser.page}) {
    FakeBrowser fresh;
    browser = fresh;
    *missing = nullptr;
    server.toggleVeldrim();
  }
  WrenBrowserExtServer noBrowser(ajax, setting, service.origin());
  noBrowser.setDismissPopover([this] { ++dismissed; });
  noBrowser.toggleVeldrim();
  EXPECT_TRUE(browser.messages.empty());
  EXPECT_EQ(dismissed, 0);
}

}  // namespace
}  // namespace wren::test

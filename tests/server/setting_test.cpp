// The settings record: the stored mail address and the truthy readings of
// the service's answers.
#include <fstream>
#include <sstream>

#include "service_fixture.h"

namespace wren::test {
namespace {

using S = std::optional<std::string>;
using SettingTest = ServiceFixture;

TEST_F(SettingTest, AddressIsStoredWhenItChangesExceptToEmpty) {
  const auto file = dir_ / "defaults.json";
  VeldrinConfigItem& item = setting.veldrinConfigItem();
  EXPECT_EQ(item.curEmail(), S(""));  // first launch: empty, not absent
  item.setCurEmail("a@mail.test");
  DefaultsStore nextLaunch(file);
  EXPECT_EQ(VeldrinConfigItem(&nextLaunch, "").curEmail(), S("a@mail.test"));
  // The same address again writes nothing: a layout no write would produce stays.
  const std::string handWritten = "{   \"curEmail\"  :  \"a@mail.test\"   }";
  std::ofstream(file) << handWritten;
  item.setCurEmail("a@mail.test");
  std::stringstream text;
  text << std::ifstream(file).rdbuf();
  EXPECT_EQ(text.str(), handWritten);
  // "" changes the field only: the stored account comes back next launch.
  item.setCurEmail("");
  EXPECT_EQ(item.curEmail(), S(""));
  EXPECT_EQ(store.stringForKey("curEmail"), S("a@mail.test"));
  item.setCurEmail(std::nullopt);  // absent removes the stored entry
  EXPECT_FALSE(store.stringForKey("curEmail"));
}

// What the end-to-end tests do not reach: lower-case header names, and values
// that are neither text, number nor boolean.
TEST(ApplySettingsTest, ReadsEachFlagByItsTruthyValue) {
  struct Case {
    const char* settings;
    bool toolbar, autoScan, manualScan;
  };
  const Case cases[] = {
      {R"({"x-wren-toolbarstatus":"1","EnableAutomaticScan":"yes","EnableManualScanner":"01"})", true, true, true},
      {R"({"x-wren-toolbarstatus":"1","X-Wren-ToolbarStatus":"0"})", false, false, false},  // exact spelling wins
      {R"({"X-Wren-ToolbarStatus":[1],"EnableAutomaticScan":{},"EnableManualScanner":null})", false, false, false}};
  for (const Case& c : cases) {
    Setting setting(nullptr, "");
    setting.setBAutoScanEnabled(true);  // an absent or unreadable key must switch a flag off
    applySettings(setting, Json::parse(c.settings));
    EXPECT_EQ(setting.bToolbarEnabled(), c.toolbar) << c.settings;
    EXPECT_EQ(setting.bAutoScanEnabled(), c.autoScan) << c.settings;
    EXPECT_EQ(setting.bManualScanEnabled(), c.manualScan) << c.settings;
  }
}

TEST(FillVeldrinConfigItemTest, AbsentSwitchesGoOffAndOnlyATextApiIsTaken) {
  VeldrinConfigItem item(nullptr, "https://builtin.test");
  item.setBShowTooltip(true);
  fillVeldrinConfigItem(item, Json::parse(R"({"ShowDCN":"1","ShowPromotion":"YES","ShowNewDCN":"no"})"));
  EXPECT_TRUE(item.bShowDCN() && item.bShowPromotion());
  EXPECT_FALSE(item.bShowNewDCN() || item.bShowTooltip() || item.bVeldrinEnabled());
  EXPECT_TRUE(item.bShowVeldrin());  // not read from this answer
  EXPECT_EQ(item.veldrinAPI(), "https://builtin.test");
  const std::pair<const char*, const char*> apis[] = {
      {R"("")", ""}, {R"("https://o.test")", "https://o.test"}, {"5", "https://o.test"}};
  for (auto [api, expected] : apis) {
    fillVeldrinConfigItem(item, Json{{"VeldrinAPI", Json::parse(api)}});
    EXPECT_EQ(item.veldrinAPI(), expected) << api;
  }
}

}  // namespace
}  // namespace wren::test

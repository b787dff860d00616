#include "server/setting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "server/veldrin_config_item.h"
#include "server/wren_browser_ext_server.h"
#include "service_fixture.h"
#include "util/defaults_store.h"

namespace wren {
namespace {

std::string fileText(const std::filesystem::path& p) {
  std::ifstream in(p);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

class SettingTest : public ::testing::Test {
 protected:
  SettingTest() : dir(test::makeTempDir()), file(dir / "defaults.json") {}
  ~SettingTest() override { std::filesystem::remove_all(dir); }
  std::filesystem::path dir, file;
};

TEST_F(SettingTest, FirstLaunchStartsFromDefaults) {
  DefaultsStore store(file);
  Setting setting(&store, "https://cloud.test");
  EXPECT_FALSE(setting.bToolbarEnabled());
  EXPECT_FALSE(setting.bAutoScanEnabled());
  EXPECT_FALSE(setting.bManualScanEnabled());
  const VeldrinConfigItem& item = setting.veldrinConfigItem();
  EXPECT_EQ(item.curEmail(), std::optional<std::string>(""));
  EXPECT_TRUE(item.bShowVeldrin());
  EXPECT_FALSE(item.bVeldrinEnabled());
  EXPECT_FALSE(item.bShowPromotion());
  EXPECT_FALSE(item.bShowDCN());
  EXPECT_FALSE(item.bShowNewDCN());
  EXPECT_FALSE(item.bShowTooltip());
  EXPECT_EQ(item.veldrinAPI(), "https://cloud.test");
  EXPECT_FALSE(store.stringForKey("curEmail"));
}

TEST_F(SettingTest, StoredAddressSurvivesRestart) {
  {
    DefaultsStore store(file);
    VeldrinConfigItem item(&store, "");
    item.setCurEmail("a@mail.test");
  }
  DefaultsStore store(file);
  VeldrinConfigItem item(&store, "");
  EXPECT_EQ(item.curEmail(), std::optional<std::string>("a@mail.test"));
}

TEST_F(SettingTest, SetCurEmailRules) {
  DefaultsStore store(file);
  VeldrinConfigItem item(&store, "");
  item.setCurEmail("a@mail.test");
  EXPECT_EQ(store.stringForKey("curEmail"), std::optional<std::string>("a@mail.test"));

  // "" changes the field only: the stored account comes back next launch.
  item.setCurEmail("");
  EXPECT_EQ(item.curEmail(), std::optional<std::string>(""));
  EXPECT_EQ(store.stringForKey("curEmail"), std::optional<std::string>("a@mail.test"));

  // Absent removes the stored entry.
  item.setCurEmail(std::nullopt);
  EXPECT_FALSE(item.curEmail());
  EXPECT_FALSE(store.stringForKey("curEmail"));
}

TEST_F(SettingTest, SameAddressWritesNothing) {
  DefaultsStore store(file);
  VeldrinConfigItem item(&store, "");
  item.setCurEmail("a@mail.test");
  // A layout no write of the store would produce: any write would show.
  const std::string handWritten = "{   \"curEmail\"  :  \"a@mail.test\"   }";
  std::ofstream(file) << handWritten;
  item.setCurEmail("a@mail.test");
  EXPECT_EQ(fileText(file), handWritten);
  item.setCurEmail("b@mail.test");
  EXPECT_NE(fileText(file), handWritten);
  EXPECT_EQ(store.stringForKey("curEmail"), std::optional<std::string>("b@mail.test"));
}

TEST_F(SettingTest, UnavailableStoreKeepsTheFieldOnly) {
  std::ofstream(dir / "plain-file") << "x";
  DefaultsStore store(dir / "plain-file" / "defaults.json");
  ASSERT_FALSE(store.available());
  VeldrinConfigItem item(&store, "");
  EXPECT_EQ(item.curEmail(), std::optional<std::string>(""));
  item.setCurEmail("a@mail.test");
  EXPECT_EQ(item.curEmail(), std::optional<std::string>("a@mail.test"));
  VeldrinConfigItem none(nullptr, "");
  none.setCurEmail("b@mail.test");
  EXPECT_EQ(none.curEmail(), std::optional<std::string>("b@mail.test"));
}

struct FlagsCase {
  const char* settings;
  bool toolbar, autoScan, manualScan;
};

class ApplySettingsTest : public ::testing::TestWithParam<FlagsCase> {};

TEST_P(ApplySettingsTest, ReadsEachFlagByItsTruthyValue) {
  Setting setting(nullptr, "");
  // Start from the opposite so that an absent key must switch a flag off.
  setting.setBToolbarEnabled(true);
  setting.setBAutoScanEnabled(true);
  setting.setBManualScanEnabled(true);
  applySettings(setting, Json::parse(GetParam().settings));
  EXPECT_EQ(setting.bToolbarEnabled(), GetParam().toolbar) << GetParam().settings;
  EXPECT_EQ(setting.bAutoScanEnabled(), GetParam().autoScan) << GetParam().settings;
  EXPECT_EQ(setting.bManualScanEnabled(), GetParam().manualScan) << GetParam().settings;
}

INSTANTIATE_TEST_SUITE_P(
    Table, ApplySettingsTest,
    ::testing::Values(
        FlagsCase{R"({})", false, false, false},
        FlagsCase{R"({"X-Wren-ToolbarStatus":"1","EnableAutomaticScan":true})", true, true, false},
        FlagsCase{R"({"X-Wren-ToolbarStatus":"false","EnableAutomaticScan":0,"EnableManualScanner":"yes"})", false,
                  false, true},
        FlagsCase{R"({"X-Wren-ToolbarStatus":"true","EnableAutomaticScan":"0","EnableManualScanner":"01"})", true,
                  false, true},
        // Proxies and HTTP/2 lower-case header names.
        FlagsCase{R"({"x-wren-toolbarstatus":"1"})", true, false, false},
        // The exact spelling wins over another one.
        FlagsCase{R"({"x-wren-toolbarstatus":"1","X-Wren-ToolbarStatus":"0"})", false, false, false},
        FlagsCase{R"({"EnableAutomaticScan":[1],"EnableManualScanner":null})", false, false, false}));

TEST(ClearSettingsTest, SwitchesEverythingOff) {
  Setting setting(nullptr, "");
  setting.setBToolbarEnabled(true);
  setting.setBAutoScanEnabled(true);
  setting.setBManualScanEnabled(true);
  clearSettings(setting);
  EXPECT_FALSE(setting.bToolbarEnabled());
  EXPECT_FALSE(setting.bAutoScanEnabled());
  EXPECT_FALSE(setting.bManualScanEnabled());
}

TEST(FillVeldrinConfigItemTest, FillsSwitchesAndKeepsAbsentApi) {
  VeldrinConfigItem item(nullptr, "https://builtin.test");
  item.setBShowTooltip(true);
  fillVeldrinConfigItem(item, Json::parse(R"({"EnableVeldrin":true,"ShowDCN":"1","ShowPromotion":"YES",
                                               "ShowNewDCN":"no"})"));
  EXPECT_TRUE(item.bVeldrinEnabled());
  EXPECT_TRUE(item.bShowDCN());
  EXPECT_TRUE(item.bShowPromotion());
  EXPECT_FALSE(item.bShowNewDCN());
  EXPECT_FALSE(item.bShowTooltip());  // absent switches off
  EXPECT_TRUE(item.bShowVeldrin());   // not read from this answer
  EXPECT_EQ(item.veldrinAPI(), "https://builtin.test");

  fillVeldrinConfigItem(item, Json::parse(R"({"VeldrinAPI":""})"));
  EXPECT_EQ(item.veldrinAPI(), "");
  fillVeldrinConfigItem(item, Json::parse(R"({"VeldrinAPI":"https://other.test"})"));
  EXPECT_EQ(item.veldrinAPI(), "https://other.test");
  fillVeldrinConfigItem(item, Json::parse(R"({"VeldrinAPI":5})"));
  EXPECT_EQ(item.veldrinAPI(), "https://other.test");
}

TEST(DefaultVeldrinApiTest, EnvironmentOverridesBuiltIn) {
  unsetenv("WREN_VELDRIN_API");
  const std::string builtIn = defaultVeldrinApi();
  EXPECT_EQ(builtIn.rfind("https://", 0), 0u);
  setenv("WREN_VELDRIN_API", "https://env.test", 1);
  EXPECT_EQ(defaultVeldrinApi(), "https://env.test");
  setenv("WREN_VELDRIN_API", "", 1);
  EXPECT_EQ(defaultVeldrinApi(), builtIn);
  unsetenv("WREN_VELDRIN_API");
}

}  // namespace
}  // namespace wren

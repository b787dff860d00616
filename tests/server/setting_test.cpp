// The settings record: the stored mail address and the mail-scan switches as
// the service's answers set them. The feature flags are pinned through the host.
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

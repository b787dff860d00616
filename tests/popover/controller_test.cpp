// The popover's row logic: appearance, toolbar state, clicks and the flags.
#include <gtest/gtest.h>

#include "popover_fixture.h"

namespace wren::test {
namespace {

struct Flags {
  bool toolbar, autoScan, manualScan;
};

class ViewDidAppearTest : public PopoverTest, public ::testing::WithParamInterface<Flags> {};

TEST_P(ViewDidAppearTest, RowsFollowTheFlags) {
  const Flags flags = GetParam();
  setting.setBToolbarEnabled(flags.toolbar);
  setting.setBAutoScanEnabled(flags.autoScan);
  setting.setBManualScanEnabled(flags.manualScan);
  view.btnVeldrin->setEnabled(true);
  // A previous showing may have left the toolbar in the other state.
  flags.toolbar ? controller.disableToolbar() : controller.enableToolbar();

  controller.viewWillAppear();
  controller.viewDidAppear();

  EXPECT_EQ(view.autoRatingCheck->isHidden(), !flags.autoScan);
  EXPECT_EQ(view.manualRatingCheck->isHidden(), !flags.manualScan);
  for (HoverButton* button : {view.btnAutoRating, view.btnManualRating, view.btnSettings, view.btnHelp}) {
    EXPECT_EQ(button->isEnabled(), flags.toolbar) << button->name();
  }
  for (Widget* label : {view.lblAutoRating, view.lblManualRating, view.lblSettings, view.lblHelp}) {
    EXPECT_EQ(label->textColor(), flags.toolbar ? TextColor::Color : TextColor::Grey) << label->name();
  }
  for (HoverButton* button :
       {view.btnAutoRating, view.btnManualRating, view.btnVeldrin, view.btnSettings, view.btnHelp}) {
    EXPECT_EQ(button->hasMouseEnterHandler(), flags.toolbar) << button->name();
    EXPECT_EQ(button->hasMouseExitHandler(), flags.toolbar) << button->name();
  }
  // The mail-scan row belongs to updateVeldrinSetting.
  EXPECT_TRUE(view.btnVeldrin->isEnabled());
  EXPECT_EQ(view.lblVeldrin->textColor(), TextColor::Color);
  EXPECT_NE(controller.layerAutoRating(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(AllFlagCombinations, ViewDidAppearTest,
                         ::testing::Values(Flags{false, false, false}, Flags{false, true, false},
                                           Flags{false, false, true}, Flags{false, true, true},
                                           Flags{true, false, false}, Flags{true, true, false},
                                           Flags{true, false, true}, Flags{true, true, true}));

TEST_F(PopoverTest, ViewWillAppearAlwaysShowsTheMailScanRowLayout) {
  view.viewVeldrin->setHidden(true);
  view.topToVeldrin->priority = 100.0f;
  view.topToManualRating->priority = 900.0f;
  controller.viewWillAppear();
  EXPECT_FALSE(view.viewVeldrin->isHidden());
  EXPECT_EQ(view.topToVeldrin->priority, 750.0f);
  EXPECT_EQ(view.topToManualRating->priority, 250.0f);
}

TEST_F(PopoverTest, EnableToolbarDoesNotRestoreGreyLabelsOrTouchTheMailScanButton) {
  controller.disableToolbar();
  view.btnVeldrin->setEnabled(false);
  controller.enableToolbar();
  EXPECT_EQ(view.lblAutoRating->textColor(), TextColor::Grey);
  EXPECT_TRUE(view.btnAutoRating->isEnabled());
  EXPECT_FALSE(view.btnVeldrin->isEnabled());
  EXPECT_TRUE(view.btnVeldrin->hasMouseEnterHandler());
}

TEST_F(PopoverTest, EveryOutletMayBeMissing) {
  for (auto* outlet : {&view.viewAutoRating, &view.viewManualRating, &view.viewVeldrin, &view.viewSettings,
                       &view.viewHelp, &view.autoRatingLayer, &view.manualRatingLayer, &view.veldrinLayer,
                       &view.settingLayer, &view.helpLayer}) {
    *outlet = nullptr;
  }
  for (auto* outlet : {&view.lblAutoRating, &view.lblManualRating, &view.lblVeldrin, &view.lblSettings,
                       &view.lblHelp, &view.autoRatingCheck, &view.manualRatingCheck, &view.veldrinCheck}) {
    *outlet = nullptr;
  }
  for (auto* outlet : {&view.btnAutoRating, &view.btnManualRating, &view.btnVeldrin, &view.btnSettings,
                       &view.btnHelp}) {
    *outlet = nullptr;
  }
  view.topToVeldrin = view.topToManualRating = nullptr;
  setting.setBToolbarEnabled(true);
  controller.viewWillAppear();
  controller.viewDidAppear();
  controller.disableToolbar();
  // Without a container a layer is zero-sized at the origin.
  ASSERT_NE(controller.layerHelp(), nullptr);
  EXPECT_EQ(controller.layerHelp()->bounds.width, 0);
  EXPECT_EQ(controller.layerHelp()->position.x, 0);
}

// --- Layers and hovering -------------------------------------------------

TEST_F(PopoverTest, LightLayersAreBuiltOnceAndKeepTheirColours) {
  controller.setAppearance(Appearance::Light);
  controller.viewDidAppear();
  GradientLayer* first = controller.layerVeldrin();
  ASSERT_NE(first, nullptr);
  controller.setAppearance(Appearance::Dark);
  controller.viewDidAppear();
  ASSERT_EQ(controller.layerVeldrin(), first);

  ASSERT_EQ(first->colors.size(), 2u);
  EXPECT_EQ(first->colors[0], LayerColor::rgb(240 / 255.0, 245 / 255.0, 252 / 255.0, 1.0));
  EXPECT_EQ(first->colors[1], LayerColor::rgb(224 / 255.0, 233 / 255.0, 244 / 255.0, 1.0));
  EXPECT_DOUBLE_EQ(first->colors[0].red, 0.9411764705882353);
  EXPECT_DOUBLE_EQ(first->borderColor.green, 0.8);
  EXPECT_EQ(first->borderColor, LayerColor::rgb(187 / 255.0, 204 / 255.0, 221 / 255.0, 1.0));
  EXPECT_EQ(first->borderWidth, 1.0);
  EXPECT_EQ(first->cornerRadius, 3.0);
  // Sized from the row's container, centred on it.
  const Rect bounds = view.viewVeldrin->bounds();
  EXPECT_EQ(first->bounds.width, bounds.width);
  EXPECT_EQ(first->bounds.height, bounds.height);
  EXPECT_EQ(first->position.x, bounds.width * 0.5);
  EXPECT_EQ(first->position.y, bounds.height * 0.5);
}

TEST_F(PopoverTest, DarkLayersUseTheHighlightColourWithTheSameBorder) {
  controller.setAppearance(Appearance::Dark);
  controller.viewDidAppear();
  for (GradientLayer* layer : {controller.layerAutoRating(), controller.layerManualRating(), controller.layerVeldrin(),
                               controller.layerSettings(), controller.layerHelp()}) {
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(layer->colors, std::vector<LayerColor>(2, LayerColor::highlightColor()));
    EXPECT_EQ(layer->borderColor, LayerColor::rgb(187 / 255.0, 204 / 255.0, 221 / 255.0));
    EXPECT_EQ(layer->borderWidth, 1.0);
    EXPECT_EQ(layer->cornerRadius, 3.0);
  }
}

TEST_F(PopoverTest, EachButtonHighlightsItsOwnRow) {
  setting.setBToolbarEnabled(true);
  controller.viewDidAppear();
  const std::pair<HoverButton*, std::pair<GradientLayer*, View*>> rows[] = {
      {view.btnAutoRating, {controller.layerAutoRating(), view.autoRatingLayer}},
      {view.btnManualRating, {controller.layerManualRating(), view.manualRatingLayer}},
      {view.btnVeldrin, {controller.layerVeldrin(), view.veldrinLayer}},
      {view.btnSettings, {controller.layerSettings(), view.settingLayer}},
      {view.btnHelp, {controller.layerHelp(), view.helpLayer}},
  };
  for (auto [button, target] : rows) {
    auto [layer, hoverView] = target;
    button->mouseEntered();
    button->mouseEntered();  // re-adding keeps one copy
    EXPECT_EQ(layer->superlayer(), hoverView->layer()) << button->name();
    EXPECT_EQ(hoverView->layer()->sublayers(), std::vector<GradientLayer*>{layer}) << button->name();
    button->mouseExited();
    EXPECT_EQ(layer->superlayer(), nullptr) << button->name();
    button->mouseExited();  // not shown: nothing happens
    EXPECT_TRUE(hoverView->layer()->sublayers().empty());
  }
}

TEST_F(PopoverTest, DisabledToolbarNeverHighlights) {
  setting.setBToolbarEnabled(false);
  controller.viewDidAppear();
  controller.addButtonMouseHoverEffect();  // handlers present, buttons disabled
  view.btnHelp->mouseEntered();
  EXPECT_EQ(controller.layerHelp()->superlayer(), nullptr);
}

TEST_F(PopoverTest, RemovingHandlersLeavesAShownHighlight) {
  setting.setBToolbarEnabled(true);
  controller.viewDidAppear();
  view.btnSettings->mouseEntered();
  controller.removeButtonMouseHoverEffect();
  view.btnSettings->mouseExited();
  EXPECT_EQ(controller.layerSettings()->superlayer(), view.settingLayer->layer());
  controller.layerSettings()->removeFromSuperlayer();
  EXPECT_TRUE(view.settingLayer->layer()->sublayers().empty());
}

TEST_F(PopoverTest, HandlersReadTheOutletsWhenTheyRun) {
  setting.setBToolbarEnabled(true);
  controller.viewDidAppear();
  view.veldrinLayer = nullptr;
  view.btnVeldrin->mouseEntered();
  EXPECT_EQ(controller.layerVeldrin()->superlayer(), nullptr);
}

// --- Clicks --------------------------------------------------------------

struct ToggleCase {
  bool autoRow;
  bool flagBefore;
  const char* expectedQuery[3];
};

class ToggleClickTest : public PopoverTest, public ::testing::WithParamInterface<ToggleCase> {};

TEST_P(ToggleClickTest, ServiceSeesTheOldValueThenTheRowFlips) {
  const ToggleCase& c = GetParam();
  Widget* check = c.autoRow ? view.autoRatingCheck : view.manualRatingCheck;
  auto flag = [&] { return c.autoRow ? setting.bAutoScanEnabled() : setting.bManualScanEnabled(); };
  c.autoRow ? setting.setBAutoScanEnabled(c.flagBefore) : setting.setBManualScanEnabled(c.flagBefore);
  check->setHidden(!c.flagBefore);

  loop.post([&] { c.autoRow ? controller.btnAutoRatingClicked() : controller.btnManualRatingClicked(); });
  runUntil([&] { return service.requestCount() >= 1 && dismissed > 0; });

  EXPECT_EQ(flag(), !c.flagBefore);
  EXPECT_EQ(check->isHidden(), c.flagBefore);
  EXPECT_EQ(dismissed, 1);
  const RecordedRequest request = service.requests().at(0);
  EXPECT_EQ(request.path, "/BrowserExt/command");
  for (const char* part : c.expectedQuery) EXPECT_NE(request.query.find(part), std::string::npos) << request.query;
}

INSTANTIATE_TEST_SUITE_P(
    BothScanRows, ToggleClickTest,
    ::testing::Values(ToggleCase{true, false, {"type=updateSetting", "name=EnableAutomaticScan", "value=true"}},
                      ToggleCase{true, true, {"type=updateSetting", "name=EnableAutomaticScan", "value=false"}},
                      ToggleCase{false, false, {"type=updateSetting", "name=EnableManualScanner", "value=true"}},
                      ToggleCase{false, true, {"type=updateSetting", "name=EnableManualScanner", "value=false"}}));

TEST_F(PopoverTest, PageRowsSendTheirCommandAndClose) {
  const std::pair<void (SafariExtensionViewController::*)(HoverButton*), const char*> rows[] = {
      {&SafariExtensionViewController::btnSettingsClicked, "type=showToolbarUI"},
      {&SafariExtensionViewController::btnHelpClicked, "type=showToolbarHelp"},
  };
  for (auto [click, query] : rows) {
    service.clear();
    dismissed = 0;
    loop.post([&, click = click] { (controller.*click)(nullptr); });
    runUntil([&] { return service.requestCount() >= 1; });
    EXPECT_EQ(service.requests().at(0).query, query);
    EXPECT_EQ(dismissed, 1);
  }
}

TEST_F(PopoverTest, MailScanClickOnlyAsksThePage) {
  server.setBrowser(&browser);
  setting.veldrinConfigItem().setCurEmail("alice@example.com");
  setting.veldrinConfigItem().setBVeldrinEnabled(false);
  view.veldrinCheck->setHidden(true);
  loop.post([&] { controller.btnVeldrinClicked(); });
  runUntil([&] { return dismissed > 0; });
  ASSERT_EQ(browser.messages.size(), 1u);
  EXPECT_EQ(browser.messages[0].name, "vd_popoverClicked");
  EXPECT_EQ(browser.messages[0].userInfo, Json::object());
  EXPECT_TRUE(view.veldrinCheck->isHidden());
  EXPECT_FALSE(setting.veldrinConfigItem().bVeldrinEnabled());
}

TEST_F(PopoverTest, DestroyedControllerNoLongerClosesThePopover) {
  {
    SafariExtensionViewController second(setting, server, loop, &browser, strings);
    second.setDismissHandler([this] { dismissed += 100; });
  }
  loop.post([&] { server.showHelpPage(); });
  runUntil([&] { return service.requestCount() >= 1; });
  EXPECT_EQ(dismissed, 0);
}

// --- Settings load -------------------------------------------------------

struct SettingsCase {
  const char* body;
  const char* toolbarHeader;  // nullptr: absent
  Flags expected;
};

class UpdateSettingsTest : public PopoverTest, public ::testing::WithParamInterface<SettingsCase> {};

TEST_P(UpdateSettingsTest, FlagsComeFromHeadersAndBody) {
  const SettingsCase& c = GetParam();
  service.setHandler([c](const httplib::Request&, httplib::Response& res) {
    if (c.toolbarHeader) res.set_header("X-Wren-ToolbarStatus", c.toolbarHeader);
    res.set_content(c.body, "application/json");
  });
  // Start from the opposite, so the answer's arrival is visible.
  setting.setBToolbarEnabled(!c.expected.toolbar);
  setting.setBAutoScanEnabled(!c.expected.autoScan);
  setting.setBManualScanEnabled(!c.expected.manualScan);

  loop.post([&] { controller.updateSettings(); });
  runUntil([&] {
    return setting.bToolbarEnabled() == c.expected.toolbar && setting.bAutoScanEnabled() == c.expected.autoScan &&
           setting.bManualScanEnabled() == c.expected.manualScan;
  });
  EXPECT_EQ(service.requests().at(0).target, "/BrowserExt/setting?type=extension");
}

INSTANTIATE_TEST_SUITE_P(
    Answers, UpdateSettingsTest,
    ::testing::Values(SettingsCase{R"({"EnableAutomaticScan":"1","EnableManualScanner":"false"})", nullptr,
                                   {false, true, false}},
                      SettingsCase{R"({"EnableAutomaticScan":0,"EnableManualScanner":"YES"})", "true",
                                   {true, false, true}},
                      SettingsCase{R"({})", "0", {false, false, false}},
                      // A body key wins over a header of the same name.
                      SettingsCase{R"({"X-Wren-ToolbarStatus":"no","EnableManualScanner":"01"})", "true",
                                   {false, false, true}}));

TEST_F(PopoverTest, FailedSettingsLoadGreysThePopoverAtTheNextShowing) {
  service.respond(500, "application/json", "{}");
  setting.setBToolbarEnabled(true);
  setting.setBAutoScanEnabled(true);
  setting.setBManualScanEnabled(true);
  loop.post([&] { controller.updateSettings(); });
  runUntil([&] { return !setting.bToolbarEnabled() && !setting.bAutoScanEnabled() && !setting.bManualScanEnabled(); });

  controller.viewWillAppear();
  controller.viewDidAppear();
  EXPECT_TRUE(view.autoRatingCheck->isHidden());
  EXPECT_TRUE(view.manualRatingCheck->isHidden());
  EXPECT_FALSE(view.btnHelp->isEnabled());
  EXPECT_EQ(view.lblHelp->textColor(), TextColor::Grey);
}

}  // namespace
}  // namespace wren::test

#include "popover/popover_state.h"

#include <gtest/gtest.h>

#include "popover_fixture.h"

namespace wren::test {
namespace {

TEST_F(PopoverTest, StateHoldsEveryOutletConstraintAndLayer) {
  Json before = popoverState(controller);
  EXPECT_EQ(before["layers"]["layerHelp"], (Json{{"built", false}}));
  EXPECT_EQ(before["outlets"].size(), 23u);

  setting.setBToolbarEnabled(true);
  setting.setBAutoScanEnabled(true);
  controller.viewWillAppear();
  controller.viewDidAppear();
  view.btnAutoRating->mouseEntered();
  view.veldrinCheck = nullptr;

  const Json state = popoverState(controller);
  EXPECT_EQ(state["appearance"], "light");
  EXPECT_EQ(state["constraints"], (Json{{"topToVeldrin", 750.0}, {"topToManualRating", 250.0}}));
  EXPECT_EQ(state["outlets"]["veldrinCheck"], nullptr);
  EXPECT_EQ(state["outlets"]["autoRatingCheck"], (Json{{"kind", "check"}, {"hidden", false}}));
  EXPECT_EQ(state["outlets"]["btnHelp"], (Json{{"kind", "button"}, {"hidden", false}, {"enabled", true}, {"hover", true}}));
  EXPECT_EQ(state["outlets"]["lblAutoRating"]["textColor"], "Color");
  EXPECT_EQ(state["outlets"]["lblAutoRating"]["text"], "Automatic scan");
  EXPECT_EQ(state["outlets"]["lblAutoRating"]["toolTip"], nullptr);
  EXPECT_EQ(state["outlets"]["helpLayer"]["kind"], "view");

  const Json& layer = state["layers"]["layerAutoRating"];
  EXPECT_EQ(layer["attachedTo"], "autoRatingLayer");
  EXPECT_EQ(state["layers"]["layerHelp"]["attachedTo"], nullptr);
  EXPECT_EQ(layer["colors"][0], (Json::array({240 / 255.0, 245 / 255.0, 252 / 255.0, 1.0})));
  EXPECT_EQ(layer["borderColor"], (Json::array({187 / 255.0, 204 / 255.0, 221 / 255.0, 1.0})));
  EXPECT_EQ(layer["borderWidth"], 1.0);
  EXPECT_EQ(layer["cornerRadius"], 3.0);
}

TEST_F(PopoverTest, DarkLayersSerialiseTheHighlightToken) {
  controller.setAppearance(Appearance::Dark);
  controller.viewDidAppear();
  const Json state = popoverState(controller);
  EXPECT_EQ(state["appearance"], "dark");
  EXPECT_EQ(state["layers"]["layerVeldrin"]["colors"], (Json::array({"highlightColor", "highlightColor"})));
}

TEST_F(PopoverTest, ChangesAreReported) {
  int changes = 0;
  controller.setOnChange([&] { ++changes; });
  setting.setBToolbarEnabled(true);
  controller.viewWillAppear();
  controller.viewDidAppear();
  EXPECT_GT(changes, 0);
  changes = 0;
  controller.viewWillAppear();
  controller.viewDidAppear();  // nothing new to show
  EXPECT_EQ(changes, 0);
  view.btnHelp->mouseEntered();
  EXPECT_EQ(changes, 1);
}

TEST_F(PopoverTest, DescribeRendersOneLineARow) {
  setting.setBToolbarEnabled(false);
  setting.setBAutoScanEnabled(true);
  controller.viewDidAppear();
  view.lblVeldrin->setTextColor(TextColor::Grey);
  view.lblVeldrin->setToolTip("Works for Gmail and Yahoo Mail when you are signed in.");
  view.veldrinCheck->setHidden(true);
  EXPECT_EQ(describePopover(popoverState(controller)),
            "[x] Automatic scan (greyed)\n"
            "[ ] Manual rating (greyed)\n"
            "[ ] Veldrin Scam Scanner (greyed) - \"Works for Gmail and Yahoo Mail when you are signed in.\"\n"
            "    Settings (greyed)\n"
            "    Help (greyed)\n");

  setting.setBToolbarEnabled(true);
  controller.viewDidAppear();
  view.btnHelp->mouseEntered();
  view.btnVeldrin->setEnabled(false);
  view.lblSettings = nullptr;
  EXPECT_EQ(describePopover(popoverState(controller)),
            "[x] Automatic scan\n"
            "[ ] Manual rating\n"
            "[ ] Veldrin Scam Scanner (disabled) - \"Works for Gmail and Yahoo Mail when you are signed in.\"\n"
            "    lblSettings\n"
            "    Help (highlighted)\n");
}

TEST(DescribePopoverTest, SurvivesMalformedState) {
  EXPECT_EQ(describePopover(Json()), "(no popover state)\n");
  EXPECT_EQ(describePopover(Json{{"rows", Json::array({1, "x", Json::object()})}}), "    \n    \n    \n");
}

}  // namespace
}  // namespace wren::test

// The popover's orders against the widget model: what each call leaves on
// the rows, which layer each button lights, what survives missing parts, and
// the model's own rules. Rows against the service's flags, clicks and colours
// are pinned end to end through the host.
#include "popover/popover_state.h"
#include "popover_fixture.h"

namespace wren::test {
namespace {

TEST_F(PopoverTest, EnableToolbarDoesNotRestoreGreyLabelsOrTouchTheMailScanButton) {
  controller.disableToolbar();
  view.btnVeldrin->setEnabled(false);
  controller.enableToolbar();
  EXPECT_EQ(view.lblAutoRating->textColor(), TextColor::Grey);
  EXPECT_TRUE(view.btnAutoRating->isEnabled());
  EXPECT_FALSE(view.btnVeldrin->isEnabled());
}

TEST_F(PopoverTest, EachButtonLightsItsOwnRowAndReadsTheOutletsWhenItRuns) {
  setting.setBToolbarEnabled(true);
  controller.viewDidAppear();
  const std::tuple<HoverButton*, GradientLayer*, View*> rows[] = {
      {view.btnAutoRating, controller.layer("layerAutoRating"), view.autoRatingLayer},
      {view.btnManualRating, controller.layer("layerManualRating"), view.manualRatingLayer},
      {view.btnVeldrin, controller.layer("layerVeldrin"), view.veldrinLayer},
      {view.btnSettings, controller.layer("layerSettings"), view.settingLayer},
      {view.btnHelp, controller.layer("layerHelp"), view.helpLayer}};
  for (auto [button, layer, target] : rows) {
    button->mouseEntered();
    button->mouseEntered();  // shown once
    EXPECT_EQ(target->layer()->sublayers(), std::vector<GradientLayer*>{layer}) << button->name();
    button->mouseExited();
    EXPECT_TRUE(target->layer()->sublayers().empty()) << button->name();
  }
  // Removing the handlers leaves a shown highlight where it is.
  view.btnSettings->mouseEntered();
  controller.removeButtonMouseHoverEffect();
  view.btnSettings->mouseExited();
  EXPECT_EQ(controller.layer("layerSettings")->superlayer(), view.settingLayer->layer());
  controller.addButtonMouseHoverEffect();
  view.veldrinLayer = nullptr;
  view.btnVeldrin->mouseEntered();
  EXPECT_EQ(controller.layer("layerVeldrin")->superlayer(), nullptr);
}

TEST_F(PopoverTest, LayersAreSizedFromTheirRowAndSurviveMissingOutlets) {
  controller.viewDidAppear();
  const Rect bounds = view.viewVeldrin->bounds();
  GradientLayer* layer = controller.layer("layerVeldrin");
  EXPECT_EQ(std::tuple(layer->bounds.width, layer->bounds.height, layer->position.x, layer->position.y),
            std::tuple(bounds.width, bounds.height, bounds.width * 0.5, bounds.height * 0.5));

  SafariExtensionViewController bare(setting, server, loop, &browser, strings);
  PopoverView& v = bare.view();
  for (View** o : {&v.viewAutoRating, &v.viewManualRating, &v.viewVeldrin, &v.viewSettings, &v.viewHelp,
                   &v.autoRatingLayer, &v.manualRatingLayer, &v.veldrinLayer, &v.settingLayer, &v.helpLayer})
    *o = nullptr;
  for (Widget** o : {&v.lblAutoRating, &v.lblManualRating, &v.lblVeldrin, &v.lblSettings, &v.lblHelp,
                     &v.autoRatingCheck, &v.manualRatingCheck, &v.veldrinCheck})
    *o = nullptr;
  for (HoverButton** o : {&v.btnAutoRating, &v.btnManualRating, &v.btnVeldrin, &v.btnSettings, &v.btnHelp})
    *o = nullptr;
  v.topToVeldrin = v.topToManualRating = nullptr;
  setting.setBToolbarEnabled(true);
  bare.viewWillAppear();
  bare.viewDidAppear();
  bare.disableToolbar();
  bare.btnAutoRatingClicked();
  describePopover(popoverState(bare));
  EXPECT_EQ(bare.layer("layerHelp")->bounds.width, 0);  // no container: zero-sized at the origin
}

TEST_F(PopoverTest, OnlyRealChangesAreReported) {
  int changes = 0;
  controller.setOnChange([&] { ++changes; });
  setting.setBToolbarEnabled(true);
  controller.viewWillAppear();
  controller.viewDidAppear();
  changes = 0;
  controller.viewWillAppear();
  controller.viewDidAppear();  // nothing new to show
  EXPECT_EQ(changes, 0);
  view.btnHelp->mouseEntered();
  EXPECT_EQ(changes, 1);
}

TEST_F(PopoverTest, DescribeRendersOneLineARow) {
  setting.setBToolbarEnabled(true);
  setting.setBAutoScanEnabled(true);
  controller.viewDidAppear();
  view.lblVeldrin->setToolTip("tip");
  view.veldrinCheck->setHidden(true);
  view.btnHelp->mouseEntered();
  view.btnVeldrin->setEnabled(false);
  view.lblSettings = nullptr;
  EXPECT_EQ(describePopover(popoverState(controller)),
            "[x] Automatic scan\n[ ] Manual rating\n[ ] Veldrin Scam Scanner (disabled) - \"tip\"\n"
            "    lblSettings\n    Help (highlighted)\n");
  EXPECT_EQ(describePopover(Json()), "(no popover state)\n");
}

TEST(HoverButtonTest, UpdateTrackingAreasKeepsExactlyOneOverTheFrame) {
  HoverButton button("btn", nullptr);
  button.setFrame({4, 30, 260, 30});
  for (int i = 0; i < 3; ++i) button.updateTrackingAreas();
  ASSERT_EQ(button.trackingAreas().size(), 1u);
  EXPECT_EQ(button.trackArea()->options, 0x281u);  // entered and exited, always active, in the visible rect
  EXPECT_EQ(button.trackingAreas()[0]->rect.y, 30);  // the frame, not the bounds
}

TEST(LayerTest, EitherSideMayGoFirst) {
  auto layer = std::make_unique<GradientLayer>();
  {
    View view("v", nullptr, true);
    view.layer()->addSublayer(layer.get());
  }
  EXPECT_EQ(layer->superlayer(), nullptr);
  View view("v", nullptr, true);
  view.layer()->addSublayer(layer.get());
  layer.reset();
  EXPECT_TRUE(view.layer()->sublayers().empty());
}

}  // namespace
}  // namespace wren::test

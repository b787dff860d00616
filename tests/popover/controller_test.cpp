// The popover's widget model: which layer each button lights and how it is
// sized, and lifetimes that may end in either order. Rows against the
// service's flags, clicks, colours and the printed rows are pinned end to end
// through the host.
#include "popover_fixture.h"

namespace wren::test {
namespace {

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

TEST_F(PopoverTest, LayersAreSizedFromTheirRow) {
  controller.viewDidAppear();
  const Rect bounds = view.viewVeldrin->bounds();
  GradientLayer* layer = controller.layer("layerVeldrin");
  EXPECT_EQ(std::tuple(layer->bounds.width, layer->bounds.height, layer->position.x, layer->position.y),
            std::tuple(bounds.width, bounds.height, bounds.width * 0.5, bounds.height * 0.5));
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

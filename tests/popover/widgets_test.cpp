#include <gtest/gtest.h>

#include "popover/gradient_layer.h"
#include "popover/hover_button.h"
#include "popover/view.h"

namespace wren {
namespace {

TEST(HoverButtonTest, HandlersRunOnlyWhileEnabled) {
  HoverButton button("btn", nullptr);
  int entered = 0, exited = 0;
  button.mouseEntered();  // no handler: nothing
  button.setMouseEnterHandler([&] { ++entered; });
  button.setMouseExitHandler([&] { ++exited; });
  button.setEnabled(false);
  button.mouseEntered();
  button.mouseExited();
  EXPECT_EQ(entered + exited, 0);
  button.setEnabled(true);
  button.mouseEntered();
  button.mouseExited();
  EXPECT_EQ(entered, 1);
  EXPECT_EQ(exited, 1);
  button.setMouseEnterHandler(nullptr);
  button.mouseEntered();
  EXPECT_EQ(entered, 1);
  EXPECT_FALSE(button.hasMouseEnterHandler());
  EXPECT_TRUE(button.hasMouseExitHandler());
}

TEST(HoverButtonTest, UpdateTrackingAreasKeepsExactlyOneOverTheFrame) {
  HoverButton button("btn", nullptr);
  button.setFrame({4, 30, 260, 30});
  for (int i = 0; i < 3; ++i) button.updateTrackingAreas();
  ASSERT_EQ(button.trackingAreas().size(), 1u);
  EXPECT_EQ(button.trackingAreas()[0], button.trackArea());
  EXPECT_EQ(button.trackArea()->options, 0x281u);
  EXPECT_EQ(button.trackArea()->rect.x, 4);
  EXPECT_EQ(button.trackArea()->rect.y, 30);
  EXPECT_EQ(button.trackArea()->rect.width, 260);
}

TEST(HoverButtonTest, TextColourRecoloursTheTitleOnly) {
  HoverButton button("btn", nullptr);
  button.setText("Help");
  button.setTextColor(TextColor::Grey);
  EXPECT_EQ(button.textColor(), TextColor::Grey);
  EXPECT_EQ(button.text(), "Help");
}

TEST(LayerTest, AttachingTwiceKeepsOneAndMovingDetachesFromTheOldParent) {
  ChangeSignal signal;
  int changes = 0;
  signal.setHandler([&] { ++changes; });
  View a("a", &signal, true), b("b", &signal, true);
  GradientLayer layer(&signal), other(&signal);
  a.layer()->addSublayer(&layer);
  a.layer()->addSublayer(&layer);
  EXPECT_EQ(a.layer()->sublayers().size(), 1u);
  EXPECT_EQ(changes, 1);
  a.layer()->addSublayer(&other);
  a.layer()->addSublayer(&layer);  // moves to the top
  EXPECT_EQ(a.layer()->sublayers(), (std::vector<GradientLayer*>{&other, &layer}));
  b.layer()->addSublayer(&layer);
  EXPECT_EQ(a.layer()->sublayers(), std::vector<GradientLayer*>{&other});
  EXPECT_EQ(layer.superlayer(), b.layer());
  EXPECT_EQ(layer.superlayer()->ownerName(), "b");
  const int before = changes;
  other.removeFromSuperlayer();
  other.removeFromSuperlayer();
  EXPECT_EQ(changes, before + 1);
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
  EXPECT_EQ(View("plain", nullptr, false).layer(), nullptr);
}

TEST(WidgetTest, ReportsOnlyRealChanges) {
  ChangeSignal signal;
  int changes = 0;
  signal.setHandler([&] { ++changes; });
  Label label("lbl", &signal);
  label.setHidden(false);
  label.setTextColor(TextColor::Label);
  label.setToolTip(std::nullopt);
  EXPECT_EQ(changes, 0);
  label.setToolTip("tip");
  label.setTextColor(TextColor::Grey);
  label.setHidden(true);
  EXPECT_EQ(changes, 3);
  EXPECT_EQ(colorNamed("Color"), TextColor::Color);
  EXPECT_EQ(colorNamed("Colour"), std::nullopt);
}

}  // namespace
}  // namespace wren

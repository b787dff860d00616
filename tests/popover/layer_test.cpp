// The hover layer and the view it lights: lifetimes that may end in either
// order. Which layer each button lights, its size and colours, and rows
// against the service's flags are pinned end to end through the host.
#include <gtest/gtest.h>

#include <memory>

#include "popover/gradient_layer.h"
#include "popover/view.h"

namespace wren {
namespace {

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
}  // namespace wren

// SafariExtensionViewController: the rows' hover highlights.
#include "popover/safari_extension_view_controller.h"

namespace wren {
namespace {

constexpr double kByte = 255.0;
// The light highlight runs from #F0F5FC to #E0E9F4; in the dark appearance
// both stops are the system highlight colour.
const LayerColor kLightFirstStop = LayerColor::rgb(240 / kByte, 245 / kByte, 252 / kByte);
const LayerColor kLightSecondStop = LayerColor::rgb(224 / kByte, 233 / kByte, 244 / kByte);
// Border #BBCCDD in both appearances.
const LayerColor kBorderColor = LayerColor::rgb(187 / kByte, 204 / kByte, 221 / kByte);
constexpr double kBorderWidth = 1.0;
constexpr double kCornerRadius = 3.0;

}  // namespace

std::unique_ptr<GradientLayer> SafariExtensionViewController::createLayerWithView(const View* view) {
  auto layer = std::make_unique<GradientLayer>(&view_.changeSignal());
  if (isDarkMode()) {
    layer->colors = {LayerColor::highlightColor(), LayerColor::highlightColor()};
  } else {
    layer->colors = {kLightFirstStop, kLightSecondStop};
  }
  if (view) {
    const Rect bounds = view->bounds();
    layer->bounds = bounds;
    layer->position = {bounds.width * 0.5, bounds.height * 0.5};
  }
  layer->borderColor = kBorderColor;
  layer->borderWidth = kBorderWidth;
  layer->cornerRadius = kCornerRadius;
  return layer;
}

void SafariExtensionViewController::initializeLayer() {
  // Mail scan second, as the rows were added to the popover.
  const std::pair<std::unique_ptr<GradientLayer>*, View*> rows[] = {
      {&layerAutoRating_, view_.viewAutoRating}, {&layerVeldrin_, view_.viewVeldrin},
      {&layerManualRating_, view_.viewManualRating}, {&layerSettings_, view_.viewSettings},
      {&layerHelp_, view_.viewHelp}};
  bool built = false;
  for (auto [layer, container] : rows) {
    if (*layer) continue;
    *layer = createLayerWithView(container);
    built = true;
  }
  if (built) view_.changeSignal().notify();
}

void SafariExtensionViewController::installHover(HoverButton* button,
                                                 std::unique_ptr<GradientLayer> SafariExtensionViewController::*layer,
                                                 View* PopoverView::*target) {
  if (!button) return;
  // The layer was sized from the row's container but goes onto the hover
  // target; the two are laid out with the same size.
  button->setMouseEnterHandler([this, layer, target] {
    GradientLayer* highlight = (this->*layer).get();
    View* view = view_.*target;
    if (highlight && view && view->layer()) view->layer()->addSublayer(highlight);
  });
  button->setMouseExitHandler([this, layer] {
    if (GradientLayer* highlight = (this->*layer).get()) highlight->removeFromSuperlayer();
  });
}

void SafariExtensionViewController::addButtonMouseHoverEffect() {
  using C = SafariExtensionViewController;
  installHover(view_.btnAutoRating, &C::layerAutoRating_, &PopoverView::autoRatingLayer);
  installHover(view_.btnManualRating, &C::layerManualRating_, &PopoverView::manualRatingLayer);
  installHover(view_.btnVeldrin, &C::layerVeldrin_, &PopoverView::veldrinLayer);
  installHover(view_.btnSettings, &C::layerSettings_, &PopoverView::settingLayer);
  installHover(view_.btnHelp, &C::layerHelp_, &PopoverView::helpLayer);
}

void SafariExtensionViewController::removeButtonMouseHoverEffect() {
  // A highlight shown now stays until something removes its layer.
  for (HoverButton* button :
       {view_.btnAutoRating, view_.btnManualRating, view_.btnVeldrin, view_.btnSettings, view_.btnHelp}) {
    if (!button) continue;
    button->setMouseEnterHandler(nullptr);
    button->setMouseExitHandler(nullptr);
  }
}

}  // namespace wren

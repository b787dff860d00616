// SafariExtensionViewController: the rows' hover highlights.
#include "popover/popover_rows.h"
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
  const auto rows = popoverRows();
  bool built = false;
  for (size_t i = 0; i < rows.size(); ++i) {
    if (layers_[i]) continue;
    layers_[i] = createLayerWithView(view_.*rows[i].containerOutlet);
    built = true;
  }
  if (built) view_.changeSignal().notify();
}

void SafariExtensionViewController::installHover(size_t row) {
  const PopoverRow& entry = popoverRows()[row];
  HoverButton* button = view_.*entry.buttonOutlet;
  if (!button) return;
  // The layer was sized from the row's container but goes onto the hover
  // target; the two are laid out with the same size.
  button->setMouseEnterHandler([this, row, target = entry.hoverTargetOutlet] {
    GradientLayer* highlight = layers_[row].get();
    View* view = view_.*target;
    if (highlight && view && view->layer()) view->layer()->addSublayer(highlight);
  });
  button->setMouseExitHandler([this, row] {
    if (GradientLayer* highlight = layers_[row].get()) highlight->removeFromSuperlayer();
  });
}

void SafariExtensionViewController::addButtonMouseHoverEffect() {
  for (size_t row = 0; row < popoverRows().size(); ++row) installHover(row);
}

void SafariExtensionViewController::removeButtonMouseHoverEffect() {
  // A highlight shown now stays until something removes its layer.
  for (const PopoverRow& row : popoverRows()) {
    HoverButton* button = view_.*row.buttonOutlet;
    if (!button) continue;
    button->setMouseEnterHandler(nullptr);
    button->setMouseExitHandler(nullptr);
  }
}

}  // namespace wren

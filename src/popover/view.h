#pragma once
// A container or hover-target view of the popover: a widget with bounds and,
// when it wants one, a backing layer that hover highlights attach to.
//
// Runs on the main run loop; owned by PopoverView.
#include <memory>

#include "popover/gradient_layer.h"
#include "popover/widgets.h"

namespace wren {

class View : public Widget {
 public:
  View(std::string name, ChangeSignal* signal, bool wantsLayer)
      : Widget(WidgetKind::View, name, signal),
        layer_(wantsLayer ? std::make_unique<BackingLayer>(std::move(name), signal) : nullptr) {}

  // The view's own coordinates: origin (0, 0), the frame's size.
  Rect bounds() const { return {0, 0, frame().width, frame().height}; }
  // Null for a view without a backing layer.
  BackingLayer* layer() const { return layer_.get(); }

 private:
  std::unique_ptr<BackingLayer> layer_;
};

}  // namespace wren

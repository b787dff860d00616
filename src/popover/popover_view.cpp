#include "popover/popover_view.h"

#include <string>

#include "popover/popover_rows.h"
#include "popover/strings.h"

namespace wren {
namespace {

// The popover's geometry: one column of equal rows.
constexpr double kRowWidth = 260.0;
constexpr double kRowHeight = 30.0;

}  // namespace

template <typename T>
T* PopoverView::make(std::string_view name, auto&&... args) {
  auto widget = std::make_unique<T>(std::string(name), &signal_, std::forward<decltype(args)>(args)...);
  T* raw = widget.get();
  widgets_.push_back(std::move(widget));
  return raw;
}

PopoverView::PopoverView(const Strings& strings) {
  double top = 0;
  for (const PopoverRow& row : popoverRows()) {
    const Rect rowFrame{0, top, kRowWidth, kRowHeight};
    top += kRowHeight;
    View* container = make<View>(row.container, false);
    container->setFrame(rowFrame);
    this->*row.containerOutlet = container;
    // The hover target lies over the container with the same size: the
    // highlight is sized from one and attached to the other.
    View* target = make<View>(row.hoverTarget, true);
    target->setFrame({0, 0, kRowWidth, kRowHeight});
    this->*row.hoverTargetOutlet = target;
    Widget* label = make<Label>(row.label);
    label->setText(strings.localizedStringForKey(row.titleKey, row.title, kPopoverStringsTable));
    this->*row.labelOutlet = label;
    if (row.checkOutlet) {
      Widget* check = make<ImageView>(row.check);
      check->setHidden(true);  // unknown until the flags are shown
      this->*row.checkOutlet = check;
    }
    HoverButton* button = make<HoverButton>(row.button);
    button->setFrame(rowFrame);
    this->*row.buttonOutlet = button;
  }
  topToVeldrin = &constraints_[0];
  topToManualRating = &constraints_[1];
}

}  // namespace wren

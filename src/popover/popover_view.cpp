#include "popover/popover_view.h"

#include <string>

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
  struct RowOutlets {
    const char *view, *label, *check, *button, *target, *titleKey, *title;
  };
  const RowOutlets outlets[] = {
      {"viewAutoRating", "lblAutoRating", "autoRatingCheck", "btnAutoRating", "autoRatingLayer", "lblAutoRating.title",
       "Automatic scan"},
      {"viewManualRating", "lblManualRating", "manualRatingCheck", "btnManualRating", "manualRatingLayer",
       "lblManualRating.title", "Manual rating"},
      {"viewVeldrin", "lblVeldrin", "veldrinCheck", "btnVeldrin", "veldrinLayer", "OBL-2U-6Ke.title",
       "Veldrin Scam Scanner"},
      {"viewSettings", "lblSettings", nullptr, "btnSettings", "settingLayer", "lblSettings.title", "Settings"},
      {"viewHelp", "lblHelp", nullptr, "btnHelp", "helpLayer", "lblHelp.title", "Help"},
  };
  View** views[] = {&viewAutoRating, &viewManualRating, &viewVeldrin, &viewSettings, &viewHelp};
  Widget** labels[] = {&lblAutoRating, &lblManualRating, &lblVeldrin, &lblSettings, &lblHelp};
  Widget** checks[] = {&autoRatingCheck, &manualRatingCheck, &veldrinCheck, nullptr, nullptr};
  HoverButton** buttons[] = {&btnAutoRating, &btnManualRating, &btnVeldrin, &btnSettings, &btnHelp};
  View** targets[] = {&autoRatingLayer, &manualRatingLayer, &veldrinLayer, &settingLayer, &helpLayer};

  for (size_t i = 0; i < std::size(outlets); ++i) {
    const RowOutlets& o = outlets[i];
    const Rect rowFrame{0, kRowHeight * static_cast<double>(i), kRowWidth, kRowHeight};
    const Rect inRow{0, 0, kRowWidth, kRowHeight};
    View* row = make<View>(o.view, false);
    row->setFrame(rowFrame);
    *views[i] = row;
    // The hover target lies over the container with the same size: the
    // highlight is sized from one and attached to the other.
    View* target = make<View>(o.target, true);
    target->setFrame(inRow);
    *targets[i] = target;
    Widget* label = make<Label>(o.label);
    label->setText(strings.localizedStringForKey(o.titleKey, o.title, kPopoverStringsTable));
    *labels[i] = label;
    if (o.check) {
      Widget* check = make<ImageView>(o.check);
      check->setHidden(true);  // unknown until the flags are shown
      *checks[i] = check;
    }
    HoverButton* button = make<HoverButton>(o.button);
    button->setFrame(rowFrame);
    *buttons[i] = button;
  }
  topToVeldrin = &constraints_[0];
  topToManualRating = &constraints_[1];
}

std::array<PopoverRow, 5> popoverRows(const PopoverView& v) {
  return {{
      {"viewAutoRating", "lblAutoRating", "autoRatingCheck", "btnAutoRating", "autoRatingLayer", "layerAutoRating",
       v.viewAutoRating, v.lblAutoRating, v.autoRatingCheck, v.btnAutoRating, v.autoRatingLayer},
      {"viewManualRating", "lblManualRating", "manualRatingCheck", "btnManualRating", "manualRatingLayer",
       "layerManualRating", v.viewManualRating, v.lblManualRating, v.manualRatingCheck, v.btnManualRating,
       v.manualRatingLayer},
      {"viewVeldrin", "lblVeldrin", "veldrinCheck", "btnVeldrin", "veldrinLayer", "layerVeldrin", v.viewVeldrin,
       v.lblVeldrin, v.veldrinCheck, v.btnVeldrin, v.veldrinLayer},
      {"viewSettings", "lblSettings", "", "btnSettings", "settingLayer", "layerSettings", v.viewSettings,
       v.lblSettings, nullptr, v.btnSettings, v.settingLayer},
      {"viewHelp", "lblHelp", "", "btnHelp", "helpLayer", "layerHelp", v.viewHelp, v.lblHelp, nullptr, v.btnHelp,
       v.helpLayer},
  }};
}

}  // namespace wren

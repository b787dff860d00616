#pragma once
// The popover's view hierarchy: a row of container view, label, check mark,
// button and hover-target view for each line of the row table
// (popover_rows.h), and the two constraints around the mail-scan row. It owns every widget; the public members are the outlets,
// non-owning and nullable like the platform's weak outlets (a test may null
// any of them, and every operation on a null outlet must then do nothing).
//
// Runs on the main run loop.
#include <array>
#include <memory>
#include <string_view>
#include <vector>

#include "popover/hover_button.h"
#include "popover/view.h"
#include "popover/widgets.h"

namespace wren {

class Strings;

// The table holding the row titles; its name is the controller's class name.
inline constexpr std::string_view kPopoverStringsTable = "SafariExtensionViewController";
// The mail-scan row title's key in that table (also the row's tooltip).
inline constexpr std::string_view kVeldrinRowTitleKey = "OBL-2U-6Ke.title";

class PopoverView {
 public:
  // Builds the rows of the row table with their titles from `strings`.
  explicit PopoverView(const Strings& strings);
  PopoverView(const PopoverView&) = delete;
  PopoverView& operator=(const PopoverView&) = delete;

  // Every change of a widget or of a layer tied to this view reports here.
  ChangeSignal& changeSignal() { return signal_; }

  View* viewAutoRating;
  View* viewManualRating;
  View* viewVeldrin;
  View* viewSettings;
  View* viewHelp;

  Widget* lblAutoRating;
  Widget* lblManualRating;
  Widget* lblVeldrin;
  Widget* lblSettings;
  Widget* lblHelp;

  Widget* autoRatingCheck;
  Widget* manualRatingCheck;
  Widget* veldrinCheck;

  HoverButton* btnAutoRating;
  HoverButton* btnManualRating;
  HoverButton* btnVeldrin;
  HoverButton* btnSettings;
  HoverButton* btnHelp;

  View* autoRatingLayer;
  View* manualRatingLayer;
  View* veldrinLayer;
  View* settingLayer;
  View* helpLayer;

  LayoutConstraint* topToVeldrin;
  LayoutConstraint* topToManualRating;

 private:
  template <typename T>
  T* make(std::string_view name, auto&&... args);

  ChangeSignal signal_;
  std::vector<std::unique_ptr<Widget>> widgets_;
  std::array<LayoutConstraint, 2> constraints_;
};

}  // namespace wren

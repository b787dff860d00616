#pragma once
// The popover's rows, top to bottom, in one table: every piece of code that
// walks the rows (building the view, greying, hover, clicks, the state sent
// to the popup, the host's routing of mouse events) loops over it, so a row is
// added by adding its line.
#include <span>
#include <string_view>

namespace wren {

class HoverButton;
class PopoverView;
class SafariExtensionViewController;
class Setting;
class View;
class Widget;

struct PopoverRow {
  // Outlet names, as the state sent to the popup names them; `layer` names
  // the controller's hover layer of the row. A row without a check mark has
  // an empty `check`.
  std::string_view container, label, check, button, hoverTarget, layer;
  // The label's title: its key in the popover's strings table and the text
  // used where the table has none.
  std::string_view titleKey, title;
  // Where the row's outlets are in the view (checkOutlet is null for a row
  // without a check mark).
  View* PopoverView::*containerOutlet;
  Widget* PopoverView::*labelOutlet;
  Widget* PopoverView::*checkOutlet;
  HoverButton* PopoverView::*buttonOutlet;
  View* PopoverView::*hoverTargetOutlet;
  // The button's target-action.
  void (SafariExtensionViewController::*clicked)(HoverButton* sender);
  // The Setting flag that the check mark shows at each appearance (null:
  // none, or the row's own refresh drives it).
  bool (Setting::*shownFlag)() const;
  // Whether the row is greyed out and disabled with the toolbar; the
  // mail-scan row's look belongs to its own refresh.
  bool followsToolbar;
};

std::span<const PopoverRow> popoverRows();

}  // namespace wren

#include "popover/safari_extension_view_controller.h"

#include "net/run_loop.h"
#include "popover/popover_rows.h"
#include "popover/strings.h"
#include "server/setting.h"
#include "server/wren_browser_ext_server.h"
#include "util/common.h"

namespace wren {

SafariExtensionViewController::SafariExtensionViewController(Setting& setting, WrenBrowserExtServer& server,
                                                             RunLoop& loop, Browser* browser, Strings& strings)
    : setting_(setting),
      server_(server),
      loop_(loop),
      browser_(browser),
      strings_(strings),
      view_(strings),
      layers_(popoverRows().size()) {
  // The rows' target-action connections. A click reaches an action only
  // through its button, so a greyed row does nothing.
  for (const PopoverRow& row : popoverRows()) {
    HoverButton* button = view_.*row.buttonOutlet;
    if (button) button->setAction([this, button, action = row.clicked] { (this->*action)(button); });
  }
}

SafariExtensionViewController::~SafariExtensionViewController() = default;

GradientLayer* SafariExtensionViewController::layer(std::string_view name) const {
  const auto rows = popoverRows();
  for (size_t i = 0; i < rows.size(); ++i)
    if (rows[i].layer == name) return layers_[i].get();
  return nullptr;
}

SafariExtensionViewController& SafariExtensionViewController::sharedController() {
  static SafariExtensionViewController controller(Setting::sharedInstance(), WrenBrowserExtServer::sharedInstance(),
                                                  RunLoop::main(), nullptr, Strings::main());
  return controller;
}

void SafariExtensionViewController::postToMain(std::function<void()> work) {
  loop_.post([alive = std::weak_ptr<bool>(alive_), work = std::move(work)] {
    if (alive.lock()) work();
  });
}

void SafariExtensionViewController::viewWillAppear() {
  if (view_.viewVeldrin) view_.viewVeldrin->setHidden(false);
  bool changed = false;
  for (auto [constraint, priority] : {std::pair{view_.topToVeldrin, kTopToVeldrinPriority},
                                      std::pair{view_.topToManualRating, kTopToManualRatingPriority}}) {
    if (!constraint || constraint->priority == priority) continue;
    constraint->priority = priority;
    changed = true;
  }
  if (changed) view_.changeSignal().notify();
}

void SafariExtensionViewController::viewDidAppear() {
  // Named colours exist on every system this runs on, so the labels are
  // reset to the catalogue colour at every showing.
  if (auto color = colorNamed("Color")) {
    for (const PopoverRow& row : popoverRows()) {
      if (Widget* label = view_.*row.labelOutlet) label->setTextColor(*color);
    }
  }
  if (setting_.bToolbarEnabled()) {
    enableToolbar();
  } else {
    disableToolbar();
  }
  for (const PopoverRow& row : popoverRows()) {
    Widget* check = row.checkOutlet ? view_.*row.checkOutlet : nullptr;
    if (check && row.shownFlag) check->setHidden(!(setting_.*row.shownFlag)());
  }
  initializeLayer();
}

void SafariExtensionViewController::updateSettings() {
  // The callbacks only write the flags: an answer that arrives after the
  // popover appeared shows at the next appearance.
  server_.loadSettings([&setting = setting_](const Json& settings) { applySettings(setting, settings); },
                       [&setting = setting_](const std::optional<HttpResponse>&, const std::optional<HttpError>&) {
                         clearSettings(setting);
                       });
}

void SafariExtensionViewController::enableToolbar() {
  // The labels keep their colour, and the rows that do not follow the toolbar
  // their buttons' state.
  for (const PopoverRow& row : popoverRows()) {
    HoverButton* button = view_.*row.buttonOutlet;
    if (row.followsToolbar && button) button->setEnabled(true);
  }
  addButtonMouseHoverEffect();
}

void SafariExtensionViewController::disableToolbar() {
  for (const PopoverRow& row : popoverRows()) {
    Widget* label = view_.*row.labelOutlet;
    if (row.followsToolbar && label) label->setTextColor(TextColor::Grey);
  }
  for (const PopoverRow& row : popoverRows()) {
    HoverButton* button = view_.*row.buttonOutlet;
    if (row.followsToolbar && button) button->setEnabled(false);
  }
  removeButtonMouseHoverEffect();
}

// The toggle must read the flag before it is flipped here: it asks the
// service for the opposite of the current value. The local flip does not wait
// for the service; the next settings load corrects it if need be.
void SafariExtensionViewController::btnAutoRatingClicked(HoverButton*) {
  server_.toggleAutoScan([this] { dismissPopover(); });
  flipLocally(view_.autoRatingCheck, &Setting::bAutoScanEnabled, &Setting::setBAutoScanEnabled);
}

void SafariExtensionViewController::btnManualRatingClicked(HoverButton*) {
  server_.toggleManualScan([this] { dismissPopover(); });
  flipLocally(view_.manualRatingCheck, &Setting::bManualScanEnabled, &Setting::setBManualScanEnabled);
}

void SafariExtensionViewController::flipLocally(Widget* check, bool (Setting::*flag)() const,
                                                void (Setting::*setFlag)(bool)) {
  if (check) check->setHidden(!check->isHidden());
  (setting_.*setFlag)(!(setting_.*flag)());
}

// The mail-scan row's check mark and flag belong to its refresh, not to the
// click.
void SafariExtensionViewController::btnVeldrinClicked(HoverButton*) {
  toggleVeldrim([this] { dismissPopover(); });
}

void SafariExtensionViewController::btnSettingsClicked(HoverButton*) {
  server_.showSettingsPage([this] { dismissPopover(); });
}

void SafariExtensionViewController::btnHelpClicked(HoverButton*) {
  server_.showHelpPage([this] { dismissPopover(); });
}

void SafariExtensionViewController::dismissPopover() {
  if (dismissHandler_) dismissHandler_();
}

std::string SafariExtensionViewController::base64Encode(std::string_view text) { return base64EncodedString(text); }

}  // namespace wren

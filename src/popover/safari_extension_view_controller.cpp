#include "popover/safari_extension_view_controller.h"

#include "net/run_loop.h"
#include "popover/strings.h"
#include "server/setting.h"
#include "server/wren_browser_ext_server.h"
#include "util/common.h"

namespace wren {

SafariExtensionViewController::SafariExtensionViewController(Setting& setting, WrenBrowserExtServer& server,
                                                             RunLoop& loop, Browser* browser, Strings& strings)
    : setting_(setting), server_(server), loop_(loop), browser_(browser), strings_(strings), view_(strings) {
  server_.setDismissPopover([this] { dismissPopover(); });
  // The rows' target-action connections. A click reaches an action only
  // through its button, so a greyed row does nothing.
  using Self = SafariExtensionViewController;
  using Action = void (Self::*)(HoverButton*);
  const std::pair<HoverButton*, Action> connections[] = {{view_.btnAutoRating, &Self::btnAutoRatingClicked},
                                                         {view_.btnManualRating, &Self::btnManualRatingClicked},
                                                         {view_.btnVeldrin, &Self::btnVeldrinClicked},
                                                         {view_.btnSettings, &Self::btnSettingsClicked},
                                                         {view_.btnHelp, &Self::btnHelpClicked}};
  for (const auto& [button, action] : connections) {
    if (button) button->setAction([this, button = button, action = action] { (this->*action)(button); });
  }
}

SafariExtensionViewController::~SafariExtensionViewController() {
  // The server outlives us; it must not call into a controller that is gone.
  server_.setDismissPopover(nullptr);
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
    for (Widget* label : {view_.lblVeldrin, view_.lblHelp, view_.lblSettings, view_.lblAutoRating,
                          view_.lblManualRating}) {
      if (label) label->setTextColor(*color);
    }
  }
  if (setting_.bToolbarEnabled()) {
    enableToolbar();
  } else {
    disableToolbar();
  }
  if (view_.autoRatingCheck) view_.autoRatingCheck->setHidden(!setting_.bAutoScanEnabled());
  if (view_.manualRatingCheck) view_.manualRatingCheck->setHidden(!setting_.bManualScanEnabled());
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
  for (HoverButton* button : {view_.btnAutoRating, view_.btnManualRating, view_.btnSettings, view_.btnHelp}) {
    if (button) button->setEnabled(true);
  }
  // The labels keep their colour and btnVeldrin its state: the mail-scan row
  // belongs to updateVeldrinSetting.
  addButtonMouseHoverEffect();
}

void SafariExtensionViewController::disableToolbar() {
  for (Widget* label : {view_.lblAutoRating, view_.lblManualRating, view_.lblSettings, view_.lblHelp}) {
    if (label) label->setTextColor(TextColor::Grey);
  }
  for (HoverButton* button : {view_.btnAutoRating, view_.btnManualRating, view_.btnSettings, view_.btnHelp}) {
    if (button) button->setEnabled(false);
  }
  removeButtonMouseHoverEffect();
}

// The toggle must read the flag before it is flipped here: it asks the
// service for the opposite of the current value. The local flip does not wait
// for the service; the next settings load corrects it if need be.
void SafariExtensionViewController::btnAutoRatingClicked(HoverButton*) {
  server_.toggleAutoScan();
  if (view_.autoRatingCheck) view_.autoRatingCheck->setHidden(!view_.autoRatingCheck->isHidden());
  setting_.setBAutoScanEnabled(!setting_.bAutoScanEnabled());
}

void SafariExtensionViewController::btnManualRatingClicked(HoverButton*) {
  server_.toggleManualScan();
  if (view_.manualRatingCheck) view_.manualRatingCheck->setHidden(!view_.manualRatingCheck->isHidden());
  setting_.setBManualScanEnabled(!setting_.bManualScanEnabled());
}

void SafariExtensionViewController::btnVeldrinClicked(HoverButton*) { server_.toggleVeldrim(); }

void SafariExtensionViewController::btnSettingsClicked(HoverButton*) { server_.showSettingsPage(); }

void SafariExtensionViewController::btnHelpClicked(HoverButton*) { server_.showHelpPage(); }

void SafariExtensionViewController::dismissPopover() {
  if (dismissHandler_) dismissHandler_();
}

std::string SafariExtensionViewController::base64Encode(std::string_view text) { return base64EncodedString(text); }

}  // namespace wren

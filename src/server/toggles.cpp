// The popover's row actions: each becomes a command to the service (or a
// message to the active page) and then closes the popover.
#include "platform/browser.h"
#include "server/setting.h"
#include "server/wren_browser_ext_server.h"

namespace wren {

namespace {
// The command that asks the service to switch a feature to the opposite of
// what the record shows now. The record itself is left alone: the next
// settings load reports what the service really did.
Json updateSettingCommand(const char* name, bool enabledNow) {
  return Json{{"type", "updateSetting"}, {"name", name}, {"value", enabledNow ? "false" : "true"}};
}
}  // namespace

void WrenBrowserExtServer::dismiss() {
  if (dismissPopover_) dismissPopover_();
}

// Commands from the popover are fire and forget: nobody reads their answer.
void WrenBrowserExtServer::toggleAutoScan() {
  ajax_.get(uriForCommand_, {}, updateSettingCommand("EnableAutomaticScan", setting_.bAutoScanEnabled()), nullptr,
            nullptr);
  dismiss();
}

void WrenBrowserExtServer::toggleManualScan() {
  ajax_.get(uriForCommand_, {}, updateSettingCommand("EnableManualScanner", setting_.bManualScanEnabled()), nullptr,
            nullptr);
  dismiss();
}

void WrenBrowserExtServer::showSettingsPage() {
  ajax_.get(uriForCommand_, {}, Json{{"type", "showToolbarUI"}}, nullptr, nullptr);
  dismiss();
}

void WrenBrowserExtServer::showHelpPage() {
  ajax_.get(uriForCommand_, {}, Json{{"type", "showToolbarHelp"}}, nullptr, nullptr);
  dismiss();
}

void WrenBrowserExtServer::toggleVeldrim() {
  // Only an address that is exactly "" holds the panel back; one never set
  // counts as present, so the page decides what to show.
  const auto& email = setting_.veldrinConfigItem().curEmail();
  if (email && email->empty()) return;
  Browser* browser = browser_;
  if (!browser) return;
  // The popover stays open unless the page was reached.
  browser->getActiveWindow([this, browser](const BrowserHandle& window) {
    if (window.is_null()) return;
    browser->getActiveTab(window, [this, browser](const BrowserHandle& tab) {
      if (tab.is_null()) return;
      browser->getActivePage(tab, [this, browser](const BrowserHandle& page) {
        if (page.is_null()) return;
        browser->dispatchMessageToScript(page, "vd_popoverClicked", Json::object());
        dismiss();
      });
    });
  });
}

}  // namespace wren

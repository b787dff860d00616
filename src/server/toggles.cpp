// The popover's commands to the service: switching a scan feature and opening
// the product's own settings or help window.
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

// Fire and forget: nobody reads the answer, so `sent` runs as soon as the
// request is under way, before the service has answered.
void WrenBrowserExtServer::sendPopoverCommand(const Json& command, const std::function<void()>& sent) {
  ajax_.get(uriForCommand_, {}, command, nullptr, nullptr);
  if (sent) sent();
}

void WrenBrowserExtServer::toggleAutoScan(const std::function<void()>& sent) {
  sendPopoverCommand(updateSettingCommand("EnableAutomaticScan", setting_.bAutoScanEnabled()), sent);
}

void WrenBrowserExtServer::toggleManualScan(const std::function<void()>& sent) {
  sendPopoverCommand(updateSettingCommand("EnableManualScanner", setting_.bManualScanEnabled()), sent);
}

void WrenBrowserExtServer::showSettingsPage(const std::function<void()>& sent) {
  sendPopoverCommand(Json{{"type", "showToolbarUI"}}, sent);
}

void WrenBrowserExtServer::showHelpPage(const std::function<void()>& sent) {
  sendPopoverCommand(Json{{"type", "showToolbarHelp"}}, sent);
}

}  // namespace wren

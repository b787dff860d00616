#include "host/session.h"

#include "bridge/mail_scan_relay.h"
#include "net/ajax.h"
#include "net/run_loop.h"
#include "popover/safari_extension_view_controller.h"
#include "server/setting.h"
#include "server/wren_browser_ext_server.h"
#include "util/version.h"

namespace wren {

Services sharedServices() {
  return Services{RunLoop::main(),
                  Ajax::shared(),
                  Setting::sharedInstance(),
                  WrenBrowserExtServer::sharedInstance(),
                  SafariExtensionViewController::sharedController(),
                  MailScanClient::sharedInstance()};
}

BrowserSession::BrowserSession(const Services& services, Browser& browser)
    : popover_(services.popover), handler_(services.server, services.setting, services.ajax, browser, kVersion) {
  handler_.setPopoverController(&popover_);
  handler_.setMailScan(mailScanRelay(services.mailScan));
  popover_.setBrowser(&browser);
}

BrowserSession::~BrowserSession() { popover_.setBrowser(nullptr); }

}  // namespace wren

#pragma once
// The domain objects that serve one browser, wired in one place: the
// process's clients and records, with the browser plugged into the popover
// controller and a page-message handler of its own that drives that
// controller and relays mail scans. The native-messaging host, the
// command-line commands and the fuzz harnesses all serve their browser
// through a BrowserSession.
//
// Runs on the main run loop. Owns the handler; borrows the rest, which must
// outlive the session.
#include "bridge/safari_extension_handler.h"
#include "platform/browser.h"

namespace wren {

class Ajax;
class MailScanClient;
class RunLoop;
class SafariExtensionViewController;
class Setting;
class WrenBrowserExtServer;

// What a session serves its browser with: the singletons in the process, a
// harness's own instances elsewhere.
struct Services {
  RunLoop& loop;
  Ajax& ajax;
  Setting& setting;
  WrenBrowserExtServer& server;
  SafariExtensionViewController& popover;
  MailScanClient& mailScan;
};

// The process-wide singletons, created on first use.
Services sharedServices();

class BrowserSession {
 public:
  BrowserSession(const Services& services, Browser& browser);
  // Unplugs the browser: the popover controller outlives every session.
  ~BrowserSession();
  BrowserSession(const BrowserSession&) = delete;
  BrowserSession& operator=(const BrowserSession&) = delete;

  SafariExtensionHandler& handler() { return handler_; }

 private:
  SafariExtensionViewController& popover_;
  SafariExtensionHandler handler_;
};

}  // namespace wren

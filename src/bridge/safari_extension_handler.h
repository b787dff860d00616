#pragma once
// The extension's principal class: every message a page script sends arrives
// at messageReceivedWithName, which gates it on the toolbar flag, runs the
// branch of that name and answers the same page through the Browser.
//
// Runs on the main run loop; every completion it starts runs there too. It
// owns only lastBlockUrl; the service client, the settings record, the HTTP
// client and the browser are the caller's and must outlive the completions
// (in the process they are the singletons). Completions never touch the
// handler itself, so a handler may go away while its requests are in flight.
#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/browser.h"
#include "util/json.h"

namespace wren {

class Ajax;
class SafariExtensionViewController;
class Setting;
class WrenBrowserExtServer;

// The cloud mail-scan relay, which the wiring plugs in. Success hands a
// dictionary; failure hands whatever the client reports, possibly nothing.
using MailScanSuccess = std::function<void(const Json& dictionary)>;
using MailScanFailure = std::function<void(const std::optional<Json>& value)>;
using MailScanCall = std::function<void(const Json& request, MailScanSuccess success, MailScanFailure fail)>;
struct MailScanRelay {
  MailScanCall emailScan;  // "vd_scan_email"
  MailScanCall feedback;   // "vd_feedback"
};

class SafariExtensionHandler {
 public:
  SafariExtensionHandler(WrenBrowserExtServer& server, Setting& setting, Ajax& ajax, Browser& browser,
                         std::string buildVersion);

  // The single entry from the pages. userInfo is the page's dictionary, or
  // nullopt when it sent none (a non-dictionary is read as none). Taken by
  // value: the rating branches move the page's items on to their answer.
  void messageReceivedWithName(const std::string& name, const BrowserHandle& page, std::optional<Json> userInfo);

  // Until a relay is plugged in, "vd_scan_email" and "vd_feedback" pass the
  // gate and do nothing.
  void setMailScan(MailScanRelay relay) { mailScan_ = std::move(relay); }

  // The address last reported by a block page carrying a block code.
  const std::optional<std::string>& lastBlockUrl() const { return lastBlockUrl_; }
  void setLastBlockUrl(std::optional<std::string> url) { lastBlockUrl_ = std::move(url); }

  // Whether a page message of this name has a branch (others are ignored).
  static bool handlesMessage(std::string_view name);

  // The promotion is offered once per process; tests start each case afresh.
  static void resetPromotionForTesting();

  // The browser's toolbar and popover hooks. They log, refresh the popover
  // controller's settings and mail-scan row, and drop stale hover highlights
  // before a showing; `window` is the browser's and is not looked at. The
  // toolbar item is never validated explicitly: it keeps the browser's default
  // (enabled, no badge) whatever the service says.
  void toolbarItemClickedInWindow(const BrowserHandle& window);
  void validateToolbarItemInWindow(const BrowserHandle& window);
  SafariExtensionViewController& popoverViewController();
  void popoverWillShowInWindow(const BrowserHandle& window);
  void popoverDidCloseInWindow(const BrowserHandle& window);
  // The controller the hooks drive; the process-wide one unless set.
  void setPopoverController(SafariExtensionViewController* controller) { popover_ = controller; }

 private:
  using Branch = void (*)(SafariExtensionHandler&, const std::string&, const BrowserHandle&, Json&);
  using Branches = std::array<std::pair<const char*, Branch>, 14>;
  static const Branches& branches();
  // Both take the page's items out of `info`.
  void rateItems(const BrowserHandle& page, Json& info);
  void wtpRating(const BrowserHandle& page, Json& info);
  void sendData(const Json& info);
  void setEmail(const BrowserHandle& page, const Json& info);
  void sendCommand(const BrowserHandle& page, const Json& info);
  void scanEmail(const BrowserHandle& page, const Json& info);
  void openNewTab(const Json& info);
  void showProtectPromotion(const BrowserHandle& page);
  void getUserEmail(const Json& info);
  void feedback(const BrowserHandle& page, const Json& info);
  void getSetting(const BrowserHandle& page, const Json& info);
  void pageContent(const std::string& name, const BrowserHandle& page, const Json& info);
  void blockPage(const BrowserHandle& page, const Json& info);

  WrenBrowserExtServer& server_;
  Setting& setting_;
  Ajax& ajax_;
  Browser& browser_;
  std::string buildVersion_;
  MailScanRelay mailScan_;
  std::optional<std::string> lastBlockUrl_;
  SafariExtensionViewController* popover_ = nullptr;
  SafariExtensionViewController& popoverViewControllerInstance();
};

// Whether a browser would read the address as http: or https: (the only
// kinds "vd_open_new_tab" opens).
bool isWebAddress(std::string_view url);

// Escapes exactly "<", ">" and " " (as %3C, %3E, %20); everything else,
// "%" included, stays, so an address already escaped is not escaped twice.
std::string escapeForNewTab(const std::string& url);

}  // namespace wren

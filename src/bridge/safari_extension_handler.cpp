#include "bridge/safari_extension_handler.h"

#include <array>
#include <cctype>
#include <utility>

#include "net/ajax.h"
#include "server/setting.h"
#include "server/wren_browser_ext_server.h"
#include "util/json.h"
#include "util/logging.h"

namespace wren {

namespace {
// Offered once per process to whichever page asks first. Shared by every
// handler instance and, like the rest of the dispatcher's state, only
// touched on the main run loop.
bool isPromotion = false;

// The block code's marker in a block page's own address.
constexpr const char* kBlockCodeMarker = "code";
}  // namespace

SafariExtensionHandler::SafariExtensionHandler(WrenBrowserExtServer& server, Setting& setting, Ajax& ajax,
                                               Browser& browser, std::string buildVersion)
    : server_(server), setting_(setting), ajax_(ajax), browser_(browser), buildVersion_(std::move(buildVersion)) {}

void SafariExtensionHandler::resetPromotionForTesting() { isPromotion = false; }

const SafariExtensionHandler::Branches& SafariExtensionHandler::branches() {
  // Compared in this order; the first equal name runs, an unknown one is
  // ignored without a trace.
  static const Branches kBranches = {{
      {"rateItems", [](auto& h, auto&, auto& p, auto& i) { h.rateItems(p, i); }},
      {"wtp_rating", [](auto& h, auto&, auto& p, auto& i) { h.wtpRating(p, i); }},
      {"send_data", [](auto& h, auto&, auto&, auto& i) { h.sendData(i); }},
      {"vd_set_email", [](auto& h, auto&, auto& p, auto& i) { h.setEmail(p, i); }},
      {"vd_send_command", [](auto& h, auto&, auto& p, auto& i) { h.sendCommand(p, i); }},
      {"vd_scan_email", [](auto& h, auto&, auto& p, auto& i) { h.scanEmail(p, i); }},
      {"vd_open_new_tab", [](auto& h, auto&, auto&, auto& i) { h.openNewTab(i); }},
      {"vd_show_protect_promotion", [](auto& h, auto&, auto& p, auto&) { h.showProtectPromotion(p); }},
      {"vd_get_user_email", [](auto& h, auto&, auto&, auto& i) { h.getUserEmail(i); }},
      {"vd_feedback", [](auto& h, auto&, auto& p, auto& i) { h.feedback(p, i); }},
      {"vd_get_setting", [](auto& h, auto&, auto& p, auto& i) { h.getSetting(p, i); }},
      {"get_relevant_blog", [](auto& h, auto& n, auto& p, auto& i) { h.pageContent(n, p, i); }},
      {"wtpatl", [](auto& h, auto& n, auto& p, auto& i) { h.pageContent(n, p, i); }},
      {"block_page", [](auto& h, auto&, auto& p, auto& i) { h.blockPage(p, i); }},
  }};
  return kBranches;
}

bool SafariExtensionHandler::handlesMessage(std::string_view name) {
  for (const auto& branch : branches())
    if (name == branch.first) return true;
  return false;
}

void SafariExtensionHandler::messageReceivedWithName(const std::string& name, const BrowserHandle& page,
                                                     std::optional<Json> userInfo) {
  // While the service has the toolbar off, pages get nothing at all, not even
  // a log line: they never wait for an answer.
  if (!setting_.bToolbarEnabled()) return;

  Json info = Json::object();
  if (userInfo && userInfo->is_object()) {
    info = std::move(*userInfo);
  } else if (userInfo && !userInfo->is_null()) {
    systemLog("[SafariToolbar] " + name + ": userInfo is not a dictionary, read as none");
  }

  for (const auto& [branchName, branch] : branches()) {
    if (name == branchName) {
      branch(*this, name, page, info);
      return;
    }
  }
}

void SafariExtensionHandler::sendData(const Json& info) {
  ajax_.post(
      server_.URIForSendData(), info, [](const HttpResponse&, const std::optional<Json>&) {},
      [](const std::optional<HttpResponse>&, const HttpError&) { systemLog("[SafariToolbar]>>send_data failed."); });
}

void SafariExtensionHandler::setEmail(const BrowserHandle& page, const Json& info) {
  const Json* email = findMember(info, "email");
  auto& item = setting_.veldrinConfigItem();
  if (!email || email->is_null()) {
    // No address reported: nothing equals it, so the stored one is cleared.
    item.setCurEmail(std::nullopt);
  } else if (!email->is_string()) {
    systemLog("[SafariToolbar] vd_set_email: email is not a text, not stored");
  } else if (item.curEmail() != email->get<std::string>()) {
    item.setCurEmail(email->get<std::string>());
  }
  browser_.dispatchMessageToScript(page, "vd_set_email", std::nullopt);
}

void SafariExtensionHandler::openNewTab(const Json& info) {
  const Json* url = findMember(info, "url");
  if (!url || !url->is_string()) {
    systemLog("[SafariToolbar] vd_open_new_tab: url is not a text, nothing opened");
    return;
  }
  const std::string& address = url->get_ref<const std::string&>();
  if (!isWebAddress(address)) {
    // javascript:, file:, chrome: and the like would run or reveal something
    // in the browser with the page's words; a tab is only ever a web page.
    systemLog("[SafariToolbar] vd_open_new_tab: not an http or https address, nothing opened");
    return;
  }
  Browser& browser = browser_;
  browser.getActiveWindow([&browser, address = escapeForNewTab(address)](const BrowserHandle& w) {
    if (w.is_null()) return;
    browser.openTab(w, address, true);
  });
}

void SafariExtensionHandler::showProtectPromotion(const BrowserHandle& page) {
  systemLog(std::string("[SafariToolbar] vd_show_protect_promotion is ") + (isPromotion ? "1" : "0") + " ");
  if (isPromotion) {
    browser_.dispatchMessageToScript(page, "vd_show_protect_promotion", std::nullopt);
    return;
  }
  browser_.dispatchMessageToScript(page, "vd_show_protect_promotion", Json{{"isShow", true}});
  isPromotion = true;
}

void SafariExtensionHandler::getUserEmail(const Json& info) {
  const Json* email = findMember(info, "email");
  auto& item = setting_.veldrinConfigItem();
  if (!email || !email->is_string()) {
    systemLog("[SafariToolbar] vd_get_user_email return email is nil");
    item.setCurEmail(std::nullopt);
    return;
  }
  const std::string& address = email->get_ref<const std::string&>();
  // An empty report means the page could not read the address this time; the
  // known one stays.
  item.setCurEmail(address.empty() ? item.curEmail() : std::optional<std::string>(address));
  systemLog("[SafariToolbar] safari background " + address);
}

void SafariExtensionHandler::blockPage(const BrowserHandle& page, const Json& info) {
  const Json* href = findMember(info, "href");
  if (href && !href->is_null() && !href->is_string())
    systemLog("[SafariToolbar] block_page: href is not a text, read as none");
  if (href && href->is_string() && href->get_ref<const std::string&>().find(kBlockCodeMarker) != std::string::npos) {
    lastBlockUrl_ = href->get<std::string>();
    return;
  }
  if (!lastBlockUrl_) {
    systemLog("lastBlockUrl is nil");
    return;
  }
  // Each remembered address is handed out once.
  browser_.dispatchMessageToScript(page, "reload_block_page", Json{{"href", *lastBlockUrl_}});
  lastBlockUrl_.reset();
}

bool isWebAddress(std::string_view url) {
  // The scheme as a browser reads it: leading blanks and control bytes
  // skipped, tabs and line breaks inside ignored, any case.
  std::string scheme;
  bool started = false;
  for (char c : url) {
    auto byte = static_cast<unsigned char>(c);
    if (!started && byte <= 0x20) continue;
    started = true;
    if (c == '\t' || c == '\n' || c == '\r') continue;
    if (c == ':') break;
    scheme += static_cast<char>(std::tolower(byte));
    if (scheme.size() > 5) return false;
  }
  return scheme == "http" || scheme == "https";
}

std::string escapeForNewTab(const std::string& url) {
  std::string out;
  out.reserve(url.size());
  for (char c : url) {
    switch (c) {
      case '<': out += "%3C"; break;
      case '>': out += "%3E"; break;
      case ' ': out += "%20"; break;
      default: out += c;
    }
  }
  return out;
}

}  // namespace wren

// Messages relayed as commands to the local service or to the mail-scan
// relay, answered with what comes back.
#include "bridge/safari_extension_handler.h"
#include "server/wren_browser_ext_server.h"
#include "util/common.h"
#include "util/json.h"
#include "util/json_parse.h"
#include "util/logging.h"

namespace wren {

namespace {
// The answer type the service uses for page content.
constexpr const char* kPageContentType = "text/html";
}  // namespace

void SafariExtensionHandler::sendCommand(const BrowserHandle& page, const Json& info) {
  Browser& browser = browser_;
  server_.sendCommand(
      info,
      [&browser, page, request = info, version = buildVersion_](const Json& answer) {
        Json reply = request;
        mergeObject(reply, answer);  // the answer's keys win over the page's
        mergeObject(reply, Json{{"buildVersion", version}});
        browser.dispatchMessageToScript(page, "vd_send_command", reply);
      },
      [&browser, page, request = info](const std::optional<HttpResponse>&, const std::optional<HttpError>&) {
        browser.dispatchMessageToScript(page, "vd_send_command", request);
      });
}

void SafariExtensionHandler::getSetting(const BrowserHandle& page, const Json& info) {
  const Json* e = findMember(info, "e");
  const Json* i = findMember(info, "i");
  if (!e || !i) {
    systemLog(std::string("[SafariToolbar] vd_get_setting dropped: no ") + (!e ? "e" : "i"));
    return;
  }
  if (!e->is_string()) {
    systemLog("[SafariToolbar] vd_get_setting dropped: e is not a text");
    return;
  }
  Json request = Json::object();
  request["type"] = "vds";
  request["e"] = base64EncodedString(e->get_ref<const std::string&>());
  request["i"] = *i;
  Browser& browser = browser_;
  server_.sendCommand(
      request,
      [&browser, page, reply = info](const Json& answer) mutable {
        reply["settings"] = answer;
        browser.dispatchMessageToScript(page, "vd_get_setting", reply);
      },
      nullptr);
}

void SafariExtensionHandler::pageContent(const std::string& name, const BrowserHandle& page, const Json& info) {
  Json command = info;
  command["type"] = name;  // the message decides what is fetched, not the page's own "type"
  Browser& browser = browser_;
  server_.sendCommand(
      command, {}, std::string(kPageContentType),
      [&browser, page, name](const Json& answer) { browser.dispatchMessageToScript(page, name, answer); }, nullptr);
}

void SafariExtensionHandler::scanEmail(const BrowserHandle& page, const Json& info) {
  // The mail-scan relay plugs in here; without it the message ends at the gate.
  if (!mailScan_.emailScan) return;
  Browser& browser = browser_;
  mailScan_.emailScan(
      info,
      [&browser, page](const Json& dictionary) {
        browser.dispatchMessageToScript(page, "vd_scan_email", dictionary.is_object() ? dictionary : Json::object());
      },
      [&browser, page](const std::optional<Json>& value) {
        browser.dispatchMessageToScript(page, "vd_scan_email",
                                        value && value->is_object() ? *value : Json::object());
      });
}

void SafariExtensionHandler::feedback(const BrowserHandle& page, const Json& info) {
  // The mail-scan relay plugs in here; without it the message ends at the gate.
  if (!mailScan_.feedback) return;
  Browser& browser = browser_;
  mailScan_.feedback(
      info, [&browser, page](const Json& dictionary) { browser.dispatchMessageToScript(page, "vd_feedback", dictionary); },
      [&browser, page](const std::optional<Json>& value) {
        browser.dispatchMessageToScript(page, "vd_feedback", value && !value->is_null() ? value : std::nullopt);
      });
}

}  // namespace wren

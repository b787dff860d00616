// "rateItems" and "wtp_rating": the page's links go to the service's rating
// and the levels come back into the page's own items.
#include "bridge/log_text.h"
#include "bridge/safari_extension_handler.h"
#include "server/setting.h"
#include "server/wren_browser_ext_server.h"
#include "util/logging.h"

namespace wren {

namespace {
// The page's level when the service names none.
constexpr int kDefaultWtpLevel = 1;

// The "urls" list of a rating request when it can be rated: a list of
// dictionaries. Logs why and returns nullptr otherwise; absent is silent.
Json* ratingItems(const std::string& name, Json& info) {
  auto found = info.find("urls");  // `info` is always a dictionary here
  if (found == info.end()) return nullptr;
  Json* urls = &*found;
  if (!urls->is_array()) {
    systemLog("[SafariToolbar] " + name + " dropped: urls is not a list");
    return nullptr;
  }
  for (size_t i = 0; i < urls->size(); ++i) {
    if (!(*urls)[i].is_object()) {
      systemLog("[SafariToolbar] " + name + " dropped: item " + std::to_string(i) + " is not a dictionary");
      return nullptr;
    }
  }
  return urls;
}
}  // namespace

void SafariExtensionHandler::rateItems(const BrowserHandle& page, Json& info) {
  Json* urls = ratingItems("rateItems", info);
  if (!urls) return;
  // A request without a type is deliberately not rated.
  const Json* type = findMember(info, "type");
  if (!type) return;
  if (type->is_string()) {
    const auto& t = type->get_ref<const std::string&>();
    if (t == "AutomaticScan" && !setting_.bAutoScanEnabled()) return;
    if (t == "ManualScanner" && !setting_.bManualScanEnabled()) return;
  } else {
    systemLog("[SafariToolbar] rateItems: type is not a text, rated like any other type");
  }

  // The items are moved, not copied: from the page's dictionary to the
  // completion, which writes the levels into them and moves them on into the
  // answer. The service's headers are made from them before the request goes.
  auto items = std::make_shared<Json>(std::move(*urls));
  Browser& browser = browser_;
  server_.rateURL(*items, [&browser, page, items](const Json& answer) {
    const Json* results = findMember(answer, "results");
    const Json noResults = Json::array();
    if (!results || results->is_null()) results = &noResults;
    if (!results->is_array()) {
      systemLog("[SafariToolbar] rateItems dropped: results is not a list");
      return;
    }
    if (results->size() > items->size()) {
      systemLog("[SafariToolbar] rateItems dropped: " + std::to_string(results->size()) + " results for " +
                std::to_string(items->size()) + " items");
      return;
    }
    for (size_t i = 0; i < results->size(); ++i) {
      if (!findMember((*results)[i], "level")) {
        systemLog("[SafariToolbar] rateItems dropped: result " + std::to_string(i) + " has no level");
        return;
      }
    }
    for (size_t i = 0; i < results->size(); ++i) (*items)[i]["level"] = (*results)[i]["level"];
    Json reply = Json::object();
    reply["results"] = std::move(*items);
    browser.dispatchMessageToScript(page, "rateItems", std::move(reply));
  });
}

void SafariExtensionHandler::wtpRating(const BrowserHandle& page, Json& info) {
  Json* urls = ratingItems("wtp_rating", info);
  if (!urls) return;
  if (urls->empty()) {
    systemLog("[SafariToolbar] wtp_rating dropped: no items");
    return;
  }
  systemLog(objectText(findMember((*urls)[0], "url")));

  // The page rating is offered only while the service says the toolbar is
  // on, so its settings are asked afresh first.
  WrenBrowserExtServer& server = server_;
  Setting& setting = setting_;
  Browser& browser = browser_;
  server.loadSettings(
      [&server, &setting, &browser, page, items = std::move(*urls)](const Json& settings) {
        applySettings(setting, settings);
        if (!setting.bToolbarEnabled()) return;
        server.rateWTPURL(items, [&browser, page, items](const Json& answer) mutable {
          const Json* results = findMember(answer, "results");
          if (!results || !results->is_array() || results->empty()) {
            systemLog("[SafariToolbar] wtp_rating dropped: no results");
            return;
          }
          const Json& first = (*results)[0];
          if (!first.is_object()) {
            systemLog("[SafariToolbar] wtp_rating dropped: result 0 is not a dictionary");
            return;
          }
          Json item = items[0];
          for (const char* key : {"category", "categoryGroup", "level"})
            if (const Json* v = findMember(first, key)) item[key] = *v;
          Json reply = Json::object();
          reply["results"] = std::move(item);
          const Json* level = findMember(answer, "wtp_level");
          reply["wtp_level"] = level ? *level : Json(kDefaultWtpLevel);
          if (const Json* version = findMember(answer, "productVersion")) reply["productVersion"] = *version;
          browser.dispatchMessageToScript(page, "wtp_rating", std::move(reply));
        });
      },
      [&setting](const std::optional<HttpResponse>&, const std::optional<HttpError>&) { clearSettings(setting); });
}

}  // namespace wren

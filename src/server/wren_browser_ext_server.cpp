#include "server/wren_browser_ext_server.h"

#include <string_view>
#include <unordered_map>
#include <vector>

#include "server/setting.h"
#include "util/json_parse.h"
#include "util/service_origin.h"
#include "util/stringify.h"

namespace wren {

namespace {
constexpr const char* kPatternPath = "/BrowserExt/pattern";
constexpr const char* kSettingPath = "/BrowserExt/setting?type=extension";
constexpr const char* kRatingPath = "/BrowserExt/rating";
constexpr const char* kCommandPath = "/BrowserExt/command";
constexpr const char* kSendDataPath = "/BrowserExt/sendData";
// How HTTP joins repeated fields of one name into one value.
constexpr const char* kHeaderValueSeparator = ", ";

// A dictionary answer goes to success (through `shape`), any other
// well-formed answer to failure with neither response nor error, a transport
// failure to failure as reported.
AjaxSuccess dictionaryOnly(std::function<Json(const HttpResponse&, const Json&)> shape, ServiceSuccess success,
                           ServiceFailure fail) {
  return [shape = std::move(shape), success = std::move(success), fail = std::move(fail)](
             const HttpResponse& response, const std::optional<Json>& body) {
    if (body && body->is_object()) {
      if (success) success(shape(response, *body));
    } else if (fail) {
      fail(std::nullopt, std::nullopt);
    }
  };
}

AjaxFailure passFailure(ServiceFailure fail) {
  return [fail = std::move(fail)](const std::optional<HttpResponse>& response, const HttpError& error) {
    if (fail) fail(response, error);
  };
}

Json bodyOnly(const HttpResponse&, const Json& body) { return body; }
}  // namespace

WrenBrowserExtServer::WrenBrowserExtServer(Ajax& ajax, Setting& setting, std::string serviceOrigin)
    : ajax_(ajax),
      setting_(setting),
      origin_(std::move(serviceOrigin)),
      uriForPattern_(origin_ + kPatternPath),
      uriForSetting_(origin_ + kSettingPath),
      uriForUrl_(origin_ + kRatingPath),
      uriForCommand_(origin_ + kCommandPath),
      uriForSendData_(origin_ + kSendDataPath) {}

WrenBrowserExtServer& WrenBrowserExtServer::sharedInstance() {
  static WrenBrowserExtServer instance(Ajax::shared(), Setting::sharedInstance(), serviceOrigin());
  return instance;
}

void WrenBrowserExtServer::loadSettings(ServiceSuccess success, ServiceFailure fail) {
  loadMerged(uriForSetting_, std::move(success), std::move(fail));
}

void WrenBrowserExtServer::loadMerged(const std::string& url, ServiceSuccess success, ServiceFailure fail) {
  ajax_.get(url, {}, Json::object(), dictionaryOnly(mergeHeadersAndBody, std::move(success), fail),
            passFailure(fail));
}

void WrenBrowserExtServer::sendCommand(const Json& command, ServiceSuccess success, ServiceFailure fail) {
  ajax_.get(uriForCommand_, {}, command, dictionaryOnly(bodyOnly, std::move(success), fail), passFailure(fail));
}

void WrenBrowserExtServer::sendCommand(const Json& command, const Headers& headers,
                                       const std::optional<std::string>& acceptContentType, ServiceSuccess success,
                                       ServiceFailure fail) {
  ajax_.get(uriForCommand_, headers, acceptContentType, command, dictionaryOnly(bodyOnly, std::move(success), fail),
            passFailure(fail));
}

std::optional<std::string> WrenBrowserExtServer::dictToJsonStr(const Json& value) {
  return wren::dictToJsonStr(value);
}

Json mergeHeadersAndBody(const HttpResponse& response, const Json& body) {
  // Fields joined through a hash index and the body merged in one pass: a
  // service may send thousands of either, and a search of the dictionary for
  // each would be quadratic.
  std::vector<std::pair<std::string, std::string>> fields;
  std::unordered_map<std::string_view, size_t> seen;
  fields.reserve(response.headerFields.size());
  for (const auto& [name, value] : response.headerFields) {
    auto [it, added] = seen.emplace(name, fields.size());
    if (added) {
      fields.emplace_back(name, value);
    } else {
      fields[it->second].second.append(kHeaderValueSeparator).append(value);
    }
  }
  Json merged = Json::object_t(fields.begin(), fields.end());
  mergeObject(merged, body);
  return merged;
}

}  // namespace wren

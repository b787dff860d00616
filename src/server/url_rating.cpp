// URL rating: the item list travels to the service in request headers.
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>

#include "server/short_links.h"
#include "server/wren_browser_ext_server.h"
#include "util/logging.h"
#include "util/stringify.h"

namespace wren {

namespace {
constexpr const char* kTag = "WRENBrowserExtServer";
// The count header and the per-item headers differ by one letter ("KVE");
// the service reads both spellings exactly as they stand.
constexpr const char* kLengthHeader = "KVExtURLs_Length";
constexpr const char* kItemPrefix = "KVEExtURLs_";

// The decimal text of an item's "id": an integer as such, any other number in
// its shortest form; nullopt when it is not a number.
std::optional<std::string> idText(const Json& id) {
  // Integers are written directly (the same digits as dump(), without
  // setting up a serializer for each item).
  if (id.is_number_unsigned()) return std::to_string(id.get<uint64_t>());
  if (id.is_number_integer()) return std::to_string(id.get<int64_t>());
  if (!id.is_number_float()) return std::nullopt;
  const double d = id.get<double>();
  constexpr double kLargestExactInteger = 9007199254740992.0;  // 2^53
  if (std::isfinite(d) && std::trunc(d) == d && std::fabs(d) <= kLargestExactInteger)
    return std::to_string(static_cast<long long>(d));
  return id.dump();
}

// The rating headers of an item list, or the index of the first item that
// cannot be written (not a dictionary, no text "url", or an "id" that is not
// a number). Written once in the form they go out in: their names are ours,
// distinct and sendable, so they need no merge and no check.
std::optional<HeaderLines> ratingHeaders(const Json& items, size_t& badIndex) {
  HeaderLines headers;
  // About a hundred bytes a link: three names, an address and an id.
  headers.reserve(1 + 3 * items.size(), 64 + 128 * items.size());
  headers.add(kLengthHeader, std::to_string(items.size()));
  std::string name;
  for (size_t i = 0; i < items.size(); ++i) {
    const Json& item = items[i];
    badIndex = i;
    if (!item.is_object()) return std::nullopt;
    auto url = item.find("url");
    auto id = item.find("id");
    if (url == item.end() || !url->is_string() || id == item.end()) return std::nullopt;
    std::optional<std::string> idValue = idText(*id);
    if (!idValue) return std::nullopt;
    const std::string& address = url->get_ref<const std::string&>();
    name.assign(kItemPrefix).append(std::to_string(i));
    const size_t prefix = name.size();
    headers.add(name.append("_url"), address);  // escaped on the way in: no CR or LF reaches the wire
    name.resize(prefix);
    headers.add(name.append("_id"), *idValue);
    name.resize(prefix);
    headers.add(name.append("_needResolving"), WrenBrowserExtServer::isMatch(address) ? "true" : "false");
  }
  return headers;
}

std::string timestampText() {
  const double seconds =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  char buf[64];
  std::snprintf(buf, sizeof buf, "%f", seconds);
  return buf;
}
}  // namespace

void WrenBrowserExtServer::rateURL(const Json& items, std::function<void(const Json&)> onResult) {
  Logging::logDebugWithTag(kTag, "==> enter rateURL");
  _rateURL(items, std::nullopt, std::move(onResult));
}

void WrenBrowserExtServer::rateWTPURL(const Json& items, std::function<void(const Json&)> onResult) {
  Logging::logDebugWithTag(kTag, "==> enter rateWTPURL");
  _rateURL(items, std::string("type=wtp"), std::move(onResult));
}

void WrenBrowserExtServer::_rateURL(const Json& items, const std::optional<std::string>& param,
                                    std::function<void(const Json&)> onResult) {
  if (!items.is_array()) {
    Logging::logErrorWithTag(kTag, "rateUrl: items is not a list, dropped");
    return;
  }
  size_t badIndex = 0;
  std::optional<HeaderLines> headers = ratingHeaders(items, badIndex);
  if (!headers) {
    Logging::logErrorWithTag(kTag, "rateUrl: item " + std::to_string(badIndex) + " is malformed, dropped");
    return;
  }
  // The timestamp makes every rating address distinct, so nothing between
  // here and the service can answer from a cache.
  std::string url = uriForUrl_ + "?timestamp=" + timestampText();
  if (param) url += "&" + *param;

  ajax_.getWithHeaderLines(
      url, std::move(*headers),
      [url, onResult = std::move(onResult)](const HttpResponse&, const std::optional<Json>& body) {
        if (body && body->is_object()) {
          if (onResult) onResult(*body);
          return;
        }
        Logging::logErrorWithTag(kTag, "rateUrl:" + url + " results is not correct, data=" +
                                           (body ? toString(*body) : std::string("(null)")));
      },
      [](const std::optional<HttpResponse>& response, const HttpError& error) {
        Logging::logErrorWithTag(kTag, "fail to rateItems ,textStatus=" +
                                           std::to_string(response ? response->statusCode : 0) +
                                           ", errorThrown=" + error.localizedDescription);
      });
}

}  // namespace wren

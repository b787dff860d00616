#include "local_service.h"

#include <charconv>
#include <optional>
#include <string_view>
#include <vector>

#include "text_util.h"

namespace wren::sim {

namespace {

constexpr const char* kJsonType = "application/json";
// The bridge asks for page content with this accepted type and rejects
// anything else, so those commands answer JSON labelled as HTML.
constexpr const char* kHtmlType = "text/html";
// The block page; its address carries the block code ("?code=...") when the
// service shows it in place of a site.
constexpr const char* kBlockPagePath = "/BrowserExt/blockPage";
// A page has a few hundred links at most; headers cap a list long before
// this, and the bound keeps a forged count from making us loop for long.
constexpr long kMaxRatedItems = 10000;

void reply(httplib::Response& res, const Json& body, int status = 200, const char* type = kJsonType) {
  res.status = status;
  res.set_content(dumpJson(body), type);
}

std::optional<long long> parseInteger(const std::string& text) {
  long long value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// The header's value, all of it (the library's accessor stops at a NUL byte);
// "" when absent. Names compare case-insensitively.
std::string headerValue(const WireRequest& req, std::string_view name) {
  const std::string* value = req.header(name);
  return value ? *value : std::string();
}

// The first value of each of an item's rating headers, "KVEExtURLs_<i>_url",
// "_id" and "_needResolving" (names in any case); nullptr when not sent.
struct ItemHeaders {
  const std::string* url = nullptr;
  const std::string* id = nullptr;
  const std::string* needResolving = nullptr;
};

// Sorts the rating headers by item in one pass over the request's headers,
// instead of searching all of them for each of an item's three names. An
// index is read only in its plain decimal form, the way the names are built.
std::vector<ItemHeaders> itemHeaders(const WireRequest& req, size_t count) {
  constexpr std::string_view kPrefix = "KVEExtURLs_";
  std::vector<ItemHeaders> items(count);
  for (const auto& [name, value] : req.headers) {
    if (!startsWithIgnoringCase(name, kPrefix)) continue;
    std::string_view rest = std::string_view(name).substr(kPrefix.size());
    size_t digits = 0;
    while (digits < rest.size() && rest[digits] >= '0' && rest[digits] <= '9') ++digits;
    if (digits == 0 || (digits > 1 && rest[0] == '0') || digits >= rest.size() || rest[digits] != '_') continue;
    size_t index = 0;
    auto [end, ec] = std::from_chars(rest.data(), rest.data() + digits, index);
    if (ec != std::errc() || index >= count) continue;
    std::string_view field = rest.substr(digits + 1);
    ItemHeaders& item = items[index];
    const std::string** slot = sameHeaderName(field, "url")             ? &item.url
                               : sameHeaderName(field, "id")            ? &item.id
                               : sameHeaderName(field, "needResolving") ? &item.needResolving
                                                                        : nullptr;
    if (slot && !*slot) *slot = &value;  // the first one sent counts, as with a lookup
  }
  return items;
}

// JSON text written straight into the answer: a rating answer is a list of
// small flat objects, and building them as a document first would cost more
// than rating the addresses. Text that needs escaping goes through the JSON
// library, so the bytes are the same as dumpJson's.
void appendJsonString(std::string* out, std::string_view text) {
  bool plain = true;
  for (char c : text) {
    unsigned char u = static_cast<unsigned char>(c);
    if (u < 0x20 || u >= 0x7F || c == '"' || c == '\\') {
      plain = false;
      break;
    }
  }
  if (!plain) {
    out->append(dumpJson(Json(std::string(text))));
    return;
  }
  out->push_back('"');
  out->append(text);
  out->push_back('"');
}

void appendJsonValue(std::string* out, const Json& value) {
  if (value.is_string()) {
    appendJsonString(out, value.get_ref<const std::string&>());
  } else {
    out->append(dumpJson(value));
  }
}

// Appends one item's rating object; returns its level.
int appendRating(std::string* out, const Rules& rules, const ItemHeaders& headers) {
  // Values are used as sent: the bridge's %0D/%0A/%00 escapes stay escaped.
  static const std::string kAbsent;
  const std::string& url = headers.url ? *headers.url : kAbsent;
  bool needResolving = headers.needResolving && toLower(*headers.needResolving) == "true";
  std::optional<std::string> target = needResolving ? rules.resolveShortLink(url) : std::nullopt;
  Rating rating = rules.rate(target.value_or(url));

  out->append("{\"id\":");
  if (!headers.id) {
    out->append("null");
  } else if (auto n = parseInteger(*headers.id)) {
    out->append(std::to_string(*n));
  } else {
    appendJsonString(out, *headers.id);
  }
  out->append(",\"url\":");
  appendJsonString(out, url);
  out->append(",\"level\":").append(std::to_string(rating.level));
  out->append(",\"category\":");
  appendJsonValue(out, rating.category);
  out->append(",\"categoryGroup\":");
  appendJsonValue(out, rating.categoryGroup);
  if (target) {
    out->append(",\"resolved\":");
    appendJsonString(out, *target);
  }
  out->push_back('}');
  return rating.level;
}

}  // namespace

LocalService::LocalService(LocalServiceConfig config, const Rules& rules, EventLog& log)
    : config_(std::move(config)), rules_(rules), log_(log) {}

void LocalService::handle(const WireRequest& req, httplib::Response& res) {
  log_.request("local", req);
  if (req.method == "GET" && req.path == "/BrowserExt/setting")
    handleSetting(req, res);
  else if (req.method == "GET" && req.path == "/BrowserExt/command")
    handleCommand(req, res);
  else if (req.method == "GET" && req.path == "/BrowserExt/rating")
    handleRating(req, res);
  else if (req.method == "POST" && req.path == "/BrowserExt/sendData")
    handleSendData(req, res);
  else if (req.method == "GET" && req.path == kBlockPagePath)
    handleBlockPage(res);
  else  // the pattern address included: the bridge holds it but never asks
    reply(res, {{"error", "not found"}}, 404);
}

void LocalService::handleSetting(const WireRequest& req, httplib::Response& res) {
  Query q = parseRawQuery(queryOf(req.target));
  if (q["type"] != "extension") {
    reply(res, {{"error", "unknown setting type"}}, 400);
    return;
  }
  std::lock_guard lock(mutex_);
  res.set_header("X-Wren-ToolbarStatus", config_.toolbar ? "true" : "false");
  reply(res, {{"EnableAutomaticScan", config_.autoScan}, {"EnableManualScanner", config_.manualScan}});
}

void LocalService::handleCommand(const WireRequest& req, httplib::Response& res) {
  // Parsed from the raw target: the mail-scan address arrives as unescaped
  // Base64, whose "+" a form decoder would turn into a space.
  Query q = parseRawQuery(queryOf(req.target));
  const std::string type = q.count("type") ? q["type"] : "";
  if (type == "updateSetting") {
    int status = 200;
    Json answer = updateSetting(q, &status);
    reply(res, answer, status);
  } else if (type == "showToolbarUI" || type == "showToolbarHelp") {
    reply(res, {{"result", "ok"}});
  } else if (type == "log") {
    log_.event({{"event", "log"}, {"info", q["info"]}});
    reply(res, {{"result", "ok"}});
  } else if (type == "vds") {
    reply(res, vdsSettings(q));
  } else if (type == "get_relevant_blog") {
    reply(res, {{"blogs", rules_.blogs()}}, 200, kHtmlType);
  } else if (type == "wtpatl") {
    reply(res, {{"atl", Json::array()}}, 200, kHtmlType);
  } else {
    reply(res, {{"result", "unknown command"}, {"type", type}});
  }
}

Json LocalService::updateSetting(const Query& q, int* status) {
  auto name = q.find("name"), value = q.find("value");
  std::optional<bool> on = value == q.end() ? std::nullopt : parseBoolText(value->second);
  if (name == q.end() || !on) {
    *status = 400;
    return {{"result", "error"}, {"reason", "updateSetting needs name and value=true|false"}};
  }
  std::lock_guard lock(mutex_);
  if (name->second == "EnableAutomaticScan") {
    config_.autoScan = *on;
  } else if (name->second == "EnableManualScanner") {
    config_.manualScan = *on;
  } else if (name->second == "ToolbarStatus" || name->second == "X-Wren-ToolbarStatus") {
    config_.toolbar = *on;
  } else if (name->second == "EnableVeldrin") {
    // With an address only that address switches; without one, the default
    // of every address that was not switched on its own.
    if (auto e = q.find("e"); e != q.end())
      veldrinByAddress_[base64Decode(e->second).value_or(e->second)] = *on;
    else
      config_.veldrin = *on;
  } else {
    *status = 400;
    return {{"result", "error"}, {"reason", "unknown setting"}, {"name", name->second}};
  }
  return {{"result", "ok"}, {"name", name->second}, {"value", value->second}};
}

Json LocalService::vdsSettings(const Query& q) {
  bool enabled;
  {
    std::lock_guard lock(mutex_);
    enabled = config_.veldrin;
    if (auto e = q.find("e"); e != q.end()) {
      auto known = veldrinByAddress_.find(base64Decode(e->second).value_or(e->second));
      if (known != veldrinByAddress_.end()) enabled = known->second;
    }
  }
  Json answer = {{"EnableVeldrin", enabled}, {"ShowPromotion", false}, {"ShowDCN", false},
                 {"ShowNewDCN", false},      {"ShowTooltip", true},    {"ShowVeldrin", true}};
  if (!config_.cloudOrigin.empty()) answer["VeldrinAPI"] = config_.cloudOrigin;
  return answer;
}

void LocalService::handleRating(const WireRequest& req, httplib::Response& res) {
  Query q = parseRawQuery(queryOf(req.target));
  auto count = parseInteger(headerValue(req, "KVExtURLs_Length"));
  if (!count || *count < 0 || *count > kMaxRatedItems) {
    reply(res, {{"error", "KVExtURLs_Length must be a count from 0 to " + std::to_string(kMaxRatedItems)}}, 400);
    return;
  }
  std::vector<ItemHeaders> items = itemHeaders(req, static_cast<size_t>(*count));
  std::string body = "{\"results\":[";
  std::optional<int> firstLevel;
  for (size_t i = 0; i < items.size(); ++i) {
    if (i > 0) body.push_back(',');
    int level = appendRating(&body, rules_, items[i]);
    if (!firstLevel) firstLevel = level;
  }
  body.push_back(']');
  if (q["type"] == "wtp") {
    body.append(",\"wtp_level\":").append(std::to_string(firstLevel.value_or(kLevelUnknown)));
    body.append(",\"productVersion\":");
    appendJsonString(&body, config_.productVersion);
  }
  body.push_back('}');
  res.status = 200;
  res.set_content(std::move(body), kJsonType);
}

void LocalService::handleBlockPage(httplib::Response& res) {
  // What the product shows in place of a blocked site; the extension knows
  // it by the marker, and trusts it only from this origin.
  res.set_content(
      "<!doctype html><html><head><meta charset=\"utf-8\"><meta name=\"wren-block-page\" content=\"1\">"
      "<title>Blocked by Wren</title></head><body><h1>This site was blocked</h1></body></html>",
      kHtmlType);
}

void LocalService::handleSendData(const WireRequest& req, httplib::Response& res) {
  Json data = parseJson(req.body);
  log_.event({{"event", "sendData"}, {"data", data.is_discarded() ? Json(req.body) : data}});
  reply(res, {{"result", "ok"}});
}

}  // namespace wren::sim

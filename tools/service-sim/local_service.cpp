#include "local_service.h"

#include <charconv>

#include "text_util.h"

namespace wren::sim {

namespace {

constexpr const char* kJsonType = "application/json";
// The bridge asks for page content with this accepted type and rejects
// anything else, so those commands answer JSON labelled as HTML.
constexpr const char* kHtmlType = "text/html";
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
std::string headerValue(const httplib::Request& req, const std::string& name) {
  auto it = req.headers.find(name);
  return it == req.headers.end() ? "" : it->second;
}

std::string itemHeader(int index, const char* suffix) {
  return "KVEExtURLs_" + std::to_string(index) + suffix;
}

}  // namespace

LocalService::LocalService(LocalServiceConfig config, const Rules& rules, EventLog& log)
    : config_(std::move(config)), rules_(rules), log_(log) {}

void LocalService::handle(const httplib::Request& req, httplib::Response& res) {
  log_.request("local", req);
  if (req.method == "GET" && req.path == "/BrowserExt/setting")
    handleSetting(req, res);
  else if (req.method == "GET" && req.path == "/BrowserExt/command")
    handleCommand(req, res);
  else if (req.method == "GET" && req.path == "/BrowserExt/rating")
    handleRating(req, res);
  else if (req.method == "POST" && req.path == "/BrowserExt/sendData")
    handleSendData(req, res);
  else  // the pattern address included: the bridge holds it but never asks
    reply(res, {{"error", "not found"}}, 404);
}

void LocalService::handleSetting(const httplib::Request& req, httplib::Response& res) {
  Query q = parseRawQuery(queryOf(req.target));
  if (q["type"] != "extension") {
    reply(res, {{"error", "unknown setting type"}}, 400);
    return;
  }
  std::lock_guard lock(mutex_);
  res.set_header("X-Wren-ToolbarStatus", config_.toolbar ? "true" : "false");
  reply(res, {{"EnableAutomaticScan", config_.autoScan}, {"EnableManualScanner", config_.manualScan}});
}

void LocalService::handleCommand(const httplib::Request& req, httplib::Response& res) {
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

void LocalService::handleRating(const httplib::Request& req, httplib::Response& res) {
  Query q = parseRawQuery(queryOf(req.target));
  auto count = parseInteger(headerValue(req, "KVExtURLs_Length"));
  if (!count || *count < 0 || *count > kMaxRatedItems) {
    reply(res, {{"error", "KVExtURLs_Length must be a count from 0 to " + std::to_string(kMaxRatedItems)}}, 400);
    return;
  }
  Json results = Json::array();
  for (int i = 0; i < *count; ++i) results.push_back(rateItem(req, i));
  Json answer = {{"results", results}};
  if (q["type"] == "wtp") {
    answer["wtp_level"] = results.empty() ? Json(kLevelUnknown) : results[0]["level"];
    answer["productVersion"] = config_.productVersion;
  }
  reply(res, answer);
}

Json LocalService::rateItem(const httplib::Request& req, int index) const {
  // Values are used as sent: the bridge's %0D/%0A/%00 escapes stay escaped.
  std::string url = headerValue(req, itemHeader(index, "_url"));
  std::string idText = headerValue(req, itemHeader(index, "_id"));
  bool needResolving = toLower(headerValue(req, itemHeader(index, "_needResolving"))) == "true";
  Json id = nullptr;
  if (auto n = parseInteger(idText))
    id = *n;
  else if (req.headers.count(itemHeader(index, "_id")))
    id = idText;
  std::optional<std::string> target = needResolving ? rules_.resolveShortLink(url) : std::nullopt;
  Rating rating = rules_.rate(target.value_or(url));
  Json item = {{"id", id},
               {"url", url},
               {"level", rating.level},
               {"category", rating.category},
               {"categoryGroup", rating.categoryGroup}};
  if (target) item["resolved"] = *target;
  return item;
}

void LocalService::handleSendData(const httplib::Request& req, httplib::Response& res) {
  Json data = parseJson(req.body);
  log_.event({{"event", "sendData"}, {"data", data.is_discarded() ? Json(req.body) : data}});
  reply(res, {{"result", "ok"}});
}

}  // namespace wren::sim

#include "cloud_service.h"

#include <strings.h>

#include "sim_json.h"
#include "text_util.h"

namespace wren::sim {

namespace {

// What the bridge writes in place of a token the page did not give.
constexpr const char* kMissingToken = "(null)";

void reply(httplib::Response& res, const Json& body, int status = 200) {
  res.status = status;
  res.set_content(dumpJson(body), "application/json");
}

// Splits "Scheme token" at the first blank; token "" when there is none.
std::pair<std::string, std::string> splitAuthorization(const std::string& value) {
  size_t space = value.find(' ');
  if (space == std::string::npos) return {value, ""};
  size_t token = value.find_first_not_of(' ', space);
  return {value.substr(0, space), token == std::string::npos ? "" : value.substr(token)};
}

}  // namespace

std::string CloudService::redactAuthorization(const std::string& value) {
  auto [scheme, token] = splitAuthorization(value);
  // An absent or placeholder token is no secret, and seeing it helps.
  if (token.empty() || token == kMissingToken) return value;
  return scheme + " <redacted>";
}

bool CloudService::hasBearerToken(const std::string& value) {
  auto [scheme, token] = splitAuthorization(value);
  return strcasecmp(scheme.c_str(), "bearer") == 0 && !token.empty() && token != kMissingToken;
}

void CloudService::logRequest(const httplib::Request& req) {
  log_.request("cloud", req, [](const std::string& name, const std::string& value) {
    return strcasecmp(name.c_str(), "Authorization") == 0 ? redactAuthorization(value) : value;
  });
}

void CloudService::install(httplib::Server& server) {
  auto route = [this](void (CloudService::*handler)(const httplib::Request&, httplib::Response&)) {
    return [this, handler](const httplib::Request& req, httplib::Response& res) {
      logRequest(req);
      if (!hasBearerToken(req.get_header_value("Authorization"))) {
        reply(res, {{"error", "unauthorized"}}, 401);
        return;
      }
      (this->*handler)(req, res);
    };
  };
  server.Post("/mail/key/mails", route(&CloudService::handleScan));
  server.Post("/mail/key/user_feedback", route(&CloudService::handleFeedback));
  auto notFound = [this](const httplib::Request& req, httplib::Response& res) {
    logRequest(req);
    reply(res, {{"error", "not found"}}, 404);
  };
  server.Get(".*", notFound);
  server.Post(".*", notFound);
}

void CloudService::handleScan(const httplib::Request& req, httplib::Response& res) {
  Json mail = parseJson(req.body);
  if (mail.is_discarded()) {
    reply(res, {{"error", "bad json"}}, 400);
    return;
  }
  if (auto reason = rules_.scamReason(mail))
    reply(res, {{"code", 0}, {"result", 1}, {"verdict", "scam"}, {"reason", *reason}});
  else
    reply(res, {{"code", 0}, {"result", 0}, {"verdict", "clean"}});
}

void CloudService::handleFeedback(const httplib::Request&, httplib::Response& res) {
  reply(res, {{"code", 0}, {"result", "received"}});
}

}  // namespace wren::sim

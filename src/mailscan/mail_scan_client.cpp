#include "mailscan/mail_scan_client.h"

#include <utility>

#include "net/ajax.h"
#include "server/setting.h"
#include "server/veldrin_config_item.h"
#include "server/wren_browser_ext_server.h"
#include "util/common.h"
#include "util/stringify.h"

namespace wren {

namespace {

constexpr std::string_view kLogPrefix = "Server#response#is#";
constexpr std::string_view kEmailHashPrefix = "[Veldrin]Email Hash is ";

// The text under `key` of the page's dictionary, when it is one.
std::optional<std::string> stringField(const std::optional<Json>& input, const char* key) {
  const Json* field = input ? findMember(*input, key) : nullptr;
  if (!field || !field->is_string()) return std::nullopt;
  return field->get<std::string>();
}

// A fire-and-forget "log" command: its outcome is of no interest to anyone.
Json logCommand(std::string info) { return Json{{"type", "log"}, {"info", std::move(info)}}; }

}  // namespace

MailScanClient::MailScanClient(Ajax& ajax, Setting& setting, WrenBrowserExtServer& server)
    : ajax_(ajax), setting_(setting), server_(server) {}

MailScanClient& MailScanClient::sharedInstance() {
  static MailScanClient instance(Ajax::shared(), Setting::sharedInstance(), WrenBrowserExtServer::sharedInstance());
  return instance;
}

std::string MailScanClient::md5(std::string_view text) { return wren::md5UpToNul(text); }

void MailScanClient::post(std::string_view path, std::string_view scheme, const std::optional<Json>& input,
                          std::function<void(const std::optional<Json>& body)> onSuccess,
                          std::function<void(long status, const std::optional<Json>& body)> onFailure) {
  // Read at every call: the local service may move the cloud between requests.
  std::string url = setting_.veldrinConfigItem().veldrinAPI();
  url += path;

  std::string authorization(scheme);
  authorization += stringField(input, "jwt").value_or(std::string(kAbsentToken));

  // The token is the page's text: never let it end the header line.
  Headers headers{{"Content-Type", "application/json"},
                  {"Authorization", safeHeaderValue(authorization)},
                  {"ClientPurpose", "GM"}};
  std::string body = stringField(input, "json").value_or(std::string());

  // Neither the token nor the body is logged anywhere: they are the user's.
  ajax_.post(
      url, headers, body,
      [onSuccess = std::move(onSuccess)](const std::optional<HttpResponse>&, const std::optional<Json>& decoded,
                                         const std::optional<HttpError>&) { onSuccess(decoded); },
      [onFailure = std::move(onFailure)](const std::optional<HttpResponse>& response,
                                         const std::optional<Json>& decoded, const std::optional<HttpError>&) {
        onFailure(response ? response->statusCode : 0, decoded);
      });
}

void MailScanClient::email_scan(const std::optional<Json>& input, Success success, Failure fail) {
  post(
      kScanPath, kScanScheme, input,
      [this, success, fail](const std::optional<Json>& body) {
        if (!body || !body->is_object()) {
          if (fail) fail(std::nullopt);
          return;
        }
        Json answer = *body;
        // The page hears first; the diagnostics follow and cannot hold it up.
        if (success) success(answer);
        logScanAnswer(answer);
      },
      [fail](long status, const std::optional<Json>& body) {
        if (!fail) return;
        Json failure = Json::object();
        failure["code"] = status;
        failure["response"] = body ? *body : Json::object();
        fail(failure);
      });
}

void MailScanClient::feedback(const std::optional<Json>& input, Success success, Failure fail) {
  post(
      kFeedbackPath, kFeedbackScheme, input,
      [success, fail](const std::optional<Json>& body) {
        if (body && body->is_object()) {
          if (success) success(Json(*body));
        } else if (fail) {
          fail(body);
        }
      },
      [fail](long, const std::optional<Json>& body) {
        if (fail) fail(body);
      });
}

void MailScanClient::logScanAnswer(const Json& answer) {
  // The address as it stands now, not when the request left: the page may
  // have switched accounts meanwhile, and the log should say whose answer
  // the page received.
  // The second line is sent once the first is through (or has failed), so
  // the service's log has them in this order: two requests in flight at once
  // may travel on two connections and arrive either way round.
  WrenBrowserExtServer& server = server_;
  auto sendResponseLine = [&server, command = logCommand(serverResponseLogLine(answer))](auto&&...) {
    server.sendCommand(command, nullptr, nullptr);
  };
  server_.sendCommand(logCommand(emailHashLogLine(setting_.veldrinConfigItem().curEmail())), sendResponseLine,
                      sendResponseLine);
}

std::string compactLogLine(std::string_view text) {
  // One pass does the four steps at once: the only character a step creates
  // that an earlier step removes is the blank from "#", and that step is last.
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c == '\n' || c == ' ') continue;
    if (c == '=') {
      out += ':';
    } else if (c == '#') {
      out += ' ';
    } else {
      out += c;
    }
  }
  return out;
}

std::string serverResponseLogLine(const Json& answer) {
  std::string line(kLogPrefix);
  line += description(answer);
  return compactLogLine(line);
}

std::string emailHashLogLine(const std::optional<std::string>& email) {
  std::string line(kEmailHashPrefix);
  line += wren::md5UpToNul(email.value_or(std::string()));
  return line;
}

}  // namespace wren

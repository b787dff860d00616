#pragma once
// The relay between the web-mail page's scanner and the cloud mail-scan
// service: a scan request or the user's feedback, posted over HTTPS with the
// page's bearer token and the page's own JSON text as the body. The system
// adds nothing of its own to what the cloud sees.
//
// Runs on the main run loop; the callbacks run there too. Owns nothing: the
// HTTP client, the settings record (for the cloud base and the current
// address) and the local-service client (for the two diagnostic log lines)
// are borrowed and must outlive every request.
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "util/json.h"

namespace wren {

class Ajax;
class Setting;
class WrenBrowserExtServer;

class MailScanClient {
 public:
  // The cloud's answer dictionary (a copy).
  using Success = std::function<void(const Json& answer)>;
  // The scan hands {"code", "response"} or nullopt; the feedback hands the
  // bare body, whatever it is, or nullopt.
  using Failure = std::function<void(const std::optional<Json>& value)>;

  // Path formats under the cloud base; no slash is inserted, so the base has none at its end.
  static constexpr std::string_view kScanPath = "/mail/key/mails";
  static constexpr std::string_view kFeedbackPath = "/mail/key/user_feedback";
  // The Authorization schemes really differ in case: the cloud expects them so.
  static constexpr std::string_view kScanScheme = "Bearer ";
  static constexpr std::string_view kFeedbackScheme = "bearer ";
  // Stands in for a token the page did not send; the cloud then refuses the call.
  static constexpr std::string_view kAbsentToken = "(null)";

  MailScanClient(Ajax& ajax, Setting& setting, WrenBrowserExtServer& server);

  // The process's client on the shared HTTP client, settings and service client.
  static MailScanClient& sharedInstance();

  // Both read "jwt" (the token) and "json" (the body text) from the page's
  // dictionary; other keys are ignored. Either callback may be empty; at most
  // one of them runs, once.
  void email_scan(const std::optional<Json>& input, Success success, Failure fail);
  void feedback(const std::optional<Json>& input, Success success, Failure fail);

  // 32 lower-case hex digits of the MD5 of the UTF-8 bytes before the first NUL.
  static std::string md5(std::string_view text);

 private:
  void post(std::string_view path, std::string_view scheme, const std::optional<Json>& input,
            std::function<void(const std::optional<Json>& body)> onSuccess,
            std::function<void(long status, const std::optional<Json>& body)> onFailure);
  void logScanAnswer(const Json& answer);

  Ajax& ajax_;
  Setting& setting_;
  WrenBrowserExtServer& server_;
};

// The second scan log line's compaction of "Server#response#is#<description>",
// in this order: drop every "\n", turn every "=" into ":", drop every " ",
// turn every "#" into " ". The "#" go last so the prefix's three words keep
// their blanks while the dictionary loses all of its own.
std::string compactLogLine(std::string_view text);

// "Server response is " followed by the compacted description of the answer.
std::string serverResponseLogLine(const Json& answer);

// "[Veldrin]Email Hash is " followed by the MD5 of the address ("" when absent).
std::string emailHashLogLine(const std::optional<std::string>& email);

}  // namespace wren

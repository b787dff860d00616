#pragma once
// The client of the local protection service: its addresses, the settings
// load, commands, URL rating, the mail-scan switches, and the popover's
// commands. Stateless after construction; it talks to the service only.
//
// Runs on the main run loop; every callback runs there too.
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "net/ajax.h"
#include "util/json.h"

namespace wren {

class Setting;
class VeldrinConfigItem;

// Success of a service operation: one dictionary.
using ServiceSuccess = std::function<void(const Json& dictionary)>;
// Failure: the response when the server answered, the error when there was
// one; both are absent for a well-formed answer whose body is not an object.
using ServiceFailure = std::function<void(const std::optional<HttpResponse>&, const std::optional<HttpError>&)>;

class WrenBrowserExtServer {
 public:
  WrenBrowserExtServer(Ajax& ajax, Setting& setting, std::string serviceOrigin);
  static WrenBrowserExtServer& sharedInstance();

  const std::string& URIForPattern() const { return uriForPattern_; }
  const std::string& URIForSetting() const { return uriForSetting_; }
  const std::string& URIForUrl() const { return uriForUrl_; }
  const std::string& URIForCommand() const { return uriForCommand_; }
  // "<origin>/BrowserExt/sendData", where the page's data is relayed.
  const std::string& URIForSendData() const { return uriForSendData_; }
  const std::string& origin() const { return origin_; }

  void loadSettings(ServiceSuccess success, ServiceFailure fail);
  void sendCommand(const Json& command, ServiceSuccess success, ServiceFailure fail);
  void sendCommand(const Json& command, const Headers& headers, const std::optional<std::string>& acceptContentType,
                   ServiceSuccess success, ServiceFailure fail);
  // Pretty-printed JSON of a dictionary or array; nullopt otherwise.
  static std::optional<std::string> dictToJsonStr(const Json& value);

  // URL rating. onResult runs at most once, only with a dictionary answer.
  void rateURL(const Json& items, std::function<void(const Json&)> onResult);
  void rateWTPURL(const Json& items, std::function<void(const Json&)> onResult);
  void _rateURL(const Json& items, const std::optional<std::string>& param, std::function<void(const Json&)> onResult);
  // Whether an address belongs to a known link shortener or redirector.
  static bool isMatch(std::string_view url);

  // The mail-scan switches ("type=vds"), the answer's headers overlaid by its body.
  void loadVeldrinSetting(ServiceSuccess success, ServiceFailure fail);
  void loadVeldrinSettingByEmail(const std::string& email, ServiceSuccess success, ServiceFailure fail);

  // The popover's commands. Each sends its command and runs `sent` (which may
  // be empty) once it is under way, without waiting for the answer.
  void toggleAutoScan(const std::function<void()>& sent);
  void toggleManualScan(const std::function<void()>& sent);
  void showSettingsPage(const std::function<void()>& sent);
  void showHelpPage(const std::function<void()>& sent);

  Setting& setting() { return setting_; }
  Ajax& ajax() { return ajax_; }

 private:
  void loadMerged(const std::string& url, ServiceSuccess success, ServiceFailure fail);
  void sendPopoverCommand(const Json& command, const std::function<void()>& sent);

  Ajax& ajax_;
  Setting& setting_;
  std::string origin_;
  std::string uriForPattern_, uriForSetting_, uriForUrl_, uriForCommand_, uriForSendData_;
};

// Fills the mail scanner's record from a vds answer: "EnableVeldrin",
// "ShowPromotion", "ShowDCN", "ShowNewDCN", "ShowTooltip" by their truthy
// reading (absent: NO), and "VeldrinAPI" only when the key is present.
void fillVeldrinConfigItem(VeldrinConfigItem& item, const Json& settings);

// A response's header fields as a dictionary, overlaid by the body's entries.
Json mergeHeadersAndBody(const HttpResponse& response, const Json& body);

}  // namespace wren

// The mail-scan switches: the two "type=vds" loads and the table that turns
// their answer into the VeldrinConfigItem.
#include "server/veldrin_config_item.h"
#include "server/wren_browser_ext_server.h"
#include "util/common.h"
#include "util/logging.h"
#include "util/truthy.h"

namespace wren {

namespace {
constexpr const char* kVdsQuery = "/BrowserExt/command?type=vds";
constexpr const char* kTag = "WRENBrowserExtServer";
}  // namespace

void WrenBrowserExtServer::loadVeldrinSetting(ServiceSuccess success, ServiceFailure fail) {
  loadMerged(origin_ + kVdsQuery, std::move(success), std::move(fail));
}

void WrenBrowserExtServer::loadVeldrinSettingByEmail(const std::string& email, ServiceSuccess success,
                                                     ServiceFailure fail) {
  // Base64 goes into the query raw: the service reads "+", "/" and "=" as
  // they stand, so escaping them would change the address it sees.
  loadMerged(origin_ + kVdsQuery + "&e=" + base64EncodedString(email), std::move(success), std::move(fail));
}

void fillVeldrinConfigItem(VeldrinConfigItem& item, const Json& settings) {
  item.setBVeldrinEnabled(truthyKey(settings, "EnableVeldrin"));
  item.setBShowPromotion(truthyKey(settings, "ShowPromotion"));
  item.setBShowDCN(truthyKey(settings, "ShowDCN"));
  item.setBShowNewDCN(truthyKey(settings, "ShowNewDCN"));
  item.setBShowTooltip(truthyKey(settings, "ShowTooltip"));
  if (!settings.is_object() || !settings.contains("VeldrinAPI")) return;
  const Json& api = settings["VeldrinAPI"];
  if (api.is_string()) {
    item.setVeldrinAPI(api.get<std::string>());
  } else {
    // A base that is not text cannot prefix a path; keep the working one.
    Logging::logWarningWithTag(kTag, "VeldrinAPI is not a text, kept " + item.veldrinAPI());
  }
}

}  // namespace wren

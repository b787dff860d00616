#include "server/setting.h"

#include <strings.h>

#include <cstdlib>

#include "util/defaults_store.h"
#include "util/truthy.h"
#include "util/version.h"

namespace wren {

namespace {
constexpr const char* kAutoScanKey = "EnableAutomaticScan";
constexpr const char* kManualScanKey = "EnableManualScanner";
constexpr const char* kToolbarStatusKey = "X-Wren-ToolbarStatus";

// The toolbar state arrives as a response header. Its name is looked up as
// sent first; when that exact key is missing, any spelling of it counts,
// because HTTP/2 and many proxies deliver header names in lower case and the
// service's intent does not depend on the case of a header name.
bool toolbarStatus(const Json& settings) {
  if (!settings.is_object()) return false;
  if (settings.contains(kToolbarStatusKey)) return truthyKey(settings, kToolbarStatusKey);
  for (const auto& [key, value] : settings.items())
    if (strcasecmp(key.c_str(), kToolbarStatusKey) == 0) return truthy(value);
  return false;
}
}  // namespace

Setting::Setting(DefaultsStore* store, std::string veldrinApi)
    : veldrinConfigItem_(std::make_unique<VeldrinConfigItem>(store, std::move(veldrinApi))) {}

Setting& Setting::sharedInstance() {
  static Setting instance(&DefaultsStore::standard(), defaultVeldrinApi());
  return instance;
}

void applySettings(Setting& setting, const Json& settings) {
  setting.setBAutoScanEnabled(truthyKey(settings, kAutoScanKey));
  setting.setBManualScanEnabled(truthyKey(settings, kManualScanKey));
  setting.setBToolbarEnabled(toolbarStatus(settings));
}

void clearSettings(Setting& setting) {
  setting.setBToolbarEnabled(false);
  setting.setBAutoScanEnabled(false);
  setting.setBManualScanEnabled(false);
}

std::string defaultVeldrinApi() {
  const char* env = std::getenv("WREN_VELDRIN_API");
  if (env && *env) return env;
  return kDefaultVeldrinApi;
}

}  // namespace wren

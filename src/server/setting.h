#pragma once
// Which features the local service has switched on. All flags start false, so
// nothing they gate happens before the service has answered. Never persisted.
//
// Runs on the main run loop.
#include <memory>
#include <string>

#include "server/veldrin_config_item.h"
#include "util/json.h"

namespace wren {

class DefaultsStore;

class Setting {
 public:
  Setting(DefaultsStore* store, std::string veldrinApi);

  // The process-wide record on the standard defaults store, with the built-in
  // (or $WREN_VELDRIN_API) cloud base.
  static Setting& sharedInstance();

  bool bToolbarEnabled() const { return bToolbarEnabled_; }
  void setBToolbarEnabled(bool v) { bToolbarEnabled_ = v; }
  bool bAutoScanEnabled() const { return bAutoScanEnabled_; }
  void setBAutoScanEnabled(bool v) { bAutoScanEnabled_ = v; }
  bool bManualScanEnabled() const { return bManualScanEnabled_; }
  void setBManualScanEnabled(bool v) { bManualScanEnabled_ = v; }
  VeldrinConfigItem& veldrinConfigItem() { return *veldrinConfigItem_; }
  void setVeldrinConfigItem(std::unique_ptr<VeldrinConfigItem> item) { veldrinConfigItem_ = std::move(item); }

 private:
  bool bToolbarEnabled_ = false;
  bool bAutoScanEnabled_ = false;
  bool bManualScanEnabled_ = false;
  std::unique_ptr<VeldrinConfigItem> veldrinConfigItem_;
};

// Applies a settings dictionary (headers overlaid by body): "EnableAutomaticScan",
// "EnableManualScanner", then "X-Wren-ToolbarStatus", each by its truthy reading
// (absent: false), in that order.
void applySettings(Setting& setting, const Json& settings);
// A failed settings load: toolbar, automatic scan, manual scan all false.
void clearSettings(Setting& setting);

// The built-in cloud base: $WREN_VELDRIN_API when set, else the build's default.
std::string defaultVeldrinApi();

}  // namespace wren

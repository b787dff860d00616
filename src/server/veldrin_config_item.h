#pragma once
// The mail scanner's record. Only curEmail is persisted (defaults key
// "curEmail"); everything else starts from its default at every launch and is
// refilled from the local service.
//
// Runs on the main run loop.
#include <optional>
#include <string>

namespace wren {

class DefaultsStore;

class VeldrinConfigItem {
 public:
  // store may be null or unavailable: then curEmail starts "" and is never
  // persisted. veldrinApi is the built-in base of the cloud paths.
  VeldrinConfigItem(DefaultsStore* store, std::string veldrinApi);

  const std::optional<std::string>& curEmail() const { return curEmail_; }
  // Persists a new, non-empty address at once; nullopt removes the stored
  // one; "" changes the field only, so the stored address survives.
  void setCurEmail(std::optional<std::string> email);

  bool bVeldrinEnabled() const { return bVeldrinEnabled_; }
  void setBVeldrinEnabled(bool v) { bVeldrinEnabled_ = v; }
  bool bShowPromotion() const { return bShowPromotion_; }
  void setBShowPromotion(bool v) { bShowPromotion_ = v; }
  bool bShowDCN() const { return bShowDCN_; }
  void setBShowDCN(bool v) { bShowDCN_ = v; }
  bool bShowNewDCN() const { return bShowNewDCN_; }
  void setBShowNewDCN(bool v) { bShowNewDCN_ = v; }
  bool bShowTooltip() const { return bShowTooltip_; }
  void setBShowTooltip(bool v) { bShowTooltip_ = v; }
  bool bShowVeldrin() const { return bShowVeldrin_; }
  void setBShowVeldrin(bool v) { bShowVeldrin_ = v; }
  const std::string& veldrinAPI() const { return veldrinAPI_; }
  void setVeldrinAPI(std::string v) { veldrinAPI_ = std::move(v); }

 private:
  DefaultsStore* store_;
  std::optional<std::string> curEmail_;
  bool bVeldrinEnabled_ = false;
  bool bShowPromotion_ = false;
  bool bShowDCN_ = false;
  bool bShowNewDCN_ = false;
  bool bShowTooltip_ = false;
  bool bShowVeldrin_ = true;
  std::string veldrinAPI_;
};

}  // namespace wren

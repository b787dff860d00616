#include "server/veldrin_config_item.h"

#include "util/defaults_store.h"

namespace wren {

namespace {
// The one key this record persists.
constexpr const char* kCurEmailKey = "curEmail";
}  // namespace

VeldrinConfigItem::VeldrinConfigItem(DefaultsStore* store, std::string veldrinApi) : store_(store) {
  std::string stored;
  if (store_ && store_->available()) stored = store_->stringForKey(kCurEmailKey).value_or("");
  // Through the setter like every other write; the field is still absent, so
  // a stored address is written back unchanged, which costs one small write.
  setCurEmail(stored);
  veldrinAPI_ = std::move(veldrinApi);
  bVeldrinEnabled_ = false;
  bShowDCN_ = false;
  bShowNewDCN_ = false;
  bShowPromotion_ = false;
  bShowTooltip_ = false;
  bShowVeldrin_ = true;
}

void VeldrinConfigItem::setCurEmail(std::optional<std::string> email) {
  // An absent address is unequal to everything, so it is always written: that
  // removes the stored entry. "" is never written, on purpose: clearing the
  // field for this session must not forget the account at the next launch.
  const bool differs = !email || !curEmail_ || *email != *curEmail_;
  const bool worthStoring = !email || !email->empty();
  if (store_ && store_->available() && differs && worthStoring) {
    if (email) {
      store_->setString(kCurEmailKey, std::string_view(*email));
    } else {
      store_->setString(kCurEmailKey, std::nullopt);
    }
  }
  curEmail_ = std::move(email);
}

}  // namespace wren

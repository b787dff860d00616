// SafariExtensionViewController: the mail-scan row, driven by the account of
// the web-mail page in the active tab.
#include <string>

#include "mailscan/webmail_account.h"
#include "net/run_loop.h"
#include "popover/safari_extension_view_controller.h"
#include "popover/strings.h"
#include "server/setting.h"
#include "server/veldrin_config_item.h"
#include "server/wren_browser_ext_server.h"
#include "util/logging.h"

namespace wren {

void SafariExtensionViewController::withActivePage(std::function<void(Browser&, const BrowserHandle&)> then) {
  Browser* browser = browser_;
  if (!browser) return;  // no host browser yet
  // Each step ends the chain quietly when there is no window, tab or page, or
  // when the controller is gone.
  std::weak_ptr<bool> alive = alive_;
  browser->getActiveWindow([alive, browser, then](const BrowserHandle& window) {
    if (!alive.lock() || window.is_null()) return;
    browser->getActiveTab(window, [alive, browser, then](const BrowserHandle& tab) {
      if (!alive.lock() || tab.is_null()) return;
      browser->getActivePage(tab, [alive, browser, then](const BrowserHandle& page) {
        if (alive.lock() && !page.is_null()) then(*browser, page);
      });
    });
  });
}

void SafariExtensionViewController::updateVeldrinSetting() {
  systemLog("[SafariToolbar] updateVeldrinSetting enter.");
  // Without a page the row keeps its state.
  std::weak_ptr<bool> alive = alive_;
  withActivePage([this, alive](Browser& browser, const BrowserHandle& page) {
    browser.getPageProperties(page, [this, alive, page](const std::optional<PageProperties>& properties) {
      if (alive.lock()) onPageProperties(page, properties);
    });
  });
}

void SafariExtensionViewController::toggleVeldrim(std::function<void()> reached) {
  // Only an address that is exactly "" holds the panel back; one never set
  // counts as present, so the page decides what to show.
  const auto& email = setting_.veldrinConfigItem().curEmail();
  if (email && email->empty()) return;
  // The popover stays open unless the page was reached.
  withActivePage([reached = std::move(reached)](Browser& browser, const BrowserHandle& page) {
    browser.dispatchMessageToScript(page, "vd_popoverClicked", Json::object());
    if (reached) reached();
  });
}

void SafariExtensionViewController::onPageProperties(const BrowserHandle& page,
                                                     const std::optional<PageProperties>& properties) {
  if (!properties) return;
  // This one record is filled later, whatever happens to Setting meanwhile.
  VeldrinConfigItem* record = &setting_.veldrinConfigItem();
  const std::optional<std::string> current = record->curEmail();

  WebMailService service = WebMailService::None;
  if (properties->url) {
    if (auto host = hostOfUrl(*properties->url)) service = webMailServiceForHost(*host);
  }
  if (!setting_.bToolbarEnabled() || service == WebMailService::None) {
    postToMain([this] { showVeldrinUnavailable(); });
    return;
  }

  std::optional<std::string> account;
  switch (service) {
    case WebMailService::Gmail:
      account = getGmailAccount(*properties);
      break;
    case WebMailService::YahooJapan:
      account = getYahooJPMailAccount(page);
      break;
    case WebMailService::YahooGlobal:
      account = getYahooGlobalMailAccount(*properties);
      break;
    case WebMailService::None:
      break;
  }
  if (!account) {
    systemLog("Mail account is null and reutrn.");
    postToMain([this, record] { showVeldrinNoAccount(record); });
    return;
  }
  // The reader's address and the current one are equal unless it changed,
  // so the reader's address is the one used either way.
  const std::string email = (account != current) ? *account : current.value_or("");
  // A title part of blanks only: leave the row as it is rather than grey it.
  if (email.empty()) return;
  record->setCurEmail(email);
  loadVeldrinSwitches(record, email);
}

void SafariExtensionViewController::loadVeldrinSwitches(VeldrinConfigItem* record, const std::string& email) {
  std::weak_ptr<bool> alive = alive_;
  server_.loadVeldrinSettingByEmail(
      email,
      [this, alive, record](const Json& settings) {
        if (!alive.lock() || !isCurrentRecord(record)) return;
        fillVeldrinConfigItem(*record, settings);
        postToMain([this, record] { showVeldrinLoaded(record); });
      },
      [this, alive, record](const std::optional<HttpResponse>&, const std::optional<HttpError>&) {
        if (!alive.lock()) return;
        postToMain([this, record] { showVeldrinLoadFailed(record); });
      });
}

// The record is owned by Setting; one that was replaced meanwhile is gone, and
// writing to it would write to freed memory.
bool SafariExtensionViewController::isCurrentRecord(const VeldrinConfigItem* record) const {
  return record == &setting_.veldrinConfigItem();
}

void SafariExtensionViewController::showVeldrinUnavailable() {
  Widget* label = view_.lblVeldrin;
  if (label) {
    label->setTextColor(TextColor::Grey);
    label->setToolTip(strings_.localizedStringForKey(kVeldrinUnavailableTooltipKey, "", kVeldrinStringsTable));
    // A lookup without a translation answers with the key itself.
    if (label->toolTip() == kVeldrinUnavailableTooltipKey) label->setToolTip(std::string(kVeldrinUnavailableTooltip));
  }
  if (view_.btnVeldrin) view_.btnVeldrin->setEnabled(false);
  if (view_.veldrinCheck) view_.veldrinCheck->setHidden(true);
}

void SafariExtensionViewController::showVeldrinNoAccount(VeldrinConfigItem* record) {
  if (view_.lblVeldrin) view_.lblVeldrin->setTextColor(TextColor::Grey);
  if (view_.btnVeldrin) view_.btnVeldrin->setEnabled(false);
  if (!isCurrentRecord(record)) return;
  record->setBVeldrinEnabled(false);
  if (view_.veldrinCheck) view_.veldrinCheck->setHidden(!record->bVeldrinEnabled());
}

void SafariExtensionViewController::showVeldrinLoaded(VeldrinConfigItem* record) {
  if (Widget* label = view_.lblVeldrin) {
    label->setTextColor(TextColor::Label);
    if (auto color = colorNamed("Color")) label->setTextColor(*color);
    label->setToolTip(strings_.localizedStringForKey(kVeldrinRowTitleKey, "", kPopoverStringsTable));
  }
  if (view_.btnVeldrin) view_.btnVeldrin->setEnabled(true);
  if (!isCurrentRecord(record)) return;
  if (view_.veldrinCheck) view_.veldrinCheck->setHidden(!record->bVeldrinEnabled());
}

// Unlike a missing account, a failed load leaves the check mark as it was.
void SafariExtensionViewController::showVeldrinLoadFailed(VeldrinConfigItem* record) {
  if (view_.lblVeldrin) view_.lblVeldrin->setTextColor(TextColor::Grey);
  if (view_.btnVeldrin) view_.btnVeldrin->setEnabled(false);
  if (isCurrentRecord(record)) record->setBVeldrinEnabled(false);
}

std::optional<std::string> SafariExtensionViewController::getGmailAccount(const PageProperties& properties) const {
  return accountFromTitle(properties.title);
}

std::optional<std::string> SafariExtensionViewController::getYahooGlobalMailAccount(
    const PageProperties& properties) const {
  return getGmailAccount(properties);
}

std::optional<std::string> SafariExtensionViewController::getYahooJPMailAccount(const BrowserHandle& page) {
  systemLog("[SafariToolbar] getYahooJPMailAccount enter.");
  // The page answers later with "vd_get_user_email"; the dispatcher stores
  // that address, so this refresh uses the one learnt before.
  if (browser_) browser_->dispatchMessageToScript(page, "vd_get_user_email", std::nullopt);
  std::optional<std::string> email = setting_.veldrinConfigItem().curEmail();
  systemLog("Safari popup " + email.value_or("(null)") + " ");
  return email;
}

}  // namespace wren

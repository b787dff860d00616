#pragma once
// The toolbar popover's controller: shows the service's feature flags as the
// rows' check marks, greys the rows out while the toolbar is disabled, routes
// each row's click to the local-service client, reloads the flags on request,
// keeps the mail-scan row in step with the active web-mail tab and lights the
// rows up under the mouse.
//
// Runs on the main run loop. Owns the popover's view hierarchy (PopoverView)
// and a hover layer for each row; uses the Setting record, the service client,
// the loop and the browser it is given, which must outlive it.
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/browser.h"
#include "popover/gradient_layer.h"
#include "popover/popover_view.h"

namespace wren {

class RunLoop;
class Setting;
class Strings;
class VeldrinConfigItem;
class WrenBrowserExtServer;

enum class Appearance { Light, Dark };

// Layout priorities of the two constraints around the mail-scan row: the
// layout with the row present must win.
inline constexpr float kTopToVeldrinPriority = 750.0f;
inline constexpr float kTopToManualRatingPriority = 250.0f;

// The mail-scan row's tooltip where no supported web-mail account is shown.
inline constexpr std::string_view kVeldrinUnavailableTooltipKey = "veldrin_menu_item_diable_tooltip";
inline constexpr std::string_view kVeldrinStringsTable = "veldrin";
inline constexpr std::string_view kVeldrinUnavailableTooltip = "Works for Gmail and Yahoo Mail when you are signed in.";

class SafariExtensionViewController {
 public:
  SafariExtensionViewController(Setting& setting, WrenBrowserExtServer& server, RunLoop& loop, Browser* browser,
                                Strings& strings);
  ~SafariExtensionViewController();
  SafariExtensionViewController(const SafariExtensionViewController&) = delete;
  SafariExtensionViewController& operator=(const SafariExtensionViewController&) = delete;

  // The process's controller on the process-wide singletons; its browser is
  // set later with setBrowser(). Created on first use, thread-safe.
  static SafariExtensionViewController& sharedController();

  void setBrowser(Browser* browser) { browser_ = browser; }
  // The host's way of closing the popover (none: closing does nothing); the
  // row actions close it once their command is on its way.
  void setDismissHandler(std::function<void()> handler) { dismissHandler_ = std::move(handler); }
  // Called after any change of a widget or layer, possibly many times per
  // run-loop turn; the host coalesces.
  void setOnChange(std::function<void()> onChange) { view_.changeSignal().setHandler(std::move(onChange)); }
  // Set by the host before viewWillAppear.
  void setAppearance(Appearance appearance) { appearance_ = appearance; }
  Appearance appearance() const { return appearance_; }

  PopoverView& view() { return view_; }
  const PopoverView& view() const { return view_; }

  // The owned hover layer of that name ("layerAutoRating", see the row
  // table); null until initializeLayer built it, or for an unknown name.
  GradientLayer* layer(std::string_view name) const;
  // The same by the row's position in the row table.
  GradientLayer* layerOfRow(size_t row) const { return layers_[row].get(); }

  // Appearance hooks.
  void awakeFromNib() {}
  void viewWillAppear();
  void viewDidAppear();

  // Reloads the three flags from the service; touches no view.
  void updateSettings();
  void enableToolbar();
  void disableToolbar();
  // Builds each missing hover layer; existing ones are kept for the
  // controller's life, so their colours follow the first showing's appearance.
  void initializeLayer();
  std::unique_ptr<GradientLayer> createLayerWithView(const View* view);
  void addButtonMouseHoverEffect();
  void removeButtonMouseHoverEffect();
  bool isDarkMode() const { return appearance_ == Appearance::Dark; }

  // Row actions; the sender is ignored.
  void btnAutoRatingClicked(HoverButton* sender = nullptr);
  void btnManualRatingClicked(HoverButton* sender = nullptr);
  void btnVeldrinClicked(HoverButton* sender = nullptr);
  void btnSettingsClicked(HoverButton* sender = nullptr);
  void btnHelpClicked(HoverButton* sender = nullptr);

  // Asks the active page's script to open the mail-scan panel, unless the
  // current address is exactly ""; `reached` runs once the page was told.
  // Without an active window, tab or page nothing happens.
  void toggleVeldrim(std::function<void()> reached);

  void dismissPopover();

  // Refreshes the mail-scan row from the active tab; finishes asynchronously.
  void updateVeldrinSetting();
  std::optional<std::string> getGmailAccount(const PageProperties& properties) const;
  std::optional<std::string> getYahooGlobalMailAccount(const PageProperties& properties) const;
  // Asks the page to report its account and returns the one already known.
  std::optional<std::string> getYahooJPMailAccount(const BrowserHandle& page);
  static std::string base64Encode(std::string_view text);

 private:
  // Runs `then` with the browser and the active window's active tab's page,
  // each asked for in the previous one's completion.
  void withActivePage(std::function<void(Browser&, const BrowserHandle& page)> then);
  void onPageProperties(const BrowserHandle& page, const std::optional<PageProperties>& properties);
  void loadVeldrinSwitches(VeldrinConfigItem* record, const std::string& email);
  bool isCurrentRecord(const VeldrinConfigItem* record) const;
  // The four ways the mail-scan row can end up; see updateVeldrinSetting.
  void showVeldrinUnavailable();
  void showVeldrinNoAccount(VeldrinConfigItem* record);
  void showVeldrinLoaded(VeldrinConfigItem* record);
  void showVeldrinLoadFailed(VeldrinConfigItem* record);
  // A scan row's click, shown at once: its check mark and its flag flip.
  void flipLocally(Widget* check, bool (Setting::*flag)() const, void (Setting::*setFlag)(bool));
  // Posts `work` to the loop; it is dropped if the controller is gone by then.
  void postToMain(std::function<void()> work);
  // Installs the enter and exit handlers that show and hide one row's layer.
  // The outlets are read when a handler runs, not when it is installed.
  void installHover(size_t row);

  Setting& setting_;
  WrenBrowserExtServer& server_;
  RunLoop& loop_;
  Browser* browser_;
  Strings& strings_;
  Appearance appearance_ = Appearance::Light;
  std::function<void()> dismissHandler_;
  // Declared before the layers so the layers are released first.
  PopoverView view_;
  // One a row, in the row table's order.
  std::vector<std::unique_ptr<GradientLayer>> layers_;
  // Expires with the controller, so late completions can tell.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace wren

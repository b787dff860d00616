// The toolbar item's and popover's hooks of SafariExtensionHandler.
#include "bridge/safari_extension_handler.h"
#include "popover/popover_rows.h"
#include "popover/safari_extension_view_controller.h"
#include "util/logging.h"

namespace wren {

void SafariExtensionHandler::toolbarItemClickedInWindow(const BrowserHandle&) {
  systemLog("[SafariToolbar] toolbarItemClickedInWindow The extension's toolbar item was clicked");
}

void SafariExtensionHandler::validateToolbarItemInWindow(const BrowserHandle&) {
  systemLog("[SafariToolbar] validateToolbarItemInWindow enter.");
  SafariExtensionViewController& controller = popoverViewControllerInstance();
  controller.updateSettings();
  controller.updateVeldrinSetting();
}

SafariExtensionViewController& SafariExtensionHandler::popoverViewController() {
  // The close hook's text, written here too: support scripts grep for it.
  systemLog("[SafariToolbar] popoverDidCloseInWindow enter.");
  SafariExtensionViewController& controller = popoverViewControllerInstance();
  controller.updateSettings();
  return controller;
}

void SafariExtensionHandler::popoverWillShowInWindow(const BrowserHandle&) {
  systemLog("[SafariToolbar] popoverWillShowInWindow enter.");
  SafariExtensionViewController& controller = popoverViewControllerInstance();
  // No row may show the highlight it had when the popover last closed.
  for (size_t row = 0; row < popoverRows().size(); ++row) {
    if (GradientLayer* layer = controller.layerOfRow(row)) layer->removeFromSuperlayer();
  }
  controller.updateVeldrinSetting();
}

void SafariExtensionHandler::popoverDidCloseInWindow(const BrowserHandle&) {
  systemLog("[SafariToolbar] popoverDidCloseInWindow enter.");
}

SafariExtensionViewController& SafariExtensionHandler::popoverViewControllerInstance() {
  return popover_ ? *popover_ : SafariExtensionViewController::sharedController();
}

}  // namespace wren

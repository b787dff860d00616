#pragma once
// What the domain code asks of the browser. A window, tab or page is an opaque
// value chosen by the host (null means none); the domain code only hands it
// back. Completions run on the main run loop.
#include <functional>
#include <optional>
#include <string>

#include "util/json.h"

namespace wren {

using BrowserHandle = Json;  // null: none

struct PageProperties {
  std::optional<std::string> url;
  std::optional<std::string> title;
};

class Browser {
 public:
  virtual ~Browser() = default;

  virtual void getActiveWindow(std::function<void(const BrowserHandle& window)> done) = 0;
  virtual void getActiveTab(const BrowserHandle& window, std::function<void(const BrowserHandle& tab)> done) = 0;
  virtual void getActivePage(const BrowserHandle& tab, std::function<void(const BrowserHandle& page)> done) = 0;
  virtual void getPageProperties(const BrowserHandle& page,
                                 std::function<void(const std::optional<PageProperties>&)> done) = 0;
  // Opens a tab on url and makes it active when `activate`.
  virtual void openTab(const BrowserHandle& window, const std::string& url, bool activate) = 0;
  // Delivers a named message to the extension's script in that page; nullopt
  // is "no dictionary", which differs from an empty one. Taken by value: a
  // caller done with its answer moves it in and nothing is copied.
  virtual void dispatchMessageToScript(const BrowserHandle& page, const std::string& name,
                                       std::optional<Json> userInfo) = 0;
};

}  // namespace wren

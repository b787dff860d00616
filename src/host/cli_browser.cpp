#include "host/cli_browser.h"

#include "host/envelope.h"

namespace wren {

// Lookups complete on a later turn, as a real browser's would.
void CliBrowser::getActiveWindow(std::function<void(const BrowserHandle&)> done) {
  loop_.post([done = std::move(done)] { done(Json()); });
}

void CliBrowser::getActiveTab(const BrowserHandle&, std::function<void(const BrowserHandle&)> done) {
  loop_.post([done = std::move(done)] { done(Json()); });
}

void CliBrowser::getActivePage(const BrowserHandle&, std::function<void(const BrowserHandle&)> done) {
  loop_.post([done = std::move(done)] { done(Json()); });
}

void CliBrowser::getPageProperties(const BrowserHandle&,
                                   std::function<void(const std::optional<PageProperties>&)> done) {
  loop_.post([done = std::move(done)] { done(std::nullopt); });
}

void CliBrowser::openTab(const BrowserHandle&, const std::string& url, bool activate) {
  printLine(Json{{"openTab", url}, {"activate", activate}});
}

void CliBrowser::dispatchMessageToScript(const BrowserHandle&, const std::string& name,
                                         const std::optional<Json>& userInfo) {
  Json line{{"name", name}};
  if (userInfo) line["userInfo"] = *userInfo;
  ++answers_;
  printLine(line);
}

void CliBrowser::printLine(const Json& line) {
  std::string text = serializeFrame(line);
  std::fprintf(out_, "%s\n", text.c_str());
  std::fflush(out_);
}

}  // namespace wren

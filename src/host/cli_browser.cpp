#include "host/cli_browser.h"

#include "host/envelope.h"

namespace wren {

// Lookups complete on a later turn, as a real browser's would.
void CliBrowser::answer(std::function<void(const BrowserHandle&)> done, const char* handle) {
  Json value = page_ ? Json(handle) : Json();
  loop_.post([done = std::move(done), value] { done(value); });
}

void CliBrowser::getActiveWindow(std::function<void(const BrowserHandle&)> done) { answer(std::move(done), "window"); }

void CliBrowser::getActiveTab(const BrowserHandle&, std::function<void(const BrowserHandle&)> done) {
  answer(std::move(done), "tab");
}

void CliBrowser::getActivePage(const BrowserHandle&, std::function<void(const BrowserHandle&)> done) {
  answer(std::move(done), "page");
}

void CliBrowser::getPageProperties(const BrowserHandle&,
                                   std::function<void(const std::optional<PageProperties>&)> done) {
  loop_.post([done = std::move(done), page = page_] { done(page); });
}

void CliBrowser::openTab(const BrowserHandle&, const std::string& url, bool activate) {
  printLine(Json{{"openTab", url}, {"activate", activate}});
}

void CliBrowser::dispatchMessageToScript(const BrowserHandle&, const std::string& name,
                                         std::optional<Json> userInfo) {
  Json line{{"name", name}};
  if (userInfo) line["userInfo"] = std::move(*userInfo);
  ++answers_;
  printLine(line);
}

void CliBrowser::printLine(const Json& line) {
  std::string text = serializeFrame(line);
  std::fprintf(out_, "%s\n", text.c_str());
  std::fflush(out_);
}

}  // namespace wren

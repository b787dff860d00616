#include "host/native_browser.h"

#include "util/logging.h"

namespace wren {

NativeBrowser::NativeBrowser(RunLoop& loop, SendFrame send, std::chrono::milliseconds timeout)
    : loop_(loop), send_(std::move(send)), timeout_(timeout) {}

NativeBrowser::~NativeBrowser() {
  for (auto& [id, p] : pending_) loop_.cancelTimer(p.timer);
}

void NativeBrowser::call(const char* method, Json arguments, std::function<void(const Json&)> done) {
  long long id = nextId_++;
  RunLoop::TimerId timer = loop_.addTimer(timeout_, [this, id] {
    auto it = pending_.find(id);
    if (it == pending_.end()) return;
    Pending p = std::move(it->second);
    pending_.erase(it);
    systemLog("[wren-bridge] browser call " + std::to_string(id) + " (" + p.method + ") not answered in time");
    if (p.done) p.done(Json());
  });
  pending_.emplace(id, Pending{method, std::move(done), timer});
  send_(callFrame(id, method, std::move(arguments)));
}

bool NativeBrowser::handleResult(const IncomingResult& result) {
  auto it = pending_.find(result.id);
  if (it == pending_.end()) return false;
  Pending p = std::move(it->second);
  pending_.erase(it);
  loop_.cancelTimer(p.timer);
  if (p.done) p.done(result.value);
  return true;
}

void NativeBrowser::getActiveWindow(std::function<void(const BrowserHandle&)> done) {
  call("getActiveWindow", Json::object(), std::move(done));
}

void NativeBrowser::getActiveTab(const BrowserHandle& window, std::function<void(const BrowserHandle&)> done) {
  call("getActiveTab", Json{{"window", window}}, std::move(done));
}

void NativeBrowser::getActivePage(const BrowserHandle& tab, std::function<void(const BrowserHandle&)> done) {
  call("getActivePage", Json{{"tab", tab}}, std::move(done));
}

void NativeBrowser::getPageProperties(const BrowserHandle& page,
                                      std::function<void(const std::optional<PageProperties>&)> done) {
  call("getPageProperties", Json{{"page", page}},
       [done = std::move(done)](const Json& value) { done(pagePropertiesFromJson(value)); });
}

void NativeBrowser::openTab(const BrowserHandle& window, const std::string& url, bool activate) {
  call("openTab", Json{{"window", window}, {"url", url}, {"activate", activate}}, nullptr);
}

void NativeBrowser::dispatchMessageToScript(const BrowserHandle& page, const std::string& name,
                                            std::optional<Json> userInfo) {
  send_(messageFrame(name, page, std::move(userInfo)));
}

std::optional<PageProperties> pagePropertiesFromJson(const Json& value) {
  if (!value.is_object()) return std::nullopt;
  PageProperties p;
  if (auto u = value.find("url"); u != value.end() && u->is_string()) p.url = u->get<std::string>();
  if (auto t = value.find("title"); t != value.end() && t->is_string()) p.title = t->get<std::string>();
  return p;
}

}  // namespace wren

#pragma once
// A dispatcher on this test's own service, settings record, HTTP client and
// fake browser, with the toolbar switched on and the promotion not yet shown.
#include <gtest/gtest.h>

#include "bridge/safari_extension_handler.h"
#include "server/service_fixture.h"

namespace wren::test {

class HandlerTest : public ServiceFixture {
 protected:
  static constexpr const char* kBuildVersion = "9.8.7";
  HandlerTest() : handler(server, setting, ajax, browser, kBuildVersion) {
    setting.setBToolbarEnabled(true);
    SafariExtensionHandler::resetPromotionForTesting();
  }

  void send(const std::string& name, const std::optional<Json>& info = std::nullopt) {
    handler.messageReceivedWithName(name, page, info);
  }
  void send(const std::string& name, const char* info) { send(name, Json::parse(info)); }
  // Sends, lets every request it starts finish, and returns the answers.
  std::vector<FakeBrowser::Message> exchange(const std::string& name, const std::optional<Json>& info) {
    send(name, info);
    settle();
    return browser.messages;
  }
  std::vector<FakeBrowser::Message> exchange(const std::string& name, const char* info) {
    return exchange(name, Json::parse(info));
  }
  // The service answers each path with its own body; others get "{}".
  void answerPaths(std::map<std::string, std::pair<int, std::string>> bodies,
                   std::vector<std::pair<std::string, std::string>> headers = {}) {
    service.setHandler([=](const httplib::Request& req, httplib::Response& res) {
      auto it = bodies.find(req.path);
      res.status = it == bodies.end() ? 200 : it->second.first;
      for (const auto& [k, v] : headers) res.set_header(k, v);
      res.set_content(it == bodies.end() ? "{}" : it->second.second, "application/json");
    });
  }
  size_t linesWith(const std::string& text) {
    size_t n = 0;
    for (const auto& l : logs()) n += l.find(text) != std::string::npos;
    return n;
  }

  const BrowserHandle page = "page-A";
  FakeBrowser browser;
  SafariExtensionHandler handler;
};

}  // namespace wren::test

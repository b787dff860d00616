#pragma once
// A popover controller on real parts: a TestServer standing in for the local
// service, a RunLoop with the real Ajax client and service client, and a fake
// browser whose completions arrive on the loop like the host's do.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "net/ajax.h"
#include "net/run_loop.h"
#include "platform/browser.h"
#include "popover/safari_extension_view_controller.h"
#include "popover/strings.h"
#include "server/setting.h"
#include "server/wren_browser_ext_server.h"
#include "support/test_server.h"

namespace wren::test {

struct DispatchedMessage {
  BrowserHandle page;
  std::string name;
  std::optional<Json> userInfo;
};

class FakeBrowser : public Browser {
 public:
  explicit FakeBrowser(RunLoop& loop) : loop_(loop) {}

  BrowserHandle window = "window-1";
  BrowserHandle tab = "tab-1";
  BrowserHandle page = "page-1";
  std::optional<PageProperties> properties = PageProperties{};
  std::vector<DispatchedMessage> messages;

  void getActiveWindow(std::function<void(const BrowserHandle&)> done) override {
    loop_.post([this, done] { done(window); });
  }
  void getActiveTab(const BrowserHandle&, std::function<void(const BrowserHandle&)> done) override {
    loop_.post([this, done] { done(tab); });
  }
  void getActivePage(const BrowserHandle&, std::function<void(const BrowserHandle&)> done) override {
    loop_.post([this, done] { done(page); });
  }
  void getPageProperties(const BrowserHandle&, std::function<void(const std::optional<PageProperties>&)> done) override {
    loop_.post([this, done] { done(properties); });
  }
  void openTab(const BrowserHandle&, const std::string&, bool) override {}
  void dispatchMessageToScript(const BrowserHandle& target, const std::string& name,
                               const std::optional<Json>& userInfo) override {
    messages.push_back({target, name, userInfo});
  }

 private:
  RunLoop& loop_;
};

class PopoverTest : public ::testing::Test {
 protected:
  // Long enough for any loopback answer; only guards against a hung test.
  static constexpr std::chrono::milliseconds kGiveUp{10000};

  TestServer service;
  RunLoop loop;
  Ajax ajax{loop, AjaxOptions{}};
  Setting setting{nullptr, "https://veldrin.invalid"};
  WrenBrowserExtServer server{ajax, setting, service.origin()};
  Strings strings = Strings::embedded("en");
  FakeBrowser browser{loop};
  SafariExtensionViewController controller{setting, server, loop, &browser, strings};
  PopoverView& view = controller.view();
  int dismissed = 0;

  PopoverTest() {
    controller.setDismissHandler([this] { ++dismissed; });
    service.respond(200, "application/json", "{}");
  }

  // Runs the loop until `done` holds (or the guard gives up).
  void runUntil(const std::function<bool()>& done) {
    bool gaveUp = false;
    RunLoop::TimerId guard = 0;
    loop.post([&] { guard = loop.addTimer(kGiveUp, [&] { gaveUp = true; }); });
    loop.runUntil([&] { return gaveUp || done(); });
    loop.cancelTimer(guard);
    ASSERT_FALSE(gaveUp) << "the awaited state never came";
  }
  // Runs the loop until everything posted so far, and what that posts, ran.
  void drain() {
    for (int i = 0; i < 8; ++i) {
      bool ran = false;
      loop.post([&] { ran = true; });
      runUntil([&] { return ran; });
    }
  }
};

}  // namespace wren::test

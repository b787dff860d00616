#pragma once
// A popover controller on a real service client and a service on loopback, and
// a fake browser whose completions arrive on the loop like the host's do.
#include <gtest/gtest.h>

#include <chrono>

#include "net/ajax.h"
#include "net/run_loop.h"
#include "popover/safari_extension_view_controller.h"
#include "popover/strings.h"
#include "server/setting.h"
#include "server/wren_browser_ext_server.h"
#include "support/test_server.h"

namespace wren::test {

class FakeBrowser : public Browser {
 public:
  explicit FakeBrowser(RunLoop& loop) : loop_(loop) {}
  // What the lookups answer; null ends the chain.
  BrowserHandle window = "window-1", tab = "tab-1", page = "page-1";
  std::optional<PageProperties> properties = PageProperties{};
  std::vector<std::pair<std::string, std::optional<Json>>> messages;  // name, userInfo

  using Done = std::function<void(const BrowserHandle&)>;
  void getActiveWindow(Done done) override { loop_.post([this, done] { done(window); }); }
  void getActiveTab(const BrowserHandle&, Done done) override { loop_.post([this, done] { done(tab); }); }
  void getActivePage(const BrowserHandle&, Done done) override { loop_.post([this, done] { done(page); }); }
  void getPageProperties(const BrowserHandle&, std::function<void(const std::optional<PageProperties>&)> d) override {
    loop_.post([this, d] { d(properties); });
  }
  void openTab(const BrowserHandle&, const std::string&, bool) override {}
  void dispatchMessageToScript(const BrowserHandle&, const std::string& name, const std::optional<Json>& i) override {
    messages.emplace_back(name, i);
  }

 private:
  RunLoop& loop_;
};

class PopoverTest : public ::testing::Test {
 protected:
  TestServer service;
  RunLoop loop;
  Ajax ajax{loop, AjaxOptions{}};
  Setting setting{nullptr, "https://veldrin.invalid"};
  WrenBrowserExtServer server{ajax, setting, service.origin()};
  Strings strings = Strings::embedded("en");
  FakeBrowser browser{loop};
  SafariExtensionViewController controller{setting, server, loop, &browser, strings};
  PopoverView& view = controller.view();

  // Runs the loop until `done` holds; the guard only fires in a hung test.
  void runUntil(const std::function<bool()>& done) {
    bool gaveUp = false;
    RunLoop::TimerId guard = 0;
    loop.post([&] { guard = loop.addTimer(std::chrono::seconds(10), [&] { gaveUp = true; }); });
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

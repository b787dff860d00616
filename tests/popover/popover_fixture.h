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
#include "support/fake_browser.h"
#include "support/test_server.h"

namespace wren::test {

class PopoverTest : public ::testing::Test {
 protected:
  TestServer service;
  RunLoop loop;
  Ajax ajax{loop, AjaxOptions{}};
  Setting setting{nullptr, "https://veldrin.invalid"};
  WrenBrowserExtServer server{ajax, setting, service.origin()};
  Strings strings = Strings::embedded("en");
  FakeBrowser browser{&loop};
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

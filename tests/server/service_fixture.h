#pragma once
// A local service on a free loopback port, with this test's own run loop,
// HTTP client, defaults store, settings record and service client, plus the
// log lines written while the test runs.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <mutex>

#include "net/ajax.h"
#include "net/run_loop.h"
#include "server/setting.h"
#include "server/wren_browser_ext_server.h"
#include "support/test_server.h"
#include "util/defaults_store.h"
#include "util/logging.h"

namespace wren::test {

inline std::filesystem::path makeTempDir() {
  char tmpl[] = "/tmp/wren-server-test-XXXXXX";
  return mkdtemp(tmpl);
}

class ServiceFixture : public ::testing::Test {
 protected:
  ServiceFixture() {
    setLogSink([this](std::string_view line) {
      std::lock_guard lock(logMutex_);
      logLines_.emplace_back(line);
    });
  }
  ~ServiceFixture() override {
    Logging::flush();
    setLogSink(nullptr);
    std::filesystem::remove_all(dir_);
  }

  // Runs the loop until pred holds; false after a patience only a failing test reaches.
  bool runUntil(const std::function<bool()>& pred) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    bool timedOut = false;
    loop.runUntil([&] { return pred() || (timedOut = std::chrono::steady_clock::now() > deadline); });
    return !timedOut;
  }
  // Runs until every request started so far, and any it chains, is done.
  void settle() { ASSERT_TRUE(runUntil([&] { return loop.pendingTransfers() == 0; })); }

  std::vector<std::string> logs() {
    Logging::flush();
    std::lock_guard lock(logMutex_);
    return logLines_;
  }

  std::filesystem::path dir_ = makeTempDir();
  TestServer service;
  RunLoop loop;
  DefaultsStore store{dir_ / "defaults.json"};
  Ajax ajax{loop, AjaxOptions{service.origin() + "/BrowserExt/sendData", nullptr, ""}};
  Setting setting{&store, "https://veldrin.test"};
  WrenBrowserExtServer server{ajax, setting, service.origin()};

 private:
  std::mutex logMutex_;
  std::vector<std::string> logLines_;
};

}  // namespace wren::test

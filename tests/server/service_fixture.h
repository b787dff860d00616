#pragma once
// A local service on a free loopback port, with this test's own run loop,
// HTTP client, defaults store, settings record and service client, plus the
// log lines written while the test runs.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "net/ajax.h"
#include "net/run_loop.h"
#include "platform/browser.h"
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

// The query's name=value pairs, percent-decoded ("+" stays "+").
inline std::map<std::string, std::string> queryPairs(const std::string& query) {
  auto decode = [](const std::string& s) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
      if (s[i] == '%' && i + 2 < s.size()) {
        out += static_cast<char>(std::stoi(s.substr(i + 1, 2), nullptr, 16));
        i += 2;
      } else {
        out += s[i];
      }
    }
    return out;
  };
  std::map<std::string, std::string> pairs;
  size_t start = 0;
  while (start <= query.size() && !query.empty()) {
    size_t end = query.find('&', start);
    if (end == std::string::npos) end = query.size();
    std::string pair = query.substr(start, end - start);
    size_t eq = pair.find('=');
    pairs[decode(pair.substr(0, eq))] = eq == std::string::npos ? "" : decode(pair.substr(eq + 1));
    start = end + 1;
  }
  return pairs;
}

// Records the browser calls and answers them from the handles it was given.
class FakeBrowser : public Browser {
 public:
  BrowserHandle window = "window-1", tab = "tab-1", page = "page-1";
  struct Message {
    BrowserHandle page;
    std::string name;
    std::optional<Json> userInfo;
  };
  std::vector<Message> messages;
  std::vector<std::pair<BrowserHandle, std::string>> openedTabs;
  std::vector<bool> activations;

  void getActiveWindow(std::function<void(const BrowserHandle&)> done) override { done(window); }
  void getActiveTab(const BrowserHandle& w, std::function<void(const BrowserHandle&)> done) override {
    done(w == window ? tab : BrowserHandle());
  }
  void getActivePage(const BrowserHandle& t, std::function<void(const BrowserHandle&)> done) override {
    done(t == tab ? page : BrowserHandle());
  }
  void getPageProperties(const BrowserHandle&, std::function<void(const std::optional<PageProperties>&)> done) override {
    done(std::nullopt);
  }
  void openTab(const BrowserHandle& w, const std::string& url, bool activate) override {
    openedTabs.emplace_back(w, url);
    activations.push_back(activate);
  }
  void dispatchMessageToScript(const BrowserHandle& p, const std::string& name,
                               const std::optional<Json>& userInfo) override {
    messages.push_back({p, name, userInfo});
  }
};

class ServiceFixture : public ::testing::Test {
 protected:
  static constexpr const char* kVeldrinApi = "https://veldrin.test";
  // Long enough for any loopback exchange; only reached when a test fails.
  static constexpr auto kPatience = std::chrono::seconds(10);

  ServiceFixture()
      : dir_(makeTempDir()),
        store(dir_ / "defaults.json"),
        ajax(loop, AjaxOptions{service.origin() + "/BrowserExt/sendData", nullptr, ""}),
        setting(&store, kVeldrinApi),
        server(ajax, setting, service.origin()) {
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

  // Runs the loop until pred holds; false when patience ran out.
  bool runUntil(const std::function<bool()>& pred) {
    auto deadline = std::chrono::steady_clock::now() + kPatience;
    bool timedOut = false;
    loop.runUntil([&] {
      if (pred()) return true;
      timedOut = std::chrono::steady_clock::now() > deadline;
      return timedOut;
    });
    return !timedOut;
  }
  // Runs until every request started so far, and any it chains, is done.
  void settle() { ASSERT_TRUE(runUntil([&] { return loop.pendingTransfers() == 0; })); }

  std::vector<std::string> logs() {
    Logging::flush();
    std::lock_guard lock(logMutex_);
    return logLines_;
  }
  bool logged(const std::string& text) {
    for (const auto& l : logs())
      if (l.find(text) != std::string::npos) return true;
    return false;
  }

  std::filesystem::path dir_;
  TestServer service;
  RunLoop loop;
  DefaultsStore store;
  Ajax ajax;
  Setting setting;
  WrenBrowserExtServer server;

 private:
  std::mutex logMutex_;
  std::vector<std::string> logLines_;
};

}  // namespace wren::test

#pragma once
// Drives the real wren-bridge binary over its pipes against a real HTTP server
// that stands in for the local service.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "support/host_process.h"
#include "support/test_server.h"

namespace wren::test {

inline std::string makeTempDir() {
  char tmpl[] = "/tmp/wren-host-XXXXXX";
  return mkdtemp(tmpl);
}

// A service that reports the toolbar and both scans as on, and answers every
// other request with an empty object.
inline void answerAsEnabledService(TestServer& server, const TestServer::Handler& rest = nullptr) {
  server.setHandler([rest](const httplib::Request& req, httplib::Response& res) {
    if (req.path == "/BrowserExt/setting") {
      res.set_header("X-Wren-ToolbarStatus", "true");
      res.set_content(R"({"EnableAutomaticScan":true,"EnableManualScanner":true})", "application/json");
      return;
    }
    if (rest) return rest(req, res);
    res.set_content("{}", "application/json");
  });
}

class HostTest : public ::testing::Test {
 protected:
  void SetUp() override { config_ = makeTempDir(); }
  void TearDown() override { std::filesystem::remove_all(config_); }

  std::map<std::string, std::string> env() const {
    return {{"WREN_SERVICE_ORIGIN", service_.origin()}, {"XDG_CONFIG_HOME", config_}};
  }
  std::unique_ptr<HostProcess> start(std::vector<std::string> args = {}) {
    auto host = std::make_unique<HostProcess>(WREN_BRIDGE_EXE, args, env());
    auto hello = host->readFrame();
    EXPECT_TRUE(hello && (*hello)["type"] == "hello");
    return host;
  }
  // Enables the toolbar the way the browser does: a toolbar validation makes
  // the host reload the service's settings. Probes until a page message is
  // answered, answering the host's browser lookups with "none" meanwhile. A
  // probe is answered at once or dropped by the gate, so waiting for each
  // before the next leaves no stray answer behind.
  void enableToolbar(HostProcess& host) {
    host.send({{"type", "hook"}, {"name", "validateToolbarItem"}, {"window", nullptr}});
    for (int attempt = 0; attempt < 50; ++attempt) {
      host.send(message("vd_set_email", "setup", OJson{{"email", ""}}));
      auto answer = host.readFrameWhere(
          [&](const OJson& f) {
            if (f["type"] == "call") host.send({{"type", "result"}, {"id", f["id"]}, {"value", nullptr}});
            return f.value("page", OJson()) == "setup";
          },
          std::chrono::milliseconds(300));
      if (answer) return;
    }
    FAIL() << "the toolbar could not be enabled";
  }
  static OJson message(const std::string& name, const OJson& page, const std::optional<OJson>& info) {
    OJson f{{"type", "message"}, {"name", name}, {"page", page}};
    if (info) f["userInfo"] = *info;
    return f;
  }

  TestServer service_;
  std::string config_;
};

}  // namespace wren::test

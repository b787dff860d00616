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
  // Enables the toolbar in the host the way a page would: a page rating
  // reloads the settings first.
  void enableToolbar(HostProcess& host) {
    host.send({{"type", "message"}, {"name", "wtp_rating"}, {"page", "setup"},
               {"userInfo", {{"urls", {{{"url", "http://example.com/"}, {"id", 0}}}}}}});
    auto answer = host.readFrameWhere([](const OJson& f) { return f["page"] == "setup"; });
    ASSERT_TRUE(answer) << "the toolbar could not be enabled";
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

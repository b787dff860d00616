#pragma once
// Drives the real wren-bridge binary over its pipes against a real HTTP server
// that stands in for the local service; the test plays the browser, its pages
// and the popup.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/host_process.h"
#include "support/test_server.h"

namespace wren::test {

using namespace std::chrono_literals;

inline bool is(const OJson& frame, const char* type) { return frame.value("type", "") == type; }

// Upper bound for what the host and the stand-in service do in answer to one
// step of a test; generous, since the machine may be busy with other builds.
inline constexpr auto kStepDeadline = 20s;
inline constexpr auto kPollInterval = 20ms;

// Polls `done` until it holds or the deadline passes.
inline bool eventually(const std::function<bool()>& done, std::chrono::milliseconds timeout = kStepDeadline) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!done()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(kPollInterval);
  }
  return true;
}

// The browser's answers when its active page has these properties.
inline OJson showing(const OJson& properties) {
  return {{"getActiveWindow", {{"w", 1}}}, {"getActiveTab", {{"t", 2}}},
          {"getActivePage", {{"tab", 2}, {"frame", 0}}}, {"getPageProperties", properties}};
}

// What the stand-in service answers; tests change it while the host runs.
struct ServiceAnswers {
  int settingsStatus = 200;
  std::map<std::string, std::string> settingsHeaders{{"X-Wren-ToolbarStatus", "true"}};
  OJson settingsBody = {{"EnableAutomaticScan", true}, {"EnableManualScanner", true}};
  int vdsStatus = 200;
  OJson vdsBody = {{"EnableVeldrin", true}};
  TestServer::Handler other = {};  // may answer (or hold) any other request, after a default "{}"
};

class HostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/wren-host-XXXXXX";
    config_ = mkdtemp(tmpl);
    service_.setHandler([this](const httplib::Request& req, httplib::Response& res) {
      std::unique_lock lock(mutex_);
      const ServiceAnswers a = answers_;
      lock.unlock();
      const std::string type = req.get_param_value("type");
      if (req.path == "/BrowserExt/setting") {
        res.status = a.settingsStatus;
        for (const auto& [k, v] : a.settingsHeaders) res.set_header(k, v);
        res.set_content(a.settingsBody.dump(), "application/json");
      } else if (type == "vds") {
        res.status = a.vdsStatus;
        res.set_content(a.vdsBody.dump(), "application/json");
      } else {
        res.set_content("{}", "application/json");
        if (a.other) a.other(req, res);
        lock.lock();
        if (type == "log") logInfos_.push_back(req.get_param_value("info"));
      }
    });
  }
  void TearDown() override { host_.reset(); std::filesystem::remove_all(config_); }
  void answer(const ServiceAnswers& a) { std::lock_guard lock(mutex_); answers_ = a; }
  std::vector<std::string> logInfos() { std::lock_guard lock(mutex_); return logInfos_; }  // of the "log" commands

  // No test reaches a cloud unless it names one; port 1 refuses connections.
  std::map<std::string, std::string> env(const std::map<std::string, std::string>& extra = {}) const {
    std::map<std::string, std::string> e{{"WREN_SERVICE_ORIGIN", service_.origin()}, {"XDG_CONFIG_HOME", config_},
                                         {"WREN_VELDRIN_API", "https://127.0.0.1:1"}, {"LC_ALL", "C"}};
    for (const auto& [k, v] : extra) e[k] = v;
    return e;
  }
  HostProcess& start(const std::map<std::string, std::string>& extra = {}, const std::vector<std::string>& args = {}) {
    host_.reset();
    state_ = OJson::object();
    calls_.clear();
    host_ = std::make_unique<HostProcess>(WREN_BRIDGE_EXE, args, env(extra));
    EXPECT_EQ(host_->readFrame().value_or(nullptr), (OJson{{"type", "hello"}, {"version", "1.0.0"}, {"protocol", 1},
                                                           {"serviceOrigin", service_.origin()}}));
    return *host_;
  }

  static OJson message(const std::string& name, const OJson& page, const std::optional<OJson>& info) {
    OJson f{{"type", "message"}, {"name", name}, {"page", page}};
    if (info) f["userInfo"] = *info;
    return f;
  }
  void hook(const std::string& name, const OJson& window = {{"w", 1}}) {
    host_->send({{"type", "hook"}, {"name", name}, {"window", window}});
  }
  // Reads frames until `until` holds, answering the host's browser calls from
  // browser_ (method -> value; null, which ends a chain, when absent) and
  // keeping the latest popover state.
  std::optional<OJson> pump(const std::function<bool(const OJson&)>& until, std::chrono::milliseconds timeout = 10s,
                            std::vector<OJson>* skipped = nullptr) {
    return host_->readFrameWhere(
        [&](const OJson& f) {
          if (is(f, "call")) {
            calls_.push_back(f);
            host_->send({{"type", "result"}, {"id", f["id"]},
                         {"value", browser_.value(f.value("method", ""), OJson())}});
          } else if (is(f, "popover") && f.contains("state")) {
            state_ = f["state"];
          }
          return until(f);
        },
        timeout, skipped);
  }
  // Sends a page message and returns the answer to that page.
  std::optional<OJson> ask(const std::string& name, const OJson& page, const std::optional<OJson>& info,
                           std::chrono::milliseconds timeout = 10s) {
    host_->send(message(name, page, info));
    return pump([&](const OJson& f) { return is(f, "message") && f["page"] == page; }, timeout);
  }
  OJson outlet(const std::string& name) const { return state_.value("outlets", OJson::object()).value(name, OJson()); }
  // Enables the toolbar the way the browser does: a toolbar validation makes
  // the host reload the service's settings. Probes until a page message is
  // answered; a probe is answered at once or dropped by the gate, so waiting
  // for each before the next leaves no stray answer behind.
  void enableToolbar() {
    hook("validateToolbarItem", nullptr);
    const auto deadline = std::chrono::steady_clock::now() + kStepDeadline;
    while (std::chrono::steady_clock::now() < deadline)
      if (ask("vd_set_email", "setup", OJson{{"email", ""}}, 300ms)) return;
    FAIL() << "the toolbar could not be enabled within " << kStepDeadline.count() << " s";
  }

  std::mutex mutex_;  // guards the two below, used on the server's threads
  ServiceAnswers answers_;
  std::vector<std::string> logInfos_;
  TestServer service_;
  std::string config_;
  std::unique_ptr<HostProcess> host_;
  OJson browser_ = OJson::object();
  OJson state_ = OJson::object();
  std::vector<OJson> calls_;
};

// With a mail-scan cloud: a real HTTPS server that the host trusts through
// WREN_CA_FILE.
class CloudHostTest : public HostTest {
 protected:
  void TearDown() override {
    HostTest::TearDown();
    cloud_.reset();
    std::filesystem::remove_all(cert_.dir);
  }
  void startWithCloud() {
    start({{"WREN_VELDRIN_API", cloud_->origin()}, {"WREN_CA_FILE", cert_.certFile}});
    enableToolbar();
  }

  TestCertificate cert_ = TestCertificate::make();
  std::unique_ptr<TestServer> cloud_ = std::make_unique<TestServer>(cert_);
};

}  // namespace wren::test

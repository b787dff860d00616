// MailScanClient against a real HTTPS cloud and a real HTTP local service,
// both on loopback, through the real Ajax, Setting and service client: what
// each operation hands back on every kind of answer. What the cloud receives
// is pinned end to end through the host.
#include "mailscan/mail_scan_client.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <mutex>
#include <tuple>

#include "net/ajax.h"
#include "net/run_loop.h"
#include "server/setting.h"
#include "server/veldrin_config_item.h"
#include "server/wren_browser_ext_server.h"
#include "support/test_server.h"
#include "util/logging.h"

namespace wren {
namespace {

using test::TestCertificate;
using test::TestServer;

enum class Op { kScan, kFeedback };

class MailScanClientTest : public ::testing::Test {
 protected:
  MailScanClientTest() {
    // The "log" commands the local service receives, as "type info (number of parameters)".
    local.setHandler([this](const httplib::Request& req, httplib::Response& res) {
      std::lock_guard lock(mutex);
      logs.push_back(req.get_param_value("type") + " " + req.get_param_value("info") + " (" +
                     std::to_string(req.params.size()) + ")");
      res.set_content("{}", "application/json");
    });
  }
  ~MailScanClientTest() override { std::filesystem::remove_all(cert.dir); }

  // Runs one operation to its one callback, then until every transfer it started (log commands too)
  // is done. Gives whether it succeeded, and the success dictionary or the failure value.
  std::pair<bool, std::optional<Json>> call(Op op, const std::optional<Json>& input,
                                            const std::function<void()>& afterSuccess = [] {}) {
    int calls = 0;
    std::pair<bool, std::optional<Json>> out;
    auto ok = [&](const Json& answer) { ++calls, out = {true, answer}, afterSuccess(); };
    auto no = [&](const std::optional<Json>& value) { ++calls, out = {false, value}; };
    loop.post([&] { op == Op::kScan ? client.email_scan(input, ok, no) : client.feedback(input, ok, no); });
    auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(15);  // only a hang comes near it
    loop.runUntil([&] { return (calls && !loop.pendingTransfers()) || std::chrono::steady_clock::now() > limit; });
    EXPECT_EQ(calls, 1);
    return out;
  }
  std::vector<std::string> takeLogs() {
    std::lock_guard lock(mutex);
    return std::exchange(logs, {});
  }

  const TestCertificate cert = TestCertificate::make();
  TestServer cloud{cert}, local;
  RunLoop loop;
  Ajax ajax{loop, AjaxOptions{local.origin() + "/BrowserExt/sendData", [] { return 10LL; }, cert.certFile}};
  Setting setting{nullptr, cloud.origin()};
  WrenBrowserExtServer server{ajax, setting, local.origin()};
  MailScanClient client{ajax, setting, server};
  std::mutex mutex;
  std::vector<std::string> logs;
};

TEST_F(MailScanClientTest, EachOperationHandsItsOwnShapeAndOnlyAGoodScanIsLogged) {
  std::vector<std::string> lines;  // of this process's own log
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  // op, status (0: nothing listens at the cloud's address), body, then whether it succeeds and with what.
  const std::tuple<Op, int, std::string, bool, std::optional<Json>> rows[] = {
      {Op::kScan, 200, R"({"note":"a b#c","code":0})", true, Json{{"note", "a b#c"}, {"code", 0}}},
      {Op::kFeedback, 200, R"({"ok":true})", true, Json{{"ok", true}}},
      {Op::kScan, 200, "[1,2]", false, std::nullopt},
      {Op::kFeedback, 200, "[1,2]", false, Json::array({1, 2})},
      {Op::kScan, 200, "", false, std::nullopt},
      {Op::kFeedback, 200, "", false, std::nullopt},
      {Op::kScan, 401, R"({"error":"expired"})", false, Json::parse(R"({"code":401,"response":{"error":"expired"}})")},
      {Op::kFeedback, 401, R"({"error":"expired"})", false, Json{{"error", "expired"}}},
      {Op::kScan, 500, "", false, Json::parse(R"({"code":500,"response":{}})")},
      {Op::kFeedback, 500, "", false, std::nullopt},
      {Op::kScan, 0, "", false, Json::parse(R"({"code":0,"response":{}})")},
      {Op::kFeedback, 0, "", false, std::nullopt},
  };
  // The hash is of the address when the answer came, after the callback (which switches accounts here).
  const std::vector<std::string> scanLogs = {R"(log Server response is {code:0;note:"ab c";} (2))",
                                             "log [Veldrin]Email Hash is 1f2eb59c9aa0d86bdf2d0c597d8cae88 (2)"};
  const std::string nowhere = "https://127.0.0.1:" + std::to_string(TestServer(cert).port());
  for (const auto& [op, status, body, succeeds, value] : rows) {
    SCOPED_TRACE((op == Op::kScan ? "scan " : "feedback ") + std::to_string(status) + " " + body);
    cloud.respond(status, "application/json", body);
    setting.veldrinConfigItem().setVeldrinAPI(status ? cloud.origin() : nowhere);
    setting.veldrinConfigItem().setCurEmail("user@example.com");
    auto out = call(op, Json{{"jwt", "SECRET-TOKEN"}, {"json", R"({"m":"PRIVATE-MAIL"})"}},
                    [&] { setting.veldrinConfigItem().setCurEmail("other@example.com"); });
    EXPECT_EQ(out, std::make_pair(succeeds, value));
    auto received = takeLogs();
    std::sort(received.begin(), received.end());
    EXPECT_EQ(received, op == Op::kScan && succeeds ? scanLogs : std::vector<std::string>());
  }
  Logging::flush();
  setLogSink(nullptr);
  for (const auto& line : lines)
    EXPECT_TRUE(line.find("SECRET-TOKEN") == line.npos && line.find("PRIVATE-MAIL") == line.npos) << line;
}

}  // namespace
}  // namespace wren

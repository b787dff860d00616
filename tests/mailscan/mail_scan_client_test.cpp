// MailScanClient against a real HTTPS cloud and a real HTTP local service,
// both on loopback, through the real Ajax, Setting and service client.
#include <arpa/inet.h>
#include <strings.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "mailscan/mail_scan_client.h"
#include "net/ajax.h"
#include "net/run_loop.h"
#include "server/setting.h"
#include "server/veldrin_config_item.h"
#include "server/wren_browser_ext_server.h"
#include "support/test_server.h"
#include "util/defaults_store.h"
#include "util/logging.h"

namespace wren {
namespace {

using test::TestCertificate;
using test::TestServer;
using ::testing::UnorderedElementsAre;

// Generous: only a broken build should ever come near it.
constexpr std::chrono::milliseconds kWaitLimit{15000};

// A loopback port with nothing listening on it.
int closedPort() {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  close(fd);
  return ntohs(addr.sin_port);
}

enum class Op { kScan, kFeedback };

// What one call handed to its callbacks.
struct Outcome {
  int calls = 0;
  bool succeeded = false;
  std::optional<Json> value;  // the success dictionary or the failure value
};

// A "log" command as the local service received it.
struct LogCommand {
  std::string type, info;
  size_t paramCount = 0;
};

class MailScanClientTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { cert_ = new TestCertificate(TestCertificate::make()); }
  static void TearDownTestSuite() {
    std::filesystem::remove_all(cert_->dir);
    delete cert_;
    cert_ = nullptr;
  }

  MailScanClientTest()
      : cloud(*cert_),
        dir(makeTempDir()),
        ajax(loop, AjaxOptions{local.origin() + "/BrowserExt/sendData", [] { return 10LL; }, cert_->certFile}),
        store(dir / "defaults.json"),
        setting(&store, cloud.origin()),
        server(ajax, setting, local.origin()),
        client(ajax, setting, server) {
    local.setHandler([this](const httplib::Request& req, httplib::Response& res) {
      {
        std::lock_guard lock(logMutex);
        logs.push_back({req.get_param_value("type"), req.get_param_value("info"), req.params.size()});
      }
      res.set_content("{}", "application/json");
    });
  }

  ~MailScanClientTest() override { std::filesystem::remove_all(dir); }

  static std::filesystem::path makeTempDir() {
    char tmpl[] = "/tmp/wren-mailscan-XXXXXX";
    return mkdtemp(tmpl) ? std::filesystem::path(tmpl) : std::filesystem::temp_directory_path();
  }

  // Turns the loop until done() holds; false when the limit passed first.
  bool runUntil(const std::function<bool()>& done) {
    bool timedOut = false;
    std::optional<RunLoop::TimerId> timer;
    loop.post([&] { timer = loop.addTimer(kWaitLimit, [&] { timedOut = true; }); });
    loop.runUntil([&] { return done() || timedOut; });
    if (timer && !timedOut) loop.cancelTimer(*timer);
    return !timedOut;
  }

  // Runs one operation to its callback and then until every transfer it
  // started (the log commands included) has finished.
  Outcome call(Op op, const std::optional<Json>& input, const std::function<void()>& onSuccess = {}) {
    Outcome out;
    auto success = [&](const Json& answer) {
      ++out.calls;
      out.succeeded = true;
      out.value = answer;
      if (onSuccess) onSuccess();
    };
    auto fail = [&](const std::optional<Json>& value) {
      ++out.calls;
      out.value = value;
    };
    loop.post([&] {
      if (op == Op::kScan) {
        client.email_scan(input, success, fail);
      } else {
        client.feedback(input, success, fail);
      }
    });
    EXPECT_TRUE(runUntil([&] { return out.calls > 0; })) << "no callback";
    EXPECT_TRUE(runUntil([&] { return loop.pendingTransfers() == 0; }));
    EXPECT_EQ(out.calls, 1);
    return out;
  }

  std::vector<LogCommand> receivedLogs() {
    std::lock_guard lock(logMutex);
    return logs;
  }

  static TestCertificate* cert_;
  TestServer cloud;
  TestServer local;
  std::filesystem::path dir;
  RunLoop loop;
  Ajax ajax;
  DefaultsStore store;
  Setting setting;
  WrenBrowserExtServer server;
  MailScanClient client;
  std::mutex logMutex;
  std::vector<LogCommand> logs;
};

TestCertificate* MailScanClientTest::cert_ = nullptr;

// ---- What reaches the cloud ----

struct RequestCase {
  const char* name;
  Op op;
  std::optional<Json> input;
  std::string path, authorization, body;
};

class MailScanRequestTest : public MailScanClientTest, public ::testing::WithParamInterface<RequestCase> {};

TEST_P(MailScanRequestTest, SendsTheHeadersAndTheBodyAsGiven) {
  const RequestCase& c = GetParam();
  call(c.op, c.input);

  auto requests = cloud.requests();
  ASSERT_EQ(requests.size(), 1u);
  const auto& r = requests[0];
  EXPECT_EQ(r.method, "POST");
  EXPECT_EQ(r.target, c.path);
  EXPECT_EQ(r.header("Authorization"), c.authorization);
  EXPECT_EQ(r.header("ClientPurpose"), "GM");
  EXPECT_EQ(r.header("Content-Type"), "application/json");
  EXPECT_EQ(r.header("Accept"), "application/json");
  size_t contentTypes = 0;
  for (const auto& [k, v] : r.headers) contentTypes += strcasecmp(k.c_str(), "Content-Type") == 0;
  EXPECT_EQ(contentTypes, 1u) << "our Content-Type replaces the client's default";
  EXPECT_EQ(r.body, c.body);
}

const char* kBody = R"({"mail":{"subject":"Hi","from":"a@b.c"}})";

INSTANTIATE_TEST_SUITE_P(
    Inputs, MailScanRequestTest,
    ::testing::Values(
        RequestCase{"Scan", Op::kScan, Json{{"jwt", "tok.en"}, {"json", kBody}, {"other", 1}}, "/mail/key/mails",
                    "Bearer tok.en", kBody},
        RequestCase{"Feedback", Op::kFeedback, Json{{"jwt", "tok.en"}, {"json", kBody}}, "/mail/key/user_feedback",
                    "bearer tok.en", kBody},
        RequestCase{"ScanWithoutJwt", Op::kScan, Json{{"json", kBody}}, "/mail/key/mails", "Bearer (null)", kBody},
        RequestCase{"FeedbackWithoutJwt", Op::kFeedback, Json{{"json", kBody}}, "/mail/key/user_feedback",
                    "bearer (null)", kBody},
        RequestCase{"JwtNotText", Op::kScan, Json{{"jwt", 42}, {"json", kBody}}, "/mail/key/mails", "Bearer (null)",
                    kBody},
        RequestCase{"WithoutJson", Op::kScan, Json{{"jwt", "t"}}, "/mail/key/mails", "Bearer t", ""},
        RequestCase{"JsonNotText", Op::kFeedback, Json{{"jwt", "t"}, {"json", {{"a", 1}}}},
                    "/mail/key/user_feedback", "bearer t", ""},
        RequestCase{"NoDictionary", Op::kScan, std::nullopt, "/mail/key/mails", "Bearer (null)", ""},
        RequestCase{"ArrayInsteadOfDictionary", Op::kFeedback, Json::array({"jwt", "t"}), "/mail/key/user_feedback",
                    "bearer (null)", ""},
        // The body goes as ASCII: one "?" a character outside it; escapes pass.
        RequestCase{"NonAsciiBecomesQuestionMarks", Op::kScan,
                    Json{{"jwt", "t"}, {"json", "{\"s\":\"caf\xc3\xa9 \xe2\x82\xac\",\"e\":\"\\u00e9\"}"}},
                    "/mail/key/mails", "Bearer t", "{\"s\":\"caf? ?\",\"e\":\"\\u00e9\"}"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(MailScanClientTest, ReadsTheCloudBaseAfreshAtEveryCall) {
  TestServer moved(*cert_);
  Json input{{"jwt", "t"}, {"json", "{}"}};
  call(Op::kScan, input);
  setting.veldrinConfigItem().setVeldrinAPI(moved.origin());
  call(Op::kScan, input);

  EXPECT_EQ(cloud.requestCount(), 1u);
  ASSERT_EQ(moved.requestCount(), 1u);
  EXPECT_EQ(moved.requests()[0].target, "/mail/key/mails");
}

// ---- What the callbacks receive ----

struct AnswerCase {
  const char* name;
  Op op;
  int status;  // 0: nothing listens at the cloud's address
  std::string body;
  bool succeeds;
  std::optional<Json> value;
};

class MailScanAnswerTest : public MailScanClientTest, public ::testing::WithParamInterface<AnswerCase> {};

TEST_P(MailScanAnswerTest, HandsTheOperationsOwnShape) {
  const AnswerCase& c = GetParam();
  if (c.status == 0) {
    setting.veldrinConfigItem().setVeldrinAPI("https://127.0.0.1:" + std::to_string(closedPort()));
  } else {
    cloud.respond(c.status, "application/json", c.body);
  }
  Outcome out = call(c.op, Json{{"jwt", "t"}, {"json", "{}"}});

  EXPECT_EQ(out.succeeded, c.succeeds);
  EXPECT_EQ(out.value, c.value);
  if (!c.succeeds) {
    EXPECT_TRUE(receivedLogs().empty()) << "only a successful scan is logged";
  }
}

INSTANTIATE_TEST_SUITE_P(
    Answers, MailScanAnswerTest,
    ::testing::Values(
        AnswerCase{"ScanObject", Op::kScan, 200, R"({"result":1,"code":0})", true,
                   Json::parse(R"({"result":1,"code":0})")},
        AnswerCase{"FeedbackObject", Op::kFeedback, 200, R"({"ok":true})", true, Json::parse(R"({"ok":true})")},
        AnswerCase{"ScanArray", Op::kScan, 200, "[1,2]", false, std::nullopt},
        AnswerCase{"FeedbackArray", Op::kFeedback, 200, "[1,2]", false, Json::parse("[1,2]")},
        AnswerCase{"ScanEmpty", Op::kScan, 200, "", false, std::nullopt},
        AnswerCase{"FeedbackEmpty", Op::kFeedback, 200, "", false, std::nullopt},
        AnswerCase{"Scan401", Op::kScan, 401, R"({"error":"expired"})", false,
                   Json::parse(R"({"code":401,"response":{"error":"expired"}})")},
        AnswerCase{"Feedback401", Op::kFeedback, 401, R"({"error":"expired"})", false,
                   Json::parse(R"({"error":"expired"})")},
        AnswerCase{"Scan500WithoutBody", Op::kScan, 500, "", false, Json::parse(R"({"code":500,"response":{}})")},
        AnswerCase{"Feedback500WithoutBody", Op::kFeedback, 500, "", false, std::nullopt},
        AnswerCase{"ScanUnreachable", Op::kScan, 0, "", false, Json::parse(R"({"code":0,"response":{}})")},
        AnswerCase{"FeedbackUnreachable", Op::kFeedback, 0, "", false, std::nullopt}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- The scan's two log commands ----

TEST_F(MailScanClientTest, SuccessfulScanLogsTheCurrentAddressHashAndTheAnswerAfterTheCallback) {
  setting.veldrinConfigItem().setCurEmail("user@example.com");
  cloud.respond(200, "application/json", R"({"result":1,"code":0,"note":"a b#c"})");
  // The callback switches accounts: the hash must be of the address at answer time, after the callback.
  Outcome out = call(Op::kScan, Json{{"jwt", "t"}, {"json", "{}"}},
                     [&] { setting.veldrinConfigItem().setCurEmail("other@example.com"); });
  ASSERT_TRUE(out.succeeded);

  auto received = receivedLogs();
  ASSERT_EQ(received.size(), 2u);
  std::vector<std::string> infos;
  for (const auto& log : received) {
    EXPECT_EQ(log.type, "log");
    EXPECT_EQ(log.paramCount, 2u);
    infos.push_back(log.info);
  }
  EXPECT_THAT(infos, UnorderedElementsAre("[Veldrin]Email Hash is 1f2eb59c9aa0d86bdf2d0c597d8cae88",
                                          R"(Server response is {code:0;note:"ab c";result:1;})"));
}

TEST_F(MailScanClientTest, ScanWithoutAnAddressStillLogsAndSucceeds) {
  setting.veldrinConfigItem().setCurEmail(std::nullopt);
  cloud.respond(200, "application/json", "{}");
  EXPECT_TRUE(call(Op::kScan, Json{{"json", "{}"}}).succeeded);

  std::vector<std::string> infos;
  for (const auto& log : receivedLogs()) infos.push_back(log.info);
  EXPECT_THAT(infos, UnorderedElementsAre("[Veldrin]Email Hash is d41d8cd98f00b204e9800998ecf8427e",
                                          "Server response is {}"));
}

TEST_F(MailScanClientTest, FeedbackSuccessLogsNothing) {
  cloud.respond(200, "application/json", R"({"ok":1})");
  EXPECT_TRUE(call(Op::kFeedback, Json{{"json", "{}"}}).succeeded);
  EXPECT_TRUE(receivedLogs().empty());
}

TEST_F(MailScanClientTest, NeitherTokenNorMailBodyIsEverLogged) {
  std::mutex mutex;
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) {
    std::lock_guard lock(mutex);
    lines.emplace_back(line);
  });
  Json input{{"jwt", "SECRET-TOKEN-7f3a"}, {"json", R"({"body":"PRIVATE-MAIL-9c1e"})"}};
  cloud.respond(200, "application/json", R"({"code":0})");
  call(Op::kScan, input);
  call(Op::kFeedback, input);
  cloud.respond(401, "application/json", R"({"code":1})");
  call(Op::kScan, input);
  call(Op::kFeedback, input);
  Logging::flush();
  setLogSink(nullptr);

  for (const auto& line : lines) {
    EXPECT_EQ(line.find("SECRET-TOKEN-7f3a"), std::string::npos) << line;
    EXPECT_EQ(line.find("PRIVATE-MAIL-9c1e"), std::string::npos) << line;
  }
  for (const auto& log : receivedLogs()) {
    EXPECT_EQ(log.info.find("SECRET-TOKEN-7f3a"), std::string::npos) << log.info;
    EXPECT_EQ(log.info.find("PRIVATE-MAIL-9c1e"), std::string::npos) << log.info;
  }
}

}  // namespace
}  // namespace wren

// Black-box tests of wren-service-sim: each test starts the real binary on
// free loopback ports, reads its stdout lines and talks to it over HTTP(S).
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

using Json = nlohmann::ordered_json;
constexpr auto kLineWait = std::chrono::seconds(10);

// The simulator as a child process; collects its stdout lines on a thread.
class SimProcess {
 public:
  explicit SimProcess(std::vector<std::string> args) {
    int fds[2];
    if (pipe(fds) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    args.insert(args.begin(), WREN_SIM_EXE);
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    if (posix_spawn(&pid_, WREN_SIM_EXE, &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    reader_ = std::thread([this, fd = fds[0]] { readLines(fd); });
  }
  ~SimProcess() {
    stop();
    reader_.join();
  }

  // SIGTERM, then the exit status (as from waitpid); safe to call twice.
  int stop() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      waitpid(pid_, &status_, 0);
      pid_ = -1;
    }
    return status_;
  }

  // The first line (from `from` on) satisfying pred; null after the wait.
  Json waitForLine(const std::function<bool(const Json&)>& pred, size_t from = 0) {
    std::unique_lock lock(mutex_);
    Json found;
    cv_.wait_for(lock, kLineWait, [&] {
      for (size_t i = from; i < lines_.size(); ++i)
        if (pred(lines_[i])) return found = lines_[i], true;
      return closed_;
    });
    return found;
  }
  Json requestLine(const std::string& target) {
    return waitForLine([&](const Json& l) { return l.value("target", "") == target; });
  }

 private:
  void readLines(int fd) {
    std::string pending;
    char buf[4096];
    for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;) {
      pending.append(buf, static_cast<size_t>(n));
      for (size_t nl; (nl = pending.find('\n')) != std::string::npos; pending.erase(0, nl + 1)) {
        std::lock_guard lock(mutex_);
        lines_.push_back(Json::parse(pending.substr(0, nl), nullptr, false));
        cv_.notify_all();
      }
    }
    close(fd);
    std::lock_guard lock(mutex_);
    closed_ = true;
    cv_.notify_all();
  }

  pid_t pid_ = -1;
  int status_ = -1;
  std::thread reader_;
  std::mutex mutex_;
  std::condition_variable cv_;
  std::vector<Json> lines_;
  bool closed_ = false;
};

constexpr const char* kTestRules = R"({
  "default": {"level": 1, "category": "General", "categoryGroup": "Other"},
  "hosts": {
    "bad.test": {"level": 3, "category": "Phishing", "categoryGroup": "Malicious"},
    "ok.bad.test": {"level": 1, "category": "Reference", "categoryGroup": "Info"},
    "iffy.test": {"level": 2, "category": "Spam", "categoryGroup": "Questionable"}
  },
  "shortLinks": {"sho.rt": "http://www.bad.test/landing"},
  "scam": {"subjects": ["you have won"], "senders": ["@prize.test"]}
})";

class ServiceSimTest : public ::testing::Test {
 protected:
  void start(std::vector<std::string> extra = {}) {
    rulesFile_ = std::filesystem::temp_directory_path() / ("sim-rules-" + std::to_string(getpid()) + ".json");
    std::ofstream(rulesFile_) << kTestRules;
    std::vector<std::string> args{"--port", "0", "--cloud-port", "0", "--rules", rulesFile_.string()};
    args.insert(args.end(), extra.begin(), extra.end());
    sim_ = std::make_unique<SimProcess>(args);
    Json local = sim_->waitForLine([](const Json& l) { return l.contains("port"); });
    Json cloud = sim_->waitForLine([](const Json& l) { return l.contains("cloudPort"); });
    ASSERT_TRUE(local.is_object() && cloud.is_object()) << "the simulator did not report its ports";
    port_ = local["port"].get<int>();
    cloudPort_ = cloud["cloudPort"].get<int>();
    caFile_ = cloud["caFile"].get<std::string>();
    client_ = std::make_unique<httplib::Client>("127.0.0.1", port_);
    client_->set_url_encode(false);  // send queries exactly as the bridge does
  }
  void TearDown() override {
    sim_.reset();
    std::filesystem::remove(rulesFile_);
  }

  Json getJson(const std::string& target, const httplib::Headers& headers = {}) {
    auto res = client_->Get(target.c_str(), headers);
    if (!res || res->status != 200) return nullptr;
    return Json::parse(res->body, nullptr, false);
  }
  Json settings() { return getJson("/BrowserExt/setting?type=extension"); }
  std::unique_ptr<httplib::SSLClient> cloudClient() {
    auto c = std::make_unique<httplib::SSLClient>("127.0.0.1", cloudPort_);
    c->set_ca_cert_path(caFile_.c_str());
    c->enable_server_certificate_verification(true);
    return c;
  }

  std::unique_ptr<SimProcess> sim_;
  std::filesystem::path rulesFile_;
  std::unique_ptr<httplib::Client> client_;
  int port_ = 0, cloudPort_ = 0;
  std::string caFile_;
};

TEST_F(ServiceSimTest, SettingsCarryToolbarInHeaderAndScanSwitchesInBody) {
  start({"--toolbar", "off", "--manual", "off"});
  auto res = client_->Get("/BrowserExt/setting?type=extension");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->get_header_value("X-Wren-ToolbarStatus"), "false");
  EXPECT_EQ(res->get_header_value("Content-Type"), "application/json");
  EXPECT_EQ(Json::parse(res->body), Json({{"EnableAutomaticScan", true}, {"EnableManualScanner", false}}));
}

TEST_F(ServiceSimTest, UpdateSettingSwitchesTheState) {
  start();
  struct Case {
    std::string name, value, key;
  };
  for (const Case& c : {Case{"EnableAutomaticScan", "false", "EnableAutomaticScan"},
                        Case{"EnableManualScanner", "false", "EnableManualScanner"},
                        Case{"EnableAutomaticScan", "true", "EnableAutomaticScan"}}) {
    Json answer = getJson("/BrowserExt/command?type=updateSetting&name=" + c.name + "&value=" + c.value);
    EXPECT_EQ(answer, Json({{"result", "ok"}, {"name", c.name}, {"value", c.value}}));
    EXPECT_EQ(settings()[c.key], c.value == "true") << c.name << "=" << c.value;
  }
  getJson("/BrowserExt/command?type=updateSetting&name=ToolbarStatus&value=false");
  EXPECT_EQ(client_->Get("/BrowserExt/setting?type=extension")->get_header_value("X-Wren-ToolbarStatus"), "false");
  EXPECT_EQ(client_->Get("/BrowserExt/command?type=updateSetting&name=EnableAutomaticScan&value=maybe")->status, 400);
}

TEST_F(ServiceSimTest, RatingFollowsRulesAndResolvesOnlyFlaggedShortLinks) {
  start();
  struct Item {
    std::string url, needResolving;
    int level;
    std::string category;
    bool resolved;
  };
  const std::vector<Item> items{
      {"https://www.bad.test/x", "false", 3, "Phishing", false},
      {"http://OK.bad.test/", "false", 1, "Reference", false},  // longest suffix wins, any case
      {"http://notbad.test/", "false", 1, "General", false},     // a suffix only at a dot
      {"http://iffy.test/a%0D%0Ab%00", "false", 2, "Spam", false},
      {"http://sho.rt/abc", "true", 3, "Phishing", true},
      {"http://sho.rt/abc", "false", 1, "General", false},
      {"not a url at all/", "false", 1, "General", false},
      {"", "false", 0, "General", false},
  };
  httplib::Headers headers{{"KVExtURLs_Length", std::to_string(items.size())}};
  for (size_t i = 0; i < items.size(); ++i) {
    std::string prefix = (i % 2 ? "kveexturls_" : "KVEExtURLs_") + std::to_string(i);
    headers.emplace(prefix + "_url", items[i].url);
    headers.emplace(prefix + "_id", std::to_string(100 + i));
    headers.emplace(prefix + "_needResolving", items[i].needResolving);
  }
  Json answer = getJson("/BrowserExt/rating?timestamp=1700000000.123456", headers);
  ASSERT_TRUE(answer.is_object());
  EXPECT_FALSE(answer.contains("wtp_level"));
  ASSERT_EQ(answer["results"].size(), items.size());
  for (size_t i = 0; i < items.size(); ++i) {
    const Json& r = answer["results"][i];
    SCOPED_TRACE(items[i].url);
    EXPECT_EQ(r["id"], 100 + i);
    EXPECT_EQ(r["url"], items[i].url);  // escapes stay as sent
    EXPECT_EQ(r["level"], items[i].level);
    EXPECT_EQ(r["category"], items[i].category);
    EXPECT_EQ(r.contains("resolved"), items[i].resolved);
  }
  EXPECT_EQ(answer["results"][4]["resolved"], "http://www.bad.test/landing");
  EXPECT_EQ(sim_->requestLine("/BrowserExt/rating?timestamp=1700000000.123456")["headers"]["kveexturls_3_url"],
            "http://iffy.test/a%0D%0Ab%00");
}

TEST_F(ServiceSimTest, PageRatingAddsWtpLevelAndProductVersion) {
  start({"--product-version", "9.1.2"});
  Json answer = getJson("/BrowserExt/rating?timestamp=1.000000&type=wtp",
                        {{"KVExtURLs_Length", "1"}, {"KVEExtURLs_0_url", "https://bad.test/"}, {"KVEExtURLs_0_id", "7"}});
  EXPECT_EQ(answer["wtp_level"], 3);
  EXPECT_EQ(answer["productVersion"], "9.1.2");
  EXPECT_EQ(answer["results"][0]["categoryGroup"], "Malicious");
  EXPECT_EQ(client_->Get("/BrowserExt/rating?timestamp=1", {{"KVExtURLs_Length", "x"}})->status, 400);
}

TEST_F(ServiceSimTest, MailScanSwitchesAreKeptPerAddressWithRawBase64) {
  start();
  // "fn5+fg==" is "~~~~": its "+" must not become a space.
  const std::string tilde = "e=fn5+fg==", ab = "e=YWI/";
  EXPECT_EQ(getJson("/BrowserExt/command?type=vds&i=1&" + tilde)["EnableVeldrin"], true);
  EXPECT_EQ(getJson("/BrowserExt/command?type=updateSetting&name=EnableVeldrin&value=false&" + tilde)["result"], "ok");
  Json off = getJson("/BrowserExt/command?type=vds&i=1&" + tilde);
  EXPECT_EQ(off["EnableVeldrin"], false);
  EXPECT_EQ(off["ShowVeldrin"], true);
  EXPECT_EQ(off["VeldrinAPI"], "https://127.0.0.1:" + std::to_string(cloudPort_));
  EXPECT_EQ(getJson("/BrowserExt/command?type=vds&" + ab)["EnableVeldrin"], true);
  // The same address escaped differently is still the same address.
  EXPECT_EQ(getJson("/BrowserExt/command?type=vds&e=fn5%2Bfg%3D%3D")["EnableVeldrin"], false);
}

TEST_F(ServiceSimTest, CommandsAnswerWithTheirMediaTypes) {
  start();
  struct Case {
    std::string type, contentType;
    int status;
    std::string key;
  };
  for (const Case& c : {Case{"showToolbarUI", "application/json", 200, "result"},
                        Case{"showToolbarHelp", "application/json", 200, "result"},
                        Case{"get_relevant_blog&url=x", "text/html", 200, "blogs"},
                        Case{"wtpatl&url=x", "text/html", 200, "atl"},
                        Case{"no_such_thing", "application/json", 200, "result"}}) {
    auto res = client_->Get(("/BrowserExt/command?type=" + c.type).c_str());
    ASSERT_TRUE(res) << c.type;
    EXPECT_EQ(res->status, c.status) << c.type;
    EXPECT_EQ(res->get_header_value("Content-Type"), c.contentType) << c.type;
    EXPECT_TRUE(Json::parse(res->body, nullptr, false).contains(c.key)) << c.type;
  }
  EXPECT_EQ(getJson("/BrowserExt/command?type=no_such_thing")["result"], "unknown command");
  EXPECT_EQ(client_->Get("/BrowserExt/pattern")->status, 404);
}

TEST_F(ServiceSimTest, SendDataAndLogCommandsAreRecordedOnStdout) {
  start();
  auto res = client_->Post("/BrowserExt/sendData", R"({"k":"v","n":[1,2]})", "application/json");
  ASSERT_TRUE(res);
  EXPECT_EQ(Json::parse(res->body), Json({{"result", "ok"}}));
  EXPECT_EQ(getJson("/BrowserExt/command?type=log&info=%5BVeldrin%5DEmail+Hash%20is")["result"], "ok");
  Json data = sim_->waitForLine([](const Json& l) { return l.value("event", "") == "sendData"; });
  EXPECT_EQ(data["data"], Json({{"k", "v"}, {"n", {1, 2}}}));
  Json log = sim_->waitForLine([](const Json& l) { return l.value("event", "") == "log"; });
  EXPECT_EQ(log["info"], "[Veldrin]Email+Hash is");
  Json line = sim_->requestLine("/BrowserExt/sendData");
  EXPECT_EQ(line["method"], "POST");
  EXPECT_EQ(line["server"], "local");
  EXPECT_EQ(line["body"], R"({"k":"v","n":[1,2]})");
  EXPECT_EQ(line["headers"]["Content-Type"], "application/json");
}

TEST_F(ServiceSimTest, CloudWantsARealBearerToken) {
  start();
  auto cloud = cloudClient();
  struct Case {
    std::string authorization;
    int status;
  };
  for (const Case& c : {Case{"", 401}, Case{"Bearer ", 401}, Case{"Bearer (null)", 401}, Case{"Basic abc", 401},
                        Case{"Bearer tok.en", 200}, Case{"bearer tok.en", 200}}) {
    httplib::Headers headers;
    if (!c.authorization.empty()) headers.emplace("Authorization", c.authorization);
    for (const char* path : {"/mail/key/mails", "/mail/key/user_feedback"}) {
      auto res = cloud->Post(path, headers, R"({"subject":"hi"})", "application/json");
      ASSERT_TRUE(res) << "TLS with the CA file failed: " << httplib::to_string(res.error());
      EXPECT_EQ(res->status, c.status) << path << " with '" << c.authorization << "'";
      if (c.status == 401) {
        EXPECT_EQ(Json::parse(res->body), Json({{"error", "unauthorized"}}));
      }
    }
  }
  EXPECT_EQ(Json::parse(cloud->Post("/mail/key/user_feedback", {{"Authorization", "bearer t"}}, "{}",
                                    "application/json")->body),
            Json({{"code", 0}, {"result", "received"}}));
}

TEST_F(ServiceSimTest, CloudScanGivesVerdictsFromRules) {
  start();
  auto cloud = cloudClient();
  struct Case {
    std::string body;
    int status;
    std::string verdict;
  };
  for (const Case& c : {Case{R"({"subject":"YOU HAVE WON a car"})", 200, "scam"},
                        Case{R"({"mails":[{"subject":"hello"},{"from":{"address":"boss@prize.test"}}]})", 200, "scam"},
                        Case{R"({"mail":{"sender":"friend@home.test","subject":"lunch"}})", 200, "clean"},
                        Case{R"([1,2,3])", 200, "clean"},
                        Case{"not json", 400, ""}}) {
    auto res = cloud->Post("/mail/key/mails", {{"Authorization", "Bearer secret-token"}}, c.body, "application/json");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, c.status) << c.body;
    Json answer = Json::parse(res->body, nullptr, false);
    if (c.status == 400) {
      EXPECT_EQ(answer, Json({{"error", "bad json"}}));
      continue;
    }
    EXPECT_EQ(answer["verdict"], c.verdict) << c.body;
    EXPECT_EQ(answer["result"], c.verdict == "scam" ? 1 : 0);
    EXPECT_EQ(answer["code"], 0);
  }
  Json line = sim_->requestLine("/mail/key/mails");
  EXPECT_EQ(line["server"], "cloud");
  EXPECT_EQ(line["headers"]["Authorization"], "Bearer <redacted>");
  EXPECT_EQ(line.dump().find("secret-token"), std::string::npos);
}

TEST_F(ServiceSimTest, BuiltInRulesAreTheSampleFile) {
  auto rate = [](std::vector<std::string> args) {
    args.insert(args.begin(), {"--port", "0", "--quiet"});
    SimProcess sim(args);
    int port = sim.waitForLine([](const Json& l) { return l.contains("port"); })["port"].get<int>();
    httplib::Client client("127.0.0.1", port);
    auto res = client.Get("/BrowserExt/rating?timestamp=1",
                          {{"KVExtURLs_Length", "2"},
                           {"KVEExtURLs_0_url", "http://bit.ly/x"},
                           {"KVEExtURLs_0_needResolving", "true"},
                           {"KVEExtURLs_1_url", "http://phish.wren-test.example/"}});
    return res ? Json::parse(res->body, nullptr, false) : Json();
  };
  Json builtIn = rate({});
  EXPECT_EQ(builtIn, rate({"--rules", WREN_SIM_RULES}));
  EXPECT_EQ(builtIn["results"][1]["level"], 3);
}

TEST_F(ServiceSimTest, StopsCleanlyAndRejectsBadFlags) {
  start();
  std::filesystem::path ca = caFile_;
  EXPECT_TRUE(std::filesystem::exists(ca));
  int status = sim_->stop();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_FALSE(std::filesystem::exists(ca)) << "the temp CA file outlived the simulator";
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"--port", "70000"}, {"--toolbar", "maybe"}, {"--bogus"}, {"--rules", "/nonexistent.json"}}) {
    SimProcess bad(args);
    bad.waitForLine([](const Json&) { return false; });  // until it exits
    int s = bad.stop();
    EXPECT_TRUE(WIFEXITED(s) && WEXITSTATUS(s) == 2) << args[0];
  }
}

}  // namespace

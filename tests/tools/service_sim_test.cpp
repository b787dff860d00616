// Black-box tests of wren-service-sim with its built-in rules (the sample
// rules.json): each test starts the real binary on free loopback ports,
// reads the JSON lines it prints and talks to it over HTTP(S).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <thread>

extern char** environ;

namespace {

using Json = nlohmann::ordered_json;
using namespace std::chrono_literals;

class ServiceSimTest : public ::testing::Test {
 protected:
  // Starts the simulator on free ports, its stdout (a JSON object a line) going to a file read on demand.
  void start(std::vector<std::string> args = {}) {
    args.insert(args.begin(), {WREN_SIM_EXE, "--port", "0", "--cloud-port", "0"});
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (posix_spawn(&pid_, WREN_SIM_EXE, &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    Json local = line([](const Json& l) { return l.contains("port"); });
    cloud = line([](const Json& l) { return l.contains("cloudPort"); });
    ASSERT_TRUE(local.is_object() && cloud.is_object()) << "the simulator did not report its ports";
    client = std::make_unique<httplib::Client>("127.0.0.1", local["port"].get<int>());
    client->set_url_encode(false);  // queries go exactly as the bridge sends them
  }
  void TearDown() override { stop(), std::filesystem::remove(out_); }

  // SIGTERM unless it has ended, then its exit status as from waitpid.
  int stop() {
    if (pid_ > 0 && waitpid(pid_, &status_, WNOHANG) == 0) kill(pid_, SIGTERM), waitpid(pid_, &status_, 0);
    return pid_ = -1, status_;
  }
  // The first line satisfying pred; null when none came within a generous wait or it ended without one.
  Json line(const std::function<bool(const Json&)>& pred) {
    for (auto limit = std::chrono::steady_clock::now() + 10s; std::chrono::steady_clock::now() < limit;) {
      if (pid_ > 0 && waitpid(pid_, &status_, WNOHANG) == pid_) pid_ = -1;  // all it wrote is there now
      std::ifstream in(out_);
      for (std::string text; std::getline(in, text);)
        if (Json l = Json::parse(text, nullptr, false); l.is_object() && pred(l)) return l;
      if (pid_ <= 0) break;
      std::this_thread::sleep_for(20ms);
    }
    return nullptr;
  }
  Json get(const std::string& target, const httplib::Headers& headers = {}) {
    auto res = client->Get(target.c_str(), headers);
    return res && res->status == 200 ? Json::parse(res->body, nullptr, false) : Json();
  }

  const std::filesystem::path out_ = std::filesystem::temp_directory_path() / ("wren-sim-" + std::to_string(getpid()));
  pid_t pid_ = -1;
  int status_ = -1;
  Json cloud;  // its "listening" line: "cloudPort" and "caFile"
  std::unique_ptr<httplib::Client> client;
};

TEST_F(ServiceSimTest, RatingFollowsRulesAndResolvesOnlyFlaggedShortLinks) {
  start({"--product-version", "9.1.2"});
  // url, needResolving, then the level and category answered.
  const std::tuple<std::string, std::string, int, std::string> items[] = {
      {"https://phish.wren-test.example/x", "false", 3, "Phishing"},
      {"http://WWW.Example.COM/", "false", 1, "Reference"},  // a subdomain, any case
      {"http://notexample.com/", "false", 1, "General"},     // a suffix only at a dot
      {"http://caution.wren-test.example/a%0D%0Ab%00", "false", 2, "Spam"},  // escapes stay as sent
      {"http://bit.ly/abc", "true", 3, "Phishing"},
      {"http://bit.ly/abc", "false", 1, "General"},
      {"", "false", 0, "General"},
  };
  httplib::Headers headers{{"KVExtURLs_Length", std::to_string(std::size(items))}};
  for (size_t i = 0; i < std::size(items); ++i) {
    std::string prefix = (i % 2 ? "kveexturls_" : "KVEExtURLs_") + std::to_string(i);  // names in any case
    headers.insert({{prefix + "_url", std::get<0>(items[i])}, {prefix + "_id", std::to_string(100 + i)},
                    {prefix + "_needResolving", std::get<1>(items[i])}});
  }
  Json answer = get("/BrowserExt/rating?timestamp=1700000000.123456", headers);
  ASSERT_EQ(answer["results"].size(), std::size(items)) << answer.dump();
  EXPECT_FALSE(answer.contains("wtp_level"));
  for (size_t i = 0; i < std::size(items); ++i) {
    const auto& [url, needResolving, level, category] = items[i];
    const Json& r = answer["results"][i];
    EXPECT_EQ(Json({{"id", r["id"]}, {"url", r["url"]}, {"level", r["level"]}, {"category", r["category"]},
                    {"resolved", r.value("resolved", "")}}),
              Json({{"id", 100 + i}, {"url", url}, {"level", level}, {"category", category},
                    {"resolved", i == 4 ? "http://phish.wren-test.example/login" : ""}}));
  }
  Json page = get("/BrowserExt/rating?timestamp=1.000000&type=wtp",
                  {{"KVExtURLs_Length", "1"}, {"KVEExtURLs_0_url", "https://phish.wren-test.example/"}});
  EXPECT_EQ(page["wtp_level"].dump() + " " + page["productVersion"].dump(), "3 \"9.1.2\"");
}

TEST_F(ServiceSimTest, CommandsAnswerInTheirMediaTypesAndKeepMailSwitchesPerRawBase64Address) {
  start();
  for (const std::string type : {"showToolbarUI", "get_relevant_blog&url=x", "wtpatl&url=x"}) {
    auto res = client->Get(("/BrowserExt/command?type=" + type).c_str());
    EXPECT_EQ(res ? res->get_header_value("Content-Type") : "", type[0] == 's' ? "application/json" : "text/html");
  }
  // "fn5+fg==" is "~~~~": its "+" must not become a blank.
  EXPECT_EQ(get("/BrowserExt/command?type=updateSetting&name=EnableVeldrin&value=false&e=fn5+fg==")["result"], "ok");
  Json off = get("/BrowserExt/command?type=vds&i=1&e=fn5+fg==");
  EXPECT_EQ(off["EnableVeldrin"].dump() + " " + off["VeldrinAPI"].get<std::string>(),
            "false https://127.0.0.1:" + cloud["cloudPort"].dump());
  EXPECT_EQ(get("/BrowserExt/command?type=vds&e=YWI/")["EnableVeldrin"], true);
}

TEST_F(ServiceSimTest, SendDataAndLogCommandsArePrintedAndItStopsCleanly) {
  start();
  EXPECT_EQ(client->Post("/BrowserExt/sendData", R"({"k":"v","n":[1,2]})", "application/json")->status, 200);
  EXPECT_EQ(get("/BrowserExt/command?type=log&info=%5BVeldrin%5DEmail+Hash%20is")["result"], "ok");
  auto event = [&](const char* name) { return line([&](const Json& l) { return l.value("event", "") == name; }); };
  EXPECT_EQ(event("sendData")["data"], Json({{"k", "v"}, {"n", {1, 2}}}));
  EXPECT_EQ(event("log")["info"], "[Veldrin]Email+Hash is");
  const std::string caFile = cloud["caFile"];
  ASSERT_TRUE(std::filesystem::exists(caFile));
  int status = stop();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_FALSE(std::filesystem::exists(caFile)) << "the temp certificate outlived the simulator";
}

TEST_F(ServiceSimTest, CloudWantsARealBearerTokenGivesVerdictsAndPrintsNoToken) {
  start();
  httplib::SSLClient ssl("127.0.0.1", cloud["cloudPort"].get<int>());
  ssl.set_ca_cert_path(cloud["caFile"].get<std::string>().c_str());
  ssl.enable_server_certificate_verification(true);
  for (const auto& [authorization, status] :
       std::vector<std::pair<std::string, int>>{{"", 401}, {"Bearer (null)", 401}, {"bearer tok.en", 200}}) {
    auto res = ssl.Post("/mail/key/user_feedback", {{"Authorization", authorization}}, "{}", "application/json");
    ASSERT_TRUE(res) << "TLS with the CA file failed: " << httplib::to_string(res.error());
    EXPECT_EQ(res->status, status) << "'" << authorization << "'";
  }
  for (const auto& [body, verdict] : std::vector<std::pair<std::string, std::string>>{
           {R"({"subject":"YOU HAVE WON a car"})", "scam"},
           {R"({"mails":[{"subject":"hi"},{"from":{"address":"x@lottery-prize.example"}}]})", "scam"},
           {R"({"mail":{"sender":"friend@home.test","subject":"lunch"}})", "clean"}}) {
    auto res = ssl.Post("/mail/key/mails", {{"Authorization", "Bearer secret-token"}}, body, "application/json");
    EXPECT_EQ(res ? Json::parse(res->body, nullptr, false).value("verdict", "?") : "", verdict) << body;
  }
  Json printed = line([](const Json& l) { return l.value("target", "") == "/mail/key/mails"; });
  EXPECT_EQ(printed["server"].dump() + printed["headers"]["Authorization"].dump(), R"("cloud""Bearer <redacted>")");
  EXPECT_EQ(printed.dump().find("secret-token"), std::string::npos);
}

}  // namespace

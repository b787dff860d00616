// Page messages end to end: the real host, a real service on loopback, and
// this test acting as the extension (answering the host's browser calls).
#include <set>
#include <thread>

#include "host_fixture.h"

namespace wren::test {
namespace {

using namespace std::chrono_literals;

TEST_F(HostTest, GateDropsEveryMessageWhileTheToolbarIsOff) {
  service_.setHandler([](const httplib::Request& req, httplib::Response& res) {
    if (req.path == "/BrowserExt/setting")  // no toolbar header: off
      res.set_content(R"({"EnableAutomaticScan":true,"EnableManualScanner":true})", "application/json");
    else
      res.set_content(R"({"results":[{"level":1}]})", "application/json");
  });
  auto host = start();
  host->send({{"type", "hook"}, {"name", "validateToolbarItem"}, {"window", nullptr}});
  ASSERT_TRUE(service_.waitForRequests(1));
  for (const char* name : {"wtp_rating", "vd_set_email", "vd_show_protect_promotion", "block_page", "rateItems",
                           "no_such"})
    host->send(message(name, "p", OJson{{"email", "a@b.c"}, {"href", "x"}, {"type", "Other"},
                                         {"urls", {{{"url", "http://a.example/"}, {"id", 1}}}}}));
  auto answer = host->readFrameWhere(
      [&](const OJson& f) {
        if (f["type"] == "call") host->send({{"type", "result"}, {"id", f["id"]}, {"value", nullptr}});
        return f["type"] == "message";
      },
      1500ms);
  EXPECT_FALSE(answer) << "no message may be answered while the toolbar is off";
  EXPECT_EQ(service_.requestCount(), 1u) << "only the settings reload reaches the service";
}

TEST_F(HostTest, RatingReachesTheServiceAsHeadersAndLevelsComeBack) {
  answerAsEnabledService(service_, [](const httplib::Request& req, httplib::Response& res) {
    ASSERT_EQ(req.path, "/BrowserExt/rating");
    res.set_content(R"({"results":[{"level":3},{"level":1}]})", "application/json");
  });
  auto host = start();
  enableToolbar(*host);
  service_.clear();
  OJson urls = {{{"url", "http://bit.ly/abc"}, {"id", 7}}, {{"url", "https://bit.ly/abc"}, {"id", 8}}};
  host->send(message("rateItems", {{"tab", 1}}, OJson{{"type", "AutomaticScan"}, {"urls", urls}}));
  auto answer = host->readFrame();
  ASSERT_TRUE(answer);
  EXPECT_EQ((*answer)["name"], "rateItems");
  EXPECT_EQ((*answer)["userInfo"]["results"][0]["level"], 3);
  EXPECT_EQ((*answer)["userInfo"]["results"][1]["level"], 1);
  EXPECT_EQ((*answer)["userInfo"]["results"][1]["id"], 8);
  auto reqs = service_.requests();
  ASSERT_EQ(reqs.size(), 1u);
  const auto& r = reqs[0];
  EXPECT_EQ(r.method, "GET");
  EXPECT_EQ(r.query.rfind("timestamp=", 0), 0u) << r.query;
  EXPECT_EQ(r.header("KVExtURLs_Length"), "2");
  EXPECT_EQ(r.header("KVEExtURLs_0_url"), "http://bit.ly/abc");
  EXPECT_EQ(r.header("KVEExtURLs_0_id"), "7");
  EXPECT_EQ(r.header("KVEExtURLs_0_needResolving"), "true");
  EXPECT_EQ(r.header("KVEExtURLs_1_needResolving"), "false") << "only http bit.ly links are resolved";
}

TEST_F(HostTest, PageDataInRequestHeadersCannotInjectHeaders) {
  answerAsEnabledService(service_, [](const httplib::Request&, httplib::Response& res) {
    res.set_content(R"({"results":[]})", "application/json");
  });
  auto host = start();
  enableToolbar(*host);
  service_.clear();
  host->send(message("rateItems", "p",
                     OJson{{"type", "ManualScanner"}, {"urls", {{{"url", "http://a/\r\nX-Evil: 1"}, {"id", 1}}}}}));
  ASSERT_TRUE(host->readFrame());
  auto r = service_.requests().at(0);
  // Raw CR LF would have split the value into a header line of its own; the
  // test server decodes percent escapes in header values, so the whole value
  // arriving in one piece proves it travelled encoded.
  EXPECT_FALSE(r.hasHeader("X-Evil"));
  EXPECT_EQ(r.header("KVEExtURLs_0_url"), "http://a/\r\nX-Evil: 1");
}

TEST_F(HostTest, OpenNewTabAsksTheBrowserForTheWindowThenOpensTheEscapedAddress) {
  answerAsEnabledService(service_);
  auto host = start();
  enableToolbar(*host);
  host->send(message("vd_open_new_tab", "p", OJson{{"url", "http://x.example/a b<c>%41"}}));
  auto call = host->readFrame();
  ASSERT_TRUE(call);
  EXPECT_EQ((*call)["type"], "call");
  EXPECT_EQ((*call)["method"], "getActiveWindow");
  host->send({{"type", "result"}, {"id", (*call)["id"]}, {"value", {{"windowId", 4}}}});
  auto open = host->readFrame();
  ASSERT_TRUE(open);
  EXPECT_EQ((*open)["method"], "openTab");
  EXPECT_EQ((*open)["window"], (OJson{{"windowId", 4}}));
  EXPECT_EQ((*open)["url"], "http://x.example/a%20b%3Cc%3E%41");
  EXPECT_EQ((*open)["activate"], true);
  host->send({{"type", "result"}, {"id", (*open)["id"]}, {"value", nullptr}});

  // No window: nothing is opened.
  host->send(message("vd_open_new_tab", "p", OJson{{"url", "http://y.example/"}}));
  auto call2 = host->readFrame();
  ASSERT_TRUE(call2);
  host->send({{"type", "result"}, {"id", (*call2)["id"]}, {"value", nullptr}});
  EXPECT_FALSE(host->readFrame(500ms));
}

TEST_F(HostTest, ManyPagesInFlightAreAnsweredEachToItsOwnPage) {
  // The service answers later requests sooner, so answers overtake each other.
  answerAsEnabledService(service_, [](const httplib::Request& req, httplib::Response& res) {
    int id = std::stoi(req.get_header_value("KVEExtURLs_0_id"));
    std::this_thread::sleep_for(std::chrono::milliseconds(5 * (20 - id)));
    res.set_content(R"({"results":[{"level":)" + std::to_string(id) + "}]}", "application/json");
  });
  auto host = start();
  enableToolbar(*host);
  for (int i = 0; i < 20; ++i)
    host->send(message("rateItems", {{"tab", i}},
                       OJson{{"type", "AutomaticScan"}, {"urls", {{{"url", "http://e.example/"}, {"id", i}}}}}));
  std::set<int> seen;
  for (int i = 0; i < 20; ++i) {
    auto answer = host->readFrame(10s);
    ASSERT_TRUE(answer) << "answer " << i;
    int tab = (*answer)["page"]["tab"];
    EXPECT_EQ((*answer)["userInfo"]["results"][0]["level"], tab) << "an answer reached the wrong page";
    seen.insert(tab);
  }
  EXPECT_EQ(seen.size(), 20u);
}

TEST_F(HostTest, SendCommandActsAsOnePageAndPrintsEachAnswer) {
  answerAsEnabledService(service_, [](const httplib::Request&, httplib::Response& res) {
    res.set_content(R"({"results":[{"level":2}]})", "application/json");
  });
  HostProcess cli(WREN_BRIDGE_EXE,
                  {"send", "rateItems", R"({"type":"ManualScanner","urls":[{"url":"http://a.example/","id":1}]})"},
                  env());
  std::string out = cli.readAllStdout();
  ASSERT_EQ(cli.wait(15s), 0);
  auto line = OJson::parse(out.substr(0, out.find('\n')));
  EXPECT_EQ(line["name"], "rateItems");
  EXPECT_EQ(line["userInfo"]["results"][0]["level"], 2);
}

TEST_F(HostTest, DoctorFailsWhenTheServiceIsUnreachable) {
  std::map<std::string, std::string> e = env();
  e["WREN_SERVICE_ORIGIN"] = "http://127.0.0.1:1";
  HostProcess down(WREN_BRIDGE_EXE, {"doctor"}, e);
  EXPECT_NE(down.wait(15s), 0);
  answerAsEnabledService(service_);
  HostProcess up(WREN_BRIDGE_EXE, {"doctor"}, env());
  EXPECT_EQ(up.wait(15s), 0);
}

}  // namespace
}  // namespace wren::test

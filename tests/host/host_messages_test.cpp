// Page messages end to end: the real host, a real service on loopback, and
// this test acting as the extension (answering the host's browser calls).
#include <regex>
#include <set>

#include "host_fixture.h"

namespace wren::test {
namespace {

TEST_F(HostTest, GateDropsEveryMessageWhileTheToolbarIsOff) {
  answer({.settingsHeaders = {}});  // no toolbar header: off
  start();
  hook("validateToolbarItem", nullptr);
  ASSERT_TRUE(service_.waitForRequests(1));
  for (const char* name : {"wtp_rating", "vd_set_email", "vd_show_protect_promotion", "block_page", "rateItems",
                           "no_such"})
    host_->send(message(name, "p", OJson{{"email", "a@b.c"}, {"href", "x"}, {"type", "Other"},
                                          {"urls", {{{"url", "http://a.example/"}, {"id", 1}}}}}));
  EXPECT_FALSE(pump([](const OJson& f) { return is(f, "message"); }, 1500ms)) << "answered with the toolbar off";
  EXPECT_EQ(service_.requestCount(), 1u) << "only the settings reload reaches the service";
}

// Each message in turn on a page of its own, of any JSON shape: its answer
// (or none) with the page verbatim, and the requests the service receives for
// it ("METHOD target body", timestamps as T).
TEST_F(HostTest, EachMessageGetsItsAnswerOrSilenceAndSendsItsRequests) {
  answer({.other = [](const httplib::Request& req, httplib::Response& res) {
    const std::string type = req.get_param_value("type");
    if (req.path == "/BrowserExt/rating")
      res.set_content(R"({"results":[{"level":3,"category":"Spam","categoryGroup":"Scam"}],"wtp_level":2,)"
                      R"("productVersion":"9.1"})", "application/json");
    if (type == "x") res.set_content(R"({"keep":2,"buildVersion":"0"})", "application/json");
    if (type == "fail") res.status = 500;
    if (type == "list") res.set_content("[1]", "application/json");
    // Page content must come as text/html, though it is JSON all the same.
    if (type == "get_relevant_blog") res.set_content(R"({"blog":"b"})", "text/html");
    if (type == "wtpatl") res.set_content(R"({"atl":1})", "application/json");
  }});
  const OJson item = {{"url", "http://a.example/"}, {"id", 1}};
  // The message, its answer (none when `reply` is null), the requests it causes and a line it logs.
  struct Row { std::string name; std::optional<OJson> info; const char* reply; std::optional<OJson> replyInfo;
               std::vector<std::string> requests = {}; std::string log = {}; };
  const Row rows[] = {
      {"rateItems", OJson{{"type", "Other"}, {"urls", {item}}}, "rateItems",
       OJson{{"results", {{{"url", "http://a.example/"}, {"id", 1}, {"level", 3}}}}},
       {"GET /BrowserExt/rating?timestamp=T"}},
      {"rateItems", OJson{{"urls", {item}}}, nullptr, {}},  // no type: not rated
      {"wtp_rating", OJson{{"urls", {item}}}, "wtp_rating",
       OJson{{"results", {{"url", "http://a.example/"}, {"id", 1}, {"category", "Spam"}, {"categoryGroup", "Scam"},
                          {"level", 3}}},
             {"wtp_level", 2}, {"productVersion", "9.1"}},
       {"GET /BrowserExt/setting?type=extension", "GET /BrowserExt/rating?timestamp=T&type=wtp"}},
      {"send_data", OJson{{"k", "v"}}, nullptr, {}, {R"(POST /BrowserExt/sendData {"k":"v"})"}},
      {"vd_set_email", OJson{{"email", "a@b.c"}}, "vd_set_email", {}},
      {"vd_send_command", OJson{{"type", "x"}, {"keep", 1}}, "vd_send_command",
       OJson{{"type", "x"}, {"keep", 2}, {"buildVersion", "1.0.0"}}, {"GET /BrowserExt/command?keep=1&type=x"}},
      // A failed command, or an answer that is not a dictionary, hands the request back.
      {"vd_send_command", OJson{{"type", "fail"}, {"k", 1}}, "vd_send_command", OJson{{"type", "fail"}, {"k", 1}},
       {"GET /BrowserExt/command?k=1&type=fail"}},
      {"vd_send_command", OJson{{"type", "list"}}, "vd_send_command", OJson{{"type", "list"}},
       {"GET /BrowserExt/command?type=list"}},
      // The cloud refuses the connection.
      {"vd_scan_email", OJson{{"jwt", "t"}, {"json", "{}"}}, "vd_scan_email",
       OJson{{"code", 0}, {"response", OJson::object()}}},
      {"vd_feedback", OJson{{"jwt", "t"}, {"json", "{}"}}, "vd_feedback", {}},
      {"vd_show_protect_promotion", {}, "vd_show_protect_promotion", OJson{{"isShow", true}}, {},
       "[SafariToolbar] vd_show_protect_promotion is 0 "},
      {"vd_show_protect_promotion", {}, "vd_show_protect_promotion", {}, {},
       "[SafariToolbar] vd_show_protect_promotion is 1 "},
      {"vd_get_user_email", OJson{{"email", "a@b.c"}}, nullptr, {}, {}, "[SafariToolbar] safari background a@b.c"},
      {"vd_get_setting", OJson{{"e", "a@b.c"}, {"i", {{"n", 1}}}}, "vd_get_setting",
       OJson{{"e", "a@b.c"}, {"i", {{"n", 1}}}, {"settings", {{"EnableVeldrin", true}}}},
       {"GET /BrowserExt/command?e=YUBiLmM%3D&i%5Bn%5D=1&type=vds"}},
      {"vd_get_setting", OJson{{"e", "a@b.c"}}, nullptr, {}, {}, "vd_get_setting dropped: no i"},
      {"vd_get_setting", OJson{{"e", 5}, {"i", 1}}, nullptr, {}, {}, "vd_get_setting dropped: e is not a text"},
      {"get_relevant_blog", OJson{{"type", "other"}, {"q", "1"}}, "get_relevant_blog", OJson{{"blog", "b"}},
       {"GET /BrowserExt/command?q=1&type=get_relevant_blog"}},
      {"wtpatl", OJson::object(), nullptr, {}, {"GET /BrowserExt/command?type=wtpatl"}},
      {"block_page", OJson{{"href", "http://w.example/?code=0"}}, nullptr, {}},
      {"block_page", OJson{{"href", "http://x.example/?code=1"}}, nullptr, {}},  // the last one is remembered
      // The marker is case-sensitive: this is the page after the block page.
      {"block_page", OJson{{"href", "http://y.example/?CODE=9"}}, "reload_block_page",
       OJson{{"href", "http://x.example/?code=1"}}},
      {"block_page", OJson{{"href", "http://y.example/"}}, nullptr, {}, {}, "lastBlockUrl is nil"},
      {"no_such", OJson::object(), nullptr, {}},
  };
  start();
  enableToolbar();
  service_.clear();
  const auto isMessage = [](const OJson& f) { return is(f, "message"); };
  for (int i = 0; i < int(std::size(rows)); ++i) {
    const Row& r = rows[i];
    const OJson shapes[] = {{{"tab", i}, {"frame", 0}}, "tab-" + std::to_string(i), i, OJson::array({i, "x", nullptr})};
    const OJson& page = shapes[i % 4];
    SCOPED_TRACE(r.name + " on page " + page.dump());
    const size_t before = service_.requestCount();
    host_->send(message(r.name, page, r.info));
    if (r.reply) {
      OJson expected = message(r.reply, page, r.replyInfo);
      EXPECT_EQ(pump(isMessage).value_or(nullptr), expected);
    }
    ASSERT_TRUE(eventually([&] { return service_.requestCount() >= before + r.requests.size(); }));
    std::vector<std::string> seen;
    for (const auto& q : service_.requests())
      seen.push_back(std::regex_replace(q.method + " " + q.target + (q.body.empty() ? "" : " " + q.body),
                                        std::regex("timestamp=[0-9.]+"), "timestamp=T"));
    EXPECT_EQ(std::vector<std::string>(seen.begin() + before, seen.end()), r.requests);
    EXPECT_TRUE(r.log.empty() || host_->waitForLog(r.log)) << r.log;
  }
  // Nothing left unanswered above answers late.
  host_->send(message("vd_set_email", "end", OJson{{"email", ""}}));
  EXPECT_EQ(pump(isMessage).value_or(nullptr).value("page", OJson()), "end");
}

TEST_F(HostTest, RatingItemsTravelAsHeadersWithShortLinksFlaggedAndCannotInjectHeaders) {
  answer({.other = [](const httplib::Request&, httplib::Response& res) {
    res.set_content(R"({"results":[{"level":3},{"level":1}]})", "application/json");
  }});
  start();
  enableToolbar();
  service_.clear();
  OJson urls = {{{"url", "http://bit.ly/abc"}, {"id", 7}},
                {{"url", "https://bit.ly/abc"}, {"id", 8}},
                {{"url", "http://a/\r\nX-Evil: 1"}, {"id", 9}},
                {{"url", "https://t.co/x"}, {"id", 7.5}, {"other", "x"}},
                {{"url", "http://b/"}, {"id", 3.0}}};
  auto got = ask("rateItems", {{"tab", 1}}, OJson{{"type", "AutomaticScan"}, {"urls", urls}});
  ASSERT_TRUE(got);
  urls[0]["level"] = 3;
  urls[1]["level"] = 1;  // two results for five items: the others keep no level
  EXPECT_EQ((*got)["userInfo"], (OJson{{"results", urls}}));
  ASSERT_EQ(service_.requestCount(), 1u);
  const RecordedRequest r = service_.requests()[0];
  EXPECT_EQ(r.method, "GET");
  EXPECT_TRUE(std::regex_match(r.query, std::regex(R"(timestamp=\d+\.\d{6})"))) << r.query;
  const std::pair<const char*, const char*> headers[] = {
      {"KVExtURLs_Length", "5"}, {"KVEExtURLs_0_url", "http://bit.ly/abc"}, {"KVEExtURLs_0_id", "7"},
      {"KVEExtURLs_0_needResolving", "true"},  // only http bit.ly links are resolved
      {"KVEExtURLs_1_needResolving", "false"},
      // Raw CR LF would have split it into a header line of its own; the test
      // server decodes percent escapes, so one whole value proves it encoded.
      {"KVEExtURLs_2_url", "http://a/\r\nX-Evil: 1"},
      // Ids as the page wrote them, whole numbers without a fraction; other keys stay behind.
      {"KVEExtURLs_3_id", "7.5"}, {"KVEExtURLs_3_needResolving", "true"}, {"KVEExtURLs_4_id", "3"}};
  for (const auto& [name, value] : headers) EXPECT_EQ(r.header(name), value) << name;
  EXPECT_FALSE(r.hasHeader("X-Evil") || r.hasHeader("KVEExtURLs_3_other"));
}

TEST_F(HostTest, OpenNewTabOpensOnlyWebAddressesEscapedInTheActiveWindow) {
  start();
  enableToolbar();
  browser_ = {{"getActiveWindow", {{"windowId", 4}}}};
  const auto isOpen = [](const OJson& f) { return is(f, "call") && f["method"] == "openTab"; };
  const std::pair<const char*, const char*> cases[] = {  // the page's address, the one opened (null: refused)
      {"http://x.example/a b<c>%41", "http://x.example/a%20b%3Cc%3E%41"}, {"HTTPS://a.example/", "HTTPS://a.example/"},
      {"javascript:alert(1)", nullptr}, {" JavaScript:alert(1)", nullptr}, {"java\tscript:alert(1)", nullptr},
      {"file:///etc/passwd", nullptr}, {"chrome://settings", nullptr}, {"data:text/html,<b>x</b>", nullptr},
      {"about:blank", nullptr}, {"httpx://a", nullptr}, {"//a.example/", nullptr}};
  for (const auto& [url, opened] : cases) {
    SCOPED_TRACE(url);
    calls_.clear();
    host_->send(message("vd_open_new_tab", "p", OJson{{"url", url}}));
    if (opened) {
      auto open = pump(isOpen);
      ASSERT_TRUE(open);
      EXPECT_EQ(calls_.front()["method"], "getActiveWindow");
      EXPECT_EQ((*open)["window"], (OJson{{"windowId", 4}}));
      EXPECT_EQ((*open)["url"], opened);
      EXPECT_EQ((*open)["activate"], true);
    } else {
      EXPECT_TRUE(host_->waitForLog("vd_open_new_tab: not an http or https address"));
      ASSERT_TRUE(ask("vd_set_email", "barrier", OJson{{"email", ""}}));  // answered after the refused one
      EXPECT_TRUE(calls_.empty());
    }
  }
  browser_ = OJson::object();  // no window: nothing is opened, nothing answered
  calls_.clear();
  host_->send(message("vd_open_new_tab", "p", OJson{{"url", "http://y.example/"}}));
  EXPECT_FALSE(pump([](const OJson& f) { return !is(f, "call"); }, 500ms));
  EXPECT_EQ(calls_.size(), 1u);
}

TEST_F(HostTest, ManyPagesInFlightAreAnsweredEachToItsOwnPage) {
  // The service answers later requests sooner, so answers overtake each other.
  answer({.other = [](const httplib::Request& req, httplib::Response& res) {
    int id = std::stoi(req.get_header_value("KVEExtURLs_0_id"));
    std::this_thread::sleep_for(std::chrono::milliseconds(5 * (20 - id)));
    res.set_content(R"({"results":[{"level":)" + std::to_string(id) + "}]}", "application/json");
  }});
  start();
  enableToolbar();
  for (int i = 0; i < 20; ++i)
    host_->send(message("rateItems", {{"tab", i}},
                        OJson{{"type", "AutomaticScan"}, {"urls", {{{"url", "http://e.example/"}, {"id", i}}}}}));
  std::set<int> seen;
  for (int i = 0; i < 20; ++i) {
    auto got = host_->readFrame(10s);
    ASSERT_TRUE(got) << "answer " << i;
    EXPECT_EQ((*got)["userInfo"]["results"][0]["level"], (*got)["page"]["tab"]) << "an answer reached the wrong page";
    seen.insert((*got)["page"]["tab"].get<int>());
  }
  EXPECT_EQ(seen.size(), 20u);
}

TEST_F(HostTest, DoctorFailsWhenTheServiceIsDownAndNamesAPlaceholderCloudInItsReportOnly) {
  const std::pair<std::string, bool> clouds[] = {{"https://veldrin.invalid", true},
                                                 {"https://scan.Veldrin.INVALID.:8443/v1", true},
                                                 {"https://127.0.0.1:1", false},
                                                 {"https://invalid.example", false}};
  for (const auto& [cloud, placeholder] : clouds) {
    SCOPED_TRACE(cloud);
    HostProcess doctor(WREN_BRIDGE_EXE, {"doctor"},
                       env({{"WREN_SERVICE_ORIGIN", "http://127.0.0.1:1"}, {"WREN_VELDRIN_API", cloud}}));
    const std::string out = doctor.readAllStdout();
    EXPECT_EQ(doctor.wait(15s), 1);
    EXPECT_EQ(doctor.stderrToEnd(), "") << "the report says it all";
    EXPECT_NE(out.find("Local service at http://127.0.0.1:1: NOT answering"), std::string::npos) << out;
    EXPECT_EQ(out.find("This placeholder address never resolves") != std::string::npos, placeholder) << out;
  }
  EXPECT_EQ(HostProcess(WREN_BRIDGE_EXE, {"doctor"}, env()).wait(15s), 0) << "with the service answering";
}

TEST_F(HostTest, SendSaysOnStderrWhenThePageGotNoAnswer) {
  answer({.other = [](const httplib::Request&, httplib::Response& res) {
    res.set_content(R"({"results":[{"level":1}]})", "application/json");
  }});
  const std::string dropped = "the page got no answer to \"rateItems\": the bridge drops a message whose dictionary";
  struct Case { std::string name, json; int status; std::string answer, says; };  // answer: the first line printed
  const Case cases[] = {
      {"rateItems", R"({"type":"ManualScanner","urls":[{"url":"http://a.example/","id":1}]})", 0,
       R"({"name":"rateItems","userInfo":{"results":[{"url":"http://a.example/","id":1,"level":1}]}})", ""},
      {"rateItems", R"({"type":"ManualScanner","items":[{"url":"http://a.example/","id":1}]})", 1, "", dropped},
      {"rateItems", R"({"urls":[{"url":"http://a.example/","id":1}]})", 1, "", dropped},  // no type: never rated
      {"rateItems", R"({"type":"ManualScanner","urls":[{"url":"http://a.example/"}]})", 1, "", dropped},  // no id
      {"vd_set_email", R"({"email":"a@example.com"})", 0, R"({"name":"vd_set_email"})", ""},
      {"send_data", R"({"k":"v"})", 0, "", "send_data is never answered"},
      {"block_page", R"({"href":"http://127.0.0.1/blocked?code=3"})", 0, "", "block_page is never answered"},
      {"rate_items", "{}", 1, "", "the page got no answer to \"rate_items\": there is no such message"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name + " " + c.json);
    HostProcess cli(WREN_BRIDGE_EXE, {"send", c.name, c.json}, env());
    const std::string out = cli.readAllStdout();
    EXPECT_EQ(cli.wait(15s), c.status);
    const std::string err = cli.stderrToEnd().value_or("(stderr still open)");
    EXPECT_EQ(out.substr(0, out.find('\n')), c.answer);
    if (c.says.empty()) {
      EXPECT_EQ(err.find("wren-bridge send:"), std::string::npos) << err;
    } else {
      EXPECT_NE(err.find("wren-bridge send: " + c.says), std::string::npos) << err;
    }
  }

  answer({.settingsHeaders = {{"X-Wren-ToolbarStatus", "false"}}});
  HostProcess off(WREN_BRIDGE_EXE, {"send", "vd_set_email", R"({"email":"a@example.com"})"}, env());
  EXPECT_EQ(off.readAllStdout(), "");
  EXPECT_EQ(off.wait(15s), 1);
  EXPECT_TRUE(off.waitForLog("reports the toolbar as off"));
  EXPECT_TRUE(off.waitForLog("the page got no answer to \"vd_set_email\""));
}

}  // namespace
}  // namespace wren::test

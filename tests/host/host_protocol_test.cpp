// The envelope and framing as the browser sees them, through the real binary.
#include <signal.h>

#include "host_fixture.h"

namespace wren::test {
namespace {

using namespace std::chrono_literals;

TEST_F(HostTest, SaysHelloFirstWithVersionAndProtocol) {
  HostProcess host(WREN_BRIDGE_EXE, {}, env());
  auto hello = host.readFrame();
  ASSERT_TRUE(hello);
  EXPECT_EQ(*hello, (OJson{{"type", "hello"}, {"version", "1.0.0"}, {"protocol", 1}}));
}

TEST_F(HostTest, AcceptsTheArgumentsBrowsersStartItWith) {
  for (std::vector<std::string> args : {std::vector<std::string>{"chrome-extension://abcdefghijklmnopabcdefghijklmnop/"},
                                        std::vector<std::string>{"/usr/lib/mozilla/x.json", "wren@example.org"}}) {
    HostProcess host(WREN_BRIDGE_EXE, args, env());
    auto hello = host.readFrame();
    ASSERT_TRUE(hello) << args[0];
    EXPECT_EQ((*hello)["type"], "hello");
    host.closeStdin();
    EXPECT_EQ(host.wait(), 0);
  }
}

TEST_F(HostTest, EchoesThePageVerbatimAndKeepsNoDictionaryApart) {
  answerAsEnabledService(service_);
  auto host = start();
  enableToolbar(*host);
  const OJson pages[] = {OJson{{"tab", 7}, {"frame", 0}}, OJson("tab-3"), OJson(42), OJson::array({1, "x", nullptr})};
  for (const auto& page : pages) {
    host->send(message("vd_set_email", page, OJson{{"email", "a@b.c"}}));
    auto answer = host->readFrame();
    ASSERT_TRUE(answer);
    EXPECT_EQ((*answer)["type"], "message");
    EXPECT_EQ((*answer)["name"], "vd_set_email");
    EXPECT_EQ((*answer)["page"], page);
    EXPECT_FALSE(answer->contains("userInfo")) << "an answer with no dictionary has no userInfo key";
  }
  // The first promotion answer carries a dictionary, later ones none; a
  // message without userInfo is accepted.
  host->send(message("vd_show_protect_promotion", "p", std::nullopt));
  auto first = host->readFrame();
  ASSERT_TRUE(first);
  EXPECT_EQ((*first)["userInfo"], (OJson{{"isShow", true}}));
  host->send(message("vd_show_protect_promotion", "p", std::nullopt));
  auto second = host->readFrame();
  ASSERT_TRUE(second);
  EXPECT_FALSE(second->contains("userInfo"));
  EXPECT_TRUE(host->waitForLog("[SafariToolbar] vd_show_protect_promotion is 0 "));
  EXPECT_TRUE(host->waitForLog("[SafariToolbar] vd_show_protect_promotion is 1 "));
}

TEST_F(HostTest, DropsMalformedFramesWithOneLogLineAndKeepsServing) {
  answerAsEnabledService(service_);
  auto host = start();
  enableToolbar(*host);
  struct Case {
    std::string payload;
    std::string logged;
  };
  const Case cases[] = {
      {"not json", "frame is not a JSON object"},
      {"[1,2]", "frame is not a JSON object"},
      {"\"text\"", "frame is not a JSON object"},
      {R"({"name":"rateItems"})", "without a text \"type\""},
      {R"({"type":7})", "without a text \"type\""},
      {R"({"type":"teleport"})", "unknown frame type \"teleport\""},
      {R"({"type":"message","name":5,"page":1})", "without a text \"name\""},
      {R"({"type":"message","name":"block_page"})", "without \"page\""},
      {R"({"type":"message","name":"block_page","page":1,"userInfo":[1]})", "not an object"},
      {R"({"type":"result","id":"x","value":1})", "without an integer \"id\""},
      {R"({"type":"result","id":999,"value":1})", "no such call is waiting"},
      {std::string("{\"type\":\"message\",\"name\":\"a\xff\",\"page\":1}"), "frame is not a JSON object"},
  };
  for (const auto& c : cases) {
    uint32_t len = static_cast<uint32_t>(c.payload.size());
    host->sendRaw(std::string(reinterpret_cast<const char*>(&len), 4) + c.payload);
    EXPECT_TRUE(host->waitForLog(c.logged)) << c.payload;
  }
  host->send(message("vd_set_email", "still-here", OJson{{"email", "x@y.z"}}));
  auto answer = host->readFrame();
  ASSERT_TRUE(answer);
  EXPECT_EQ((*answer)["page"], "still-here");
}

TEST_F(HostTest, WrongValueTypesFromThePageNeverCrashTheHost) {
  answerAsEnabledService(service_);
  auto host = start();
  enableToolbar(*host);
  const OJson infos[] = {
      OJson{{"urls", "not-a-list"}, {"type", "AutomaticScan"}},
      OJson{{"urls", {1, 2, 3}}, {"type", "AutomaticScan"}},
      OJson{{"urls", {{{"url", 5}, {"id", "x"}}}}, {"type", 9}},
      OJson{{"href", {1}}},
      OJson{{"e", 12}, {"i", 1}},
      OJson{{"url", nullptr}},
      OJson{{"email", {{"a", 1}}}},
      OJson::object(),
  };
  for (const char* name : {"rateItems", "wtp_rating", "block_page", "vd_get_setting", "vd_open_new_tab",
                           "vd_get_user_email", "vd_set_email", "send_data", "vd_send_command", "get_relevant_blog",
                           "wtpatl", "vd_scan_email", "vd_feedback"})
    for (const auto& info : infos) host->send(message(name, "fuzz", info));
  // Answer any browser call with null so chains end quickly.
  host->send(message("vd_set_email", "alive", OJson{{"email", "q@r.s"}}));
  auto alive = host->readFrameWhere(
      [&](const OJson& f) {
        if (f["type"] == "call") host->send({{"type", "result"}, {"id", f["id"]}, {"value", nullptr}});
        return f.value("page", OJson()) == "alive";
      },
      10s);
  EXPECT_TRUE(alive) << "the host stopped serving";
}

TEST_F(HostTest, ExitsWhenStdinClosesAndOnSigterm) {
  {
    auto host = start();
    host->closeStdin();
    EXPECT_EQ(host->wait(5s), 0);
  }
  {
    auto host = start();
    host->signal(SIGTERM);
    EXPECT_EQ(host->wait(5s), 0);
    EXPECT_TRUE(host->waitForLog("SIGTERM received"));
  }
}

TEST_F(HostTest, AFrameAnnouncedOverTheLimitEndsTheHost) {
  auto host = start();
  uint32_t len = 64u * 1024 * 1024 + 1;
  host->sendRaw(std::string(reinterpret_cast<const char*>(&len), 4) + "{}");
  EXPECT_TRUE(host->stdoutClosed(5s));
  host->wait(5s);
  EXPECT_TRUE(host->waitForLog("over the limit"));
}

TEST_F(HostTest, AnAnswerOverOneMebibyteIsDroppedNotSent) {
  // The service refuses the command, so the page's own (huge) dictionary
  // would come back as the answer.
  answerAsEnabledService(service_, [](const httplib::Request&, httplib::Response& res) { res.status = 500; });
  auto host = start();
  enableToolbar(*host);
  host->send(message("vd_send_command", "big", OJson{{"type", "x"}, {"blob", std::string(1100 * 1024, 'a')}}));
  host->send(message("vd_send_command", "small", OJson{{"type", "x"}}));
  auto answer = host->readFrame(10s);
  ASSERT_TRUE(answer);
  EXPECT_EQ((*answer)["page"], "small");
  EXPECT_TRUE(host->waitForLog("a browser accepts at most 1048576"));
}

}  // namespace
}  // namespace wren::test

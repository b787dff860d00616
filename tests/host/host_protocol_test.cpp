// The envelope and framing as the browser sees them, through the real binary.
#include <signal.h>

#include "host/frame_codec.h"
#include "host_fixture.h"

namespace wren::test {
namespace {

TEST_F(HostTest, SaysHelloWhateverItIsStartedWithAndExitsOnEndOfInputOrSigterm) {
  const std::pair<std::vector<std::string>, bool> cases[] = {
      {{}, false},
      {{"chrome-extension://abcdefghijklmnopabcdefghijklmnop/"}, false},  // Chromium's argument
      {{"/usr/lib/mozilla/x.json", "wren@example.org"}, true},             // Firefox's
  };
  for (const auto& [args, sigterm] : cases) {
    HostProcess& host = start({}, args);  // checks the hello frame
    sigterm ? host.signal(SIGTERM) : host.closeStdin();
    EXPECT_EQ(host.wait(5s), 0);
    EXPECT_TRUE(!sigterm || host.waitForLog("SIGTERM received"));
  }
}

TEST_F(HostTest, DropsMalformedFramesWithOneLogLineAndKeepsServing) {
  start();
  enableToolbar();
  // Each reason is pinned by the envelope's own tests; here the real binary drops a frame with a line and
  // keeps serving, also for bytes that are not UTF-8 and a result for no call.
  const std::pair<std::string, std::string> cases[] = {
      {"not json", "frame is not JSON"},
      {"[1,2]", "frame is not a JSON object"},
      {std::string("{\"type\":\"message\",\"name\":\"a\xff\",\"page\":1}"), "frame is not JSON"},
      {R"({"type":"teleport"})", "unknown frame type \"teleport\""},
      {R"({"type":"message","name":"block_page","page":1,"userInfo":[1]})", "not an object"},
      {R"({"type":"result","id":999,"value":1})", "no such call is waiting"},
  };
  for (const auto& [payload, logged] : cases) {
    host_->sendRaw(encodeFrame(payload));
    EXPECT_TRUE(host_->waitForLog(logged)) << payload;
  }
  EXPECT_TRUE(ask("vd_set_email", "still-here", OJson{{"email", "x@y.z"}}));
}

TEST_F(HostTest, WrongValueTypesFromThePageNeverCrashTheHost) {
  start();
  enableToolbar();
  const OJson infos[] = {{{"urls", "not-a-list"}, {"type", "AutomaticScan"}},
                         {{"urls", {1, 2, 3}}, {"type", "AutomaticScan"}},
                         {{"urls", {{{"url", 5}, {"id", "x"}}}}, {"type", 9}},
                         {{"href", {1}}},
                         {{"e", 12}, {"i", 1}},
                         {{"url", nullptr}},
                         {{"email", {{"a", 1}}}},
                         OJson::object()};
  for (const char* name : {"rateItems", "wtp_rating", "block_page", "vd_get_setting", "vd_open_new_tab",
                           "vd_get_user_email", "vd_set_email", "send_data", "vd_send_command", "get_relevant_blog",
                           "wtpatl", "vd_scan_email", "vd_feedback"})
    for (const auto& info : infos) host_->send(message(name, "fuzz", info));
  EXPECT_TRUE(ask("vd_set_email", "alive", OJson{{"email", "q@r.s"}}, 15s)) << "the host stopped serving";
}

TEST_F(HostTest, AnswersOverOneMebibyteAreDroppedAndFramesOverSixtyFourEndTheHost) {
  // The service refuses the command, so the page's own (huge) dictionary
  // would come back as the answer.
  answer({.other = [](const httplib::Request&, httplib::Response& res) { res.status = 500; }});
  start();
  enableToolbar();
  host_->send(message("vd_send_command", "big", OJson{{"type", "x"}, {"blob", std::string(1100 * 1024, 'a')}}));
  host_->send(message("vd_send_command", "small", OJson{{"type", "x"}}));
  auto got = host_->readFrame(10s);
  ASSERT_TRUE(got);
  EXPECT_EQ((*got)["page"], "small");
  EXPECT_TRUE(host_->waitForLog("a browser accepts at most 1048576"));

  const FrameHeader tooLong = encodeFrameHeader(64u * 1024 * 1024 + 1);  // a length that lies, then "{}"
  host_->sendRaw(std::string(tooLong.data(), tooLong.size()) + "{}");
  EXPECT_TRUE(host_->stdoutClosed(5s));
  host_->wait(5s);
  EXPECT_TRUE(host_->waitForLog("over the limit"));
}

}  // namespace
}  // namespace wren::test

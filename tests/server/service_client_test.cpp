// The mail-scan switch loads against a real service on loopback: how the
// answer's header fields and body merge. What a failed or scalar settings load
// does is pinned through the host; commands through the dispatcher's tests.
#include "service_fixture.h"

namespace wren::test {
namespace {

class ServiceClientTest : public ServiceFixture {
 protected:
  bool done = false;
  std::optional<Json> dictionary;

  ServiceSuccess ok() {
    return [this](const Json& d) { dictionary = d, done = true; };
  }
  ServiceFailure fail() {
    return [this](const std::optional<HttpResponse>&, const std::optional<HttpError>&) { done = true; };
  }
  void answer(int status, const std::string& type, const std::string& body, const char* header = nullptr) {
    service.setHandler([=](const httplib::Request&, httplib::Response& res) {
      res.status = status;
      if (header) res.set_header(header, "h");
      res.set_content(body, type);
    });
    done = false;
  }
  void wait() { ASSERT_TRUE(runUntil([&] { return done; })); }
};

TEST_F(ServiceClientTest, VdsMergesHeadersUnderTheBody) {
  answer(200, "application/json", R"({"EnableVeldrin":true,"ShowDCN":"body"})", "ShowDCN");
  server.loadVeldrinSetting(ok(), fail());
  wait();
  EXPECT_EQ((*dictionary)["ShowDCN"], "body");
  EXPECT_EQ((*dictionary)["EnableVeldrin"], true);
  answer(200, "application/json", "{}", "ShowDCN");
  server.loadVeldrinSetting(ok(), fail());
  wait();
  EXPECT_EQ((*dictionary)["ShowDCN"], "h");
  EXPECT_EQ(service.requests().at(0).target, "/BrowserExt/command?type=vds");
}

// Nobody listening for the outcome is fine.
TEST_F(ServiceClientTest, CallersMayLeaveTheCallbacksOut) {
  answer(500, "application/json", "{}");
  server.loadSettings(nullptr, nullptr);
  server.sendCommand(Json{{"type", "x"}}, nullptr, nullptr);
  settle();
}

}  // namespace
}  // namespace wren::test

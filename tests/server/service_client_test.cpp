// The settings load, commands and the mail-scan switch loads against a real
// service on loopback: how answers merge and how failures look. Commands are
// pinned through the dispatcher's tests.
#include "service_fixture.h"

namespace wren::test {
namespace {

class ServiceClientTest : public ServiceFixture {
 protected:
  bool done = false, failed = false;
  std::optional<Json> dictionary;
  std::optional<HttpResponse> response;
  std::optional<HttpError> error;

  ServiceSuccess ok() {
    return [this](const Json& d) { dictionary = d, done = true; };
  }
  ServiceFailure fail() {
    return [this](const std::optional<HttpResponse>& r, const std::optional<HttpError>& e) {
      response = r, error = e, failed = done = true;
    };
  }
  void answer(int status, const std::string& type, const std::string& body, const char* header = nullptr) {
    service.setHandler([=](const httplib::Request&, httplib::Response& res) {
      res.status = status;
      if (header) res.set_header(header, "h");
      res.set_content(body, type);
    });
    done = failed = false;
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

TEST_F(ServiceClientTest, FailureShapes) {
  struct Case {
    int status;
    const char *type, *body;
    bool transport;  // response and error; neither: a body that is not an object
  };
  for (const Case& c : {Case{200, "application/json", "[1,2]", false}, Case{200, "application/json", "", false},
                        Case{500, "application/json", "{}", true}, Case{200, "text/html", "{}", true}}) {
    SCOPED_TRACE(std::to_string(c.status) + c.body);
    answer(c.status, c.type, c.body);
    server.loadSettings(ok(), fail());
    wait();
    EXPECT_TRUE(failed);
    EXPECT_EQ(response.has_value(), c.transport);
    EXPECT_EQ(error.has_value(), c.transport);
    EXPECT_EQ(response ? response->statusCode : c.status, c.status);
  }
  // Nobody listening for the outcome is fine.
  server.loadSettings(nullptr, nullptr);
  server.sendCommand(Json{{"type", "x"}}, nullptr, nullptr);
  settle();
}

}  // namespace
}  // namespace wren::test

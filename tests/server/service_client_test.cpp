// The settings load, commands and the mail-scan switch loads against a real
// service on loopback.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service_fixture.h"

namespace wren::test {
namespace {

using ::testing::HasSubstr;

struct Outcome {
  bool done = false;
  std::optional<Json> dictionary;
  std::optional<HttpResponse> response;
  std::optional<HttpError> error;
  bool failed = false;
};

class ServiceClientTest : public ServiceFixture {
 protected:
  ServiceSuccess onSuccess(Outcome& o) {
    return [&o](const Json& d) {
      o.dictionary = d;
      o.done = true;
    };
  }
  ServiceFailure onFail(Outcome& o) {
    return [&o](const std::optional<HttpResponse>& r, const std::optional<HttpError>& e) {
      o.response = r;
      o.error = e;
      o.failed = true;
      o.done = true;
    };
  }
  void answer(int status, const std::string& type, const std::string& body,
              std::vector<std::pair<std::string, std::string>> headers = {}) {
    service.setHandler([=](const httplib::Request&, httplib::Response& res) {
      res.status = status;
      for (const auto& [k, v] : headers) res.set_header(k, v);
      res.set_content(body, type);
    });
  }
  void wait(Outcome& o) { ASSERT_TRUE(runUntil([&] { return o.done; })); }
};

TEST_F(ServiceClientTest, EndpointsAreBuiltOnTheOrigin) {
  const std::string o = service.origin();
  EXPECT_EQ(server.URIForPattern(), o + "/BrowserExt/pattern");
  EXPECT_EQ(server.URIForSetting(), o + "/BrowserExt/setting?type=extension");
  EXPECT_EQ(server.URIForUrl(), o + "/BrowserExt/rating");
  EXPECT_EQ(server.URIForCommand(), o + "/BrowserExt/command");
  EXPECT_EQ(server.URIForSendData(), o + "/BrowserExt/sendData");
}

TEST_F(ServiceClientTest, SettingsMergeHeadersUnderTheBody) {
  answer(200, "application/json", R"({"EnableAutomaticScan":true,"Shared":"body"})",
         {{"X-Wren-ToolbarStatus", "1"}, {"Shared", "header"}});
  Outcome o;
  server.loadSettings(onSuccess(o), onFail(o));
  wait(o);
  ASSERT_TRUE(o.dictionary);
  EXPECT_EQ((*o.dictionary)["X-Wren-ToolbarStatus"], "1");
  EXPECT_EQ((*o.dictionary)["EnableAutomaticScan"], true);
  EXPECT_EQ((*o.dictionary)["Shared"], "body");
  applySettings(setting, *o.dictionary);
  EXPECT_TRUE(setting.bToolbarEnabled());
  EXPECT_TRUE(setting.bAutoScanEnabled());
  EXPECT_FALSE(setting.bManualScanEnabled());

  auto requests = service.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_EQ(requests[0].target, "/BrowserExt/setting?type=extension");
}

TEST_F(ServiceClientTest, BodyKeyOverridesToolbarHeader) {
  answer(200, "application/json", R"({"X-Wren-ToolbarStatus":"0"})", {{"X-Wren-ToolbarStatus", "1"}});
  Outcome o;
  server.loadSettings(onSuccess(o), onFail(o));
  wait(o);
  ASSERT_TRUE(o.dictionary);
  applySettings(setting, *o.dictionary);
  EXPECT_FALSE(setting.bToolbarEnabled());
}

TEST_F(ServiceClientTest, NonObjectAnswersFailWithNothing) {
  for (const char* body : {"[1,2]", ""}) {
    SCOPED_TRACE(body);
    answer(200, "application/json", body);
    Outcome o;
    server.loadSettings(onSuccess(o), onFail(o));
    wait(o);
    EXPECT_TRUE(o.failed);
    EXPECT_FALSE(o.response);
    EXPECT_FALSE(o.error);
  }
}

TEST_F(ServiceClientTest, TransportFailureCarriesResponseAndError) {
  answer(500, "application/json", "{}");
  Outcome o;
  server.sendCommand(Json{{"type", "x"}}, onSuccess(o), onFail(o));
  wait(o);
  ASSERT_TRUE(o.failed);
  ASSERT_TRUE(o.response);
  EXPECT_EQ(o.response->statusCode, 500);
  EXPECT_TRUE(o.error);
}

TEST_F(ServiceClientTest, MissingCallbacksAreSkipped) {
  answer(200, "application/json", "[]");
  server.loadSettings(nullptr, nullptr);
  server.sendCommand(Json{{"type", "x"}}, nullptr, nullptr);
  settle();
  EXPECT_EQ(service.requestCount(), 2u);
}

TEST_F(ServiceClientTest, CommandTravelsInTheQueryAndAnswersTheBodyOnly) {
  answer(200, "application/json", R"({"ok":1})", {{"X-Extra", "h"}});
  Outcome o;
  server.sendCommand(Json{{"type", "updateSetting"}, {"name", "EnableAutomaticScan"}, {"value", "true"}},
                     onSuccess(o), onFail(o));
  wait(o);
  EXPECT_EQ(o.dictionary, Json::parse(R"({"ok":1})"));
  auto r = service.requests().at(0);
  EXPECT_EQ(r.path, "/BrowserExt/command");
  EXPECT_EQ(queryPairs(r.query),
            (std::map<std::string, std::string>{{"type", "updateSetting"}, {"name", "EnableAutomaticScan"},
                                                {"value", "true"}}));
}

TEST_F(ServiceClientTest, CommandWithAcceptedTypeTakesHtmlLabelledJson) {
  answer(200, "text/html", R"({"blog":"x"})");
  Outcome o;
  server.sendCommand(Json{{"type", "get_relevant_blog"}}, Headers{{"X-Page", "1"}}, std::string("text/html"),
                     onSuccess(o), onFail(o));
  wait(o);
  EXPECT_EQ(o.dictionary, Json::parse(R"({"blog":"x"})"));
  auto r = service.requests().at(0);
  EXPECT_EQ(r.header("X-Page"), "1");

  // The plain command accepts JSON only.
  Outcome plain;
  server.sendCommand(Json{{"type", "x"}}, onSuccess(plain), onFail(plain));
  wait(plain);
  EXPECT_TRUE(plain.failed);
}

struct VdsCase {
  const char* email;
  const char* query;
};

class VdsLoadTest : public ServiceClientTest, public ::testing::WithParamInterface<VdsCase> {};

TEST_P(VdsLoadTest, AddressTravelsAsRawBase64) {
  Outcome o;
  server.loadVeldrinSettingByEmail(GetParam().email, onSuccess(o), onFail(o));
  wait(o);
  auto r = service.requests().at(0);
  EXPECT_EQ(r.path, "/BrowserExt/command");
  EXPECT_EQ(r.query, GetParam().query);
}

INSTANTIATE_TEST_SUITE_P(Table, VdsLoadTest,
                         ::testing::Values(VdsCase{"~~~~", "type=vds&e=fn5+fg=="}, VdsCase{"ab?", "type=vds&e=YWI/"},
                                           VdsCase{"a@mail.test", "type=vds&e=YUBtYWlsLnRlc3Q="}));

TEST_F(ServiceClientTest, VdsLoadMergesAndFillsTheRecord) {
  answer(200, "application/json", R"({"EnableVeldrin":true,"ShowTooltip":"0"})",
         {{"ShowDCN", "1"}, {"ShowTooltip", "1"}});
  Outcome o;
  server.loadVeldrinSetting(onSuccess(o), onFail(o));
  wait(o);
  EXPECT_EQ(service.requests().at(0).target, "/BrowserExt/command?type=vds");
  ASSERT_TRUE(o.dictionary);
  auto& item = setting.veldrinConfigItem();
  fillVeldrinConfigItem(item, *o.dictionary);
  EXPECT_TRUE(item.bVeldrinEnabled());
  EXPECT_TRUE(item.bShowDCN());
  EXPECT_FALSE(item.bShowTooltip());

  answer(200, "application/json", "[\"plain text\"]");
  Outcome text;
  server.loadVeldrinSetting(onSuccess(text), onFail(text));
  wait(text);
  EXPECT_TRUE(text.failed);
  EXPECT_FALSE(text.response);
  EXPECT_FALSE(text.error);
}

}  // namespace
}  // namespace wren::test

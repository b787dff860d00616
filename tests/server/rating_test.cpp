// URL rating: the request headers the service receives, the short-link flags
// and what reaches the caller.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "service_fixture.h"

namespace wren::test {
namespace {

using ::testing::HasSubstr;

struct ShortLinkCase {
  const char* url;
  bool shortLink;
};

class ShortLinkTest : public ::testing::TestWithParam<ShortLinkCase> {};

TEST_P(ShortLinkTest, Flag) { EXPECT_EQ(WrenBrowserExtServer::isMatch(GetParam().url), GetParam().shortLink); }

INSTANTIATE_TEST_SUITE_P(
    Table, ShortLinkTest,
    ::testing::Values(
        ShortLinkCase{"http://t.co/abc", true}, ShortLinkCase{"https://t.co/abc", true},
        ShortLinkCase{"http://bit.ly/x1", true},
        ShortLinkCase{"https://bit.ly/x1", false},  // only Twitter and MySpace are matched over https
        ShortLinkCase{"http://is.gd/a", true}, ShortLinkCase{"https://is.gd/a", false},
        ShortLinkCase{"http://goo.gl/a", true}, ShortLinkCase{"http://ow.ly/a", true},
        ShortLinkCase{"http://lnkd.in/a", true}, ShortLinkCase{"http://tinyurl.com/a", true},
        ShortLinkCase{"http://aka.ms/a", true}, ShortLinkCase{"http://www.msplinks.com/MDFo", true},
        ShortLinkCase{"http://t.cn/a", true}, ShortLinkCase{"http://url.cn/a", true},
        ShortLinkCase{"http://www.linkedin.com/in/x", true}, ShortLinkCase{"https://www.linkedin.com/in/x", false},
        ShortLinkCase{"http://www.baidu.com/link?url=abc", true}, ShortLinkCase{"http://www.baidu.com/s?wd=x", false},
        ShortLinkCase{"http://mysp.ac/a", true}, ShortLinkCase{"https://mysp.ac/a", true},
        ShortLinkCase{"HTTP://BIT.LY/X1", true}, ShortLinkCase{"Https://T.Co/x", true},
        // Unanchored: a short link inside a redirect parameter counts.
        ShortLinkCase{"https://example.com/go?to=http://bit.ly/x", true},
        ShortLinkCase{"http://t.com/a", false}, ShortLinkCase{"http://bit.lyrics.example/a", false},
        ShortLinkCase{"https://example.com/", false}, ShortLinkCase{"", false}));

class RatingTest : public ServiceFixture {};

TEST_F(RatingTest, OneItemBecomesFourHeaders) {
  service.respond(200, "application/json", R"({"results":[{"level":2}]})");
  std::optional<Json> result;
  server.rateURL(Json::parse(R"([{"url":"http://bit.ly/abc","id":7,"other":"ignored"}])"),
                 [&](const Json& r) { result = r; });
  ASSERT_TRUE(runUntil([&] { return result.has_value(); }));
  EXPECT_EQ(*result, Json::parse(R"({"results":[{"level":2}]})"));

  auto r = service.requests().at(0);
  EXPECT_EQ(r.method, "GET");
  EXPECT_EQ(r.path, "/BrowserExt/rating");
  EXPECT_TRUE(std::regex_match(r.query, std::regex(R"(timestamp=\d+\.\d{6})"))) << r.query;
  EXPECT_EQ(r.header("KVExtURLs_Length"), "1");
  EXPECT_EQ(r.header("KVEExtURLs_0_url"), "http://bit.ly/abc");
  EXPECT_EQ(r.header("KVEExtURLs_0_id"), "7");
  EXPECT_EQ(r.header("KVEExtURLs_0_needResolving"), "true");
  EXPECT_FALSE(r.hasHeader("KVEExtURLs_0_other"));
}

TEST_F(RatingTest, FlagsAndIdsPerItem) {
  std::optional<Json> result;
  server.rateURL(Json::parse(R"([{"url":"https://bit.ly/abc","id":1},
                                 {"url":"https://t.co/x","id":7.5},
                                 {"url":"https://ex.test/?r=http://goo.gl/q","id":3.0}])"),
                 [&](const Json& r) { result = r; });
  ASSERT_TRUE(runUntil([&] { return result.has_value(); }));
  auto r = service.requests().at(0);
  EXPECT_EQ(r.header("KVExtURLs_Length"), "3");
  EXPECT_EQ(r.header("KVEExtURLs_0_needResolving"), "false");
  EXPECT_EQ(r.header("KVEExtURLs_1_needResolving"), "true");
  EXPECT_EQ(r.header("KVEExtURLs_1_id"), "7.5");
  EXPECT_EQ(r.header("KVEExtURLs_2_needResolving"), "true");
  EXPECT_EQ(r.header("KVEExtURLs_2_id"), "3");
}

TEST_F(RatingTest, EmptyListStillAsks) {
  std::optional<Json> result;
  server.rateURL(Json::array(), [&](const Json& r) { result = r; });
  ASSERT_TRUE(runUntil([&] { return result.has_value(); }));
  auto r = service.requests().at(0);
  EXPECT_EQ(r.header("KVExtURLs_Length"), "0");
  for (const auto& [name, value] : r.headers) EXPECT_EQ(name.rfind("KVEExtURLs_", 0), std::string::npos) << name;
}

TEST_F(RatingTest, PageRatingAddsTypeWtp) {
  std::optional<Json> result;
  server.rateWTPURL(Json::parse(R"([{"url":"https://ex.test/","id":1}])"), [&](const Json& r) { result = r; });
  ASSERT_TRUE(runUntil([&] { return result.has_value(); }));
  auto r = service.requests().at(0);
  EXPECT_EQ(r.path, "/BrowserExt/rating");
  EXPECT_TRUE(std::regex_match(r.query, std::regex(R"(timestamp=\d+\.\d{6}&type=wtp)"))) << r.query;
}

TEST_F(RatingTest, ArrayAnswerIsLoggedNotDelivered) {
  service.respond(200, "application/json", R"(["a","b"])");
  bool called = false;
  server.rateURL(Json::parse(R"([{"url":"x","id":1}])"), [&](const Json&) { called = true; });
  settle();
  EXPECT_FALSE(called);
  const std::string query = service.requests().at(0).query;
  EXPECT_TRUE(logged("[WRENBrowserExtServer], rateUrl:" + server.URIForUrl() + "?" + query +
                     " results is not correct, data=a,b"));
}

TEST_F(RatingTest, FailureIsLoggedNotDelivered) {
  service.respond(503, "application/json", "{}");
  bool called = false;
  server.rateURL(Json::parse(R"([{"url":"x","id":1}])"), [&](const Json&) { called = true; });
  settle();
  EXPECT_FALSE(called);
  EXPECT_TRUE(logged("[WRENBrowserExtServer], fail to rateItems ,textStatus=503, errorThrown="));
}

TEST_F(RatingTest, MalformedItemDropsTheWholeRating) {
  const char* lists[] = {R"([{"url":"a","id":1},"text"])", R"([{"url":"a","id":1},{"id":2}])",
                         R"([{"url":"a","id":1},{"url":"b","id":"2"}])", R"([{"url":7,"id":1}])"};
  const size_t badIndex[] = {1, 1, 1, 0};
  for (size_t k = 0; k < std::size(lists); ++k) {
    SCOPED_TRACE(lists[k]);
    bool called = false;
    server.rateURL(Json::parse(lists[k]), [&](const Json&) { called = true; });
    settle();
    EXPECT_FALSE(called);
    EXPECT_TRUE(logged("rateUrl: item " + std::to_string(badIndex[k]) + " is malformed, dropped"));
  }
  EXPECT_EQ(service.requestCount(), 0u);
}

}  // namespace
}  // namespace wren::test

// URL rating: the short-link table, and what reaches the caller or the log.
// The request headers on the wire and an answer without results are pinned
// through the host.
#include <gtest/gtest.h>

#include "service_fixture.h"

namespace wren::test {
namespace {

TEST(ShortLinkTest, Table) {
  // Only Twitter's and MySpace's shorteners are matched over https too.
  const std::pair<const char*, bool> cases[] = {
      {"http://t.co/a", true}, {"https://t.co/a", true}, {"http://mysp.ac/a", true}, {"https://mysp.ac/a", true},
      {"http://bit.ly/x", true}, {"https://bit.ly/x", false}, {"http://is.gd/a", true}, {"https://is.gd/a", false},
      {"http://goo.gl/a", true}, {"http://ow.ly/a", true}, {"http://lnkd.in/a", true}, {"http://tinyurl.com/a", true},
      {"http://aka.ms/a", true}, {"http://www.msplinks.com/M", true}, {"http://t.cn/a", true}, {"http://url.cn/", true},
      {"http://www.linkedin.com/in/x", true}, {"https://www.linkedin.com/in/x", false}, {"HTTP://BIT.LY/X", true},
      {"http://www.baidu.com/link?url=a", true}, {"http://www.baidu.com/s?wd=x", false}, {"Https://T.Co/x", true},
      {"https://e.com/go?to=http://bit.ly/x", true},  // unanchored: inside a redirect parameter counts
      {"http://t.com/a", false}, {"http://bit.lyrics.example/a", false}, {"", false}};
  for (auto [url, shortLink] : cases) EXPECT_EQ(WrenBrowserExtServer::isMatch(url), shortLink) << url;
}

using RatingTest = ServiceFixture;

TEST_F(RatingTest, WhatIsNotDeliveredIsLogged) {
  bool called = false;
  auto rate = [&](const char* items) {
    server.rateURL(Json::parse(items), [&](const Json&) { called = true; });
    settle();
    return logs().empty() ? std::string() : logs().back();
  };
  service.respond(503, "application/json", "{}");
  EXPECT_EQ(rate(R"([{"url":"x","id":1}])").rfind("[WRENBrowserExtServer], fail to rateItems ,textStatus=503, "
                                                  "errorThrown=", 0), 0u);
  service.clear();
  // One item that cannot be written drops the whole rating.
  for (const char* bad : {R"("text")", R"({"id":2})", R"({"url":"b","id":"2"})", R"({"url":7,"id":1})"})
    EXPECT_EQ(rate(("[{\"url\":\"a\",\"id\":1}," + std::string(bad) + "]").c_str()),
              "[WRENBrowserExtServer], rateUrl: item 1 is malformed, dropped") << bad;
  EXPECT_FALSE(called);
  EXPECT_EQ(service.requestCount(), 0u);
}

}  // namespace
}  // namespace wren::test

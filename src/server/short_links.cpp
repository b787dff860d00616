#include "server/short_links.h"

#include <re2/re2.h>
#include <re2/set.h>

#include <cstdlib>
#include <memory>

#include "server/wren_browser_ext_server.h"
#include "util/logging.h"

namespace wren {

// The services and the hosts they publish short links under. Only Twitter's
// and MySpace's shorteners are matched over https as well; for the others the
// https form is deliberately not marked (the service has always been sent
// "false" for them, and its resolving rules are tuned to that).
//
//   #  service                               host (and path)
//   1  Twitter's shortener                   t.co              http, https
//   2  Bitly                                 bit.ly
//   3  is.gd (two letters under .gd)         is.gd
//   4  Google's shortener                    goo.gl
//   5  Hootsuite                             ow.ly
//   6  LinkedIn's shortener                  lnkd.in
//   7  TinyURL                               tinyurl.com
//   8  Microsoft's aka.ms (three under .ms)  aka.ms
//   9  MySpace's outgoing-link redirector    www.msplinks.com
//  10  Sina Weibo                            t.cn
//  11  Tencent                               url.cn
//  12  LinkedIn's main web host              www.linkedin.com
//  13  Baidu's search-result redirector      www.baidu.com/link?url=
//  14  MySpace's shortener                   mysp.ac           http, https
//
// Each ends in "/" (or the query key) so that a longer host that merely starts
// the same way (t.com, bit.lyrics.example) is not taken for a shortener.
const std::array<std::string_view, kShortLinkPatternCount> kShortLinkPatterns = {
    R"(https?://t\.co/)",
    R"(http://bit\.ly/)",
    R"(http://is\.gd/)",
    R"(http://goo\.gl/)",
    R"(http://ow\.ly/)",
    R"(http://lnkd\.in/)",
    R"(http://tinyurl\.com/)",
    R"(http://aka\.ms/)",
    R"(http://www\.msplinks\.com/)",
    R"(http://t\.cn/)",
    R"(http://url\.cn/)",
    R"(http://www\.linkedin\.com/)",
    R"(http://www\.baidu\.com/link\?url=)",
    R"(https?://mysp\.ac/)",
};

namespace {
// Compiled once for the whole process: one pass over the address answers
// "does any expression occur", which is all a boolean needs from the list.
const RE2::Set& shortLinkSet() {
  static const std::unique_ptr<RE2::Set> set = [] {
    RE2::Options options;
    options.set_case_sensitive(false);
    options.set_log_errors(false);
    auto s = std::make_unique<RE2::Set>(options, RE2::UNANCHORED);
    for (std::string_view pattern : kShortLinkPatterns) {
      std::string error;
      if (s->Add(pattern, &error) < 0) {
        // The table is fixed at build time; a bad entry is a programming error.
        systemLog("short-link expression does not compile: " + error);
        std::abort();
      }
    }
    if (!s->Compile()) {
      systemLog("short-link expressions do not compile");
      std::abort();
    }
    return s;
  }();
  return *set;
}
}  // namespace

bool isShortLink(std::string_view url) { return shortLinkSet().Match(url, nullptr); }

bool WrenBrowserExtServer::isMatch(std::string_view url) { return isShortLink(url); }

}  // namespace wren

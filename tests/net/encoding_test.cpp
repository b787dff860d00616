// The pure encodings behind Ajax: query/form strings, lossy ASCII and the
// judging of an answer. Header handling is pinned on the wire (ajax_test).
#include <gtest/gtest.h>

#include "net/answer_decoding.h"
#include "net/ascii_text.h"
#include "net/http_headers.h"
#include "net/query_encoding.h"
#include "util/json_parse.h"

namespace wren {
namespace {

TEST(QueryStringTest, EncodesParameterDictionaries) {
  const std::pair<Json, std::string> cases[] = {
      {Json(), ""}, {Json::array({1, 2}), ""},  // nothing but a dictionary counts
      {{{"b", "2"}, {"a", "1"}, {"B", "3"}, {"a_", "4"}}, "B=3&a=1&a_=4&b=2"},  // keys sorted byte-wise
      {{{"q", "a b&c=d+e#f"}, {"u", "AZaz09-._~/?"}}, "q=a%20b%26c%3Dd%2Be%23f&u=AZaz09-._~/?"},
      {{{"k\xC3\xA9", "\xE2\x82\xAC"}, {"c", std::string("\r\n\0", 3)}}, "c=%0D%0A%00&k%C3%A9=%E2%82%AC"},
      {{{"flag", nullptr}, {"t", true}, {"f", false}, {"d", 0.1}, {"w", 3.0}}, "d=0.1&f=0&flag&t=1&w=3.0"},
      {{{"o", {{"z", 1}, {"a", "x"}}}, {"l", {3, {{"k", {1}}}}}},
       "l%5B%5D=3&l%5B%5D%5Bk%5D%5B%5D=1&o%5Ba%5D=x&o%5Bz%5D=1"},
      {{{"e", Json::object()}, {"f", Json::array()}, {"g", -7}}, "g=-7"},  // empty containers give nothing
  };
  for (const auto& [parameters, query] : cases) EXPECT_EQ(queryStringFromParameters(parameters), query) << query;
}

TEST(HeaderValueTest, EveryControlByteIsEscapedAndNothingElse) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain value, \"quoted\" & 100%", "plain value, \"quoted\" & 100%"},  // blanks and "%" stay
      {"a\r\nX-Evil: 1", "a%0D%0AX-Evil: 1"},
      {std::string("a\0b", 3), "a%00b"},
      {"tab\there", "tab%09here"},
      {"\x01\x1f\x7f", "%01%1F%7F"},
      {"caf\xC3\xA9", "caf\xC3\xA9"},  // bytes of UTF-8 text are not control bytes
  };
  for (const auto& [in, out] : cases) EXPECT_EQ(safeHeaderValue(in), out) << in;
  for (const char* name : {"", "A:B", "A B", "A\tB", "A\x7f"}) EXPECT_FALSE(isSendableHeaderName(name)) << name;
}

TEST(AsciiTextTest, EveryNonAsciiCodePointBecomesOneQuestionMark) {
  const std::pair<std::string, std::string> cases[] = {
      {"caf\xC3\xA9 \xE2\x82\xAC!\xF0\x9F\x98\x80", "caf? ?!?"}, {std::string("a\0b", 3), std::string("a\0b", 3)},
      {"\xFF\xFE", "??"} /* invalid bytes */, {"\xE2\x82x\xC3", "??x?"} /* cut short: one "?" a stray byte */,
      {"\xC0\xAF", "??"} /* overlong */, {"\xED\xA0\x80", "???"} /* surrogate */
  };
  for (const auto& [in, out] : cases) EXPECT_EQ(asciiWithSubstitutes(in), out) << in;
}

// n arrays, one in the other.
std::string nested(size_t n) { return std::string(n, '[') + std::string(n, ']'); }

TEST(AnswerDecodingTest, StatusTypeAndBody) {
  struct Case {
    long status;
    std::optional<std::string> contentType;
    std::string body;
    int errorCode;  // 0: success
    std::optional<Json> decoded;
  };
  const Case cases[] = {
      {299, " Application/JSON ; charset=utf-8", "[1]", 0, Json::array({1})},  // parameters and case ignored
      {200, "application/json", " ", 0, std::nullopt},
      {204, std::nullopt, "", 0, std::nullopt},
      {200, "text/html", "", 0, std::nullopt},  // no body: any type will do
      {200, std::nullopt, "{}", HttpError::kUnacceptableContentType, {}},
      {200, "text/html", " ", HttpError::kUnacceptableContentType, {}},
      {300, "text/html", "oops", HttpError::kBadStatus, {}},  // status before type
      // Any JSON value is an answer; the callers judge whether it is a dictionary.
      {200, "application/json", "\"s\"", 0, Json("s")},
      {200, "application/json", "7", 0, Json(7)},
      {200, "application/json", "true", 0, Json(true)},
      {200, "application/json", "null", 0, Json(nullptr)},
      {200, "application/json", std::string("{}\0{}", 5), HttpError::kCannotDecode, {}},  // NUL, then more text
      {200, "application/json", nested(kMaxJsonDepth + 1), HttpError::kCannotDecode, {}},  // too deep
      {200, "application/json", "{\"a\":", HttpError::kCannotDecode, {}},
      {200, "application/json", "  ", HttpError::kCannotDecode, {}},  // two blanks are not nothing
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.status) + " " + c.contentType.value_or("-") + " [" + c.body + "]");
    DecodedAnswer d = decodeAnswer(c.status, c.contentType, c.body, {"application/json"});
    EXPECT_EQ(d.error ? d.error->code : 0, c.errorCode);
    EXPECT_EQ(d.body, c.decoded);
  }
  EXPECT_FALSE(decodeAnswer(200, "text/javascript", "{}", kDefaultJsonMediaTypes).error);
  EXPECT_FALSE(decodeAnswer(200, "application/json", nested(kMaxJsonDepth), {"application/json"}).error);
}

}  // namespace
}  // namespace wren

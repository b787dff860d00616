// The pure encodings behind Ajax: query/form strings, lossy ASCII, header
// values and the judging of an answer.
#include <gtest/gtest.h>

#include "net/answer_decoding.h"
#include "net/ascii_text.h"
#include "net/http_headers.h"
#include "net/query_encoding.h"

namespace wren {
namespace {

struct QueryCase {
  const char* name;
  Json parameters;
  std::string query;
};

TEST(QueryStringTest, EncodesParameterDictionaries) {
  const QueryCase cases[] = {
      {"empty", Json::object(), ""},
      {"null parameters", Json(), ""},
      {"not a dictionary", Json::array({1, 2}), ""},
      {"keys sorted byte-wise", {{"b", "2"}, {"a", "1"}, {"B", "3"}, {"a_", "4"}}, "B=3&a=1&a_=4&b=2"},
      {"space and reserved bytes", {{"q", "a b&c=d+e#f"}}, "q=a%20b%26c%3Dd%2Be%23f"},
      {"unescaped set", {{"u", "AZaz09-._~/?"}}, "u=AZaz09-._~/?"},
      {"utf-8 upper-case hex", {{"k\xC3\xA9", "\xE2\x82\xAC"}}, "k%C3%A9=%E2%82%AC"},
      {"null value is the bare key", {{"flag", nullptr}, {"x", "1"}}, "flag&x=1"},
      {"booleans", {{"t", true}, {"f", false}}, "f=0&t=1"},
      {"numbers", {{"i", 42}, {"n", -7}, {"d", 1.5}, {"e", 0.1}, {"w", 3.0}}, "d=1.5&e=0.1&i=42&n=-7&w=3.0"},
      {"nested object sorted", {{"o", {{"z", 1}, {"a", "x"}}}}, "o%5Ba%5D=x&o%5Bz%5D=1"},
      {"array in order", {{"arr", {3, 1, 2}}}, "arr%5B%5D=3&arr%5B%5D=1&arr%5B%5D=2"},
      {"deep nesting", {{"a", {{"b", {{"c", {1, nullptr}}}}}}}, "a%5Bb%5D%5Bc%5D%5B%5D=1&a%5Bb%5D%5Bc%5D%5B%5D"},
      {"object inside array", {{"l", Json::array({{{"k", "v"}}})}}, "l%5B%5D%5Bk%5D=v"},
      {"empty containers give nothing", {{"e", Json::object()}, {"f", Json::array()}, {"g", 1}}, "g=1"},
      {"control bytes", {{"c", std::string("\r\n\0", 3)}}, "c=%0D%0A%00"},
  };
  for (const auto& c : cases) EXPECT_EQ(queryStringFromParameters(c.parameters), c.query) << c.name;
}

TEST(QueryStringTest, AppendsAfterQuestionMarkOrAmpersand) {
  Json p = {{"a", "1"}};
  EXPECT_EQ(appendQuery("http://h/p", p), "http://h/p?a=1");
  EXPECT_EQ(appendQuery("http://h/p?x=2", p), "http://h/p?x=2&a=1");
  EXPECT_EQ(appendQuery("http://h/p?x=2", Json::object()), "http://h/p?x=2");
  EXPECT_EQ(appendQuery("http://h/p", Json()), "http://h/p");
}

TEST(AsciiTextTest, EveryNonAsciiCodePointBecomesOneQuestionMark) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain {\"a\":1}", "plain {\"a\":1}"},
      {"caf\xC3\xA9", "caf?"},                          // 2-byte
      {"\xE2\x82\xAC!", "?!"},                          // 3-byte
      {"\xF0\x9F\x98\x80", "?"},                        // 4-byte
      {"\xFF\xFE", "??"},                               // invalid bytes
      {"\xC3", "?"},                                    // cut short at the end
      {"\xE2\x82x", "??x"},                             // cut short: each stray byte is one "?"
      {"\xC0\xAF", "??"},                               // overlong
      {"\xED\xA0\x80", "???"},                          // surrogate
      {std::string("a\0b", 3), std::string("a\0b", 3)}  // NUL is ASCII
  };
  for (const auto& [in, out] : cases) EXPECT_EQ(asciiWithSubstitutes(in), out) << in;
}

TEST(HeaderTest, ValuesAndNames) {
  EXPECT_EQ(safeHeaderValue(std::string("a\r\nX-Injected: 1\0z", 18)), "a%0D%0AX-Injected: 1%00z");
  EXPECT_EQ(safeHeaderValue("100% fine"), "100% fine");
  EXPECT_TRUE(isSendableHeaderName("X-Custom"));
  for (std::string bad : {std::string(""), std::string("A:B"), std::string("A\rB"), std::string("A\nB"),
                          std::string("A\0B", 3)})
    EXPECT_FALSE(isSendableHeaderName(bad)) << bad;
  Headers merged = mergeHeaders({{"Content-Type", "application/json"}, {"Accept", "application/json"}},
                                {{"accept", "text/plain"}, {"X-A", "1"}});
  EXPECT_EQ(merged, (Headers{{"Content-Type", "application/json"}, {"accept", "text/plain"}, {"X-A", "1"}}));
  EXPECT_EQ(curlHeaderLine("X", ""), "X;");
  EXPECT_EQ(curlHeaderLine("X", "v"), "X: v");
}

struct AnswerCase {
  const char* name;
  long status;
  std::optional<std::string> contentType;
  std::string body;
  std::vector<std::string> accepted;
  int errorCode;  // 0: success
  std::optional<Json> decoded;
};

TEST(AnswerDecodingTest, StatusTypeAndBody) {
  const std::vector<std::string> json = {"application/json"};
  const AnswerCase cases[] = {
      {"object", 200, "application/json", "{\"a\":1}", json, 0, Json{{"a", 1}}},
      {"array, 2xx edge", 299, "application/json", "[1]", json, 0, Json::array({1})},
      {"type parameters and case ignored", 201, " Application/JSON ; charset=utf-8", "{}", json, 0, Json::object()},
      {"empty body", 200, "application/json", "", json, 0, std::nullopt},
      {"single space", 200, "application/json", " ", json, 0, std::nullopt},
      {"empty body, no type", 204, std::nullopt, "", json, 0, std::nullopt},
      {"empty body, other type", 200, "text/html", "", json, 0, std::nullopt},
      {"non-empty body, no type", 200, std::nullopt, "{}", json, HttpError::kUnacceptableContentType, {}},
      {"single space, wrong type", 200, "text/html", " ", json, HttpError::kUnacceptableContentType, {}},
      {"wrong type", 200, "text/json", "{}", json, HttpError::kUnacceptableContentType, {}},
      {"default JSON set", 200, "text/javascript", "{}", kDefaultJsonMediaTypes, 0, Json::object()},
      {"199", 199, "application/json", "{}", json, HttpError::kBadStatus, {}},
      {"300", 300, "application/json", "{}", json, HttpError::kBadStatus, {}},
      {"status before type", 500, "text/html", "oops", json, HttpError::kBadStatus, {}},
      {"string top level", 200, "application/json", "\"s\"", json, HttpError::kCannotDecode, {}},
      {"number top level", 200, "application/json", "42", json, HttpError::kCannotDecode, {}},
      {"null top level", 200, "application/json", "null", json, HttpError::kCannotDecode, {}},
      {"broken JSON", 200, "application/json", "{\"a\":", json, HttpError::kCannotDecode, {}},
      {"two spaces are not nothing", 200, "application/json", "  ", json, HttpError::kCannotDecode, {}},
  };
  for (const auto& c : cases) {
    DecodedAnswer d = decodeAnswer(c.status, c.contentType, c.body, c.accepted);
    if (c.errorCode == 0) {
      EXPECT_FALSE(d.error) << c.name << ": " << d.error->localizedDescription;
      EXPECT_EQ(d.body, c.decoded) << c.name;
    } else {
      ASSERT_TRUE(d.error) << c.name;
      EXPECT_EQ(d.error->code, c.errorCode) << c.name;
      EXPECT_FALSE(d.body) << c.name;
    }
  }
}

TEST(AnswerDecodingTest, ReadableDescriptions) {
  EXPECT_EQ(decodeAnswer(404, "application/json", "{}", {"application/json"}).error->localizedDescription,
            "Request failed: not found (404)");
  EXPECT_EQ(decodeAnswer(200, "text/html; charset=utf-8", "<p>", {"application/json"}).error->localizedDescription,
            "Request failed: unacceptable content-type: text/html");
  EXPECT_EQ(mediaType("Text/HTML;charset=x"), "text/html");
}

}  // namespace
}  // namespace wren

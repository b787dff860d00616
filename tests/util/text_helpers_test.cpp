// The text helpers whose quirks the page scripts and the service rely on:
// percent escapes (with their hex reading), Base64, truncated digests, JSON
// parsing, the truthy reading of service values and the log-line text forms.
#include "util/common.h"

#include <gtest/gtest.h>

#include <vector>

#include "util/logging.h"
#include "util/stringify.h"
#include "util/truthy.h"
#include "util/url_escapes.h"

namespace wren {
namespace {

using namespace std::string_literals;
using Opt = std::optional<std::string>;

TEST(EncodeURITest, EscapesOnlyTheNarrowSet) {
  const std::pair<std::string, std::string> cases[] = {
      {"a b/c?d=e", "a%20b%2Fc?d=e"}, {" #%/:;@", "%20%23%25%2F%3A%3B%40"}, {"ab\0cd"s, "ab"} /* stops at a NUL */,
      {"?&=+\"'<>[]{}!$,A-Z_a.z~09", "?&=+\"'<>[]{}!$,A-Z_a.z~09"},  // deliberately left alone
      {"\t\x01\x7f", "\t\x01\x7f"} /* control characters pass */, {"\xC3\xA9\xF0\x9F\x98\x80", "%C3%A9%F0%9F%98%80"},
  };
  for (const auto& [in, out] : cases) EXPECT_EQ(encodeURI(in), out) << in;
}

TEST(DecodeURITest, QuirksAreKept) {
  const std::pair<std::string, Opt> cases[] = {
      {"a%20b+c", "a b+c"},  // "+" is not a space
      {"%zz", ""},           // non-hex counts as 0, and a decoded 0 adds nothing
      {"%00x", "x"},         {"%G1", "\x01"},       {"%1g", "\x10"},  // HexStringToInt reads each digit
      {"100%", "100"},       // "%" at the very end reads nothing
      {"%4", "\x04"} /* an escape cut short uses what is there */, {"%c3%A9", "\xC3\xA9"},
      {"%FF", std::nullopt} /* not UTF-8 */, {"%C3", std::nullopt}, {"%C0%AF", std::nullopt} /* overlong */,
      {"%ED%A0%80", std::nullopt},  // surrogate
      {"ab\0%41"s, "ab"},     {"%4\0"s "1"s, "\x04"},  // the NUL ends the text and the escape
  };
  for (const auto& [in, out] : cases) EXPECT_EQ(decodeURI(in), out) << in;
}

TEST(Base64Test, EncodesOnOneLineAndDecodesStrictly) {
  const std::pair<std::string, std::string> pairs[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foobar", "Zm9vYmFy"}, {"\xC3\xA9", "w6k="}};
  for (const auto& [text, b64] : pairs) {
    EXPECT_EQ(base64EncodedString(text), b64);
    EXPECT_EQ(base64DecodedString(b64), text);
  }
  EXPECT_EQ(base64EncodedString("\xFF\xFE\xFD"), "//79");
  EXPECT_EQ(base64EncodedString(std::string(300, 'a')).find('\n'), std::string::npos);
  for (std::string bad : {"Zm9v\nYmFy", "Zm9v YmFy", "Zm9vYmFy\r\n", "Zm9vYmF", "Zg=", "Zg==Zg==", "Zm9-",
                          "//79" /* not UTF-8 */, "7aCA" /* a surrogate */, "9JCAgA==" /* above U+10FFFF */})
    EXPECT_EQ(base64DecodedString(bad), std::nullopt) << bad;
}

TEST(DigestTest, HashOnlyAsManyBytesAsUtf16Units) {
  EXPECT_EQ(SHA256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(MD5(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(MD5("abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(MD5("\xC3\xA9"), md5UpToNul("\xC3"));                // é: one unit, one byte
  EXPECT_EQ(SHA256("a\xF0\x9F\x98\x80"), SHA256("a\xF0\x9F"));  // an emoji counts two
  EXPECT_EQ(MD5("h\xC3\xA9llo"), md5UpToNul("h\xC3\xA9ll"));
  EXPECT_EQ(md5UpToNul("\xC3\xA9"), MD5("\xC3\xA9 "));  // md5UpToNul hashes every UTF-8 byte, up to a NUL
  EXPECT_EQ(md5UpToNul("abc\0def"s), md5UpToNul("abc"));
}

TEST(ToJSONTest, ContainersParseInOrderAnythingElseLogs) {
  EXPECT_EQ(toJSON(R"({"b":1,"a":[true,null]})")->dump(), R"({"b":1,"a":[true,null]})");
  EXPECT_EQ(toJSON(" [1] "), Json::array({1}));
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  for (std::string bad : {"", "{", "\"text\"", "42", "null", "{\"a\":\"\xFF\"}"})
    EXPECT_EQ(toJSON(bad), std::nullopt) << bad;
  EXPECT_EQ(dictToJsonStr(Json{{"k", "\xFF"}}), std::nullopt);  // logs; the log forms below never fail
  EXPECT_FALSE(toString(Json{{"k", "\xFF"}}).empty());
  setLogSink(nullptr);
  ASSERT_EQ(lines.size(), 7u);
  for (size_t i = 0; i < 6; ++i) EXPECT_EQ(lines[i].rfind("Fail to convert JSON: ", 0), 0u) << lines[i];
  EXPECT_EQ(lines[6].rfind("Error:", 0), 0u) << lines[6];
}

// Containers, null and key lookup are covered where the settings are applied.
TEST(TruthyTest, TextsAndNumbers) {
  const std::pair<Json, bool> cases[] = {
      {"YES", true},  {" +0012", true}, {"\t-7", true}, {"t", true},   {"false", false}, {"000", false},
      {"", false},    {"  ", false},    {"-0", false},  {"0x1", false}, {" 0 1", false},  {"++1", false},
      {-2.5, true},   {0.0, false},     {0.25, true},   {18446744073709551615ull, true},    {true, true}};
  for (const auto& [value, want] : cases) EXPECT_EQ(truthy(value), want) << value.dump();
}

TEST(ToStringTest, Forms) {
  const std::pair<Json, std::string> cases[] = {
      {Json{{"k", "x y"}}, R"({"k":"xy"})"},  // blanks inside texts go too
      {Json{{"b", 1}, {"a", {{"n", nullptr}}}}, R"({"b":1,"a":{"n":null}})"},
      {Json{{"s", "line\nbreak"}}, R"({"s":"line\nbreak"})"},  // the escape, not a break
      {Json::array({"a b", Json{{"k", "v"}}, Json::array({4, 5})}), R"(a b,{"k":"v"},4,5)"},
      {Json::array(), ""}, {Json("plain text"), "plain text"}, {Json(2.5), "2.5"},
  };
  for (const auto& [in, out] : cases) EXPECT_EQ(toString(in), out) << in.dump();
}

TEST(DescriptionTest, PropertyListShape) {
  const std::pair<Json, std::string> cases[] = {
      {Json::object(), "{\n}"}, {Json("just text"), "just text"},
      {Json{{"msg", "two words"}, {"ok", true}, {"no", false}, {"nil", nullptr}, {"f", 2.5}, {"w", 3.0}},
       "{\n    f = 2.5;\n    msg = \"two words\";\n    nil = <null>;\n    no = 0;\n    ok = 1;\n    w = 3;\n}"},
      {Json{{"q", "say \"hi\" \\ bye"}, {"e", ""}, {"id_9", "Abc_09"}, {"a-b", "x.y"}},
       "{\n    \"a-b\" = \"x.y\";\n    e = \"\";\n    id_9 = Abc_09;\n    q = \"say \\\"hi\\\" \\\\ bye\";\n}"},
  };  // nesting is pinned by the mail-scan log line built from this form
  for (const auto& [in, out] : cases) EXPECT_EQ(description(in), out) << in.dump();
  EXPECT_EQ(dictToJsonStr(Json{{"a", 1}}), "{\n    \"a\": 1\n}");  // the pretty form, for containers only
  EXPECT_EQ(dictToJsonStr(Json("text")), std::nullopt);
}

}  // namespace
}  // namespace wren

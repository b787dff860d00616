#include "util/url_escapes.h"

#include <gtest/gtest.h>

#include <vector>

#include "util/logging.h"

namespace wren {
namespace {

using namespace std::string_literals;

TEST(EncodeURITest, EscapesOnlyTheNarrowSet) {
  struct Case {
    std::string in, out;
  };
  const std::vector<Case> cases = {
      {"", ""},
      {"a b/c?d=e", "a%20b%2Fc?d=e"},
      {" #%/:;@", "%20%23%25%2F%3A%3B%40"},
      {"?&=+\"'<>[]{}!$,", "?&=+\"'<>[]{}!$,"},  // deliberately left alone
      {"\t\x01\x7f", "\t\x01\x7f"},               // control characters pass
      {"\xC3\xA9", "%C3%A9"},                     // é
      {"\xF0\x9F\x98\x80", "%F0%9F%98%80"},       // emoji
      {"ab\0cd"s, "ab"},                          // stops at the first NUL
      {"A-Z_a.z~09", "A-Z_a.z~09"},
  };
  for (const auto& c : cases) EXPECT_EQ(encodeURI(c.in), c.out) << c.in;
}

TEST(DecodeURITest, QuirksAreKept) {
  struct Case {
    std::string in;
    std::optional<std::string> out;
  };
  const std::vector<Case> cases = {
      {"", ""},
      {"a%20b", "a b"},
      {"a+b", "a+b"},           // "+" is not a space
      {"%zz", ""},              // non-hex counts as 0, and a decoded 0 adds nothing
      {"%00x", "x"},
      {"%G1", "\x01"},
      {"100%", "100"},          // "%" at the very end reads nothing
      {"%4", "\x04"},           // an escape cut short uses what is there
      {"%C3%A9", "\xC3\xA9"},
      {"%c3%a9", "\xC3\xA9"},
      {"%FF", std::nullopt},    // not UTF-8
      {"%C3", std::nullopt},
      {"ab\0%41"s, "ab"},       // stops at the first NUL
      {"%4\0"s "1"s, "\x04"},   // the escape ends at the NUL too
      {"%2f%3A", "/:"},
  };
  for (const auto& c : cases) EXPECT_EQ(decodeURI(c.in), c.out) << c.in;
}

TEST(DecodeURITest, RoundTripsEncode) {
  for (std::string s : {"https://ex.am/p?q=a b#f", "\xC3\xA9t\xC3\xA9 @ 100%", "x;y:z"}) {
    EXPECT_EQ(decodeURI(encodeURI(s)), s);
  }
}

TEST(HexTest, CharAndString) {
  EXPECT_EQ(HexCharToInt('0'), 0);
  EXPECT_EQ(HexCharToInt('9'), 9);
  EXPECT_EQ(HexCharToInt('a'), 10);
  EXPECT_EQ(HexCharToInt('F'), 15);
  EXPECT_EQ(HexCharToInt('g'), 0);
  EXPECT_EQ(HexCharToInt('\0'), 0);
  struct Case {
    std::string in;
    uint32_t out;
  };
  const std::vector<Case> cases = {
      {"", 0},         {"1f", 31},       {"FF", 255},         {"g", 0},
      {"g1", 1},       {"1g", 16},       {"ffffffff", 0xFFFFFFFFu},
      {"100000000", 0},  // wraps modulo 2^32
      {"123456789", 0x23456789u},
  };
  for (const auto& c : cases) EXPECT_EQ(HexStringToInt(c.in), c.out) << c.in;
}

class ToJSONTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setLogSink([this](std::string_view line) { lines_.emplace_back(line); });
  }
  void TearDown() override { setLogSink(nullptr); }
  std::vector<std::string> lines_;
};

TEST_F(ToJSONTest, ObjectsAndArraysParse) {
  auto obj = toJSON(R"({"b":1,"a":[true,null]})");
  ASSERT_TRUE(obj);
  EXPECT_EQ(obj->dump(), R"({"b":1,"a":[true,null]})");  // order kept
  auto arr = toJSON(" [1, \"x\"] ");
  ASSERT_TRUE(arr);
  EXPECT_TRUE(arr->is_array());
  EXPECT_TRUE(lines_.empty());
}

TEST_F(ToJSONTest, FailuresLogAndGiveNothing) {
  for (std::string bad : {"", "{", "not json", "\"text\"", "42", "null", "{\"a\":\"\xFF\"}"}) {
    lines_.clear();
    EXPECT_EQ(toJSON(bad), std::nullopt) << bad;
    ASSERT_EQ(lines_.size(), 1u) << bad;
    EXPECT_EQ(lines_[0].rfind("Fail to convert JSON: ", 0), 0u) << lines_[0];
  }
}

}  // namespace
}  // namespace wren

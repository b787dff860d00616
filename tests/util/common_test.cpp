#include "util/common.h"

#include <gtest/gtest.h>

#include <vector>

namespace wren {
namespace {

using namespace std::string_literals;

TEST(Base64Test, EncodeRfc4648Vectors) {
  struct Case {
    std::string in, out;
  };
  const std::vector<Case> cases = {
      {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
      {"\xC3\xA9", "w6k="}, {"\xFF\xFE\xFD", "//79"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(base64EncodedString(c.in), c.out) << c.in;
  }
  // One line however long.
  EXPECT_EQ(base64EncodedString(std::string(300, 'a')).find('\n'), std::string::npos);
}

TEST(Base64Test, DecodeIsStrict) {
  struct Case {
    std::string in;
    std::optional<std::string> out;
  };
  const std::vector<Case> cases = {
      {"", ""},
      {"Zm9vYmFy", "foobar"},
      {"Zg==", "f"},
      {"Zm8=", "fo"},
      {"w6k=", "\xC3\xA9"},
      {"Zm9v\nYmFy", std::nullopt},  // a line break inside
      {"Zm9v YmFy", std::nullopt},
      {"Zm9vYmFy\r\n", std::nullopt},
      {"Zm9vYmF", std::nullopt},     // missing padding
      {"Zg=", std::nullopt},
      {"Z===", std::nullopt},
      {"Zg==Zg==", std::nullopt},    // padding in the middle
      {"Zm9-", std::nullopt},        // URL-safe alphabet is not ours
      {"//79", std::nullopt},        // decodes, but not UTF-8
  };
  for (const auto& c : cases) EXPECT_EQ(base64DecodedString(c.in), c.out) << c.in;
}

TEST(Utf8Test, LengthsAndValidity) {
  struct Case {
    std::string in;
    size_t units;
    bool valid;
  };
  const std::vector<Case> cases = {
      {"", 0, true},
      {"abc", 3, true},
      {"\xC3\xA9", 1, true},
      {"\xE2\x82\xAC", 1, true},          // €
      {"\xF0\x9F\x98\x80", 2, true},      // emoji: a surrogate pair
      {"a\xF0\x9F\x98\x80z", 4, true},
      {"\xFF", 1, false},
      {"\xC3", 1, false},                 // cut short
      {"\xC0\xAF", 2, false},             // overlong
      {"\xED\xA0\x80", 3, false},         // surrogate
      {"\xF4\x90\x80\x80", 4, false},     // above U+10FFFF
      {"a\0b"s, 3, true},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(utf16Length(c.in), c.units) << c.in;
    EXPECT_EQ(isValidUtf8(c.in), c.valid) << c.in;
  }
}

TEST(DigestTest, KnownVectorsAndTruncation) {
  struct Case {
    std::string in, sha256, md5;
  };
  const std::vector<Case> cases = {
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855",
       "d41d8cd98f00b204e9800998ecf8427e"},
      {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
       "900150983cd24fb0d6963f7d28e17f72"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(SHA256(c.in), c.sha256) << c.in;
    EXPECT_EQ(MD5(c.in), c.md5) << c.in;
  }
  // Only as many leading bytes as the text has UTF-16 units are hashed.
  EXPECT_EQ(MD5("\xC3\xA9"), MD5("\xC3"));
  EXPECT_NE(MD5("\xC3\xA9"), md5("\xC3\xA9"));
  EXPECT_EQ(SHA256("a\xF0\x9F\x98\x80"), SHA256("a\xF0\x9F"));  // emoji counts 2
  EXPECT_EQ(MD5("h\xC3\xA9llo"), md5("h\xC3\xA9ll"));
}

TEST(DigestTest, Md5HashesAllBytesUpToNul) {
  EXPECT_EQ(md5("abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(md5("abc\0def"s), md5("abc"));
  EXPECT_EQ(md5(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(md5("\xC3\xA9"), MD5("\xC3\xA9 "));  // full UTF-8 form, unlike MD5
}

}  // namespace
}  // namespace wren

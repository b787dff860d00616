// The scan's two diagnostic lines, built without any network.
#include <gtest/gtest.h>

#include "mailscan/mail_scan_client.h"

namespace wren {
namespace {

TEST(CompactLogLine, StepsApplyInOrderSoOnlyHashesBecomeBlanks) {
  // "\n" and " " vanish, "=" becomes ":", and a "#" becomes a blank that survives.
  EXPECT_EQ(compactLogLine("a = b\n#c d#"), "a:b cd ");
  EXPECT_EQ(compactLogLine("Server#response#is#{\n    code = 0;\n}"), "Server response is {code:0;}");
  EXPECT_EQ(compactLogLine(""), "");
}

TEST(ServerResponseLogLine, NestedDictionaryIsCompactedWithEntriesSortedByKey) {
  Json answer = Json::parse(R"({"b": {"y": [1, 2], "x": "p q"}, "a": "k=v#1", "c": 7})");
  EXPECT_EQ(serverResponseLogLine(answer), R"(Server response is {a:"k:v 1";b:{x:"pq";y:(1,2);};c:7;})");
}

TEST(ServerResponseLogLine, EmptyAnswer) {
  EXPECT_EQ(serverResponseLogLine(Json::object()), "Server response is {}");
}

struct HashCase {
  std::optional<std::string> email;
  std::string digest;
};

class EmailHashLogLine : public ::testing::TestWithParam<HashCase> {};

TEST_P(EmailHashLogLine, CarriesTheLowerCaseMd5OfTheAddress) {
  EXPECT_EQ(emailHashLogLine(GetParam().email), "[Veldrin]Email Hash is " + GetParam().digest);
}

INSTANTIATE_TEST_SUITE_P(
    Addresses, EmailHashLogLine,
    ::testing::Values(HashCase{"abc", "900150983cd24fb0d6963f7d28e17f72"},
                      HashCase{"user@example.com", "b58996c504c5638798eb6b511e6f49af"},
                      // No address yet: the line still goes out, hashing nothing.
                      HashCase{std::nullopt, "d41d8cd98f00b204e9800998ecf8427e"},
                      HashCase{"", "d41d8cd98f00b204e9800998ecf8427e"},
                      // Only the bytes before a NUL count.
                      HashCase{std::string("a\0b", 3), "0cc175b9c0f1b6a831c399e269772661"}));

TEST(MailScanClientMd5, DelegatesToTheUtf8Digest) {
  EXPECT_EQ(MailScanClient::md5("abc"), "900150983cd24fb0d6963f7d28e17f72");
  // Non-ASCII text hashes all of its UTF-8 bytes.
  EXPECT_EQ(MailScanClient::md5("\xc3\xa9"), "66ddcd97cfdeabb2f6fb8a999b4bc76f");
}

}  // namespace
}  // namespace wren

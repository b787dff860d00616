// Recognising a signed-in web-mail page: the host, the address and the
// account in its title. What the popover's mail-scan row does with each is
// pinned through the host.
#include "mailscan/webmail_account.h"

#include <gtest/gtest.h>

namespace wren {
namespace {

TEST(WebMailAccountTest, HostsAreMatchedExactlyAndCaseSensitively) {
  using W = WebMailService;
  const std::pair<const char*, WebMailService> cases[] = {
      {"mail.google.com", W::Gmail},          {"xmail.google.com", W::None},        {"Mail.Google.com", W::None},
      {"mail.google.com.example", W::None},   {"mail.yahoo.co.jp", W::YahooJapan},  {"jp.mail.yahoo.co.jp", W::None},
      {"mail.yahoo.com", W::YahooGlobal},     {"uk.mail.yahoo.com", W::YahooGlobal}, {"MAIL.YAHOO.COM", W::None},
      {"mail.yahoo.com.example", W::YahooGlobal}, {"", W::None}};
  for (auto [host, expected] : cases) EXPECT_EQ(webMailServiceForHost(host), expected) << host;
}

TEST(WebMailAccountTest, HostOfUrl) {
  const std::pair<const char*, std::optional<std::string>> cases[] = {
      {"https://mail.google.com", "mail.google.com"},    {"https://u:p@uk.mail.yahoo.com:8443/d", "uk.mail.yahoo.com"},
      {"https://mail.yahoo.co.jp?x=@evil", "mail.yahoo.co.jp"}, {"https://a@b@mail.google.com/", "mail.google.com"},
      {"http://[::1]:8080/", "[::1]"},                   {"https://mail.google.com#frag", "mail.google.com"},
      {"mail.google.com/mail", std::nullopt},            {"about:blank", std::nullopt},
      {"https://[::1", std::nullopt},                    {"://mail.google.com/", std::nullopt}};
  for (const auto& [url, expected] : cases) EXPECT_EQ(hostOfUrl(url), expected) << url;
}

TEST(WebMailAccountTest, AccountIsTheSecondHyphenPartWithoutBlanks) {
  const std::pair<std::optional<std::string>, std::optional<std::string>> cases[] = {
      {"Inbox (3) - alice@example.com - Gmail", "alice@example.com"},
      {"a-b-c", "b"}, {"a - b c - d", "bc"}, {"a-", "a"}, {"--", ""},
      {"Inbox -    - Gmail", ""},  // blanks only: empty, not absent
      {"tab\t-\tx - y", "\tx"},    // only blanks are removed
      {"Inbox", std::nullopt}, {"", std::nullopt}, {std::nullopt, std::nullopt}};
  for (const auto& [title, expected] : cases) EXPECT_EQ(accountFromTitle(title), expected) << title.value_or("-");
}

}  // namespace
}  // namespace wren

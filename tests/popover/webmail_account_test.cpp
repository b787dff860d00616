#include "mailscan/webmail_account.h"

#include <gtest/gtest.h>

namespace wren {
namespace {

TEST(WebMailAccountTest, HostTests) {
  const std::pair<const char*, WebMailService> cases[] = {
      {"mail.google.com", WebMailService::Gmail},
      {"xmail.google.com", WebMailService::None},  // Gmail must be equal
      {"mail.google.com.example", WebMailService::None},
      {"Mail.Google.com", WebMailService::None},  // case-sensitive
      {"mail.yahoo.co.jp", WebMailService::YahooJapan},
      {"jp.mail.yahoo.co.jp", WebMailService::None},
      {"mail.yahoo.com", WebMailService::YahooGlobal},
      {"uk.mail.yahoo.com", WebMailService::YahooGlobal},  // regional prefixes count
      {"jp.mail.yahoo.com", WebMailService::YahooGlobal},
      {"mail.yahoo.com.example", WebMailService::YahooGlobal},
      {"MAIL.YAHOO.COM", WebMailService::None},
      {"", WebMailService::None},
  };
  for (auto [host, expected] : cases) EXPECT_EQ(webMailServiceForHost(host), expected) << host;
}

TEST(WebMailAccountTest, HostOfUrl) {
  const std::pair<const char*, std::optional<std::string>> cases[] = {
      {"https://mail.google.com/mail/u/0/#inbox", "mail.google.com"},
      {"https://mail.google.com", "mail.google.com"},
      {"https://user:pw@uk.mail.yahoo.com:8443/d", "uk.mail.yahoo.com"},
      {"https://mail.yahoo.co.jp?x=@evil", "mail.yahoo.co.jp"},
      {"https://a@b@mail.google.com/", "mail.google.com"},
      {"http://[::1]:8080/", "[::1]"},
      {"https://mail.google.com#frag", "mail.google.com"},
      {"mail.google.com/mail", std::nullopt},
      {"about:blank", std::nullopt},
      {"file:///etc/passwd", std::nullopt},
      {"https://", std::nullopt},
      {"://mail.google.com/", std::nullopt},
      {"https://[::1", std::nullopt},
  };
  for (const auto& [url, expected] : cases) EXPECT_EQ(hostOfUrl(url), expected) << url;
}

TEST(WebMailAccountTest, AccountFromTitle) {
  const std::pair<std::optional<std::string>, std::optional<std::string>> cases[] = {
      {"Inbox (3) - alice@example.com - Gmail", "alice@example.com"},
      {"a-b-c", "b"},
      {"a - b c - d", "bc"},
      {"Inbox -    - Gmail", ""},  // blanks only: empty, not absent
      {"a-", "a"},
      {"-", ""},
      {"--", ""},
      {"x - not an address - y", "notanaddress"},
      {"Inbox", std::nullopt},
      {"", std::nullopt},
      {std::nullopt, std::nullopt},
      {"tab\t-\tx - y", "\tx"},  // only blanks are removed
  };
  for (const auto& [title, expected] : cases) {
    EXPECT_EQ(accountFromTitle(title), expected) << title.value_or("(null)");
  }
}

}  // namespace
}  // namespace wren

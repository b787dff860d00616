#pragma once
// Recognising a signed-in web-mail page: which service an address belongs to
// and the account shown in its title. Pure functions, safe from any thread.
#include <optional>
#include <string>
#include <string_view>

namespace wren {

enum class WebMailService { None, Gmail, YahooJapan, YahooGlobal };

// The web-mail hosts as the services publish them.
inline constexpr std::string_view kGmailHost = "mail.google.com";
inline constexpr std::string_view kYahooJapanMailHost = "mail.yahoo.co.jp";
inline constexpr std::string_view kYahooGlobalMailHost = "mail.yahoo.com";

// Gmail and Yahoo! JAPAN Mail must match exactly; Yahoo's global host only has
// to occur in the host, so regional hosts ("uk.mail.yahoo.com") count too.
// Case-sensitive; the first test that holds wins, in the order above.
WebMailService webMailServiceForHost(std::string_view host);

// The host of "scheme://[userinfo@]host[:port][/?#...]"; an IPv6 literal keeps
// its brackets. nullopt when there is no "scheme://" or the host is empty.
std::optional<std::string> hostOfUrl(std::string_view url);

// The account in a web-mail title such as "Inbox (3) - a@b.c - Gmail": split at
// every "-" (empty parts included), take the second-to-last part and drop its
// blanks. nullopt without a title or without any "-". The result is not
// checked: it may lack an "@" and may be empty.
std::optional<std::string> accountFromTitle(const std::optional<std::string>& title);

}  // namespace wren

#include "mailscan/webmail_account.h"

#include <vector>

namespace wren {

WebMailService webMailServiceForHost(std::string_view host) {
  if (host == kGmailHost) return WebMailService::Gmail;
  if (host == kYahooJapanMailHost) return WebMailService::YahooJapan;
  if (host.find(kYahooGlobalMailHost) != std::string_view::npos) return WebMailService::YahooGlobal;
  return WebMailService::None;
}

std::optional<std::string> hostOfUrl(std::string_view url) {
  const size_t schemeEnd = url.find("://");
  if (schemeEnd == std::string_view::npos || schemeEnd == 0) return std::nullopt;
  std::string_view rest = url.substr(schemeEnd + 3);
  // The authority ends at the first path, query or fragment delimiter.
  std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
  if (const size_t at = authority.rfind('@'); at != std::string_view::npos) authority.remove_prefix(at + 1);
  std::string_view host;
  if (!authority.empty() && authority.front() == '[') {
    const size_t close = authority.find(']');
    if (close == std::string_view::npos) return std::nullopt;
    host = authority.substr(0, close + 1);
  } else {
    host = authority.substr(0, authority.find(':'));
  }
  if (host.empty()) return std::nullopt;
  return std::string(host);
}

std::optional<std::string> accountFromTitle(const std::optional<std::string>& title) {
  if (!title) return std::nullopt;
  std::vector<std::string_view> parts;
  std::string_view rest = *title;
  for (size_t dash; (dash = rest.find('-')) != std::string_view::npos; rest.remove_prefix(dash + 1)) {
    parts.push_back(rest.substr(0, dash));
  }
  parts.push_back(rest);
  if (parts.size() < 2) return std::nullopt;
  std::string account;
  for (char c : parts[parts.size() - 2]) {
    if (c != ' ') account += c;
  }
  return account;
}

}  // namespace wren

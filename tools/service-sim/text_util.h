#pragma once
// Small text helpers of the simulator: the raw query parser (the bridge sends
// some values unescaped, so "+" must stay "+"), Base64 decoding, and the host
// part of an address.
#include <map>
#include <optional>
#include <string>

namespace wren::sim {

// Decodes %XX escapes; a "+" stays a "+" and a broken escape stays as written.
std::string percentDecode(const std::string& text);

// Splits "a=1&b=2" into its pairs, decoding each name and value with
// percentDecode. A later repeat of a name wins. A name without "=" maps to "".
std::map<std::string, std::string> parseRawQuery(const std::string& query);

// The raw query of a request target ("/p?x" -> "x"); "" when there is none.
std::string queryOf(const std::string& target);

// Standard Base64 (with or without "=" padding); nothing when malformed.
std::optional<std::string> base64Decode(const std::string& text);

// The lower-case host of an address ("https://User@Ex.COM:8/p" -> "ex.com").
// Addresses without a scheme are read as starting with the host. "" when none.
std::string hostOf(const std::string& url);

std::string toLower(std::string text);
// Case-insensitive substring test (ASCII).
bool containsIgnoringCase(const std::string& haystack, const std::string& needle);
// "true"/"false" (any case) as a flag; nothing for other text.
std::optional<bool> parseBoolText(const std::string& text);

}  // namespace wren::sim

#pragma once
// The link shorteners and redirectors whose addresses the service must
// resolve before rating them.
#include <array>
#include <string_view>

namespace wren {

// The expressions, in the order they are tried: an escaped prefix of scheme
// and host (one with a path and query key). Matched case-insensitively and
// unanchored, so a short link inside another address's query counts too.
inline constexpr size_t kShortLinkPatternCount = 14;
extern const std::array<std::string_view, kShortLinkPatternCount> kShortLinkPatterns;

// Whether any expression occurs anywhere in the address.
bool isShortLink(std::string_view url);

}  // namespace wren

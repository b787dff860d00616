#pragma once
// Lossy ASCII: the raw POST's body encoding. Pure; any thread.
#include <string>
#include <string_view>

namespace wren {

// The UTF-8 text as ASCII: ASCII bytes pass, every other code point becomes
// one '?', and so does every byte that is not part of well-formed UTF-8.
std::string asciiWithSubstitutes(std::string_view utf8);

}  // namespace wren

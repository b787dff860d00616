#pragma once
// Percent-encoding helpers with this product's own (narrow) rules, plus the
// string-to-JSON parser. These are not the usual library functions of the same
// names: the escape set and the zero-byte behaviour are part of the contract
// with the page scripts and the service.
#include <optional>
#include <string>
#include <string_view>

#include "util/json.h"

namespace wren {

// Appends `byte` as "%XX" with upper-case hex digits: the one escape form
// that addresses, queries and header values share.
inline void appendPercentEscape(std::string& out, unsigned char byte) {
  constexpr char kUpperHex[] = "0123456789ABCDEF";
  out += '%';
  out += kUpperHex[byte >> 4];
  out += kUpperHex[byte & 0xF];
}

// Escapes bytes >= 0x80 and exactly the seven characters ' ', '#', '%', '/',
// ':', ';', '@' as "%XX" (upper-case hex); every other byte passes through.
// Stops at the first NUL byte.
std::string encodeURI(std::string_view s);

// Decodes "%XX" escapes (non-hex digits count as 0, an escape cut short at the
// end uses what is there); a decoded zero byte adds nothing; stops at the
// first NUL. Returns nullopt when the result is not valid UTF-8.
std::optional<std::string> decodeURI(std::string_view s);

// Parses JSON text; the top level must be an object or an array. On failure
// writes "Fail to convert JSON: <error>" to the system log and returns nullopt.
std::optional<Json> toJSON(std::string_view s);

// "0"-"9", "a"-"f", "A"-"F" give their value; anything else gives 0.
int HexCharToInt(char c);
// Sum of HexCharToInt of each character times 16^(distance from the end),
// modulo 2^32. Empty gives 0.
uint32_t HexStringToInt(std::string_view s);

}  // namespace wren

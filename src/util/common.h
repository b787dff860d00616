#pragma once
// Base64, digests and UTF-8 reading of strings.
#include <optional>
#include <string>
#include <string_view>

namespace wren {

// Standard Base64 (RFC 4648, "+" "/" and "=" padding) on one line.
std::string base64EncodedString(std::string_view utf8);
// Strict decoding: any byte outside the alphabet and padding, white space
// included, fails. Fails too when the bytes are not valid UTF-8.
std::optional<std::string> base64DecodedString(std::string_view b64);

// The number of UTF-16 code units of a UTF-8 string (invalid bytes count one).
size_t utf16Length(std::string_view utf8);

// Lower-case hex digests over the first utf16Length(s) bytes of the UTF-8 form:
// ASCII hashes as usual, other text only by its leading bytes. The truncation
// is deliberate: it keeps the digests equal to those the service already holds.
std::string SHA256(std::string_view s);
std::string MD5(std::string_view s);

// Lower-case hex MD5 of every byte before the first NUL (all of them when
// there is none), unlike MD5 above: the mail-scan log's digest.
std::string md5UpToNul(std::string_view s);

// true when the bytes are well-formed UTF-8.
bool isValidUtf8(std::string_view s);

// The length of the well-formed UTF-8 sequence at s[i] (1 for an ASCII
// byte), or 0 when none starts there: overlong forms, surrogates and values
// above U+10FFFF are not well-formed. i < s.size().
size_t utf8SequenceLength(std::string_view s, size_t i);

}  // namespace wren

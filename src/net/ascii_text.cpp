#include "net/ascii_text.h"

namespace wren {

namespace {

// The length of the well-formed UTF-8 sequence at s[i] (lead byte >= 0x80),
// or 0 when it is not one. Overlong forms, surrogates and code points past
// U+10FFFF are not well-formed.
size_t sequenceLength(std::string_view s, size_t i) {
  auto at = [&](size_t k) -> int { return i + k < s.size() ? static_cast<unsigned char>(s[i + k]) : -1; };
  int c = at(0);
  auto in = [](int b, int lo, int hi) { return b >= lo && b <= hi; };
  if (in(c, 0xC2, 0xDF)) return in(at(1), 0x80, 0xBF) ? 2 : 0;
  int lo = 0x80, hi = 0xBF;
  size_t len = 0;
  if (in(c, 0xE0, 0xEF)) {
    len = 3;
    if (c == 0xE0) lo = 0xA0;
    if (c == 0xED) hi = 0x9F;
  } else if (in(c, 0xF0, 0xF4)) {
    len = 4;
    if (c == 0xF0) lo = 0x90;
    if (c == 0xF4) hi = 0x8F;
  } else {
    return 0;
  }
  if (!in(at(1), lo, hi)) return 0;
  for (size_t k = 2; k < len; ++k)
    if (!in(at(k), 0x80, 0xBF)) return 0;
  return len;
}

}  // namespace

std::string asciiWithSubstitutes(std::string_view utf8) {
  std::string out;
  out.reserve(utf8.size());
  for (size_t i = 0; i < utf8.size();) {
    unsigned char c = static_cast<unsigned char>(utf8[i]);
    if (c < 0x80) {
      out += static_cast<char>(c);
      ++i;
      continue;
    }
    size_t len = sequenceLength(utf8, i);
    out += '?';
    i += len ? len : 1;
  }
  return out;
}

}  // namespace wren

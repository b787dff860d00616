#include "util/url_escapes.h"

#include "util/common.h"
#include "util/json_parse.h"
#include "util/logging.h"

namespace wren {
namespace {

// The seven bytes in 0x20..0x40 that the pages and the service expect escaped:
// ' ' '#' '%' '/' ':' ';' '@'. Bit i stands for the byte 0x20 + i.
constexpr uint64_t kEscapedMask = (1ull << (' ' - 0x20)) | (1ull << ('#' - 0x20)) | (1ull << ('%' - 0x20)) |
                                  (1ull << ('/' - 0x20)) | (1ull << (':' - 0x20)) | (1ull << (';' - 0x20)) |
                                  (1ull << ('@' - 0x20));

bool mustEscape(unsigned char b) {
  if (b >= 0x80) return true;
  return b >= 0x20 && b <= 0x40 && (kEscapedMask >> (b - 0x20)) & 1;
}

// The bytes before the first NUL: the text as a C string would see it.
std::string_view upToNul(std::string_view s) {
  size_t nul = s.find('\0');
  return nul == std::string_view::npos ? s : s.substr(0, nul);
}

}  // namespace

std::string encodeURI(std::string_view s) {
  s = upToNul(s);
  std::string out;
  out.reserve(s.size() + s.size() / 4);
  for (char c : s) {
    auto b = static_cast<unsigned char>(c);
    if (mustEscape(b)) {
      appendPercentEscape(out, b);
    } else {
      out.push_back(c);
    }
  }
  return out;
}

std::optional<std::string> decodeURI(std::string_view s) {
  s = upToNul(s);
  std::string out;
  out.reserve(s.size());
  size_t p = 0;
  while (p < s.size()) {
    if (s[p] == '%') {
      // At most two characters; fewer when the text ends first.
      auto b = static_cast<unsigned char>(HexStringToInt(s.substr(p + 1, 2)) & 0xFF);
      if (b != 0) out.push_back(static_cast<char>(b));  // a decoded NUL adds nothing
      p += 3;
    } else {
      out.push_back(s[p]);
      p += 1;
    }
  }
  if (!isValidUtf8(out)) return std::nullopt;
  return out;
}

std::optional<Json> toJSON(std::string_view s) {
  std::optional<Json> parsed = parseJson(s);
  if (!parsed) {
    systemLog("Fail to convert JSON: not valid JSON, or nested deeper than " + std::to_string(kMaxJsonDepth) +
              " levels");
    return std::nullopt;
  }
  Json& value = *parsed;
  if (!value.is_object() && !value.is_array()) {
    systemLog("Fail to convert JSON: the top level is neither an object nor an array");
    return std::nullopt;
  }
  return value;
}

int HexCharToInt(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 0;
}

uint32_t HexStringToInt(std::string_view s) {
  uint32_t sum = 0;
  uint32_t weight = 1;  // wraps to 0 past eight digits, as 16^k mod 2^32 does
  for (size_t i = s.size(); i-- > 0;) {
    sum += static_cast<uint32_t>(HexCharToInt(s[i])) * weight;
    weight *= 16;
  }
  return sum;
}

}  // namespace wren

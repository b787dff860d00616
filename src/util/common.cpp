#include "util/common.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>

namespace wren {
namespace {

constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kLowerHex[] = "0123456789abcdef";
constexpr int kInvalid = -1;

constexpr std::array<int, 256> makeBase64Table() {
  std::array<int, 256> table{};
  for (auto& v : table) v = kInvalid;
  for (int i = 0; i < 64; ++i) table[static_cast<unsigned char>(kBase64Alphabet[i])] = i;
  return table;
}
constexpr std::array<int, 256> kBase64Values = makeBase64Table();

std::string toHex(const unsigned char* bytes, size_t n) {
  std::string out;
  out.reserve(n * 2);
  for (size_t i = 0; i < n; ++i) {
    out.push_back(kLowerHex[bytes[i] >> 4]);
    out.push_back(kLowerHex[bytes[i] & 0xF]);
  }
  return out;
}

std::string digestHex(const EVP_MD* md, std::string_view bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest, &len, md, nullptr) != 1) return {};
  return toHex(digest, len);
}

// The leading bytes that the digests cover: as many as the text has UTF-16
// code units.
std::string_view digestInput(std::string_view s) { return s.substr(0, std::min(s.size(), utf16Length(s))); }

}  // namespace

std::string base64EncodedString(std::string_view utf8) {
  std::string out;
  out.reserve((utf8.size() + 2) / 3 * 4);
  size_t i = 0;
  auto byte = [&](size_t k) { return static_cast<uint32_t>(static_cast<unsigned char>(utf8[k])); };
  for (; i + 3 <= utf8.size(); i += 3) {
    uint32_t v = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
    out.push_back(kBase64Alphabet[v >> 18 & 63]);
    out.push_back(kBase64Alphabet[v >> 12 & 63]);
    out.push_back(kBase64Alphabet[v >> 6 & 63]);
    out.push_back(kBase64Alphabet[v & 63]);
  }
  size_t rest = utf8.size() - i;
  if (rest > 0) {
    uint32_t v = byte(i) << 16 | (rest == 2 ? byte(i + 1) << 8 : 0);
    out.push_back(kBase64Alphabet[v >> 18 & 63]);
    out.push_back(kBase64Alphabet[v >> 12 & 63]);
    out.push_back(rest == 2 ? kBase64Alphabet[v >> 6 & 63] : '=');
    out.push_back('=');
  }
  return out;
}

std::optional<std::string> base64DecodedString(std::string_view b64) {
  if (b64.size() % 4 != 0) return std::nullopt;
  size_t padding = 0;
  if (!b64.empty() && b64.back() == '=') padding = b64.size() >= 2 && b64[b64.size() - 2] == '=' ? 2 : 1;
  std::string out;
  out.reserve(b64.size() / 4 * 3);
  const size_t dataEnd = b64.size() - padding;
  uint32_t acc = 0;
  int bits = 0;
  for (size_t i = 0; i < dataEnd; ++i) {
    int v = kBase64Values[static_cast<unsigned char>(b64[i])];
    if (v == kInvalid) return std::nullopt;  // white space and stray "=" included
    acc = (acc << 6 | static_cast<uint32_t>(v)) & 0xFFFFFF;
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<char>(acc >> bits & 0xFF));
    }
  }
  if (!isValidUtf8(out)) return std::nullopt;
  return out;
}

size_t utf8SequenceLength(std::string_view s, size_t i) {
  auto at = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
  auto cont = [&](size_t k) { return k < s.size() && (at(k) & 0xC0) == 0x80; };
  unsigned char b = at(i);
  if (b < 0x80) return 1;
  if (b >= 0xC2 && b <= 0xDF) return cont(i + 1) ? 2 : 0;
  if (b >= 0xE0 && b <= 0xEF) {
    if (!cont(i + 1) || !cont(i + 2)) return 0;
    unsigned char b1 = at(i + 1);
    if (b == 0xE0 && b1 < 0xA0) return 0;  // overlong
    if (b == 0xED && b1 > 0x9F) return 0;  // surrogate
    return 3;
  }
  if (b >= 0xF0 && b <= 0xF4) {
    if (!cont(i + 1) || !cont(i + 2) || !cont(i + 3)) return 0;
    unsigned char b1 = at(i + 1);
    if (b == 0xF0 && b1 < 0x90) return 0;  // overlong
    if (b == 0xF4 && b1 > 0x8F) return 0;  // above U+10FFFF
    return 4;
  }
  return 0;
}

size_t utf16Length(std::string_view utf8) {
  size_t units = 0;
  size_t i = 0;
  while (i < utf8.size()) {
    size_t n = utf8SequenceLength(utf8, i);
    if (n == 0) {
      units += 1;
      i += 1;
    } else {
      units += n == 4 ? 2 : 1;  // beyond the BMP: a surrogate pair
      i += n;
    }
  }
  return units;
}

bool isValidUtf8(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    size_t n = utf8SequenceLength(s, i);
    if (n == 0) return false;
    i += n;
  }
  return true;
}

std::string SHA256(std::string_view s) { return digestHex(EVP_sha256(), digestInput(s)); }

std::string MD5(std::string_view s) { return digestHex(EVP_md5(), digestInput(s)); }

std::string md5UpToNul(std::string_view s) {
  size_t nul = s.find('\0');
  return digestHex(EVP_md5(), nul == std::string_view::npos ? s : s.substr(0, nul));
}

}  // namespace wren

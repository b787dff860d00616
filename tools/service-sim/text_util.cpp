#include "text_util.h"

#include <algorithm>
#include <cctype>

namespace wren::sim {

namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

int base64Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

}  // namespace

std::string percentDecode(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      int hi = hexValue(text[i + 1]), lo = hexValue(text[i + 2]);
      if (hi >= 0 && lo >= 0) {
        out.push_back(static_cast<char>(hi * 16 + lo));
        i += 2;
        continue;
      }
    }
    out.push_back(text[i]);
  }
  return out;
}

std::map<std::string, std::string> parseRawQuery(const std::string& query) {
  std::map<std::string, std::string> pairs;
  size_t start = 0;
  while (start <= query.size()) {
    size_t end = query.find('&', start);
    if (end == std::string::npos) end = query.size();
    std::string part = query.substr(start, end - start);
    if (!part.empty()) {
      size_t eq = part.find('=');
      std::string name = percentDecode(part.substr(0, eq));
      pairs[name] = eq == std::string::npos ? "" : percentDecode(part.substr(eq + 1));
    }
    start = end + 1;
  }
  return pairs;
}

std::string queryOf(const std::string& target) {
  size_t q = target.find('?');
  if (q == std::string::npos) return "";
  size_t hash = target.find('#', q);
  return target.substr(q + 1, hash == std::string::npos ? std::string::npos : hash - q - 1);
}

std::optional<std::string> base64Decode(const std::string& text) {
  std::string out;
  unsigned bits = 0;
  int count = 0;
  size_t padding = 0;
  for (char c : text) {
    if (c == '=') {
      ++padding;
      continue;
    }
    int v = base64Value(c);
    if (v < 0 || padding > 0) return std::nullopt;  // stray character, or data after padding
    bits = (bits << 6) | static_cast<unsigned>(v);
    count += 6;
    if (count >= 8) {
      count -= 8;
      out.push_back(static_cast<char>((bits >> count) & 0xFF));
    }
  }
  if (padding > 2 || count >= 6) return std::nullopt;  // a lone 6-bit group cannot end valid Base64
  return out;
}

std::string hostOf(const std::string& url) {
  size_t start = url.find("://");
  start = start == std::string::npos ? 0 : start + 3;
  size_t end = url.find_first_of("/?#", start);
  std::string authority = url.substr(start, end == std::string::npos ? std::string::npos : end - start);
  size_t at = authority.rfind('@');
  if (at != std::string::npos) authority = authority.substr(at + 1);
  std::string host;
  if (!authority.empty() && authority[0] == '[') {
    size_t close = authority.find(']');
    host = authority.substr(1, close == std::string::npos ? std::string::npos : close - 1);
  } else {
    host = authority.substr(0, authority.find(':'));
  }
  while (!host.empty() && host.back() == '.') host.pop_back();
  return toLower(host);
}

std::string toLower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

bool containsIgnoringCase(const std::string& haystack, const std::string& needle) {
  return toLower(haystack).find(toLower(needle)) != std::string::npos;
}

std::optional<bool> parseBoolText(const std::string& text) {
  std::string lower = toLower(text);
  if (lower == "true") return true;
  if (lower == "false") return false;
  return std::nullopt;
}

}  // namespace wren::sim

#include "net/http_headers.h"

#include <strings.h>

namespace wren {

namespace {

bool sameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace

std::optional<std::string> HttpResponse::header(std::string_view name) const {
  for (const auto& [key, value] : headerFields)
    if (sameName(key, name)) return value;
  return std::nullopt;
}

std::string safeHeaderValue(std::string_view value) {
  std::string out;
  out.reserve(value.size());
  for (char c : value) {
    switch (c) {
      case '\r': out += "%0D"; break;
      case '\n': out += "%0A"; break;
      case '\0': out += "%00"; break;
      default: out += c;
    }
  }
  return out;
}

bool isSendableHeaderName(std::string_view name) {
  return !name.empty() && name.find_first_of(std::string_view("\r\n\0:", 4)) == std::string_view::npos;
}

Headers mergeHeaders(Headers base, const Headers& overrides) {
  for (const auto& [name, value] : overrides) {
    bool replaced = false;
    for (auto& entry : base) {
      if (sameName(entry.first, name)) {
        entry = {name, value};
        replaced = true;
        break;
      }
    }
    if (!replaced) base.emplace_back(name, value);
  }
  return base;
}

std::string curlHeaderLine(std::string_view name, std::string_view value) {
  std::string line(name);
  if (value.empty()) return line + ";";
  line += ": ";
  line += value;
  return line;
}

}  // namespace wren

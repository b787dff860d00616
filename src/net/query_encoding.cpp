#include "net/query_encoding.h"

#include <algorithm>
#include <vector>

#include "util/url_escapes.h"

namespace wren {

namespace {

bool passesUnescaped(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || c == '~' || c == '/' || c == '?';
}

// The text of a leaf value (not null, not a container).
std::string leafText(const Json& value) {
  switch (value.type()) {
    case Json::value_t::string:
      return value.get_ref<const std::string&>();
    case Json::value_t::boolean:
      return value.get<bool>() ? "1" : "0";
    default:  // integers print in decimal, doubles in shortest round-trip form
      return value.dump(-1, ' ', false, Json::error_handler_t::replace);
  }
}

void appendPair(std::string& out, std::string_view name, const Json* value) {
  if (!out.empty()) out += '&';
  out += percentEncodeQueryComponent(name);
  if (value) {
    out += '=';
    out += percentEncodeQueryComponent(leafText(*value));
  }
}

// Visits an object's entries in byte-wise key order.
template <typename Fn>
void forEachSorted(const Json& object, Fn fn) {
  std::vector<std::pair<const std::string*, const Json*>> entries;
  entries.reserve(object.size());
  for (auto it = object.begin(); it != object.end(); ++it) entries.emplace_back(&it.key(), &it.value());
  std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return *a.first < *b.first; });
  for (const auto& [key, value] : entries) fn(*key, *value);
}

void encodeValue(std::string& out, const std::string& name, const Json& value) {
  if (value.is_object()) {
    forEachSorted(value, [&](const std::string& key, const Json& sub) { encodeValue(out, name + "[" + key + "]", sub); });
  } else if (value.is_array()) {
    for (const Json& element : value) encodeValue(out, name + "[]", element);
  } else if (value.is_null()) {
    appendPair(out, name, nullptr);
  } else {
    appendPair(out, name, &value);
  }
}

}  // namespace

std::string percentEncodeQueryComponent(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (unsigned char c : s) {
    if (passesUnescaped(c)) {
      out += static_cast<char>(c);
    } else {
      appendPercentEscape(out, c);
    }
  }
  return out;
}

std::string queryStringFromParameters(const Json& parameters) {
  std::string out;
  if (parameters.is_object())
    forEachSorted(parameters, [&](const std::string& key, const Json& value) { encodeValue(out, key, value); });
  return out;
}

std::string appendQuery(const std::string& url, const Json& parameters) {
  std::string query = queryStringFromParameters(parameters);
  if (query.empty()) return url;
  return url + (url.find('?') != std::string::npos ? "&" : "?") + query;
}

}  // namespace wren

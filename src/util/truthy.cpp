#include "util/truthy.h"

namespace wren {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

bool truthyText(std::string_view s) {
  size_t i = 0;
  while (i < s.size() && isBlank(s[i])) ++i;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
  while (i < s.size() && s[i] == '0') ++i;
  if (i == s.size()) return false;
  char c = s[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

}  // namespace

bool truthy(const Json& value) {
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_number_integer()) {
    return value.is_number_unsigned() ? value.get<uint64_t>() != 0 : value.get<int64_t>() != 0;
  }
  if (value.is_number_float()) return value.get<double>() != 0.0;
  if (value.is_string()) return truthyText(value.get_ref<const std::string&>());
  return false;
}

bool truthyKey(const Json& dict, std::string_view key) {
  if (!dict.is_object()) return false;
  auto it = dict.find(key);
  return it != dict.end() && truthy(*it);
}

}  // namespace wren

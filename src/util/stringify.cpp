#include "util/stringify.h"

#include <algorithm>
#include <vector>

#include "util/logging.h"

namespace wren {
namespace {

constexpr int kIndentStep = 4;

// Invalid UTF-8 in a text is written as U+FFFD rather than failing a log line.
std::string dumpForLog(const Json& value, int indent) {
  return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

bool isBareWord(const std::string& s) {
  return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  });
}

std::string quotedIfNeeded(const std::string& s) {
  if (isBareWord(s)) return s;
  std::string out = "\"";
  for (char c : s) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default: out.push_back(c);
    }
  }
  out.push_back('"');
  return out;
}

std::string numberText(const Json& n) {
  std::string text = n.dump();
  // A whole float reads as the number it is ("3", not "3.0").
  if (n.is_number_float() && text.size() > 2 && text.compare(text.size() - 2, 2, ".0") == 0) {
    text.resize(text.size() - 2);
  }
  return text;
}

void describe(const Json& value, int depth, std::string& out) {
  const std::string inner(static_cast<size_t>((depth + 1) * kIndentStep), ' ');
  const std::string outer(static_cast<size_t>(depth * kIndentStep), ' ');
  switch (value.type()) {
    case Json::value_t::object: {
      std::vector<Json::const_iterator> entries;
      for (auto it = value.begin(); it != value.end(); ++it) entries.push_back(it);
      std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.key() < b.key(); });
      out += "{\n";
      for (const auto& it : entries) {
        out += inner;
        out += quotedIfNeeded(it.key());
        out += " = ";
        describe(it.value(), depth + 1, out);
        out += ";\n";
      }
      out += outer;
      out += "}";
      break;
    }
    case Json::value_t::array: {
      out += "(\n";
      for (size_t i = 0; i < value.size(); ++i) {
        out += inner;
        describe(value[i], depth + 1, out);
        out += i + 1 < value.size() ? ",\n" : "\n";
      }
      out += outer;
      out += ")";
      break;
    }
    case Json::value_t::string: out += quotedIfNeeded(value.get_ref<const std::string&>()); break;
    case Json::value_t::boolean: out += value.get<bool>() ? "1" : "0"; break;
    case Json::value_t::null:
    case Json::value_t::discarded: out += "<null>"; break;
    case Json::value_t::binary: out += dumpForLog(value, -1); break;
    default: out += numberText(value); break;
  }
}

}  // namespace

std::string toString(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_array()) {
    std::string out;
    for (size_t i = 0; i < value.size(); ++i) {
      if (i > 0) out.push_back(',');
      out += toString(value[i]);
    }
    return out;
  }
  if (value.is_object()) {
    std::string text = dumpForLog(value, kIndentStep);
    std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
    return text;
  }
  return dumpForLog(value, -1);
}

std::string description(const Json& value) {
  if (value.is_string()) return value.get<std::string>();  // a bare text describes itself
  std::string out;
  describe(value, 0, out);
  return out;
}

std::optional<std::string> dictToJsonStr(const Json& value) {
  if (!value.is_object() && !value.is_array()) return std::nullopt;
  try {
    return value.dump(kIndentStep);
  } catch (const Json::exception& e) {
    systemLog(std::string("Error:") + e.what());
    return std::nullopt;
  }
}

}  // namespace wren

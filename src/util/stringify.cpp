#include "util/stringify.h"

#include <algorithm>
#include <vector>

#include "util/json_parse.h"
#include "util/logging.h"

namespace wren {
namespace {

constexpr int kIndentStep = 4;
// Values built here wrap parsed ones (at most kMaxJsonDepth deep) a few
// levels deeper at most; anything past this is cut rather than recursed into.
constexpr size_t kMaxPrintDepth = 2 * kMaxJsonDepth;
constexpr std::string_view kCutMark = "...";
// The least a described entry takes: a one-letter key and value, " = ", ";"
// and a line break.
constexpr size_t kMinEntryBytes = 7;

// Invalid UTF-8 in a text is written as U+FFFD rather than failing a log line.
std::string dumpForLog(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

// The text being printed, which stops growing at kMaxPrintedBytes: every
// step checks room() first, and a long text is cut before it is escaped.
class Out {
 public:
  bool room() const { return !cut_; }
  void append(std::string_view s) {
    if (cut_) return;
    size_t left = kMaxPrintedBytes - text_.size();
    if (s.size() > left) {
      text_.append(s.substr(0, left));
      cut_ = true;
    } else {
      text_.append(s);
    }
  }
  void push(char c) { append(std::string_view(&c, 1)); }
  void cut() { cut_ = true; }
  // At most as many bytes of `s` as are still free (one more, so an
  // overlong text still shows that it is cut).
  std::string_view fitting(std::string_view s) const { return s.substr(0, kMaxPrintedBytes - text_.size() + 1); }
  std::string finish() {
    if (cut_) text_.append(kCutMark);
    return std::move(text_);
  }

 private:
  std::string text_;
  bool cut_ = false;
};

// A text in JSON's quoted form, cut to what fits.
void appendQuoted(Out& out, std::string_view s) { out.append(dumpForLog(Json(std::string(out.fitting(s))))); }

// Compact JSON, blanks and line breaks left out by the caller.
void compact(const Json& value, size_t depth, Out& out) {
  if (depth > kMaxPrintDepth) return out.cut();
  switch (value.type()) {
    case Json::value_t::object: {
      out.push('{');
      bool first = true;
      for (auto it = value.begin(); it != value.end() && out.room(); ++it) {
        if (!first) out.push(',');
        first = false;
        appendQuoted(out, it.key());
        out.push(':');
        compact(it.value(), depth + 1, out);
      }
      out.push('}');
      break;
    }
    case Json::value_t::array: {
      out.push('[');
      for (size_t i = 0; i < value.size() && out.room(); ++i) {
        if (i > 0) out.push(',');
        compact(value[i], depth + 1, out);
      }
      out.push(']');
      break;
    }
    case Json::value_t::string: appendQuoted(out, value.get_ref<const std::string&>()); break;
    default: out.append(dumpForLog(value)); break;
  }
}

void joined(const Json& value, size_t depth, Out& out) {
  if (depth > kMaxPrintDepth) return out.cut();
  if (value.is_string()) {
    out.append(out.fitting(value.get_ref<const std::string&>()));
  } else if (value.is_array()) {
    for (size_t i = 0; i < value.size() && out.room(); ++i) {
      if (i > 0) out.push(',');
      joined(value[i], depth + 1, out);
    }
  } else if (value.is_object()) {
    Out object;
    compact(value, depth, object);
    std::string text = object.finish();
    std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
    out.append(text);
  } else {
    out.append(dumpForLog(value));
  }
}

bool isBareWord(std::string_view s) {
  return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  });
}

void appendQuotedIfNeeded(Out& out, std::string_view whole) {
  std::string_view s = out.fitting(whole);
  if (isBareWord(s)) return out.append(s);
  std::string quoted = "\"";
  for (char c : s) {
    switch (c) {
      case '"': quoted += "\\\""; break;
      case '\\': quoted += "\\\\"; break;
      case '\n': quoted += "\\n"; break;
      case '\r': quoted += "\\r"; break;
      case '\t': quoted += "\\t"; break;
      default: quoted.push_back(c);
    }
  }
  quoted.push_back('"');
  out.append(quoted);
}

std::string numberText(const Json& n) {
  std::string text = n.dump();
  // A whole float reads as the number it is ("3", not "3.0").
  if (n.is_number_float() && text.size() > 2 && text.compare(text.size() - 2, 2, ".0") == 0) {
    text.resize(text.size() - 2);
  }
  return text;
}

void indent(Out& out, size_t depth) {
  for (size_t i = 0; i < depth * kIndentStep && out.room(); ++i) out.push(' ');
}

void describe(const Json& value, size_t depth, Out& out) {
  if (depth > kMaxPrintDepth) return out.cut();
  switch (value.type()) {
    case Json::value_t::object: {
      std::vector<Json::const_iterator> entries;
      entries.reserve(value.size());
      for (auto it = value.begin(); it != value.end(); ++it) entries.push_back(it);
      // Only the entries that can still be printed need their place: each
      // takes at least kMinEntryBytes.
      auto shown = entries.begin() + static_cast<std::ptrdiff_t>(
                                         std::min(entries.size(), kMaxPrintedBytes / kMinEntryBytes + 1));
      std::partial_sort(entries.begin(), shown, entries.end(),
                        [](const auto& a, const auto& b) { return a.key() < b.key(); });
      entries.erase(shown, entries.end());
      out.append("{\n");
      for (const auto& it : entries) {
        if (!out.room()) break;
        indent(out, depth + 1);
        appendQuotedIfNeeded(out, it.key());
        out.append(" = ");
        describe(it.value(), depth + 1, out);
        out.append(";\n");
      }
      indent(out, depth);
      out.push('}');
      break;
    }
    case Json::value_t::array: {
      out.append("(\n");
      for (size_t i = 0; i < value.size() && out.room(); ++i) {
        indent(out, depth + 1);
        describe(value[i], depth + 1, out);
        out.append(i + 1 < value.size() ? ",\n" : "\n");
      }
      indent(out, depth);
      out.push(')');
      break;
    }
    case Json::value_t::string: appendQuotedIfNeeded(out, value.get_ref<const std::string&>()); break;
    case Json::value_t::boolean: out.push(value.get<bool>() ? '1' : '0'); break;
    case Json::value_t::null:
    case Json::value_t::discarded: out.append("<null>"); break;
    case Json::value_t::binary: out.append(dumpForLog(value)); break;
    default: out.append(numberText(value)); break;
  }
}

}  // namespace

std::string toString(const Json& value) {
  Out out;
  joined(value, 0, out);
  return out.finish();
}

std::string description(const Json& value) {
  Out out;
  if (value.is_string()) {
    out.append(out.fitting(value.get_ref<const std::string&>()));  // a bare text describes itself
  } else {
    describe(value, 0, out);
  }
  return out.finish();
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

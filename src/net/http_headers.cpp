#include "net/http_headers.h"

#include <strings.h>

#include <cstdint>
#include <type_traits>
#include <vector>

#include "util/url_escapes.h"

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

namespace {

// The control bytes: 0x00 to 0x1F and DEL. None may stand raw in a header
// line (CR, LF and NUL would end or cut it, the others confuse parsers).
bool isControl(char c) {
  auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7F;
}

}  // namespace

bool needsHeaderEscaping(std::string_view value) {
  // A plain loop: a rating sends sixty values, almost all of them clean.
  for (char c : value)
    if (isControl(c)) return true;
  return false;
}

std::string safeHeaderValue(std::string_view value) {
  // Almost every value is clean: one scan, one copy.
  if (!needsHeaderEscaping(value)) return std::string(value);
  std::string out;
  out.reserve(value.size() + 6);
  for (char c : value) {
    if (!isControl(c)) {
      out += c;
      continue;
    }
    appendPercentEscape(out, static_cast<unsigned char>(c));
  }
  return out;
}

bool isSendableHeaderName(std::string_view name) {
  if (name.empty()) return false;
  for (char c : name)
    if (isControl(c) || c == ':' || c == ' ') return false;
  return true;
}

namespace {

// Lists up to this long are merged by comparing every pair; longer ones (a
// rating sends sixty headers) look names up in a small hash table instead.
constexpr size_t kPairwiseMergeLimit = 8;

uint32_t nameHash(std::string_view name) {  // FNV-1a over the lower-cased name
  uint32_t h = 2166136261u;
  for (char c : name) {
    h ^= static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    h *= 16777619u;
  }
  return h;
}

// Applies overrides to base in order (see mergeHeaders); Entry is a const or
// a movable header.
template <typename Overrides>
void mergeInto(Headers& base, Overrides&& overrides) {
  auto take = [](auto&& entry) -> decltype(auto) {
    if constexpr (std::is_const_v<std::remove_reference_t<Overrides>>) {
      return static_cast<const std::pair<std::string, std::string>&>(entry);
    } else {
      return std::move(entry);
    }
  };
  if (base.size() + overrides.size() <= kPairwiseMergeLimit) {
    for (auto& override : overrides) {
      bool replaced = false;
      for (auto& entry : base) {
        if (sameName(entry.first, override.first)) {
          entry = take(override);
          replaced = true;
          break;
        }
      }
      if (!replaced) base.push_back(take(override));
    }
    return;
  }
  // Open addressing: each slot holds (hash, index + 1) of the first entry of
  // a name; 0 marks an empty slot. At most half full, so probes stay short.
  size_t capacity = 16;
  while (capacity < 2 * (base.size() + overrides.size())) capacity *= 2;
  std::vector<std::pair<uint32_t, uint32_t>> slots(capacity);
  // The slot of `name`: the one holding it, or the empty one where it goes.
  auto slotOf = [&](std::string_view name, uint32_t hash) -> std::pair<uint32_t, uint32_t>& {
    for (size_t i = hash & (capacity - 1);; i = (i + 1) & (capacity - 1)) {
      auto& slot = slots[i];
      if (slot.second == 0 || (slot.first == hash && sameName(base[slot.second - 1].first, name))) return slot;
    }
  };
  base.reserve(base.size() + overrides.size());
  for (size_t i = 0; i < base.size(); ++i) {
    uint32_t hash = nameHash(base[i].first);
    auto& slot = slotOf(base[i].first, hash);
    if (slot.second == 0) slot = {hash, static_cast<uint32_t>(i + 1)};  // the first of a name is the one replaced
  }
  for (auto& override : overrides) {
    uint32_t hash = nameHash(override.first);
    auto& slot = slotOf(override.first, hash);
    if (slot.second != 0) {
      base[slot.second - 1] = take(override);
    } else {
      base.push_back(take(override));
      slot = {hash, static_cast<uint32_t>(base.size())};
    }
  }
}

}  // namespace

Headers mergeHeaders(Headers base, const Headers& overrides) {
  mergeInto(base, overrides);
  return base;
}

Headers mergeHeaders(Headers base, Headers&& overrides) {
  mergeInto(base, overrides);
  return base;
}

void HeaderLines::reserve(size_t count, size_t bytes) {
  starts_.reserve(count);
  text_.reserve(bytes);
}

void HeaderLines::add(std::string_view name, std::string_view value) {
  starts_.push_back(text_.size());
  text_.append(name);
  if (value.empty()) {
    text_ += ';';
  } else {
    text_ += ": ";
    if (needsHeaderEscaping(value)) {
      text_ += safeHeaderValue(value);
    } else {
      text_ += value;
    }
  }
  text_ += '\0';
}

bool HeaderLines::contains(std::string_view name) const {
  for (size_t start : starts_) {
    std::string_view line(text_.data() + start);
    if (line.size() > name.size() && sameName(line.substr(0, name.size()), name) &&
        (line[name.size()] == ':' || line[name.size()] == ';'))
      return true;
  }
  return false;
}

}  // namespace wren

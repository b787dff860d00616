#include "util/json_parse.h"

#include <algorithm>
#include <string>
#include <functional>
#include <utility>
#include <vector>

namespace wren {
namespace {

using Object = Json::object_t;
using Entries = std::vector<Object::value_type, Object::allocator_type>;

// Finds keys of one object: in place while it is small, through a hash
// index (built on first need) once it is wide. The index holds positions,
// not copies of the keys, so a wide object costs a few bytes a key more.
class KeyIndex {
 public:
  // The position of `key` in `object`, or nullopt.
  std::optional<size_t> find(const Entries& object, const std::string& key) {
    if (slots_.empty()) {
      if (object.size() < kIndexedObjectKeys) {
        for (size_t i = 0; i < object.size(); ++i)
          if (object[i].first == key) return i;
        return std::nullopt;
      }
      for (size_t i = 0; i < object.size(); ++i) added(object, i);
    }
    const size_t hash = hashOf(key);
    for (size_t at = hash & mask();; at = (at + 1) & mask()) {
      const Slot& slot = slots_[at];
      if (slot.position == 0) return std::nullopt;
      if (slot.hash == hash && object[slot.position - 1].first == key) return slot.position - 1;
    }
  }
  // Records that object[position] was appended.
  void added(const Entries& object, size_t position) {
    if (slots_.empty() && object.size() < kIndexedObjectKeys) return;  // still searched in place
    if (2 * (used_ + 1) > slots_.size()) grow(object, position);
    place(hashOf(object[position].first), position);
  }

 private:
  struct Slot {
    size_t hash = 0;
    size_t position = 0;  // index + 1; 0 marks an empty slot
  };
  static size_t hashOf(std::string_view key) { return std::hash<std::string_view>{}(key); }
  size_t mask() const { return slots_.size() - 1; }
  void place(size_t hash, size_t position) {
    size_t at = hash & mask();
    while (slots_[at].position != 0) at = (at + 1) & mask();
    slots_[at] = {hash, position + 1};
    ++used_;
  }
  // Doubles the table (at most half full, so probes stay short) and indexes
  // the entries before `end` again.
  void grow(const Entries& object, size_t end) {
    size_t size = slots_.empty() ? 2 * kIndexedObjectKeys : slots_.size();
    while (size < 4 * (end + 1)) size *= 2;
    slots_.assign(size, Slot{});
    used_ = 0;
    for (size_t i = 0; i < end; ++i) place(hashOf(object[i].first), i);
  }

  std::vector<Slot> slots_;
  size_t used_ = 0;
};

// The slot for `key` in `object`: its existing value, or a new null one at
// the end.
Json& slotFor(Object& map, KeyIndex& index, std::string&& key) {
  // The vector under the map: ordered_map's own insert and [] search again.
  Entries& object = map;
  if (auto at = index.find(object, key)) return object[*at].second;
  if (object.size() == object.capacity()) {
    // Grown by hand: the entries' keys are const, so the vector's own growth
    // would copy every value, subtrees and all, where this moves them.
    Entries grown;
    grown.reserve(std::max<size_t>(1, 2 * object.size()));
    for (auto& entry : object) grown.emplace_back(entry.first, std::move(entry.second));
    object.swap(grown);
  }
  object.emplace_back(std::move(key), nullptr);
  index.added(object, object.size() - 1);
  return object.back().second;
}

// Builds the value from the parser's events without ever searching an object
// linearly, and stops the parse at the first container past the depth bound.
// A container being filled is always the last element of its parent, so the
// pointers on the stack stay valid while its parent is not appended to.
class Builder {
 public:
  Json take() { return std::move(root_); }

  bool null() { return put(nullptr); }
  bool boolean(bool v) { return put(v); }
  bool number_integer(Json::number_integer_t v) { return put(v); }
  bool number_unsigned(Json::number_unsigned_t v) { return put(v); }
  bool number_float(Json::number_float_t v, const std::string&) { return put(v); }
  bool string(std::string& v) { return put(std::move(v)); }
  bool binary(Json::binary_t&) { return false; }  // JSON text has none
  bool start_object(std::size_t) { return open(Json::object()); }
  bool start_array(std::size_t) { return open(Json::array()); }
  bool end_object() { return close(); }
  bool end_array() { return close(); }
  bool key(std::string& k) {
    Open& top = stack_.back();
    keySlot_ = &slotFor(*top.value->get_ptr<Object*>(), top.keys, std::move(k));
    *keySlot_ = nullptr;  // a repeated key: its old value goes now, the new one follows
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) { return false; }

 private:
  struct Open {
    Json* value;
    KeyIndex keys;
  };

  Json& next() {
    if (stack_.empty()) return root_;
    Json& top = *stack_.back().value;
    if (top.is_array()) {
      auto* array = top.get_ptr<Json::array_t*>();
      array->emplace_back();
      return array->back();
    }
    return *keySlot_;
  }
  bool put(Json value) {
    next() = std::move(value);
    return true;
  }
  bool open(Json empty) {
    if (stack_.size() >= kMaxJsonDepth) return false;
    Json& slot = next();
    slot = std::move(empty);
    stack_.push_back({&slot, {}});
    return true;
  }
  bool close() {
    stack_.pop_back();
    return true;
  }

  Json root_;
  std::vector<Open> stack_;
  Json* keySlot_ = nullptr;
};

}  // namespace

std::optional<Json> parseJson(std::string_view text) {
  // A NUL byte is never part of JSON text (not even raw inside a string), but
  // the parser takes one for the end of its input and would accept "{}\0junk".
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  Builder builder;
  if (!Json::sax_parse(text.begin(), text.end(), &builder)) return std::nullopt;
  return builder.take();
}

void mergeObject(Json& target, const Json& source) {
  if (!target.is_object() || !source.is_object()) return;
  Object& object = *target.get_ptr<Object*>();
  KeyIndex index;
  for (const auto& [key, value] : *source.get_ptr<const Object*>()) {
    std::string name = key;
    slotFor(object, index, std::move(name)) = value;
  }
}

}  // namespace wren

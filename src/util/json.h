#pragma once
// The one dictionary type of the system. Insertion order is kept because the
// pages and the service see our objects, and echoing a page's dictionary should
// not reshuffle it.
#include <nlohmann/json.hpp>

#include <string_view>

namespace wren {
using Json = nlohmann::ordered_json;

// The member `key` of `object`, or nullptr when `object` is not a dictionary
// or does not hold it: one test for both, since page and service values may
// be of any type.
inline const Json* findMember(const Json& object, std::string_view key) {
  if (!object.is_object()) return nullptr;
  auto it = object.find(key);
  return it == object.end() ? nullptr : &*it;
}

}  // namespace wren

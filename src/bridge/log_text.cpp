#include "bridge/log_text.h"

#include "util/stringify.h"

namespace wren {

std::string objectText(const Json* value) {
  if (!value || value->is_null()) return "(null)";
  return toString(*value);
}

const Json* valueForKey(const Json& info, const char* key) {
  if (!info.is_object()) return nullptr;
  auto it = info.find(key);
  return it == info.end() ? nullptr : &*it;
}

}  // namespace wren

#include "bridge/log_text.h"

#include "util/stringify.h"

namespace wren {

std::string objectText(const Json* value) {
  if (!value || value->is_null()) return "(null)";
  return toString(*value);
}

}  // namespace wren

#pragma once
// The string tables compiled into the binary (generated at build time from
// resources/strings/<lang>/<table>.json).
#include <cstddef>
#include <string_view>

namespace wren {

struct EmbeddedStringTable {
  std::string_view language;
  std::string_view table;
  std::string_view json;
};

// All compiled-in tables; `count` receives their number.
const EmbeddedStringTable* embeddedStringTables(size_t* count);

}  // namespace wren

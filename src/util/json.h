#pragma once
// The one dictionary type of the system. Insertion order is kept because the
// pages and the service see our objects, and echoing a page's dictionary should
// not reshuffle it.
#include <nlohmann/json.hpp>

namespace wren {
using Json = nlohmann::ordered_json;
}  // namespace wren

#pragma once
// The one boolean reading of a value that the service sent.
#include <string_view>

#include "util/json.h"

namespace wren {

// A number: non-zero. A boolean: itself. A text: after leading white space, an
// optional sign and leading zeros, it begins with Y, y, T, t or 1-9. Anything
// else (null, arrays, objects) is false.
bool truthy(const Json& value);

// truthy(dict[key]) when dict is an object holding key, else false.
bool truthyKey(const Json& dict, std::string_view key);

}  // namespace wren

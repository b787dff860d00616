#pragma once
// One-line and descriptive text forms of dictionaries and arrays, for log lines.
#include <cstddef>
#include <optional>
#include <string>

#include "util/json.h"

namespace wren {

// The longest text toString() and description() make. They print log lines,
// which are for people; an answer or a page value of megabytes, or one nested
// hundreds of levels deep with its indentation, is cut off at this length
// while it is printed (and ends in "..."), so it never becomes a huge string.
inline constexpr size_t kMaxPrintedBytes = 16 * 1024;

// A dictionary: pretty-printed JSON with every ' ' and '\n' removed (inside
// strings too, deliberately). An array: each element's text joined with ",".
// A string: itself. Numbers, booleans and null: their JSON text.
std::string toString(const Json& value);

// The classic property-list description of a value, as the service's log
// expects it: "{\n    key = value;\n}" with entries sorted by key, nested
// containers indented by four more blanks, arrays as "(\n    a,\n    b\n)",
// texts quoted unless made only of letters, digits and "_" (and not empty),
// booleans as 1 and 0, null as <null>. A text on its own is returned as is.
std::string description(const Json& value);

// Pretty-printed JSON (4-blank indent) of a dictionary or array, or nullopt
// for anything else.
std::optional<std::string> dictToJsonStr(const Json& value);

}  // namespace wren

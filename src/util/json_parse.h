#pragma once
// Reading JSON that comes from outside the process (the browser's frames, the
// local service's and the cloud's answers, the defaults file), in time and
// memory linear in its length whatever its shape. Pure functions; any thread.
#include <cstddef>
#include <optional>
#include <string_view>

#include "util/json.h"

namespace wren {

// Containers nested deeper than this are refused. Real frames and answers
// nest a handful of levels; the bound keeps every recursive walk of a value
// (copying, comparing, printing, serialising) far from the end of the stack,
// sanitizer builds included.
inline constexpr size_t kMaxJsonDepth = 512;

// Objects with more keys than this find a key through a hash index while
// they are built; smaller ones are searched in place, which is faster there.
inline constexpr size_t kIndexedObjectKeys = 16;

// The value of `text`, which must be one whole JSON value (white space around
// it aside). Object keys keep their order; a repeated key keeps its first
// place and takes the last value. nullopt when the text is not JSON or
// nests deeper than kMaxJsonDepth.
std::optional<Json> parseJson(std::string_view text);

// Sets every entry of `source` on `target` (both objects): a key already in
// `target` gets the new value in its place, others are appended in order.
// Linear in the two sizes, where assigning key by key searches the whole
// target for each key.
void mergeObject(Json& target, const Json& source);

}  // namespace wren

#pragma once
// The simulator's JSON type and the two helpers every handler needs. The
// simulator is fed whatever a developer's build of the bridge sends, so parsing
// never throws and printing never throws on bytes that are not UTF-8.
#include <nlohmann/json.hpp>

#include <string>

namespace wren::sim {

using Json = nlohmann::ordered_json;

// Parses text; a discarded value (is_discarded()) when it is not JSON.
inline Json parseJson(const std::string& text) { return Json::parse(text, nullptr, false); }

// One line of JSON; invalid UTF-8 is replaced rather than thrown on.
inline std::string dumpJson(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace wren::sim

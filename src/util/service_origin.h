#pragma once
// Where the local protection service listens. Every address of the system,
// the data relay's included, is built on this origin.
#include <string>

namespace wren {

inline constexpr const char* kDefaultServiceOrigin = "http://127.0.0.1:37848";

// $WREN_SERVICE_ORIGIN when set and non-empty (a trailing "/" is dropped),
// else kDefaultServiceOrigin. Read once.
const std::string& serviceOrigin();

}  // namespace wren

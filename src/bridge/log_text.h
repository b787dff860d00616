#pragma once
// How the dispatcher's log lines print a page value: the way a "%@" prints
// an object, so the lines read the same whatever the page sent.
#include <string>

#include "util/json.h"

namespace wren {

// A text as itself, a number or boolean as its JSON text, a dictionary or
// list in its one-line form, an absent value (nullptr) as "(null)".
std::string objectText(const Json* value);

}  // namespace wren

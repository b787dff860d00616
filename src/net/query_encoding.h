#pragma once
// The query-string and form-body encoding of a parameters dictionary. Pure
// functions; any thread.
#include <string>
#include <string_view>

#include "util/json.h"

namespace wren {

// The query/form encoding: keys sorted byte-wise, nested objects as
// key%5Bsub%5D=v, arrays as key%5B%5D=v per element, null as the bare key,
// true/false as 1/0, numbers in shortest round-trip form; bytes outside
// A-Z a-z 0-9 - . _ ~ / ? as upper-case %XX ("%20" for a space). Anything
// but an object gives "".
std::string queryStringFromParameters(const Json& parameters);
// url + "?" or "&" (when url already holds a "?") + the query; url
// unchanged for empty parameters.
std::string appendQuery(const std::string& url, const Json& parameters);
// Every byte outside A-Z a-z 0-9 - . _ ~ / ? as upper-case %XX.
std::string percentEncodeQueryComponent(std::string_view s);

}  // namespace wren

#pragma once
// Judging and decoding an HTTP answer: status, media type, JSON body. Pure
// functions; any thread.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "net/http_types.h"
#include "util/json.h"

namespace wren {

// The media types a JSON decoder takes when none are named for the request.
inline const std::vector<std::string> kDefaultJsonMediaTypes = {"application/json", "text/json", "text/javascript"};

// The media type of a Content-Type value: lower case, parameters dropped.
std::string mediaType(std::string_view contentType);

// What an answer decodes to: a body (nullopt for an empty one) or an error.
struct DecodedAnswer {
  std::optional<Json> body;
  std::optional<HttpError> error;
};

// Status 200..299 first, then (for a non-empty body) the media type against
// `accepted`, then the body: empty or a single space is nothing, otherwise
// any one JSON value (an object, an array, a text, a number, a boolean or
// null) within the depth bound of util/json_parse.h. A body with anything
// after its value (a NUL byte and more text, say) does not decode.
DecodedAnswer decodeAnswer(long status, const std::optional<std::string>& contentType, const std::string& body,
                           const std::vector<std::string>& accepted);

// The body as JSON, whatever the status or type said; nullopt when it is
// empty or does not decode. What a failed raw POST hands over.
std::optional<Json> decodeLoosely(const std::string& body);

// "not found" for 404 and so on; a generic phrase for codes not listed.
std::string statusText(long status);

}  // namespace wren

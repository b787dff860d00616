#pragma once
// Request header hygiene: what a caller's header may look like on the wire.
// Pure functions; any thread.
#include <string>
#include <string_view>

#include "net/http_types.h"

namespace wren {

// A header value with every control byte (0x00-0x1F, TAB included, and 0x7F)
// percent-encoded as "%XX", so page data can never inject a header line or
// smuggle a byte that a parser on the way reads differently.
std::string safeHeaderValue(std::string_view value);
// Whether safeHeaderValue would change the value.
bool needsHeaderEscaping(std::string_view value);
// A name that can stand before ": " on its own line: not empty, no control
// byte, blank or ':'.
bool isSendableHeaderName(std::string_view name);
// `base` with every header of `overrides` applied in order: one of the same
// name (case-insensitive) is replaced where it stands, others are appended.
Headers mergeHeaders(Headers base, const Headers& overrides);
// The same, moving the overriding strings instead of copying them.
Headers mergeHeaders(Headers base, Headers&& overrides);
// Writes into `line` (replacing what it held, so one buffer serves a whole
// list) the line libcurl sends for (name, value): "Name: value", or "Name;"
// for an empty value (libcurl would drop "Name:" instead of sending it empty).
void writeCurlHeaderLine(std::string& line, std::string_view name, std::string_view value);

}  // namespace wren

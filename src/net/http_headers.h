#pragma once
// Request header hygiene: what a caller's header may look like on the wire.
// Pure functions; any thread.
#include <string>
#include <string_view>
#include <vector>

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

// Request headers in their final form, built once by whoever knows the
// names: one line a header as libcurl takes it ("Name: value", or "Name;" for
// an empty value, which libcurl would otherwise drop instead of sending it
// empty), each ending in NUL, one after another in one buffer. Values are
// made safe as they are added; names are the caller's to keep sendable. A
// rating sends sixty headers, so this spares it a string pair, a merge and a
// copy for each.
class HeaderLines {
 public:
  void reserve(size_t count, size_t bytes);
  // Appends one header. `name` must be sendable (isSendableHeaderName), as
  // fixed names are; the value goes through safeHeaderValue's escaping.
  void add(std::string_view name, std::string_view value);
  size_t size() const { return starts_.size(); }
  bool empty() const { return starts_.empty(); }
  // The i-th line, NUL-terminated.
  const char* line(size_t i) const { return text_.data() + starts_[i]; }
  // Whether a header of this name (case-insensitive) was added.
  bool contains(std::string_view name) const;

 private:
  std::string text_;
  std::vector<size_t> starts_;
};

}  // namespace wren

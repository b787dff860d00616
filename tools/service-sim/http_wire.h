#pragma once
// The HTTP/1.1 text format as the raw server reads and writes it: a request
// head into a WireRequest (header values kept exactly as sent, only the
// surrounding blanks trimmed), and a Response into bytes.
#include <httplib.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace wren::sim {

// One request as it arrived. Headers stay in a plain list in arrival order:
// a rating carries sixty of them, and the HTTP library's case-insensitive map
// made every insertion and lookup a chain of per-character tolower() calls.
struct WireRequest {
  std::string method, target, version;
  std::string path;  // the target up to its "?"
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;

  // The first value sent under `name` (compared ignoring ASCII case), all of
  // it; nullptr when absent.
  const std::string* header(std::string_view name) const;
  bool hasHeader(std::string_view name) const { return header(name) != nullptr; }
  // The value up to its first NUL byte, "" when absent: how the HTTP library
  // reads the framing headers (Content-Length, Connection, ...).
  std::string headerText(std::string_view name) const;
};

// ASCII case-insensitive equality and prefix test of header names.
bool sameHeaderName(std::string_view a, std::string_view b);
bool startsWithIgnoringCase(std::string_view text, std::string_view prefix);

// Parses the request line and header lines (the head without its final blank
// line). False, with *error set, when it is not HTTP/1.x.
bool parseRequestHead(std::string_view head, WireRequest* req, std::string* error);

// Whether the connection stays open after this request (HTTP/1.1 unless
// "Connection: close"; HTTP/1.0 only with "Connection: keep-alive").
bool wantsKeepAlive(const WireRequest& req);

// Status line, the response's headers, Content-Length and Connection, then the
// body (left out for HEAD requests), appended to *out.
void appendResponse(const httplib::Response& res, bool keepAlive, bool headRequest, std::string* out);
std::string serializeResponse(const httplib::Response& res, bool keepAlive, bool headRequest);

}  // namespace wren::sim

#pragma once
// The HTTP/1.1 text format as the raw server reads and writes it: a request
// head into the HTTP library's Request struct (header values kept exactly as
// sent, only the surrounding blanks trimmed), and a Response into bytes.
#include <httplib.h>

#include <string>

namespace wren::sim {

// Parses the request line and header lines (the head without its final blank
// line). False, with *error set, when it is not HTTP/1.x.
bool parseRequestHead(const std::string& head, httplib::Request* req, std::string* error);

// Whether the connection stays open after this request (HTTP/1.1 unless
// "Connection: close"; HTTP/1.0 only with "Connection: keep-alive").
bool wantsKeepAlive(const httplib::Request& req);

// Status line, the response's headers, Content-Length and Connection, then the
// body (left out for HEAD requests).
std::string serializeResponse(const httplib::Response& res, bool keepAlive, bool headRequest);

}  // namespace wren::sim

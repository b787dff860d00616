#include "http_wire.h"

#include <strings.h>

namespace wren::sim {

namespace {

std::string_view trimBlanks(std::string_view text) {
  size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string_view::npos) return {};
  size_t end = text.find_last_not_of(" \t");
  return text.substr(begin, end - begin + 1);
}

char lowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

const char* reasonPhrase(int status) {
  switch (status) {
    case 100: return "Continue";
    case 200: return "OK";
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 404: return "Not Found";
    case 413: return "Payload Too Large";
    case 431: return "Request Header Fields Too Large";
    case 500: return "Internal Server Error";
    case 501: return "Not Implemented";
    case 503: return "Service Unavailable";
    default: return "Status";
  }
}

}  // namespace

bool sameHeaderName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && startsWithIgnoringCase(a, b);
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i)
    if (lowerAscii(text[i]) != lowerAscii(prefix[i])) return false;
  return true;
}

const std::string* WireRequest::header(std::string_view name) const {
  for (const auto& [key, value] : headers)
    if (sameHeaderName(key, name)) return &value;
  return nullptr;
}

std::string WireRequest::headerText(std::string_view name) const {
  const std::string* value = header(name);
  return value ? std::string(value->c_str()) : std::string();
}

bool parseRequestHead(std::string_view head, WireRequest* req, std::string* error) {
  size_t lineEnd = head.find("\r\n");
  std::string_view requestLine = head.substr(0, lineEnd);
  size_t sp1 = requestLine.find(' ');
  size_t sp2 = sp1 == std::string_view::npos ? sp1 : requestLine.find(' ', sp1 + 1);
  if (sp2 == std::string_view::npos || sp1 == 0 || sp2 == sp1 + 1) {
    *error = "malformed request line";
    return false;
  }
  req->method = requestLine.substr(0, sp1);
  req->target = requestLine.substr(sp1 + 1, sp2 - sp1 - 1);
  req->version = requestLine.substr(sp2 + 1);
  if (req->version.rfind("HTTP/1.", 0) != 0) {
    *error = "unsupported protocol " + req->version;
    return false;
  }
  req->path = req->target.substr(0, req->target.find('?'));

  for (size_t pos = lineEnd; pos != std::string_view::npos && pos < head.size();) {
    size_t start = pos + 2;
    size_t end = head.find("\r\n", start);
    std::string_view line = head.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
    pos = end;
    if (line.empty()) continue;
    if ((line[0] == ' ' || line[0] == '\t') && !req->headers.empty()) {
      // An obsolete folded continuation line: part of the previous value.
      std::string& value = req->headers.back().second;
      value += ' ';
      value += trimBlanks(line);
      continue;
    }
    size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0 || line.find_first_of(" \t") < colon) {
      *error = "malformed header line";
      return false;
    }
    req->headers.emplace_back(line.substr(0, colon), trimBlanks(line.substr(colon + 1)));
  }
  return true;
}

bool wantsKeepAlive(const WireRequest& req) {
  std::string connection = req.headerText("Connection");
  if (req.version == "HTTP/1.0") return strcasecmp(connection.c_str(), "keep-alive") == 0;
  return strcasecmp(connection.c_str(), "close") != 0;
}

void appendResponse(const httplib::Response& res, bool keepAlive, bool headRequest, std::string* out) {
  int status = res.status > 0 ? res.status : 500;
  out->append("HTTP/1.1 ").append(std::to_string(status)).append(" ").append(reasonPhrase(status)).append("\r\n");
  for (const auto& [name, value] : res.headers) {
    if (strcasecmp(name.c_str(), "Content-Length") == 0 || strcasecmp(name.c_str(), "Connection") == 0) continue;
    out->append(name).append(": ").append(value).append("\r\n");
  }
  out->append("Content-Length: ").append(std::to_string(res.body.size())).append("\r\n");
  out->append("Connection: ").append(keepAlive ? "keep-alive" : "close").append("\r\n\r\n");
  if (!headRequest) out->append(res.body);
}

std::string serializeResponse(const httplib::Response& res, bool keepAlive, bool headRequest) {
  std::string out;
  appendResponse(res, keepAlive, headRequest, &out);
  return out;
}

}  // namespace wren::sim

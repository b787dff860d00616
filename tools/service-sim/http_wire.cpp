#include "http_wire.h"

#include <strings.h>

namespace wren::sim {

namespace {

std::string trimBlanks(const std::string& text) {
  size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string::npos) return "";
  size_t end = text.find_last_not_of(" \t");
  return text.substr(begin, end - begin + 1);
}

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

bool parseRequestHead(const std::string& head, httplib::Request* req, std::string* error) {
  size_t lineEnd = head.find("\r\n");
  std::string requestLine = head.substr(0, lineEnd);
  size_t sp1 = requestLine.find(' ');
  size_t sp2 = sp1 == std::string::npos ? sp1 : requestLine.find(' ', sp1 + 1);
  if (sp2 == std::string::npos || sp1 == 0 || sp2 == sp1 + 1) {
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

  std::string lastName;
  for (size_t pos = lineEnd; pos != std::string::npos && pos < head.size();) {
    size_t start = pos + 2;
    size_t end = head.find("\r\n", start);
    std::string line = head.substr(start, end == std::string::npos ? std::string::npos : end - start);
    pos = end;
    if (line.empty()) continue;
    if ((line[0] == ' ' || line[0] == '\t') && !lastName.empty()) {
      // An obsolete folded continuation line: part of the previous value.
      auto last = req->headers.upper_bound(lastName);
      (--last)->second += " " + trimBlanks(line);
      continue;
    }
    size_t colon = line.find(':');
    if (colon == std::string::npos || colon == 0 || line.find_first_of(" \t") < colon) {
      *error = "malformed header line";
      return false;
    }
    lastName = line.substr(0, colon);
    req->headers.emplace(lastName, trimBlanks(line.substr(colon + 1)));
  }
  return true;
}

bool wantsKeepAlive(const httplib::Request& req) {
  std::string connection = req.get_header_value("Connection");
  if (req.version == "HTTP/1.0") return strcasecmp(connection.c_str(), "keep-alive") == 0;
  return strcasecmp(connection.c_str(), "close") != 0;
}

std::string serializeResponse(const httplib::Response& res, bool keepAlive, bool headRequest) {
  int status = res.status > 0 ? res.status : 500;
  std::string out = "HTTP/1.1 " + std::to_string(status) + " " + reasonPhrase(status) + "\r\n";
  for (const auto& [name, value] : res.headers) {
    if (strcasecmp(name.c_str(), "Content-Length") == 0 || strcasecmp(name.c_str(), "Connection") == 0) continue;
    out += name + ": " + value + "\r\n";
  }
  out += "Content-Length: " + std::to_string(res.body.size()) + "\r\n";
  out += std::string("Connection: ") + (keepAlive ? "keep-alive" : "close") + "\r\n\r\n";
  if (!headRequest) out += res.body;
  return out;
}

}  // namespace wren::sim

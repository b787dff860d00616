#pragma once
// Writes the simulator's stdout: one JSON object a line, flushed at once, so a
// developer (or a test reading the pipe) sees each request as it arrives.
// Shared by the server threads; one lock keeps lines whole.
#include <httplib.h>

#include <cstdio>
#include <functional>
#include <mutex>
#include <string>

#include "http_wire.h"
#include "sim_json.h"

namespace wren::sim {

class EventLog {
 public:
  // Rewrites a header value before it is printed (to hide secrets).
  using Redactor = std::function<std::string(const std::string& name, const std::string& value)>;

  EventLog(std::FILE* out, bool quiet) : out_(out), quiet_(quiet) {}

  // Always written (listening lines, the service's own log records).
  void event(const Json& line);
  // {"server","method","target","headers","body"}; skipped with --quiet.
  void request(const std::string& server, const httplib::Request& req, const Redactor& redact = nullptr);
  // The same line for a request of the raw server, its headers in the order
  // the HTTP library's map would list them (by name, ignoring case).
  void request(const std::string& server, const WireRequest& req);

 private:
  template <typename HeaderList>
  void requestLine(const std::string& server, const std::string& method, const std::string& target,
                   const HeaderList& headers, const std::string& body, const Redactor& redact);
  std::FILE* out_;
  bool quiet_;
  std::mutex mutex_;
};

}  // namespace wren::sim

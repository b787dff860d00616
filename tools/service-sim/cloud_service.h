#pragma once
// The simulated cloud mail-scan service (HTTPS): the scan and feedback paths
// that the bridge relays pages' requests to. Runs on the TLS server's worker
// threads; stateless apart from the borrowed rules and log.
#include <httplib.h>

#include <string>

#include "event_log.h"
#include "rules.h"

namespace wren::sim {

class CloudService {
 public:
  CloudService(const Rules& rules, EventLog& log) : rules_(rules), log_(log) {}

  void install(httplib::Server& server);

  // The Authorization value as it may be printed: the token replaced by
  // "<redacted>" (tokens are secrets), the scheme word kept as sent.
  static std::string redactAuthorization(const std::string& value);
  // True for "Bearer X" / "bearer X" with a real token X (not "(null)").
  static bool hasBearerToken(const std::string& value);

 private:
  void logRequest(const httplib::Request& req);
  void handleScan(const httplib::Request& req, httplib::Response& res);
  void handleFeedback(const httplib::Request& req, httplib::Response& res);

  const Rules& rules_;
  EventLog& log_;
};

}  // namespace wren::sim

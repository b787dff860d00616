#pragma once
// The simulated local protection service: settings, commands, rating and the
// data relay under /BrowserExt/. Runs on the raw HTTP server's connection
// threads and owns the switchable state (toolbar, scan flags, per-address
// mail-scan switch), guarded by one lock; rules and the log are borrowed.
#include <httplib.h>

#include <map>
#include <mutex>
#include <string>

#include "event_log.h"
#include "http_wire.h"
#include "rules.h"
#include "sim_json.h"

namespace wren::sim {

struct LocalServiceConfig {
  bool toolbar = true, autoScan = true, manualScan = true, veldrin = true;
  std::string productVersion;
  std::string cloudOrigin;  // "https://127.0.0.1:Q" when the cloud runs, else ""
};

class LocalService {
 public:
  LocalService(LocalServiceConfig config, const Rules& rules, EventLog& log);

  // Answers one request (any method, any path); thread-safe.
  void handle(const WireRequest& req, httplib::Response& res);

 private:
  using Query = std::map<std::string, std::string>;

  void handleSetting(const WireRequest& req, httplib::Response& res);
  void handleCommand(const WireRequest& req, httplib::Response& res);
  void handleRating(const WireRequest& req, httplib::Response& res);
  void handleSendData(const WireRequest& req, httplib::Response& res);
  void handleBlockPage(httplib::Response& res);

  Json updateSetting(const Query& q, int* status);
  Json vdsSettings(const Query& q);

  LocalServiceConfig config_;
  const Rules& rules_;
  EventLog& log_;
  std::mutex mutex_;
  std::map<std::string, bool> veldrinByAddress_;  // decoded address -> EnableVeldrin
};

}  // namespace wren::sim

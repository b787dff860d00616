#include "event_log.h"

#include <array>
#include <string_view>

namespace wren::sim {

namespace {

// Headers that the HTTP library adds to a request itself; the bridge never
// sent them, so printing them would mislead.
constexpr std::array<std::string_view, 4> kLibraryHeaders{"REMOTE_ADDR", "REMOTE_PORT", "LOCAL_ADDR", "LOCAL_PORT"};

bool isLibraryHeader(const std::string& name) {
  for (auto h : kLibraryHeaders)
    if (name == h) return true;
  return false;
}

}  // namespace

void EventLog::event(const Json& line) {
  std::string text = dumpJson(line) + "\n";
  std::lock_guard lock(mutex_);
  // A closed stdout must not take the server down: the write simply fails.
  std::fwrite(text.data(), 1, text.size(), out_);
  std::fflush(out_);
}

void EventLog::request(const std::string& server, const httplib::Request& req, const Redactor& redact) {
  if (quiet_) return;
  Json headers = Json::object();
  for (const auto& [name, value] : req.headers) {
    if (isLibraryHeader(name)) continue;
    std::string shown = redact ? redact(name, value) : value;
    // A repeated header is shown once, its values joined as HTTP would fold them.
    if (headers.contains(name))
      headers[name] = headers[name].get<std::string>() + ", " + shown;
    else
      headers[name] = shown;
  }
  event(Json{{"server", server},
             {"method", req.method},
             {"target", req.target},
             {"headers", std::move(headers)},
             {"body", req.body}});
}

}  // namespace wren::sim

#include "event_log.h"

#include <algorithm>
#include <array>
#include <cctype>
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

template <typename HeaderList>
void EventLog::requestLine(const std::string& server, const std::string& method, const std::string& target,
                           const HeaderList& headerList, const std::string& body, const Redactor& redact) {
  Json headers = Json::object();
  for (const auto& [name, value] : headerList) {
    if (isLibraryHeader(name)) continue;
    std::string shown = redact ? redact(name, value) : value;
    // A repeated header is shown once, its values joined as HTTP would fold them.
    if (headers.contains(name))
      headers[name] = headers[name].template get<std::string>() + ", " + shown;
    else
      headers[name] = shown;
  }
  event(Json{{"server", server}, {"method", method}, {"target", target}, {"headers", std::move(headers)},
             {"body", body}});
}

void EventLog::request(const std::string& server, const httplib::Request& req, const Redactor& redact) {
  if (quiet_) return;
  requestLine(server, req.method, req.target, req.headers, req.body, redact);
}

void EventLog::request(const std::string& server, const WireRequest& req) {
  if (quiet_) return;
  auto headers = req.headers;
  auto lessIgnoringCase = [](unsigned char x, unsigned char y) { return std::tolower(x) < std::tolower(y); };
  std::stable_sort(headers.begin(), headers.end(), [&](const auto& a, const auto& b) {
    return std::lexicographical_compare(a.first.begin(), a.first.end(), b.first.begin(), b.first.end(),
                                        lessIgnoringCase);
  });
  requestLine(server, req.method, req.target, headers, req.body, nullptr);
}

}  // namespace wren::sim

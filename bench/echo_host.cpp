// The floor of a native-messaging host: it reads a frame, parses it with
// nlohmann, and answers a "rateItems" page message at once with its items,
// each given a level; no HTTP, no run loop. host_load runs it beside
// wren-bridge so that the host's CPU per answer is read against what framing
// and JSON alone cost on the same machine in the same run.
//
// It says hello first, answers any other page message with an empty
// dictionary (so a driver's readiness probe is answered), and ends when stdin
// ends.
#include <unistd.h>

#include <string>

#include "host/framing.h"
#include "util/json.h"

namespace {

// Reads exactly n bytes; false at the end of input or an error.
bool readExactly(char* buf, size_t n) {
  for (size_t got = 0; got < n;) {
    ssize_t r = ::read(STDIN_FILENO, buf + got, n - got);
    if (r <= 0) return false;
    got += static_cast<size_t>(r);
  }
  return true;
}

}  // namespace

int main() {
  using wren::Json;  // the host's own dictionary type, so both pay the same JSON
  if (!wren::writeFrame(STDOUT_FILENO, Json{{"type", "hello"}, {"version", "echo"}, {"protocol", 1}}.dump()))
    return 1;
  std::string payload;
  for (;;) {
    char header[wren::kFrameHeaderBytes];
    if (!readExactly(header, sizeof header)) return 0;
    payload.resize(wren::decodeFrameHeader(header));
    if (!readExactly(payload.data(), payload.size())) return 0;
    Json frame = Json::parse(payload, nullptr, false);
    if (!frame.is_object() || frame.value("type", "") != "message") continue;
    Json answer = {{"type", "message"}, {"name", frame["name"]}, {"page", frame["page"]}};
    Json& info = frame["userInfo"];
    if (frame["name"] == "rateItems" && info.is_object() && info["urls"].is_array()) {
      Json results = std::move(info["urls"]);
      for (Json& item : results) item["level"] = 1;
      answer["userInfo"] = {{"results", std::move(results)}};
    } else {
      answer["userInfo"] = Json::object();
    }
    if (!wren::writeFrame(STDOUT_FILENO, answer.dump())) return 0;
  }
}

#pragma once
// The JSON envelope carried in every native-messaging frame: what the
// extension may send the host, and the frames the host sends back. Parsing is
// strict about types so that a bad frame is dropped whole with a reason,
// never half-handled. docs/native-messaging.md describes the format.
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "util/json.h"

namespace wren {

inline constexpr int kProtocolVersion = 1;

// A page script's message; "page" names the sender and is echoed verbatim.
struct IncomingMessage {
  std::string name;
  Json page;
  std::optional<Json> userInfo;  // nullopt: the message has no dictionary
};
// The extension's answer to one of our browser calls.
struct IncomingResult {
  long long id = 0;
  Json value;  // null: none
};
// A toolbar or popover hook from the browser side.
struct IncomingHook {
  std::string name;
  Json window;
};
// Events of the popup that renders the popover.
struct IncomingPopover {
  std::string event;                    // viewWillAppear, viewDidAppear, click, mouseEntered, mouseExited
  std::optional<std::string> appearance;  // "light" or "dark", for the view events
  std::optional<std::string> control;     // the row button's outlet name, for the others
};

using Incoming = std::variant<IncomingMessage, IncomingResult, IncomingHook, IncomingPopover>;

struct ParsedEnvelope {
  std::optional<Incoming> value;
  std::string error;  // why the frame is dropped, when value is empty
};

ParsedEnvelope parseEnvelope(std::string_view payload);

// The first frame: the host's version and protocol, and the local service's
// origin, the only one whose documents may report a block page.
Json helloFrame(std::string_view version, std::string_view serviceOrigin);
Json messageFrame(std::string_view name, const Json& page, std::optional<Json> userInfo);
Json callFrame(long long id, std::string_view method, Json arguments);
Json popoverStateFrame(const Json& state);
Json popoverDismissFrame();

// Compact JSON; bytes that are not UTF-8 become U+FFFD instead of aborting.
std::string serializeFrame(const Json& frame);

}  // namespace wren

#include "host/envelope.h"

#include <array>

#include "util/json_parse.h"

namespace wren {
namespace {

constexpr std::array kHookNames = {"toolbarItemClicked", "validateToolbarItem", "popoverViewController",
                                   "popoverWillShow", "popoverDidClose"};
constexpr std::array kViewEvents = {"viewWillAppear", "viewDidAppear"};
constexpr std::array kControlEvents = {"click", "mouseEntered", "mouseExited"};

template <size_t N>
bool oneOf(const std::string& s, const std::array<const char*, N>& names) {
  for (const char* n : names)
    if (s == n) return true;
  return false;
}

ParsedEnvelope fail(std::string why) { return {std::nullopt, std::move(why)}; }

ParsedEnvelope parseMessage(Json& j) {
  auto name = j.find("name");
  if (name == j.end() || !name->is_string()) return fail("message without a text \"name\"");
  auto page = j.find("page");
  if (page == j.end()) return fail("message without \"page\"");
  IncomingMessage m{std::move(name->get_ref<std::string&>()), std::move(*page), std::nullopt};
  auto info = j.find("userInfo");
  if (info != j.end() && !info->is_null()) {
    if (!info->is_object()) return fail("message \"" + m.name + "\" with a \"userInfo\" that is not an object");
    m.userInfo = std::move(*info);
  }
  return {Incoming{std::move(m)}, {}};
}

ParsedEnvelope parseResult(Json& j) {
  auto id = j.find("id");
  if (id == j.end() || !id->is_number_integer()) return fail("result without an integer \"id\"");
  IncomingResult r{id->get<long long>(), Json()};
  if (auto v = j.find("value"); v != j.end()) r.value = std::move(*v);
  return {Incoming{std::move(r)}, {}};
}

ParsedEnvelope parseHook(Json& j) {
  auto name = j.find("name");
  if (name == j.end() || !name->is_string()) return fail("hook without a text \"name\"");
  std::string n = name->get<std::string>();
  if (!oneOf(n, kHookNames)) return fail("unknown hook \"" + n + "\"");
  IncomingHook h{std::move(n), Json()};
  if (auto w = j.find("window"); w != j.end()) h.window = std::move(*w);
  return {Incoming{std::move(h)}, {}};
}

ParsedEnvelope parsePopover(Json& j) {
  auto event = j.find("event");
  if (event == j.end() || !event->is_string()) return fail("popover frame without a text \"event\"");
  IncomingPopover p{event->get<std::string>(), std::nullopt, std::nullopt};
  if (oneOf(p.event, kViewEvents)) {
    auto a = j.find("appearance");
    if (a != j.end()) {
      if (!a->is_string() || (*a != "light" && *a != "dark"))
        return fail("popover " + p.event + " with an \"appearance\" other than \"light\" or \"dark\"");
      p.appearance = a->get<std::string>();
    }
  } else if (oneOf(p.event, kControlEvents)) {
    auto c = j.find("control");
    if (c == j.end() || !c->is_string()) return fail("popover " + p.event + " without a text \"control\"");
    p.control = c->get<std::string>();
  } else {
    return fail("unknown popover event \"" + p.event + "\"");
  }
  return {Incoming{std::move(p)}, {}};
}

}  // namespace

ParsedEnvelope parseEnvelope(std::string_view payload) {
  std::optional<Json> parsed = parseJson(payload);
  if (!parsed) return fail("frame is not JSON or nests deeper than " + std::to_string(kMaxJsonDepth) + " levels");
  Json& j = *parsed;
  if (!j.is_object()) return fail("frame is not a JSON object");
  auto type = j.find("type");
  if (type == j.end() || !type->is_string()) return fail("frame without a text \"type\"");
  const std::string& t = type->get_ref<const std::string&>();
  if (t == "message") return parseMessage(j);
  if (t == "result") return parseResult(j);
  if (t == "hook") return parseHook(j);
  if (t == "popover") return parsePopover(j);
  return fail("unknown frame type \"" + t + "\"");
}

Json helloFrame(std::string_view version, std::string_view serviceOrigin) {
  return Json{{"type", "hello"}, {"version", version}, {"protocol", kProtocolVersion}, {"serviceOrigin", serviceOrigin}};
}

Json messageFrame(std::string_view name, const Json& page, std::optional<Json> userInfo) {
  Json f{{"type", "message"}, {"name", name}, {"page", page}};
  if (userInfo) f["userInfo"] = std::move(*userInfo);
  return f;
}

Json callFrame(long long id, std::string_view method, Json arguments) {
  Json f{{"type", "call"}, {"id", id}, {"method", method}};
  if (arguments.is_object())
    for (auto& [k, v] : arguments.items()) f[k] = v;
  return f;
}

Json popoverStateFrame(const Json& state) { return Json{{"type", "popover"}, {"state", state}}; }

Json popoverDismissFrame() { return Json{{"type", "popover"}, {"dismiss", true}}; }

std::string serializeFrame(const Json& frame) {
  return frame.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace wren

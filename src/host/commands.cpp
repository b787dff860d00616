#include "host/commands.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <string_view>

#include "bridge/safari_extension_handler.h"
#include "host/cli_browser.h"
#include "host/install.h"
#include "host/session.h"
#include "net/ajax.h"
#include "popover/popover_state.h"
#include "popover/safari_extension_view_controller.h"
#include "server/setting.h"
#include "server/wren_browser_ext_server.h"
#include "util/defaults_store.h"
#include "util/json.h"
#include "util/json_parse.h"
#include "util/logging.h"
#include "util/version.h"

namespace wren {
namespace {

// A command gives up after this long even if something is still pending; the
// HTTP client's own limit is 60 s.
constexpr std::chrono::seconds kCommandDeadline{75};

// Pages never get an answer to these, whatever they send; "block_page" is
// answered only after an earlier one in the same process, which a command
// never has.
constexpr std::array<std::string_view, 4> kNeverAnswered = {"send_data", "vd_open_new_tab", "vd_get_user_email",
                                                            "block_page"};

const char* onOff(bool b) { return b ? "on" : "off"; }

// Names under the top-level domain "invalid" are reserved never to resolve
// (RFC 2606); the build's placeholder cloud address is one.
bool neverResolves(std::string_view url) {
  constexpr std::string_view kInvalidTld = ".invalid";
  size_t start = url.find("://");
  start = start == std::string_view::npos ? 0 : start + 3;
  std::string_view host = url.substr(start, url.find_first_of(":/?#", start) - start);
  if (!host.empty() && host.back() == '.') host.remove_suffix(1);
  std::string lower(host);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  return lower == kInvalidTld.substr(1) || lower.ends_with(kInvalidTld);
}

std::string describeFailure(const std::optional<HttpResponse>& response, const std::optional<HttpError>& error) {
  if (error) return error->localizedDescription;
  if (response) return "HTTP status " + std::to_string(response->statusCode);
  return "the answer was not a JSON object";
}

// Runs the loop until no transfer is left in flight and the work they posted
// has run. A chain of browser lookups posts one step a turn, so the loop is
// kept turning (each check posts a no-op to wake it) until several turns in a
// row found nothing in flight.
void runUntilIdle(RunLoop& loop) {
  constexpr int kQuietTurns = 8;
  bool expired = false;
  auto deadline = loop.addTimer(std::chrono::duration_cast<std::chrono::milliseconds>(kCommandDeadline),
                                [&expired] { expired = true; });
  int quietTurns = 0;
  loop.runUntil([&] {
    quietTurns = loop.pendingTransfers() == 0 ? quietTurns + 1 : 0;
    if (expired || quietTurns >= kQuietTurns) return true;
    if (quietTurns > 0) loop.post([] {});
    return false;
  });
  if (!expired) loop.cancelTimer(deadline);
}

// The process's domain objects, with the command line's browser in place of
// the extension.
struct CliWorld {
  explicit CliWorld(std::optional<PageProperties> page = std::nullopt)
      : services(sharedServices()),
        loop(services.loop),
        setting(services.setting),
        server(services.server),
        popover(services.popover),
        browser(loop, stdout, std::move(page)),
        session(services, browser),
        handler(session.handler()) {}
  Services services;
  RunLoop& loop;
  Setting& setting;
  WrenBrowserExtServer& server;
  SafariExtensionViewController& popover;
  CliBrowser browser;
  BrowserSession session;
  SafariExtensionHandler& handler;
};

}  // namespace

int runSendCommand(const std::vector<std::string>& args) {
  if (args.empty() || args.size() > 2) {
    std::fprintf(stderr, "usage: wren-bridge send NAME [JSON]\n");
    return 2;
  }
  std::optional<Json> userInfo;
  if (args.size() == 2) {
    std::optional<Json> parsed = parseJson(args[1]);
    if (!parsed || !parsed->is_object()) {
      std::fprintf(stderr, "wren-bridge send: the dictionary must be a JSON object\n");
      return 2;
    }
    userInfo = std::move(*parsed);
  }
  CliWorld world;
  // As in the browser: a toolbar validation loads the service's switches, so
  // the message meets the same gate it would meet there.
  world.handler.validateToolbarItemInWindow(Json());
  runUntilIdle(world.loop);
  const bool toolbarOn = world.setting.bToolbarEnabled();
  if (!toolbarOn)
    std::fprintf(stderr, "wren-bridge send: the local service at %s reports the toolbar as off (or did not answer); "
                 "the message is dropped, as a page's would be\n", world.server.origin().c_str());
  const std::string& name = args[0];
  world.handler.messageReceivedWithName(name, Json("cli"), userInfo);
  runUntilIdle(world.loop);
  Logging::flush();
  if (world.browser.answers() > 0) return 0;
  // A page that waits for an answer would wait in vain: say so, and why it may be.
  if (toolbarOn && std::find(kNeverAnswered.begin(), kNeverAnswered.end(), name) != kNeverAnswered.end()) {
    std::fprintf(stderr, "wren-bridge send: %s is never answered; the page got no answer, as it expects\n",
                 name.c_str());
    return 0;
  }
  std::fprintf(stderr, "wren-bridge send: the page got no answer to \"%s\"", name.c_str());
  if (!toolbarOn)
    std::fprintf(stderr, "\n");
  else if (!SafariExtensionHandler::handlesMessage(name))
    std::fprintf(stderr, ": there is no such message (the README shows each one with an example)\n");
  else
    std::fprintf(stderr, ": the bridge drops a message whose dictionary lacks what it needs (see the README's "
                 "example of %s), one whose feature is off, and some whose service request failed\n", name.c_str());
  return 1;
}

int runPopoverCommand(const std::vector<std::string>& args) {
  std::optional<PageProperties> page;
  bool dark = false;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--dark") {
      dark = true;
    } else if ((args[i] == "--url" || args[i] == "--title") && i + 1 < args.size()) {
      if (!page) page = PageProperties{};
      (args[i] == "--url" ? page->url : page->title) = args[i + 1];
      ++i;
    } else {
      std::fprintf(stderr, "usage: wren-bridge popover [--url URL] [--title TITLE] [--dark]\n");
      return 2;
    }
  }
  CliWorld world(page);
  // The browser's order around one showing of the popover.
  world.handler.validateToolbarItemInWindow(Json());
  runUntilIdle(world.loop);
  world.handler.popoverViewController();
  world.handler.popoverWillShowInWindow(Json());
  runUntilIdle(world.loop);
  world.popover.setAppearance(dark ? Appearance::Dark : Appearance::Light);
  world.popover.viewWillAppear();
  world.popover.viewDidAppear();
  runUntilIdle(world.loop);
  std::string text = describePopover(popoverState(world.popover));
  if (!text.empty() && text.back() != '\n') text += '\n';
  std::fputs(text.c_str(), stdout);
  Logging::flush();
  return 0;
}

int runDoctorCommand() {
  // The report states every failure itself; the HTTP client's log lines
  // would only repeat them, raw, ahead of it.
  setLogSink([](std::string_view) {});
  CliWorld world;
  std::printf("wren-bridge %s\n", kVersion);

  bool answered = false;
  world.server.loadSettings(
      [&](const Json& settings) {
        answered = true;
        applySettings(world.setting, settings);
        std::printf("Local service at %s: answering.\n", world.server.origin().c_str());
        std::printf("  Toolbar:         %s\n", onOff(world.setting.bToolbarEnabled()));
        std::printf("  Automatic scan:  %s\n", onOff(world.setting.bAutoScanEnabled()));
        std::printf("  Manual scanner:  %s\n", onOff(world.setting.bManualScanEnabled()));
      },
      [&](const std::optional<HttpResponse>& response, const std::optional<HttpError>& error) {
        std::printf("Local service at %s: NOT answering (%s).\n", world.server.origin().c_str(),
                    describeFailure(response, error).c_str());
        std::printf("  Is the Wren protection service running? Pages get no ratings until it answers.\n");
      });
  runUntilIdle(world.loop);

  DefaultsStore& store = DefaultsStore::standard();
  std::printf("Defaults store: %s (%s)\n", store.path().c_str(),
              store.available() ? "available" : "unavailable: nothing is remembered between runs");
  std::printf("  Remembered web-mail account: %s\n", store.stringForKey("curEmail") ? "yes" : "none");
  const std::string cloud = world.setting.veldrinConfigItem().veldrinAPI();
  std::printf("Cloud mail-scan service: %s\n", cloud.c_str());
  if (neverResolves(cloud))
    std::printf("  This placeholder address never resolves: mail scans fail until WREN_VELDRIN_API names the real\n"
                "  service (or the local service names it, or the build sets the CMake option WREN_VELDRIN_API).\n");
  std::printf("Browsers:\n");
  for (const auto& line : doctorBrowserReport().lines) std::printf("  %s\n", line.c_str());
  Logging::flush();
  setLogSink(nullptr);
  return answered ? 0 : 1;
}

}  // namespace wren

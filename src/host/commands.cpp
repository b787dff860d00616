#include "host/commands.h"

#include <cstdio>

#include "bridge/safari_extension_handler.h"
#include "host/cli_browser.h"
#include "net/ajax.h"
#include "server/setting.h"
#include "server/wren_browser_ext_server.h"
#include "util/defaults_store.h"
#include "util/json.h"
#include "util/logging.h"
#include "util/version.h"

namespace wren {
namespace {

// A command gives up after this long even if something is still pending; the
// HTTP client's own limit is 60 s.
constexpr std::chrono::seconds kCommandDeadline{75};

const char* onOff(bool b) { return b ? "on" : "off"; }

std::string describeFailure(const std::optional<HttpResponse>& response, const std::optional<HttpError>& error) {
  if (error) return error->localizedDescription;
  if (response) return "HTTP status " + std::to_string(response->statusCode);
  return "the answer was not a JSON object";
}

// Runs the loop until no transfer is left in flight. Lookups of the command
// line browser complete within the turn after they are asked, so they never
// outlast the transfers that started them.
void runUntilIdle(RunLoop& loop) {
  bool expired = false;
  auto deadline = loop.addTimer(std::chrono::duration_cast<std::chrono::milliseconds>(kCommandDeadline),
                                [&expired] { expired = true; });
  loop.runUntil([&] { return expired || loop.pendingTransfers() == 0; });
  if (!expired) loop.cancelTimer(deadline);
}

}  // namespace

int runSendCommand(const std::vector<std::string>& args) {
  if (args.empty() || args.size() > 2) {
    std::fprintf(stderr, "usage: wren-bridge send NAME [JSON]\n");
    return 2;
  }
  std::optional<Json> userInfo;
  if (args.size() == 2) {
    Json parsed = Json::parse(args[1], nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object()) {
      std::fprintf(stderr, "wren-bridge send: the dictionary must be a JSON object\n");
      return 2;
    }
    userInfo = std::move(parsed);
  }
  RunLoop& loop = RunLoop::main();
  Ajax& ajax = Ajax::shared();
  Setting& setting = Setting::sharedInstance();
  WrenBrowserExtServer& server = WrenBrowserExtServer::sharedInstance();
  CliBrowser browser(loop, stdout);
  server.setBrowser(&browser);
  SafariExtensionHandler handler(server, setting, ajax, browser, kVersion);

  // As a toolbar validation would: learn the service's switches first, so the
  // message meets the same gate it would meet in the browser.
  const std::string& name = args[0];
  server.loadSettings(
      [&](const Json& settings) {
        applySettings(setting, settings);
        handler.messageReceivedWithName(name, Json("cli"), userInfo);
      },
      [&](const std::optional<HttpResponse>& response, const std::optional<HttpError>& error) {
        clearSettings(setting);
        std::fprintf(stderr, "wren-bridge send: the local service at %s did not answer the settings request (%s)\n",
                     server.origin().c_str(), describeFailure(response, error).c_str());
        handler.messageReceivedWithName(name, Json("cli"), userInfo);
      });
  runUntilIdle(loop);
  Logging::flush();
  return 0;
}

int runDoctorCommand() {
  RunLoop& loop = RunLoop::main();
  WrenBrowserExtServer& server = WrenBrowserExtServer::sharedInstance();
  Setting& setting = Setting::sharedInstance();
  std::printf("wren-bridge %s\n", kVersion);

  bool answered = false;
  server.loadSettings(
      [&](const Json& settings) {
        answered = true;
        applySettings(setting, settings);
        std::printf("Local service at %s: answering.\n", server.origin().c_str());
        std::printf("  Toolbar:         %s\n", onOff(setting.bToolbarEnabled()));
        std::printf("  Automatic scan:  %s\n", onOff(setting.bAutoScanEnabled()));
        std::printf("  Manual scanner:  %s\n", onOff(setting.bManualScanEnabled()));
      },
      [&](const std::optional<HttpResponse>& response, const std::optional<HttpError>& error) {
        std::printf("Local service at %s: NOT answering (%s).\n", server.origin().c_str(),
                    describeFailure(response, error).c_str());
        std::printf("  Is the Wren protection service running? Pages get no ratings until it answers.\n");
      });
  runUntilIdle(loop);

  DefaultsStore& store = DefaultsStore::standard();
  std::printf("Defaults store: %s (%s)\n", store.path().c_str(),
              store.available() ? "available" : "unavailable: nothing is remembered between runs");
  auto email = store.stringForKey("curEmail");
  std::printf("  Remembered web-mail account: %s\n", email ? "yes" : "none");
  std::printf("Cloud mail-scan service: %s\n", setting.veldrinConfigItem().veldrinAPI().c_str());
  Logging::flush();
  return answered ? 0 : 1;
}

}  // namespace wren

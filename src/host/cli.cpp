#include "host/cli.h"

#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "host/commands.h"
#include "host/install.h"
#include "host/native_host.h"
#include "util/logging.h"
#include "util/version.h"

namespace wren {
namespace {

constexpr const char* kUsage = R"(wren-bridge: the native half of the Wren web-protection extension.

Usage:
  wren-bridge                      serve one browser connection over native messaging (stdin/stdout)
  wren-bridge chrome-extension://ID/
  wren-bridge MANIFEST EXTENSION_ID
                                   the same, as Chromium-family browsers and Firefox start it
  wren-bridge send NAME [JSON]     act as one page: refresh the settings, send the message NAME with the
                                   dictionary JSON, print every answer as one JSON line
  wren-bridge popover [--url URL] [--title TITLE] [--dark]
                                   show the toolbar popover's rows as a user would see them, optionally
                                   with the active tab showing that page
  wren-bridge install [--system | --user-data-dir DIR] [--browser NAME] [--extension-id ID]...
                                   register the host with Chromium, Chrome, Edge, Brave, Vivaldi, Firefox
  wren-bridge uninstall [same options]
                                   remove what install wrote
  wren-bridge doctor               check the local service, the defaults store and the browsers' registrations
  wren-bridge --version            print the version
  wren-bridge --help               print this text

Environment:
  WREN_SERVICE_ORIGIN   the local service's origin (default http://127.0.0.1:37848)
  WREN_VELDRIN_API      the cloud mail-scan service's base URL
  WREN_CA_FILE          a PEM bundle to trust for HTTPS instead of the system's
  XDG_CONFIG_HOME       where wren-bridge/defaults.json is kept (default ~/.config)
)";

}  // namespace

int runCli(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) return runNativeMessagingHost();
  const std::string& cmd = args[0];
  if (cmd == "--version" || cmd == "version") {
    std::printf("wren-bridge %s\n", kVersion);
    return 0;
  }
  if (cmd == "--help" || cmd == "-h" || cmd == "help") {
    std::fputs(kUsage, stdout);
    return 0;
  }
  std::vector<std::string> rest(args.begin() + 1, args.end());
  if (cmd == "send") return runSendCommand(rest);
  if (cmd == "doctor") return runDoctorCommand();
  if (cmd == "popover") return runPopoverCommand(rest);
  if (cmd == "install") return runInstallCommand(rest);
  if (cmd == "uninstall") return runUninstallCommand(rest);
  // A browser starts the host with its own arguments: the extension's origin
  // (Chromium family, possibly followed by --parent-window on some systems) or
  // a manifest path and an extension id (Firefox).
  if (cmd.rfind("chrome-extension://", 0) == 0 || cmd.find('/') != std::string::npos || args.size() == 2) {
    std::string joined;
    for (const auto& a : args) joined += (joined.empty() ? "" : " ") + a;
    systemLog("[wren-bridge] started by the browser with: " + joined);
    return runNativeMessagingHost();
  }
  std::fprintf(stderr, "wren-bridge: unknown command \"%s\"\n\n%s", cmd.c_str(), kUsage);
  return 2;
}

}  // namespace wren

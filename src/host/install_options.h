#pragma once
// The options of install, uninstall and doctor: the scope (per user,
// --system, or one Chromium profile with --user-data-dir), the browsers
// (--browser) and, for install, the extensions allowed to connect
// (--extension-id), checked before anything is written.
//
// Runs on the calling thread, synchronously; owns nothing beyond the call.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/browser_locations.h"

namespace wren {

inline constexpr std::string_view kInstallUsage =
    "Usage: wren-bridge install [--system | --user-data-dir DIR] [--browser NAME]... [--extension-id ID]...\n"
    "       wren-bridge uninstall [--system | --user-data-dir DIR] [--browser NAME]...\n"
    "\n"
    "Registers wren-bridge (this executable) as the native messaging host \"com.wren.bridge\".\n"
    "  (default)            for the current user\n"
    "  --system             for every user (needs root)\n"
    "  --user-data-dir DIR  for one Chromium-family profile: DIR/NativeMessagingHosts\n"
    "  --browser NAME       chromium, chrome, edge, brave, vivaldi, firefox or all (default: every\n"
    "                       browser found here, by its executable on PATH or its configuration folder)\n"
    "  --extension-id ID    an extension allowed to connect (repeatable): a Chromium id (32 letters a-p)\n"
    "                       or a Firefox add-on id; default the Wren extension's own ids\n";

struct Selection : LocationChoice {
  bool browsersNamed = false;  // --browser given: written whether present or not
  std::vector<std::string> chromiumIds;
  std::vector<std::string> firefoxIds;
  bool help = false;
};

// The selection the arguments make, or nullopt with the reason in *error.
// --extension-id is accepted only when allowIds is true.
std::optional<Selection> parseSelection(const std::vector<std::string>& args, bool allowIds, std::string* error);

}  // namespace wren

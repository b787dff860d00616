#pragma once
// Registering wren-bridge with the browsers: writes or removes the native
// messaging host manifest "com.wren.bridge.json" for the Chromium family
// (Chromium, Chrome, Edge, Brave, Vivaldi) and Firefox, per user, system-wide
// or into one Chromium profile, and checks the registration for `doctor`.
//
// Without --browser, only browsers that are present (an executable of theirs
// on PATH, or their configuration folder) are written to; a named browser is
// written to anyway. The folders install creates are recorded (per user, and
// system-wide), and uninstall removes them again once they are empty.
//
// Runs on the calling thread, synchronously; owns nothing beyond the call.
//
//   install   [--system | --user-data-dir DIR] [--browser NAME]... [--extension-id ID]...
//   uninstall [--system | --user-data-dir DIR] [--browser NAME]...
#include <filesystem>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "util/json.h"

namespace wren {

// The host's name as browsers know it (browsers reject upper case here).
inline constexpr std::string_view kNativeHostName = "com.wren.bridge";
// The reference extension's id while it is loaded unpacked: fixed by the
// public key in extension/manifest.json.
inline constexpr std::string_view kDevelopmentExtensionId = "kkkadkgcagokddgolmdbmdhkpnbhhahc";
// The Firefox variant's id (browser_specific_settings.gecko.id).
inline constexpr std::string_view kFirefoxExtensionId = "wren-bridge@wren.example";

enum class BrowserFamily { kChromium, kFirefox };

// A browser that reads host manifests, and where it reads them.
struct BrowserInfo {
  std::string_view name;         // as given to --browser: "chromium", "chrome", ...
  std::string_view displayName;  // "Chromium", "Google Chrome", ...
  BrowserFamily family;
  std::string_view userDir;      // under the config home (Chromium family) or $HOME (Firefox)
  std::string_view systemDir;    // absolute; empty when the browser has no known system-wide location
  std::vector<std::string_view> executables;  // names it is installed under on PATH
};
const std::vector<BrowserInfo>& knownBrowsers();

// What the commands need from the process, so tests can give their own.
struct InstallEnvironment {
  std::filesystem::path home;        // $HOME
  std::filesystem::path configHome;  // $XDG_CONFIG_HOME, else $HOME/.config
  std::filesystem::path executable;  // the wren-bridge executable to register
  std::filesystem::path systemRoot = "/";  // prefix of the system-wide locations
  std::string path;                  // $PATH, searched for the browsers' executables
  std::ostream* out = nullptr;       // what was done, one line each
  std::ostream* err = nullptr;       // usage errors and failures
};
// This process: $HOME, $XDG_CONFIG_HOME, /proc/self/exe resolved, $PATH, stdout and stderr.
InstallEnvironment currentInstallEnvironment();

// The manifest for one browser family.
Json hostManifest(BrowserFamily family, const std::filesystem::path& executable,
                  const std::vector<std::string>& extensionIds);

// Exit status: 0 done, 1 a location could not be written (or removed), 2 bad arguments.
int runInstallCommand(const std::vector<std::string>& args);
int runUninstallCommand(const std::vector<std::string>& args);
int runInstallCommand(const std::vector<std::string>& args, const InstallEnvironment& env);
int runUninstallCommand(const std::vector<std::string>& args, const InstallEnvironment& env);

// For doctor: one line per location of the selected browsers (the same
// options as uninstall select them): registered or not, the manifest valid
// (JSON, name, type, absolute path to an executable, allowed ids), and a
// framed round trip with the registered executable (started with no
// arguments: its hello frame is read, stdin closed, its exit awaited).
// ok is false when no location is registered or a registered one is broken.
struct DoctorBrowserReport {
  std::vector<std::string> lines;
  bool ok = false;
};
DoctorBrowserReport doctorBrowserReport(const std::vector<std::string>& args = {});
DoctorBrowserReport doctorBrowserReport(const std::vector<std::string>& args, const InstallEnvironment& env);

}  // namespace wren

#pragma once
// Where browsers read host manifests on this machine: the table of supported
// browsers, the file each reads per user, system-wide or in one Chromium
// profile, whether a browser is present here at all, and where install notes
// the folders it created.
//
// Runs on the calling thread, synchronously; owns nothing beyond the call.
#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/host_manifest.h"

namespace wren {

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
// The browser --browser NAME means, or null.
const BrowserInfo* findBrowser(std::string_view name);

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

enum class Scope { kUser, kSystem, kProfile };

// The locations a command works on.
struct LocationChoice {
  std::vector<Scope> scopes;
  std::filesystem::path profileDir;  // for kProfile
  std::vector<const BrowserInfo*> browsers;
};

struct Location {
  std::string label;  // e.g. "Chromium" or "Firefox (system)"
  BrowserFamily family;
  std::filesystem::path file;
  Scope scope;
  const BrowserInfo* browser;  // null for a profile
};

// Where the chosen manifests go; browsers without a location in a scope are
// named in `skipped` (when given).
std::vector<Location> locationsOf(const LocationChoice& choice, const InstallEnvironment& env,
                                  std::vector<std::string>* skipped);

// Why the browser counts as present in the scope (an executable of its on
// PATH, or its configuration folder), or nullopt when it does not.
std::optional<std::string> presenceOf(const BrowserInfo& b, Scope scope, const InstallEnvironment& env);
// The line that says an absent browser was skipped, and how to write it anyway.
std::string absenceText(const BrowserInfo& b, Scope scope, const InstallEnvironment& env);

// The record of the folders install created in a user or system scope.
std::filesystem::path createdFoldersRecord(Scope scope, const InstallEnvironment& env);

}  // namespace wren

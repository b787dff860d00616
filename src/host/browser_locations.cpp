#include "host/browser_locations.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

namespace wren {
namespace fs = std::filesystem;

namespace {

// Where install notes the folders it created, so uninstall can take them away
// again once they are empty: under the user's config home, and for --system
// under /var/lib.
constexpr std::string_view kCreatedFoldersFile = "created-folders.json";
constexpr std::string_view kUserRecordDir = "wren-bridge";
constexpr std::string_view kSystemRecordDir = "var/lib/wren-bridge";

// The folder a browser owns in a scope: its configuration folder (user) or
// the one holding its system-wide manifest folder.
fs::path browserFolder(const BrowserInfo& b, Scope scope, const InstallEnvironment& env) {
  if (scope == Scope::kSystem) return (env.systemRoot / fs::path(b.systemDir).relative_path()).parent_path();
  const fs::path& base = b.family == BrowserFamily::kFirefox ? env.home : env.configHome;
  return (base / b.userDir).parent_path();
}

std::optional<fs::path> findOnPath(std::string_view name, const std::string& path) {
  std::string_view rest = path;
  while (!rest.empty()) {
    size_t colon = rest.find(':');
    std::string_view dir = rest.substr(0, colon);
    rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
    // An empty or relative entry means the current folder, which says nothing about this machine.
    if (dir.empty() || dir.front() != '/') continue;
    fs::path candidate = fs::path(dir) / name;
    struct stat st {};
    if (::stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) && ::access(candidate.c_str(), X_OK) == 0)
      return candidate;
  }
  return std::nullopt;
}

}  // namespace

const std::vector<BrowserInfo>& knownBrowsers() {
  static const std::vector<BrowserInfo> browsers = {
      {"chromium", "Chromium", BrowserFamily::kChromium, "chromium/NativeMessagingHosts",
       "/etc/chromium/native-messaging-hosts", {"chromium", "chromium-browser"}},
      {"chrome", "Google Chrome", BrowserFamily::kChromium, "google-chrome/NativeMessagingHosts",
       "/etc/opt/chrome/native-messaging-hosts", {"google-chrome", "google-chrome-stable"}},
      {"edge", "Microsoft Edge", BrowserFamily::kChromium, "microsoft-edge/NativeMessagingHosts",
       "/etc/opt/edge/native-messaging-hosts", {"microsoft-edge", "microsoft-edge-stable"}},
      {"brave", "Brave", BrowserFamily::kChromium, "BraveSoftware/Brave-Browser/NativeMessagingHosts", "",
       {"brave-browser", "brave"}},
      {"vivaldi", "Vivaldi", BrowserFamily::kChromium, "vivaldi/NativeMessagingHosts", "",
       {"vivaldi", "vivaldi-stable"}},
      {"firefox", "Firefox", BrowserFamily::kFirefox, ".mozilla/native-messaging-hosts",
       "/usr/lib/mozilla/native-messaging-hosts", {"firefox", "firefox-esr"}},
  };
  return browsers;
}

InstallEnvironment currentInstallEnvironment() {
  InstallEnvironment env;
  if (const char* home = std::getenv("HOME"); home && *home) {
    env.home = home;
  } else if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) {
    env.home = pw->pw_dir;
  }
  // Chromium-family browsers keep their configuration under the XDG config home.
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  env.configHome = xdg && xdg[0] == '/' ? fs::path(xdg) : env.home / ".config";
  std::error_code ec;
  env.executable = fs::read_symlink("/proc/self/exe", ec);
  if (const char* path = std::getenv("PATH")) env.path = path;
  env.out = &std::cout;
  env.err = &std::cerr;
  return env;
}

const BrowserInfo* findBrowser(std::string_view name) {
  for (const BrowserInfo& b : knownBrowsers())
    if (b.name == name) return &b;
  return nullptr;
}

std::vector<Location> locationsOf(const LocationChoice& s, const InstallEnvironment& env,
                                  std::vector<std::string>* skipped) {
  std::vector<Location> out;
  for (Scope scope : s.scopes) {
    if (scope == Scope::kProfile) {
      out.push_back({"Chromium profile " + s.profileDir.string(), BrowserFamily::kChromium,
                     s.profileDir / "NativeMessagingHosts" / manifestFileName(), scope, nullptr});
      continue;
    }
    for (const BrowserInfo* b : s.browsers) {
      if (scope == Scope::kSystem) {
        if (b->systemDir.empty()) {
          if (skipped) skipped->push_back(std::string(b->displayName) + ": no system-wide location; install per user");
          continue;
        }
        fs::path dir = env.systemRoot / fs::path(b->systemDir).relative_path();
        out.push_back({std::string(b->displayName) + " (system)", b->family, dir / manifestFileName(), scope, b});
      } else {
        const fs::path& base = b->family == BrowserFamily::kFirefox ? env.home : env.configHome;
        out.push_back({std::string(b->displayName), b->family, base / b->userDir / manifestFileName(), scope, b});
      }
    }
  }
  return out;
}

std::optional<std::string> presenceOf(const BrowserInfo& b, Scope scope, const InstallEnvironment& env) {
  for (std::string_view exe : b.executables)
    if (auto found = findOnPath(exe, env.path)) return found->string();
  std::error_code ec;
  if (fs::path folder = browserFolder(b, scope, env); fs::is_directory(folder, ec)) return folder.string();
  return std::nullopt;
}

std::string absenceText(const BrowserInfo& b, Scope scope, const InstallEnvironment& env) {
  std::string exes;
  for (std::string_view exe : b.executables) exes += std::string(exes.empty() ? "" : " or ") + std::string(exe);
  return std::string(b.displayName) + (scope == Scope::kSystem ? " (system)" : "") + ": not found (no " + exes +
         " on PATH, no " + browserFolder(b, scope, env).string() + "); skipped, --browser " + std::string(b.name) +
         " registers it anyway";
}

fs::path createdFoldersRecord(Scope scope, const InstallEnvironment& env) {
  if (scope == Scope::kSystem) return env.systemRoot / kSystemRecordDir / kCreatedFoldersFile;
  return env.configHome / kUserRecordDir / kCreatedFoldersFile;
}

}  // namespace wren

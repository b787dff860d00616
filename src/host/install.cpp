#include "host/install.h"

#include <fcntl.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <thread>

#include "host/framing.h"
#include "host/install_files.h"

extern char** environ;

namespace wren {
namespace fs = std::filesystem;

namespace {

constexpr std::string_view kManifestDescription = "Wren web protection: the bridge to the local protection service";
// Chromium extension ids are 32 letters a-p (a hex digest written in a-p).
constexpr size_t kChromiumIdLength = 32;
// A host that has not said hello by then would look dead to a browser too.
constexpr auto kProbeHelloTimeout = std::chrono::seconds(5);
// Browsers kill a host about two seconds after closing its stdin; one that
// takes longer than this to exit is reported.
constexpr auto kProbeExitTimeout = std::chrono::seconds(3);
constexpr auto kProbeExitPoll = std::chrono::milliseconds(20);
// Where install notes the folders it created, so uninstall can take them away
// again once they are empty: under the user's config home, and for --system
// under /var/lib.
constexpr std::string_view kCreatedFoldersFile = "created-folders.json";
constexpr std::string_view kUserRecordDir = "wren-bridge";
constexpr std::string_view kSystemRecordDir = "var/lib/wren-bridge";

constexpr std::string_view kInstallUsage =
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

enum class Scope { kUser, kSystem, kProfile };

struct Selection {
  std::vector<Scope> scopes;
  fs::path profileDir;
  std::vector<const BrowserInfo*> browsers;
  bool browsersNamed = false;  // --browser given: written whether present or not
  std::vector<std::string> chromiumIds;
  std::vector<std::string> firefoxIds;
  bool help = false;
};

struct Location {
  std::string label;  // e.g. "Chromium" or "Firefox (system)"
  BrowserFamily family;
  fs::path file;
  Scope scope;
  const BrowserInfo* browser;  // null for a profile
};

std::ostream& outOf(const InstallEnvironment& env) { return env.out ? *env.out : std::cout; }
std::ostream& errOf(const InstallEnvironment& env) { return env.err ? *env.err : std::cerr; }

bool isChromiumId(std::string_view id) {
  if (id.size() != kChromiumIdLength) return false;
  for (char c : id)
    if (c < 'a' || c > 'p') return false;
  return true;
}

// Firefox add-on ids are either an address-like "name@domain" or a
// brace-enclosed UUID.
bool isFirefoxId(std::string_view id) {
  if (id.size() >= 2 && id.front() == '{' && id.back() == '}') {
    for (char c : id.substr(1, id.size() - 2))
      if (!std::isxdigit(static_cast<unsigned char>(c)) && c != '-') return false;
    return id.size() > 2;
  }
  size_t at = id.find('@');
  if (at == std::string_view::npos || at + 1 >= id.size() || id.find('@', at + 1) != std::string_view::npos)
    return false;
  for (char c : id)
    if (!std::isalnum(static_cast<unsigned char>(c)) && std::string_view("._+-@").find(c) == std::string_view::npos)
      return false;
  return true;
}

const BrowserInfo* findBrowser(std::string_view name) {
  for (const BrowserInfo& b : knownBrowsers())
    if (b.name == name) return &b;
  return nullptr;
}

void addUnique(std::vector<std::string>& list, std::string value) {
  for (const auto& v : list)
    if (v == value) return;
  list.push_back(std::move(value));
}

std::optional<Selection> parseSelection(const std::vector<std::string>& args, bool allowIds, std::string* error) {
  Selection s;
  bool system = false;
  std::optional<fs::path> profile;
  bool allBrowsers = false;
  for (size_t i = 0; i < args.size(); ++i) {
    std::string flag = args[i], value;
    bool hasInline = false;
    if (auto eq = flag.find('='); flag.rfind("--", 0) == 0 && eq != std::string::npos) {
      value = flag.substr(eq + 1);
      flag.resize(eq);
      hasInline = true;
    }
    if (flag == "--help" || flag == "-h") {
      s.help = true;
      continue;
    }
    if (flag == "--system") {
      system = true;
      continue;
    }
    const bool takesValue = flag == "--user-data-dir" || flag == "--browser" || (allowIds && flag == "--extension-id");
    if (!takesValue) {
      *error = "unknown option " + args[i];
      return std::nullopt;
    }
    if (!hasInline) {
      if (i + 1 >= args.size()) {
        *error = flag + " needs a value";
        return std::nullopt;
      }
      value = args[++i];
    }
    if (flag == "--user-data-dir") {
      if (value.empty()) {
        *error = "--user-data-dir needs a folder";
        return std::nullopt;
      }
      std::error_code ec;
      profile = fs::absolute(value, ec);
      if (ec) profile = fs::path(value);
    } else if (flag == "--browser") {
      if (value == "all") {
        allBrowsers = true;
      } else if (const BrowserInfo* b = findBrowser(value)) {
        bool present = false;
        for (auto* x : s.browsers) present = present || x == b;
        if (!present) s.browsers.push_back(b);
      } else {
        *error = "unknown browser \"" + value + "\" (chromium, chrome, edge, brave, vivaldi, firefox or all)";
        return std::nullopt;
      }
    } else {
      std::string id = value;
      // An origin as Chromium writes it is accepted too.
      if (id.rfind("chrome-extension://", 0) == 0) {
        id = id.substr(std::strlen("chrome-extension://"));
        if (!id.empty() && id.back() == '/') id.pop_back();
      }
      if (isChromiumId(id)) {
        addUnique(s.chromiumIds, id);
      } else if (isFirefoxId(id)) {
        addUnique(s.firefoxIds, id);
      } else {
        *error = "\"" + value + "\" is neither a Chromium extension id (32 letters a-p) nor a Firefox add-on id";
        return std::nullopt;
      }
    }
  }
  if (system && profile) {
    *error = "--system and --user-data-dir exclude each other";
    return std::nullopt;
  }
  s.browsersNamed = allBrowsers || !s.browsers.empty();
  if (allBrowsers || s.browsers.empty()) {
    s.browsers.clear();
    for (const BrowserInfo& b : knownBrowsers()) s.browsers.push_back(&b);
  }
  if (profile) {
    // A profile folder belongs to one Chromium-family browser; Firefox keeps
    // its manifests elsewhere.
    std::vector<const BrowserInfo*> chromium;
    for (auto* b : s.browsers)
      if (b->family == BrowserFamily::kChromium) chromium.push_back(b);
    if (chromium.empty()) {
      *error = "--user-data-dir is a Chromium-family profile; Firefox has none";
      return std::nullopt;
    }
    s.browsers = chromium;
    s.scopes = {Scope::kProfile};
    s.profileDir = *profile;
  } else {
    s.scopes = {system ? Scope::kSystem : Scope::kUser};
  }
  if (s.chromiumIds.empty()) s.chromiumIds.emplace_back(kDevelopmentExtensionId);
  if (s.firefoxIds.empty()) s.firefoxIds.emplace_back(kFirefoxExtensionId);
  return s;
}

std::string manifestFileName() { return std::string(kNativeHostName) + ".json"; }

// Where the selection's manifests go; browsers without a location in the
// scope are named in `skipped`.
std::vector<Location> locationsOf(const Selection& s, const InstallEnvironment& env,
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

// Why the browser counts as present in the scope, or nullopt when it does not.
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

std::string manifestText(const Location& where, const Selection& s, const fs::path& exe) {
  const auto& ids = where.family == BrowserFamily::kFirefox ? s.firefoxIds : s.chromiumIds;
  return hostManifest(where.family, exe, ids).dump(2) + "\n";
}

// ---- doctor -------------------------------------------------------------------

std::vector<std::string> manifestProblems(const Json& m, BrowserFamily family) {
  std::vector<std::string> problems;
  if (!m.is_object()) return {"not a JSON object"};
  auto text = [&](const char* key) -> std::optional<std::string> {
    auto it = m.find(key);
    if (it == m.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
  };
  if (text("name") != std::string(kNativeHostName))
    problems.push_back("\"name\" is not \"" + std::string(kNativeHostName) + "\"");
  if (text("type") != std::string("stdio")) problems.push_back("\"type\" is not \"stdio\"");
  auto path = text("path");
  if (!path || path->empty() || (*path)[0] != '/') {
    problems.push_back("\"path\" is not an absolute path");
  } else {
    struct stat st {};
    if (::stat(path->c_str(), &st) != 0)
      problems.push_back(*path + " does not exist");
    else if (!S_ISREG(st.st_mode) || ::access(path->c_str(), X_OK) != 0)
      problems.push_back(*path + " is not an executable file");
  }
  const char* idsKey = family == BrowserFamily::kFirefox ? "allowed_extensions" : "allowed_origins";
  auto ids = m.find(idsKey);
  if (ids == m.end() || !ids->is_array() || ids->empty()) {
    problems.push_back(std::string("no \"") + idsKey + "\"");
  } else {
    for (const Json& id : *ids) {
      bool ok = id.is_string();
      if (ok && family == BrowserFamily::kChromium) {
        const std::string s = id.get<std::string>();
        constexpr std::string_view kScheme = "chrome-extension://";
        // Chromium ignores an origin without its trailing slash.
        ok = s.size() == kScheme.size() + kChromiumIdLength + 1 && s.rfind(kScheme, 0) == 0 && s.back() == '/' &&
             isChromiumId(std::string_view(s).substr(kScheme.size(), kChromiumIdLength));
      }
      if (!ok) problems.push_back(std::string("bad entry in \"") + idsKey + "\": " + id.dump());
    }
  }
  return problems;
}

enum class ReadOutcome { kDone, kTimedOut, kEnded };

// Reads exactly n bytes before the deadline.
ReadOutcome readWithDeadline(int fd, char* buf, size_t n, std::chrono::steady_clock::time_point deadline) {
  size_t done = 0;
  while (done < n) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return ReadOutcome::kTimedOut;
    pollfd p{fd, POLLIN, 0};
    int r = ::poll(&p, 1, static_cast<int>(left.count()));
    if (r < 0 && errno == EINTR) continue;
    if (r == 0) return ReadOutcome::kTimedOut;
    if (r < 0) return ReadOutcome::kEnded;
    ssize_t got = ::read(fd, buf + done, n - done);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return ReadOutcome::kEnded;
    done += static_cast<size_t>(got);
  }
  return ReadOutcome::kDone;
}

// Waits for the child until the deadline; -1 when it is still running.
int waitWithDeadline(pid_t pid, std::chrono::steady_clock::time_point deadline, int* status) {
  for (;;) {
    pid_t r = ::waitpid(pid, status, WNOHANG);
    if (r == pid) return 0;
    if (r < 0 && errno != EINTR) return 0;
    if (std::chrono::steady_clock::now() >= deadline) return -1;
    std::this_thread::sleep_for(kProbeExitPoll);
  }
}

struct ProbeResult {
  bool ok = false;
  std::string text;
};

// Starts the host as a browser would (no arguments, frames on stdin and
// stdout), reads its hello frame, closes its stdin and waits for it to exit.
ProbeResult probeHost(const std::string& exe) {
  int in[2], out[2];
  if (::pipe2(in, O_CLOEXEC) != 0) return {false, std::string("cannot create a pipe: ") + std::strerror(errno)};
  if (::pipe2(out, O_CLOEXEC) != 0) {
    ::close(in[0]);
    ::close(in[1]);
    return {false, std::string("cannot create a pipe: ") + std::strerror(errno)};
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<char*> argv{const_cast<char*>(exe.c_str()), nullptr};
  pid_t pid = -1;
  int spawned = ::posix_spawn(&pid, exe.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(in[0]);
  ::close(out[1]);
  if (spawned != 0) {
    ::close(in[1]);
    ::close(out[0]);
    return {false, std::string("cannot start it: ") + std::strerror(spawned)};
  }

  ProbeResult result;
  auto helloDeadline = std::chrono::steady_clock::now() + kProbeHelloTimeout;
  uint32_t length = 0;
  std::string payload;
  ReadOutcome read = readWithDeadline(out[0], reinterpret_cast<char*>(&length), sizeof length, helloDeadline);
  const bool tooLong = read == ReadOutcome::kDone && length > kMaxOutgoingFrameBytes;
  if (read == ReadOutcome::kDone && !tooLong) {
    payload.resize(length);
    read = readWithDeadline(out[0], payload.data(), length, helloDeadline);
  }
  const bool framed = read == ReadOutcome::kDone && !tooLong;
  Json hello = framed ? Json::parse(payload, nullptr, false) : Json();
  const bool isHello = hello.is_object() && hello.value("type", Json()) == "hello";
  if (tooLong) {
    result.text = "first frame announces " + std::to_string(length) + " bytes, more than a browser accepts";
  } else if (read == ReadOutcome::kTimedOut) {
    result.text = "no hello frame within " + std::to_string(kProbeHelloTimeout.count()) + " s";
  } else if (read == ReadOutcome::kEnded) {
    result.text = "no hello frame: its stdout ended";
  } else if (!isHello) {
    result.text = "first frame is not a hello: " + payload.substr(0, 200);
  } else {
    const Json& version = hello["version"];
    result.text = "hello from version " + (version.is_string() ? version.get<std::string>() : version.dump());
  }

  ::close(in[1]);  // as a browser does when the port closes
  int status = 0;
  if (waitWithDeadline(pid, std::chrono::steady_clock::now() + kProbeExitTimeout, &status) != 0) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, &status, 0);
    result.text += "; did not exit within " + std::to_string(kProbeExitTimeout.count()) +
                   " s of stdin closing (browsers kill such a host)";
  } else if (WIFEXITED(status)) {
    result.text += "; exited " + std::to_string(WEXITSTATUS(status)) + " when stdin closed";
    result.ok = isHello && WEXITSTATUS(status) == 0;
  } else {
    result.text += "; ended by signal " + std::to_string(WTERMSIG(status)) + " when stdin closed";
  }
  ::close(out[0]);
  return result;
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

Json hostManifest(BrowserFamily family, const fs::path& executable, const std::vector<std::string>& extensionIds) {
  Json m = Json::object();
  m["name"] = kNativeHostName;
  m["description"] = kManifestDescription;
  m["path"] = executable.string();
  m["type"] = "stdio";
  Json ids = Json::array();
  for (const auto& id : extensionIds)
    ids.push_back(family == BrowserFamily::kFirefox ? id : "chrome-extension://" + id + "/");
  m[family == BrowserFamily::kFirefox ? "allowed_extensions" : "allowed_origins"] = std::move(ids);
  return m;
}

int runInstallCommand(const std::vector<std::string>& args) {
  return runInstallCommand(args, currentInstallEnvironment());
}

int runUninstallCommand(const std::vector<std::string>& args) {
  return runUninstallCommand(args, currentInstallEnvironment());
}

int runInstallCommand(const std::vector<std::string>& args, const InstallEnvironment& env) {
  std::string error;
  auto selection = parseSelection(args, true, &error);
  if (!selection) {
    errOf(env) << "wren-bridge install: " << error << "\n\n" << kInstallUsage;
    return 2;
  }
  if (selection->help) {
    outOf(env) << kInstallUsage;
    return 0;
  }
  if (env.executable.empty() || !env.executable.is_absolute()) {
    errOf(env) << "wren-bridge install: cannot tell where this executable is\n";
    return 1;
  }
  std::vector<std::string> skipped;
  std::vector<fs::path> created;
  int status = 0;
  bool registered = false;
  for (const Location& where : locationsOf(*selection, env, &skipped)) {
    if (where.browser && !selection->browsersNamed && !presenceOf(*where.browser, where.scope, env)) {
      skipped.push_back(absenceText(*where.browser, where.scope, env));
      continue;
    }
    const std::string text = manifestText(where, *selection, env.executable);
    if (readFile(where.file) == text) {
      outOf(env) << where.label << ": up to date " << where.file.string() << "\n";
      registered = true;
      continue;
    }
    if (writeFileAtomically(where.file, text, &error, &created)) {
      outOf(env) << where.label << ": wrote " << where.file.string() << "\n";
      registered = true;
    } else {
      errOf(env) << where.label << ": cannot write " << where.file.string() << ": " << error << "\n";
      status = 1;
    }
  }
  for (const auto& line : skipped) outOf(env) << line << "\n";
  if (selection->scopes.front() != Scope::kProfile)
    recordCreatedFolders(createdFoldersRecord(selection->scopes.front(), env), created, errOf(env));
  if (!registered && status == 0) {
    errOf(env) << "wren-bridge install: no supported browser found; name one with --browser NAME\n";
    status = 1;
  }
  return status;
}

int runUninstallCommand(const std::vector<std::string>& args, const InstallEnvironment& env) {
  std::string error;
  auto selection = parseSelection(args, false, &error);
  if (!selection) {
    errOf(env) << "wren-bridge uninstall: " << error << "\n\n" << kInstallUsage;
    return 2;
  }
  if (selection->help) {
    outOf(env) << kInstallUsage;
    return 0;
  }
  int status = 0;
  for (const Location& where : locationsOf(*selection, env, nullptr)) {
    std::error_code ec;
    if (fs::remove(where.file, ec)) {
      outOf(env) << where.label << ": removed " << where.file.string() << "\n";
    } else if (ec) {
      errOf(env) << where.label << ": cannot remove " << where.file.string() << ": " << ec.message() << "\n";
      status = 1;
    } else {
      outOf(env) << where.label << ": not registered " << where.file.string() << "\n";
    }
  }
  const Scope scope = selection->scopes.front();
  if (scope == Scope::kProfile) {
    // A profile's manifest folder holds nothing but host manifests; the
    // profile itself is the user's.
    std::error_code ec;
    const fs::path dir = selection->profileDir / "NativeMessagingHosts";
    if (fs::is_directory(dir, ec) && fs::is_empty(dir, ec) && fs::remove(dir, ec))
      outOf(env) << "removed the empty folder " << dir.string() << "\n";
  } else {
    removeEmptyCreatedFolders(createdFoldersRecord(scope, env), outOf(env), errOf(env));
  }
  return status;
}

DoctorBrowserReport doctorBrowserReport(const std::vector<std::string>& args) {
  return doctorBrowserReport(args, currentInstallEnvironment());
}

DoctorBrowserReport doctorBrowserReport(const std::vector<std::string>& args, const InstallEnvironment& env) {
  DoctorBrowserReport report;
  std::string error;
  auto selection = parseSelection(args, false, &error);
  if (!selection) {
    report.lines.push_back("browsers: " + error);
    return report;
  }
  // Without a scope named, both places a browser reads are checked.
  const bool scopeNamed = std::find_if(args.begin(), args.end(), [](const std::string& a) {
                            return a == "--system" || a.rfind("--user-data-dir", 0) == 0;
                          }) != args.end();
  if (!scopeNamed) selection->scopes = {Scope::kUser, Scope::kSystem};

  std::map<std::string, ProbeResult> probes;  // one round trip per executable
  bool anyRegistered = false, anyBroken = false;
  std::string notFound;  // unregistered browsers that are not on this machine, named on one line
  for (const Location& where : locationsOf(*selection, env, nullptr)) {
    auto text = readFile(where.file);
    if (!text) {
      std::error_code ec;
      // A missing registration only matters for a browser that is here or
      // that the user asked about.
      if (where.browser && !selection->browsersNamed && !fs::exists(where.file, ec) &&
          !presenceOf(*where.browser, where.scope, env)) {
        notFound += (notFound.empty() ? "" : ", ") + where.label;
        continue;
      }
      report.lines.push_back(where.label + ": " +
                             (fs::exists(where.file, ec) ? "cannot read " : "not registered (") +
                             where.file.string() + (fs::exists(where.file, ec) ? "" : ")"));
      anyBroken = anyBroken || fs::exists(where.file, ec);
      continue;
    }
    anyRegistered = true;
    Json manifest = Json::parse(*text, nullptr, false);
    auto problems = manifest.is_discarded() ? std::vector<std::string>{"not valid JSON"}
                                            : manifestProblems(manifest, where.family);
    if (!problems.empty()) {
      anyBroken = true;
      std::string line = where.label + ": " + where.file.string() + " is broken:";
      for (size_t i = 0; i < problems.size(); ++i) line += (i ? "; " : " ") + problems[i];
      report.lines.push_back(line);
      continue;
    }
    const std::string exe = manifest["path"].get<std::string>();
    const char* idsKey = where.family == BrowserFamily::kFirefox ? "allowed_extensions" : "allowed_origins";
    std::string ids;
    for (const Json& id : manifest[idsKey]) ids += (ids.empty() ? "" : ", ") + id.get<std::string>();
    report.lines.push_back(where.label + ": registered " + where.file.string() + " -> " + exe + " for " + ids);
    auto probe = probes.find(exe);
    if (probe == probes.end()) probe = probes.emplace(exe, probeHost(exe)).first;
    report.lines.push_back("  round trip: " + probe->second.text);
    anyBroken = anyBroken || !probe->second.ok;
  }
  if (!notFound.empty()) report.lines.push_back("not found on this machine, so not checked: " + notFound);
  if (!anyRegistered) report.lines.push_back("browsers: wren-bridge is not registered; run \"wren-bridge install\"");
  report.ok = anyRegistered && !anyBroken;
  return report;
}

}  // namespace wren

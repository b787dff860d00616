#include "util/defaults_store.h"

#include "util/json_parse.h"
#include "util/whole_file.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>

namespace wren {
namespace {

constexpr const char* kAppDirName = "wren-bridge";
constexpr const char* kFileName = "defaults.json";
// The file holds an address the user typed into a web-mail page: private.
constexpr mode_t kDirMode = 0700;
constexpr mode_t kFileMode = 0600;
// A defaults file is a handful of short keys; anything far larger is not ours
// and is treated as corrupt rather than read into memory.
constexpr std::uintmax_t kMaxFileSize = 1 << 20;
bool isDirectory(const std::filesystem::path& p) {
  struct stat st;
  return ::stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// mkdir -p with kDirMode for every directory it creates.
bool makeDirectories(const std::filesystem::path& dir) {
  if (dir.empty() || isDirectory(dir)) return !dir.empty();
  std::filesystem::path parent = dir.parent_path();
  if (parent != dir && !parent.empty() && !makeDirectories(parent)) return false;
  if (::mkdir(dir.c_str(), kDirMode) == 0) return true;
  return errno == EEXIST && isDirectory(dir);
}

// The store's write lock on its directory, held while the object lives (not
// held when the directory cannot be opened: the write goes ahead unguarded).
// Writers (one process a browser connection may share the store) hold it
// while their temporary exists, so a temporary found while holding it is one
// a killed writer left behind: it still holds the address, and is removed at
// start.
class WriteLock {
 public:
  WriteLock(const std::filesystem::path& dir, bool wait) {
    fd_ = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd_ >= 0 && ::flock(fd_, wait ? LOCK_EX : LOCK_EX | LOCK_NB) == 0) held_ = true;
  }
  ~WriteLock() {
    if (fd_ >= 0) ::close(fd_);  // releases the lock
  }
  WriteLock(const WriteLock&) = delete;
  WriteLock& operator=(const WriteLock&) = delete;
  bool held() const { return held_; }

 private:
  int fd_ = -1;
  bool held_ = false;
};

// Removes the temporaries killed writers left; only while no writer runs.
void removeStaleTemporaries(const std::filesystem::path& file, const std::filesystem::path& dir) {
  WriteLock lock(dir, /*wait=*/false);
  if (!lock.held()) return;  // a writer is busy: its temporary is not stale
  DIR* d = ::opendir(dir.c_str());
  if (!d) return;
  while (dirent* entry = ::readdir(d)) {
    if (isTemporaryOf(file, entry->d_name)) ::unlinkat(::dirfd(d), entry->d_name, 0);
  }
  ::closedir(d);
}

long long clampToLongLong(double d) {
  constexpr double kMax = 9.2233720368547748e18;  // 2^63, the first value out of range
  if (std::isnan(d)) return 0;
  if (d >= kMax) return std::numeric_limits<long long>::max();
  if (d <= -kMax) return std::numeric_limits<long long>::min();
  return static_cast<long long>(d);  // truncates toward zero
}

}  // namespace

DefaultsStore::DefaultsStore(std::filesystem::path file) : file_(std::move(file)) {
  if (file_.empty() || file_.filename().empty()) return;
  std::filesystem::path dir = file_.parent_path();
  if (dir.empty()) dir = ".";
  if (!makeDirectories(dir)) return;
  struct stat st;
  if (::stat(file_.c_str(), &st) != 0) {
    available_ = errno == ENOENT;
    if (available_) removeStaleTemporaries(file_, dir);
    return;
  }
  if (!S_ISREG(st.st_mode)) return;
  int fd = ::open(file_.c_str(), O_RDONLY | O_CLOEXEC);
  available_ = fd >= 0;
  if (!available_) return;
  ::close(fd);
  removeStaleTemporaries(file_, dir);
}

std::filesystem::path DefaultsStore::standardPath() {
  std::filesystem::path base;
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  const char* home = std::getenv("HOME");
  if (xdg && *xdg) {
    base = xdg;
  } else if (home && *home) {
    base = std::filesystem::path(home) / ".config";
  } else {
    return {};
  }
  return base / kAppDirName / kFileName;
}

DefaultsStore& DefaultsStore::standard() {
  static DefaultsStore store(standardPath());
  return store;
}

Json DefaultsStore::read() const {
  if (!available_) return Json::object();
  std::optional<std::string> text = readFile(file_, kMaxFileSize);
  std::optional<Json> parsed = text ? parseJson(*text) : std::nullopt;
  if (!parsed || !parsed->is_object()) return Json::object();  // corrupt: replaced by the next write
  return std::move(*parsed);
}

std::optional<std::string> DefaultsStore::stringForKey(std::string_view key) const {
  Json object = read();
  auto it = object.find(key);
  if (it == object.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

long long DefaultsStore::integerForKey(std::string_view key) const {
  Json object = read();
  auto it = object.find(key);
  if (it == object.end()) return 0;
  if (it->is_number_integer()) {
    if (it->is_number_unsigned()) {
      auto u = it->get<unsigned long long>();
      return u > static_cast<unsigned long long>(std::numeric_limits<long long>::max())
                 ? std::numeric_limits<long long>::max()
                 : static_cast<long long>(u);
    }
    return it->get<long long>();
  }
  if (it->is_number_float()) return clampToLongLong(it->get<double>());
  if (it->is_boolean()) return it->get<bool>() ? 1 : 0;
  if (it->is_string()) {
    // Leading blanks, a sign and digits; the rest ("12.5", "12s") is ignored,
    // as a hand-edited value would be read by any defaults system.
    const std::string& s = it->get_ref<const std::string&>();
    long long value = std::strtoll(s.c_str(), nullptr, 10);
    return value;  // strtoll saturates on overflow
  }
  return 0;
}

bool DefaultsStore::setString(std::string_view key, std::optional<std::string_view> value) {
  if (!available_) return false;
  Json object = read();
  if (value) {
    object[std::string(key)] = std::string(*value);
  } else {
    object.erase(std::string(key));
  }
  return write(object);
}

bool DefaultsStore::write(const Json& object) {
  std::string text = object.dump(2, ' ', false, Json::error_handler_t::replace);
  text.push_back('\n');

  std::filesystem::path dir = file_.parent_path();
  if (dir.empty()) dir = ".";
  WriteLock lock(dir, /*wait=*/true);
  return writeFileAtomically(file_, text, kFileMode);
}

}  // namespace wren

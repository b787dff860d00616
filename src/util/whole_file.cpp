#include "util/whole_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "util/fd_io.h"

namespace wren {
namespace {

// What mkstemp replaces with a unique name.
constexpr std::string_view kTempSuffix = ".XXXXXX";

// Appended piece by piece: gcc 12 at -O3 reports a false -Wrestrict inside
// std::string for `"." + name`.
std::string tempPrefix(const std::filesystem::path& file) {
  std::string prefix = ".";
  prefix += file.filename().native();
  return prefix;
}

std::filesystem::path folderOf(const std::filesystem::path& file) {
  std::filesystem::path dir = file.parent_path();
  return dir.empty() ? "." : dir;
}

bool fail(std::string* error, int savedErrno) {
  if (error) *error = std::strerror(savedErrno);
  return false;
}

}  // namespace

std::optional<std::string> readFile(const std::filesystem::path& file, std::uintmax_t maxBytes) {
  int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string text;
  char buffer[4096];
  for (;;) {
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    text.append(buffer, static_cast<size_t>(n));
    if (text.size() > maxBytes) {
      ::close(fd);
      return std::nullopt;
    }
  }
  ::close(fd);
  return text;
}

bool writeFileAtomically(const std::filesystem::path& file, std::string_view text, mode_t mode, std::string* error) {
  const std::filesystem::path dir = folderOf(file);
  std::string tmp = (dir / tempPrefix(file)).string();
  tmp += kTempSuffix;
  int fd = ::mkstemp(tmp.data());
  if (fd < 0) return fail(error, errno);
  bool ok = ::fchmod(fd, mode) == 0 && writeAll(fd, text) && ::fsync(fd) == 0;
  int savedErrno = errno;
  ok = ::close(fd) == 0 && ok;
  if (ok && ::rename(tmp.c_str(), file.c_str()) == 0) {
    // The rename itself must survive a crash too.
    int dirFd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd >= 0) {
      ::fsync(dirFd);
      ::close(dirFd);
    }
    return true;
  }
  if (ok) savedErrno = errno;
  ::unlink(tmp.c_str());
  return fail(error, savedErrno);
}

bool isTemporaryOf(const std::filesystem::path& file, std::string_view name) {
  const std::string prefix = tempPrefix(file) + '.';
  return name.size() == prefix.size() + kTempSuffix.size() - 1 && name.substr(0, prefix.size()) == prefix;
}

}  // namespace wren

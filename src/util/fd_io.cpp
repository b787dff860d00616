#include "util/fd_io.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace wren {

bool writeAll(int fd, std::string_view data) {
  const char* p = data.data();
  size_t left = data.size();
  while (left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    p += n;
    left -= static_cast<size_t>(n);
  }
  return true;
}

void makeNonBlocking(int fd) {
  struct stat st;
  if (::fstat(fd, &st) != 0 || !(S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode))) return;
  int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0) return;
  if (S_ISFIFO(st.st_mode)) {
    std::string path = "/proc/self/fd/" + std::to_string(fd);
    int access = (flags & O_ACCMODE) == O_RDONLY ? O_RDONLY : O_WRONLY;
    int own = ::open(path.c_str(), access | O_NONBLOCK | O_CLOEXEC);
    if (own >= 0) {
      bool moved = ::dup2(own, fd) == fd;
      ::close(own);
      if (moved) return;
    }
  }
  ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

}  // namespace wren

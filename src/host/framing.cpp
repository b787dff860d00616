#include "host/framing.h"

#include <errno.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>

namespace wren {

bool writeFrame(int fd, std::string_view payload) {
  if (payload.size() > kMaxOutgoingFrameBytes) return false;
  FrameHeader header = encodeFrameHeader(static_cast<uint32_t>(payload.size()));
  iovec parts[2] = {{header.data(), header.size()}, {const_cast<char*>(payload.data()), payload.size()}};
  size_t total = header.size() + payload.size();
  size_t written = 0;
  while (written < total) {
    ssize_t w = ::writev(fd, parts, 2);
    if (w < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    written += static_cast<size_t>(w);
    // Advance the iovecs past what was written.
    size_t skip = static_cast<size_t>(w);
    for (auto& p : parts) {
      size_t take = std::min(skip, p.iov_len);
      p.iov_base = static_cast<char*>(p.iov_base) + take;
      p.iov_len -= take;
      skip -= take;
    }
  }
  return true;
}


}  // namespace wren

#include "raw_http_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <charconv>

#include "http_wire.h"

namespace wren::sim {

namespace {

// A rating of a large page puts hundreds of links into the headers; a MiB
// holds thousands and still bounds what a broken client can make us buffer.
constexpr size_t kMaxHeadBytes = 1024 * 1024;
// Mail bodies are the largest payloads the bridge relays.
constexpr size_t kMaxBodyBytes = 8 * 1024 * 1024;
// The bridge opens a handful of connections; the bound keeps a runaway
// client from exhausting threads.
constexpr size_t kMaxConnections = 64;
// An idle keep-alive connection is closed after this long, as servers do.
constexpr int kIdleTimeoutMs = 5000;
constexpr size_t kReadChunk = 64 * 1024;
constexpr int kListenBacklog = 64;

bool writeAll(int fd, const std::string& data) {
  size_t sent = 0;
  while (sent < data.size()) {
    ssize_t n = ::send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

void replyAndClose(int fd, int status, const std::string& message) {
  httplib::Response res;
  res.status = status;
  res.set_content(R"({"error":")" + message + R"("})", "application/json");
  writeAll(fd, serializeResponse(res, false, false));
}

}  // namespace

RawHttpServer::RawHttpServer(Handler handler) : handler_(std::move(handler)) {}

RawHttpServer::~RawHttpServer() {
  stop();
  if (listenFd_ >= 0) ::close(listenFd_);
  for (int fd : wakePipe_)
    if (fd >= 0) ::close(fd);
}

int RawHttpServer::bind(int port) {
  if (::pipe2(wakePipe_, O_CLOEXEC) != 0) return -1;
  listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listenFd_ < 0) return -1;
  int yes = 1;
  ::setsockopt(listenFd_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<uint16_t>(port));
  if (::bind(listenFd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
      ::listen(listenFd_, kListenBacklog) != 0)
    return -1;
  socklen_t len = sizeof addr;
  if (::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&addr), &len) != 0) return -1;
  return ntohs(addr.sin_port);
}

void RawHttpServer::start() { acceptThread_ = std::thread([this] { acceptLoop(); }); }

void RawHttpServer::stop() {
  if (stopping_.exchange(true)) return;
  if (wakePipe_[1] >= 0) (void)!::write(wakePipe_[1], "x", 1);
  if (acceptThread_.joinable()) acceptThread_.join();
  std::lock_guard lock(mutex_);
  for (auto& c : connections_)
    if (c->thread.joinable()) c->thread.join();
  connections_.clear();
}

void RawHttpServer::acceptLoop() {
  while (!stopping_) {
    pollfd fds[2] = {{listenFd_, POLLIN, 0}, {wakePipe_[0], POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) continue;
    if (fds[1].revents) return;
    if (!(fds[0].revents & POLLIN)) continue;
    int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    reapFinished();
    std::lock_guard lock(mutex_);
    if (connections_.size() >= kMaxConnections) {
      replyAndClose(fd, 503, "too many connections");
      ::close(fd);
      continue;
    }
    auto connection = std::make_unique<Connection>();
    connection->fd = fd;
    Connection* raw = connection.get();
    connections_.push_back(std::move(connection));
    raw->thread = std::thread([this, raw] { serve(raw); });
  }
}

void RawHttpServer::reapFinished() {
  std::lock_guard lock(mutex_);
  for (auto it = connections_.begin(); it != connections_.end();) {
    if ((*it)->done) {
      (*it)->thread.join();
      it = connections_.erase(it);
    } else {
      ++it;
    }
  }
}

void RawHttpServer::serve(Connection* connection) {
  const int fd = connection->fd;
  // Bytes read but not yet consumed are buffer[consumed..]; the consumed
  // front is dropped only when the next read needs the room, so a request
  // costs no copy of the bytes after it.
  std::string buffer;
  size_t consumed = 0;
  // Reads more bytes into buffer; false on close, idle time-out or stop.
  auto readMore = [&]() {
    pollfd fds[2] = {{fd, POLLIN, 0}, {wakePipe_[0], POLLIN, 0}};
    if (::poll(fds, 2, kIdleTimeoutMs) <= 0 || fds[1].revents) return false;
    if (consumed > 0) {
      buffer.erase(0, consumed);
      consumed = 0;
    }
    char chunk[kReadChunk];
    ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
    if (n <= 0) return false;
    buffer.append(chunk, static_cast<size_t>(n));
    return true;
  };
  // Reads one request into req; false when the connection is to be closed
  // (after an error answer where the client deserves one).
  auto readRequest = [&](WireRequest& req) {
    size_t headEnd = buffer.find("\r\n\r\n", consumed);
    while (headEnd == std::string::npos) {
      if (buffer.size() - consumed > kMaxHeadBytes) {
        replyAndClose(fd, 431, "request head too large");
        return false;
      }
      size_t searched = buffer.size() - consumed;
      if (!readMore()) return false;
      // Only the new bytes (and the three before them) can complete the end.
      headEnd = buffer.find("\r\n\r\n", consumed + (searched > 3 ? searched - 3 : 0));
    }
    std::string error;
    if (!parseRequestHead(std::string_view(buffer).substr(consumed, headEnd - consumed), &req, &error)) {
      replyAndClose(fd, 400, error);
      return false;
    }
    consumed = headEnd + 4;
    if (req.hasHeader("Transfer-Encoding")) {
      replyAndClose(fd, 501, "chunked request bodies are not supported");
      return false;
    }
    std::string lengthText = req.headerText("Content-Length");
    size_t length = 0;
    auto [end, ec] = std::from_chars(lengthText.data(), lengthText.data() + lengthText.size(), length);
    if (!lengthText.empty() && (ec != std::errc() || end != lengthText.data() + lengthText.size())) {
      replyAndClose(fd, 400, "bad Content-Length");
      return false;
    }
    if (length > kMaxBodyBytes) {
      replyAndClose(fd, 413, "request body too large");
      return false;
    }
    if (strcasecmp(req.headerText("Expect").c_str(), "100-continue") == 0 &&
        !writeAll(fd, "HTTP/1.1 100 Continue\r\n\r\n"))
      return false;
    while (buffer.size() - consumed < length)
      if (!readMore()) return false;
    req.body.assign(buffer, consumed, length);
    consumed += length;
    return true;
  };

  std::string out;
  while (!stopping_) {
    WireRequest req;
    if (!readRequest(req)) break;
    httplib::Response res;
    res.status = 404;
    try {
      handler_(req, res);
    } catch (...) {  // a handler bug must not take the connection's thread down with it
      res = httplib::Response();
      res.status = 500;
      res.set_content(R"({"error":"internal error"})", "application/json");
    }
    bool keepAlive = wantsKeepAlive(req);
    out.clear();
    appendResponse(res, keepAlive, req.method == "HEAD", &out);
    if (!writeAll(fd, out) || !keepAlive) break;
  }
  ::close(fd);
  connection->done = true;
}

}  // namespace wren::sim

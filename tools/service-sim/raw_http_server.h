#pragma once
// A minimal HTTP/1.1 server on 127.0.0.1 that hands header values to its
// handler byte for byte. The common HTTP library percent-decodes header
// values, which would hide what the bridge really sent (it escapes CR, LF and
// NUL in addresses as %0D, %0A, %00), so the local service is served by this.
// An accept thread plus one thread a connection; the handler runs on the
// connection threads and must be thread-safe. Requests and answers are
// WireRequest (see http_wire.h) and the HTTP library's plain Response struct.
#include "http_wire.h"

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace wren::sim {

class RawHttpServer {
 public:
  using Handler = std::function<void(const WireRequest&, httplib::Response&)>;

  explicit RawHttpServer(Handler handler);
  ~RawHttpServer();  // stops and joins
  RawHttpServer(const RawHttpServer&) = delete;
  RawHttpServer& operator=(const RawHttpServer&) = delete;

  // Binds 127.0.0.1:port (0: any free port); the bound port, or -1.
  int bind(int port);
  // Starts accepting on a thread of its own; call after bind.
  void start();
  // Closes every connection and joins all threads; safe to call twice.
  void stop();

 private:
  struct Connection {
    int fd = -1;
    std::thread thread;
    std::atomic<bool> done{false};
  };
  void acceptLoop();
  void serve(Connection* connection);
  void reapFinished();

  Handler handler_;
  int listenFd_ = -1;
  int wakePipe_[2] = {-1, -1};  // written once on stop, wakes every poll
  std::atomic<bool> stopping_{false};
  std::thread acceptThread_;
  std::mutex mutex_;
  std::list<std::unique_ptr<Connection>> connections_;
};

}  // namespace wren::sim

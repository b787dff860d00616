#pragma once
// A real HTTP (or HTTPS) server on a free loopback port for tests. It records
// every request it receives and answers with the handler a test installs.
// The server runs on its own threads; the accessors are thread-safe.
#include <httplib.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace wren::test {

struct RecordedRequest {
  std::string method, path, target, query;  // path without the query, target with it as sent, query without "?"
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  int remotePort = 0;  // distinct ports mean distinct connections
  std::string header(const std::string& name) const;  // first match, case-insensitive; "" when absent
  bool hasHeader(const std::string& name) const;
};

// A self-signed certificate for 127.0.0.1/localhost, written to a temp dir.
struct TestCertificate {
  std::string dir, certFile, keyFile;
  static TestCertificate make();
};

class TestServer {
 public:
  using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

  TestServer();  // plain HTTP
  explicit TestServer(const TestCertificate& cert);  // HTTPS
  ~TestServer();

  // Installs the handler for every method and path (replaces the previous one).
  void setHandler(Handler handler);
  // Convenience: answer every request with this status, type and body.
  void respond(int status, const std::string& contentType, const std::string& body);

  int port() const { return port_; }
  std::string origin() const;  // "http://127.0.0.1:PORT" (https for TLS)

  std::vector<RecordedRequest> requests() const;
  size_t requestCount() const;
  // Blocks until at least n requests were recorded or the timeout passed.
  bool waitForRequests(size_t n, int timeoutMs = 5000) const;
  void clear();

 private:
  void start();
  std::unique_ptr<httplib::Server> server_;
  std::thread thread_;
  int port_ = 0;
  bool tls_ = false;
  mutable std::mutex mutex_;
  mutable std::condition_variable cv_;
  Handler handler_;
  std::vector<RecordedRequest> requests_;
};

}  // namespace wren::test

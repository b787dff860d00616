#include "support/test_server.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace wren::test {

std::string RecordedRequest::header(const std::string& name) const {
  for (const auto& [k, v] : headers)
    if (strcasecmp(k.c_str(), name.c_str()) == 0) return v;
  return "";
}

bool RecordedRequest::hasHeader(const std::string& name) const {
  return std::any_of(headers.begin(), headers.end(),
                     [&](const auto& h) { return strcasecmp(h.first.c_str(), name.c_str()) == 0; });
}

TestCertificate TestCertificate::make() {
  char tmpl[] = "/tmp/wren-cert-XXXXXX";
  if (!mkdtemp(tmpl)) throw std::runtime_error("mkdtemp failed");
  TestCertificate c{tmpl, std::string(tmpl) + "/cert.pem", std::string(tmpl) + "/key.pem"};
  std::string cmd = "openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1 "
                    "-addext subjectAltName=IP:127.0.0.1,DNS:localhost -keyout " +
                    c.keyFile + " -out " + c.certFile + " >/dev/null 2>&1";
  if (std::system(cmd.c_str()) != 0) throw std::runtime_error("openssl could not make a certificate");
  return c;
}

TestServer::TestServer() : server_(std::make_unique<httplib::Server>()) { start(); }

TestServer::TestServer(const TestCertificate& cert)
    : server_(std::make_unique<httplib::SSLServer>(cert.certFile.c_str(), cert.keyFile.c_str())), tls_(true) {
  start();
}

void TestServer::start() {
  respond(200, "application/json", "{}");
  auto dispatch = [this](const httplib::Request& req, httplib::Response& res) {
    const auto q = req.target.find('?');
    RecordedRequest r{.method = req.method, .path = req.path, .target = req.target,
                      .query = q == std::string::npos ? "" : req.target.substr(q + 1),
                      .headers = {req.headers.begin(), req.headers.end()}, .body = req.body,
                      .remotePort = req.remote_port};
    const Handler h = [this] { std::lock_guard lock(mutex_); return handler_; }();
    h(req, res);
    std::lock_guard lock(mutex_);
    requests_.push_back(std::move(r));
    cv_.notify_all();
  };
  server_->Get("/.*", dispatch).Post("/.*", dispatch).Put("/.*", dispatch).Delete("/.*", dispatch);
  server_->set_keep_alive_max_count(1000);
  // Without it every answer with a body waits on the peer's delayed ACK.
  server_->set_tcp_nodelay(true);
  // Enough workers for the concurrency tests' requests in flight at once.
  server_->new_task_queue = [] { return new httplib::ThreadPool(64); };
  port_ = server_->bind_to_any_port("127.0.0.1");
  if (port_ <= 0) throw std::runtime_error("test server could not bind");
  thread_ = std::thread([this] { server_->listen_after_bind(); });
  // The listener thread only has to start; a busy machine may delay that.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!server_->is_running()) {
    if (std::chrono::steady_clock::now() >= deadline) {
      server_->stop();
      thread_.join();
      throw std::runtime_error("test server did not start listening");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

TestServer::~TestServer() { server_->stop(); thread_.join(); }

void TestServer::setHandler(Handler handler) { std::lock_guard lock(mutex_); handler_ = std::move(handler); }

void TestServer::respond(int status, const std::string& contentType, const std::string& body) {
  setHandler([=](const auto&, auto& res) { res.status = status; res.set_content(body, contentType.c_str()); });
}

std::string TestServer::origin() const {
  return std::string(tls_ ? "https" : "http") + "://127.0.0.1:" + std::to_string(port_);
}

std::vector<RecordedRequest> TestServer::requests() const { std::lock_guard lock(mutex_); return requests_; }

size_t TestServer::requestCount() const { std::lock_guard lock(mutex_); return requests_.size(); }

bool TestServer::waitForRequests(size_t n, int timeoutMs) const {
  std::unique_lock lock(mutex_);
  return cv_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return requests_.size() >= n; });
}

void TestServer::clear() { std::lock_guard lock(mutex_); requests_.clear(); }

}  // namespace wren::test

// wren-service-sim: stands in for the local protection service (and the cloud
// mail-scan service) so the bridge can be developed and tested without them.
// main only wires the parts together: options, rules, servers, signals.
#include <httplib.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <chrono>
#include <thread>

#include "cloud_service.h"
#include "event_log.h"
#include "local_service.h"
#include "options.h"
#include "raw_http_server.h"
#include "rules.h"
#include "self_signed_cert.h"

namespace {

using namespace wren::sim;

constexpr const char* kLoopback = "127.0.0.1";
// Mail bodies relayed by the bridge are the largest requests; a few MiB is
// ample and keeps a runaway client from filling memory. (The local service's
// own server applies the same bound.)
constexpr size_t kMaxRequestBody = 8 * 1024 * 1024;

int fail(const std::string& message, int code = 1) {
  std::fprintf(stderr, "wren-service-sim: %s\n", message.c_str());
  return code;
}

void configure(httplib::Server& server) {
  server.set_payload_max_length(kMaxRequestBody);
  server.set_exception_handler([](const httplib::Request&, httplib::Response& res, std::exception_ptr) {
    res.status = 500;
    res.set_content(R"({"error":"internal error"})", "application/json");
  });
}

int bindLoopback(httplib::Server& server, int port) {
  if (port == 0) return server.bind_to_any_port(kLoopback);
  return server.bind_to_port(kLoopback, port) ? port : -1;
}

// Writes the certificate where the bridge can be told to trust it; *tempDir
// is set when the file lies in a directory of our own, removed at exit.
bool writeCaFile(const SelfSignedCert& cert, const std::string& wanted, std::string* path, std::string* tempDir) {
  *path = wanted;
  if (path->empty()) {
    std::string pattern = (std::filesystem::temp_directory_path() / "wren-sim-XXXXXX").string();
    if (!mkdtemp(pattern.data())) return false;
    *tempDir = pattern;
    *path = pattern + "/ca.pem";
  }
  std::ofstream out(*path, std::ios::binary | std::ios::trunc);
  out << cert.certificatePem();
  return static_cast<bool>(out.flush());
}

}  // namespace

int main(int argc, char** argv) {
  std::string error;
  auto options = parseOptions(std::vector<std::string>(argv + 1, argv + argc), &error);
  if (!options) return fail(error + " (see --help)", 2);
  if (options->help) {
    std::fputs(usageText().c_str(), stdout);
    return 0;
  }
  auto rules = options->rulesFile.empty() ? Rules::builtIn(&error) : Rules::fromFile(options->rulesFile, &error);
  if (!rules) return fail(error, 2);

  // Signals are taken by sigwait below; blocked first so that no server
  // thread, all started later, is chosen to receive them.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  signal(SIGPIPE, SIG_IGN);  // a client (or stdout reader) gone must not kill us

  EventLog log(stdout, options->quiet);

  std::optional<SelfSignedCert> cert;
  std::unique_ptr<httplib::SSLServer> cloudServer;
  std::string caFile, tempDir;
  int cloudPort = -1;
  if (options->cloudPort) {
    cert = SelfSignedCert::make(&error);
    if (!cert) return fail("cannot make the cloud's certificate: " + error);
    if (!writeCaFile(*cert, options->caOut, &caFile, &tempDir)) return fail("cannot write the certificate file");
    cloudServer = std::make_unique<httplib::SSLServer>(cert->cert.get(), cert->key.get());
    if (!cloudServer->is_valid()) return fail("cannot set up TLS for the cloud");
    configure(*cloudServer);
    cloudPort = bindLoopback(*cloudServer, *options->cloudPort);
    if (cloudPort <= 0) return fail("cannot listen on 127.0.0.1:" + std::to_string(*options->cloudPort));
  }
  CloudService cloud(*rules, log);
  if (cloudServer) cloud.install(*cloudServer);

  LocalServiceConfig config{options->toolbar, options->autoScan, options->manualScan, options->veldrin,
                            options->productVersion,
                            cloudServer ? "https://127.0.0.1:" + std::to_string(cloudPort) : ""};
  LocalService local(config, *rules, log);
  RawHttpServer localServer([&local](const WireRequest& req, httplib::Response& res) { local.handle(req, res); });
  int port = localServer.bind(options->port);
  if (port <= 0) return fail("cannot listen on 127.0.0.1:" + std::to_string(options->port));

  log.event({{"event", "listening"}, {"port", port}});
  if (cloudServer) log.event({{"event", "listening"}, {"cloudPort", cloudPort}, {"caFile", caFile}});

  localServer.start();
  std::thread cloudThread;
  if (cloudServer) {
    cloudThread = std::thread([&] { cloudServer->listen_after_bind(); });
    // stop() before the server runs is a no-op, and the join below would then
    // wait forever: an early SIGTERM must find it running.
    while (!cloudServer->is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  int signalNumber = 0;
  sigwait(&stopSignals, &signalNumber);

  localServer.stop();
  if (cloudServer) cloudServer->stop();
  if (cloudThread.joinable()) cloudThread.join();
  if (!tempDir.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(tempDir, ignored);
  }
  return 0;
}

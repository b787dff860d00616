#include "host_fuzz_harness.h"

#include <fcntl.h>
#include <unistd.h>

#include <memory>

#include "fuzz_services.h"
#include "host/native_host.h"
#include "host/stdin_reader.h"
#include "support/test_server.h"
#include "util/logging.h"

namespace wren::fuzz {
namespace {

// What lives across inputs: the service, the loop and the clients. Each input
// gets a fresh host (so a fresh browser-call table and handler).
struct World {
  test::TestServer service;
  RunLoop loop;
  std::unique_ptr<FuzzServices> domain;
  int devNull = ::open("/dev/null", O_WRONLY | O_CLOEXEC);

  World() {
    setLogSink([](std::string_view) {});
    service.setHandler([](const httplib::Request& req, httplib::Response& res) {
      if (req.path == "/BrowserExt/setting") {
        res.set_header("X-Wren-ToolbarStatus", "1");
        res.set_content(R"({"EnableAutomaticScan":1,"EnableManualScanner":"yes"})", "application/json");
      } else if (req.path == "/BrowserExt/rating") {
        // As many results as the length header says, and one more on odd
        // lengths, so the "more results than items" path is reached too.
        int n = std::atoi(req.get_header_value("KVExtURLs_Length").c_str());
        n = std::max(0, std::min(n + (n % 2), 64));
        std::string body = R"({"wtp_level":2,"results":[)";
        for (int i = 0; i < n; ++i) body += std::string(i ? "," : "") + R"({"level":1,"category":"c"})";
        res.set_content(body + "]}", "application/json");
      } else {
        res.set_content(R"({"ok":1})", req.path.find("command") != std::string::npos ? "text/html" : "application/json");
      }
    });
    domain = std::make_unique<FuzzServices>(loop, service.origin(), "https://127.0.0.1:1");
  }
};

World& world() {
  static World* w = new World();  // kept for the process; the fuzzer never exits cleanly
  return *w;
}

}  // namespace

void runOneInput(const uint8_t* data, size_t size) {
  World& w = world();
  w.domain->setting.setBToolbarEnabled(true);
  w.domain->setting.setBAutoScanEnabled(true);
  w.domain->setting.setBManualScanEnabled(true);
  int pipeFds[2];
  if (::pipe(pipeFds) != 0) return;
  // Small inputs fit the pipe buffer; larger ones are cut, which the reader
  // sees as a truncated frame.
  fcntl(pipeFds[1], F_SETFL, O_NONBLOCK);
  (void)!::write(pipeFds[1], data, size);
  ::close(pipeFds[1]);

  auto host = std::make_unique<NativeHost>(w.domain->services, w.devNull, nullptr);
  bool ended = false;
  {
    StdinReader reader(
        w.loop, pipeFds[0], [&](ParsedEnvelope&& parsed) { host->handleEnvelope(std::move(parsed)); },
        [&] { ended = true; });
    reader.start();
    w.loop.runUntil([&] { return ended; });
  }
  ::close(pipeFds[0]);
  // Let every request started by this input complete before the next one.
  w.loop.runUntil([&] { return w.loop.pendingTransfers() == 0; });
}

}  // namespace wren::fuzz

#include "host_fuzz_harness.h"

#include <fcntl.h>
#include <unistd.h>

#include <memory>

#include "host/framing.h"
#include "host/native_host.h"
#include "net/ajax.h"
#include "popover/safari_extension_view_controller.h"
#include "popover/strings.h"
#include "server/setting.h"
#include "server/wren_browser_ext_server.h"
#include "support/test_server.h"
#include "util/logging.h"

namespace wren::fuzz {
namespace {

// What lives across inputs: the service, the loop and the clients. Each input
// gets a fresh host (so a fresh browser-call table and handler).
struct World {
  test::TestServer service;
  RunLoop loop;
  std::unique_ptr<Ajax> ajax;
  std::unique_ptr<Setting> setting;
  std::unique_ptr<WrenBrowserExtServer> server;
  Strings strings = Strings::embedded("en");
  std::unique_ptr<SafariExtensionViewController> popover;
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
    AjaxOptions options;
    options.dataRelayUrl = service.origin() + "/BrowserExt/sendData";
    ajax = std::make_unique<Ajax>(loop, options);
    setting = std::make_unique<Setting>(nullptr, "https://127.0.0.1:1");
    server = std::make_unique<WrenBrowserExtServer>(*ajax, *setting, service.origin());
    popover = std::make_unique<SafariExtensionViewController>(*setting, *server, loop, nullptr, strings);
  }
};

World& world() {
  static World* w = new World();  // kept for the process; the fuzzer never exits cleanly
  return *w;
}

}  // namespace

void runOneInput(const uint8_t* data, size_t size) {
  World& w = world();
  w.setting->setBToolbarEnabled(true);
  w.setting->setBAutoScanEnabled(true);
  w.setting->setBManualScanEnabled(true);
  int pipeFds[2];
  if (::pipe(pipeFds) != 0) return;
  // Small inputs fit the pipe buffer; larger ones are cut, which the reader
  // sees as a truncated frame.
  fcntl(pipeFds[1], F_SETFL, O_NONBLOCK);
  (void)!::write(pipeFds[1], data, size);
  ::close(pipeFds[1]);

  auto host = std::make_unique<NativeHost>(w.loop, w.devNull, *w.ajax, *w.setting, *w.server, *w.popover, nullptr);
  FrameReader reader(pipeFds[0]);
  for (;;) {
    ReadResult r = reader.next();
    if (r.status != ReadStatus::kFrame) break;
    host->handlePayload(r.payload);
  }
  ::close(pipeFds[0]);
  // Let every request started by this input complete before the next one.
  w.loop.runUntil([&] { return w.loop.pendingTransfers() == 0; });
  w.server->setBrowser(nullptr);
}

}  // namespace wren::fuzz

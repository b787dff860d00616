#pragma once
// A harness's own domain objects on its own loop, against a service on
// loopback that also stands in for the cloud when `veldrinApi` names it. They
// live for the process: the fuzzer never exits cleanly.
#include <memory>
#include <string>

#include "host/session.h"
#include "mailscan/mail_scan_client.h"
#include "net/ajax.h"
#include "net/run_loop.h"
#include "popover/safari_extension_view_controller.h"
#include "popover/strings.h"
#include "server/setting.h"
#include "server/wren_browser_ext_server.h"

namespace wren::fuzz {

struct FuzzServices {
  FuzzServices(RunLoop& loop, const std::string& serviceOrigin, const std::string& veldrinApi)
      : ajax(loop, AjaxOptions{serviceOrigin + "/BrowserExt/sendData", nullptr, ""}),
        setting(nullptr, veldrinApi),
        server(ajax, setting, serviceOrigin),
        popover(setting, server, loop, nullptr, strings),
        mailScan(ajax, setting, server),
        services{loop, ajax, setting, server, popover, mailScan} {}

  Ajax ajax;
  Setting setting;
  WrenBrowserExtServer server;
  Strings strings = Strings::embedded("en");
  SafariExtensionViewController popover;
  MailScanClient mailScan;
  Services services;
};

}  // namespace wren::fuzz

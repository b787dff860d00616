#pragma once
// One browser connection: takes the extension's frames, hands page messages
// to the dispatcher and browser results to the pending calls, and writes every
// answer as a frame on the protocol descriptor.
//
// Runs on the main run loop; owns the browser adapter and the dispatcher.
#include <functional>
#include <memory>
#include <string>

#include "host/native_browser.h"

namespace wren {

class Ajax;
class Setting;
class WrenBrowserExtServer;
class SafariExtensionHandler;

class NativeHost {
 public:
  // Frames go to outFd. onClosed runs once when the browser can no longer be
  // written to.
  NativeHost(RunLoop& loop, int outFd, Ajax& ajax, Setting& setting, WrenBrowserExtServer& server,
             std::function<void()> onClosed);
  ~NativeHost();

  void sendHello();
  // One frame's payload, as read from the extension.
  void handlePayload(const std::string& payload);

  NativeBrowser& browser() { return browser_; }
  SafariExtensionHandler& handler() { return *handler_; }

 private:
  void send(const Json& frame);

  RunLoop& loop_;
  int outFd_;
  std::function<void()> onClosed_;
  bool closed_ = false;
  NativeBrowser browser_;
  std::unique_ptr<SafariExtensionHandler> handler_;
};

// The native-messaging host on stdin/stdout until stdin closes or SIGTERM.
int runNativeMessagingHost();

}  // namespace wren

#pragma once
// One browser connection: takes the extension's frames, hands page messages
// to the dispatcher and browser results to the pending calls, and writes every
// answer as a frame on the protocol descriptor.
//
// Runs on the main run loop; owns the browser adapter and the session that
// serves it.
#include <functional>
#include <memory>
#include <string>

#include "host/native_browser.h"
#include "host/output_queue.h"
#include "host/session.h"

namespace wren {

class NativeHost {
 public:
  // Frames go to outFd, which is made non-blocking (see OutputQueue).
  // onClosed runs once when the browser can no longer be written to. The
  // popover controller outlives every connection; while the host lives, it
  // closes and redraws this connection's popup.
  NativeHost(const Services& services, int outFd, std::function<void()> onClosed);
  ~NativeHost();

  void sendHello();
  // One frame's payload, as read from the extension.
  void handlePayload(const std::string& payload);
  // The same, parsed already.
  void handleEnvelope(ParsedEnvelope&& parsed);

  NativeBrowser& browser() { return browser_; }
  SafariExtensionHandler& handler() { return session_.handler(); }

 private:
  void send(const Json& frame);
  void handleHook(const std::string& name, const Json& window);
  void handlePopoverEvent(const std::string& event, const std::optional<std::string>& appearance,
                          const std::optional<std::string>& control);
  // Widgets changed: one state frame at the end of this turn of the loop,
  // however many changes the turn makes.
  void scheduleState();

  RunLoop& loop_;
  std::function<void()> onClosed_;
  bool closed_ = false;
  OutputQueue out_;
  NativeBrowser browser_;
  WrenBrowserExtServer& server_;
  SafariExtensionViewController& popover_;
  BrowserSession session_;
  bool statePending_ = false;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// The native-messaging host on stdin/stdout until stdin closes or SIGTERM.
int runNativeMessagingHost();

}  // namespace wren

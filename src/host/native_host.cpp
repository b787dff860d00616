#include "host/native_host.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <variant>

#include "bridge/safari_extension_handler.h"
#include "host/framing.h"
#include "host/stdin_reader.h"
#include "popover/popover_rows.h"
#include "popover/popover_state.h"
#include "popover/safari_extension_view_controller.h"
#include "server/wren_browser_ext_server.h"
#include "util/fd_io.h"
#include "util/logging.h"
#include "util/service_origin.h"
#include "util/version.h"

namespace wren {

NativeHost::NativeHost(const Services& services, int outFd, std::function<void()> onClosed)
    : loop_(services.loop),
      onClosed_(std::move(onClosed)),
      out_(loop_, outFd,
           [this] {
             systemLog("[wren-bridge] cannot write to the browser; closing");
             closed_ = true;
             if (onClosed_) onClosed_();
           }),
      browser_(loop_, [this](const Json& frame) { send(frame); }),
      server_(services.server),
      popover_(services.popover),
      session_(services, browser_) {
  popover_.setDismissHandler([this] { send(popoverDismissFrame()); });
  popover_.setOnChange([this] { scheduleState(); });
}

NativeHost::~NativeHost() {
  popover_.setOnChange(nullptr);
  popover_.setDismissHandler(nullptr);
}

void NativeHost::scheduleState() {
  if (statePending_ || closed_) return;
  statePending_ = true;
  loop_.post([this, alive = std::weak_ptr<bool>(alive_)] {
    if (!alive.lock()) return;
    statePending_ = false;
    send(popoverStateFrame(popoverState(popover_)));
  });
}

void NativeHost::handleHook(const std::string& name, const Json& window) {
  if (name == "toolbarItemClicked") {
    handler().toolbarItemClickedInWindow(window);
  } else if (name == "validateToolbarItem") {
    handler().validateToolbarItemInWindow(window);
  } else if (name == "popoverViewController") {
    handler().popoverViewController();
  } else if (name == "popoverWillShow") {
    handler().popoverWillShowInWindow(window);
  } else if (name == "popoverDidClose") {
    handler().popoverDidCloseInWindow(window);
  }
}

namespace {

HoverButton* buttonNamed(PopoverView& view, const std::string& name) {
  for (const PopoverRow& row : popoverRows())
    if (row.button == name) return view.*row.buttonOutlet;
  return nullptr;
}

}  // namespace

void NativeHost::handlePopoverEvent(const std::string& event, const std::optional<std::string>& appearance,
                                    const std::optional<std::string>& control) {
  if (appearance) popover_.setAppearance(*appearance == "dark" ? Appearance::Dark : Appearance::Light);
  if (event == "viewWillAppear") {
    popover_.viewWillAppear();
  } else if (event == "viewDidAppear") {
    popover_.viewDidAppear();
  } else {
    const std::string& name = control.value_or("");
    HoverButton* button = buttonNamed(popover_.view(), name);
    if (!button) {
      systemLog("[wren-bridge] dropped popover " + event + ": no row button \"" + name + "\"");
      return;
    }
    if (event == "mouseEntered") {
      button->mouseEntered();
    } else if (event == "mouseExited") {
      button->mouseExited();
    } else if (!button->click()) {
      systemLog("[wren-bridge] ignored popover click: " + name + " is disabled");
    }
  }
  // A freshly opened popup needs the state even when this showing changed
  // nothing.
  scheduleState();
}

void NativeHost::sendHello() { send(helloFrame(kVersion, server_.origin())); }

void NativeHost::send(const Json& frame) {
  if (closed_) return;
  std::string payload = serializeFrame(frame);
  if (payload.size() > kMaxOutgoingFrameBytes) {
    std::string what = frame.value("type", "");
    if (frame.contains("name") && frame["name"].is_string()) what += " \"" + frame["name"].get<std::string>() + "\"";
    systemLog("[wren-bridge] dropped " + what + " frame of " + std::to_string(payload.size()) +
              " bytes: a browser accepts at most " + std::to_string(kMaxOutgoingFrameBytes));
    return;
  }
  if (out_.push(std::move(payload)) == OutputQueue::Push::kRefused) {
    std::string what = frame.value("type", "");
    if (frame.contains("name") && frame["name"].is_string()) what += " \"" + frame["name"].get<std::string>() + "\"";
    systemLog("[wren-bridge] dropped " + what + " frame: the browser has not read the " +
              std::to_string(out_.queuedBytes()) + " bytes before it");
  }
}

void NativeHost::handlePayload(const std::string& payload) { handleEnvelope(parseEnvelope(payload)); }

void NativeHost::handleEnvelope(ParsedEnvelope&& parsed) {
  if (!parsed.value) {
    systemLog("[wren-bridge] dropped frame: " + parsed.error);
    return;
  }
  // The domain code checks the types it reads; this guard only keeps one bad
  // message from taking the whole connection down if a check was missed.
  try {
    if (auto* m = std::get_if<IncomingMessage>(&*parsed.value)) {
      handler().messageReceivedWithName(m->name, m->page, std::move(m->userInfo));
    } else if (auto* r = std::get_if<IncomingResult>(&*parsed.value)) {
      if (!browser_.handleResult(*r))
        systemLog("[wren-bridge] dropped result " + std::to_string(r->id) + ": no such call is waiting");
    } else if (auto* h = std::get_if<IncomingHook>(&*parsed.value)) {
      handleHook(h->name, h->window);
    } else if (auto* p = std::get_if<IncomingPopover>(&*parsed.value)) {
      handlePopoverEvent(p->event, p->appearance, p->control);
    }
  } catch (const std::exception& e) {
    systemLog(std::string("[wren-bridge] dropped frame: internal error: ") + e.what());
  }
}

namespace {

// Keeps the protocol stream private: frames go to a duplicate of the real
// stdout, and descriptor 1 now points at stderr, so a stray print from any
// library can never corrupt a frame.
int takeProtocolStdout() {
  int fd = ::dup(STDOUT_FILENO);
  if (fd >= 0) ::dup2(STDERR_FILENO, STDOUT_FILENO);
  return fd;
}

}  // namespace

int runNativeMessagingHost() {
  // Log lines are dropped, not waited for, when stderr is full (util/logging.h).
  makeNonBlocking(STDERR_FILENO);
  int outFd = takeProtocolStdout();
  if (outFd < 0) {
    systemLog("[wren-bridge] cannot take stdout for the protocol");
    return 1;
  }
  ::signal(SIGPIPE, SIG_IGN);
  // SIGTERM and SIGINT are taken by one thread with sigwait, so every other
  // thread (libcurl's included) is spared and the loop quits in order.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  // The extension acts on hello (it validates the toolbar once the host says
  // hello), so it goes out before the set-up below (libcurl and TLS,
  // settings, string tables). Nothing else is ever written before it, and
  // frames the browser sends meanwhile wait in the pipe.
  if (!writeFrame(outFd, serializeFrame(helloFrame(kVersion, serviceOrigin())))) {
    systemLog("[wren-bridge] cannot write to the browser; closing");
    Logging::flush();
    ::close(outFd);
    return 0;
  }

  const Services services = sharedServices();
  RunLoop& loop = services.loop;
  NativeHost host(services, outFd, [&loop] { loop.quit(); });

  StdinReader reader(
      loop, STDIN_FILENO, [&host](ParsedEnvelope&& parsed) { host.handleEnvelope(std::move(parsed)); },
      [&loop] { loop.quit(); });
  reader.start();
  std::atomic<bool> stopping{false};
  std::thread signals([&loop, &stopping, stopSignals] {
    int sig = 0;
    if (sigwait(&stopSignals, &sig) == 0 && !stopping) {
      systemLog(std::string("[wren-bridge] ") + (sig == SIGTERM ? "SIGTERM" : "SIGINT") + " received; exiting");
      loop.quit();
    }
  });

  loop.run();
  // Stop the signal thread and wait for it, so nothing posts to the loop
  // while it is torn down; the loop runs no more, so what it posted is
  // dropped with it.
  stopping = true;
  reader.stop();
  pthread_kill(signals.native_handle(), SIGTERM);
  signals.join();
  Logging::flush();
  ::close(outFd);
  return 0;
}

}  // namespace wren

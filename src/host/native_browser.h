#pragma once
// The browser as seen through the extension: every Browser operation becomes
// a "call" frame, and the extension's "result" frame completes it. A call
// that is not answered in time completes as if the browser had nothing, so a
// chain of lookups always ends.
//
// Runs on the main run loop; owns the table of calls in flight.
#include <chrono>
#include <functional>
#include <unordered_map>

#include "host/envelope.h"
#include "net/run_loop.h"
#include "platform/browser.h"

namespace wren {

class NativeBrowser : public Browser {
 public:
  // How long the extension has to answer a call.
  static constexpr std::chrono::milliseconds kCallTimeout{10'000};

  using SendFrame = std::function<void(const Json& frame)>;
  NativeBrowser(RunLoop& loop, SendFrame send, std::chrono::milliseconds timeout = kCallTimeout);
  ~NativeBrowser() override;

  // Completes the call with that id. False when no such call is waiting (late
  // or unknown), in which case the result is dropped.
  bool handleResult(const IncomingResult& result);
  size_t pendingCalls() const { return pending_.size(); }

  void getActiveWindow(std::function<void(const BrowserHandle&)> done) override;
  void getActiveTab(const BrowserHandle& window, std::function<void(const BrowserHandle&)> done) override;
  void getActivePage(const BrowserHandle& tab, std::function<void(const BrowserHandle&)> done) override;
  void getPageProperties(const BrowserHandle& page,
                         std::function<void(const std::optional<PageProperties>&)> done) override;
  void openTab(const BrowserHandle& window, const std::string& url, bool activate) override;
  void dispatchMessageToScript(const BrowserHandle& page, const std::string& name,
                               std::optional<Json> userInfo) override;

 private:
  struct Pending {
    std::string method;
    std::function<void(const Json&)> done;
    RunLoop::TimerId timer;
  };
  void call(const char* method, Json arguments, std::function<void(const Json&)> done);

  RunLoop& loop_;
  SendFrame send_;
  std::chrono::milliseconds timeout_;
  long long nextId_ = 1;
  std::unordered_map<long long, Pending> pending_;
};

// Page properties from a call's value: {"url":…,"title":…}; null means none,
// and a field that is not a text counts as absent.
std::optional<PageProperties> pagePropertiesFromJson(const Json& value);

}  // namespace wren

#pragma once
// A browser with one window, one tab and one page, for tests of the domain
// code. Lookups answer at once, or on the given loop, as the host's browser
// does; what the pages are sent is recorded.
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "net/run_loop.h"
#include "platform/browser.h"

namespace wren::test {

class FakeBrowser : public Browser {
 public:
  explicit FakeBrowser(RunLoop* loop = nullptr) : loop_(loop) {}

  // What the lookups answer; null ends a chain there.
  BrowserHandle window = "window", tab = "tab", page = "page";
  std::optional<PageProperties> properties = PageProperties{};

  struct Message {
    std::string name;
    std::optional<Json> userInfo;
    bool operator==(const Message&) const = default;
  };
  std::vector<Message> messages;

  using Done = std::function<void(const BrowserHandle&)>;
  void getActiveWindow(Done done) override {
    answer([this, done] { done(window); });
  }
  void getActiveTab(const BrowserHandle&, Done done) override {
    answer([this, done] { done(tab); });
  }
  void getActivePage(const BrowserHandle&, Done done) override {
    answer([this, done] { done(page); });
  }
  void getPageProperties(const BrowserHandle&, std::function<void(const std::optional<PageProperties>&)> d) override {
    answer([this, d] { d(properties); });
  }
  void openTab(const BrowserHandle&, const std::string&, bool) override {}
  void dispatchMessageToScript(const BrowserHandle&, const std::string& name, std::optional<Json> i) override {
    messages.push_back({name, i});
  }

 private:
  void answer(std::function<void()> reply) {
    if (loop_) {
      loop_->post(std::move(reply));
    } else {
      reply();
    }
  }
  RunLoop* loop_;
};

}  // namespace wren::test

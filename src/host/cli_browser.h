#pragma once
// The browser as the command line sees it: one window with one tab showing one
// page when page properties are given (to reproduce what a user saw on a
// web-mail page), none otherwise. Whatever a page would be sent is printed
// instead, one JSON line each, on stdout.
//
// Runs on the main run loop.
#include <cstdio>

#include "net/run_loop.h"
#include "platform/browser.h"

namespace wren {

class CliBrowser : public Browser {
 public:
  CliBrowser(RunLoop& loop, std::FILE* out, std::optional<PageProperties> page = std::nullopt)
      : loop_(loop), out_(out), page_(std::move(page)) {}

  void getActiveWindow(std::function<void(const BrowserHandle&)> done) override;
  void getActiveTab(const BrowserHandle& window, std::function<void(const BrowserHandle&)> done) override;
  void getActivePage(const BrowserHandle& tab, std::function<void(const BrowserHandle&)> done) override;
  void getPageProperties(const BrowserHandle& page,
                         std::function<void(const std::optional<PageProperties>&)> done) override;
  void openTab(const BrowserHandle& window, const std::string& url, bool activate) override;
  void dispatchMessageToScript(const BrowserHandle& page, const std::string& name,
                               std::optional<Json> userInfo) override;
  size_t answers() const { return answers_; }

 private:
  void printLine(const Json& line);
  void answer(std::function<void(const BrowserHandle&)> done, const char* handle);
  RunLoop& loop_;
  std::FILE* out_;
  std::optional<PageProperties> page_;
  size_t answers_ = 0;
};

}  // namespace wren

// The toolbar popover end to end: the real host, a real service on loopback,
// and this test as the extension's popup (hooks, appearance and mouse
// events in, popover state frames and dismissals out).
#include <thread>

#include "host_fixture.h"

namespace wren::test {
namespace {

using namespace std::chrono_literals;

const char kUnavailableTip[] = "Works for Gmail and Yahoo Mail when you are signed in.";
const char kRowTitle[] = "Veldrin Scam Scanner";
const char kGmailUrl[] = "https://mail.google.com/mail/u/0/#inbox";

OJson rgb(int r, int g, int b) { return OJson::array({r / 255.0, g / 255.0, b / 255.0, 1.0}); }

// What this test's browser answers to the host's lookups; null ends a chain.
struct FakeBrowser {
  OJson window, tab, page, properties;
  static FakeBrowser none() { return {}; }
  static FakeBrowser showing(OJson properties) {
    return {{{"w", 1}}, {{"t", 2}}, {{"tab", 2}, {"frame", 0}}, std::move(properties)};
  }
  OJson answer(const std::string& method) const {
    if (method == "getActiveWindow") return window;
    if (method == "getActiveTab") return tab;
    if (method == "getActivePage") return page;
    if (method == "getPageProperties") return properties;
    return nullptr;
  }
};

// A service whose settings answer and "vds" answer the test can change.
struct ServiceAnswers {
  int settingsStatus = 200;
  std::map<std::string, std::string> settingsHeaders{{"X-Wren-ToolbarStatus", "true"}};
  OJson settingsBody = {{"EnableAutomaticScan", true}, {"EnableManualScanner", true}};
  int vdsStatus = 200;
  OJson vdsBody = {{"EnableVeldrin", true}};
};

class PopoverHostTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    service_.setHandler([this](const httplib::Request& req, httplib::Response& res) {
      std::lock_guard lock(answersMutex_);
      if (req.path == "/BrowserExt/setting") {
        res.status = answers_.settingsStatus;
        for (const auto& [k, v] : answers_.settingsHeaders) res.set_header(k, v);
        res.set_content(answers_.settingsBody.dump(), "application/json");
      } else if (req.get_param_value("type") == "vds") {
        res.status = answers_.vdsStatus;
        res.set_content(answers_.vdsBody.dump(), "application/json");
      } else {
        res.set_content("{}", "application/json");
      }
    });
  }
  void answer(const ServiceAnswers& a) {
    std::lock_guard lock(answersMutex_);
    answers_ = a;
  }
  std::map<std::string, std::string> testEnv() const {
    auto e = env();
    e["LC_ALL"] = "C";  // the rows' English texts
    return e;
  }
  void startHost() {
    host_ = std::make_unique<HostProcess>(WREN_BRIDGE_EXE, std::vector<std::string>{}, testEnv());
    auto hello = host_->readFrame();
    ASSERT_TRUE(hello && (*hello)["type"] == "hello");
  }

  // Reads frames until one matches, answering browser lookups from browser_
  // and keeping the latest popover state.
  std::optional<OJson> pumpUntil(const std::function<bool(const OJson&)>& pred, std::vector<OJson>* skipped = nullptr,
                                 std::chrono::milliseconds timeout = 10s) {
    return host_->readFrameWhere(
        [&](const OJson& f) {
          if (f.value("type", "") == "call") {
            calls_.push_back(f);
            host_->send({{"type", "result"}, {"id", f["id"]}, {"value", browser_.answer(f.value("method", ""))}});
          } else if (f.value("type", "") == "popover" && f.contains("state")) {
            state_ = f["state"];
          }
          return pred(f);
        },
        timeout, skipped);
  }
  static bool isCall(const OJson& f, const char* method) {
    return f.value("type", "") == "call" && f.value("method", "") == method;
  }
  static bool isDismiss(const OJson& f) { return f.value("type", "") == "popover" && f.contains("dismiss"); }

  // Hooks that refresh the mail-scan row start with a window lookup; waiting
  // for it means the hook has been handled.
  void hook(const std::string& name) {
    host_->send({{"type", "hook"}, {"name", name}, {"window", {{"w", 1}}}});
    if (name == "validateToolbarItem" || name == "popoverWillShow") {
      ASSERT_TRUE(pumpUntil([](const OJson& f) { return isCall(f, "getActiveWindow"); })) << name;
    }
  }
  void event(const std::string& name, const std::string& control = "", const std::string& appearance = "") {
    OJson f{{"type", "popover"}, {"event", name}};
    if (!control.empty()) f["control"] = control;
    if (!appearance.empty()) f["appearance"] = appearance;
    host_->send(f);
  }
  // After this, state_ reflects every event sent before. A state frame is
  // posted behind the event that caused it; the first hook's lookup proves
  // that event handled (and its frame queued), the second one's lookup comes
  // after the queued frame. Works with the row's lookups answered "none".
  void settle() {
    FakeBrowser saved = browser_;
    browser_ = FakeBrowser::none();
    hook("validateToolbarItem");
    hook("validateToolbarItem");
    browser_ = saved;
  }
  // The same with page messages as markers (each answered at once): reloads
  // no settings, but needs the toolbar on.
  void settleQuietly() {
    for (const char* page : {"marker-1", "marker-2"}) {
      host_->send(message("vd_show_protect_promotion", page, std::nullopt));
      ASSERT_TRUE(pumpUntil([&](const OJson& f) { return f.value("type", "") == "message" && f["page"] == page; }));
    }
  }
  // One showing in the browser's order.
  void show(const std::string& appearance = "light") {
    hook("popoverViewController");
    hook("popoverWillShow");
    event("viewWillAppear", "", appearance);
    event("viewDidAppear", "", appearance);
    settle();
  }
  // Shows the popover until the flags loaded from the service are on screen
  // (an answer that arrives after a showing shows at the next one).
  void showUntil(bool toolbar, bool autoScan, bool manual) {
    for (int attempt = 0; attempt < 30; ++attempt) {
      show();
      if (outlet("btnAutoRating")["enabled"] == toolbar && outlet("autoRatingCheck")["hidden"] == !autoScan &&
          outlet("manualRatingCheck")["hidden"] == !manual)
        return;
    }
    FAIL() << "the popover never showed toolbar=" << toolbar << " auto=" << autoScan << " manual=" << manual
           << "; last state " << state_.dump();
  }
  OJson outlet(const std::string& name) const { return state_.value("outlets", OJson::object()).value(name, OJson()); }
  OJson layer(const std::string& name) const { return state_.value("layers", OJson::object()).value(name, OJson()); }
  // The mail-scan row as (enabled, check hidden, label colour, tooltip).
  OJson veldrinRow() const {
    return {outlet("btnVeldrin")["enabled"], outlet("veldrinCheck")["hidden"], outlet("lblVeldrin")["textColor"],
            outlet("lblVeldrin")["toolTip"]};
  }
  std::vector<RecordedRequest> commands(const std::string& type) const {
    std::vector<RecordedRequest> out;
    for (const auto& r : service_.requests())
      if (r.path == "/BrowserExt/command" && r.query.find("type=" + type) != std::string::npos) out.push_back(r);
    return out;
  }
  bool waitForCommand(const std::string& type) const {
    for (int i = 0; i < 250 && commands(type).empty(); ++i) std::this_thread::sleep_for(20ms);
    return !commands(type).empty();
  }

  std::mutex answersMutex_;
  ServiceAnswers answers_;
  std::unique_ptr<HostProcess> host_;
  FakeBrowser browser_;
  OJson state_ = OJson::object();
  std::vector<OJson> calls_;
};

TEST_F(PopoverHostTest, RowsFollowTheThreeFlagsWhateverCarriesThem) {
  struct Case {
    bool toolbar, autoScan, manual;
    int status;
    std::map<std::string, std::string> headers;
    OJson body;
  };
  // clang-format off
  const Case cases[] = {
      {true, true, true, 200, {{"X-Wren-ToolbarStatus", "true"}},
       {{"EnableAutomaticScan", true}, {"EnableManualScanner", true}}},
      {true, true, false, 200, {{"X-Wren-ToolbarStatus", "1"}},
       {{"EnableAutomaticScan", "1"}, {"EnableManualScanner", "false"}}},
      // A body key wins over a header of the same name.
      {true, false, true, 200, {{"X-Wren-ToolbarStatus", "YES"}, {"EnableAutomaticScan", "true"}},
       {{"EnableAutomaticScan", 0}, {"EnableManualScanner", 1}}},
      {true, false, false, 200, {{"X-Wren-ToolbarStatus", "true"}}, OJson::object()},
      {false, true, true, 200, {}, {{"EnableAutomaticScan", true}, {"EnableManualScanner", "yes"}}},
      {false, true, false, 200, {{"X-Wren-ToolbarStatus", "0"}, {"EnableAutomaticScan", "1"}}, OJson::object()},
      {false, false, true, 200, {{"X-Wren-ToolbarStatus", "false"}}, {{"EnableManualScanner", true}}},
      {false, false, false, 200, {{"X-Wren-ToolbarStatus", "true"}}, {{"X-Wren-ToolbarStatus", "false"}}},
      // A failed load switches everything off.
      {false, false, false, 500, {{"X-Wren-ToolbarStatus", "true"}},
       {{"EnableAutomaticScan", true}, {"EnableManualScanner", true}}},
  };
  // clang-format on
  startHost();
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "toolbar=" << c.toolbar << " auto=" << c.autoScan << " manual=" << c.manual
                                    << " status=" << c.status);
    // Start from the opposite rows, so every row has to change.
    ServiceAnswers opposite;
    opposite.settingsHeaders = {{"X-Wren-ToolbarStatus", c.toolbar ? "false" : "true"}};
    opposite.settingsBody = {{"EnableAutomaticScan", !c.autoScan}, {"EnableManualScanner", !c.manual}};
    answer(opposite);
    showUntil(!c.toolbar, !c.autoScan, !c.manual);

    ServiceAnswers wanted;
    wanted.settingsStatus = c.status;
    wanted.settingsHeaders = c.headers;
    wanted.settingsBody = c.body;
    answer(wanted);
    showUntil(c.toolbar, c.autoScan, c.manual);

    for (const char* button : {"btnAutoRating", "btnManualRating", "btnSettings", "btnHelp"}) {
      EXPECT_EQ(outlet(button)["enabled"], c.toolbar) << button;
      EXPECT_EQ(outlet(button)["hover"], c.toolbar) << button;
    }
    for (const char* label : {"lblAutoRating", "lblManualRating", "lblSettings", "lblHelp"})
      EXPECT_EQ(outlet(label)["textColor"], c.toolbar ? "Color" : "grey") << label;
    // The mail-scan row belongs to its own refresh: only its hover follows.
    EXPECT_EQ(outlet("btnVeldrin")["hover"], c.toolbar);
    EXPECT_EQ(outlet("btnVeldrin")["enabled"], true);
    EXPECT_EQ(outlet("lblVeldrin")["textColor"], "Color");
    EXPECT_EQ(outlet("viewVeldrin")["hidden"], false);
    EXPECT_EQ(state_["constraints"]["topToVeldrin"], 750.0);
    EXPECT_EQ(state_["constraints"]["topToManualRating"], 250.0);
  }
}

TEST_F(PopoverHostTest, ClicksSendTheirCommandsAndCloseThePopover) {
  startHost();
  // The flags are loaded once here and never again, so nothing but the clicks
  // changes them below.
  enableToolbar(*host_);
  event("viewWillAppear", "", "light");
  event("viewDidAppear", "", "light");
  settleQuietly();
  ASSERT_EQ(outlet("autoRatingCheck")["hidden"], false) << state_.dump();
  ASSERT_EQ(outlet("manualRatingCheck")["hidden"], false);
  struct Case {
    const char* control;
    const char* query;  // parameters sorted by name
    const char* check;  // flipped locally, or ""
    bool checkHiddenAfter;
  };
  // clang-format off
  const Case cases[] = {
      {"btnAutoRating", "name=EnableAutomaticScan&type=updateSetting&value=false", "autoRatingCheck", true},
      // The flag was flipped locally, so a second click asks for the opposite.
      {"btnAutoRating", "name=EnableAutomaticScan&type=updateSetting&value=true", "autoRatingCheck", false},
      {"btnManualRating", "name=EnableManualScanner&type=updateSetting&value=false", "manualRatingCheck", true},
      {"btnManualRating", "name=EnableManualScanner&type=updateSetting&value=true", "manualRatingCheck", false},
      {"btnSettings", "type=showToolbarUI", "", false},
      {"btnHelp", "type=showToolbarHelp", "", false},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.query);
    service_.clear();
    event("click", c.control);
    ASSERT_TRUE(pumpUntil(isDismiss));
    ASSERT_TRUE(waitForCommand(""));
    auto sent = commands("");
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].method, "GET");
    EXPECT_EQ(sent[0].query, c.query);
    if (*c.check) {
      EXPECT_TRUE(pumpUntil([&](const OJson&) { return outlet(c.check)["hidden"] == c.checkHiddenAfter; }))
          << state_.dump();
    }
  }
}

TEST_F(PopoverHostTest, TheMailScanClickReachesTheActivePageOnlyWithAnAddress) {
  startHost();
  enableToolbar(*host_);
  // A click that must do nothing: every frame before the answer to a later
  // message (answered at once, in order) is checked.
  auto expectNothingFrom = [&](const char* why) {
    host_->send(message("vd_show_protect_promotion", "barrier", std::nullopt));
    std::vector<OJson> before;
    ASSERT_TRUE(
        pumpUntil([](const OJson& f) { return f.value("type", "") == "message" && f["page"] == "barrier"; }, &before));
    for (const OJson& f : before)
      EXPECT_FALSE(f.value("type", "") == "message" || isDismiss(f) || f.value("type", "") == "call")
          << why << ": " << f.dump();
  };

  host_->send(message("vd_set_email", "p", OJson{{"email", ""}}));
  ASSERT_TRUE(pumpUntil([](const OJson& f) { return f.value("type", "") == "message"; }));
  event("click", "btnVeldrin");
  expectNothingFrom("an empty address holds the panel back");
  EXPECT_TRUE(calls_.empty()) << "not even the window is asked for";

  host_->send(message("vd_set_email", "p", OJson{{"email", "a@b.c"}}));
  ASSERT_TRUE(pumpUntil([](const OJson& f) { return f.value("type", "") == "message"; }));
  // No active window: the chain stops and the popover stays open.
  browser_ = FakeBrowser::none();
  event("click", "btnVeldrin");
  ASSERT_TRUE(pumpUntil([](const OJson& f) { return isCall(f, "getActiveWindow"); }));
  expectNothingFrom("no window, no message");

  browser_ = FakeBrowser::showing(nullptr);
  calls_.clear();
  event("click", "btnVeldrin");
  std::vector<OJson> before;
  auto clicked = pumpUntil(
      [](const OJson& f) { return f.value("type", "") == "message" && f["name"] == "vd_popoverClicked"; }, &before);
  ASSERT_TRUE(clicked);
  EXPECT_EQ((*clicked)["page"], browser_.page);
  ASSERT_TRUE(clicked->contains("userInfo"));
  EXPECT_EQ((*clicked)["userInfo"], OJson::object());
  for (const OJson& f : before) EXPECT_FALSE(isDismiss(f)) << "closed before the page was told";
  ASSERT_EQ(calls_.size(), 3u);
  EXPECT_EQ(calls_[1]["window"], browser_.window);
  EXPECT_EQ(calls_[2]["tab"], browser_.tab);
  EXPECT_TRUE(pumpUntil(isDismiss));
}

TEST_F(PopoverHostTest, MailScanRowTakesEachOutcomeOfItsRefresh) {
  const OJson gmail = {{"url", kGmailUrl}, {"title", "Inbox (3) - a@b.c - Gmail"}};
  struct Case {
    const char* name;
    OJson properties;
    int vdsStatus;
    OJson vdsBody;
    OJson row;  // (enabled, check hidden, label colour, tooltip)
  };
  const OJson notMail = {{"url", "https://example.com/"}, {"title", "Example - Site"}};
  // clang-format off
  const Case cases[] = {
      {"A: not a mail page", notMail, 200, {}, {false, true, "grey", kUnavailableTip}},
      {"A: Gmail's host with something in front", {{"url", "https://xmail.google.com/"}, {"title", "a - b@c.d - x"}},
       200, {}, {false, true, "grey", kUnavailableTip}},
      {"B: no address in the title", {{"url", kGmailUrl}, {"title", "Inbox"}}, 200, {},
       {false, true, "grey", kRowTitle}},
      {"C: scanner switched off for the account", gmail, 200, {{"EnableVeldrin", "false"}},
       {true, true, "Color", kRowTitle}},
      {"C: a regional Yahoo Mail host", {{"url", "https://uk.mail.yahoo.com/d/"}, {"title", "Inbox - a@b.c - Yahoo"}},
       200, {{"EnableVeldrin", false}, {"ShowDCN", 1}}, {true, true, "Color", kRowTitle}},
      // A failed load leaves the check mark as it was.
      {"D: the load fails", gmail, 500, {{"error", 1}}, {false, false, "grey", kRowTitle}},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    answer(ServiceAnswers{});
    service_.clear();
    startHost();
    enableToolbar(*host_);
    // From outcome C with the check mark on.
    browser_ = FakeBrowser::showing(gmail);
    hook("popoverWillShow");
    const OJson loaded = {true, false, "Color", kRowTitle};
    ASSERT_TRUE(pumpUntil([&](const OJson&) { return veldrinRow() == loaded; })) << veldrinRow().dump();
    bool sawVds = false;
    for (const auto& r : commands("vds")) {
      sawVds = true;
      EXPECT_EQ(r.target, "/BrowserExt/command?type=vds&e=YUBiLmM=");
    }
    EXPECT_TRUE(sawVds);

    ServiceAnswers a;
    a.vdsStatus = c.vdsStatus;
    a.vdsBody = c.vdsBody;
    answer(a);
    browser_ = FakeBrowser::showing(c.properties);
    hook("popoverWillShow");
    EXPECT_TRUE(pumpUntil([&](const OJson&) { return veldrinRow() == c.row; }))
        << "expected " << c.row.dump() << ", last " << veldrinRow().dump();
    host_.reset();
  }
}

TEST_F(PopoverHostTest, HoverAttachesLayersOnlyOnEnabledButtonsAndShowingsClearThem) {
  startHost();
  enableToolbar(*host_);
  showUntil(true, true, true);
  for (const char* name : {"layerAutoRating", "layerManualRating", "layerVeldrin", "layerSettings", "layerHelp"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(layer(name)["built"], true);
    EXPECT_EQ(layer(name)["colors"], OJson::array({rgb(240, 245, 252), rgb(224, 233, 244)}));
    EXPECT_EQ(layer(name)["borderColor"], rgb(187, 204, 221));
    EXPECT_EQ(layer(name)["borderWidth"], 1.0);
    EXPECT_EQ(layer(name)["cornerRadius"], 3.0);
    EXPECT_TRUE(layer(name)["attachedTo"].is_null());
  }

  event("mouseEntered", "btnSettings");
  settle();
  EXPECT_EQ(layer("layerSettings")["attachedTo"], "settingLayer");
  event("mouseExited", "btnSettings");
  settle();
  EXPECT_TRUE(layer("layerSettings")["attachedTo"].is_null());

  // A highlight left over when the popover closed is gone at the next showing.
  event("mouseEntered", "btnHelp");
  settle();
  EXPECT_EQ(layer("layerHelp")["attachedTo"], "helpLayer");
  hook("popoverWillShow");
  settle();
  EXPECT_TRUE(layer("layerHelp")["attachedTo"].is_null());

  // A disabled button ignores the mouse even with its handlers installed.
  browser_ = FakeBrowser::showing({{"url", "https://example.com/"}, {"title", "x"}});
  hook("popoverWillShow");
  ASSERT_TRUE(pumpUntil([&](const OJson&) { return outlet("btnVeldrin")["enabled"] == false; }));
  browser_ = FakeBrowser::none();
  EXPECT_EQ(outlet("btnVeldrin")["hover"], true);
  event("mouseEntered", "btnVeldrin");
  settle();
  EXPECT_TRUE(layer("layerVeldrin")["attachedTo"].is_null());

  // Built once: a later dark showing keeps the light colours.
  show("dark");
  EXPECT_EQ(state_["appearance"], "dark");
  EXPECT_EQ(layer("layerAutoRating")["colors"], OJson::array({rgb(240, 245, 252), rgb(224, 233, 244)}));

  // Toolbar off: the handlers are gone and the buttons disabled.
  ServiceAnswers off;
  off.settingsHeaders.clear();
  answer(off);
  showUntil(false, true, true);
  event("mouseEntered", "btnAutoRating");
  settle();
  EXPECT_TRUE(layer("layerAutoRating")["attachedTo"].is_null());
}

TEST_F(PopoverHostTest, LayersBuiltInTheDarkUseTheHighlightColour) {
  startHost();
  show("dark");
  EXPECT_EQ(layer("layerVeldrin")["colors"], OJson::array({"highlightColor", "highlightColor"}));
  EXPECT_EQ(layer("layerVeldrin")["borderColor"], rgb(187, 204, 221));
  EXPECT_EQ(layer("layerVeldrin")["cornerRadius"], 3.0);
}

TEST_F(PopoverHostTest, EachHookWritesItsLogLine) {
  startHost();
  auto count = [&](const std::string& text) {
    auto lines = host_->logLines();
    return std::count_if(lines.begin(), lines.end(),
                         [&](const std::string& l) { return l.find(text) != std::string::npos; });
  };
  const std::string refresh = "[SafariToolbar] updateVeldrinSetting enter.";
  struct Case {
    const char* hook;
    const char* line;
    bool refreshesMailRow;
  };
  const Case cases[] = {
      {"validateToolbarItem", "[SafariToolbar] validateToolbarItemInWindow enter.", true},
      {"popoverViewController", "[SafariToolbar] popoverDidCloseInWindow enter.", false},
      {"popoverWillShow", "[SafariToolbar] popoverWillShowInWindow enter.", true},
      {"popoverDidClose", "[SafariToolbar] popoverDidCloseInWindow enter.", false},
      {"toolbarItemClicked", "[SafariToolbar] toolbarItemClickedInWindow The extension's toolbar item was clicked",
       false},
  };
  // Hooks are handled in order and log at once, so a later hook's line marks
  // the end of the work of the ones before it.
  const std::string marker = "toolbarItemClickedInWindow The extension's toolbar item was clicked";
  for (const Case& c : cases) {
    SCOPED_TRACE(c.hook);
    const int isMarker = std::string(c.hook) == "toolbarItemClicked" ? 1 : 0;
    const auto lines = count(c.line);
    const auto refreshes = count(refresh);
    const auto marks = count(marker);
    hook(c.hook);
    hook("toolbarItemClicked");
    for (int i = 0; i < 250 && count(marker) < marks + 1 + isMarker; ++i) std::this_thread::sleep_for(20ms);
    EXPECT_EQ(count(c.line), lines + 1 + isMarker);
    EXPECT_EQ(count(refresh), refreshes + (c.refreshesMailRow ? 1 : 0));
  }
}

TEST_F(PopoverHostTest, PopoverCommandPrintsTheRows) {
  ServiceAnswers failing;
  failing.settingsStatus = 500;
  const std::pair<ServiceAnswers, std::string> cases[] = {
      {{},
       "[x] Automatic scan\n[x] Manual rating\n[x] Veldrin Scam Scanner - \"Veldrin Scam Scanner\"\n    Settings\n"
       "    Help\n"},
      // The command lets the mail-scan row's refresh finish before the popover
      // appears, and appearing recolours every label: the unavailable row
      // reads disabled, not greyed.
      {failing, "[ ] Automatic scan (greyed)\n[ ] Manual rating (greyed)\n[ ] Veldrin Scam Scanner (disabled) - \"" +
                    std::string(kUnavailableTip) + "\"\n    Settings (greyed)\n    Help (greyed)\n"},
  };
  for (const auto& [service, expected] : cases) {
    answer(service);
    HostProcess cli(WREN_BRIDGE_EXE, {"popover", "--url", kGmailUrl, "--title", "Inbox (3) - a@b.c - Gmail"},
                    testEnv());
    EXPECT_EQ(cli.readAllStdout(), expected);
    EXPECT_EQ(cli.wait(15s), 0);
  }
}

}  // namespace
}  // namespace wren::test

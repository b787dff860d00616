// The toolbar popover end to end: the real host, a real service on loopback,
// and this test as the extension's popup (hooks, appearance and mouse
// events in, popover state frames and dismissals out).
#include "host_fixture.h"

namespace wren::test {
namespace {

const char kUnavailableTip[] = "Works for Gmail and Yahoo Mail when you are signed in.";
const char kRowTitle[] = "Veldrin Scam Scanner";
const char kGmailUrl[] = "https://mail.google.com/mail/u/0/#inbox";

OJson rgb(int r, int g, int b) { return OJson::array({r / 255.0, g / 255.0, b / 255.0, 1.0}); }
bool isCall(const OJson& f, const char* method) { return is(f, "call") && f.value("method", "") == method; }
bool isDismiss(const OJson& f) { return is(f, "popover") && f.contains("dismiss"); }

class PopoverHostTest : public HostTest {
 protected:
  // Hooks that refresh the mail-scan row start with a window lookup; waiting
  // for it means the hook has been handled.
  void refresh(const std::string& name) {
    hook(name);
    ASSERT_TRUE(pump([](const OJson& f) { return isCall(f, "getActiveWindow"); })) << name;
  }
  // A mouse event or click on `control`.
  void event(const std::string& name, const std::string& control) {
    host_->send({{"type", "popover"}, {"event", name}, {"control", control}});
  }
  void appear(const std::string& look) {
    for (const char* name : {"viewWillAppear", "viewDidAppear"})
      host_->send({{"type", "popover"}, {"event", name}, {"appearance", look}});
  }
  // After this, state_ reflects every event sent before. A state frame is
  // posted behind the event that caused it; the first hook's lookup proves
  // that event handled (and its frame queued), the second one's lookup comes
  // after the queued frame. Works with the row's lookups answered "none".
  void settle() {
    const OJson saved = std::exchange(browser_, OJson::object());
    refresh("validateToolbarItem");
    refresh("validateToolbarItem");
    browser_ = saved;
  }
  // One showing in the browser's order.
  void show(const std::string& appearance = "light") {
    hook("popoverViewController");
    refresh("popoverWillShow");
    appear(appearance);
    settle();
  }
  // Shows the popover until the flags loaded from the service are on screen
  // (an answer that arrives after a showing shows at the next one).
  void showUntil(bool toolbar, bool autoScan, bool manual) {
    const auto shown = [&] {
      show();
      return outlet("btnAutoRating")["enabled"] == toolbar && outlet("autoRatingCheck")["hidden"] == !autoScan &&
             outlet("manualRatingCheck")["hidden"] == !manual;
    };
    if (eventually(shown)) return;
    FAIL() << "within " << kStepDeadline.count() << " s never showed toolbar=" << toolbar << " auto=" << autoScan << " manual=" << manual << ": " << state_;
  }
  OJson layer(const std::string& name) const { return state_.value("layers", OJson::object()).value(name, OJson()); }
  // The mail-scan row as (enabled, check hidden, label colour, tooltip).
  OJson veldrinRow() const {
    return {outlet("btnVeldrin")["enabled"], outlet("veldrinCheck")["hidden"], outlet("lblVeldrin")["textColor"],
            outlet("lblVeldrin")["toolTip"]};
  }
};

TEST_F(PopoverHostTest, RowsFollowTheThreeFlagsWhateverCarriesThem) {
  struct Case { bool toolbar, autoScan, manual; ServiceAnswers service; };
  const std::string bar = "X-Wren-ToolbarStatus", au = "EnableAutomaticScan", ma = "EnableManualScanner";
  const Case cases[] = {
      {true, true, true, {200, {{bar, "true"}}, {{au, true}, {ma, true}}}},
      {true, true, false, {200, {{bar, "1"}}, {{au, "1"}, {ma, "false"}}}},
      {true, false, true, {200, {{bar, "YES"}, {au, "true"}}, {{au, 0}, {ma, 1}}}},  // a body key wins over a header
      {true, false, false, {200, {{bar, "true"}}, OJson::object()}},
      {false, true, true, {200, {}, {{au, true}, {ma, "yes"}}}},
      {false, true, false, {200, {{bar, "0"}, {au, "1"}}, OJson::object()}},
      {false, false, true, {200, {{bar, "false"}}, {{ma, true}}}},
      {false, false, false, {200, {{bar, "true"}}, {{bar, "false"}}}},
      {true, true, true, {200, {}, {{"x-wren-toolbarstatus", "1"}, {au, "yes"}, {ma, "01"}}}},  // any case of the name
      {false, false, false, {200, {}, {{"x-wren-toolbarstatus", "1"}, {bar, "0"}}}},  // but the exact one first
      // Values that are neither text, number nor boolean read as off.
      {false, false, false, {200, {{bar, "true"}}, {{bar, OJson::array({1})}, {au, OJson::object()}, {ma, nullptr}}}},
      {false, false, false, {500, {{bar, "true"}}, {{au, true}, {ma, true}}}},  // a failed load switches all off
  };
  start();
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.service.settingsStatus << " " << c.service.settingsBody);
    // Start from the opposite rows, so every row has to change.
    answer({.settingsHeaders = {{bar, c.toolbar ? "false" : "true"}},
            .settingsBody = {{au, !c.autoScan}, {ma, !c.manual}}});
    showUntil(!c.toolbar, !c.autoScan, !c.manual);
    answer(c.service);
    showUntil(c.toolbar, c.autoScan, c.manual);

    for (const char* row : {"AutoRating", "ManualRating", "Settings", "Help"}) {
      EXPECT_EQ(outlet(std::string("btn") + row)["enabled"], c.toolbar) << row;
      EXPECT_EQ(outlet(std::string("btn") + row)["hover"], c.toolbar) << row;
      EXPECT_EQ(outlet(std::string("lbl") + row)["textColor"], c.toolbar ? "Color" : "grey") << row;
    }
    // The mail-scan row belongs to its own refresh: only its hover follows.
    EXPECT_EQ(outlet("btnVeldrin")["hover"], c.toolbar);
    EXPECT_EQ(outlet("btnVeldrin")["enabled"], true);
    EXPECT_EQ(outlet("lblVeldrin")["textColor"], "Color");
    EXPECT_EQ(outlet("viewVeldrin")["hidden"], false);
    EXPECT_EQ(state_["constraints"], (OJson{{"topToVeldrin", 750.0}, {"topToManualRating", 250.0}}));
  }
}

TEST_F(PopoverHostTest, ClicksSendTheirCommandsAndCloseThePopover) {
  start();
  // The flags are loaded once here and never again, so nothing but the clicks
  // changes them below. Page messages answered at once mark the events done.
  enableToolbar();
  appear("light");
  for (const char* page : {"marker-1", "marker-2"}) ASSERT_TRUE(ask("vd_show_protect_promotion", page, std::nullopt));
  ASSERT_EQ(outlet("autoRatingCheck")["hidden"], false) << state_;
  ASSERT_EQ(outlet("manualRatingCheck")["hidden"], false);
  const std::tuple<const char*, const char*, const char*, bool> cases[] = {
      // control, query (parameters sorted by name), check mark flipped locally (or ""), hidden after
      {"btnAutoRating", "name=EnableAutomaticScan&type=updateSetting&value=false", "autoRatingCheck", true},
      // The flag was flipped locally, so a second click asks for the opposite.
      {"btnAutoRating", "name=EnableAutomaticScan&type=updateSetting&value=true", "autoRatingCheck", false},
      {"btnManualRating", "name=EnableManualScanner&type=updateSetting&value=false", "manualRatingCheck", true},
      {"btnManualRating", "name=EnableManualScanner&type=updateSetting&value=true", "manualRatingCheck", false},
      {"btnSettings", "type=showToolbarUI", "", false},
      {"btnHelp", "type=showToolbarHelp", "", false},
  };
  for (const auto& [control, query, check, hiddenAfter] : cases) {
    SCOPED_TRACE(query);
    service_.clear();
    event("click", control);
    ASSERT_TRUE(pump(isDismiss));
    ASSERT_TRUE(service_.waitForRequests(1));
    const auto sent = service_.requests();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].method + " " + sent[0].target, std::string("GET /BrowserExt/command?") + query);
    const auto* checkName = check;  // structured bindings cannot be captured by clang 14
    const bool hidden = hiddenAfter;
    EXPECT_TRUE(!*checkName || pump([&](const OJson&) { return outlet(checkName)["hidden"] == hidden; })) << state_;
  }
}

TEST_F(PopoverHostTest, GreyedRowsIgnoreClicks) {
  ServiceAnswers off;
  off.settingsHeaders = {{"X-Wren-ToolbarStatus", "false"}};
  answer(off);
  start();
  // Not web mail: the mail-scan row is greyed too. A mail-scan click that
  // went through would still reach this page.
  browser_ = showing({{"url", "https://example.com/"}, {"title", "Example"}});
  showUntil(false, true, true);
  refresh("popoverWillShow");
  ASSERT_TRUE(pump([&](const OJson&) { return outlet("btnVeldrin")["enabled"] == false; })) << state_;
  service_.clear();
  for (const char* control : {"btnAutoRating", "btnManualRating", "btnVeldrin", "btnSettings", "btnHelp"}) {
    event("click", control);
    settle();
    EXPECT_TRUE(host_->waitForLog(std::string("ignored popover click: ") + control + " is disabled"));
  }
  for (const auto& request : service_.requests()) EXPECT_NE(request.path, "/BrowserExt/command") << request.target;
  for (const char* check : {"autoRatingCheck", "manualRatingCheck"}) EXPECT_EQ(outlet(check)["hidden"], false);
}

TEST_F(PopoverHostTest, TheMailScanClickReachesTheActivePageOnlyWithAnAddress) {
  start();
  enableToolbar();
  // A click that must do nothing: every frame before the answer to a later
  // message (answered at once, in order) is checked.
  auto expectNothingFrom = [&](const char* why) {
    host_->send(message("vd_show_protect_promotion", "barrier", std::nullopt));
    std::vector<OJson> before;
    ASSERT_TRUE(pump([](const OJson& f) { return is(f, "message") && f["page"] == "barrier"; }, 10s, &before));
    for (const OJson& f : before)
      EXPECT_FALSE(is(f, "message") || isDismiss(f) || is(f, "call")) << why << ": " << f;
  };
  ASSERT_TRUE(ask("vd_set_email", "p", OJson{{"email", ""}}));
  calls_.clear();
  event("click", "btnVeldrin");
  expectNothingFrom("an empty address holds the panel back");
  EXPECT_TRUE(calls_.empty()) << "not even the window is asked for";

  ASSERT_TRUE(ask("vd_set_email", "p", OJson{{"email", "a@b.c"}}));
  event("click", "btnVeldrin");  // no active window: the chain stops and the popover stays open
  ASSERT_TRUE(pump([](const OJson& f) { return isCall(f, "getActiveWindow"); }));
  expectNothingFrom("no window, no message");

  browser_ = showing(nullptr);
  calls_.clear();
  event("click", "btnVeldrin");
  std::vector<OJson> before;
  auto clicked = pump([](const OJson& f) { return is(f, "message") && f["name"] == "vd_popoverClicked"; }, 5s, &before);
  ASSERT_TRUE(clicked);
  EXPECT_EQ(*clicked, message("vd_popoverClicked", browser_["getActivePage"], OJson::object()));
  for (const OJson& f : before) EXPECT_FALSE(isDismiss(f)) << "closed before the page was told";
  ASSERT_EQ(calls_.size(), 3u);
  EXPECT_EQ(calls_[1]["window"], browser_["getActiveWindow"]);
  EXPECT_EQ(calls_[2]["tab"], browser_["getActiveTab"]);
  EXPECT_TRUE(pump(isDismiss));
}

TEST_F(PopoverHostTest, MailScanRowTakesEachOutcomeOfItsRefresh) {
  const OJson gmail = {{"url", kGmailUrl}, {"title", "Inbox (3) - a@b.c - Gmail"}};
  const OJson loaded = {true, false, "Color", kRowTitle};  // as veldrinRow(): outcome C with the check mark on
  // The page, the service, the row as veldrinRow(), the switches' loads (the first showing's too), and whether
  // the page is asked for its address.
  struct Case { const char* name; OJson properties; ServiceAnswers service; OJson row; int loads; bool asksPage; };
  const Case cases[] = {
      {"A: not a mail page", {{"url", "https://example.com/"}, {"title", "Example - Site"}}, {},
       {false, true, "grey", kUnavailableTip}, 1, false},
      {"A: Gmail's host with something in front", {{"url", "https://xmail.google.com/"}, {"title", "a - b@c.d - x"}},
       {}, {false, true, "grey", kUnavailableTip}, 1, false},
      {"B: no address in the title", {{"url", kGmailUrl}, {"title", "Inbox"}}, {}, {false, true, "grey", kRowTitle},
       1, false},
      {"an account of blanks only leaves the row", {{"url", kGmailUrl}, {"title", "Inbox -    - Gmail"}}, {}, loaded,
       1, false},
      {"no page properties leave the row", nullptr, {}, loaded, 1, false},
      {"C: scanner switched off for the account", gmail, {.vdsBody = {{"EnableVeldrin", "false"}}},
       {true, true, "Color", kRowTitle}, 2, false},
      {"C: a regional Yahoo Mail host", {{"url", "https://uk.mail.yahoo.com/d/"}, {"title", "Inbox - a@b.c - Yahoo"}},
       {.vdsBody = {{"EnableVeldrin", false}, {"ShowDCN", 1}}}, {true, true, "Color", kRowTitle}, 2, false},
      // Yahoo! JAPAN Mail tells its address only to the page: the page is asked, the one it reported before is used.
      {"C: Yahoo! JAPAN Mail", {{"url", "https://mail.yahoo.co.jp/u/pc/f/message"}, {"title", "Yahoo!メール"}},
       {.vdsBody = {{"EnableVeldrin", false}}}, {true, true, "Color", kRowTitle}, 2, true},
      // A failed load leaves the check mark as it was.
      {"D: the load fails", gmail, {.vdsStatus = 500, .vdsBody = {{"error", 1}}}, {false, false, "grey", kRowTitle},
       2, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    answer({});
    browser_ = OJson::object();  // the last case's page must not reach this host's first refresh
    service_.clear();
    start();
    enableToolbar();
    browser_ = showing(gmail);
    refresh("popoverWillShow");
    ASSERT_TRUE(pump([&](const OJson&) { return veldrinRow() == loaded; })) << veldrinRow();
    answer(c.service);
    browser_ = showing(c.properties);
    refresh("popoverWillShow");
    bool asked = false, propertiesRead = false;
    EXPECT_TRUE(pump([&](const OJson& f) {
      asked |= is(f, "message") && f["name"] == "vd_get_user_email";
      propertiesRead |= isCall(f, "getPageProperties");
      return propertiesRead && veldrinRow() == c.row;
    })) << "expected " << c.row << ", last " << veldrinRow();
    settle();
    EXPECT_EQ(veldrinRow(), c.row);
    EXPECT_EQ(asked, c.asksPage);
    std::vector<std::string> loads;
    for (const auto& r : service_.requests())
      if (r.query.starts_with("type=vds")) loads.push_back(r.target);
    EXPECT_EQ(loads, std::vector<std::string>(c.loads, "/BrowserExt/command?type=vds&e=YUBiLmM="));
  }
}

TEST_F(PopoverHostTest, HoverAttachesLayersOnlyOnEnabledButtonsAndShowingsClearThem) {
  start();
  enableToolbar();
  showUntil(true, true, true);
  // Each row's layer is sized from its row (260 by 30) and lights that row only.
  const OJson light = {{"built", true}, {"colors", {rgb(240, 245, 252), rgb(224, 233, 244)}},
                       {"borderColor", rgb(187, 204, 221)}, {"borderWidth", 1.0}, {"cornerRadius", 3.0},
                       {"attachedTo", nullptr}, {"bounds", {0.0, 0.0, 260.0, 30.0}}, {"position", {130.0, 15.0}}};
  // Where the row's layer is attached after a mouse event on its button.
  auto mouse = [&](const char* name, const std::string& row) {
    event(name, "btn" + row);
    settle();
    return layer("layer" + row)["attachedTo"];
  };
  const std::pair<const char*, const char*> rows[] = {{"AutoRating", "autoRatingLayer"},
      {"ManualRating", "manualRatingLayer"}, {"Veldrin", "veldrinLayer"}, {"Settings", "settingLayer"},
      {"Help", "helpLayer"}};
  for (const auto& [row, target] : rows) {
    const OJson built = layer(std::string("layer") + row);
    for (const auto& [key, value] : light.items()) EXPECT_EQ(built[key], value) << row << " " << key;
    EXPECT_EQ(mouse("mouseEntered", row), target);
    EXPECT_EQ(mouse("mouseExited", row), nullptr);
  }
  // A highlight left over when the popover closed is gone at the next showing.
  EXPECT_EQ(mouse("mouseEntered", "Help"), "helpLayer");
  refresh("popoverWillShow");
  settle();
  EXPECT_EQ(layer("layerHelp")["attachedTo"], nullptr);

  // A disabled button ignores the mouse even with its handlers installed.
  browser_ = showing({{"url", "https://example.com/"}, {"title", "x"}});
  refresh("popoverWillShow");
  ASSERT_TRUE(pump([&](const OJson&) { return outlet("btnVeldrin")["enabled"] == false; }));
  browser_ = OJson::object();
  EXPECT_EQ(outlet("btnVeldrin")["hover"], true);
  EXPECT_EQ(mouse("mouseEntered", "Veldrin"), nullptr);

  // Built once: a later dark showing keeps the light colours.
  show("dark");
  EXPECT_EQ(state_["appearance"], "dark");
  EXPECT_EQ(layer("layerAutoRating")["colors"], OJson::array({rgb(240, 245, 252), rgb(224, 233, 244)}));

  // Toolbar off: the handlers are gone and the buttons disabled. (Layers first
  // built in the dark: the browser tests' dark popup.)
  answer({.settingsHeaders = {}});
  showUntil(false, true, true);
  EXPECT_EQ(mouse("mouseEntered", "AutoRating"), nullptr);
}

TEST_F(PopoverHostTest, EachHookWritesItsLogLine) {
  start();
  for (const char* name :
       {"validateToolbarItem", "popoverViewController", "popoverWillShow", "popoverDidClose", "toolbarItemClicked"})
    hook(name);
  // Hooks are handled in order and log at once, the two that refresh the
  // mail-scan row its line too; the view-controller hook uses the close text.
  const std::vector<std::string> expected = {
      "[SafariToolbar] validateToolbarItemInWindow enter.", "[SafariToolbar] updateVeldrinSetting enter.",
      "[SafariToolbar] popoverDidCloseInWindow enter.",     "[SafariToolbar] popoverWillShowInWindow enter.",
      "[SafariToolbar] updateVeldrinSetting enter.",        "[SafariToolbar] popoverDidCloseInWindow enter.",
      "[SafariToolbar] toolbarItemClickedInWindow The extension's toolbar item was clicked"};
  std::vector<std::string> seen;
  eventually([&] {
    seen.clear();
    for (const auto& line : host_->logLines())
      if (line.ends_with("enter.") || line.find("toolbarItemClicked") != std::string::npos) seen.push_back(line);
    return seen.size() >= expected.size();
  });
  EXPECT_EQ(seen, expected);
}

TEST_F(PopoverHostTest, PopoverCommandPrintsTheRows) {
  const std::pair<ServiceAnswers, std::string> cases[] = {
      {{},
       "[x] Automatic scan\n[x] Manual rating\n[x] Veldrin Scam Scanner - \"Veldrin Scam Scanner\"\n    Settings\n"
       "    Help\n"},
      // The command lets the mail-scan row's refresh finish before the popover
      // appears, and appearing recolours every label: the unavailable row
      // reads disabled, not greyed.
      {{.settingsStatus = 500},
       "[ ] Automatic scan (greyed)\n[ ] Manual rating (greyed)\n[ ] Veldrin Scam Scanner (disabled) - \"" +
           std::string(kUnavailableTip) + "\"\n    Settings (greyed)\n    Help (greyed)\n"},
  };
  for (const auto& [service, expected] : cases) {
    answer(service);
    HostProcess cli(WREN_BRIDGE_EXE, {"popover", "--url", kGmailUrl, "--title", "Inbox (3) - a@b.c - Gmail"}, env());
    EXPECT_EQ(cli.readAllStdout(), expected);
    EXPECT_EQ(cli.wait(15s), 0);
  }
}

}  // namespace
}  // namespace wren::test

// The install, uninstall and doctor commands on a temporary home, PATH, system
// root and Chromium profile, registering the real wren-bridge binary: what
// they write, which browsers they write for when none is named, and that
// uninstall leaves the folders as they were before install.
#include "host/install.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <tuple>

namespace wren {
namespace {

namespace fs = std::filesystem;

std::string readText(const fs::path& file) { std::ifstream in(file); return {std::istreambuf_iterator<char>(in), {}}; }

const std::string kDevOrigin = "chrome-extension://" + std::string(kDevelopmentExtensionId) + "/",
                  kFirefoxId(kFirefoxExtensionId);

class InstallTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/wren-install-test-XXXXXX";
    ASSERT_NE(::mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    env_ = {.home = root_ / "home", .configHome = root_ / "home/.config", .executable = fs::canonical(WREN_BRIDGE_EXE),
            .systemRoot = root_ / "sys", .path = (root_ / "bin").string() + ":relative/bin:", .out = &out_,
            .err = &err_};
    fs::create_directories(env_.home);
  }
  void TearDown() override { fs::remove_all(root_); }

  int install(const std::vector<std::string>& args) { return runInstallCommand(args, env_); }
  int uninstall(const std::vector<std::string>& args) { return runUninstallCommand(args, env_); }
  Json manifestAt(const fs::path& file) { return Json::parse(readText(file)); }
  fs::path userManifest(std::string_view dir) {
    return (dir.starts_with(".mozilla") ? env_.home : env_.configHome) / dir / "com.wren.bridge.json";
  }
  // The doctor's verdict and its lines, one text.
  std::pair<bool, std::string> doctor(const std::vector<std::string>& args) {
    DoctorBrowserReport report = doctorBrowserReport(args, env_);
    std::string all;
    for (const auto& line : report.lines) all += line + "\n";
    return {report.ok, all};
  }
  bool said(const std::string& text) { return out_.str().find(text) != std::string::npos; }
  // Makes `entry` under the root: a trailing "/" makes a folder, "bin/X" an executable, else a file of `text`.
  void make(const std::string& entry, const std::string& text = "x") {
    const fs::path p = root_ / entry;
    fs::create_directories(entry.ends_with("/") ? p : p.parent_path());
    if (entry.ends_with("/")) return;
    std::ofstream(p) << text;
    if (entry.starts_with("bin/")) fs::permissions(p, fs::perms::owner_all);
  }
  // Every path under the root, relative to it.
  std::set<std::string> tree() const {
    std::set<std::string> paths;
    for (const auto& e : fs::recursive_directory_iterator(root_)) paths.insert(fs::relative(e.path(), root_).string());
    return paths;
  }

  fs::path root_;
  InstallEnvironment env_;
  std::ostringstream out_, err_;
};

// Each browser's manifest is its family's, as the package ships it (PackagedManifestTest below).
TEST_F(InstallTest, WritesTheManifestOfEveryBrowserForTheUser) {
  ASSERT_EQ(install({"--browser", "all"}), 0) << err_.str();
  for (const char* dir : {"chromium/NativeMessagingHosts", "google-chrome/NativeMessagingHosts",
                          "microsoft-edge/NativeMessagingHosts", "BraveSoftware/Brave-Browser/NativeMessagingHosts",
                          "vivaldi/NativeMessagingHosts", ".mozilla/native-messaging-hosts"}) {
    SCOPED_TRACE(dir);
    const fs::path file = userManifest(dir);
    const bool firefox = std::string_view(dir).starts_with(".mozilla");
    const BrowserFamily family = firefox ? BrowserFamily::kFirefox : BrowserFamily::kChromium;
    const std::string id(firefox ? kFirefoxExtensionId : kDevelopmentExtensionId);
    EXPECT_EQ(readText(file), hostManifest(family, env_.executable, {id}).dump(2) + "\n");
    EXPECT_EQ(fs::status(file).permissions() & fs::perms::all, fs::perms(0644));
    EXPECT_TRUE(said("wrote " + file.string()));
  }
}

TEST_F(InstallTest, InstallingAgainChangesNothingAndReplacesAManifestThatPointsElsewhere) {
  const fs::path file = userManifest("chromium/NativeMessagingHosts");
  make(fs::relative(file, root_).string(), R"({"name":"com.wren.bridge","path":"/old/wren-bridge"})");
  ASSERT_EQ(install({"--browser=chromium"}), 0);
  EXPECT_EQ(manifestAt(file)["path"], env_.executable.string());
  const std::string first = readText(file);
  out_.str("");
  ASSERT_EQ(install({"--browser", "chromium"}), 0);
  EXPECT_EQ(readText(file), first);
  EXPECT_TRUE(said("up to date")) << out_.str();
  EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), fs::directory_iterator()), 1)
      << "no temporary file left behind";
  EXPECT_FALSE(fs::exists(userManifest(".mozilla/native-messaging-hosts")));
}

TEST_F(InstallTest, ProfileInstallGoesIntoTheProfileOnlyAndIdsToTheirFamily) {
  const fs::path profile = root_ / "profile";
  ASSERT_EQ(install({"--user-data-dir", profile.string()}), 0) << err_.str();
  const Json inProfile = manifestAt(profile / "NativeMessagingHosts/com.wren.bridge.json");
  EXPECT_EQ(inProfile["allowed_origins"], Json::array({kDevOrigin}));
  EXPECT_FALSE(fs::exists(env_.configHome));
  EXPECT_FALSE(fs::exists(env_.home / ".mozilla"));

  const std::string other = "abcdefghijklmnopabcdefghijklmnop";
  ASSERT_EQ(install({"--browser=all", "--extension-id", other, "--extension-id", kDevOrigin, "--extension-id", other}),
            0)
      << err_.str();
  EXPECT_EQ(manifestAt(userManifest("chromium/NativeMessagingHosts"))["allowed_origins"],
            Json::array({"chrome-extension://" + other + "/", kDevOrigin}));
  // No Firefox id given: Firefox keeps the Wren add-on's own.
  EXPECT_EQ(manifestAt(userManifest(".mozilla/native-messaging-hosts"))["allowed_extensions"],
            Json::array({kFirefoxId}));
  ASSERT_EQ(install({"--browser", "firefox", "--extension-id", "{12345678-1234-1234-1234-123456789abc}"}), 0);
  EXPECT_EQ(manifestAt(userManifest(".mozilla/native-messaging-hosts"))["allowed_extensions"],
            Json::array({"{12345678-1234-1234-1234-123456789abc}"}));
}

TEST_F(InstallTest, BadArgumentsWriteNothing) {
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"--frobnicate"}, {"--browser", "netscape"}, {"--browser"}, {"--extension-id", "not an id"},
           {"--extension-id", "ABCDEFGHIJKLMNOPABCDEFGHIJKLMNOP"}, {"--system", "--user-data-dir", "/tmp/x"},
           {"--user-data-dir", "/tmp/x", "--browser", "firefox"}, {"--user-data-dir="}}) {
    SCOPED_TRACE(args[0] + (args.size() > 1 ? " " + args[1] : ""));
    err_.str("");
    EXPECT_EQ(install(args), 2);
    EXPECT_NE(err_.str().find("Usage:"), std::string::npos);
  }
  EXPECT_FALSE(fs::exists(env_.configHome));
  EXPECT_FALSE(fs::exists(env_.home / ".mozilla"));
}

TEST_F(InstallTest, SystemInstallUsesTheSystemLocationsAndNamesTheBrowsersWithoutOne) {
  ASSERT_EQ(install({"--system", "--browser", "all"}), 0) << err_.str();
  for (const char* dir : {"etc/chromium/native-messaging-hosts", "etc/opt/chrome/native-messaging-hosts",
                          "etc/opt/edge/native-messaging-hosts", "usr/lib/mozilla/native-messaging-hosts"})
    EXPECT_TRUE(fs::exists(env_.systemRoot / dir / "com.wren.bridge.json")) << dir;
  EXPECT_TRUE(said("Brave: no system-wide location")) << out_.str();
  EXPECT_TRUE(said("Vivaldi: no system-wide location"));
  EXPECT_FALSE(fs::exists(env_.configHome));
}

TEST_F(InstallTest, ALocationThatCannotBeWrittenFailsTheCommandButNotTheOtherBrowsers) {
  make("home/.config/chromium", "a file where a folder belongs");
  EXPECT_EQ(install({"--browser", "chromium", "--browser", "firefox"}), 1);
  EXPECT_NE(err_.str().find("Chromium: cannot write"), std::string::npos) << err_.str();
  EXPECT_TRUE(fs::exists(userManifest(".mozilla/native-messaging-hosts")));
}

TEST_F(InstallTest, UninstallRemovesWhatInstallWrote) {
  ASSERT_EQ(install({"--browser", "all"}), 0);
  ASSERT_EQ(uninstall({}), 0) << err_.str();
  EXPECT_FALSE(fs::exists(userManifest("chromium/NativeMessagingHosts")));
  EXPECT_FALSE(fs::exists(userManifest(".mozilla/native-messaging-hosts")));
  out_.str("");
  EXPECT_EQ(uninstall({"--browser", "chrome"}), 0);
  EXPECT_TRUE(said("not registered")) << out_.str();
  EXPECT_EQ(uninstall({"--extension-id", std::string(kDevelopmentExtensionId)}), 2);
}

TEST_F(InstallTest, DoctorRunsARoundTripWithTheRegisteredHost) {
  auto [ok, text] = doctor({});
  EXPECT_FALSE(ok);
  EXPECT_NE(text.find("wren-bridge install"), std::string::npos) << text;
  // No browser is on this test machine: none is reported as unregistered.
  EXPECT_NE(text.find("not found on this machine, so not checked: Chromium, Google Chrome"), std::string::npos) << text;
  EXPECT_EQ(text.find("not registered ("), std::string::npos) << text;

  ASSERT_EQ(install({"--browser", "chromium"}), 0);
  std::tie(ok, text) = doctor({"--browser", "chromium"});
  EXPECT_TRUE(ok) << text;
  for (const char* line : {"Chromium: registered", "round trip: hello from version ", "exited 0 when stdin closed",
                           "Chromium (system): not registered"})
    EXPECT_NE(text.find(line), std::string::npos) << text;
}

TEST_F(InstallTest, DoctorNamesWhatIsWrongWithAManifest) {
  const fs::path profile = root_ / "profile";
  const fs::path plainFile = root_ / "not-executable";
  make("not-executable");
  auto manifest = [](const std::string& name, const std::string& path, const std::string& origins) {
    return R"({"name":")" + name + R"(","type":"stdio","path":")" + path + "\"" + origins + "}";
  };
  const std::string exe = env_.executable.string(), good = R"(,"allowed_origins":[")" + kDevOrigin + "\"]";
  const std::pair<std::string, std::string> cases[] = {
      {"{not json", "not valid JSON"},
      {manifest("com.wren.bridge", "wren-bridge", good), "\"path\" is not an absolute path"},
      {manifest("com.wren.bridge", exe, R"(,"allowed_origins":["chrome-extension://)" +
                                            std::string(kDevelopmentExtensionId) + "\"]"),
       "bad entry in \"allowed_origins\""},
      {manifest("com.wren.bridge", exe, ""), "no \"allowed_origins\""},
      {manifest("com.Wren.Bridge", exe, good), "\"name\" is not"},
      {manifest("com.wren.bridge", plainFile.string(), good), "is not an executable file"},
      {manifest("com.wren.bridge", "/bin/true", good), "no hello frame"},  // an executable that is not a host
  };
  for (const auto& [text, problem] : cases) {
    SCOPED_TRACE(text);
    make("profile/NativeMessagingHosts/com.wren.bridge.json", text);
    auto [ok, lines] = doctor({"--user-data-dir", profile.string()});
    EXPECT_FALSE(ok);
    EXPECT_NE(lines.find(problem), std::string::npos) << lines;
  }
}

TEST(PackagedManifestTest, TheManifestsThePackageInstallsAreTheOnesInstallWrites) {
  for (auto [family, dir, id] : {std::tuple{BrowserFamily::kChromium, "chromium", std::string(kDevelopmentExtensionId)},
                                 std::tuple{BrowserFamily::kFirefox, "firefox", std::string(kFirefoxExtensionId)}}) {
    SCOPED_TRACE(dir);
    const std::string text = readText(fs::path(WREN_PACKAGED_MANIFESTS) / dir / "com.wren.bridge.json");
    EXPECT_EQ(text, hostManifest(family, WREN_PACKAGED_HOST_PATH, {id}).dump(2) + "\n");
  }
}

struct FolderCase {
  const char* name;
  std::vector<std::string> before;     // made under the test root (InstallTest::make)
  std::vector<std::string> args;       // of install and uninstall (--extension-id aside)
  int installStatus;
  std::vector<std::string> manifests;  // the manifest folders install must write, and no others
  std::vector<std::string> meanwhile;  // files a browser adds between install and uninstall
  std::vector<std::string> left;       // what the first uninstall leaves besides `before` and `meanwhile`
};

const char* const kUserChromium = "home/.config/chromium/NativeMessagingHosts";
const char* const kUserChrome = "home/.config/google-chrome/NativeMessagingHosts";
const char* const kUserFirefox = "home/.mozilla/native-messaging-hosts";

const FolderCase kCases[] = {
    {"NoBrowserHereWritesNothing", {}, {}, 1, {}, {}, {}},
    {"ABrowserOnPathIsWrittenFreshFoldersGoAgain", {"bin/chromium"}, {}, 0, {kUserChromium}, {}, {}},
    {"FirefoxEsrOnPathCountsAsFirefox", {"bin/firefox-esr"}, {}, 0, {kUserFirefox}, {}, {}},
    {"AnExistingConfigFolderCountsAndStays",
     {"home/.config/google-chrome/Local State", "home/.mozilla/"}, {}, 0, {kUserChrome, kUserFirefox}, {}, {}},
    {"ANamedBrowserIsWrittenEvenWhenAbsent", {}, {"--browser", "edge"}, 0,
     {"home/.config/microsoft-edge/NativeMessagingHosts"}, {}, {}},
    {"AFolderThatFilledUpMeanwhileStays", {}, {"--browser", "chrome"}, 0, {kUserChrome},
     {"home/.config/google-chrome/Default/Preferences"},
     {"home/.config/wren-bridge", "home/.config/wren-bridge/created-folders.json"}},  // the record, still needed
    {"TheDefaultsStoreKeepsItsFolder", {"home/.config/wren-bridge/defaults.json", "bin/google-chrome-stable"}, {},
     0, {kUserChrome}, {}, {}},
    {"SystemWideOnlyWhereTheBrowserIs", {"sys/etc/chromium/", "sys/var/lib/"}, {"--system"}, 0,
     {"sys/etc/chromium/native-messaging-hosts"}, {}, {}},
    {"SystemWideNamedMakesItsFolders", {"sys/etc/", "sys/var/lib/"}, {"--system", "--browser", "chrome"}, 0,
     {"sys/etc/opt/chrome/native-messaging-hosts"}, {}, {}},
};

void PrintTo(const FolderCase& c, std::ostream* os) { *os << c.name; }

class InstallFoldersTest : public InstallTest, public ::testing::WithParamInterface<FolderCase> {};

TEST_P(InstallFoldersTest, InstallWritesWhereTheBrowserIsAndUninstallRestoresTheFolders) {
  const FolderCase& c = GetParam();
  for (const auto& entry : c.before) make(entry);
  const std::set<std::string> before = tree();

  EXPECT_EQ(install(c.args), c.installStatus) << out_.str() << err_.str();
  std::set<std::string> written;
  for (const auto& path : tree())
    if (path.ends_with("/com.wren.bridge.json")) written.insert(fs::path(path).parent_path());
  EXPECT_EQ(written, std::set<std::string>(c.manifests.begin(), c.manifests.end())) << out_.str();
  if (c.manifests.empty()) {
    EXPECT_EQ(tree(), before) << "nothing created when nothing is written";
  }

  for (const auto& entry : c.meanwhile) make(entry);
  std::set<std::string> expected = before;
  for (const auto& entry : c.meanwhile)
    for (fs::path p = entry; !p.empty(); p = p.parent_path()) expected.insert(p.string());
  expected.insert(c.left.begin(), c.left.end());
  ASSERT_EQ(uninstall(c.args), 0) << err_.str();
  EXPECT_EQ(tree(), expected) << out_.str();

  if (!c.meanwhile.empty()) {
    // Once the browser's files are gone, the next uninstall takes the folder it had kept.
    fs::remove_all(root_ / fs::path(c.meanwhile.front()).parent_path());
    ASSERT_EQ(uninstall(c.args), 0) << err_.str();
    EXPECT_EQ(tree(), before) << out_.str();
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, InstallFoldersTest, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(InstallTest, SkippedBrowsersAreNamedWithTheWayToWriteThemAnyway) {
  make("bin/vivaldi");
  ASSERT_EQ(install({}), 0) << err_.str();
  const std::string out = out_.str();
  EXPECT_NE(out.find("Vivaldi: wrote"), std::string::npos) << out;
  EXPECT_NE(out.find("Brave: not found (no brave-browser or brave on PATH, no " +
                     (env_.configHome / "BraveSoftware/Brave-Browser").string() +
                     "); skipped, --browser brave registers it anyway"),
            std::string::npos)
      << out;
  out_.str("");
  EXPECT_EQ(install({"--system"}), 1);
  EXPECT_NE(err_.str().find("no supported browser found; name one with --browser NAME"), std::string::npos);
}

TEST_F(InstallTest, AProfileKeepsItsFolderButNotAnEmptyManifestFolder) {
  make("profile/Default/Preferences");
  ASSERT_EQ(install({"--user-data-dir", (root_ / "profile").string()}), 0) << err_.str();
  ASSERT_EQ(uninstall({"--user-data-dir", (root_ / "profile").string()}), 0) << err_.str();
  EXPECT_EQ(tree(), (std::set<std::string>{"home", "profile", "profile/Default", "profile/Default/Preferences"}));
}

}  // namespace
}  // namespace wren

// Which browsers install writes to when none is named, and that uninstall
// leaves the folders as they were before install: on a temporary home, PATH
// and system root, registering the real wren-bridge binary.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "host/install.h"

namespace wren {
namespace {

namespace fs = std::filesystem;

struct FolderCase {
  const char* name;
  std::vector<std::string> before;    // under the test root; a trailing "/" makes a folder, "bin/X" an executable
  std::vector<std::string> args;      // of install and uninstall (--extension-id aside)
  int installStatus;
  std::vector<std::string> manifests;  // the manifest folders install must write, and no others
  std::vector<std::string> meanwhile;  // files a browser adds between install and uninstall
  std::vector<std::string> left;       // what the first uninstall leaves besides `before` and `meanwhile`
};

const char* const kUserChromium = "home/.config/chromium/NativeMessagingHosts";
const char* const kUserChrome = "home/.config/google-chrome/NativeMessagingHosts";
const char* const kUserFirefox = "home/.mozilla/native-messaging-hosts";

const FolderCase kCases[] = {
    {"NoBrowserHereWritesNothing", {"home/"}, {}, 1, {}, {}, {}},
    {"ABrowserOnPathIsWrittenFreshFoldersGoAgain", {"home/", "bin/chromium"}, {}, 0, {kUserChromium}, {}, {}},
    {"FirefoxEsrOnPathCountsAsFirefox", {"home/", "bin/firefox-esr"}, {}, 0, {kUserFirefox}, {}, {}},
    {"AnExistingConfigFolderCountsAndStays",
     {"home/.config/google-chrome/Local State", "home/.mozilla/"}, {}, 0, {kUserChrome, kUserFirefox}, {}, {}},
    {"ANamedBrowserIsWrittenEvenWhenAbsent", {"home/"}, {"--browser", "edge"}, 0,
     {"home/.config/microsoft-edge/NativeMessagingHosts"}, {}, {}},
    {"AFolderThatFilledUpMeanwhileStays", {"home/"}, {"--browser", "chrome"}, 0, {kUserChrome},
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

class InstallFoldersTest : public ::testing::TestWithParam<FolderCase> {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/wren-install-folders-XXXXXX";
    ASSERT_NE(::mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    env_ = {.home = root_ / "home", .configHome = root_ / "home/.config", .executable = fs::canonical(WREN_BRIDGE_EXE),
            .systemRoot = root_ / "sys", .path = (root_ / "bin").string() + ":relative/bin:", .out = &out_,
            .err = &err_};
  }
  void TearDown() override { fs::remove_all(root_); }

  void make(const std::string& entry) {
    const fs::path p = root_ / entry;
    if (entry.ends_with("/")) {
      fs::create_directories(p);
      return;
    }
    fs::create_directories(p.parent_path());
    std::ofstream(p) << "x";
    if (entry.starts_with("bin/")) fs::permissions(p, fs::perms::owner_all);
  }
  // Every path under the root, relative to it.
  std::set<std::string> tree() const {
    std::set<std::string> paths;
    for (const auto& e : fs::recursive_directory_iterator(root_)) paths.insert(fs::relative(e.path(), root_).string());
    return paths;
  }
  std::set<std::string> manifestFolders() const {
    std::set<std::string> dirs;
    for (const auto& e : fs::recursive_directory_iterator(root_))
      if (e.path().filename() == "com.wren.bridge.json") dirs.insert(fs::relative(e.path().parent_path(), root_));
    return dirs;
  }

  fs::path root_;
  InstallEnvironment env_;
  std::ostringstream out_, err_;
};

TEST_P(InstallFoldersTest, InstallWritesWhereTheBrowserIsAndUninstallRestoresTheFolders) {
  const FolderCase& c = GetParam();
  for (const auto& entry : c.before) make(entry);
  const std::set<std::string> before = tree();

  EXPECT_EQ(runInstallCommand(c.args, env_), c.installStatus) << out_.str() << err_.str();
  EXPECT_EQ(manifestFolders(), std::set<std::string>(c.manifests.begin(), c.manifests.end())) << out_.str();
  if (c.manifests.empty()) {
    EXPECT_EQ(tree(), before) << "nothing created when nothing is written";
  }

  for (const auto& entry : c.meanwhile) make(entry);
  std::set<std::string> expected = before;
  for (const auto& entry : c.meanwhile)
    for (fs::path p = entry; !p.empty(); p = p.parent_path()) expected.insert(p.string());
  expected.insert(c.left.begin(), c.left.end());
  ASSERT_EQ(runUninstallCommand(c.args, env_), 0) << err_.str();
  EXPECT_EQ(tree(), expected) << out_.str();

  if (!c.meanwhile.empty()) {
    // Once the browser's files are gone, the next uninstall takes the folder it had kept.
    fs::remove_all(root_ / fs::path(c.meanwhile.front()).parent_path());
    ASSERT_EQ(runUninstallCommand(c.args, env_), 0) << err_.str();
    EXPECT_EQ(tree(), before) << out_.str();
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, InstallFoldersTest, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(InstallFoldersTest, SkippedBrowsersAreNamedWithTheWayToWriteThemAnyway) {
  make("bin/vivaldi");
  ASSERT_EQ(runInstallCommand({}, env_), 0) << err_.str();
  const std::string out = out_.str();
  EXPECT_NE(out.find("Vivaldi: wrote"), std::string::npos) << out;
  EXPECT_NE(out.find("Brave: not found (no brave-browser or brave on PATH, no " +
                     (env_.configHome / "BraveSoftware/Brave-Browser").string() +
                     "); skipped, --browser brave registers it anyway"),
            std::string::npos)
      << out;
  out_.str("");
  EXPECT_EQ(runInstallCommand({"--system"}, env_), 1);
  EXPECT_NE(err_.str().find("no supported browser found; name one with --browser NAME"), std::string::npos);
}

TEST_F(InstallFoldersTest, AProfileKeepsItsFolderButNotAnEmptyManifestFolder) {
  make("profile/Default/Preferences");
  ASSERT_EQ(runInstallCommand({"--user-data-dir", (root_ / "profile").string()}, env_), 0) << err_.str();
  ASSERT_EQ(runUninstallCommand({"--user-data-dir", (root_ / "profile").string()}, env_), 0) << err_.str();
  EXPECT_EQ(tree(), (std::set<std::string>{"profile", "profile/Default", "profile/Default/Preferences"}));
}

}  // namespace
}  // namespace wren

// The install, uninstall and doctor commands on a temporary home, system root
// and Chromium profile, registering the real wren-bridge binary.
#include "host/install.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace wren {
namespace {

namespace fs = std::filesystem;

std::string readText(const fs::path& file) {
  std::ifstream in(file);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void writeText(const fs::path& file, const std::string& text) {
  fs::create_directories(file.parent_path());
  std::ofstream(file) << text;
}

bool contains(const std::string& haystack, const std::string& needle) {
  return haystack.find(needle) != std::string::npos;
}

class InstallTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/wren-install-test-XXXXXX";
    ASSERT_NE(::mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    env_.home = root_ / "home";
    env_.configHome = root_ / "home/.config";
    env_.systemRoot = root_ / "sysroot";
    env_.executable = fs::canonical(WREN_BRIDGE_EXE);
    env_.out = &out_;
    env_.err = &err_;
    fs::create_directories(env_.home);
  }
  void TearDown() override { fs::remove_all(root_); }

  int install(const std::vector<std::string>& args) { return runInstallCommand(args, env_); }
  int uninstall(const std::vector<std::string>& args) { return runUninstallCommand(args, env_); }
  Json manifestAt(const fs::path& file) { return Json::parse(readText(file)); }
  fs::path userManifest(std::string_view dir) {
    const fs::path base = dir.starts_with(".mozilla") ? env_.home : env_.configHome;
    return base / dir / "com.wren.bridge.json";
  }

  fs::path root_;
  InstallEnvironment env_;
  std::ostringstream out_, err_;
};

const std::string kDevOrigin = "chrome-extension://" + std::string(kDevelopmentExtensionId) + "/";

TEST_F(InstallTest, WritesTheManifestOfEveryBrowserForTheUser) {
  ASSERT_EQ(install({}), 0) << err_.str();
  struct Case {
    const char* dir;
    const char* idsKey;
    std::string id;
  } cases[] = {
      {"chromium/NativeMessagingHosts", "allowed_origins", kDevOrigin},
      {"google-chrome/NativeMessagingHosts", "allowed_origins", kDevOrigin},
      {"microsoft-edge/NativeMessagingHosts", "allowed_origins", kDevOrigin},
      {"BraveSoftware/Brave-Browser/NativeMessagingHosts", "allowed_origins", kDevOrigin},
      {"vivaldi/NativeMessagingHosts", "allowed_origins", kDevOrigin},
      {".mozilla/native-messaging-hosts", "allowed_extensions", std::string(kFirefoxExtensionId)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.dir);
    const fs::path file = userManifest(c.dir);
    ASSERT_TRUE(fs::exists(file));
    Json m = manifestAt(file);
    EXPECT_EQ(m["name"], "com.wren.bridge");
    EXPECT_EQ(m["type"], "stdio");
    EXPECT_EQ(m["path"], env_.executable.string());
    EXPECT_TRUE(m["description"].is_string());
    EXPECT_EQ(m[c.idsKey], Json::array({c.id}));
    EXPECT_EQ(m.size(), 5u);
    EXPECT_EQ(fs::status(file).permissions() & fs::perms::all, fs::perms(0644));
    EXPECT_TRUE(contains(out_.str(), "wrote " + file.string()));
  }
}

TEST_F(InstallTest, InstallingAgainChangesNothingAndLeavesNoTemporaryFile) {
  ASSERT_EQ(install({"--browser", "chromium"}), 0);
  const fs::path file = userManifest("chromium/NativeMessagingHosts");
  const std::string first = readText(file);
  out_.str("");
  ASSERT_EQ(install({"--browser", "chromium"}), 0);
  EXPECT_EQ(readText(file), first);
  EXPECT_TRUE(contains(out_.str(), "up to date")) << out_.str();
  size_t entries = 0;
  for (const auto& entry : fs::directory_iterator(file.parent_path())) {
    (void)entry;
    ++entries;
  }
  EXPECT_EQ(entries, 1u);
  EXPECT_FALSE(fs::exists(userManifest(".mozilla/native-messaging-hosts")));
}

TEST_F(InstallTest, ReplacesAManifestThatPointsElsewhere) {
  const fs::path file = userManifest("chromium/NativeMessagingHosts");
  writeText(file, R"({"name":"com.wren.bridge","path":"/old/wren-bridge"})");
  ASSERT_EQ(install({"--browser=chromium"}), 0);
  EXPECT_EQ(manifestAt(file)["path"], env_.executable.string());
}

TEST_F(InstallTest, ProfileInstallGoesIntoTheProfileOnly) {
  const fs::path profile = root_ / "profile";
  ASSERT_EQ(install({"--user-data-dir", profile.string()}), 0) << err_.str();
  const fs::path file = profile / "NativeMessagingHosts/com.wren.bridge.json";
  EXPECT_EQ(manifestAt(file)["allowed_origins"], Json::array({kDevOrigin}));
  EXPECT_FALSE(fs::exists(env_.configHome));
  EXPECT_FALSE(fs::exists(env_.home / ".mozilla"));
}

TEST_F(InstallTest, ExtensionIdsGoToTheFamilyTheyBelongTo) {
  const std::string other = "abcdefghijklmnopabcdefghijklmnop";
  ASSERT_EQ(install({"--extension-id", other, "--extension-id", "chrome-extension://" + std::string(kDevelopmentExtensionId) + "/",
                     "--extension-id", other}),
            0)
      << err_.str();
  EXPECT_EQ(manifestAt(userManifest("chromium/NativeMessagingHosts"))["allowed_origins"],
            Json::array({"chrome-extension://" + other + "/", kDevOrigin}));
  // No Firefox id given: Firefox keeps the Wren add-on's own.
  EXPECT_EQ(manifestAt(userManifest(".mozilla/native-messaging-hosts"))["allowed_extensions"],
            Json::array({std::string(kFirefoxExtensionId)}));

  ASSERT_EQ(install({"--browser", "firefox", "--extension-id", "{12345678-1234-1234-1234-123456789abc}"}), 0);
  EXPECT_EQ(manifestAt(userManifest(".mozilla/native-messaging-hosts"))["allowed_extensions"],
            Json::array({"{12345678-1234-1234-1234-123456789abc}"}));
}

TEST_F(InstallTest, BadArgumentsWriteNothing) {
  const std::vector<std::vector<std::string>> cases = {
      {"--frobnicate"},
      {"--browser", "netscape"},
      {"--browser"},
      {"--extension-id", "ABCDEFGHIJKLMNOPABCDEFGHIJKLMNOP"},
      {"--extension-id", "not an id"},
      {"--system", "--user-data-dir", "/tmp/x"},
      {"--user-data-dir", "/tmp/x", "--browser", "firefox"},
      {"--user-data-dir="},
  };
  for (const auto& args : cases) {
    SCOPED_TRACE(args[0] + (args.size() > 1 ? " " + args[1] : ""));
    err_.str("");
    EXPECT_EQ(install(args), 2);
    EXPECT_TRUE(contains(err_.str(), "Usage:"));
  }
  EXPECT_FALSE(fs::exists(env_.configHome));
  EXPECT_FALSE(fs::exists(env_.home / ".mozilla"));
}

TEST_F(InstallTest, SystemInstallUsesTheSystemLocationsAndNamesTheBrowsersWithoutOne) {
  ASSERT_EQ(install({"--system"}), 0) << err_.str();
  for (const char* dir : {"etc/chromium/native-messaging-hosts", "etc/opt/chrome/native-messaging-hosts",
                          "etc/opt/edge/native-messaging-hosts", "usr/lib/mozilla/native-messaging-hosts"}) {
    EXPECT_TRUE(fs::exists(env_.systemRoot / dir / "com.wren.bridge.json")) << dir;
  }
  EXPECT_TRUE(contains(out_.str(), "Brave: no system-wide location")) << out_.str();
  EXPECT_TRUE(contains(out_.str(), "Vivaldi: no system-wide location"));
  EXPECT_FALSE(fs::exists(env_.configHome));
}

TEST_F(InstallTest, ALocationThatCannotBeWrittenFailsTheCommand) {
  writeText(env_.configHome / "chromium", "a file where a folder belongs");
  EXPECT_EQ(install({"--browser", "chromium", "--browser", "firefox"}), 1);
  EXPECT_TRUE(contains(err_.str(), "Chromium: cannot write")) << err_.str();
  // The other browser is still registered.
  EXPECT_TRUE(fs::exists(userManifest(".mozilla/native-messaging-hosts")));
}

TEST_F(InstallTest, UninstallRemovesWhatInstallWrote) {
  ASSERT_EQ(install({}), 0);
  ASSERT_EQ(uninstall({}), 0) << err_.str();
  EXPECT_FALSE(fs::exists(userManifest("chromium/NativeMessagingHosts")));
  EXPECT_FALSE(fs::exists(userManifest(".mozilla/native-messaging-hosts")));
  out_.str("");
  EXPECT_EQ(uninstall({"--browser", "chrome"}), 0);
  EXPECT_TRUE(contains(out_.str(), "not registered")) << out_.str();
  EXPECT_EQ(uninstall({"--extension-id", std::string(kDevelopmentExtensionId)}), 2);
}

TEST_F(InstallTest, DoctorRunsARoundTripWithTheRegisteredHost) {
  DoctorBrowserReport none = doctorBrowserReport({}, env_);
  EXPECT_FALSE(none.ok);
  ASSERT_FALSE(none.lines.empty());
  EXPECT_TRUE(contains(none.lines.back(), "wren-bridge install"));

  ASSERT_EQ(install({"--browser", "chromium"}), 0);
  DoctorBrowserReport report = doctorBrowserReport({"--browser", "chromium"}, env_);
  std::string all;
  for (const auto& line : report.lines) all += line + "\n";
  EXPECT_TRUE(report.ok) << all;
  EXPECT_TRUE(contains(all, "Chromium: registered")) << all;
  EXPECT_TRUE(contains(all, "round trip: hello from version ")) << all;
  EXPECT_TRUE(contains(all, "exited 0 when stdin closed")) << all;
  EXPECT_TRUE(contains(all, "Chromium (system): not registered")) << all;
}

TEST_F(InstallTest, DoctorNamesWhatIsWrongWithAManifest) {
  const fs::path profile = root_ / "profile";
  const fs::path file = profile / "NativeMessagingHosts/com.wren.bridge.json";
  const fs::path plainFile = root_ / "not-executable";
  writeText(plainFile, "");
  const std::string exe = env_.executable.string();
  struct Case {
    std::string manifest;
    std::string problem;
  } cases[] = {
      {"{not json", "not valid JSON"},
      {R"({"name":"com.wren.bridge","type":"stdio","path":"wren-bridge","allowed_origins":[")" + kDevOrigin + "\"]}",
       "\"path\" is not an absolute path"},
      {R"({"name":"com.wren.bridge","type":"stdio","path":")" + exe + R"(","allowed_origins":["chrome-extension://)" +
           std::string(kDevelopmentExtensionId) + "\"]}",
       "bad entry in \"allowed_origins\""},
      {R"({"name":"com.wren.bridge","type":"stdio","path":")" + exe + R"("})", "no \"allowed_origins\""},
      {R"({"name":"com.Wren.Bridge","type":"stdio","path":")" + exe + R"(","allowed_origins":[")" + kDevOrigin + "\"]}",
       "\"name\" is not"},
      {R"({"name":"com.wren.bridge","type":"stdio","path":")" + plainFile.string() +
           R"(","allowed_origins":[")" + kDevOrigin + "\"]}",
       "is not an executable file"},
      // An executable that is not a host: no hello.
      {R"({"name":"com.wren.bridge","type":"stdio","path":"/bin/true","allowed_origins":[")" + kDevOrigin + "\"]}",
       "no hello frame"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.manifest);
    writeText(file, c.manifest);
    DoctorBrowserReport report = doctorBrowserReport({"--user-data-dir", profile.string()}, env_);
    std::string all;
    for (const auto& line : report.lines) all += line + "\n";
    EXPECT_FALSE(report.ok);
    EXPECT_TRUE(contains(all, c.problem)) << all;
  }
}

}  // namespace
}  // namespace wren

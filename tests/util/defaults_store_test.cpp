#include "util/defaults_store.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

namespace wren {
namespace {

namespace fs = std::filesystem;

class DefaultsStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/wren-defaults-XXXXXX";
    ASSERT_NE(::mkdtemp(tmpl), nullptr);
    file_ = (root_ = tmpl) / "defaults.json";
  }
  void TearDown() override { fs::remove_all(root_); }
  static unsigned mode(const fs::path& p) {
    struct stat st {};
    return ::stat(p.c_str(), &st) == 0 ? st.st_mode & 0777 : 0;
  }

  fs::path root_, file_;
};

TEST_F(DefaultsStoreTest, PrivateDirectoryAndFileWrittenWithoutLeftovers) {  // persisting: see the settings record
  fs::path dir = root_ / "a" / "b";
  DefaultsStore store(dir / "defaults.json");
  ASSERT_TRUE(store.available());
  EXPECT_EQ(mode(dir), 0700u);
  EXPECT_TRUE(fs::is_empty(dir));  // nothing written until a value is set
  ASSERT_TRUE(store.setString("curEmail", "me@example.com"));
  ASSERT_TRUE(store.setString("absent", std::nullopt));  // removing nothing is fine
  EXPECT_EQ(mode(store.path()), 0600u);
  EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1);  // no temporary file
}

TEST_F(DefaultsStoreTest, TemporariesOfKilledWritersAreRemovedAtStartUnlessAWriterIsBusy) {
  const std::vector<std::string> stale = {".defaults.json.a1B2c3", ".defaults.json.XXXXXX"};
  const std::vector<std::string> kept = {"defaults.json", ".defaults.json.toolong1", ".other.json.a1B2c3", "notes"};
  for (bool writerBusy : {true, false}) {
    for (const auto& name : stale) std::ofstream(root_ / name) << R"({"curEmail":"me@example.com"})";
    for (const auto& name : kept) std::ofstream(root_ / name) << "{}";
    int dir = ::open(root_.c_str(), O_RDONLY | O_DIRECTORY);
    if (writerBusy) ::flock(dir, LOCK_EX);  // as a writer in another process holds it
    DefaultsStore store(file_);
    ::close(dir);
    for (const auto& name : stale) EXPECT_EQ(fs::exists(root_ / name), writerBusy) << name;
    for (const auto& name : kept) EXPECT_TRUE(fs::exists(root_ / name)) << name;
  }
}

TEST_F(DefaultsStoreTest, CorruptFileReadsEmptyAndIsReplaced) {
  for (const std::string bad : {"not json", "[1,2]", "\"text\"", "{\"a\":", ""}) {
    std::ofstream(file_) << bad;
    DefaultsStore store(file_);
    EXPECT_TRUE(store.available()) << bad;
    EXPECT_EQ(store.stringForKey("a"), std::nullopt) << bad;
    ASSERT_TRUE(store.setString("k", "v")) << bad;
    EXPECT_EQ(DefaultsStore(file_).stringForKey("k"), "v") << bad;
  }
}

TEST_F(DefaultsStoreTest, IntegerForKeyTruncatesNumbersAndReadsNumericText) {
  std::ofstream(file_) << R"({"int": 42, "negFloat": -3.9, "text": " 12s", "word": "abc", "yes": true,
                              "null": null, "huge": 1e300})";
  DefaultsStore store(file_);
  const std::pair<const char*, long long> cases[] = {{"int", 42}, {"negFloat", -3}, {"text", 12}, {"word", 0},
                                                     {"yes", 1},  {"null", 0},      {"missing", 0},
                                                     {"huge", 9223372036854775807LL}};
  for (const auto& [key, want] : cases) EXPECT_EQ(store.integerForKey(key), want) << key;
  EXPECT_EQ(store.stringForKey("int"), std::nullopt);  // not a text
}

TEST_F(DefaultsStoreTest, UnavailableStoreReadsNothingAndWritesNothing) {
  std::ofstream(root_ / "plainfile") << "x";
  fs::create_directories(root_ / "dir.json");
  for (const fs::path& file : {root_ / "plainfile" / "sub" / "defaults.json", root_ / "plainfile" / "defaults.json",
                               fs::path(), root_ / "dir.json"}) {
    DefaultsStore store(file);
    EXPECT_FALSE(store.available()) << file;
    EXPECT_FALSE(store.setString("curEmail", "a@b.c")) << file;
    EXPECT_EQ(store.stringForKey("curEmail"), std::nullopt) << file;
    EXPECT_EQ(store.integerForKey("timeoutInterval"), 0) << file;
  }
}

TEST(DefaultsStorePathTest, XdgConfigHomeThenHome) {
  // Put back as found; an unset XDG_CONFIG_HOME or HOME reads like an empty one.
  auto env = [](const char* name) { return std::string(::getenv(name) ? ::getenv(name) : ""); };
  const std::string xdg0 = env("XDG_CONFIG_HOME"), home0 = env("HOME");
  const fs::path fromHome = "/home/u/.config/wren-bridge/defaults.json";
  const std::tuple<const char*, const char*, fs::path> cases[] = {  // nullptr: unset
      {"/xdg", "/home/u", "/xdg/wren-bridge/defaults.json"}, {"", "/home/u", fromHome}, {nullptr, "/home/u", fromHome},
      {nullptr, nullptr, ""}, {"", "", ""}};
  for (const auto& [xdg, home, want] : cases) {
    xdg ? ::setenv("XDG_CONFIG_HOME", xdg, 1) : ::unsetenv("XDG_CONFIG_HOME");
    home ? ::setenv("HOME", home, 1) : ::unsetenv("HOME");
    EXPECT_EQ(DefaultsStore::standardPath(), want) << (xdg ? xdg : "(unset)") << " " << (home ? home : "(unset)");
  }
  ::setenv("XDG_CONFIG_HOME", xdg0.c_str(), 1);
  ::setenv("HOME", home0.c_str(), 1);
}

}  // namespace
}  // namespace wren

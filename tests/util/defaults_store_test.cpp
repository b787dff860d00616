#include "util/defaults_store.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

namespace wren {
namespace {

namespace fs = std::filesystem;

class DefaultsStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string tmpl = (fs::temp_directory_path() / "wren-defaults-XXXXXX").string();
    ASSERT_NE(::mkdtemp(tmpl.data()), nullptr);
    root_ = tmpl;
  }
  void TearDown() override { fs::remove_all(root_); }

  static void writeFile(const fs::path& p, const std::string& text) { std::ofstream(p) << text; }
  static std::string readFile(const fs::path& p) {
    std::ifstream in(p);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
  }
  static size_t entries(const fs::path& dir) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
  }

  fs::path root_;
};

TEST_F(DefaultsStoreTest, CreatesPrivateDirectoryAndWritesAtomically) {
  fs::path dir = root_ / "a" / "b";
  DefaultsStore store(dir / "defaults.json");
  ASSERT_TRUE(store.available());
  struct stat st;
  ASSERT_EQ(::stat(dir.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
  EXPECT_EQ(entries(dir), 0u);  // nothing written until a value is set

  ASSERT_TRUE(store.setString("curEmail", "me@example.com"));
  ASSERT_EQ(::stat(store.path().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  EXPECT_EQ(entries(dir), 1u);  // no temporary file left behind
  EXPECT_EQ(store.stringForKey("curEmail"), "me@example.com");

  // A second store on the same file sees the value (it survives a restart).
  DefaultsStore again(store.path());
  EXPECT_EQ(again.stringForKey("curEmail"), "me@example.com");
}

TEST_F(DefaultsStoreTest, RemovingAKeyKeepsTheOthers) {
  DefaultsStore store(root_ / "defaults.json");
  ASSERT_TRUE(store.setString("curEmail", "x@y.z"));
  ASSERT_TRUE(store.setString("other", "1"));
  ASSERT_TRUE(store.setString("curEmail", std::nullopt));
  EXPECT_EQ(store.stringForKey("curEmail"), std::nullopt);
  EXPECT_EQ(store.stringForKey("other"), "1");
  ASSERT_TRUE(store.setString("absent", std::nullopt));  // removing nothing is fine
}

TEST_F(DefaultsStoreTest, CorruptFileReadsEmptyAndIsReplaced) {
  for (const std::string bad : {"not json", "[1,2]", "\"text\"", "{\"a\":", ""}) {
    fs::path file = root_ / "defaults.json";
    writeFile(file, bad);
    DefaultsStore store(file);
    EXPECT_TRUE(store.available()) << bad;
    EXPECT_EQ(store.stringForKey("a"), std::nullopt) << bad;
    EXPECT_EQ(store.integerForKey("a"), 0) << bad;
    ASSERT_TRUE(store.setString("k", "v")) << bad;
    EXPECT_EQ(Json::parse(readFile(file)), Json({{"k", "v"}})) << bad;
  }
}

TEST_F(DefaultsStoreTest, IntegerForKey) {
  fs::path file = root_ / "defaults.json";
  writeFile(file, R"({"int": 42, "neg": -7, "float": 3.9, "negFloat": -3.9, "text": "15",
                      "textJunk": " 12s", "word": "abc", "yes": true, "null": null, "arr": [1],
                      "huge": 1e300})");
  DefaultsStore store(file);
  struct Case {
    const char* key;
    long long want;
  };
  for (const Case& c : {Case{"int", 42}, Case{"neg", -7}, Case{"float", 3}, Case{"negFloat", -3},
                        Case{"text", 15}, Case{"textJunk", 12}, Case{"word", 0}, Case{"yes", 1},
                        Case{"null", 0}, Case{"arr", 0}, Case{"missing", 0},
                        Case{"huge", 9223372036854775807LL}}) {
    EXPECT_EQ(store.integerForKey(c.key), c.want) << c.key;
  }
  EXPECT_EQ(store.stringForKey("int"), std::nullopt);  // not a text
}

TEST_F(DefaultsStoreTest, UnavailableStoreReadsNothingAndWritesNothing) {
  fs::path blocker = root_ / "plainfile";
  writeFile(blocker, "x");
  for (const fs::path& file : {blocker / "sub" / "defaults.json", blocker / "defaults.json", fs::path()}) {
    DefaultsStore store(file);
    EXPECT_FALSE(store.available()) << file;
    EXPECT_FALSE(store.setString("curEmail", "a@b.c")) << file;
    EXPECT_EQ(store.stringForKey("curEmail"), std::nullopt) << file;
    EXPECT_EQ(store.integerForKey("timeoutInterval"), 0) << file;
  }
  // The file itself being a directory.
  fs::create_directories(root_ / "dir.json");
  EXPECT_FALSE(DefaultsStore(root_ / "dir.json").available());
}

class EnvGuard {
 public:
  explicit EnvGuard(const char* name) : name_(name) {
    const char* v = ::getenv(name);
    if (v) old_ = v;
  }
  ~EnvGuard() {
    if (old_) {
      ::setenv(name_, old_->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

TEST(DefaultsStorePathTest, XdgConfigHomeThenHome) {
  EnvGuard xdg("XDG_CONFIG_HOME"), home("HOME");
  struct Case {
    const char* xdg;  // nullptr: unset
    const char* home;
    fs::path want;
  };
  const Case cases[] = {
      {"/xdg", "/home/u", "/xdg/wren-bridge/defaults.json"},
      {"", "/home/u", "/home/u/.config/wren-bridge/defaults.json"},
      {nullptr, "/home/u", "/home/u/.config/wren-bridge/defaults.json"},
      {nullptr, nullptr, fs::path()},
      {"", "", fs::path()},
  };
  for (const Case& c : cases) {
    c.xdg ? ::setenv("XDG_CONFIG_HOME", c.xdg, 1) : ::unsetenv("XDG_CONFIG_HOME");
    c.home ? ::setenv("HOME", c.home, 1) : ::unsetenv("HOME");
    EXPECT_EQ(DefaultsStore::standardPath(), c.want) << (c.xdg ? c.xdg : "(unset)");
  }
}

}  // namespace
}  // namespace wren

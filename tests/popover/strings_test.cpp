#include "popover/strings.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace wren {
namespace {

TEST(StringsTest, LanguageOfLocale) {
  const std::pair<const char*, const char*> cases[] = {
      {"de_DE.UTF-8", "de"}, {"ja_JP", "ja"},  {"en", "en"},  {"fr.UTF-8", "fr"},
      {"C", "en"},           {"POSIX", "en"}, {"", "en"},    {"sr@latin", "sr"},
      {"DE_de", "de"},       {"C.UTF-8", "en"},
  };
  for (auto [locale, language] : cases) EXPECT_EQ(languageOfLocale(locale), language) << locale;
}

TEST(StringsTest, CompiledInTables) {
  const Strings en = Strings::embedded("en");
  EXPECT_EQ(en.localizedStringForKey("OBL-2U-6Ke.title", "", "SafariExtensionViewController"), "Veldrin Scam Scanner");
  EXPECT_EQ(en.localizedStringForKey("veldrin_menu_item_diable_tooltip", "", "veldrin"),
            "Works for Gmail and Yahoo Mail when you are signed in.");
  const Strings de = Strings::embedded("de");
  EXPECT_EQ(de.language(), "de");
  EXPECT_EQ(de.localizedStringForKey("lblHelp.title", "", "SafariExtensionViewController"), "Hilfe");
  // A language without tables falls back to English.
  EXPECT_EQ(Strings::embedded("xx").language(), "en");
}

TEST(StringsTest, MissingKeyGivesTheDefaultOrTheKey) {
  const Strings en = Strings::embedded("en");
  EXPECT_EQ(en.localizedStringForKey("nope", "Default", "veldrin"), "Default");
  EXPECT_EQ(en.localizedStringForKey("nope", "", "veldrin"), "nope");
  EXPECT_EQ(en.localizedStringForKey("nope", "", "no-such-table"), "nope");
}

TEST(StringsTest, DirectoryReplacesTheCompiledInTables) {
  const auto dir = std::filesystem::temp_directory_path() / ("wren-strings-test-" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir / "en");
  std::filesystem::create_directories(dir / "de");
  std::ofstream(dir / "en" / "veldrin.json") << R"({"k": "english", "n": 5})";
  std::ofstream(dir / "de" / "veldrin.json") << R"({"k": "deutsch"})";
  std::ofstream(dir / "de" / "broken.json") << R"({"k": )";
  EXPECT_EQ(Strings::fromDirectory(dir, "de").localizedStringForKey("k", "", "veldrin"), "deutsch");
  EXPECT_EQ(Strings::fromDirectory(dir, "it").localizedStringForKey("k", "", "veldrin"), "english");
  // A table that does not parse, or a value that is not text, counts as missing.
  EXPECT_EQ(Strings::fromDirectory(dir, "de").localizedStringForKey("k", "", "broken"), "k");
  EXPECT_EQ(Strings::fromDirectory(dir, "en").localizedStringForKey("n", "", "veldrin"), "n");
  // Only the directory counts: the compiled-in text is not used.
  EXPECT_EQ(Strings::fromDirectory(dir, "en").localizedStringForKey("OBL-2U-6Ke.title", "", "SafariExtensionViewController"),
            "OBL-2U-6Ke.title");
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace wren

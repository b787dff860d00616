// The popover's texts: the locale's language, compiled-in tables, a directory.
#include "popover/strings.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace wren {
namespace {

TEST(StringsTest, LanguageOfLocale) {
  const std::pair<const char*, const char*> cases[] = {{"de_DE.UTF-8", "de"}, {"fr.UTF-8", "fr"}, {"C", "en"},
                                                       {"POSIX", "en"},       {"", "en"},         {"sr@latin", "sr"},
                                                       {"DE_de", "de"},       {"C.UTF-8", "en"}};
  for (auto [locale, language] : cases) EXPECT_EQ(languageOfLocale(locale), language) << locale;
}

TEST(StringsTest, CompiledInTablesFallBackToEnglishThenTheDefaultOrTheKey) {
  EXPECT_EQ(Strings::embedded("de").localizedStringForKey("lblHelp.title", "", "SafariExtensionViewController"),
            "Hilfe");
  const Strings en = Strings::embedded("xx");
  EXPECT_EQ(en.language(), "en");
  EXPECT_EQ(en.localizedStringForKey("OBL-2U-6Ke.title", "", "SafariExtensionViewController"), "Veldrin Scam Scanner");
  EXPECT_EQ(en.localizedStringForKey("nope", "Default", "veldrin"), "Default");
  EXPECT_EQ(en.localizedStringForKey("nope", "", "no-such-table"), "nope");
}

TEST(StringsTest, DirectoryReplacesTheCompiledInTables) {
  const auto dir = std::filesystem::temp_directory_path() / ("wren-strings-test-" + std::to_string(::getpid()));
  for (const char* language : {"en", "de"}) std::filesystem::create_directories(dir / language);
  std::ofstream(dir / "en" / "veldrin.json") << R"({"k": "english", "n": 5})";
  std::ofstream(dir / "de" / "veldrin.json") << R"({"k": "deutsch"})";
  std::ofstream(dir / "de" / "broken.json") << R"({"k": )";
  const Strings de = Strings::fromDirectory(dir, "de"), en = Strings::fromDirectory(dir, "it");
  EXPECT_EQ(de.localizedStringForKey("k", "", "veldrin"), "deutsch");
  EXPECT_EQ(en.localizedStringForKey("k", "", "veldrin"), "english");
  // A table that does not parse, or a value that is not text, counts as missing.
  EXPECT_EQ(de.localizedStringForKey("k", "", "broken"), "k");
  EXPECT_EQ(en.localizedStringForKey("n", "", "veldrin"), "n");
  // Only the directory counts: the compiled-in text is not used.
  EXPECT_EQ(en.localizedStringForKey("OBL-2U-6Ke.title", "", "SafariExtensionViewController"), "OBL-2U-6Ke.title");
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace wren

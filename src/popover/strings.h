#pragma once
// Localised texts: string tables "<table>" per language, JSON objects of
// key -> text. The tables are compiled into the binary from
// resources/strings/<lang>/<table>.json; a directory laid out the same way can
// replace them (translators and tests: $WREN_STRINGS_DIR).
//
// Tables are read on first use and cached; use from the main run loop only.
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "util/json.h"

namespace wren {

// The language tables fall back to when the user's has none.
inline constexpr std::string_view kDevelopmentLanguage = "en";

class Strings {
 public:
  // The compiled-in tables of `language` (the development language's when
  // there are none for it).
  static Strings embedded(std::string language);
  // The tables under dir/<language>/, or dir/<development language>/ when
  // `language` has no folder there.
  static Strings fromDirectory(std::filesystem::path dir, std::string language);
  // The process's strings: $WREN_STRINGS_DIR when set and non-empty, else the
  // compiled-in tables, in the language of the locale (LC_ALL, LC_MESSAGES,
  // LANG). Created on first use.
  static Strings& main();

  // The text for `key` in `table`; a key the table lacks gives `value` when
  // that is non-empty, else the key itself (so callers can tell a missing
  // translation by comparing with the key).
  std::string localizedStringForKey(std::string_view key, std::string_view value, std::string_view table) const;

  const std::string& language() const { return language_; }

 private:
  Strings(std::optional<std::filesystem::path> dir, std::string language);
  const Json& table(std::string_view name) const;

  std::optional<std::filesystem::path> dir_;  // nullopt: compiled-in
  std::string language_;
  mutable std::map<std::string, Json, std::less<>> tables_;
};

// The language part of a locale name ("de_DE.UTF-8" -> "de"); "en" for "C",
// "POSIX" and the empty name.
std::string languageOfLocale(std::string_view locale);
// The language of the process's locale: the first non-empty of LC_ALL,
// LC_MESSAGES and LANG.
std::string localeLanguage();

}  // namespace wren

#include "popover/strings.h"

#include <cctype>
#include <cstdlib>

#include "popover/embedded_strings.h"
#include "util/whole_file.h"

namespace wren {
namespace {

// A string table larger than this is not a table of a few row titles; it is
// ignored rather than read into memory.
constexpr std::uintmax_t kMaxTableBytes = 1024 * 1024;

Json parseTable(std::string_view text) {
  Json parsed = Json::parse(text, nullptr, /*allow_exceptions=*/false);
  return parsed.is_object() ? parsed : Json::object();
}

bool hasEmbeddedLanguage(std::string_view language) {
  size_t count = 0;
  const EmbeddedStringTable* tables = embeddedStringTables(&count);
  for (size_t i = 0; i < count; ++i) {
    if (tables[i].language == language) return true;
  }
  return false;
}

}  // namespace

Strings::Strings(std::optional<std::filesystem::path> dir, std::string language)
    : dir_(std::move(dir)), language_(std::move(language)) {}

Strings Strings::embedded(std::string language) {
  if (!hasEmbeddedLanguage(language)) language = kDevelopmentLanguage;
  return Strings(std::nullopt, std::move(language));
}

Strings Strings::fromDirectory(std::filesystem::path dir, std::string language) {
  std::error_code ec;
  if (!std::filesystem::is_directory(dir / language, ec)) language = kDevelopmentLanguage;
  return Strings(std::move(dir), std::move(language));
}

Strings& Strings::main() {
  static Strings strings = [] {
    const char* dir = std::getenv("WREN_STRINGS_DIR");
    if (dir && *dir) return fromDirectory(dir, localeLanguage());
    return embedded(localeLanguage());
  }();
  return strings;
}

const Json& Strings::table(std::string_view name) const {
  if (auto it = tables_.find(name); it != tables_.end()) return it->second;
  Json loaded = Json::object();
  if (dir_) {
    const std::filesystem::path file = *dir_ / language_ / (std::string(name) + ".json");
    if (auto text = readFile(file, kMaxTableBytes)) loaded = parseTable(*text);
  } else {
    size_t count = 0;
    const EmbeddedStringTable* tables = embeddedStringTables(&count);
    for (size_t i = 0; i < count; ++i) {
      if (tables[i].language == language_ && tables[i].table == name) loaded = parseTable(tables[i].json);
    }
  }
  return tables_.emplace(std::string(name), std::move(loaded)).first->second;
}

std::string Strings::localizedStringForKey(std::string_view key, std::string_view value,
                                           std::string_view tableName) const {
  const Json& entries = table(tableName);
  if (auto it = entries.find(std::string(key)); it != entries.end() && it->is_string()) return it->get<std::string>();
  return std::string(value.empty() ? key : value);
}

std::string languageOfLocale(std::string_view locale) {
  const std::string_view language = locale.substr(0, locale.find_first_of("_.@"));
  if (language.empty() || language == "C" || language == "POSIX") return std::string(kDevelopmentLanguage);
  std::string lower;
  for (char c : language) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

std::string localeLanguage() {
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(name);
    if (value && *value) return languageOfLocale(value);
  }
  return std::string(kDevelopmentLanguage);
}

}  // namespace wren

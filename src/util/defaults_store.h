#pragma once
// The persisted user defaults: a JSON object in one file, written atomically
// (temporary file, fsync, rename) and at once, mode 0600. Writers lock the
// directory while their temporary exists; a store removes, at start, the
// temporaries that writers killed mid-write left behind. A store whose file
// cannot be read or created is unavailable: reads find nothing and writes do
// nothing, and neither fails. A corrupt file reads as empty and is replaced by
// the next write.
//
// Not thread-safe: used from the main run loop only.
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "util/json.h"

namespace wren {

class DefaultsStore {
 public:
  // A store kept in `file`; its directory is created (mode 0700) when missing.
  explicit DefaultsStore(std::filesystem::path file);

  // $XDG_CONFIG_HOME/wren-bridge/defaults.json, ~/.config when XDG_CONFIG_HOME
  // is unset or empty; unavailable when neither it nor HOME is known.
  static std::filesystem::path standardPath();
  // The process-wide store at standardPath(), created on first use.
  static DefaultsStore& standard();

  bool available() const { return available_; }
  const std::filesystem::path& path() const { return file_; }

  std::optional<std::string> stringForKey(std::string_view key) const;
  // A number stored under the key, truncated to a whole number; a numeric text
  // counts too. 0 when absent or not a number.
  long long integerForKey(std::string_view key) const;

  // Sets or (nullopt) removes the key, then writes the file at once. Returns
  // false when the store is unavailable or the write failed.
  bool setString(std::string_view key, std::optional<std::string_view> value);

 private:
  Json read() const;
  bool write(const Json& object);

  std::filesystem::path file_;
  bool available_ = false;
};

}  // namespace wren

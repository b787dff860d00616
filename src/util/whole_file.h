#pragma once
// Files read or written whole: a bounded read, and a write that a reader never
// sees half done (a temporary beside the file, synced, renamed into place).
// Used by the defaults store and by the installer's manifests.
//
// Runs on the calling thread, synchronously; owns nothing beyond the call.
#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace wren {

inline constexpr std::uintmax_t kAnyFileSize = std::numeric_limits<std::uintmax_t>::max();

// The whole file; nullopt when it cannot be opened or holds more than
// maxBytes. A read error ends the text where it happened, so a folder reads
// as empty.
std::optional<std::string> readFile(const std::filesystem::path& file, std::uintmax_t maxBytes = kAnyFileSize);

// Writes `text` to ".<name>.XXXXXX" beside `file` with `mode`, syncs it,
// renames it over the file and syncs the folder, so that neither a reader nor
// a crash ever sees half a file. The folder must exist. On failure the
// temporary is removed and *error (when given) says why.
bool writeFileAtomically(const std::filesystem::path& file, std::string_view text, mode_t mode,
                         std::string* error = nullptr);

// Whether `name` (an entry of the file's folder) is one of the temporaries
// writeFileAtomically makes for `file`: a writer killed mid-write leaves it.
bool isTemporaryOf(const std::filesystem::path& file, std::string_view name);

}  // namespace wren

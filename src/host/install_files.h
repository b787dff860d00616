#pragma once
// The folders of a registration: created with a note of which ones, so that
// uninstall can remove them again once they are empty (never a folder with
// anything in it); manifests are written into them atomically.
//
// Runs on the calling thread, synchronously; owns nothing beyond the call.
#include <filesystem>
#include <iosfwd>
#include <string>
#include <system_error>
#include <vector>

namespace wren {

// mkdir -p that appends the folders it made to `created` (when given),
// outermost first.
bool createFolders(const std::filesystem::path& dir, std::vector<std::filesystem::path>* created,
                   std::error_code& ec);

// Writes `file` atomically (mode 0644), so a browser never reads half a
// manifest; missing folders are made as createFolders makes them.
bool writeFileCreatingFolders(const std::filesystem::path& file, const std::string& text, std::string* error,
                              std::vector<std::filesystem::path>* created = nullptr);

// Adds `created` to the record file (a JSON object {"folders": [...]}); the
// record's own folders, when it has to make them, are noted in it too. A
// record that cannot be written is said on `err`.
void recordCreatedFolders(const std::filesystem::path& record, const std::vector<std::filesystem::path>& created,
                          std::ostream& err);

// Removes the recorded folders that are empty now, deepest first, saying each
// on `out`. When only the record's own folders remain, the record goes too,
// and they with it if that empties them.
void removeEmptyCreatedFolders(const std::filesystem::path& record, std::ostream& out, std::ostream& err);

}  // namespace wren

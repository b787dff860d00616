#include "host/install_files.h"

#include <algorithm>

#include "util/json.h"
#include "util/whole_file.h"

namespace wren {
namespace fs = std::filesystem;

namespace {

// Manifests and the record are for every user and browser to read.
constexpr mode_t kManifestMode = 0644;

std::vector<fs::path> readCreatedFolders(const fs::path& record) {
  std::vector<fs::path> folders;
  auto text = readFile(record);
  if (!text) return folders;
  Json j = Json::parse(*text, nullptr, false);
  if (!j.is_object() || !j.contains("folders") || !j["folders"].is_array()) return folders;
  for (const Json& f : j["folders"]) {
    // Only absolute paths: a record edited by hand must not point elsewhere.
    std::string dir = f.is_string() ? f.get<std::string>() : "";
    if (!dir.empty() && dir[0] == '/') folders.emplace_back(dir);
  }
  return folders;
}

bool writeCreatedFolders(const fs::path& record, const std::vector<fs::path>& folders, std::string* error) {
  Json list = Json::array();
  for (const auto& f : folders) list.push_back(f.string());
  return writeFileCreatingFolders(record, Json{{"folders", list}}.dump(2) + "\n", error);
}

// Whether `inner` is `outer` or lies below it.
bool isWithin(const fs::path& inner, const fs::path& outer) {
  auto o = outer.begin(), i = inner.begin();
  for (; o != outer.end(); ++o, ++i)
    if (i == inner.end() || *i != *o) return false;
  return true;
}

}  // namespace

// mkdir -p that names the folders it made, outermost first.
bool createFolders(const fs::path& dir, std::vector<fs::path>* created, std::error_code& ec) {
  std::vector<fs::path> missing;
  for (fs::path p = dir; !p.empty(); p = p.parent_path()) {
    if (fs::exists(p, ec) || ec) break;
    missing.push_back(p);
    if (p == p.parent_path()) break;
  }
  if (ec) return false;
  for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
    if (fs::create_directory(*it, ec)) {
      if (created) created->push_back(*it);
    } else if (ec) {
      return false;
    }
  }
  return true;
}

// Adds the folders install just made to the scope's record; the record's own
// folders, when it has to make them, are noted in it too.
void recordCreatedFolders(const fs::path& record, const std::vector<fs::path>& created, std::ostream& err) {
  if (created.empty()) return;
  std::vector<fs::path> folders = readCreatedFolders(record);
  std::error_code ec;
  std::vector<fs::path> all = created;
  std::string error;
  if (!createFolders(record.parent_path(), &all, ec)) {
    error = ec.message();
  } else {
    for (const auto& f : all)
      if (std::find(folders.begin(), folders.end(), f) == folders.end()) folders.push_back(f);
    if (writeCreatedFolders(record, folders, &error)) return;
  }
  err << "note: cannot keep the list of created folders in " << record.string() << " (" << error
      << "); uninstall will leave them\n";
}

// Removes the recorded folders that are empty now, deepest first (never a
// folder with anything in it). When only the record's own folders remain,
// the record goes too, and they with it if that empties them.
void removeEmptyCreatedFolders(const fs::path& record, std::ostream& out, std::ostream& err) {
  std::vector<fs::path> folders = readCreatedFolders(record);
  if (folders.empty()) return;
  auto deepestFirst = [](const fs::path& a, const fs::path& b) { return a.string().size() > b.string().size(); };
  std::sort(folders.begin(), folders.end(), deepestFirst);
  auto removeIfEmpty = [&](const fs::path& dir) {
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) return true;  // gone, or no longer a folder of ours
    if (!fs::is_empty(dir, ec) || ec || !fs::remove(dir, ec)) return false;
    out << "removed the empty folder " << dir.string() << "\n";
    return true;
  };
  std::vector<fs::path> kept;
  for (const auto& dir : folders)
    if (!removeIfEmpty(dir)) kept.push_back(dir);
  const bool onlyRecordFolders = std::all_of(kept.begin(), kept.end(), [&](const fs::path& dir) {
    return isWithin(record.parent_path(), dir);
  });
  std::error_code ec;
  std::string error;
  if (onlyRecordFolders) {
    fs::remove(record, ec);
    for (const auto& dir : kept) removeIfEmpty(dir);
  } else if (!writeCreatedFolders(record, kept, &error)) {
    err << "note: cannot update " << record.string() << ": " << error << "\n";
  }
}

bool writeFileCreatingFolders(const fs::path& file, const std::string& text, std::string* error,
                              std::vector<fs::path>* created) {
  std::error_code ec;
  if (!createFolders(file.parent_path(), created, ec)) {
    *error = "cannot create " + file.parent_path().string() + ": " + ec.message();
    return false;
  }
  return writeFileAtomically(file, text, kManifestMode, error);
}

}  // namespace wren

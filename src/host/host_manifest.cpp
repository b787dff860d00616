#include "host/host_manifest.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <optional>

namespace wren {
namespace fs = std::filesystem;

namespace {

constexpr std::string_view kManifestDescription = "Wren web protection: the bridge to the local protection service";
// Chromium extension ids are 32 letters a-p (a hex digest written in a-p).
constexpr size_t kChromiumIdLength = 32;

}  // namespace

bool isChromiumId(std::string_view id) {
  if (id.size() != kChromiumIdLength) return false;
  for (char c : id)
    if (c < 'a' || c > 'p') return false;
  return true;
}

// Firefox add-on ids are either an address-like "name@domain" or a
// brace-enclosed UUID.
bool isFirefoxId(std::string_view id) {
  if (id.size() >= 2 && id.front() == '{' && id.back() == '}') {
    for (char c : id.substr(1, id.size() - 2))
      if (!std::isxdigit(static_cast<unsigned char>(c)) && c != '-') return false;
    return id.size() > 2;
  }
  size_t at = id.find('@');
  if (at == std::string_view::npos || at + 1 >= id.size() || id.find('@', at + 1) != std::string_view::npos)
    return false;
  for (char c : id)
    if (!std::isalnum(static_cast<unsigned char>(c)) && std::string_view("._+-@").find(c) == std::string_view::npos)
      return false;
  return true;
}

const char* allowedIdsKey(BrowserFamily family) {
  return family == BrowserFamily::kFirefox ? "allowed_extensions" : "allowed_origins";
}

std::string manifestFileName() { return std::string(kNativeHostName) + ".json"; }

Json hostManifest(BrowserFamily family, const fs::path& executable, const std::vector<std::string>& extensionIds) {
  Json m = Json::object();
  m["name"] = kNativeHostName;
  m["description"] = kManifestDescription;
  m["path"] = executable.string();
  m["type"] = "stdio";
  Json ids = Json::array();
  for (const auto& id : extensionIds)
    ids.push_back(family == BrowserFamily::kFirefox ? id : std::string(kChromiumOriginScheme) + id + "/");
  m[allowedIdsKey(family)] = std::move(ids);
  return m;
}

std::vector<std::string> manifestProblems(const Json& m, BrowserFamily family) {
  std::vector<std::string> problems;
  if (!m.is_object()) return {"not a JSON object"};
  auto text = [&](const char* key) -> std::optional<std::string> {
    auto it = m.find(key);
    if (it == m.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
  };
  if (text("name") != std::string(kNativeHostName))
    problems.push_back("\"name\" is not \"" + std::string(kNativeHostName) + "\"");
  if (text("type") != std::string("stdio")) problems.push_back("\"type\" is not \"stdio\"");
  auto path = text("path");
  if (!path || path->empty() || (*path)[0] != '/') {
    problems.push_back("\"path\" is not an absolute path");
  } else {
    struct stat st {};
    if (::stat(path->c_str(), &st) != 0)
      problems.push_back(*path + " does not exist");
    else if (!S_ISREG(st.st_mode) || ::access(path->c_str(), X_OK) != 0)
      problems.push_back(*path + " is not an executable file");
  }
  const char* idsKey = allowedIdsKey(family);
  auto ids = m.find(idsKey);
  if (ids == m.end() || !ids->is_array() || ids->empty()) {
    problems.push_back(std::string("no \"") + idsKey + "\"");
  } else {
    for (const Json& id : *ids) {
      bool ok = id.is_string();
      if (ok && family == BrowserFamily::kChromium) {
        const std::string s = id.get<std::string>();
        // Chromium ignores an origin without its trailing slash.
        const size_t idStart = kChromiumOriginScheme.size();
        ok = s.size() == idStart + kChromiumIdLength + 1 && s.rfind(kChromiumOriginScheme, 0) == 0 &&
             s.back() == '/' && isChromiumId(std::string_view(s).substr(idStart, kChromiumIdLength));
      }
      if (!ok) problems.push_back(std::string("bad entry in \"") + idsKey + "\": " + id.dump());
    }
  }
  return problems;
}

}  // namespace wren

#include "host/install_options.h"

namespace wren {
namespace fs = std::filesystem;

namespace {

void addUnique(std::vector<std::string>& list, std::string value) {
  for (const auto& v : list)
    if (v == value) return;
  list.push_back(std::move(value));
}

}  // namespace

std::optional<Selection> parseSelection(const std::vector<std::string>& args, bool allowIds, std::string* error) {
  Selection s;
  bool system = false;
  std::optional<fs::path> profile;
  bool allBrowsers = false;
  for (size_t i = 0; i < args.size(); ++i) {
    std::string flag = args[i], value;
    bool hasInline = false;
    if (auto eq = flag.find('='); flag.rfind("--", 0) == 0 && eq != std::string::npos) {
      value = flag.substr(eq + 1);
      flag.resize(eq);
      hasInline = true;
    }
    if (flag == "--help" || flag == "-h") {
      s.help = true;
      continue;
    }
    if (flag == "--system") {
      system = true;
      continue;
    }
    const bool takesValue = flag == "--user-data-dir" || flag == "--browser" || (allowIds && flag == "--extension-id");
    if (!takesValue) {
      *error = "unknown option " + args[i];
      return std::nullopt;
    }
    if (!hasInline) {
      if (i + 1 >= args.size()) {
        *error = flag + " needs a value";
        return std::nullopt;
      }
      value = args[++i];
    }
    if (flag == "--user-data-dir") {
      if (value.empty()) {
        *error = "--user-data-dir needs a folder";
        return std::nullopt;
      }
      std::error_code ec;
      profile = fs::absolute(value, ec);
      if (ec) profile = fs::path(value);
    } else if (flag == "--browser") {
      if (value == "all") {
        allBrowsers = true;
      } else if (const BrowserInfo* b = findBrowser(value)) {
        bool present = false;
        for (auto* x : s.browsers) present = present || x == b;
        if (!present) s.browsers.push_back(b);
      } else {
        *error = "unknown browser \"" + value + "\" (chromium, chrome, edge, brave, vivaldi, firefox or all)";
        return std::nullopt;
      }
    } else {
      std::string id = value;
      // An origin as Chromium writes it is accepted too.
      if (id.rfind(kChromiumOriginScheme, 0) == 0) {
        id = id.substr(kChromiumOriginScheme.size());
        if (!id.empty() && id.back() == '/') id.pop_back();
      }
      if (isChromiumId(id)) {
        addUnique(s.chromiumIds, id);
      } else if (isFirefoxId(id)) {
        addUnique(s.firefoxIds, id);
      } else {
        *error = "\"" + value + "\" is neither a Chromium extension id (32 letters a-p) nor a Firefox add-on id";
        return std::nullopt;
      }
    }
  }
  if (system && profile) {
    *error = "--system and --user-data-dir exclude each other";
    return std::nullopt;
  }
  s.browsersNamed = allBrowsers || !s.browsers.empty();
  if (allBrowsers || s.browsers.empty()) {
    s.browsers.clear();
    for (const BrowserInfo& b : knownBrowsers()) s.browsers.push_back(&b);
  }
  if (profile) {
    // A profile folder belongs to one Chromium-family browser; Firefox keeps
    // its manifests elsewhere.
    std::vector<const BrowserInfo*> chromium;
    for (auto* b : s.browsers)
      if (b->family == BrowserFamily::kChromium) chromium.push_back(b);
    if (chromium.empty()) {
      *error = "--user-data-dir is a Chromium-family profile; Firefox has none";
      return std::nullopt;
    }
    s.browsers = chromium;
    s.scopes = {Scope::kProfile};
    s.profileDir = *profile;
  } else {
    s.scopes = {system ? Scope::kSystem : Scope::kUser};
  }
  if (s.chromiumIds.empty()) s.chromiumIds.emplace_back(kDevelopmentExtensionId);
  if (s.firefoxIds.empty()) s.firefoxIds.emplace_back(kFirefoxExtensionId);
  return s;
}

}  // namespace wren

#pragma once
// The native messaging host manifest "com.wren.bridge.json": what install
// writes for each browser family, and what doctor finds wrong with one that is
// registered. Browsers read it to learn where the host is and which extensions
// may start it.
//
// Runs on the calling thread, synchronously; owns nothing.
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "util/json.h"

namespace wren {

// The host's name as browsers know it (browsers reject upper case here).
inline constexpr std::string_view kNativeHostName = "com.wren.bridge";
// The reference extension's id while it is loaded unpacked: fixed by the
// public key in extension/manifest.json.
inline constexpr std::string_view kDevelopmentExtensionId = "kkkadkgcagokddgolmdbmdhkpnbhhahc";
// The Firefox variant's id (browser_specific_settings.gecko.id).
inline constexpr std::string_view kFirefoxExtensionId = "wren-bridge@wren.example";

// Chromium names an extension by its origin: this scheme, the id and a slash.
inline constexpr std::string_view kChromiumOriginScheme = "chrome-extension://";

enum class BrowserFamily { kChromium, kFirefox };

// "com.wren.bridge.json".
std::string manifestFileName();

// The manifest's key for the extensions that may connect.
const char* allowedIdsKey(BrowserFamily family);

bool isChromiumId(std::string_view id);
bool isFirefoxId(std::string_view id);

// The manifest for one browser family.
Json hostManifest(BrowserFamily family, const std::filesystem::path& executable,
                  const std::vector<std::string>& extensionIds);

// What keeps a browser of the family from using the manifest (name, type,
// absolute path to an executable, allowed ids); empty when nothing does.
std::vector<std::string> manifestProblems(const Json& manifest, BrowserFamily family);

}  // namespace wren

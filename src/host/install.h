#pragma once
// The install, uninstall and doctor commands: registering wren-bridge with the
// browsers by writing or removing the native messaging host manifest
// "com.wren.bridge.json" for the Chromium family (Chromium, Chrome, Edge,
// Brave, Vivaldi) and Firefox, per user, system-wide or into one Chromium
// profile, and checking the registration for `doctor`.
//
// Without --browser, only browsers that are present (an executable of theirs
// on PATH, or their configuration folder) are written to; a named browser is
// written to anyway. The folders install creates are recorded (per user, and
// system-wide), and uninstall removes them again once they are empty.
//
// Runs on the calling thread, synchronously; owns nothing beyond the call.
//
//   install   [--system | --user-data-dir DIR] [--browser NAME]... [--extension-id ID]...
//   uninstall [--system | --user-data-dir DIR] [--browser NAME]...
#include <string>
#include <vector>

#include "host/browser_locations.h"
#include "host/host_manifest.h"

namespace wren {

// Exit status: 0 done, 1 a location could not be written (or removed), 2 bad arguments.
int runInstallCommand(const std::vector<std::string>& args);
int runUninstallCommand(const std::vector<std::string>& args);
int runInstallCommand(const std::vector<std::string>& args, const InstallEnvironment& env);
int runUninstallCommand(const std::vector<std::string>& args, const InstallEnvironment& env);

// For doctor: one line per location of the selected browsers (the same
// options as uninstall select them): registered or not, the manifest valid
// (JSON, name, type, absolute path to an executable, allowed ids), and a
// framed round trip with the registered executable (started with no
// arguments: its hello frame is read, stdin closed, its exit awaited).
// ok is false when no location is registered or a registered one is broken.
struct DoctorBrowserReport {
  std::vector<std::string> lines;
  bool ok = false;
};
DoctorBrowserReport doctorBrowserReport(const std::vector<std::string>& args = {});
DoctorBrowserReport doctorBrowserReport(const std::vector<std::string>& args, const InstallEnvironment& env);

}  // namespace wren

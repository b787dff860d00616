#include "host/install.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <optional>
#include <string_view>

#include "host/doctor_probe.h"
#include "host/install_files.h"
#include "host/install_options.h"
#include "util/whole_file.h"

namespace wren {
namespace fs = std::filesystem;

namespace {

std::ostream& outOf(const InstallEnvironment& env) { return env.out ? *env.out : std::cout; }
std::ostream& errOf(const InstallEnvironment& env) { return env.err ? *env.err : std::cerr; }

std::string manifestText(const Location& where, const Selection& s, const fs::path& exe) {
  const auto& ids = where.family == BrowserFamily::kFirefox ? s.firefoxIds : s.chromiumIds;
  return hostManifest(where.family, exe, ids).dump(2) + "\n";
}

// The command's selection, or nullopt when the command ends at its arguments:
// bad ones (said with the usage, *status 2) or --help (*status 0).
std::optional<Selection> commandSelection(std::string_view command, const std::vector<std::string>& args,
                                          const InstallEnvironment& env, int* status) {
  std::string error;
  auto selection = parseSelection(args, command == "install", &error);
  if (!selection) {
    errOf(env) << "wren-bridge " << command << ": " << error << "\n\n" << kInstallUsage;
    *status = 2;
    return std::nullopt;
  }
  if (selection->help) {
    outOf(env) << kInstallUsage;
    *status = 0;
    return std::nullopt;
  }
  return selection;
}

}  // namespace

int runInstallCommand(const std::vector<std::string>& args) {
  return runInstallCommand(args, currentInstallEnvironment());
}

int runUninstallCommand(const std::vector<std::string>& args) {
  return runUninstallCommand(args, currentInstallEnvironment());
}

int runInstallCommand(const std::vector<std::string>& args, const InstallEnvironment& env) {
  int status = 0;
  auto selection = commandSelection("install", args, env, &status);
  if (!selection) return status;
  if (env.executable.empty() || !env.executable.is_absolute()) {
    errOf(env) << "wren-bridge install: cannot tell where this executable is\n";
    return 1;
  }
  std::vector<std::string> skipped;
  std::vector<fs::path> created;
  std::string error;
  bool registered = false;
  for (const Location& where : locationsOf(*selection, env, &skipped)) {
    if (where.browser && !selection->browsersNamed && !presenceOf(*where.browser, where.scope, env)) {
      skipped.push_back(absenceText(*where.browser, where.scope, env));
      continue;
    }
    const std::string text = manifestText(where, *selection, env.executable);
    if (readFile(where.file) == text) {
      outOf(env) << where.label << ": up to date " << where.file.string() << "\n";
      registered = true;
      continue;
    }
    if (writeFileCreatingFolders(where.file, text, &error, &created)) {
      outOf(env) << where.label << ": wrote " << where.file.string() << "\n";
      registered = true;
    } else {
      errOf(env) << where.label << ": cannot write " << where.file.string() << ": " << error << "\n";
      status = 1;
    }
  }
  for (const auto& line : skipped) outOf(env) << line << "\n";
  if (selection->scopes.front() != Scope::kProfile)
    recordCreatedFolders(createdFoldersRecord(selection->scopes.front(), env), created, errOf(env));
  if (!registered && status == 0) {
    errOf(env) << "wren-bridge install: no supported browser found; name one with --browser NAME\n";
    status = 1;
  }
  return status;
}

int runUninstallCommand(const std::vector<std::string>& args, const InstallEnvironment& env) {
  int status = 0;
  auto selection = commandSelection("uninstall", args, env, &status);
  if (!selection) return status;
  for (const Location& where : locationsOf(*selection, env, nullptr)) {
    std::error_code ec;
    if (fs::remove(where.file, ec)) {
      outOf(env) << where.label << ": removed " << where.file.string() << "\n";
    } else if (ec) {
      errOf(env) << where.label << ": cannot remove " << where.file.string() << ": " << ec.message() << "\n";
      status = 1;
    } else {
      outOf(env) << where.label << ": not registered " << where.file.string() << "\n";
    }
  }
  const Scope scope = selection->scopes.front();
  if (scope == Scope::kProfile) {
    // A profile's manifest folder holds nothing but host manifests; the
    // profile itself is the user's.
    std::error_code ec;
    const fs::path dir = selection->profileDir / "NativeMessagingHosts";
    if (fs::is_directory(dir, ec) && fs::is_empty(dir, ec) && fs::remove(dir, ec))
      outOf(env) << "removed the empty folder " << dir.string() << "\n";
  } else {
    removeEmptyCreatedFolders(createdFoldersRecord(scope, env), outOf(env), errOf(env));
  }
  return status;
}

DoctorBrowserReport doctorBrowserReport(const std::vector<std::string>& args) {
  return doctorBrowserReport(args, currentInstallEnvironment());
}

DoctorBrowserReport doctorBrowserReport(const std::vector<std::string>& args, const InstallEnvironment& env) {
  DoctorBrowserReport report;
  std::string error;
  auto selection = parseSelection(args, false, &error);
  if (!selection) {
    report.lines.push_back("browsers: " + error);
    return report;
  }
  // Without a scope named, both places a browser reads are checked.
  const bool scopeNamed = std::find_if(args.begin(), args.end(), [](const std::string& a) {
                            return a == "--system" || a.rfind("--user-data-dir", 0) == 0;
                          }) != args.end();
  if (!scopeNamed) selection->scopes = {Scope::kUser, Scope::kSystem};

  std::map<std::string, ProbeResult> probes;  // one round trip per executable
  bool anyRegistered = false, anyBroken = false;
  std::string notFound;  // unregistered browsers that are not on this machine, named on one line
  for (const Location& where : locationsOf(*selection, env, nullptr)) {
    auto text = readFile(where.file);
    if (!text) {
      std::error_code ec;
      // A missing registration only matters for a browser that is here or
      // that the user asked about.
      if (where.browser && !selection->browsersNamed && !fs::exists(where.file, ec) &&
          !presenceOf(*where.browser, where.scope, env)) {
        notFound += (notFound.empty() ? "" : ", ") + where.label;
        continue;
      }
      report.lines.push_back(where.label + ": " +
                             (fs::exists(where.file, ec) ? "cannot read " : "not registered (") +
                             where.file.string() + (fs::exists(where.file, ec) ? "" : ")"));
      anyBroken = anyBroken || fs::exists(where.file, ec);
      continue;
    }
    anyRegistered = true;
    Json manifest = Json::parse(*text, nullptr, false);
    auto problems = manifest.is_discarded() ? std::vector<std::string>{"not valid JSON"}
                                            : manifestProblems(manifest, where.family);
    if (!problems.empty()) {
      anyBroken = true;
      std::string line = where.label + ": " + where.file.string() + " is broken:";
      for (size_t i = 0; i < problems.size(); ++i) line += (i ? "; " : " ") + problems[i];
      report.lines.push_back(line);
      continue;
    }
    const std::string exe = manifest["path"].get<std::string>();
    std::string ids;
    for (const Json& id : manifest[allowedIdsKey(where.family)])
      ids += (ids.empty() ? "" : ", ") + id.get<std::string>();
    report.lines.push_back(where.label + ": registered " + where.file.string() + " -> " + exe + " for " + ids);
    auto probe = probes.find(exe);
    if (probe == probes.end()) probe = probes.emplace(exe, probeHost(exe)).first;
    report.lines.push_back("  round trip: " + probe->second.text);
    anyBroken = anyBroken || !probe->second.ok;
  }
  if (!notFound.empty()) report.lines.push_back("not found on this machine, so not checked: " + notFound);
  if (!anyRegistered) report.lines.push_back("browsers: wren-bridge is not registered; run \"wren-bridge install\"");
  report.ok = anyRegistered && !anyBroken;
  return report;
}

}  // namespace wren

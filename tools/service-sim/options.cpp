#include "options.h"

#include <charconv>

namespace wren::sim {

namespace {

constexpr int kMaxPort = 65535;

std::optional<int> parsePort(const std::string& text) {
  int value = -1;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || value < 0 || value > kMaxPort) return std::nullopt;
  return value;
}

std::optional<bool> parseOnOff(const std::string& text) {
  if (text == "on" || text == "true" || text == "1") return true;
  if (text == "off" || text == "false" || text == "0") return false;
  return std::nullopt;
}

}  // namespace

std::optional<Options> parseOptions(const std::vector<std::string>& args, std::string* error) {
  Options o;
  for (size_t i = 0; i < args.size(); ++i) {
    std::string flag = args[i], value;
    bool inlineValue = false;
    if (auto eq = flag.find('='); flag.rfind("--", 0) == 0 && eq != std::string::npos) {
      value = flag.substr(eq + 1);
      flag = flag.substr(0, eq);
      inlineValue = true;
    }
    if (flag == "--help" || flag == "-h") {
      o.help = true;
      continue;
    }
    if (flag == "--quiet" || flag == "-q") {
      o.quiet = true;
      continue;
    }
    static const char* const kValueFlags[] = {"--port",   "--cloud-port", "--ca-out",  "--rules",
                                              "--toolbar", "--auto",      "--manual",  "--veldrin",
                                              "--product-version"};
    bool known = false;
    for (const char* f : kValueFlags) known = known || flag == f;
    if (!known) {
      *error = "unknown option " + args[i];
      return std::nullopt;
    }
    if (!inlineValue) {
      if (i + 1 >= args.size()) {
        *error = flag + " needs a value";
        return std::nullopt;
      }
      value = args[++i];
    }
    auto bad = [&](const char* what) {
      *error = flag + ": " + what + ", not \"" + value + "\"";
      return std::nullopt;
    };
    if (flag == "--port" || flag == "--cloud-port") {
      auto port = parsePort(value);
      if (!port) return bad("expected a port number 0-65535");
      if (flag == "--port")
        o.port = *port;
      else
        o.cloudPort = *port;
    } else if (flag == "--ca-out") {
      o.caOut = value;
    } else if (flag == "--rules") {
      o.rulesFile = value;
    } else if (flag == "--product-version") {
      o.productVersion = value;
    } else {
      auto on = parseOnOff(value);
      if (!on) return bad("expected on or off");
      bool& target = flag == "--toolbar" ? o.toolbar
                     : flag == "--auto"  ? o.autoScan
                     : flag == "--manual" ? o.manualScan
                                          : o.veldrin;
      target = *on;
    }
  }
  return o;
}

std::string usageText() {
  return R"(wren-service-sim: a stand-in for the Wren local protection service (and,
optionally, the Veldrin cloud mail-scan service) for developing wren-bridge.

Usage: wren-service-sim [options]

  --port N              local service port on 127.0.0.1 (default 37848; 0 = any free port)
  --cloud-port N        also run the cloud mail-scan service over HTTPS on this
                        port (0 = any free port); off unless given
  --ca-out FILE         where to write the cloud's self-signed certificate (PEM);
                        default: ca.pem in a new temp dir, removed at exit.
                        Point the bridge at it with WREN_CA_FILE=FILE
  --rules FILE          rules file (JSON); default: built-in copy of
                        tools/service-sim/rules.json
  --toolbar on|off      initial toolbar state (header X-Wren-ToolbarStatus); default on
  --auto on|off         initial EnableAutomaticScan; default on
  --manual on|off       initial EnableManualScanner; default on
  --veldrin on|off      initial EnableVeldrin of every mail address; default on
  --product-version V   productVersion in page ratings (type=wtp); default 9.0.0
  --quiet, -q           do not print a line per request
  --help, -h            this text

Output (stdout), one JSON object a line:
  {"event":"listening","port":P}                               first line
  {"event":"listening","cloudPort":Q,"caFile":"..."}           when the cloud runs
  {"server":"local"|"cloud","method","target","headers","body"} per request
  {"event":"log","info":"..."}                                 "log" commands
  Cloud requests show "Authorization" as "Bearer <redacted>".

Local service (plain HTTP, paths under /BrowserExt/):
  GET  setting?type=extension   {"EnableAutomaticScan","EnableManualScanner"},
                                header X-Wren-ToolbarStatus: true|false
  GET  command?type=updateSetting&name=EnableAutomaticScan|EnableManualScanner|
                                ToolbarStatus|EnableVeldrin&value=true|false[&e=B64]
       command?type=showToolbarUI | showToolbarHelp | log&info=TEXT
       command?type=vds[&e=B64][&i=..]    mail-scan switches of an address
       command?type=get_relevant_blog | wtpatl   (JSON sent as text/html)
  GET  rating?timestamp=T[&type=wtp]  items in headers KVExtURLs_Length,
                                KVEExtURLs_<i>_url, _id, _needResolving
  POST sendData                 any JSON body; {"result":"ok"}

Cloud (HTTPS, needs "Authorization: Bearer TOKEN"):
  POST /mail/key/mails          {"code":0,"result":1,"verdict":"scam"} or
                                {"code":0,"result":0,"verdict":"clean"}
  POST /mail/key/user_feedback  {"code":0,"result":"received"}

Levels: 0 unknown, 1 safe, 2 caution, 3 dangerous. See docs/service-sim.md.
Stops cleanly on SIGINT or SIGTERM.
)";
}

}  // namespace wren::sim

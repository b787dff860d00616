#pragma once
// The simulator's verdicts: how an address is rated, which short links resolve
// to where, which mails are scams, and the blog list it hands out. Loaded once
// at start from a JSON rules file (or the built-in copy of rules.json) and only
// read afterwards, so the server threads share one instance without locks.
#include <optional>
#include <string>
#include <vector>

#include "sim_json.h"

namespace wren::sim {

// Risk levels the simulator answers with (the bridge copies them to pages).
enum RiskLevel : int { kLevelUnknown = 0, kLevelSafe = 1, kLevelCaution = 2, kLevelDangerous = 3 };

struct Rating {
  int level = kLevelUnknown;
  Json category;       // whatever the rules file wrote (text or number)
  Json categoryGroup;
};

class Rules {
 public:
  // Reads a rules document; nothing (and *error set) when it is malformed.
  static std::optional<Rules> fromJson(const Json& doc, std::string* error);
  static std::optional<Rules> fromFile(const std::string& path, std::string* error);
  // The copy of tools/service-sim/rules.json compiled into the binary.
  static std::optional<Rules> builtIn(std::string* error);

  // Rates an address by the longest host suffix that matches; the default
  // rating otherwise, and kLevelUnknown when the address has no host.
  Rating rate(const std::string& url) const;
  // Where a short link leads, when its host is in the short-link table.
  std::optional<std::string> resolveShortLink(const std::string& url) const;
  // The rule that makes this mail request a scam ("subject: ..." or
  // "sender: ..."), or nothing when it is clean.
  std::optional<std::string> scamReason(const Json& request) const;
  const Json& blogs() const { return blogs_; }

 private:
  struct HostRule {
    std::string suffix;  // lower case
    Rating rating;
  };
  struct ShortLink {
    std::string host;  // lower case
    std::string target;
  };
  Rating default_{kLevelSafe, "General", "Other"};
  std::vector<HostRule> hosts_;
  std::vector<ShortLink> shortLinks_;
  std::vector<std::string> scamSubjects_, scamSenders_;
  Json blogs_ = Json::array();
};

}  // namespace wren::sim

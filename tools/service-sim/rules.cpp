#include "rules.h"

#include <fstream>
#include <sstream>

#include "text_util.h"

namespace wren::sim {

extern const char* const kBuiltInRulesJson;

namespace {

// A mail request nests its fields at most this deep in practice; the bound
// keeps a hostile document from exhausting the stack.
constexpr int kMaxMailSearchDepth = 16;

bool hostMatches(const std::string& host, const std::string& suffix) {
  if (host == suffix) return true;
  return host.size() > suffix.size() && host.compare(host.size() - suffix.size(), suffix.size(), suffix) == 0 &&
         host[host.size() - suffix.size() - 1] == '.';
}

bool readRating(const Json& value, const std::string& where, Rating* out, std::string* error) {
  if (!value.is_object()) {
    *error = where + ": expected an object with \"level\"";
    return false;
  }
  auto level = value.find("level");
  if (level == value.end() || !level->is_number_integer()) {
    *error = where + ": \"level\" must be an integer";
    return false;
  }
  out->level = level->get<int>();
  if (auto c = value.find("category"); c != value.end()) out->category = *c;
  if (auto g = value.find("categoryGroup"); g != value.end()) out->categoryGroup = *g;
  return true;
}

bool readStrings(const Json& value, const std::string& where, std::vector<std::string>* out, std::string* error) {
  if (value.is_null()) return true;
  if (!value.is_array()) {
    *error = where + ": expected an array of strings";
    return false;
  }
  for (const auto& item : value) {
    if (!item.is_string() || item.get<std::string>().empty()) {
      *error = where + ": every entry must be a non-empty string";
      return false;
    }
    out->push_back(item.get<std::string>());
  }
  return true;
}

// Collects every text under a key named like one of `keys` (any case),
// anywhere in the document: pages nest the mail in "mail", "mails" or deeper.
void collectTexts(const Json& node, const std::vector<std::string>& keys, bool under, int depth,
                  std::vector<std::string>* out) {
  if (depth > kMaxMailSearchDepth) return;
  if (node.is_string()) {
    if (under) out->push_back(node.get<std::string>());
  } else if (node.is_array()) {
    for (const auto& item : node) collectTexts(item, keys, under, depth + 1, out);
  } else if (node.is_object()) {
    for (const auto& [key, value] : node.items()) {
      bool named = under;
      for (const auto& k : keys) named = named || toLower(key) == k;
      collectTexts(value, keys, named, depth + 1, out);
    }
  }
}

}  // namespace

std::optional<Rules> Rules::fromJson(const Json& doc, std::string* error) {
  if (!doc.is_object()) {
    *error = "the rules document must be a JSON object";
    return std::nullopt;
  }
  Rules rules;
  if (auto d = doc.find("default"); d != doc.end() && !readRating(*d, "default", &rules.default_, error))
    return std::nullopt;
  if (auto hosts = doc.find("hosts"); hosts != doc.end()) {
    if (!hosts->is_object()) {
      *error = "hosts: expected an object of host suffix -> rating";
      return std::nullopt;
    }
    for (const auto& [suffix, value] : hosts->items()) {
      HostRule rule{toLower(suffix), {}};
      if (!readRating(value, "hosts." + suffix, &rule.rating, error)) return std::nullopt;
      rules.hosts_.push_back(std::move(rule));
    }
  }
  if (auto links = doc.find("shortLinks"); links != doc.end()) {
    if (!links->is_object()) {
      *error = "shortLinks: expected an object of host -> target address";
      return std::nullopt;
    }
    for (const auto& [host, target] : links->items()) {
      if (!target.is_string()) {
        *error = "shortLinks." + host + ": the target must be a string";
        return std::nullopt;
      }
      rules.shortLinks_.push_back({toLower(host), target.get<std::string>()});
    }
  }
  if (auto scam = doc.find("scam"); scam != doc.end()) {
    if (!scam->is_object()) {
      *error = "scam: expected an object with \"subjects\" and \"senders\"";
      return std::nullopt;
    }
    if (!readStrings(scam->value("subjects", Json()), "scam.subjects", &rules.scamSubjects_, error) ||
        !readStrings(scam->value("senders", Json()), "scam.senders", &rules.scamSenders_, error))
      return std::nullopt;
  }
  if (auto blogs = doc.find("blogs"); blogs != doc.end()) {
    if (!blogs->is_array()) {
      *error = "blogs: expected an array";
      return std::nullopt;
    }
    rules.blogs_ = *blogs;
  }
  return rules;
}

std::optional<Rules> Rules::fromFile(const std::string& path, std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = "cannot read " + path;
    return std::nullopt;
  }
  std::stringstream text;
  text << in.rdbuf();
  Json doc = parseJson(text.str());
  if (doc.is_discarded()) {
    *error = path + " is not valid JSON";
    return std::nullopt;
  }
  auto rules = fromJson(doc, error);
  if (!rules) *error = path + ": " + *error;
  return rules;
}

std::optional<Rules> Rules::builtIn(std::string* error) {
  Json doc = parseJson(kBuiltInRulesJson);
  if (doc.is_discarded()) {
    *error = "the built-in rules are not valid JSON";
    return std::nullopt;
  }
  auto rules = fromJson(doc, error);
  if (!rules) *error = "built-in rules: " + *error;
  return rules;
}

Rating Rules::rate(const std::string& url) const {
  std::string host = hostOf(url);
  if (host.empty()) return Rating{kLevelUnknown, default_.category, default_.categoryGroup};
  const HostRule* best = nullptr;
  for (const auto& rule : hosts_)
    if (hostMatches(host, rule.suffix) && (!best || rule.suffix.size() > best->suffix.size())) best = &rule;
  return best ? best->rating : default_;
}

std::optional<std::string> Rules::resolveShortLink(const std::string& url) const {
  std::string host = hostOf(url);
  for (const auto& link : shortLinks_)
    if (!host.empty() && hostMatches(host, link.host)) return link.target;
  return std::nullopt;
}

std::optional<std::string> Rules::scamReason(const Json& request) const {
  std::vector<std::string> subjects, senders;
  collectTexts(request, {"subject"}, false, 0, &subjects);
  collectTexts(request, {"from", "sender"}, false, 0, &senders);
  for (const auto& rule : scamSubjects_)
    for (const auto& s : subjects)
      if (containsIgnoringCase(s, rule)) return "subject: " + rule;
  for (const auto& rule : scamSenders_)
    for (const auto& s : senders)
      if (containsIgnoringCase(s, rule)) return "sender: " + rule;
  return std::nullopt;
}

}  // namespace wren::sim

#include "net/answer_decoding.h"

#include <algorithm>
#include <cctype>

#include "util/json_parse.h"

namespace wren {

namespace {

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

bool decodesToNothing(const std::string& body) { return body.empty() || body == " "; }

}  // namespace

std::string mediaType(std::string_view contentType) {
  std::string_view type = trim(contentType.substr(0, contentType.find(';')));
  std::string out(type);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
  return out;
}

std::string statusText(long status) {
  switch (status) {
    case 300: return "multiple choices";
    case 301: return "moved permanently";
    case 302: return "found";
    case 303: return "see other";
    case 304: return "not modified";
    case 307: return "temporary redirect";
    case 308: return "permanent redirect";
    case 400: return "bad request";
    case 401: return "unauthorized";
    case 402: return "payment required";
    case 403: return "forbidden";
    case 404: return "not found";
    case 405: return "method not allowed";
    case 406: return "unacceptable";
    case 408: return "request timed out";
    case 409: return "conflict";
    case 410: return "no longer exists";
    case 411: return "length required";
    case 413: return "request too large";
    case 414: return "requested URL too long";
    case 415: return "unsupported media type";
    case 422: return "unprocessable entity";
    case 429: return "too many requests";
    case 500: return "internal server error";
    case 501: return "unimplemented";
    case 502: return "bad gateway";
    case 503: return "service unavailable";
    case 504: return "gateway timed out";
    case 505: return "HTTP version not supported";
    default: break;
  }
  if (status >= 100 && status < 200) return "informational";
  if (status >= 300 && status < 400) return "redirected";
  if (status >= 400 && status < 500) return "client error";
  if (status >= 500 && status < 600) return "server error";
  return "unknown status";
}

DecodedAnswer decodeAnswer(long status, const std::optional<std::string>& contentType, const std::string& body,
                           const std::vector<std::string>& accepted) {
  if (status < 200 || status > 299)
    return {std::nullopt,
            HttpError{HttpError::kBadStatus,
                      "Request failed: " + statusText(status) + " (" + std::to_string(status) + ")"}};
  // An empty answer carries no content to judge, whatever its type says.
  if (!body.empty()) {
    std::string type = contentType ? mediaType(*contentType) : "";
    if (std::find(accepted.begin(), accepted.end(), type) == accepted.end())
      return {std::nullopt, HttpError{HttpError::kUnacceptableContentType,
                                      "Request failed: unacceptable content-type: " +
                                          (contentType ? type : std::string("(none)"))}};
  }
  if (decodesToNothing(body)) return {};
  // Any JSON value is an answer, a bare text, number or null included: what
  // it should have been is the caller's to judge.
  std::optional<Json> parsed = parseJson(body);
  if (!parsed)
    return {std::nullopt, HttpError{HttpError::kCannotDecode,
                                    "The data couldn't be read: the answer is not valid JSON or nests deeper than " +
                                        std::to_string(kMaxJsonDepth) + " levels"}};
  return {std::move(parsed), std::nullopt};
}

std::optional<Json> decodeLoosely(const std::string& body) {
  if (decodesToNothing(body)) return std::nullopt;
  return parseJson(body);
}

}  // namespace wren

#include "net/ajax_request.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "net/curl_transfers.h"
#include "util/logging.h"
#include "util/version.h"

namespace wren {

namespace {

// Only the web: a URL from page or service data must not reach file:// etc.
constexpr const char* kAllowedProtocols = "http,https";
// The local service is always reached directly, whatever proxy is set.
constexpr const char* kNeverProxied = "127.0.0.1,localhost";

std::string_view trimmed(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r' || s.back() == '\n'))
    s.remove_suffix(1);
  return s;
}

size_t onBody(char* data, size_t size, size_t count, void* user) {
  auto* request = static_cast<AjaxRequest*>(user);
  size_t n = size * count;
  if (request->responseBody.size() + n > Ajax::kMaxBodyBytes) {
    request->tooLarge = true;
    return 0;  // anything short of n aborts the transfer
  }
  request->responseBody.append(data, n);
  return n;
}

size_t onHeader(char* data, size_t size, size_t count, void* user) {
  auto* request = static_cast<AjaxRequest*>(user);
  size_t n = size * count;
  std::string_view line(data, n);
  if (line.substr(0, 5) == "HTTP/") {
    // A new response begins (after an interim 1xx): only the
    // final one's fields are handed over.
    request->response.headerFields.clear();
    return n;
  }
  auto colon = line.find(':');
  if (colon == std::string_view::npos) return n;  // the blank end line, or junk
  request->response.headerFields.emplace_back(std::string(trimmed(line.substr(0, colon))),
                                              std::string(trimmed(line.substr(colon + 1))));
  return n;
}

// The first setopt failure, kept so that a request libcurl cannot take fails
// through its callbacks rather than being sent half set up.
struct OptionSetter {
  CURL* easy;
  CURLcode first = CURLE_OK;
  template <typename T>
  void operator()(CURLoption option, T value) {
    CURLcode rc = curl_easy_setopt(easy, option, value);
    if (rc != CURLE_OK && first == CURLE_OK) first = rc;
  }
};

std::string detail(CURLcode rc, const AjaxRequest& request) {
  return request.errorBuffer[0] ? std::string(request.errorBuffer) : std::string(curl_easy_strerror(rc));
}

HttpError transportError(CURLcode rc, const AjaxRequest& request) {
  int code = static_cast<int>(rc);
  if (request.tooLarge || rc == CURLE_FILESIZE_EXCEEDED)
    return {HttpError::kTooLarge, "Request failed: the answer is larger than " +
                                      std::to_string(Ajax::kMaxBodyBytes / (1024 * 1024)) + " MiB"};
  switch (rc) {
    case CurlTransfers::kDroppedTransfer:
      return {code, "Request failed: dropped unsent, " + std::to_string(RunLoop::kMaxWaitingTransfers) +
                        " newer requests were waiting"};
    case CURLE_COULDNT_CONNECT:
      return {code, "Could not connect to server: " + detail(rc, request)};
    case CURLE_OPERATION_TIMEDOUT:
      return {code, "The request timed out: " + detail(rc, request)};
    case CURLE_COULDNT_RESOLVE_HOST:
      return {code, "A server with the specified hostname could not be found: " + detail(rc, request)};
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CERTPROBLEM:
      return {code, "An SSL error has occurred: " + detail(rc, request)};
    default:
      return {code, "Request failed: " + detail(rc, request)};
  }
}

void deliverFailure(AjaxRequest& request, const std::optional<HttpResponse>& response, const HttpError& error) {
  if (request.kind == AjaxRequest::Kind::RawPost) {
    if (request.rawFailure) request.rawFailure(response, decodeLoosely(request.responseBody), error);
    return;
  }
  Logging::logWarningWithTag(std::nullopt, error.localizedDescription);
  if (request.failure) request.failure(response, error);
}

void deliverSuccess(AjaxRequest& request, const std::optional<Json>& body) {
  if (request.kind == AjaxRequest::Kind::RawPost) {
    if (request.rawSuccess) request.rawSuccess(request.response, body, std::nullopt);
    return;
  }
  if (request.success) request.success(request.response, body);
}

void complete(AjaxRequest& request, CURL* easy, CURLcode rc) {
  long status = 0;
  if (easy) {
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    char* effective = nullptr;
    if (curl_easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &effective) == CURLE_OK && effective)
      request.response.url = effective;
  }
  request.response.statusCode = status;
  if (request.response.url.empty()) request.response.url = request.url;
  // Failures get the response only when the server answered; built only for
  // them, so a success costs no copy of it.
  auto answered = [&]() -> std::optional<HttpResponse> {
    if (status > 0) return request.response;
    return std::nullopt;
  };

  if (rc != CURLE_OK) return deliverFailure(request, answered(), transportError(rc, request));
  DecodedAnswer decoded =
      decodeAnswer(status, request.response.header("Content-Type"), request.responseBody, request.accepted);
  if (decoded.error) return deliverFailure(request, answered(), *decoded.error);
  deliverSuccess(request, decoded.body);
}

CURLcode configure(CURL* easy, AjaxRequest& request) {
  OptionSetter set{easy};
  set(CURLOPT_URL, request.url.c_str());
  set(CURLOPT_PROTOCOLS_STR, kAllowedProtocols);
  // Redirects are never followed: the local service never sends one, and the
  // cloud is asked only at its own address. Followed, a redirect would carry
  // a page's addresses (in the rating headers), a token or a mail body to
  // wherever it points, or down from https to http. A 3xx answer fails like
  // any status outside 2xx.
  set(CURLOPT_FOLLOWLOCATION, 0L);
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_NOPROXY, kNeverProxied);
  set(CURLOPT_ERRORBUFFER, request.errorBuffer);
  set(CURLOPT_ACCEPT_ENCODING, "");  // every encoding libcurl can decode
  static const std::string userAgent = std::string("wren-bridge/") + kVersion;
  set(CURLOPT_USERAGENT, userAgent.c_str());

  long timeout = request.timeoutSeconds;
  if (request.timeoutOverride) {
    long long seconds = request.timeoutOverride();
    if (seconds > 0) timeout = static_cast<long>(std::min<long long>(seconds, LONG_MAX));
  }
  set(CURLOPT_TIMEOUT, timeout);

  if (!request.caFile.empty()) {
    set(CURLOPT_CAINFO, request.caFile.c_str());
    set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));  // the bundle instead of, not besides, the system's
  }

  set(CURLOPT_WRITEFUNCTION, onBody);
  set(CURLOPT_WRITEDATA, &request);
  set(CURLOPT_HEADERFUNCTION, onHeader);
  set(CURLOPT_HEADERDATA, &request);
  set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(Ajax::kMaxBodyBytes));

  if (request.post) {
    set(CURLOPT_POST, 1L);
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    set(CURLOPT_POSTFIELDS, request.body.data());
  }

  // libcurl would otherwise hold larger POST bodies back for a
  // "100-continue" that many small servers never send.
  static const char kNoExpect[] = "Expect:";
  const bool addNoExpect = request.post && !request.headers.contains("Expect");
  request.headerNodes.resize(request.headers.size() + (addNoExpect ? 1 : 0));
  for (size_t i = 0; i < request.headerNodes.size(); ++i) {
    request.headerNodes[i].data = i < request.headers.size() ? const_cast<char*>(request.headers.line(i))
                                                              : const_cast<char*>(kNoExpect);
    request.headerNodes[i].next = i + 1 < request.headerNodes.size() ? &request.headerNodes[i + 1] : nullptr;
  }
  set(CURLOPT_HTTPHEADER, request.headerNodes.empty() ? nullptr : request.headerNodes.data());
  return set.first;
}

}  // namespace

void launchRequest(RunLoop& loop, const std::shared_ptr<AjaxRequest>& request) {
  CurlTransfers& transfers = loop.transfers();
  CURL* easy = transfers.takeEasyHandle();
  CURLcode rc = easy ? configure(easy, *request) : CURLE_FAILED_INIT;
  if (rc != CURLE_OK) {
    if (easy) curl_easy_cleanup(easy);
    loop.post([request, rc] { complete(*request, nullptr, rc); });
    return;
  }
  transfers.add(easy, [request, easy](CURLcode result) { complete(*request, easy, result); });
}

}  // namespace wren

#include "net/ajax.h"

#include <cstdlib>

#include "net/ajax_request.h"
#include "net/ascii_text.h"
#include "util/defaults_store.h"
#include "util/logging.h"
#include "util/service_origin.h"

namespace wren {

namespace {

constexpr const char* kJsonType = "application/json";
constexpr const char* kFormType = "application/x-www-form-urlencoded";

// The caller's headers as they may go out: one per name (a later one wins),
// unusable names dropped, values made safe.
HeaderLines sendableHeaders(Headers headers) {
  Headers merged = mergeHeaders({}, std::move(headers));
  HeaderLines out;
  out.reserve(merged.size(), 0);
  for (const auto& [name, value] : merged) {
    if (!isSendableHeaderName(name)) {
      Logging::logWarningWithTag(std::nullopt,
                                 "Ajax: dropped a request header with an unusable name: " + safeHeaderValue(name));
      continue;
    }
    out.add(name, value);
  }
  return out;
}

}  // namespace

Ajax::Ajax(RunLoop& loop, AjaxOptions options) : loop_(loop), options_(std::move(options)) {}

Ajax& Ajax::shared() {
  static Ajax ajax(RunLoop::main(), [] {
    AjaxOptions options;
    options.dataRelayUrl = serviceOrigin() + "/BrowserExt/sendData";
    options.rawPostTimeoutSeconds = [] { return DefaultsStore::standard().integerForKey("timeoutInterval"); };
    if (const char* ca = std::getenv("WREN_CA_FILE")) options.caFile = ca;
    return options;
  }());
  return ajax;
}

void Ajax::get(const std::string& url, Headers headers, const Json& parameters, AjaxSuccess success,
               AjaxFailure failure) {
  get(url, std::move(headers), std::nullopt, parameters, std::move(success), std::move(failure));
}

void Ajax::get(const std::string& url, Headers headers, const std::optional<std::string>& acceptContentType,
               const Json& parameters, AjaxSuccess success, AjaxFailure failure) {
  auto request = std::make_shared<AjaxRequest>();
  request->kind = AjaxRequest::Kind::Get;
  request->url = appendQuery(url, parameters);
  request->headers = sendableHeaders(std::move(headers));
  request->accepted = {acceptContentType ? mediaType(*acceptContentType) : kJsonType};
  request->success = std::move(success);
  request->failure = std::move(failure);
  start(std::move(request));
}

void Ajax::getWithHeaderLines(std::string url, HeaderLines headers, AjaxSuccess success, AjaxFailure failure) {
  auto request = std::make_shared<AjaxRequest>();
  request->kind = AjaxRequest::Kind::Get;
  request->url = std::move(url);
  request->headers = std::move(headers);
  request->accepted = {kJsonType};
  request->success = std::move(success);
  request->failure = std::move(failure);
  start(std::move(request));
}

void Ajax::post(const std::string& url, const Json& parameters, AjaxSuccess success, AjaxFailure failure) {
  auto request = std::make_shared<AjaxRequest>();
  request->kind = AjaxRequest::Kind::FormPost;
  request->url = url;
  request->post = true;
  // Only the relay's own address, written exactly so, takes JSON; any other
  // spelling of it is an ordinary form post.
  if (!options_.dataRelayUrl.empty() && url == options_.dataRelayUrl) {
    request->body = parameters.is_null() ? "" : parameters.dump(-1, ' ', false, Json::error_handler_t::replace);
    request->headers.add("Content-Type", kJsonType);
    request->accepted = kDefaultJsonMediaTypes;
  } else {
    request->body = queryStringFromParameters(parameters);
    request->headers.add("Content-Type", kFormType);
    request->accepted = {kJsonType};
  }
  request->success = std::move(success);
  request->failure = std::move(failure);
  start(std::move(request));
}

void Ajax::post(const std::string& url, Headers headers, const std::string& body, RawCompletion success,
                RawCompletion failure) {
  auto request = std::make_shared<AjaxRequest>();
  request->kind = AjaxRequest::Kind::RawPost;
  request->url = url;
  request->post = true;
  request->body = asciiWithSubstitutes(body);
  request->headers =
      sendableHeaders(mergeHeaders({{"Content-Type", kJsonType}, {"Accept", kJsonType}}, std::move(headers)));
  request->accepted = kDefaultJsonMediaTypes;
  request->timeoutOverride = options_.rawPostTimeoutSeconds;
  request->rawSuccess = std::move(success);
  request->rawFailure = std::move(failure);
  start(std::move(request));
}

void Ajax::start(std::shared_ptr<AjaxRequest> request) {
  request->caFile = options_.caFile;
  // Completions always come from a later turn of the loop (a finished
  // transfer or a posted failure), never from inside this call.
  RunLoop& loop = loop_;
  if (loop.isLoopThread()) {
    launchRequest(loop, request);
  } else {
    loop.post([&loop, request] { launchRequest(loop, request); });
  }
}

}  // namespace wren

#pragma once
// Ajax: the one HTTP client of the system, on libcurl, driven by a RunLoop.
// Every completion runs on that loop's thread. Each request keeps its own
// headers, accepted media types and callbacks; connections to one origin are
// reused through the loop's shared multi handle.
//
// Runs on its run loop. The request operations may be called from any thread
// (a call from elsewhere is handed to the loop); they never block and never
// call back from inside the call. Absent (empty) callbacks are skipped.
// Owns nothing per request: each request owns its own state until its
// completion has run, so an Ajax may go away with requests in flight.
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "net/answer_decoding.h"
#include "net/http_headers.h"
#include "net/http_types.h"
#include "net/query_encoding.h"
#include "net/run_loop.h"
#include "util/json.h"

namespace wren {

// Success of the GETs and the form/JSON POST: (response, decoded body). The
// body is any JSON value (a caller that wants a dictionary checks), or
// nullopt for an empty body.
using AjaxSuccess = std::function<void(const HttpResponse&, const std::optional<Json>& body)>;
// Failure of those: (response when the server answered, error).
using AjaxFailure = std::function<void(const std::optional<HttpResponse>&, const HttpError&)>;
// The raw POST's callbacks: (response, decoded body, error); success has no error.
using RawCompletion = std::function<void(const std::optional<HttpResponse>&, const std::optional<Json>& body,
                                         const std::optional<HttpError>&)>;

struct AjaxOptions {
  // The data relay's address: a form/JSON POST to exactly this URL sends JSON.
  std::string dataRelayUrl;
  // Seconds for the raw POST; used when > 0, else the default timeout.
  // Called on the loop's thread as each raw POST starts.
  std::function<long long()> rawPostTimeoutSeconds;
  // A PEM bundle to trust instead of the system's CA store (empty: system).
  std::string caFile;
};

struct AjaxRequest;  // one exchange's state (net/ajax_request.h)

class Ajax {
 public:
  // Every request's time limit unless the raw POST says otherwise.
  static constexpr long kDefaultTimeoutSeconds = 60;
  // An answer body larger than this fails instead of growing without bound.
  static constexpr size_t kMaxBodyBytes = 16 * 1024 * 1024;

  Ajax(RunLoop& loop, AjaxOptions options);

  // The process's client on RunLoop::main(), with the relay address built on
  // the service origin, "timeoutInterval" from the standard defaults store and
  // $WREN_CA_FILE.
  static Ajax& shared();

  // Headers are taken by value: a caller that is done with its list moves it in.
  // GET, parameters in the query; accepts exactly "application/json".
  void get(const std::string& url, Headers headers, const Json& parameters, AjaxSuccess success,
           AjaxFailure failure);
  // GET accepting exactly `acceptContentType` ("application/json" when nullopt).
  void get(const std::string& url, Headers headers, const std::optional<std::string>& acceptContentType,
           const Json& parameters, AjaxSuccess success, AjaxFailure failure);
  // GET of `url` as it stands, with headers built by a caller that knows its
  // names are distinct and sendable; accepts exactly "application/json".
  void getWithHeaderLines(std::string url, HeaderLines headers, AjaxSuccess success, AjaxFailure failure);
  // POST: JSON body to the data relay (accepting the JSON decoder's default
  // types), else a form body (accepting exactly "application/json").
  void post(const std::string& url, const Json& parameters, AjaxSuccess success, AjaxFailure failure);
  // POST of the caller's text as ASCII ('?' for every other character), with
  // "Content-Type" and "Accept" "application/json" unless the caller's headers
  // replace them. Success when the transfer, status, type and body are good.
  void post(const std::string& url, Headers headers, const std::string& body, RawCompletion success,
            RawCompletion failure);

 private:
  void start(std::shared_ptr<AjaxRequest> request);
  RunLoop& loop_;
  AjaxOptions options_;
};

}  // namespace wren

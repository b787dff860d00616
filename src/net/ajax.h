#pragma once
// Ajax: the one HTTP client of the system, on libcurl, driven by a RunLoop.
// Every completion runs on that loop's thread. Each request keeps its own
// headers, accepted media types and callbacks; connections to one origin are
// reused through the loop's shared multi handle.
//
// Runs on the main run loop; the request operations must be called there.
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "net/run_loop.h"
#include "util/json.h"

namespace wren {

// A response's status line and header fields, in the order received.
struct HttpResponse {
  long statusCode = 0;
  std::string url;
  std::vector<std::pair<std::string, std::string>> headerFields;
  // The first field of that name, compared case-insensitively.
  std::optional<std::string> header(std::string_view name) const;
};

struct HttpError {
  // libcurl's result code, or one of the codes below for a failure found
  // after the transfer.
  int code = 0;
  std::string localizedDescription;
  static constexpr int kBadStatus = -1011;
  static constexpr int kUnacceptableContentType = -1016;
  static constexpr int kCannotDecode = -3840;
  static constexpr int kTooLarge = -1103;
};

// Request headers, in the order they are sent.
using Headers = std::vector<std::pair<std::string, std::string>>;

// Success of the GETs and the form/JSON POST: (response, decoded body). The
// body is an object or an array, or nullopt for an empty body.
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
  std::function<long long()> rawPostTimeoutSeconds;
  // A PEM bundle to trust instead of the system's CA store (empty: system).
  std::string caFile;
};

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

  // GET, parameters in the query; accepts exactly "application/json".
  void get(const std::string& url, const Headers& headers, const Json& parameters, AjaxSuccess success,
           AjaxFailure failure);
  // GET accepting exactly `acceptContentType` ("application/json" when nullopt).
  void get(const std::string& url, const Headers& headers, const std::optional<std::string>& acceptContentType,
           const Json& parameters, AjaxSuccess success, AjaxFailure failure);
  // POST: JSON body to the data relay (accepting the JSON decoder's default
  // types), else a form body (accepting exactly "application/json").
  void post(const std::string& url, const Json& parameters, AjaxSuccess success, AjaxFailure failure);
  // POST of the caller's text as ASCII ('?' for every other character), with
  // "Content-Type" and "Accept" "application/json" unless the caller's headers
  // replace them. Success when the transfer, status, type and body are good.
  void post(const std::string& url, const Headers& headers, const std::string& body, RawCompletion success,
            RawCompletion failure);

 private:
  struct Request;
  void start(std::unique_ptr<Request> request);
  RunLoop& loop_;
  AjaxOptions options_;
};

// The query/form encoding: keys sorted byte-wise, nested objects as
// key%5Bsub%5D=v, arrays as key%5B%5D=v per element, null as the bare key,
// true/false as 1/0, numbers in shortest round-trip form; bytes outside
// A-Z a-z 0-9 - . _ ~ / ? as upper-case %XX ("%20" for a space).
std::string queryStringFromParameters(const Json& parameters);
// url + "?" or "&" + the query; url unchanged for empty parameters.
std::string appendQuery(const std::string& url, const Json& parameters);
// A header value with CR, LF and NUL percent-encoded, so page data can never
// inject a header line.
std::string safeHeaderValue(std::string_view value);
// The media type of a Content-Type value: lower case, parameters dropped.
std::string mediaType(std::string_view contentType);

}  // namespace wren

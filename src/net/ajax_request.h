#pragma once
// One HTTP exchange of Ajax: everything a request needs from its start to its
// completion, and the libcurl easy handle set up from it. Internal to Ajax.
//
// Built on any thread; launched and completed on the run loop's thread. The
// request owns its header list, body and error buffer, which the easy handle
// points into, so it lives until the loop has cleaned the handle up.
#include <curl/curl.h>

#include <memory>
#include <string>
#include <vector>

#include "net/ajax.h"

namespace wren {

struct AjaxRequest {
  // How the answer is judged and handed over.
  enum class Kind { Get, FormPost, RawPost };

  Kind kind = Kind::Get;
  std::string url;
  bool post = false;
  HeaderLines headers;
  std::string body;
  std::vector<std::string> accepted;
  long timeoutSeconds = Ajax::kDefaultTimeoutSeconds;
  std::function<long long()> timeoutOverride;  // the raw POST's, when set
  std::string caFile;

  AjaxSuccess success;
  AjaxFailure failure;
  RawCompletion rawSuccess;
  RawCompletion rawFailure;

  // Transfer state, touched only on the loop thread.
  char errorBuffer[CURL_ERROR_SIZE] = {};
  // The header list libcurl reads (CURLOPT_HTTPHEADER), built here rather
  // than with curl_slist_append, which allocates each node and line and walks
  // the whole list for every append: a rating sends sixty headers. The nodes
  // point into `headers`' lines.
  std::vector<curl_slist> headerNodes;
  HttpResponse response;
  std::string responseBody;
  bool tooLarge = false;

  AjaxRequest() = default;
  AjaxRequest(const AjaxRequest&) = delete;
  AjaxRequest& operator=(const AjaxRequest&) = delete;
  ~AjaxRequest() = default;
};

// Sets up an easy handle for the request and gives it to the loop; the
// completion (success, failure, or a set-up failure in a later turn) runs on
// the loop thread. Loop thread only.
void launchRequest(RunLoop& loop, const std::shared_ptr<AjaxRequest>& request);

}  // namespace wren

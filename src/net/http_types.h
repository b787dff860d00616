#pragma once
// The values an HTTP exchange hands to its callbacks. Plain data; any thread.
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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

}  // namespace wren

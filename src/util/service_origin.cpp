#include "util/service_origin.h"

#include <cstdlib>

namespace wren {

const std::string& serviceOrigin() {
  static const std::string origin = [] {
    const char* env = std::getenv("WREN_SERVICE_ORIGIN");
    std::string s = (env && *env) ? env : kDefaultServiceOrigin;
    while (!s.empty() && s.back() == '/') s.pop_back();
    return s;
  }();
  return origin;
}

}  // namespace wren

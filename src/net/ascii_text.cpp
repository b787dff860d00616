#include "net/ascii_text.h"

#include "util/common.h"

namespace wren {

std::string asciiWithSubstitutes(std::string_view utf8) {
  std::string out;
  out.reserve(utf8.size());
  for (size_t i = 0; i < utf8.size();) {
    unsigned char c = static_cast<unsigned char>(utf8[i]);
    if (c < 0x80) {
      out += static_cast<char>(c);
      ++i;
      continue;
    }
    size_t len = utf8SequenceLength(utf8, i);
    out += '?';
    i += len ? len : 1;
  }
  return out;
}

}  // namespace wren

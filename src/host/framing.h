#pragma once
// Writing one native-messaging frame (host/frame_codec.h) on a plain file
// descriptor, blocking: for the hello frame, which goes out before the run
// loop and its output queue exist. Knows nothing about the JSON inside.
#include <string_view>

#include "host/frame_codec.h"

namespace wren {

// Writes one frame (header and payload in one go). Returns false when the
// payload is too long (nothing is written) or the write failed.
bool writeFrame(int fd, std::string_view payload);

}  // namespace wren

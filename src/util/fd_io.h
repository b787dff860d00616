#pragma once
// Writing a whole buffer to a descriptor.
#include <string_view>

namespace wren {

// Writes every byte, continuing a write that a signal or a full pipe cut
// short. False on the first real error.
bool writeAll(int fd, std::string_view data);

}  // namespace wren

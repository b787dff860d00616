#pragma once
// Writing a whole buffer to a descriptor.
#include <string_view>

namespace wren {

// Writes every byte, continuing a write that a signal or a full pipe cut
// short. False on the first real error.
bool writeAll(int fd, std::string_view data);

// Makes reads and writes on fd return EAGAIN instead of waiting when it is a
// pipe or a socket that is empty or full. A pipe gets an open file description of its own first
// (reopened through /proc/self/fd), so the flag does not reach the other
// processes sharing it, such as a browser that passed its own stderr on; it
// keeps the access mode (read or write) the descriptor had.
// Other kinds (files, terminals) are left as they are.
void makeNonBlocking(int fd);

}  // namespace wren

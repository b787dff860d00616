#pragma once
// Feeds arbitrary bytes through the frame reader, the envelope and the
// dispatcher, with a service on loopback that answers every request.
#include <cstddef>
#include <cstdint>

namespace wren::fuzz {
void runOneInput(const uint8_t* data, size_t size);
}

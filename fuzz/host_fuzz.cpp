// libFuzzer entry: arbitrary bytes as the extension's side of the pipe.
#include "host_fuzz_harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  wren::fuzz::runOneInput(data, size);
  return 0;
}

// libFuzzer entry: arbitrary answers of the service, the cloud, the browser
// and the defaults file (format in answers_fuzz_harness.h).
#include "answers_fuzz_harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  wren::fuzz::runAnswersInput(data, size);
  return 0;
}

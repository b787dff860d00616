// Every input in fuzz/regressions/ and fuzz/corpus/ once found a fault or
// covers a path worth keeping; each must run through the harness cleanly.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "host_fuzz_harness.h"

namespace {

TEST(FuzzRegressions, EveryKeptInputRunsCleanly) {
  size_t count = 0;
  for (const char* sub : {"regressions", "corpus"}) {
    std::filesystem::path dir = std::filesystem::path(WREN_FUZZ_DIR) / sub;
    if (!std::filesystem::exists(dir)) continue;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
      if (!entry.is_regular_file() || entry.path().filename() == ".gitkeep") continue;
      std::ifstream in(entry.path(), std::ios::binary);
      std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      SCOPED_TRACE(entry.path().string());
      wren::fuzz::runOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
      ++count;
    }
  }
  EXPECT_GT(count, 0u);
}

}  // namespace

// Every input in fuzz/regressions*/ and fuzz/corpus*/ once found a fault or
// covers a path worth keeping; each must run through its harness cleanly.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "answers_fuzz_harness.h"
#include "host_fuzz_harness.h"

namespace {

size_t replay(std::initializer_list<const char*> dirs, void (*run)(const uint8_t*, size_t)) {
  size_t count = 0;
  for (const char* sub : dirs) {
    std::filesystem::path dir = std::filesystem::path(WREN_FUZZ_DIR) / sub;
    if (!std::filesystem::exists(dir)) continue;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
      if (!entry.is_regular_file() || entry.path().filename() == ".gitkeep") continue;
      std::ifstream in(entry.path(), std::ios::binary);
      std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      SCOPED_TRACE(entry.path().string());
      run(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
      ++count;
    }
  }
  return count;
}

TEST(FuzzRegressions, EveryKeptFrameInputRunsCleanly) {
  EXPECT_GT(replay({"regressions", "corpus"}, wren::fuzz::runOneInput), 0u);
}

TEST(FuzzRegressions, EveryKeptAnswersInputRunsCleanly) {
  EXPECT_GT(replay({"regressions-answers", "corpus-answers"}, wren::fuzz::runAnswersInput), 0u);
}

}  // namespace

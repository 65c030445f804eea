// Replays every input the fuzzer has kept, in order, through one persistent port: none may
// crash the processor or leave the neighbour table inconsistent. Runs under the ordinary
// build; the sanitizers run over the same inputs in the fuzzing build.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/RxHarness.h"

namespace {

TEST(RxCorpusReplay, EveryKeptInputLeavesAConsistentTable) {
   const std::filesystem::path dir = std::filesystem::path(LLDP_SOURCE_DIR) / "fuzz" / "corpus";
   std::vector<std::filesystem::path> inputs;
   for (const auto& entry : std::filesystem::directory_iterator(dir)) {
      if (entry.is_regular_file()) inputs.push_back(entry.path());
   }
   std::sort(inputs.begin(), inputs.end());
   ASSERT_GE(inputs.size(), 5u) << "the corpus holds at least the interop captures";

   Fuzz::RxHarness harness;
   for (const auto& path : inputs) {
      std::ifstream in(path, std::ios::binary);
      std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                 std::istreambuf_iterator<char>());
      harness.feed(bytes.data(), bytes.size());
      ASSERT_EQ(harness.inconsistency(), "") << path.filename();
   }
}

}  // namespace

// libFuzzer entry: every input is one received LLDPDU on a port whose neighbour table
// carries over from earlier inputs, so creation, update, shutdown and the full-table
// path are all exercised. A broken table invariant aborts the run.
#include <cstdio>
#include <cstdlib>

#include "fuzz/RxHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
   static Fuzz::RxHarness harness;
   harness.feed(data, size);
   const std::string wrong = harness.inconsistency();
   if (!wrong.empty()) {
      std::fprintf(stderr, "neighbour table inconsistent: %s\n", wrong.c_str());
      std::abort();
   }
   return 0;
}

// The libFuzzer entry of a target: one harness lives for the whole run, so state carries
// over from input to input; an invariant the harness finds broken aborts the run, and the
// input that broke it is kept as a crash.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#define LLDP_FUZZ_ENTRY(Harness)                                                      \
   extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {          \
      static Harness harness;                                                         \
      harness.feed(data, size);                                                       \
      const std::string wrong = harness.inconsistency();                              \
      if (!wrong.empty()) {                                                           \
         std::fprintf(stderr, "%s: invariant broken: %s\n", #Harness, wrong.c_str()); \
         std::abort();                                                                \
      }                                                                               \
      return 0;                                                                       \
   }

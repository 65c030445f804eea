// Configuration language text, applied or loaded over a configuration that carries over.
#include "fuzz/ConfigHarness.h"
#include "fuzz/FuzzEntry.h"

LLDP_FUZZ_ENTRY(Fuzz::ConfigHarness)

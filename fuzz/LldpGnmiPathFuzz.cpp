// gNMI path text, parsed, checked and read against a populated model, or deleted by a Set.
#include "fuzz/FuzzEntry.h"
#include "fuzz/GnmiPathHarness.h"

LLDP_FUZZ_ENTRY(Fuzz::GnmiPathHarness)

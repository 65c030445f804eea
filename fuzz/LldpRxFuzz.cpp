// Received frames on a small switch whose neighbour tables and timers carry over.
#include "fuzz/FuzzEntry.h"
#include "fuzz/RxHarness.h"

LLDP_FUZZ_ENTRY(Fuzz::RxHarness)

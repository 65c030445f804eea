// Control-socket sessions against the daemon's operations over populated records.
#include "fuzz/ControlHarness.h"
#include "fuzz/FuzzEntry.h"

LLDP_FUZZ_ENTRY(Fuzz::ControlHarness)

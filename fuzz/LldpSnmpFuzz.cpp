// GET, GETNEXT and GETBULK on the MIB tree over a populated neighbour table.
#include "fuzz/FuzzEntry.h"
#include "fuzz/SnmpHarness.h"

LLDP_FUZZ_ENTRY(Fuzz::SnmpHarness)

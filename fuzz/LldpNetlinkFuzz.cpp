// Reads from a netlink socket, applied to the platform's model and published.
#include "fuzz/FuzzEntry.h"
#include "fuzz/NetlinkHarness.h"

LLDP_FUZZ_ENTRY(Fuzz::NetlinkHarness)

// A port that advertises everything the builder can send: every basic optional TLV, an
// IPv4 and an IPv6 management address, Port VLAN ID and VLAN names, the IEEE 802.3 TLVs
// with PoE, LLDP-MED capabilities and a network policy, an operator-defined TLV and the
// ZTP boot VLAN. Shared by the round-trip test, the transmit benchmark and the fuzz seeds.
#pragma once

#include "tests/Support/PortRecords.h"

namespace TestSupport {

struct FullPort : PortRecords {
   FullPort();

   // Builds this port's LLDPDU into [start, end) and returns its end.
   char* build(char* start, char* end);
};

}  // namespace TestSupport

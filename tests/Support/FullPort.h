// A port that advertises everything the builder can send: every basic optional TLV, an
// IPv4 and an IPv6 management address, Port VLAN ID and VLAN names, the IEEE 802.3 TLVs
// with PoE, LLDP-MED capabilities and a network policy, an operator-defined TLV and the
// ZTP boot VLAN. Shared by the round-trip test, the transmit benchmark and the fuzz seeds.
#pragma once

#include "Framework/Vel/Ptr.h"
#include "Lldp/LldpProtocolSm.h"
#include "Records/Lldp.h"

namespace TestSupport {

struct FullPort {
   FullPort();

   // Builds this port's LLDPDU into [start, end) and returns its end.
   char* build(char* start, char* end);

   Lldp::Config::Ptr config;
   Lldp::LocalSystem::Ptr localSystem;
   Lldp::LocalPort::Ptr localPort;
   Lldp::PortConfig::Ptr portConfig;
   Lldp::PortStatus::Ptr portStatus;
   Vel::Ptr<Lldp::Agent::Protocol::Root> root;
};

}  // namespace TestSupport

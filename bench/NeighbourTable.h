// A neighbour table as big as a large switch's, for the benchmarks that read one: `ports`
// ports with `perPort` neighbours each, every neighbour with its own MAC chassis ID, a port
// ID, a TTL and a system name. `more(record, n)` adds what a benchmark needs beyond that
// (n numbers the neighbours from 1).
#pragma once

#include <string>

#include "Records/Lldp.h"

template <typename More>
Lldp::AllStatus::Ptr bigNeighbourTable(int ports, int perPort, More more) {
   static Lldp::Status::Ptr status = Vel::make<Lldp::Status>();  // owns the port records
   auto all = Vel::make<Lldp::AllStatus>();
   for (int p = 0; p < ports; ++p) {
      const Wire::IntfId intf("Ethernet" + std::to_string(p + 1));
      auto port = status->portStatusIs(intf, 0.0);
      for (int i = 1; i <= perPort; ++i) {
         const uint32_t n = uint32_t(p * perPort + i);
         const char mac[6] = {0x00, 0x1c, 0x73, char(n >> 16), char(n >> 8), char(n)};
         Lldp::Msap msap(
             {.chassisIdentifier = Lldp::ChassisIdentifier(
                  {.subtype = Lldp::chassisIdSubtypeMacAddress, .value = std::string(mac, 6)}),
              .portIdentifier = Lldp::PortIdentifier({.subtype = Lldp::portIdSubtypeInterfaceName,
                                                      .value = "Ethernet" + std::to_string(i)})});
         auto r = port->remoteSystemIs(i, msap);
         r->ttlIs(120);
         r->sysNameIs(Lldp::BoundedString255Tlv("leaf" + std::to_string(n)));
         r->portDescIs(Lldp::BoundedString255Tlv("uplink to spine"));
         more(*r, n);
      }
      all->portStatusIs(intf, port);
   }
   return all;
}

// GETNEXT walks through the MIB tree, as the subagent serves them, at 100 and at 10,000
// neighbours (50 per port): every column of every neighbour in lldpRemTable, and the
// extension MIBs' subtree, where lldpXdot1RemTable has a row for each neighbour and the
// other remote tables rows only for some (every other neighbour sent a port VLAN, every
// tenth an LLDP-MED model name). The cost per GETNEXT should not grow with the table.
#include <benchmark/benchmark.h>

#include <string>

#include "Framework/Vel/StateDb.h"
#include "Snmp/LldpMibSource.h"
#include "Snmp/MibTree.h"

namespace {

constexpr int perPort = 50;

void fill(Vel::StateDb& db, int neighbours) {
   auto status = db.mount<Lldp::AllStatus>("l2discovery/lldp/status/all");
   auto intfs = db.mount<Interface::AllIntfStatusDir>("interface/status/all");
   for (int p = 0; p * perPort < neighbours; ++p) {
      const Wire::IntfId intf("Ethernet" + std::to_string(p + 1));
      intfs->intfStatusIs(intf)->ifIndexIs(static_cast<uint32_t>(1000 + p));
      auto ps = Vel::make<Lldp::PortStatus>(intf, 0.0);
      for (int i = 1; i <= perPort && p * perPort + i <= neighbours; ++i) {
         const std::string mac = {0, 0x1c, 0x73, char(p >> 8), char(p), char(i)};
         Lldp::Msap msap(
             {.chassisIdentifier = Lldp::ChassisIdentifier({.subtype = 4, .value = mac}),
              .portIdentifier =
                  Lldp::PortIdentifier({.subtype = 5, .value = "Ethernet" + std::to_string(i)})});
         auto rs = ps->remoteSystemIs(i, msap);
         rs->sysNameIs("switch-" + std::to_string(p) + "-" + std::to_string(i));
         rs->sysDescIs("a neighbour with a system description of ordinary length");
         rs->portDescIs("uplink");
         if (i % 2 == 0) {
            rs->portVlanIdIs(Bridging::VlanIdOrNone(uint16_t(i)));
            rs->portVlanIdTlvReceivedIs(true);
         }
         if (i % 10 == 0) rs->modelNameTlvInfoIs(Lldp::BoundedString32Tlv("phone"));
      }
      status->portStatusIs(intf, ps);
   }
}

// Walks everything under `subtree`, as snmpwalk would.
void walk(benchmark::State& state, const Snmp::Oid& subtree) {
   Vel::StateDb db;
   fill(db, static_cast<int>(state.range(0)));
   Snmp::LldpMibSource src(db, 0);
   Snmp::MibTree tree(src);
   Snmp::Oid name, next;
   Snmp::Value value;
   int64_t requests = 0;
   for (auto _ : state) {
      name = subtree;
      while (tree.getNext(name, next, value) && next.startsWith(subtree)) {
         name = next;
         ++requests;
      }
      benchmark::DoNotOptimize(value);
   }
   state.SetItemsProcessed(requests);  // items/s: GETNEXTs per second
   state.counters["getnextPerWalk"] = double(requests) / double(state.iterations());
}

void BM_WalkLldpRemTable(benchmark::State& state) {
   walk(state, Snmp::Oid{1, 0, 8802, 1, 1, 2, 1, 4, 1});
}
BENCHMARK(BM_WalkLldpRemTable)->Arg(100)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_WalkLldpExtensions(benchmark::State& state) {
   walk(state, Snmp::Oid{1, 0, 8802, 1, 1, 2, 1, 5});
}
BENCHMARK(BM_WalkLldpExtensions)->Arg(100)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace

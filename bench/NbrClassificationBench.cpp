// What neighbour classification costs per neighbour: a neighbour whose LLDPDU changed
// something that does not bear on its class, a neighbour that comes and goes, and one that
// changes class, each on a port with 1, 1,000 and 100,000 neighbours (cycling through all
// of them, so larger tables add cache misses and the table's own logarithmic lookup). The
// machine alone, on the records the receive processor writes, traces off; allocations
// beside time. A plain refresh (the same LLDPDU again) does not reach the machine at all:
// the receive processor writes only the refresh times, which it does not watch.
#include <benchmark/benchmark.h>

#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Lldp/LldpNbrClassificationSm.h"
#include "tests/Support/AllocCounter.h"

namespace {

using Identity::NbrClassification::CliConfig;
using Identity::NbrClassification::Status;

Wire::EthAddr macOf(int i) {
   return Wire::EthAddr({0, 0x1c, uint8_t(i >> 24), uint8_t(i >> 16), uint8_t(i >> 8), uint8_t(i)});
}

struct Port {
   Lldp::Status::Ptr lldp = Vel::make<Lldp::Status>();
   Status::Ptr status = Vel::make<Status>();
   CliConfig::Ptr cli = Vel::make<CliConfig>();
   Lldp::PortStatus::Ptr ps;
   Vel::Ptr<Lldp::Agent::NbrClassificationSm> sm;

   explicit Port(int neighbours) {
      Vel::Log::syslogIs(false);
      Vel::Trace::configure("");
      const Wire::IntfId intf = Wire::IntfId::linux("eth1", Wire::IntfKind::intfKindEthernet);
      ps = lldp->portStatusIs(intf, 0.0);
      for (int i = 1; i <= neighbours; ++i) add(i);
      sm = Vel::make<Lldp::Agent::NbrClassificationSm>(lldp, status, cli);
      sm->handleInitialized();
   }
   ~Port() { sm->doClose(); }
   Lldp::RemoteSystem::Ptr add(int i) {
      auto r = ps->remoteSystemIs(
          i, Lldp::Msap({.chassisIdentifier = Lldp::ChassisIdentifier(
                             {.subtype = 4, .value = std::string(6, char(i))})}));
      r->ethAddrIs(macOf(i));
      Lldp::SystemCapabilitiesMap caps;
      caps.telephoneIs(i % 2 == 0);
      r->systemCapabilitiesIs(Lldp::SystemCapabilitiesTlv::create(caps, caps));
      return r;
   }
};

void report(benchmark::State& state, const TestSupport::AllocScope& allocs) {
   state.counters["allocs/op"] =
       benchmark::Counter(double(allocs.count()), benchmark::Counter::kAvgIterations);
}

// The neighbour's table says it changed, but not in anything that bears on its class.
void BM_OtherChange(benchmark::State& state) {
   Port port(int(state.range(0)));
   int i = 0;
   TestSupport::AllocScope allocs;
   for (auto _ : state) {
      i = i % int(state.range(0)) + 1;
      port.ps->remoteSystemTouched(i);
   }
   report(state, allocs);
}
BENCHMARK(BM_OtherChange)->Arg(1)->Arg(1000)->Arg(100000);

// A new neighbour classified, then gone again (its entry published and withdrawn).
void BM_NewNeighbourAndGone(benchmark::State& state) {
   Port port(int(state.range(0)));
   const int index = int(state.range(0)) + 1;
   TestSupport::AllocScope allocs;
   for (auto _ : state) {
      port.add(index);
      port.ps->remoteSystemDel(index);
   }
   report(state, allocs);
}
BENCHMARK(BM_NewNeighbourAndGone)->Arg(1)->Arg(1000)->Arg(100000);

// A neighbour that flips between telephone and device with every frame.
void BM_Reclassified(benchmark::State& state) {
   Port port(int(state.range(0)));
   auto r = port.ps->remoteSystem(1);
   bool telephone = false;
   TestSupport::AllocScope allocs;
   for (auto _ : state) {
      telephone = !telephone;
      Lldp::SystemCapabilitiesMap caps;
      caps.telephoneIs(telephone);
      r->systemCapabilitiesIs(Lldp::SystemCapabilitiesTlv::create(caps, caps));
      port.ps->remoteSystemTouched(1);
   }
   report(state, allocs);
}
BENCHMARK(BM_Reclassified)->Arg(1)->Arg(1000)->Arg(100000);

}  // namespace

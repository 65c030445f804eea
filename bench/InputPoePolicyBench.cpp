// What a neighbour's changed LLDPDU costs the input side on a port with network policies
// and PoE: the network policy and PoE machines re-examine the port's neighbours (to learn
// whether one asks for a policy and which power request to answer) and republish the
// request. Measured with the whole agent in virtual time, traces off, per change, with 1
// and 64 neighbours on the port (the scans are linear in them), allocations beside time.
#include <benchmark/benchmark.h>

#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Lldp/LldpAgent.h"
#include "tests/Support/AllocCounter.h"
#include "tests/Support/Switch.h"

namespace {

Wire::IntfId eth(const char* name) {
   return Wire::IntfId::linux(name, Wire::IntfKind::intfKindEthernet);
}

void BM_NeighbourPowerRequestChanged(benchmark::State& state) {
   Vel::Log::syslogIs(false);
   Vel::Trace::textTraceIs("-");
   auto& loop = Vel::EventLoop::instance();
   loop.virtualTimeIs(true, 100);
   Vel::StateDb db;
   TestSupport::InMemoryLinks links;
   links.linkIs(eth("eth1"), eth("peer"));
   db.mount<Bridging::Config>("bridging/config");
   auto phyDir = db.mount<Interface::EthPhyIntfStatusDir>("interface/status/eth/phy/all");
   auto agent = Vel::make<Lldp::Agent::Agent>("lldp-agent",
                                              Lldp::Agent::Agent::Options{links.factory()}, db);
   agent->doInit();
   loop.advanceBy(0);
   auto s = phyDir->intfStatusIs(eth("eth1"));
   s->linkStatusIs(Interface::linkStatusUp);
   s->forwardingModelIs(Interface::forwardingModelRouted);
   agent->cliConfig()
       ->cliPortConfigIs(eth("eth1"))
       ->networkPolicyConfigIs(
           Lldp::NetworkPolicyConfig({.appType = 1, .tagged = true, .vlanId = 500}));
   auto ps = agent->lldpStatusLocal()->portStatus(eth("eth1"));
   for (int i = 1; i <= state.range(0); ++i) {
      auto r = ps->remoteSystemIs(i, Lldp::Msap({.chassisIdentifier = Lldp::ChassisIdentifier(
                                                     {.subtype = 7, .value = std::to_string(i)})}));
      r->expiryTimeIs(1e9);
      r->ethAddrIs(Wire::EthAddr({2, 0, 0, 0, 0, 1}));
      r->networkPolicyTlvIs(Lldp::NetworkPolicyTlv({.appType = 1, .unknown = true}));
      r->powerViaMdiTlvReceivedIs(true);
      r->powerViaMdiInfoIs(Lldp::PowerViaMdiInfo(
          {.form = Lldp::PowerViaMdiInfo::formDot3at, .typeSourcePriority = 0x50}));
      ps->remoteSystemTouched(i);
   }
   auto r = ps->remoteSystem(1);
   Lldp::PowerViaMdiInfo info = r->powerViaMdiInfo();
   uint16_t power = 0;
   TestSupport::AllocScope allocs;
   for (auto _ : state) {
      info.pdRequestedPowerIs(++power);
      r->powerViaMdiInfoIs(info);
      ps->remoteSystemTouched(1);
   }
   state.counters["allocs/op"] =
       benchmark::Counter(double(allocs.count()), benchmark::Counter::kAvgIterations);
   agent->doCleanup();
   loop.advanceBy(0);
   loop.virtualTimeIs(false);
}
BENCHMARK(BM_NeighbourPowerRequestChanged)->Arg(1)->Arg(64);

}  // namespace

// What a neighbour's changed LLDPDU costs the input side on a port with network policies
// and PoE: the network policy and PoE machines re-examine the port's neighbours (to learn
// whether one asks for a policy and which power request to answer) and republish the
// request. Measured with the whole agent in virtual time, traces off, per change, with 1
// and 64 neighbours on the port (the PoE scan is linear in them), allocations beside time;
// and a changed neighbour that asks for nothing on a port of up to 100,000.
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

// The whole agent in virtual time with one port, eth1, that has a voice policy configured
// and `neighbours` neighbours; `asking` says whether they send a network policy and a
// power request (the PoE machine only looks at ports with PoE information).
struct OnePortAgent {
   Vel::StateDb db;
   TestSupport::InMemoryLinks links;
   Vel::Ptr<Lldp::Agent::Agent> agent;
   Lldp::PortStatus::Ptr ps;

   OnePortAgent(int neighbours, bool asking) {
      Vel::Log::syslogIs(false);
      Vel::Trace::textTraceIs("-");
      auto& loop = Vel::EventLoop::instance();
      loop.virtualTimeIs(true, 100);
      links.linkIs(eth("eth1"), eth("peer"));
      db.mount<Bridging::Config>("bridging/config");
      auto phyDir = db.mount<Interface::EthPhyIntfStatusDir>("interface/status/eth/phy/all");
      agent = Vel::make<Lldp::Agent::Agent>("lldp-agent",
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
      ps = agent->lldpStatusLocal()->portStatus(eth("eth1"));
      for (int i = 1; i <= neighbours; ++i) {
         auto r =
             ps->remoteSystemIs(i, Lldp::Msap({.chassisIdentifier = Lldp::ChassisIdentifier(
                                                   {.subtype = 7, .value = std::to_string(i)})}));
         r->expiryTimeIs(1e9);
         r->ethAddrIs(Wire::EthAddr({2, 0, 0, 0, 0, 1}));
         if (asking) {
            r->networkPolicyTlvIs(Lldp::NetworkPolicyTlv({.appType = 1, .unknown = true}));
            r->powerViaMdiTlvReceivedIs(true);
            r->powerViaMdiInfoIs(Lldp::PowerViaMdiInfo(
                {.form = Lldp::PowerViaMdiInfo::formDot3at, .typeSourcePriority = 0x50}));
         }
         ps->remoteSystemTouched(i);
      }
   }
   ~OnePortAgent() {
      auto& loop = Vel::EventLoop::instance();
      agent->doCleanup();
      loop.advanceBy(0);
      loop.virtualTimeIs(false);
   }
};

void BM_NeighbourPowerRequestChanged(benchmark::State& state) {
   OnePortAgent a(int(state.range(0)), true);
   auto r = a.ps->remoteSystem(1);
   Lldp::PowerViaMdiInfo info = r->powerViaMdiInfo();
   uint16_t power = 0;
   TestSupport::AllocScope allocs;
   for (auto _ : state) {
      info.pdRequestedPowerIs(++power);
      r->powerViaMdiInfoIs(info);
      a.ps->remoteSystemTouched(1);
   }
   state.counters["allocs/op"] =
       benchmark::Counter(double(allocs.count()), benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_NeighbourPowerRequestChanged)->Arg(1)->Arg(64);

// The common case on a crowded port: neighbours that ask for nothing. A changed one must
// cost the same however many share its port.
void BM_NeighbourChangedOnCrowdedPort(benchmark::State& state) {
   OnePortAgent a(int(state.range(0)), false);
   auto r = a.ps->remoteSystem(1);
   int n = 0;
   for (auto _ : state) {
      r->sysNameIs(Lldp::BoundedString255((++n & 1) ? "a" : "b"));
      a.ps->remoteSystemTouched(1);
   }
}
BENCHMARK(BM_NeighbourChangedOnCrowdedPort)->Arg(1)->Arg(1000)->Arg(100000);

}  // namespace

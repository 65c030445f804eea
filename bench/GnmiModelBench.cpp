// The gNMI model's two costs that grow with the table: the initial sync of a subscription
// (every leaf of 100,000 neighbours), and the time from an LLDPDU that changes one of
// 10,000 neighbours to its notification leaving the model, measured through the receive
// processor and one turn of the event loop. The second reports its 99th percentile.
#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/StateDb.h"
#include "Gnmi/GnmiModel.h"
#include "Lldp/LldpProtocol.h"
#include "Lldp/LldpProtocolSm.h"
#include "bench/NeighbourTable.h"

namespace {

void publish(Vel::StateDb& db, const Lldp::AllStatus::Ptr& all) {
   db.clear();
   db.mount<Lldp::CliConfig>("l2discovery/lldp/cliConfig");
   auto config = db.mount<Lldp::Config>("l2discovery/lldp/config");
   db.mount<Lldp::LocalSystem>("l2discovery/lldp/localSystem");
   db.entityIs("l2discovery/lldp/status/all", all);
   for (const auto& [intf, port] : all->portStatus()) config->portConfigIs(intf);
}

void BM_InitialSync(benchmark::State& state) {
   const int ports = 100;
   const int perPort = static_cast<int>(state.range(0)) / ports;
   Vel::StateDb& db = Vel::StateDb::instance();
   publish(
       db, bigNeighbourTable(ports, perPort, [](Lldp::RemoteSystem& r, uint32_t n) {
          r.systemCapabilitiesIs(Lldp::SystemCapabilitiesTlv::create(
              Lldp::SystemCapabilitiesMap(0x14), Lldp::SystemCapabilitiesMap(n & 1 ? 0x10 : 0x4)));
       }));
   Gnmi::Model model(Gnmi::Sources{&db});
   Gnmi::Path root;
   uint64_t leaves = 0;
   for (auto _ : state) {
      leaves = 0;
      model.leaves(root, [&](const Gnmi::Leaf& l) {
         benchmark::DoNotOptimize(l.value);
         ++leaves;
      });
   }
   state.counters["leaves"] = static_cast<double>(leaves);
   state.counters["neighbours/s"] =
       benchmark::Counter(static_cast<double>(state.range(0)), benchmark::Counter::kIsRate);
   db.clear();
}
BENCHMARK(BM_InitialSync)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_InitialSyncJson(benchmark::State& state) {
   Vel::StateDb& db = Vel::StateDb::instance();
   publish(db, bigNeighbourTable(100, static_cast<int>(state.range(0)) / 100,
                                 [](Lldp::RemoteSystem&, uint32_t) {}));
   Gnmi::Model model(Gnmi::Sources{&db});
   Gnmi::Path root;
   size_t bytes = 0;
   for (auto _ : state) {
      model.json(root, Gnmi::Encoding::JsonIetf,
                 [&](const Gnmi::Path&, std::string&& json) { bytes = json.size(); });
   }
   state.counters["bytes"] = static_cast<double>(bytes);
   db.clear();
}
BENCHMARK(BM_InitialSyncJson)->Arg(100000)->Unit(benchmark::kMillisecond);

// An LLDPDU of neighbour n with the given system name.
std::string lldpdu(int n, const std::string& sysName) {
   std::string b;
   auto tlv = [&](int type, const std::string& info) {
      b.push_back(static_cast<char>(type << 1 | static_cast<int>(info.size() >> 8)));
      b.push_back(static_cast<char>(info.size() & 0xff));
      b += info;
   };
   tlv(1,
       "\x07"
       "chassis" +
           std::to_string(n));
   tlv(2, "\x07port");
   tlv(3, std::string("\x00\x78", 2));
   tlv(5, sysName);
   tlv(0, "");
   return b;
}

double nowSeconds() {
   timespec ts;
   clock_gettime(CLOCK_MONOTONIC, &ts);
   return static_cast<double>(ts.tv_sec) + ts.tv_nsec * 1e-9;
}

void BM_ChangeToNotification(benchmark::State& state) {
   const int count = static_cast<int>(state.range(0));
   Vel::StateDb& db = Vel::StateDb::instance();
   db.clear();
   const Wire::IntfId intf("Ethernet1");
   auto portConfig = Vel::make<Lldp::PortConfig>(intf);
   portConfig->remoteSystemLimitIs(static_cast<uint32_t>(count) + 1);
   auto status = Vel::make<Lldp::Status>();
   auto port = status->portStatusIs(intf, 0.0);
   auto all = Vel::make<Lldp::AllStatus>();
   all->portStatusIs(intf, Vel::Ptr<const Lldp::PortStatus>(port));
   publish(db, all);
   auto localPort = Vel::make<Lldp::LocalPort>(intf);
   auto pamSm = Vel::make<Lldp::Agent::Protocol::LldpPamSm>(intf);
   const Wire::EthAddr mac = *Wire::EthAddr::parse("00:1c:73:aa:bb:cc");
   auto rx = [&](std::string frame) {
      processRxLldpdu(frame.data(), frame.data() + frame.size(), portConfig, status, port,
                      localPort, pamSm, mac);
   };
   for (int n = 1; n <= count; ++n) rx(lldpdu(n, "leaf" + std::to_string(n)));
   Gnmi::Model model(Gnmi::Sources{&db});
   double delivered = 0;
   std::unique_ptr<Gnmi::Model::Watch> watch;
   Gnmi::Path pattern;
   std::string error;
   Gnmi::parsePath("/lldp/interfaces/interface[name=*]/neighbors/neighbor[id=*]", pattern, error);
   model.watch(
       pattern, [&](const Gnmi::Change&) { delivered = nowSeconds(); }, watch);
   std::vector<double> latencies;
   int i = 0;
   for (auto _ : state) {
      const int n = 1 + (i * 7919) % count;
      const std::string frame = lldpdu(n, "renamed" + std::to_string(i++));
      const double start = nowSeconds();
      rx(frame);
      Vel::EventLoop::instance().runOnce(0);
      latencies.push_back(delivered - start);
   }
   std::sort(latencies.begin(), latencies.end());
   if (!latencies.empty()) {
      state.counters["p99_us"] = latencies[latencies.size() * 99 / 100] * 1e6;
      state.counters["max_us"] = latencies.back() * 1e6;
   }
   watch.reset();
   db.clear();
}
BENCHMARK(BM_ChangeToNotification)->Arg(10000)->Unit(benchmark::kMicrosecond);

// The receive path's cost for a refresh (an LLDPDU that changes nothing) of one of 10,000
// neighbours, with no watch and with 100 watches open: the watches must not add to it.
void BM_RefreshWithWatches(benchmark::State& state) {
   const int count = 10000;
   Vel::StateDb& db = Vel::StateDb::instance();
   db.clear();
   const Wire::IntfId intf("Ethernet1");
   auto portConfig = Vel::make<Lldp::PortConfig>(intf);
   portConfig->remoteSystemLimitIs(count + 1);
   portConfig->rxRateLimitEnabledIs(false);
   auto status = Vel::make<Lldp::Status>();
   auto port = status->portStatusIs(intf, 0.0);
   auto all = Vel::make<Lldp::AllStatus>();
   all->portStatusIs(intf, Vel::Ptr<const Lldp::PortStatus>(port));
   publish(db, all);
   auto localPort = Vel::make<Lldp::LocalPort>(intf);
   auto pamSm = Vel::make<Lldp::Agent::Protocol::LldpPamSm>(intf);
   const Wire::EthAddr mac = *Wire::EthAddr::parse("00:1c:73:aa:bb:cc");
   std::vector<std::string> frames;
   for (int n = 1; n <= count; ++n) frames.push_back(lldpdu(n, "leaf" + std::to_string(n)));
   for (auto& f : frames) {
      processRxLldpdu(f.data(), f.data() + f.size(), portConfig, status, port, localPort, pamSm,
                      mac);
   }
   Gnmi::Model model(Gnmi::Sources{&db});
   std::vector<std::unique_ptr<Gnmi::Model::Watch>> watches(static_cast<size_t>(state.range(0)));
   uint64_t changes = 0;
   for (auto& w : watches) {
      model.watch(
          Gnmi::Path{{{"lldp", {}}}, ""}, [&](const Gnmi::Change&) { ++changes; }, w);
   }
   size_t i = 0;
   for (auto _ : state) {
      std::string& f = frames[i++ % frames.size()];
      processRxLldpdu(f.data(), f.data() + f.size(), portConfig, status, port, localPort, pamSm,
                      mac);
   }
   Vel::EventLoop::instance().runOnce(0);
   state.counters["changes"] = static_cast<double>(changes);
   watches.clear();
   Vel::EventLoop::instance().runOnce(0);
   db.clear();
}
BENCHMARK(BM_RefreshWithWatches)->Arg(0)->Arg(100);

}  // namespace

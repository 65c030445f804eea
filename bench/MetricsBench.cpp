// A Prometheus scrape over 100,000 neighbours (1,000 ports with 100 each). What matters
// is how long the event loop is held at a time: the snapshot is taken one slice per turn
// of the loop, so BM_SnapshotSlice (and max_slice_ms of BM_SnapshotWhole) is the longest
// that frame handling waits because of a scrape. The formatting (BM_FormatText) runs on
// the HTTP server's thread and holds the loop not at all.
#include <benchmark/benchmark.h>
#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "Daemon/MetricsExporter.h"
#include "Daemon/MetricsSnapshot.h"

namespace {

Lldp::AllStatus::Ptr bigTable(int ports, int perPort) {
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
         const char ip[4] = {char(198), 51, 100, char(n)};
         r->managementAddressIs(Lldp::ManagementAddress(
             {.key = Lldp::ManagementAddressKey(
                  {.subtype = Lldp::addrFamilyIpv4, .address = std::string(ip, 4)})}));
      }
      all->portStatusIs(intf, port);
   }
   return all;
}

const Lldp::AllStatus::Ptr& table() {
   static auto all = bigTable(1000, 100);
   return all;
}

Daemon::MetricsSnapshotBuilder builder() {
   return Daemon::MetricsSnapshotBuilder(table(), nullptr, Vel::make<Lldp::Config>(),
                                         Vel::make<Lldp::LocalSystem>());
}

// One slice of the loop's work, restarting the snapshot whenever it completes.
void BM_SnapshotSlice(benchmark::State& state) {
   auto b = builder();
   b.start(0, 0);
   for (auto _ : state) {
      if (b.step(Daemon::MetricsExporter::sliceNeighbors)) {
         state.PauseTiming();
         b.start(0, 0);
         state.ResumeTiming();
      }
   }
}
BENCHMARK(BM_SnapshotSlice)->Unit(benchmark::kMicrosecond);

// A whole snapshot, slice by slice, with the longest slice.
void BM_SnapshotWhole(benchmark::State& state) {
   using Clock = std::chrono::steady_clock;
   auto b = builder();
   double maxSlice = 0;
   size_t slices = 0;
   for (auto _ : state) {
      b.start(0, 0);
      bool done = false;
      slices = 0;
      while (!done) {
         const auto t0 = Clock::now();
         done = b.step(Daemon::MetricsExporter::sliceNeighbors);
         maxSlice = std::max(maxSlice, std::chrono::duration<double>(Clock::now() - t0).count());
         ++slices;
      }
      benchmark::DoNotOptimize(b.take());
   }
   state.counters["max_slice_ms"] = maxSlice * 1e3;
   state.counters["slices"] = double(slices);
}
BENCHMARK(BM_SnapshotWhole)->Unit(benchmark::kMillisecond)->Iterations(5);

// The HTTP thread's share: metric families and the text format.
void BM_FormatText(benchmark::State& state) {
   auto b = builder();
   b.start(0, 0);
   while (!b.step(1 << 30)) {
   }
   const Daemon::MetricsSnapshot snap = b.take();
   for (auto _ : state) {
      const std::string text = prometheus::TextSerializer().Serialize(Daemon::metricFamilies(snap));
      state.counters["textMB"] = double(text.size()) / 1e6;
   }
}
BENCHMARK(BM_FormatText)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();

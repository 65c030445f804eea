// A Prometheus scrape over 100,000 neighbours (1,000 ports with 100 each). What matters
// is how long the event loop is held at a time: the snapshot is taken one slice per turn
// of the loop, so BM_SnapshotSlice (and max_slice_ms of BM_SnapshotWhole) is the longest
// that frame handling waits because of a scrape. The formatting (BM_FormatText) runs on
// the HTTP server's thread and holds the loop not at all.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <string>
#include <thread>

#include "Daemon/MetricsExporter.h"
#include "Daemon/MetricsSnapshot.h"
#include "Framework/Vel/EventLoop.h"
#include "bench/NeighbourTable.h"

namespace {

Lldp::AllStatus::Ptr bigTable(int ports, int perPort) {
   return bigNeighbourTable(ports, perPort, [](Lldp::RemoteSystem& r, uint32_t n) {
      const char ip[4] = {char(198), 51, 100, char(n)};
      r.managementAddressIs(Lldp::ManagementAddress(
          {.key = Lldp::ManagementAddressKey(
               {.subtype = Lldp::addrFamilyIpv4, .address = std::string(ip, 4)})}));
   });
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

// GET /metrics from 127.0.0.1:port; the size of the answer.
size_t scrape(int port) {
   const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
   sockaddr_in addr{};
   addr.sin_family = AF_INET;
   addr.sin_port = htons(uint16_t(port));
   addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
   size_t total = 0;
   if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0) {
      const char req[] = "GET /metrics HTTP/1.0\r\n\r\n";
      if (::write(fd, req, sizeof(req) - 1) == ssize_t(sizeof(req) - 1)) {
         char buf[65536];
         for (ssize_t n; (n = ::read(fd, buf, sizeof(buf))) > 0;) total += size_t(n);
      }
   }
   ::close(fd);
   return total;
}

// The whole path in the daemon: a real scrape over HTTP while the loop also runs a clock
// that fires on every turn, as frame handling would. max_stall_ms is the longest the
// clock waited for its turn while the scrape was served; max_stall_cpu_ms the loop
// thread's own CPU time in that wait (on a loaded machine the rest of the wall-clock wait
// is the thread waiting for a core, not work of ours).
void BM_ScrapeStall(benchmark::State& state) {
   using Clock = std::chrono::steady_clock;
   auto& db = Vel::StateDb::instance();
   db.entityIs("l2discovery/lldp/status/all", table());
   Daemon::MetricsExporter exporter(db);
   const int port = 19000 + int(::getpid() % 1000);
   std::string error;
   if (!exporter.listen("127.0.0.1:" + std::to_string(port), &error)) {
      state.SkipWithError(error.c_str());
      return;
   }
   auto& loop = Vel::EventLoop::instance();
   auto cpuNow = [] {
      timespec ts{};
      ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
      return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
   };
   double maxStall = 0, maxStallCpu = 0, lastCpu = cpuNow();
   Clock::time_point last = Clock::now();
   Vel::Clock ticker;
   ticker.handlerIs([&] {
      const auto now = Clock::now();
      const double cpu = cpuNow();
      maxStall = std::max(maxStall, std::chrono::duration<double>(now - last).count());
      maxStallCpu = std::max(maxStallCpu, cpu - lastCpu);
      last = now;
      lastCpu = cpu;
      ticker.timeMinIs(loop.now());
   });
   // The same loop for a second with no scrape: what the machine itself costs.
   last = Clock::now();
   lastCpu = cpuNow();
   ticker.timeMinIs(loop.now());
   loop.runUntil([] { return false; }, 1.0);
   ticker.timeMinIs(Vel::never);
   state.counters["idle_max_stall_ms"] = maxStall * 1e3;
   state.counters["idle_max_stall_cpu_ms"] = maxStallCpu * 1e3;
   maxStall = maxStallCpu = 0;
   size_t bytes = 0;
   for (auto _ : state) {
      std::atomic<bool> done{false};
      std::thread client([&] {
         bytes = scrape(port);
         done = true;
      });
      last = Clock::now();
      lastCpu = cpuNow();
      ticker.timeMinIs(loop.now());
      loop.runUntil([&] { return done.load(); }, 120);
      client.join();
      ticker.timeMinIs(Vel::never);
   }
   state.counters["max_stall_ms"] = maxStall * 1e3;
   state.counters["max_stall_cpu_ms"] = maxStallCpu * 1e3;
   state.counters["pageMB"] = double(bytes) / 1e6;
}
BENCHMARK(BM_ScrapeStall)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

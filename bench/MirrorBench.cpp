// The mirror between an active agent and its standby, both ends as the daemons run them:
// the active side's service on a real control socket, the standby's client connected to
// it through that socket, and 100,000 neighbours (100 ports of 1,000).
//   BM_MirrorSnapshot100k     a standby connecting until it holds the whole table
//   BM_MirrorChanges100k      neighbours refreshed on the active side (a new expiry time
//                             each, as a received LLDPDU gives) until the standby has
//                             applied every one: the change rate the mirror keeps up with
// Both ends share one event loop and one core here; in the daemons each has its own.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include "Daemon/ControlSocket.h"
#include "Daemon/MirrorClient.h"
#include "Daemon/MirrorService.h"
#include "Framework/Vel/EventLoop.h"
#include "bench/NeighbourTable.h"

namespace {

struct Active {
   Active() {
      table = bigNeighbourTable(100, 1000, [](Lldp::RemoteSystem& r, uint32_t n) {
         r.expiryTimeIs(1000 + n);
         r.creationTimeIs(n);
      });
      path = "/tmp/lldp-mirror-bench-" + std::to_string(::getpid()) + ".sock";
      std::string error;
      if (!socket.listen(path, &error)) std::abort();
      service = std::make_unique<Daemon::MirrorService>(socket, table, redundancy);
   }
   Lldp::AllStatus::Ptr table;
   std::string path;
   Daemon::ControlSocket socket{Vel::make<Lldp::CliConfig>()};
   Lldp::RedundancyStatus::Ptr redundancy = Vel::make<Lldp::RedundancyStatus>();
   std::unique_ptr<Daemon::MirrorService> service;
};

Active& active() {
   static Active a;
   return a;
}

struct Standby {
   explicit Standby(const std::string& peer) {
      Daemon::MirrorClient::Options o;
      o.peerSocket = peer;
      redundancy->roleIs(Lldp::RedundancyRoleNames::roleStandby);
      client = std::make_unique<Daemon::MirrorClient>(
          o, Vel::make<Lldp::Agent::StandbyLldpStatusDirSm>(dir), redundancy, nullptr);
   }
   bool inSync() const { return redundancy->mirrorState() == Lldp::MirrorStateNames::mirrorInSync; }
   Vel::Ptr<Vel::Dir> dir = Vel::make<Vel::Dir>();
   Lldp::RedundancyStatus::Ptr redundancy = Vel::make<Lldp::RedundancyStatus>();
   std::unique_ptr<Daemon::MirrorClient> client;
};

void waitGone(Active& a) {
   Vel::EventLoop::instance().runUntil([&] { return !a.service->standbyConnected(); }, 5);
}

void BM_MirrorSnapshot100k(benchmark::State& state) {
   Active& a = active();
   for (auto _ : state) {
      waitGone(a);
      Standby s(a.path);
      s.client->start();
      if (!Vel::EventLoop::instance().runUntil([&] { return s.inSync(); }, 120)) {
         state.SkipWithError(
             ("the standby did not get in sync: " + Vel::toJson(*s.redundancy).dump()).c_str());
         break;
      }
      auto copy = s.dir->entryAs<Lldp::Status>("1");
      size_t n = 0;
      for (const auto& [i, p] : copy->portStatus()) n += p->remoteSystem().size();
      state.counters["neighbors"] = double(n);
      if (n != 100000) {
         state.SkipWithError(("the copy is incomplete: " + std::to_string(n) + " " +
                              std::to_string(a.table->portStatus().size()) + " " +
                              Vel::toJson(*s.redundancy).dump())
                                 .c_str());
         break;
      }
      state.PauseTiming();
      s.client.reset();
      waitGone(a);
      state.ResumeTiming();
   }
}
BENCHMARK(BM_MirrorSnapshot100k)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_MirrorChanges100k(benchmark::State& state) {
   Active& a = active();
   waitGone(a);
   Standby s(a.path);
   s.client->start();
   auto& loop = Vel::EventLoop::instance();
   if (!loop.runUntil([&] { return s.inSync(); }, 120)) {
      state.SkipWithError("the standby did not get in sync");
      return;
   }
   const int batch = int(state.range(0));
   Vel::Seconds t = 2000;
   std::vector<Lldp::RemoteSystem*> all;
   for (const auto& [i, p] : a.table->portStatus()) {
      for (const auto& [index, r] : p->remoteSystem()) {
         all.push_back(const_cast<Lldp::RemoteSystem*>(r.ptr()));
      }
   }
   size_t next = 0;
   for (auto _ : state) {
      t += 1;
      for (int i = 0; i < batch; ++i) {
         all[next]->expiryTimeIs(t);
         next = (next + 1) % all.size();
      }
      // Applied on the standby, acknowledged back.
      const bool done = loop.runUntil(
          [&] {
             return s.redundancy->mirrorSequence() == a.service->sequence() &&
                    a.service->standbyInSync();
          },
          60);
      if (!done) {
         state.SkipWithError("the standby fell behind for good");
         break;
      }
   }
   state.SetItemsProcessed(int64_t(state.iterations()) * batch);
   state.counters["resyncs"] = double(a.service->resyncs());
   s.client.reset();
   waitGone(a);
}
BENCHMARK(BM_MirrorChanges100k)
    ->Arg(1000)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

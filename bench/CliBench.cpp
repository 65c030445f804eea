// The command line at scale: `lldp show neighbors --json` over 100,000 neighbours (1,000
// ports with 100 each). The daemon builds the view and serializes the reply as the
// control socket does; the client (not on a terminal) passes the data through. The text
// table adds parsing and formatting on the client side.
#include <benchmark/benchmark.h>

#include <string>

#include "Cli/CliText.h"
#include "Daemon/CliViews.h"
#include "Daemon/ControlSocket.h"
#include "bench/NeighbourTable.h"

namespace {

Lldp::AllStatus::Ptr bigTable(int ports, int perPort) {
   return bigNeighbourTable(ports, perPort, [](Lldp::RemoteSystem& r, uint32_t) {
      r.sysDescIs(Lldp::BoundedString255Tlv("Network operating system 4.31.2F, x86_64"));
      r.creationTimeIs(10);
      r.expiryTimeIs(130);
   });
}

std::string daemonReply(const Lldp::AllStatus& all, bool detail) {
   Cli::View v = Cli::neighborsView(all, detail, "", 100);
   return Daemon::ControlSocket::okReply(std::move(v.json))
       .dump(-1, ' ', false, Vel::Json::error_handler_t::replace);
}

void BM_ShowNeighborsJson100k(benchmark::State& state) {
   static auto all = bigTable(1000, 100);
   for (auto _ : state) {
      std::string reply = daemonReply(*all, false);
      // The client checks the reply's frame and writes the data out as it is.
      const bool plain = reply.starts_with("{\"data\":") && reply.ends_with(",\"ok\":true}");
      benchmark::DoNotOptimize(plain);
      state.counters["replyMB"] = double(reply.size()) / 1e6;
   }
}
BENCHMARK(BM_ShowNeighborsJson100k)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_ShowNeighborsText100k(benchmark::State& state) {
   static auto all = bigTable(1000, 100);
   for (auto _ : state) {
      std::string reply = daemonReply(*all, false);
      Vel::Json parsed = Vel::Json::parse(reply);
      std::string text = Cli::neighborsText(parsed["data"], false);
      benchmark::DoNotOptimize(text.data());
   }
}
BENCHMARK(BM_ShowNeighborsText100k)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

// The command line at scale: `lldp show neighbors --json` over 100,000 neighbours (1,000
// ports with 100 each). The daemon builds the view and serializes the reply as the
// control socket does; the client (not on a terminal) passes the data through. The text
// table adds parsing and formatting on the client side.
#include <benchmark/benchmark.h>

#include <string>

#include "Cli/CliText.h"
#include "Cli/CliViews.h"
#include "Daemon/ControlSocket.h"

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
         r->sysDescIs(Lldp::BoundedString255Tlv("Network operating system 4.31.2F, x86_64"));
         r->portDescIs(Lldp::BoundedString255Tlv("uplink to spine"));
         r->creationTimeIs(10);
         r->expiryTimeIs(130);
      }
      all->portStatusIs(intf, port);
   }
   return all;
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

// The receive and transmit hot paths: refreshing a known neighbour, creating neighbours
// as a port's table grows, building a full LLDPDU, and the age timer firing on a large
// table. Each reports heap allocations per operation beside its time.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Lldp/LldpProtocol.h"
#include "Lldp/LldpProtocolSm.h"
#include "Records/IntfStatus.h"
#include "tests/Support/AllocCounter.h"
#include "tests/Support/Frames.h"
#include "tests/Support/FullPort.h"
#include "tests/Support/PortRecords.h"

namespace {

using TestSupport::Bytes;

double benchClock() {
   return 1000.0;
}

// A receiving port with its own status, as the protocol engine hands it to the processor.
struct RxPort {
   RxPort() {
      Lldp::clockIs(benchClock);
      // Messages are still formatted and handed to a sink; only the syslog daemon's side
      // (absent on a bare build machine) is left out.
      Vel::Log::syslogIs(false);
      Vel::Log::sinkIs([](const Vel::Log::Message&) {});
      Vel::Trace::textTraceIs("-");
   }
   ~RxPort() {
      Lldp::clockIs(nullptr);
      Vel::Log::sinkIs(nullptr);
      Vel::Log::syslogIs(true);
   }
   Lldp::RemoteSystem::PtrConst rx(Bytes& pdu) {
      return processRxLldpdu(pdu.data(), pdu.data() + pdu.size(), config, status, port, localPort,
                             pamSm, mac);
   }

   Wire::IntfId intf{"Ethernet1"};
   Lldp::PortConfig::Ptr config = Vel::make<Lldp::PortConfig>(intf);
   Lldp::Status::Ptr status = Vel::make<Lldp::Status>();
   Lldp::PortStatus::Ptr port = status->portStatusIs(intf, 0.0);
   Lldp::LocalPort::Ptr localPort = Vel::make<Lldp::LocalPort>(intf);
   Vel::Ptr<Lldp::Agent::Protocol::LldpPamSm> pamSm =
       Vel::make<Lldp::Agent::Protocol::LldpPamSm>(intf);
   Wire::EthAddr mac = *Wire::EthAddr::parse("00:1c:73:aa:bb:cc");
};

void reportAllocations(benchmark::State& state, const TestSupport::AllocScope& allocs) {
   state.counters["allocs/op"] =
       benchmark::Counter(double(allocs.count()), benchmark::Counter::kAvgIterations);
}

// A neighbour that sends the same rich LLDPDU again: every TLV is decoded and compared,
// nothing changes.
void BM_RefreshUnchangedNeighbour(benchmark::State& state) {
   Bytes pdu = TestSupport::lldpduOf(
       TestSupport::readPcapFrame(TestSupport::interopDir() + "/reference-rich.pcap"));
   if (pdu.empty()) {
      state.SkipWithError("reference-rich.pcap not found");
      return;
   }
   RxPort port;
   if (!port.rx(pdu)) {
      state.SkipWithError("reference-rich.pcap was not accepted");
      return;
   }
   port.rx(pdu);  // warm the decoder's scratch space
   TestSupport::AllocScope allocs;
   for (auto _ : state) benchmark::DoNotOptimize(port.rx(pdu));
   reportAllocations(state, allocs);
}
BENCHMARK(BM_RefreshUnchangedNeighbour);

// The same neighbour alternating between two system names: every frame is decoded in
// full and one attribute changes (what an unchanged refresh skips).
void BM_RefreshChangedNeighbour(benchmark::State& state) {
   Bytes pdu = TestSupport::lldpduOf(
       TestSupport::readPcapFrame(TestSupport::interopDir() + "/reference-rich.pcap"));
   Bytes renamed = pdu;
   // The last byte of the System Name TLV's value.
   for (size_t at = 0; at + 2 <= renamed.size();) {
      const int type = uint8_t(renamed[at]) >> 1;
      const size_t len = size_t((uint8_t(renamed[at]) & 1) << 8 | uint8_t(renamed[at + 1]));
      if (type == 5 && len > 0) {
         renamed[at + 1 + len] ^= 0x01;
         break;
      }
      if (type == 0) break;
      at += 2 + len;
   }
   RxPort port;
   if (pdu.empty() || renamed == pdu || !port.rx(pdu) || !port.rx(renamed)) {
      state.SkipWithError("reference-rich.pcap not found or not accepted");
      return;
   }
   TestSupport::AllocScope allocs;
   bool flip = false;
   for (auto _ : state) {
      flip = !flip;
      benchmark::DoNotOptimize(port.rx(flip ? pdu : renamed));
   }
   reportAllocations(state, allocs);
}
BENCHMARK(BM_RefreshChangedNeighbour);

// An LLDPDU whose chassis ID carries a 32-bit neighbour number, rewritten in place.
struct NumberedPdu {
   NumberedPdu() {
      const char head[] = {0x02, 0x08, 0x07, 'n', 'b', 'r', 0, 0, 0, 0};
      pdu.assign(head, head + sizeof(head));
      const char rest[] = {0x04, 0x06, 0x07, 'e',  't', 'h', '1', '0', 0x06, 0x02,
                           0x00, 0x78, 0x0a, 0x04, 'h', 'o', 's', 't', 0x00, 0x00};
      pdu.insert(pdu.end(), rest, rest + sizeof(rest));
   }
   Bytes& numbered(uint32_t n) {
      Lldp::Be::put32(pdu.data() + 6, n);
      return pdu;
   }
   Bytes pdu;
};

// New neighbours on one port whose table already holds state.range(0) of them. The
// table keeps growing while the benchmark runs, by at most its iteration count.
void BM_CreateNeighbour(benchmark::State& state) {
   const auto existing = static_cast<uint32_t>(state.range(0));
   RxPort port;
   port.config->remoteSystemLimitIs(existing + 1'000'000);
   port.config->remoteSystemLimitTotalIs(existing + 1'000'000);
   NumberedPdu pdu;
   for (uint32_t n = 0; n < existing; ++n) port.rx(pdu.numbered(n));
   uint32_t next = existing;
   TestSupport::AllocScope allocs;
   for (auto _ : state) benchmark::DoNotOptimize(port.rx(pdu.numbered(next++)));
   reportAllocations(state, allocs);
   if (port.port->remoteSystem().size() != next) state.SkipWithError("a neighbour was not created");
}
BENCHMARK(BM_CreateNeighbour)->Arg(0)->Arg(1000)->Arg(10'000)->Arg(100'000)->Iterations(20'000);

// The whole LLDPDU of a port that advertises every TLV we can send, with N neighbours
// that sent no LLDP-MED or Power via MDI TLV. Tracked (as the port's protocol machine
// keeps them), the build costs the same at 100,000 neighbours as at none; untracked, it
// asks every neighbour, as every transmission once did.
void BM_BuildFullLldpdu(benchmark::State& state) {
   TestSupport::FullPort port;
   for (int i = 1; i <= state.range(0); ++i) port.portStatus->remoteSystemIs(i, Lldp::Msap());
   port.portStatus->senderTrackingIs(state.range(1) != 0);
   Lldp::clockIs(benchClock);
   char frame[1500];
   port.build(frame, frame + sizeof(frame));  // first build sizes the sent VLAN names
   TestSupport::AllocScope allocs;
   for (auto _ : state) benchmark::DoNotOptimize(port.build(frame, frame + sizeof(frame)));
   reportAllocations(state, allocs);
   Lldp::clockIs(nullptr);
}
BENCHMARK(BM_BuildFullLldpdu)
    ->ArgNames({"neighbours", "tracked"})
    ->Args({0, 1})
    ->Args({100'000, 1})
    ->Args({100'000, 0});

// One firing of a port's age timer that finds nothing expired, the common case: the
// neighbour the timer was set for has been refreshed since. Each iteration refreshes the
// neighbour due first (as its LLDPDU would) and fires the timer, on a port of
// state.range(0) neighbours; the cost stays flat as the table grows.
void BM_AgeClockNothingExpired(benchmark::State& state) {
   const int count = int(state.range(0));
   Vel::EventLoop& loop = Vel::EventLoop::instance();
   loop.virtualTimeIs(true, 1000);
   Vel::Log::syslogIs(false);
   Vel::Trace::textTraceIs("-");
   TestSupport::PortRecords port("Ethernet1", std::string("\x02\0\0\0\0\x01", 6), "sw1");
   auto intfs = Vel::make<Interface::EthPhyIntfStatusDir>();
   intfs->intfStatusIs(port.intf)->linkStatusIs(Interface::linkStatusUnknown);  // no sending
   port.root->ethPhyIntfStatusDirIs(intfs);
   auto sm = Vel::make<Lldp::Agent::Protocol::LldpPamSm>(port.intf, nullptr, port.root);
   sm->handleInitialized();
   std::vector<Lldp::RemoteSystem::Ptr> byExpiry;
   for (int i = 1; i <= count; ++i) {
      byExpiry.push_back(port.portStatus->remoteSystemIs(i, Lldp::Msap()));
      byExpiry.back()->expiryTimeIs(1100 + i * 1e-3);
   }
   sm->handleAgeClock();  // queues every neighbour at its expiry
   Vel::Seconds latest = 1100 + count * 1e-3;
   size_t due = 0;
   TestSupport::AllocScope allocs;
   for (auto _ : state) {
      latest += 1e-3;
      byExpiry[due]->expiryTimeIs(latest);
      due = (due + 1) % byExpiry.size();
      sm->handleAgeClock();
   }
   reportAllocations(state, allocs);
   if (port.portStatus->remoteSystem().size() != size_t(count)) {
      state.SkipWithError("a neighbour aged out");
   }
   sm->doClose();
   loop.virtualTimeIs(false);
   Vel::Log::syslogIs(true);
}
BENCHMARK(BM_AgeClockNothingExpired)->Arg(10)->Arg(10'000)->Arg(100'000);

}  // namespace

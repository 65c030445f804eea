// End-to-end receive over a real veth: a sender thread puts the rich reference LLDPDU on
// one end at about 100,000 frames a second; the reader, on the event loop, takes each
// frame from its Linux packet access and (in the full variant) hands it to the receive
// processor of a port, as the agent does. Reported: CPU time of the reader thread per
// frame received (so kernel time of its system calls counts, the sender's does not), and
// frames sent, received and dropped. Needs root for the namespaces.
#include <benchmark/benchmark.h>
#include <time.h>

#include <atomic>
#include <thread>

#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Framework/Vel/EventLoop.h"
#include "Lldp/LldpProtocol.h"
#include "Lldp/LldpProtocolSm.h"
#include "Platform/Linux/LinuxPam.h"
#include "tests/Support/AllocCounter.h"
#include "tests/Support/Frames.h"
#include "tests/Support/NetNs.h"

namespace {

using Platform::Linux::LinuxPam;

constexpr double sendRate = 100'000;  // frames per second
constexpr double sendSeconds = 1.5;

double benchClock() {
   return 1000.0;
}

double threadCpuSeconds() {
   timespec ts;
   clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
   return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

double monotonicSeconds() {
   timespec ts;
   clock_gettime(CLOCK_MONOTONIC, &ts);
   return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

// The reading port: takes one frame per notification and, when `process`, runs the
// LLDPDU through the receive processor of a port with its own status.
struct RxPort : Wire::Pam::Notifiee {
   RxPort(Wire::Pam* p, bool process) : pam(p), process(process) {
      Lldp::clockIs(benchClock);
      Vel::Log::syslogIs(false);
      Vel::Log::sinkIs([](const Vel::Log::Message&) {});
      Vel::Trace::textTraceIs("-");
      pam->notifieeIs(this);
   }
   ~RxPort() {
      pam->notifieeIs(nullptr);
      Lldp::clockIs(nullptr);
      Vel::Log::sinkIs(nullptr);
      Vel::Log::syslogIs(true);
   }
   void handleReadableCount() override {
      Vel::Ptr<Wire::Pkt> pkt = pam->rxPkt();
      if (!pkt) return;
      ++frames;
      if (!process || pkt->bytes() < Wire::ethHdrLen) return;
      char* start = pkt->data();
      if (processRxLldpdu(start + Wire::ethHdrLen, start + pkt->bytes(), config, status, port,
                          localPort, nullptr, Wire::EthAddr::fromBytes(start + 6))) {
         ++accepted;
      }
   }

   Wire::Pam* pam;
   bool process;
   uint64_t frames = 0;
   uint64_t accepted = 0;
   Wire::IntfId intf{"Ethernet1"};
   Lldp::PortConfig::Ptr config = Vel::make<Lldp::PortConfig>(intf);
   Lldp::Status::Ptr status = Vel::make<Lldp::Status>();
   Lldp::PortStatus::Ptr port = status->portStatusIs(intf, 0.0);
   // No protocol machine: it only matters to the processor for power negotiation.
   Lldp::LocalPort::Ptr localPort = Vel::make<Lldp::LocalPort>(intf);
};

// Sends `frame` at sendRate for sendSeconds, in bursts of a millisecond's worth.
void sendPaced(TestSupport::RawSender& tx, const TestSupport::Bytes& frame,
               std::atomic<uint64_t>& sent, std::atomic<bool>& done) {
   const double start = monotonicSeconds();
   const uint64_t total = uint64_t(sendRate * sendSeconds);
   uint64_t n = 0;
   while (n < total) {
      const double due = (monotonicSeconds() - start) * sendRate;
      while (n < total && double(n) < due) {
         if (tx.send(frame)) sent.fetch_add(1, std::memory_order_relaxed);
         ++n;
      }
      timespec pause{0, 200'000};
      nanosleep(&pause, nullptr);
   }
   done = true;
}

void BM_LinuxPamRx(benchmark::State& state) {
   const bool process = state.range(0) != 0;
   TestSupport::Bytes frame =
       TestSupport::readPcapFrame(TestSupport::interopDir() + "/reference-rich.pcap");
   if (frame.empty()) {
      state.SkipWithError("reference-rich.pcap not found");
      return;
   }
   TestSupport::NetNsPair ns;
   if (!ns.ok()) {
      state.SkipWithError(ns.error().c_str());
      return;
   }
   Vel::EventLoop& loop = Vel::EventLoop::instance();
   loop.virtualTimeIs(false);
   LinuxPam::Options options;
   options.blockCount = 16;  // about 4,000 reference frames of room
   // What the agent opens its Pams with: the kernel passes LLDP frames only, so the
   // interface's own chatter (neighbour discovery as it comes up) never reaches the reader.
   options.settings.lldpDestMac = Wire::EthAddr({0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e});
   options.settings.filterProgram = Lldp::Agent::Protocol::Root::lldpRxFilterProgram();
   options.settings.sockPrio = 7;
   std::string error;
   Vel::Ptr<LinuxPam> pam;
   {
      TestSupport::NetNsScope in(ns.nsB());
      pam = LinuxPam::open(Wire::IntfId(ns.intfB()), options, &error);
   }
   TestSupport::RawSender tx(ns.nsA(), ns.intfA());
   if (!pam || !tx.ok()) {
      state.SkipWithError(("cannot open the veth ends: " + error).c_str());
      return;
   }
   RxPort reader(pam.ptr(), process);

   // Warm up: the neighbour is created and the packet free list filled.
   tx.send(frame);
   for (int i = 0; i < 200 && reader.frames == 0; ++i) loop.runOnce(0.005);

   std::atomic<uint64_t> sent{0};
   std::atomic<bool> done{false};
   const uint64_t framesBefore = reader.frames;
   double cpu = 0;
   size_t allocs = 0;
   for (auto _ : state) {
      TestSupport::AllocScope allocScope;
      const double cpuStart = threadCpuSeconds();
      std::thread sender(sendPaced, std::ref(tx), std::cref(frame), std::ref(sent), std::ref(done));
      while (!done) loop.runOnce(0.01);
      sender.join();
      // What is still in flight arrives within a block's retire time.
      for (int i = 0; i < 10; ++i) loop.runOnce(0.005);
      while (pam->readableCount() > 0) loop.runOnce(0.005);
      cpu = threadCpuSeconds() - cpuStart;
      allocs = allocScope.count();
   }
   const double received = double(reader.frames - framesBefore);
   state.counters["sent"] = double(sent);
   state.counters["received"] = received;
   state.counters["dropped"] =
       double(pam->rxDropsRingFull() + pam->rxDropsOversize() + pam->rxDropsNoPkt());
   state.counters["cpu_us/frame"] = received > 0 ? cpu * 1e6 / received : 0;
   state.counters["allocs/frame"] = received > 0 ? double(allocs) / received : 0;
   if (process && reader.accepted < reader.frames) {
      state.SkipWithError("the receive processor rejected the reference frame");
   }
}
BENCHMARK(BM_LinuxPamRx)
    ->ArgName("process")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace

// Takeover of a standby agent, through the daemons as they run (needs root): an active
// agent and its standby on one veth port; once the standby is in sync the active agent is
// killed (SIGKILL) and the clock runs until the standby's control socket answers on the
// active agent's path, and until its first LLDPDU is seen on the far end of the wire.
// The first frame waits the transmit delay by design (2 s with the default timers): the
// figure to watch is how far above it the frame comes.
//
//   sudo ./takeover_bench --benchmark_repetitions=3
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <string>

#include "Daemon/ControlSocket.h"
#include "bench/VethPorts.h"
#include "tests/Support/AgentProcess.h"
#include "tests/Support/NetNs.h"

namespace {

using Clock = std::chrono::steady_clock;

// LLDP frames arriving on `intf` of namespace `ns`, read without blocking.
class FarEnd {
public:
   FarEnd(const std::string& ns, const std::string& intf) {
      TestSupport::NetNsScope in(ns);
      fd_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, htons(0x88cc));
      sockaddr_ll sll{};
      sll.sll_family = AF_PACKET;
      sll.sll_protocol = htons(0x88cc);
      sll.sll_ifindex = int(::if_nametoindex(intf.c_str()));
      if (fd_ >= 0 && ::bind(fd_, reinterpret_cast<sockaddr*>(&sll), sizeof sll) != 0) {
         ::close(fd_);
         fd_ = -1;
      }
   }
   ~FarEnd() {
      if (fd_ >= 0) ::close(fd_);
   }
   bool ok() const { return fd_ >= 0; }
   // Whether a frame has come since the last call (and drops what has).
   bool arrived() {
      char buf[2048];
      bool any = false;
      while (::recv(fd_, buf, sizeof buf, 0) > 0) any = true;
      return any;
   }

private:
   int fd_ = -1;
};

bool answers(const std::string& socket) {
   Vel::Json reply;
   std::string error;
   return Daemon::request(socket, {{"op", "show-redundancy"}}, &reply, &error, 1) &&
          reply.value("ok", false);
}

bool inSync(const std::string& socket) {
   Vel::Json reply;
   std::string error;
   return Daemon::request(socket, {{"op", "show-redundancy"}}, &reply, &error, 1) &&
          reply.value("data", Vel::Json()).value("mirrorState", std::string()) == "inSync";
}

void BM_TakeoverAfterKill(benchmark::State& state) {
   Bench::VethPorts ports("takeover", "tka", "tkb", 1);
   if (!ports.error().empty()) return state.SkipWithError(ports.error().c_str());
   const std::string conf = TestSupport::tmpName("takeover-bench.conf");
   std::ofstream(conf) << "";
   double toSocket = 0, toFrame = 0;
   for (auto _ : state) {
      const std::string active = TestSupport::tmpName("tb-active.sock");
      const std::string standby = TestSupport::tmpName("tb-standby.sock");
      auto start = [&](const std::string& socket, bool asStandby, const std::string& log) {
         std::vector<std::string> args = {"ip",       "netns",        "exec", ports.nsA(),
                                          LLDP_AGENT, "--config",     conf,   "--socket",
                                          socket,     "--interfaces", "tka*"};
         if (asStandby) args.insert(args.end(), {"--standby", "--peer-socket", active});
         return std::make_unique<TestSupport::Process>(args, TestSupport::tmpName(log));
      };
      auto a = start(active, false, "tb-active.log");
      auto s = start(standby, true, "tb-standby.log");
      if (TestSupport::waitFor([&] { return inSync(standby); }, 20) < 0) {
         return state.SkipWithError("the standby did not get in sync");
      }
      FarEnd far(ports.nsB(), "tkb0");
      if (!far.ok()) return state.SkipWithError("cannot listen on the far end");
      far.arrived();
      const auto killed = Clock::now();
      a->stop(SIGKILL);
      bool answered = false, framed = false;
      while (!(answered && framed) && Clock::now() - killed < std::chrono::seconds(10)) {
         const double t = std::chrono::duration<double>(Clock::now() - killed).count();
         if (!answered && answers(active)) {
            answered = true;
            toSocket = t;
         }
         if (!framed && far.arrived()) {
            framed = true;
            toFrame = t;
         }
         ::usleep(500);
      }
      state.SetIterationTime(std::chrono::duration<double>(Clock::now() - killed).count());
      if (!answered || !framed) return state.SkipWithError("no takeover within 10 s");
      state.counters["toSocketMs"] = toSocket * 1e3;
      state.counters["toFirstFrameMs"] = toFrame * 1e3;
      s->stop(SIGTERM);
      ::unlink((active + ".lock").c_str());
      ::unlink((standby + ".lock").c_str());
   }
   ::unlink(conf.c_str());
}
BENCHMARK(BM_TakeoverAfterKill)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

// What a neighbour costs the running daemon: one veth pair between two fresh namespaces,
// lldp-agent on one side, and on the other a sender that plays N distinct neighbours,
// each sending the 17-TLV reference-rich LLDPDU of the interop captures under its own
// chassis ID and source MAC address. Reported: the daemon's resident memory before any
// frame, with its first neighbour (once every page of its receive ring has held a frame),
// and after it learnt them all; the growth per neighbour past the first, and the same
// counted from before any frame. Needs root; skipped otherwise.
//
// Neighbour counts come from LLDP_MEM_NEIGHBOURS (comma separated, default 200: a size
// that takes seconds; the figures of the documentation use 10000,100000). LLDP_MEM_AGENT
// runs another build of lldp-agent instead of this build's.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "bench/VethPorts.h"
#include "tests/Support/Frames.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/NetNs.h"
#include "tests/Support/Poll.h"
#include "tests/Support/Spawn.h"

namespace {

using TestSupport::readFile;

std::string envOr(const char* name, const char* fallback) {
   const char* v = std::getenv(name);
   return v && *v ? v : fallback;
}

double rssKb(pid_t pid) {
   std::istringstream status(readFile("/proc/" + std::to_string(pid) + "/status"));
   std::string line;
   while (std::getline(status, line)) {
      if (line.rfind("VmRSS:", 0) == 0) return std::atof(line.c_str() + 6);
   }
   return 0;
}

// The daemon's run of the agent: `ip netns exec` execs it, so the spawned pid is its pid.
pid_t startAgent(const Bench::VethPorts& link, const std::string& base) {
   // No receive rate limit: the neighbours all arrive at once, each a first time. Neither
   // neighbour limit (per port, all ports) stops the table short of the largest count.
   std::ofstream(base + ".conf") << "lldp timer 30\nlldp neighbor-limit 1000000\n"
                                 << "lldp neighbor-limit total 1000000\n"
                                 << "interface memA0\n   no lldp receive rate-limit\n";
   return TestSupport::spawn(
       {"ip", "netns", "exec", link.nsA(), envOr("LLDP_MEM_AGENT", LLDP_AGENT), "--config",
        base + ".conf", "--socket", base + ".sock", "--foreground"},
       base + ".log");
}

void stopProcess(pid_t pid) {
   ::kill(pid, SIGTERM);
   for (int i = 0; i < 100; ++i) {
      if (::waitpid(pid, nullptr, WNOHANG) == pid) return;
      ::usleep(50'000);
   }
   ::kill(pid, SIGKILL);
   ::waitpid(pid, nullptr, 0);
}

// How many neighbours the daemon has learnt since it started, from `lldp show statistics`.
long inserts(const std::string& sock) {
   std::string out;
   if (!TestSupport::runCmd(std::string(LLDP_CLI) + " --socket " + sock + " show statistics",
                            &out)) {
      return -1;
   }
   const char key[] = "Neighbor tables: ";
   const size_t at = out.find(key);
   return at == std::string::npos ? -1 : std::atol(out.c_str() + at + sizeof(key) - 1);
}

// Sends neighbour n's frame for every n in [0, count) from the far side: the chassis ID's
// last four bytes and the source MAC's last three carry n. With `onlyFirst`, neighbour 0's
// frame, `count` times.
bool sendNeighbours(const Bench::VethPorts& link, const TestSupport::Bytes& rich, uint32_t count,
                    bool onlyFirst = false) {
   TestSupport::NetNsScope in(link.nsB());
   const int fd = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
   if (fd < 0) return false;
   sockaddr_ll to{};
   to.sll_family = AF_PACKET;
   to.sll_ifindex = int(::if_nametoindex("memB0"));
   to.sll_halen = 6;
   TestSupport::Bytes frame = rich;
   // Ethernet header, then the Chassis ID TLV: 2 header bytes, its subtype, its value.
   const size_t chassisLen = size_t((uint8_t(frame[14]) & 1) << 8 | uint8_t(frame[15])) - 1;
   const size_t chassisEnd = 17 + chassisLen;
   bool ok = chassisLen >= 4;
   for (uint32_t sent = 0; ok && sent < count; ++sent) {
      const uint32_t n = onlyFirst ? 0 : sent;
      for (int i = 0; i < 4; ++i) frame[chassisEnd - 4 + i] = char(n >> (24 - 8 * i));
      frame[6] = 0x02;  // locally administered, unicast
      for (int i = 0; i < 3; ++i) frame[9 + i] = char(n >> (16 - 8 * i));
      ok = ::sendto(fd, frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&to),
                    sizeof(to)) == ssize_t(frame.size());
      // Paced so that the daemon's receive ring keeps up.
      if (sent % 256 == 255) ::usleep(2'000);
   }
   ::close(fd);
   return ok;
}

void BM_NeighbourMemory(benchmark::State& state) {
   const auto count = uint32_t(state.range(0));
   if (::geteuid() != 0) {
      state.SkipWithError("needs root to create network namespaces");
      return;
   }
   const TestSupport::Bytes rich =
       TestSupport::readPcapFrame(TestSupport::interopDir() + "/reference-rich.pcap");
   if (rich.size() < 20) {
      state.SkipWithError("reference-rich.pcap not found");
      return;
   }
   Bench::VethPorts link("mem", "memA", "memB", 1);
   if (!link.error().empty()) {
      state.SkipWithError("cannot create the namespaces and their veth pair");
      return;
   }
   const std::string base = "/tmp/lldp-mem-" + std::to_string(::getpid());
   for (auto _ : state) {
      const pid_t pid = startAgent(link, base);
      if (pid <= 0) {
         state.SkipWithError("cannot start the daemon");
         return;
      }
      ::sleep(2);  // start-up over, the port up
      const double emptyKb = rssKb(pid);
      // What receiving costs once, whatever the number of neighbours: the first neighbour,
      // its frame sent often enough to pass through every page of the receive ring, and a
      // first statistics request. The figure per neighbour is the growth past that.
      if (!sendNeighbours(link, rich, 4096, true)) {
         state.SkipWithError("cannot send the first neighbour's frames");
         stopProcess(pid);
         return;
      }
      for (int i = 0; i < 50 && inserts(base + ".sock") < 1; ++i) ::usleep(100'000);
      ::sleep(1);
      const double firstKb = rssKb(pid);
      long learnt = 0;
      // Frames the ring dropped are sent again; a neighbour already learnt only refreshes.
      for (int round = 0; round < 5 && learnt < long(count); ++round) {
         if (!sendNeighbours(link, rich, count)) {
            state.SkipWithError("cannot send the neighbours' frames");
            stopProcess(pid);
            return;
         }
         for (int i = 0; i < 50 && (learnt = inserts(base + ".sock")) < long(count); ++i) {
            ::usleep(100'000);
         }
      }
      ::sleep(1);
      const double fullKb = rssKb(pid);
      stopProcess(pid);
      state.counters["neighbours"] = double(learnt);
      state.counters["rss_empty_MB"] = emptyKb / 1024;
      state.counters["rss_first_MB"] = firstKb / 1024;
      state.counters["rss_full_MB"] = fullKb / 1024;
      state.counters["bytes_per_neighbour"] =
          learnt > 1 ? (fullKb - firstKb) * 1024 / double(learnt - 1) : 0;
      // The same from the daemon before any frame, as this benchmark measured it first.
      state.counters["bytes_per_neighbour_from_empty"] =
          learnt > 0 ? (fullKb - emptyKb) * 1024 / double(learnt) : 0;
      if (learnt != long(count)) {
         std::printf("learnt %ld of %u neighbours; the daemon's log: %s\n", learnt, count,
                     readFile(base + ".log").substr(0, 2000).c_str());
         state.SkipWithError("the daemon did not learn every neighbour");
      }
   }
   for (const char* f : {".conf", ".sock", ".log"}) ::unlink((base + f).c_str());
}

void neighbourCounts(benchmark::internal::Benchmark* b) {
   std::istringstream list(envOr("LLDP_MEM_NEIGHBOURS", "200"));
   std::string n;
   while (std::getline(list, n, ',')) b->Arg(std::atoi(n.c_str()));
}

BENCHMARK(BM_NeighbourMemory)
    ->ArgName("neighbours")
    ->Apply(neighbourCounts)
    ->Iterations(1)
    ->Unit(benchmark::kSecond);

}  // namespace

// Floods of forged neighbours against the daemon itself: veth pairs between two fresh
// namespaces, lldp-agent on one side, and on the other an AF_PACKET socket writing LLDPDUs
// with distinct chassis IDs (sendmmsg, paced to the rate asked for, or as fast as it goes).
// Needs root; skipped otherwise. Three runs, each with a daemon of its own:
//
//  - BM_NewNeighbourCpu/at:N  one port already holding N neighbours takes W new ones at R
//    frames a second; reported: the daemon's CPU time (all its threads, from schedstat) per
//    new neighbour. The same figure at 0, 10,000 and 100,000 says a new neighbour costs the
//    same however full the table is.
//  - BM_KernelDrops           D new neighbours at R frames a second into one port: what the
//    interface received, what the agent stored or counted, and what the kernel dropped
//    before the agent read it (goal: none).
//  - BM_FloodAcrossPorts      T neighbours spread over P ports as fast as the sender goes,
//    with `lldp neighbor-limit total L`: the daemon's peak resident memory, the longest
//    round trip of `show statistics` on the control socket during the flood, and every
//    frame the interfaces received stored or counted.
//
// Every run checks that no frame the interfaces received went uncounted: the agent's
// received, rate-limited and kernel-dropped frames add up to the interfaces' counts.
//
// Sizes from the environment: LLDP_FLOOD_AT (comma separated table sizes, default
// 0,10000,100000), LLDP_FLOOD_WINDOW (W, 5000), LLDP_FLOOD_RATE (R, 20000),
// LLDP_FLOOD_DROPS (D, 50000), LLDP_FLOOD_TOTAL (T, 100000), LLDP_FLOOD_PORTS (P, 100),
// LLDP_FLOOD_LIMIT (L, 20000). LLDP_FLOOD_AGENT runs another build of lldp-agent.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <ifaddrs.h>
#include <linux/if_link.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Daemon/ControlSocket.h"
#include "bench/VethPorts.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/NetNs.h"
#include "tests/Support/Poll.h"
#include "tests/Support/Spawn.h"

namespace {

using TestSupport::readFile;

double monotonicSeconds() {
   timespec ts;
   clock_gettime(CLOCK_MONOTONIC, &ts);
   return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

long envNum(const char* name, long fallback) {
   const char* v = std::getenv(name);
   return v && *v ? std::atol(v) : fallback;
}

using Ports = Bench::VethPorts;

// Writes forged LLDPDUs into the far ends of the links: neighbour k has chassis ID
// "flood-<k>" and source MAC 02:00:<k>, and goes to port k % ports.
class Sender {
public:
   explicit Sender(const Ports& ports) {
      TestSupport::NetNsScope in(ports.nsB());
      fd_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
      int bytes = 4 << 20;
      ::setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof(bytes));
      for (int i = 0; i < ports.count(); ++i) {
         ifIndex_.push_back(int(::if_nametoindex(("fb" + std::to_string(i)).c_str())));
      }
   }
   ~Sender() {
      if (fd_ >= 0) ::close(fd_);
   }
   bool ok() const { return fd_ >= 0 && std::count(ifIndex_.begin(), ifIndex_.end(), 0) == 0; }

   // Neighbours [first, first + n) at `rate` frames a second (0: as fast as it goes);
   // returns the frames the kernel took.
   uint64_t send(uint64_t first, uint64_t n, double rate) {
      constexpr size_t batch = 32;
      constexpr size_t frameRoom = 256;
      char frames[batch][frameRoom];
      sockaddr_ll to[batch];
      iovec iov[batch];
      mmsghdr msgs[batch];
      uint64_t sent = 0;
      const double start = monotonicSeconds();
      while (sent < n) {
         const size_t count = size_t(std::min<uint64_t>(batch, n - sent));
         for (size_t i = 0; i < count; ++i) {
            const uint64_t k = first + sent + i;
            const size_t len = build(frames[i], k);
            to[i] = sockaddr_ll{};
            to[i].sll_family = AF_PACKET;
            to[i].sll_protocol = htons(0x88cc);
            to[i].sll_ifindex = ifIndex_[k % ifIndex_.size()];
            to[i].sll_halen = 6;
            std::memcpy(to[i].sll_addr, frames[i], 6);
            iov[i] = {frames[i], len};
            msgs[i] = mmsghdr{};
            msgs[i].msg_hdr.msg_name = &to[i];
            msgs[i].msg_hdr.msg_namelen = sizeof(sockaddr_ll);
            msgs[i].msg_hdr.msg_iov = &iov[i];
            msgs[i].msg_hdr.msg_iovlen = 1;
         }
         const int done = ::sendmmsg(fd_, msgs, unsigned(count), 0);
         if (done <= 0) {
            if (errno == ENOBUFS || errno == EAGAIN) {
               ::usleep(100);
               continue;
            }
            break;
         }
         sent += uint64_t(done);
         if (rate > 0) {
            const double due = start + double(sent) / rate;
            const double ahead = due - monotonicSeconds();
            if (ahead > 0) ::usleep(useconds_t(ahead * 1e6));
         }
      }
      return sent;
   }

private:
   static size_t build(char* f, uint64_t k) {
      // A switch's usual system description: the frame is as long as a typical LLDPDU
      // (about 190 bytes), so the receive ring holds as many as it would in real life.
      static const std::string desc(120, 'd');
      return Bench::forgedLldpdu(f, k, "flood", "forged", desc);
   }
   int fd_ = -1;
   std::vector<int> ifIndex_;
};

// CPU time (nanoseconds, all threads) and peak resident kilobytes of a process.
double cpuSeconds(pid_t pid) {
   double s = 0;
   const std::string base = "/proc/" + std::to_string(pid) + "/task";
   if (DIR* tasks = ::opendir(base.c_str())) {
      while (dirent* t = ::readdir(tasks)) {
         if (t->d_name[0] == '.') continue;
         s += std::atof(readFile(base + "/" + t->d_name + "/schedstat").c_str()) * 1e-9;
      }
      ::closedir(tasks);
   }
   return s;
}

double statusKb(pid_t pid, const char* field) {
   std::istringstream status(readFile("/proc/" + std::to_string(pid) + "/status"));
   const size_t len = std::strlen(field);
   for (std::string line; std::getline(status, line);) {
      if (line.compare(0, len, field) == 0) return std::atof(line.c_str() + len);
   }
   return 0;
}

// The daemon in the near namespace on every "fa*" port, receive rate limit off (the runs
// measure what a flood costs past it), with these global configuration lines.
class Agent {
public:
   Agent(const Ports& ports, const std::string& lines) {
      base_ = "/tmp/lldp-flood-" + std::to_string(::getpid());
      std::string conf = "lldp timer 30\n" + lines;
      for (int i = 0; i < ports.count(); ++i) {
         conf += "interface fa" + std::to_string(i) + "\n   no lldp receive rate-limit\nexit\n";
      }
      std::ofstream(base_ + ".conf") << conf;
      const char* agent = std::getenv("LLDP_FLOOD_AGENT");
      pid_ = TestSupport::spawn(
          {"ip", "netns", "exec", ports.nsA(), agent ? agent : LLDP_AGENT, "--config",
           base_ + ".conf", "--socket", socket(), "--interfaces", "fa*", "--foreground"},
          base_ + ".log");
      // Up once every port is in its statistics.
      TestSupport::waitFor(
          [&] {
             const auto s = stats();
             return s.is_object() && s.contains("interfaces") &&
                    s["interfaces"].size() == size_t(ports.count());
          },
          30);
   }
   ~Agent() {
      if (pid_ > 0) {
         ::kill(pid_, SIGTERM);
         if (TestSupport::waitFor([&] { return ::waitpid(pid_, nullptr, WNOHANG) == pid_; }, 10) <
             0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
         }
      }
      for (const char* f : {".conf", ".sock", ".log"}) ::unlink((base_ + f).c_str());
   }
   pid_t pid() const { return pid_; }
   std::string socket() const { return base_ + ".sock"; }
   Vel::Json stats(double* seconds = nullptr) const {
      Vel::Json reply;
      std::string error;
      const double t0 = monotonicSeconds();
      const bool ok =
          ::Daemon::request(socket(), {{"op", "show"}, {"view", "statistics"}}, &reply, &error, 5);
      if (seconds) *seconds = monotonicSeconds() - t0;
      if (!ok || !reply.value("ok", false)) return nullptr;
      return reply["data"];
   }

   // What the agent made of the frames so far, all ports together.
   struct Tally {
      uint64_t stored = 0, received = 0, rateLimited = 0, refused = 0, refusedTotal = 0;
      uint64_t kernelDropped = 0;
      uint64_t accounted() const { return received + rateLimited + kernelDropped; }
   };
   Tally tally() const {
      Tally t;
      const Vel::Json s = stats();
      if (!s.is_object()) return t;
      t.stored = s.value("remTablesInserts", 0u) - s.value("remTablesDeletes", 0u);
      t.kernelDropped = s.value("rxFramesDroppedByKernel", 0u);
      for (const auto& [intf, p] : s["interfaces"].items()) {
         t.received += p.value("rxFramesTotal", 0u);
         t.rateLimited += p.value("rxLldpdusRateLimited", 0u);
         t.refused += p.value("rxNeighborsRefused", 0u);
         t.refusedTotal += p.value("rxNeighborsRefusedTotalLimit", 0u);
      }
      return t;
   }
   // Waits until the agent has read or counted `frames` frames (a few seconds at most).
   Tally settle(uint64_t frames) const {
      Tally t;
      TestSupport::waitFor(
          [&] {
             t = tally();
             return t.accounted() >= frames;
          },
          20);
      return t;
   }

private:
   std::string base_;
   pid_t pid_ = -1;
};

// The resident memory the flood may take: what the daemon holds before any neighbour, and
// at most this much for each neighbour it keeps (a typical LLDPDU's record, its indexes
// and the log line it makes; measured at about 2.2 kB).
constexpr double startMb = 16;
constexpr double kbPerNeighbour = 3;

bool skipUnlessRoot(benchmark::State& state) {
   if (::geteuid() == 0) return false;
   state.SkipWithError("needs root to create network namespaces");
   return true;
}

// What must hold whatever the machine's speed; a run where it does not fails (the smoke
// test looks for the text).
void failCheck(benchmark::State& state, const std::string& what) {
   std::printf("flood check failed: %s\n", what.c_str());
   state.SkipWithError(("flood check failed: " + what).c_str());
}

// Frames the interfaces received that the agent neither read nor counted: the figure
// that must be 0.
void reportAccounting(benchmark::State& state, const Ports& ports, const Agent::Tally& t) {
   const uint64_t arrived = ports.rxPackets();
   const uint64_t uncounted = arrived > t.accounted() ? arrived - t.accounted() : 0;
   state.counters["frames_arrived"] = double(arrived);
   state.counters["frames_read"] = double(t.received + t.rateLimited);
   state.counters["kernel_dropped"] = double(t.kernelDropped);
   state.counters["uncounted"] = double(uncounted);
   state.counters["stored"] = double(t.stored);
   if (uncounted != 0)
      failCheck(state, std::to_string(uncounted) + " frames neither read nor counted");
}

void BM_NewNeighbourCpu(benchmark::State& state) {
   if (skipUnlessRoot(state)) return;
   const uint64_t at = uint64_t(state.range(0));
   const uint64_t window = uint64_t(envNum("LLDP_FLOOD_WINDOW", 5000));
   const double rate = double(envNum("LLDP_FLOOD_RATE", 20000));
   Ports ports("flood", "fa", "fb", 1, true);
   if (!ports.error().empty()) return state.SkipWithError(ports.error().c_str());
   Agent daemon(ports, "lldp neighbor-limit 1000000\nlldp neighbor-limit total 10000000\n");
   Sender sender(ports);
   if (!sender.ok()) return state.SkipWithError("cannot send in the far namespace");
   for (auto _ : state) {
      uint64_t sent = sender.send(0, at, rate);
      Agent::Tally before = daemon.settle(sent);
      const double cpu0 = cpuSeconds(daemon.pid());
      sent += sender.send(at, window, rate);
      const Agent::Tally after = daemon.settle(sent);
      const double cpu1 = cpuSeconds(daemon.pid());
      const uint64_t added = after.stored - before.stored;
      state.counters["table_before"] = double(before.stored);
      state.counters["new_neighbours"] = double(added);
      state.counters["cpu_us_per_new_neighbour"] = added ? (cpu1 - cpu0) * 1e6 / double(added) : 0;
      reportAccounting(state, ports, after);
   }
}

void BM_KernelDrops(benchmark::State& state) {
   if (skipUnlessRoot(state)) return;
   const uint64_t n = uint64_t(envNum("LLDP_FLOOD_DROPS", 50000));
   const double rate = double(envNum("LLDP_FLOOD_RATE", 20000));
   Ports ports("flood", "fa", "fb", 1, true);
   if (!ports.error().empty()) return state.SkipWithError(ports.error().c_str());
   Agent daemon(ports, "lldp neighbor-limit 1000000\nlldp neighbor-limit total 10000000\n");
   Sender sender(ports);
   if (!sender.ok()) return state.SkipWithError("cannot send in the far namespace");
   for (auto _ : state) {
      const uint64_t sent = sender.send(0, n, rate);
      const Agent::Tally t = daemon.settle(sent);
      state.counters["sent"] = double(sent);
      state.counters["fps"] = rate;
      reportAccounting(state, ports, t);
   }
}

void BM_FloodAcrossPorts(benchmark::State& state) {
   if (skipUnlessRoot(state)) return;
   const int portCount = int(envNum("LLDP_FLOOD_PORTS", 100));
   const uint64_t total = uint64_t(envNum("LLDP_FLOOD_TOTAL", 100000));
   const long limit = envNum("LLDP_FLOOD_LIMIT", 20000);
   Ports ports("flood", "fa", "fb", portCount, true);
   if (!ports.error().empty()) return state.SkipWithError(ports.error().c_str());
   // Every port could hold the whole flood: the limit across ports is what bounds it.
   Agent daemon(ports, "lldp neighbor-limit 1000000\nlldp neighbor-limit total " +
                           std::to_string(limit) + "\n");
   Sender sender(ports);
   if (!sender.ok()) return state.SkipWithError("cannot send in the far namespace");
   for (auto _ : state) {
      const double rssBefore = statusKb(daemon.pid(), "VmRSS:");
      std::atomic<bool> flooding{true};
      double worst = 0, sum = 0;
      int asked = 0, failed = 0;
      std::thread client([&] {
         while (flooding) {
            double rtt = 0;
            if (!daemon.stats(&rtt).is_object()) ++failed;
            worst = std::max(worst, rtt);
            sum += rtt;
            ++asked;
            ::usleep(20'000);
         }
      });
      const double t0 = monotonicSeconds();
      const uint64_t sent = sender.send(0, total, 0);
      const double took = monotonicSeconds() - t0;
      const Agent::Tally t = daemon.settle(sent);
      flooding = false;
      client.join();
      state.counters["ports"] = portCount;
      state.counters["sent"] = double(sent);
      state.counters["send_fps"] = double(sent) / took;
      state.counters["limit_total"] = double(limit);
      state.counters["refused_total_limit"] = double(t.refusedTotal);
      state.counters["rss_before_MB"] = rssBefore / 1024;
      state.counters["rss_peak_MB"] = statusKb(daemon.pid(), "VmHWM:") / 1024;
      state.counters["stats_rtt_max_ms"] = worst * 1000;
      state.counters["stats_rtt_mean_ms"] = asked ? sum / asked * 1000 : 0;
      state.counters["stats_failed"] = failed;
      reportAccounting(state, ports, t);
      // Every neighbour read until the limit is stored, every one after it refused.
      const uint64_t expected = std::min<uint64_t>(uint64_t(limit), t.received);
      if (t.stored != expected || t.received - t.stored != t.refusedTotal) {
         failCheck(state, std::to_string(t.stored) + " stored and " +
                              std::to_string(t.refusedTotal) + " refused of " +
                              std::to_string(t.received) + " read, limit " + std::to_string(limit));
      }
      if (failed != 0) failCheck(state, std::to_string(failed) + " statistics requests failed");
      // The bound documented for the flood: the daemon as it starts, and each neighbour
      // the limit lets in at most kbPerNeighbour.
      const double peakMb = statusKb(daemon.pid(), "VmHWM:") / 1024;
      const double boundMb = startMb + double(limit) * kbPerNeighbour / 1024;
      std::printf(
          "check: %d ports, %llu neighbours, limit %ld: %llu stored, %llu refused, "
          "stats round trip at most %.1f ms (%s), peak RSS %.1f MB (%s %.0f MB)\n",
          portCount, static_cast<unsigned long long>(sent), limit,
          static_cast<unsigned long long>(t.stored),
          static_cast<unsigned long long>(t.refusedTotal), worst * 1000,
          worst < 0.1 && failed == 0 ? "ok: under 100 ms" : "too slow: goal 100 ms", peakMb,
          peakMb < boundMb ? "ok: under" : "too much: bound", boundMb);
   }
}

void tableSizes(benchmark::internal::Benchmark* b) {
   const char* v = std::getenv("LLDP_FLOOD_AT");
   std::istringstream list(v && *v ? v : "0,10000,100000");
   std::string n;
   while (std::getline(list, n, ',')) b->Arg(std::atol(n.c_str()));
}

BENCHMARK(BM_NewNeighbourCpu)
    ->ArgName("at")
    ->Apply(tableSizes)
    ->Iterations(1)
    ->Unit(benchmark::kSecond);
BENCHMARK(BM_KernelDrops)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(BM_FloodAcrossPorts)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

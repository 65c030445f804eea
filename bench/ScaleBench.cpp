// A switch's worth of ports: N veth pairs between two fresh namespaces, an LLDP daemon on
// one side (ours, or lldpd for comparison, run the same way), a listener on the other.
// Reported per daemon and port count: the time from starting the daemon to the first
// LLDPDU of the last port to be heard, then, with start-up over, its resident memory and
// its CPU time per minute and wake-ups per second while idle (nothing received, `lldp
// timer 30`). Needs root; skipped otherwise.
//
// Port counts come from LLDP_SCALE_PORTS (comma separated, default 100), the idle window
// from LLDP_SCALE_IDLE (seconds, default 30: one full transmit round), and lldpd is left
// out with LLDP_SCALE_LLDPD=0 (it is also skipped when not installed). LLDP_SCALE_AGENT
// runs another build of lldp-agent instead of this build's.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/VethPorts.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/NetNs.h"
#include "tests/Support/Poll.h"
#include "tests/Support/Spawn.h"

namespace {

using TestSupport::haveProgram;
using TestSupport::readFile;
using TestSupport::spawn;

double monotonicSeconds() {
   timespec ts;
   clock_gettime(CLOCK_MONOTONIC, &ts);
   return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

std::string envOr(const char* name, const char* fallback) {
   const char* v = std::getenv(name);
   return v && *v ? v : fallback;
}

using Ports = Bench::VethPorts;

// Every LLDPDU arriving on any interface of the far namespace: the time the first one
// reached each interface.
class Listener {
public:
   explicit Listener(const std::string& ns) {
      TestSupport::NetNsScope in(ns);
      fd_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(0x88cc));
      // A thousand first frames arrive within a second or two: room for all of them.
      int bytes = 64 << 20;
      if (fd_ >= 0) ::setsockopt(fd_, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof(bytes));
      thread_ = std::thread([this] { run(); });
   }
   ~Listener() {
      stop_ = true;
      thread_.join();
      if (fd_ >= 0) ::close(fd_);
   }
   bool ok() const { return fd_ >= 0; }
   size_t heard() {
      std::lock_guard<std::mutex> lock(mutex_);
      return first_.size();
   }
   double lastFirst() {
      std::lock_guard<std::mutex> lock(mutex_);
      double t = 0;
      for (const auto& [ifindex, when] : first_) t = std::max(t, when);
      return t;
   }
   void reset() {
      std::lock_guard<std::mutex> lock(mutex_);
      first_.clear();
   }

private:
   void run() {
      char buf[2048];
      while (!stop_ && fd_ >= 0) {
         pollfd p{fd_, POLLIN, 0};
         if (::poll(&p, 1, 50) <= 0) continue;
         sockaddr_ll from{};
         socklen_t len = sizeof(from);
         if (::recvfrom(fd_, buf, sizeof(buf), 0, reinterpret_cast<sockaddr*>(&from), &len) < 0) {
            continue;
         }
         const double now = monotonicSeconds();
         std::lock_guard<std::mutex> lock(mutex_);
         first_.emplace(from.sll_ifindex, now);
      }
   }
   int fd_ = -1;
   std::atomic<bool> stop_{false};
   std::mutex mutex_;
   std::map<int, double> first_;
   std::thread thread_;
};

// CPU time, voluntary context switches (sleeps that ended: wake-ups) and resident
// kilobytes of a process and everything it started (lldpd runs as two processes).
struct Usage {
   double cpuSeconds = 0;
   double wakeups = 0;
   double rssKb = 0;
};

std::vector<pid_t> family(pid_t root) {
   std::vector<pid_t> out = {root};
   for (size_t i = 0; i < out.size(); ++i) {
      std::istringstream kids(readFile("/proc/" + std::to_string(out[i]) + "/task/" +
                                       std::to_string(out[i]) + "/children"));
      pid_t kid;
      while (kids >> kid) out.push_back(kid);
   }
   return out;
}

Usage usageOf(pid_t root) {
   Usage u;
   for (pid_t pid : family(root)) {
      const std::string base = "/proc/" + std::to_string(pid);
      // Time on the CPU in nanoseconds, per thread (finer than the clock ticks of stat).
      if (DIR* tasks = ::opendir((base + "/task").c_str())) {
         while (dirent* t = ::readdir(tasks)) {
            if (t->d_name[0] == '.') continue;
            u.cpuSeconds +=
                std::atof(readFile(base + "/task/" + t->d_name + "/schedstat").c_str()) * 1e-9;
         }
         ::closedir(tasks);
      }
      std::istringstream status(readFile(base + "/status"));
      std::string line;
      while (std::getline(status, line)) {
         if (line.rfind("VmRSS:", 0) == 0) u.rssKb += std::atof(line.c_str() + 6);
         if (line.rfind("voluntary_ctxt_switches:", 0) == 0) {
            u.wakeups += std::atof(line.c_str() + 24);
         }
      }
   }
   return u;
}

void stopProcess(pid_t pid) {
   ::kill(pid, SIGTERM);
   for (int i = 0; i < 100; ++i) {
      if (::waitpid(pid, nullptr, WNOHANG) == pid) return;
      ::usleep(50'000);
   }
   for (pid_t p : family(pid)) ::kill(p, SIGKILL);
   ::waitpid(pid, nullptr, 0);
}

// The daemon's transmit interval here (`lldp timer 30`; lldpd's default too), and what
// the wake-up check accepts per interval.
constexpr double txInterval = 30;
constexpr double maxWakeupsPerInterval = 3;

void BM_ScaleIdle(benchmark::State& state) {
   const int ports = int(state.range(0));
   const bool lldpd = state.range(1) != 0;
   state.SetLabel(lldpd ? "lldpd" : "lldp-agent");
   if (::geteuid() != 0) {
      state.SkipWithError("needs root to create network namespaces");
      return;
   }
   if (lldpd && !haveProgram("lldpd")) {
      state.SkipWithError("lldpd is not installed");
      return;
   }
   const double idleSeconds = std::atof(envOr("LLDP_SCALE_IDLE", "30").c_str());
   Ports net("scale", "sa", "sb", ports);
   if (!net.error().empty()) {
      state.SkipWithError(net.error().c_str());
      return;
   }
   Listener listener(net.nsB());
   if (!listener.ok()) {
      state.SkipWithError("cannot listen in the far namespace");
      return;
   }
   const std::string base = "/tmp/lldp-scale-" + std::to_string(::getpid());
   std::vector<std::string> args;
   if (lldpd) {
      // Foreground, no configuration file: its defaults send every 30 s.
      args = {"ip",    "netns",
              "exec",  net.nsA(),
              "lldpd", "-d",
              "-L",    "",
              "-u",    base + ".lldpd.sock",
              "-p",    base + ".lldpd.pid",
              "-I",    "sa*"};
   } else {
      std::ofstream(base + ".conf") << "lldp timer 30\n";
      args = {"ip",
              "netns",
              "exec",
              net.nsA(),
              envOr("LLDP_SCALE_AGENT", LLDP_AGENT),
              "--config",
              base + ".conf",
              "--socket",
              base + ".sock",
              "--foreground"};
   }
   Usage before, after;
   double firstFrames = 0;
   for (auto _ : state) {
      listener.reset();
      const double start = monotonicSeconds();
      const pid_t pid = spawn(args, base + ".log");
      if (pid <= 0) {
         state.SkipWithError("cannot start the daemon");
         return;
      }
      const double limit = 30 + ports * 0.05;
      while (listener.heard() < size_t(ports) && monotonicSeconds() - start < limit) {
         ::usleep(20'000);
      }
      firstFrames = listener.heard() > 0 ? listener.lastFirst() - start : 0;
      state.counters["ports_heard"] = double(listener.heard());
      // Start-up over (every port announced, netlink settled): measure the idle daemon.
      ::sleep(3);
      before = usageOf(pid);
      const double idleStart = monotonicSeconds();
      ::usleep(useconds_t(idleSeconds * 1e6));
      after = usageOf(pid);
      const double idle = monotonicSeconds() - idleStart;
      stopProcess(pid);
      state.counters["first_lldpdu_last_port_s"] = firstFrames;
      state.counters["rss_MB"] = after.rssKb / 1024;
      state.counters["cpu_ms_per_min"] = (after.cpuSeconds - before.cpuSeconds) * 1000 * 60 / idle;
      state.counters["wakeups_per_s"] = (after.wakeups - before.wakeups) / idle;
      // Every port sends once per interval and wakes once more when its txDelay ends; ports
      // that came up together share those wake-ups, so the whole switch wakes about twice
      // per interval however many ports it has.
      const double perInterval = (after.wakeups - before.wakeups) / idle * txInterval;
      state.counters["wakeups_per_interval"] = perInterval;
      std::printf(
          "check: %s with %d ports wakes %.1f times per %g s transmit interval (%s)\n",
          lldpd ? "lldpd" : "lldp-agent", ports, perInterval, txInterval,
          perInterval <= maxWakeupsPerInterval ? "ok: about two" : "too many: expected about two");
   }
   for (const char* f :
        {".conf", ".sock", ".log", ".lldpd.sock", ".lldpd.sock.lock", ".lldpd.pid"}) {
      ::unlink((base + f).c_str());
   }
}

void portCounts(benchmark::internal::Benchmark* b) {
   const bool withLldpd = envOr("LLDP_SCALE_LLDPD", "1") != "0";
   std::istringstream list(envOr("LLDP_SCALE_PORTS", "100"));
   std::string n;
   while (std::getline(list, n, ',')) {
      b->Args({std::atoi(n.c_str()), 0});
      if (withLldpd) b->Args({std::atoi(n.c_str()), 1});
   }
}

BENCHMARK(BM_ScaleIdle)
    ->ArgNames({"ports", "lldpd"})
    ->Apply(portCounts)
    ->Iterations(1)
    ->Unit(benchmark::kSecond);

}  // namespace

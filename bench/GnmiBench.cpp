// The gNMI server as it runs in the daemon: lldp-agent with --gnmi in one namespace,
// forged neighbours written into its port over a veth from the other, and gNMI clients
// (gRPC's C++ API on our generated stubs) on the daemon's loopback. Needs root; skipped
// otherwise. Three runs, each with a daemon of its own:
//
//  - BM_ChangeToNotification   N neighbours (LLDP_GNMI_NEIGHBOURS, default 10,000), one
//    subscriber to every neighbour's state (STREAM, ON_CHANGE); then S times (LLDP_GNMI_
//    SAMPLES, 500) one neighbour's system name changes in an LLDPDU. Reported: the time
//    from writing the frame to the subscriber reading its notification, p50, p99 and
//    the longest (goal: p99 under 10 ms).
//  - BM_InitialSync            M neighbours (LLDP_GNMI_SYNC, default 100,000): the time
//    from sending the SubscribeRequest to reading sync_response, every neighbour's state
//    read before it (goal: under 2 s), and the daemon's CPU time meanwhile.
//  - BM_RefreshCpu/subscribers:K  N neighbours refreshed (the same LLDPDU again, R frames,
//    LLDP_GNMI_REFRESH, default 50,000) with K subscribers to every neighbour (0 and
//    100): the daemon's CPU time per frame. The two figures match when subscribers cost
//    the receive path nothing while nothing changes.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <grpcpp/grpcpp.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Gnmi/gnmi.grpc.pb.h"
#include "bench/VethPorts.h"
#include "tests/Support/NetNs.h"
#include "tests/Support/Poll.h"
#include "tests/Support/Spawn.h"

namespace {

using Clock = std::chrono::steady_clock;

long envNum(const char* name, long fallback) {
   const char* v = std::getenv(name);
   return v && *v ? std::atol(v) : fallback;
}

// Neighbour k: chassis ID "gnmi-<k>", source MAC 02:00:<k>, system name as given.
class Sender {
public:
   explicit Sender(const Bench::VethPorts& ports) {
      TestSupport::NetNsScope in(ports.nsB());
      fd_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
      int bytes = 4 << 20;
      ::setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof(bytes));
      ifIndex_ = int(::if_nametoindex("gb0"));
   }
   ~Sender() {
      if (fd_ >= 0) ::close(fd_);
   }
   bool ok() const { return fd_ >= 0 && ifIndex_ > 0; }

   bool send(uint64_t k, const std::string& sysName) {
      char f[512];
      const size_t len = Bench::forgedLldpdu(f, k, "gnmi", sysName);
      sockaddr_ll to{};
      to.sll_family = AF_PACKET;
      to.sll_protocol = htons(0x88cc);
      to.sll_ifindex = ifIndex_;
      to.sll_halen = 6;
      std::memcpy(to.sll_addr, f, 6);
      for (;;) {
         if (::sendto(fd_, f, len, 0, reinterpret_cast<sockaddr*>(&to), sizeof(to)) > 0)
            return true;
         if (errno != ENOBUFS && errno != EAGAIN) return false;
         ::usleep(100);
      }
   }
   // Neighbours [0, n), paced at `rate` frames a second so that the kernel drops none.
   void fill(uint64_t n, const std::string& sysName, double rate = 20000) {
      const auto start = Clock::now();
      for (uint64_t k = 0; k < n; ++k) {
         send(k, sysName);
         const auto due = start + std::chrono::duration<double>(double(k) / rate);
         std::this_thread::sleep_until(due);
      }
   }

private:
   int fd_ = -1;
   int ifIndex_ = 0;
};

double cpuSeconds(pid_t pid) {
   double s = 0;
   const std::string base = "/proc/" + std::to_string(pid) + "/task";
   if (DIR* tasks = ::opendir(base.c_str())) {
      while (dirent* t = ::readdir(tasks)) {
         if (t->d_name[0] == '.') continue;
         s +=
             std::atof(TestSupport::readFile(base + "/" + t->d_name + "/schedstat").c_str()) * 1e-9;
      }
      ::closedir(tasks);
   }
   return s;
}

// The daemon on port "ga0" of the near namespace, serving gNMI on its loopback; the
// calling thread stays in that namespace (and so do gRPC's threads it starts), so the
// clients reach the daemon's loopback.
class Daemon {
public:
   explicit Daemon(const Bench::VethPorts& ports) : in_(ports.nsA()) {
      base_ = "/tmp/lldp-gnmi-bench-" + std::to_string(::getpid());
      std::ofstream(base_ + ".conf")
          << "lldp timer 30\nlldp neighbor-limit 1000000\nlldp neighbor-limit total 10000000\n"
             "interface ga0\n   no lldp receive rate-limit\nexit\n";
      TestSupport::runCmd("ip -n " + ports.nsA() + " link set lo up");
      pid_ = TestSupport::spawn(
          {"ip", "netns", "exec", ports.nsA(), LLDP_AGENT, "--config", base_ + ".conf", "--socket",
           base_ + ".sock", "--interfaces", "ga*", "--foreground", "--gnmi", "127.0.0.1:9339",
           "--gnmi-max-subscribers", "200", "--gnmi-max-queue", "1000000"},
          base_ + ".log");
      grpc::ChannelArguments args;
      args.SetMaxReceiveMessageSize(-1);  // a Get of the whole table
      channel_ =
          grpc::CreateCustomChannel("127.0.0.1:9339", grpc::InsecureChannelCredentials(), args);
      stub_ = gnmi::gNMI::NewStub(channel_);
      TestSupport::waitFor(
          [&] {
             grpc::ClientContext ctx;
             gnmi::CapabilityResponse r;
             return stub_->Capabilities(&ctx, gnmi::CapabilityRequest(), &r).ok();
          },
          20);
   }
   ~Daemon() {
      ::kill(pid_, SIGTERM);
      ::waitpid(pid_, nullptr, 0);
      for (const char* f : {".conf", ".sock", ".log"}) ::unlink((base_ + f).c_str());
   }
   pid_t pid() const { return pid_; }
   gnmi::gNMI::Stub& stub() { return *stub_; }
   // How many neighbours the daemon holds, by a Get in PROTO encoding of their ids.
   size_t neighbours() {
      grpc::ClientContext ctx;
      gnmi::GetRequest req;
      req.set_encoding(gnmi::PROTO);
      auto* p = req.add_path();
      for (const char* e : {"lldp", "interfaces", "interface", "neighbors", "neighbor", "id"})
         p->add_elem()->set_name(e);
      (*p->mutable_elem(2)->mutable_key())["name"] = "ga0";
      (*p->mutable_elem(4)->mutable_key())["id"] = "*";
      gnmi::GetResponse r;
      if (!stub_->Get(&ctx, req, &r).ok() || r.notification_size() == 0) return 0;
      return size_t(r.notification(0).update_size());
   }

private:
   TestSupport::NetNsScope in_;
   std::string base_;
   pid_t pid_ = -1;
   std::shared_ptr<grpc::Channel> channel_;
   std::unique_ptr<gnmi::gNMI::Stub> stub_;
};

gnmi::SubscribeRequest everyNeighbour(bool updatesOnly) {
   gnmi::SubscribeRequest req;
   auto* list = req.mutable_subscribe();
   list->set_mode(gnmi::SubscriptionList::STREAM);
   list->set_updates_only(updatesOnly);
   auto* s = list->add_subscription();
   s->set_mode(gnmi::ON_CHANGE);
   auto* p = s->mutable_path();
   for (const char* e : {"lldp", "interfaces", "interface", "neighbors", "neighbor", "state"})
      p->add_elem()->set_name(e);
   (*p->mutable_elem(2)->mutable_key())["name"] = "*";
   (*p->mutable_elem(4)->mutable_key())["id"] = "*";
   return req;
}

// One subscriber reading on a thread of its own until cancelled.
class Subscriber {
public:
   using OnUpdate = std::function<void(const gnmi::Notification&)>;
   Subscriber(gnmi::gNMI::Stub& stub, bool updatesOnly, OnUpdate onUpdate = nullptr)
       : onUpdate_(std::move(onUpdate)) {
      stream_ = stub.Subscribe(&ctx_);
      stream_->Write(everyNeighbour(updatesOnly));
      reader_ = std::thread([this] {
         gnmi::SubscribeResponse r;
         while (stream_->Read(&r)) {
            if (r.has_sync_response()) synced_ = true;
            if (r.has_update() && onUpdate_) onUpdate_(r.update());
         }
      });
   }
   ~Subscriber() {
      ctx_.TryCancel();
      reader_.join();
   }
   bool synced() const { return synced_; }

private:
   grpc::ClientContext ctx_;
   std::unique_ptr<grpc::ClientReaderWriter<gnmi::SubscribeRequest, gnmi::SubscribeResponse>>
       stream_;
   OnUpdate onUpdate_;
   std::atomic<bool> synced_{false};
   std::thread reader_;
};

bool rooted(benchmark::State& state) {
   if (::geteuid() == 0) return true;
   state.SkipWithError("needs root to create network namespaces");
   return false;
}

std::string sysNameOf(const gnmi::Notification& n) {
   for (const auto& u : n.update()) {
      const int e = u.path().elem_size();
      if (e > 0 && u.path().elem(e - 1).name() == "system-name") return u.val().string_val();
   }
   return "";
}

void BM_ChangeToNotification(benchmark::State& state) {
   if (!rooted(state)) return;
   const long n = envNum("LLDP_GNMI_NEIGHBOURS", 10000);
   const long samples = envNum("LLDP_GNMI_SAMPLES", 500);
   Bench::VethPorts ports("gnmi", "ga", "gb", 1, true);
   Sender sender(ports);
   Daemon daemon(ports);
   sender.fill(uint64_t(n), "before");
   TestSupport::waitFor([&] { return daemon.neighbours() == size_t(n); }, 60);

   std::mutex m;
   std::string want;
   Clock::time_point sent, seen;
   std::atomic<bool> got{false};
   Subscriber sub(daemon.stub(), true, [&](const gnmi::Notification& note) {
      const auto now = Clock::now();
      std::lock_guard<std::mutex> lock(m);
      if (!got && sysNameOf(note) == want) {
         seen = now;
         got = true;
      }
   });
   TestSupport::waitFor([&] { return sub.synced(); }, 30);
   std::vector<double> ms;
   for (auto _ : state) {
      for (long i = 0; i < samples; ++i) {
         {
            std::lock_guard<std::mutex> lock(m);
            want = "renamed-" + std::to_string(i);
            got = false;
            sent = Clock::now();
         }
         sender.send(uint64_t(i * 7919 % n), "renamed-" + std::to_string(i));
         if (TestSupport::waitFor([&] { return got.load(); }, 2) < 0) {
            state.SkipWithError("a notification did not come");
            return;
         }
         std::lock_guard<std::mutex> lock(m);
         ms.push_back(std::chrono::duration<double, std::milli>(seen - sent).count());
      }
   }
   std::sort(ms.begin(), ms.end());
   state.counters["neighbours"] = double(n);
   state.counters["p50_ms"] = ms[ms.size() / 2];
   state.counters["p99_ms"] = ms[std::min(ms.size() - 1, ms.size() * 99 / 100)];
   state.counters["max_ms"] = ms.back();
}
BENCHMARK(BM_ChangeToNotification)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_InitialSync(benchmark::State& state) {
   if (!rooted(state)) return;
   const long n = envNum("LLDP_GNMI_SYNC", 100000);
   Bench::VethPorts ports("gnmi", "ga", "gb", 1, true);
   Sender sender(ports);
   Daemon daemon(ports);
   sender.fill(uint64_t(n), "synced");
   TestSupport::waitFor([&] { return daemon.neighbours() == size_t(n); }, 120);
   const size_t held = daemon.neighbours();
   for (auto _ : state) {
      std::atomic<size_t> updates{0};
      const double cpu0 = cpuSeconds(daemon.pid());
      const auto start = Clock::now();
      Subscriber sub(daemon.stub(), false, [&](const gnmi::Notification&) { ++updates; });
      TestSupport::waitFor([&] { return sub.synced(); }, 60);
      const double s = std::chrono::duration<double>(Clock::now() - start).count();
      state.SetIterationTime(s);
      state.counters["sync_s"] = s;
      // On a busy machine the wall time is mostly waiting for a CPU: the daemon's own
      // share (the loop and gRPC's threads) says what the sync costs.
      state.counters["daemon_cpu_s"] = cpuSeconds(daemon.pid()) - cpu0;
      state.counters["notifications"] = double(updates.load());
   }
   state.counters["neighbours"] = double(held);
}
BENCHMARK(BM_InitialSync)->Iterations(1)->Unit(benchmark::kMillisecond)->UseManualTime();

void BM_RefreshCpu(benchmark::State& state) {
   if (!rooted(state)) return;
   const long n = envNum("LLDP_GNMI_NEIGHBOURS", 10000);
   const long frames = envNum("LLDP_GNMI_REFRESH", 50000);
   Bench::VethPorts ports("gnmi", "ga", "gb", 1, true);
   Sender sender(ports);
   Daemon daemon(ports);
   sender.fill(uint64_t(n), "steady");
   TestSupport::waitFor([&] { return daemon.neighbours() == size_t(n); }, 60);
   std::vector<std::unique_ptr<Subscriber>> subs;
   for (int i = 0; i < state.range(0); ++i) {
      subs.push_back(std::make_unique<Subscriber>(daemon.stub(), true));
   }
   for (auto& s : subs) TestSupport::waitFor([&] { return s->synced(); }, 30);
   for (auto _ : state) {
      const double cpu0 = cpuSeconds(daemon.pid());
      const auto start = Clock::now();
      for (long f = 0; f < frames; ++f) {
         sender.send(uint64_t(f % n), "steady");
         std::this_thread::sleep_until(start + std::chrono::duration<double>(double(f) / 20000));
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(500));  // the last frames read
      state.counters["cpu_us_per_frame"] = (cpuSeconds(daemon.pid()) - cpu0) * 1e6 / double(frames);
   }
   state.counters["subscribers"] = double(state.range(0));
}
BENCHMARK(BM_RefreshCpu)
    ->ArgName("subscribers")
    ->Arg(0)
    ->Arg(100)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

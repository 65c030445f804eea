// A standby lldp-agent mirroring an active one, both real processes on the real control
// socket: the active agent learns neighbours from frames sent across a veth, the standby
// holds the same table (index, times, every attribute) once in sync, follows changes, comes
// back in line after its stream is cut in the middle of a message, says clearly when its
// peer is not an agent, and is refused when the active agent has a standby already or is a
// standby itself.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "Daemon/MirrorClient.h"
#include "Daemon/MirrorService.h"
#include "tests/Support/AgentProcess.h"
#include "tests/Support/Frames.h"
#include "tests/Support/NetNs.h"
#include "tests/Support/Poll.h"

namespace {

using TestSupport::runCli;
using TestSupport::tmpName;
using TestSupport::waitFor;

// An agent started with the options given (beyond config, interfaces and --foreground).
class AgentRun {
public:
   AgentRun(const std::string& ns, const std::string& name, const std::string& intf,
            const std::string& config, std::vector<std::string> extra = {})
       : name_(name),
         socket_(tmpName(name + ".sock")),
         conf_(tmpName(name + ".conf")),
         log_(tmpName(name + ".log")) {
      std::ofstream(conf_) << config;
      std::vector<std::string> args = {"ip",       "netns",        "exec", ns,
                                       LLDP_AGENT, "--config",     conf_,  "--socket",
                                       socket_,    "--interfaces", intf,   "--foreground"};
      args.insert(args.end(), extra.begin(), extra.end());
      proc_.start(args, log_);
   }
   ~AgentRun() {
      proc_.stop(SIGKILL);
      if (::testing::Test::HasFailure()) {
         std::fprintf(stderr, "--- log of %s:\n%s", name_.c_str(),
                      TestSupport::readFile(log_).c_str());
      }
      ::unlink(conf_.c_str());
      ::unlink(log_.c_str());
   }
   const std::string& socket() const { return socket_; }
   Vel::Json json(std::vector<std::string> args) const {
      args.push_back("--json");
      const auto r = runCli(socket_, args);
      if (r.status != 0) return nullptr;
      Vel::Json j = Vel::Json::parse(r.out, nullptr, false);
      return j.is_discarded() ? Vel::Json(nullptr) : j;
   }
   Vel::Json redundancy() const { return json({"show", "redundancy"}); }
   bool mirrorIs(const std::string& state) const {
      const Vel::Json r = redundancy();
      return r.is_object() && r.value("mirrorState", "") == state;
   }

private:
   std::string name_, socket_, conf_, log_;
   TestSupport::Process proc_;
};

// A neighbour table as both agents show it, without what depends on the moment it is
// looked at (ages, time left, wall-clock twins).
Vel::Json table(const Vel::Json& view) {
   if (!view.is_object() || !view.contains("interfaces")) return nullptr;
   Vel::Json t = view["interfaces"];
   for (auto& [intf, port] : t.items()) {
      for (auto& r : port["remoteSystem"]) {
         for (const char* k : {"age", "ttlRemaining", "creationTimestamp", "lastChangeTimestamp"}) {
            r.erase(k);
         }
      }
   }
   return t;
}

size_t count(const Vel::Json& t) {
   size_t n = 0;
   if (t.is_object()) {
      for (auto& [intf, port] : t.items()) n += port["remoteSystem"].size();
   }
   return n;
}

// A Unix socket server in a thread of its own: either a proxy to another socket, which the
// test can cut in the middle of a line, or a peer that answers every connection with
// garbage. The lock beside its socket is held, as a live agent holds its own, so that a
// standby pointed at it never takes it for gone.
class FakePeer {
public:
   enum class Mode { proxy, garbage };
   FakePeer(Mode mode, std::string target = {})
       : mode_(mode), target_(std::move(target)), path_(tmpName("peer.sock")) {
      lockFd_ = ::open((path_ + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
      ::flock(lockFd_, LOCK_EX | LOCK_NB);
      listenFd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      sockaddr_un a = addr(path_);
      ::unlink(path_.c_str());
      ok_ = ::bind(listenFd_, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
            ::listen(listenFd_, 8) == 0;
      thread_ = std::thread([this] { run(); });
   }
   ~FakePeer() {
      stop_ = true;
      thread_.join();
      ::close(listenFd_);
      ::close(lockFd_);
      ::unlink(path_.c_str());
      ::unlink((path_ + ".lock").c_str());
   }
   bool ok() const { return ok_; }
   const std::string& path() const { return path_; }
   int accepted() const { return accepted_; }
   // The proxy forwards the next chunk of the stream only up to the middle of a line, then
   // drops both connections.
   void cut() { cut_ = true; }
   bool cutDone() const { return cutDone_; }

private:
   static sockaddr_un addr(const std::string& p) {
      sockaddr_un a{};
      a.sun_family = AF_UNIX;
      std::strncpy(a.sun_path, p.c_str(), sizeof a.sun_path - 1);
      return a;
   }
   void run() {
      int client = -1, upstream = -1;
      auto closeBoth = [&] {
         if (client >= 0) ::close(client);
         if (upstream >= 0) ::close(upstream);
         client = upstream = -1;
      };
      while (!stop_) {
         pollfd p[3] = {{listenFd_, POLLIN, 0}, {client, POLLIN, 0}, {upstream, POLLIN, 0}};
         if (::poll(p, 3, 50) <= 0) continue;
         if (p[0].revents & POLLIN) {
            closeBoth();
            client = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
            ++accepted_;
            if (mode_ == Mode::garbage) {
               const std::string junk = "HTTP/1.0 400 Bad Request\r\n\r\n";
               (void)!::send(client, junk.data(), junk.size(), MSG_NOSIGNAL);
               continue;  // closed at the next connection
            }
            upstream = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            sockaddr_un a = addr(target_);
            if (::connect(upstream, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) closeBoth();
            continue;
         }
         char buf[65536];
         if (p[1].revents) {
            const ssize_t n = ::recv(client, buf, sizeof buf, 0);
            if (n <= 0 || ::send(upstream, buf, size_t(n), MSG_NOSIGNAL) != n) closeBoth();
         }
         if (upstream >= 0 && p[2].revents) {
            ssize_t n = ::recv(upstream, buf, sizeof buf, 0);
            if (n > 0 && cut_ && !cutDone_) {
               // Up to the middle of the first line that starts in this chunk.
               const char* nl = static_cast<const char*>(std::memchr(buf, '\n', size_t(n)));
               const ssize_t keep = nl ? (nl - buf) + 1 + 10 : n / 2;
               (void)!::send(client, buf, size_t(std::min(keep, n)), MSG_NOSIGNAL);
               cutDone_ = true;
               closeBoth();
               continue;
            }
            if (n <= 0 || ::send(client, buf, size_t(n), MSG_NOSIGNAL) != n) closeBoth();
         }
      }
      closeBoth();
   }

   Mode mode_;
   std::string target_, path_;
   int listenFd_ = -1, lockFd_ = -1;
   bool ok_ = false;
   std::thread thread_;
   std::atomic<bool> stop_{false}, cut_{false}, cutDone_{false};
   std::atomic<int> accepted_{0};
};

struct Link {
   TestSupport::NetNsPair ns;
   std::string config;
   Link() {
      config =
          "lldp neighbor-limit 1000\ninterface " + ns.intfA() + "\n   no lldp receive rate-limit\n";
   }
   // Neighbours chassis "nbr<from>" .. "nbr<to-1>" announce themselves to the active agent
   // (TTL 0: they leave).
   void send(int from, int to, uint16_t ttl) {
      TestSupport::RawSender peer(ns.nsB(), ns.intfB());
      for (int i = from; i < to; ++i) {
         ASSERT_TRUE(peer.send(TestSupport::lldpFrame("nbr" + std::to_string(i), ttl)));
      }
   }
};

TEST(Mirror, SnapshotChangesAndACutStreamKeepTheStandbyEqualToTheActive) {
   if (::geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces";
   Link s;
   ASSERT_TRUE(s.ns.ok()) << s.ns.error();
   AgentRun active(s.ns.nsA(), "active", s.ns.intfA(), s.config);
   auto activeTable = [&] { return table(active.json({"show", "neighbors", "detail"})); };
   ASSERT_GE(waitFor([&] { return activeTable().is_object(); }, 10), 0) << "active not started";
   s.send(0, 300, 120);
   ASSERT_GE(waitFor([&] { return count(activeTable()) == 300; }, 10), 0);

   // Through a proxy that can cut the stream; the active agent is alive (the proxy's lock).
   FakePeer proxy(FakePeer::Mode::proxy, active.socket());
   ASSERT_TRUE(proxy.ok());
   AgentRun standby(s.ns.nsA(), "standby", s.ns.intfA(), s.config,
                    {"--standby", "--peer-socket", proxy.path()});
   auto standbyTable = [&] {
      return table(standby.json({"show", "redundancy", "neighbors", "detail"}));
   };
   auto equal = [&] {
      const Vel::Json a = activeTable(), b = standbyTable();
      return a.is_object() && a == b;
   };
   // The snapshot: the same neighbours with the same indices and times.
   ASSERT_GE(waitFor([&] { return standby.mirrorIs("inSync"); }, 10), 0)
       << standby.redundancy().dump();
   ASSERT_GE(waitFor(equal, 5), 0) << activeTable().dump().substr(0, 2000) << "\n---\n"
                                   << standbyTable().dump().substr(0, 2000);
   Vel::Json r = standby.redundancy();
   EXPECT_EQ(r["role"], "standby");
   EXPECT_EQ(r["mirroredNeighbors"], 300);
   EXPECT_EQ(r["mirrorResyncs"], 0);
   EXPECT_EQ(active.redundancy()["mirrorStandbys"], 1);
   // The standby publishes no neighbours of its own.
   EXPECT_EQ(count(table(standby.json({"show", "neighbors", "detail"}))), 0u);

   // Changes: new neighbours, neighbours leaving, neighbours refreshed (new expiry times).
   s.send(300, 350, 120);
   s.send(0, 40, 0);
   s.send(100, 200, 90);
   ASSERT_GE(waitFor([&] { return count(activeTable()) == 310; }, 10), 0);
   EXPECT_GE(waitFor(equal, 5), 0) << "the standby did not follow the changes";
   // The global counters too.
   const Vel::Json activeStats = active.json({"show", "statistics"});
   const Vel::Json counters = standby.redundancy()["mirroredStatus"];
   for (const char* c : {"remTablesInserts", "remTablesDeletes"}) {
      EXPECT_EQ(counters[c], activeStats[c]) << c << " " << activeStats.dump().substr(0, 500);
   }

   // Cut in the middle of a message: the standby reconnects and resynchronises.
   proxy.cut();
   s.send(350, 360, 120);  // something to stream through the proxy
   ASSERT_GE(waitFor([&] { return proxy.cutDone(); }, 5), 0);
   ASSERT_GE(waitFor([&] { return proxy.accepted() >= 2; }, 5), 0) << "no reconnection";
   s.send(360, 370, 120);
   ASSERT_GE(waitFor([&] { return count(activeTable()) == 330; }, 10), 0);
   EXPECT_GE(waitFor([&] { return standby.mirrorIs("inSync") && equal(); }, 10), 0)
       << standby.redundancy().dump();
   r = standby.redundancy();
   EXPECT_GE(r["mirrorResyncs"], 1);
   EXPECT_EQ(r["mirroredNeighbors"], 330);
   EXPECT_EQ(r["role"], "standby") << "a cut stream is not the active agent gone";
}

TEST(Mirror, APeerThatIsNotAnAgentOrAlreadyMirroredIsRefusedWithTheReason) {
   if (::geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces";
   Link s;
   ASSERT_TRUE(s.ns.ok()) << s.ns.error();

   // Garbage: said so, and tried again.
   FakePeer junk(FakePeer::Mode::garbage);
   ASSERT_TRUE(junk.ok());
   AgentRun confused(s.ns.nsA(), "confused", s.ns.intfA(), s.config,
                     {"--standby", "--peer-socket", junk.path()});
   ASSERT_GE(waitFor([&] { return confused.mirrorIs("badPeer"); }, 10), 0)
       << confused.redundancy().dump();
   EXPECT_NE(confused.redundancy()["mirrorError"].get<std::string>().find("not an LLDP agent"),
             std::string::npos)
       << confused.redundancy().dump();
   EXPECT_GE(waitFor([&] { return junk.accepted() >= 3; }, 10), 0) << "it stopped trying";
   EXPECT_EQ(confused.redundancy()["role"], "standby");
   EXPECT_NE(runCli(confused.socket(), {"show", "redundancy"}).out.find("not a working agent"),
             std::string::npos);

   AgentRun active(s.ns.nsA(), "active", s.ns.intfA(), s.config);
   ASSERT_GE(waitFor([&] { return active.redundancy().is_object(); }, 10), 0);
   AgentRun first(s.ns.nsA(), "first", s.ns.intfA(), s.config,
                  {"--standby", "--peer-socket", active.socket()});
   ASSERT_GE(waitFor([&] { return first.mirrorIs("inSync"); }, 10), 0) << first.redundancy();
   // A second standby of the same active agent.
   AgentRun second(s.ns.nsA(), "second", s.ns.intfA(), s.config,
                   {"--standby", "--peer-socket", active.socket()});
   ASSERT_GE(waitFor([&] { return second.mirrorIs("refused"); }, 10), 0) << second.redundancy();
   EXPECT_NE(second.redundancy()["mirrorError"].get<std::string>().find("already has a standby"),
             std::string::npos)
       << second.redundancy().dump();
   // A standby of a standby.
   AgentRun third(s.ns.nsA(), "third", s.ns.intfA(), s.config,
                  {"--standby", "--peer-socket", first.socket()});
   ASSERT_GE(waitFor([&] { return third.mirrorIs("refused"); }, 10), 0) << third.redundancy();
   EXPECT_NE(third.redundancy()["mirrorError"].get<std::string>().find("is a standby"),
             std::string::npos)
       << third.redundancy().dump();
   // The first standby is not disturbed by either.
   EXPECT_TRUE(first.mirrorIs("inSync"));
   EXPECT_EQ(active.redundancy()["mirrorStandbys"], 1);
}

// Both ends in this process, on one loop, through a real socket: switch-style port names,
// whole ports coming and going, and a standby made to fall behind by a tiny buffer bound.
TEST(Mirror, AStandbyThatFallsBehindIsResynchronisedNotQueuedFor) {
   auto& loop = Vel::EventLoop::instance();
   auto owner = Vel::make<Lldp::Status>();
   auto table = Vel::make<Lldp::AllStatus>();
   auto addPort = [&](int p, int neighbours) {
      std::string name = "Ethernet";
      name += std::to_string(p);
      const Wire::IntfId intf(name);
      auto port = owner->portStatusIs(intf, double(p));
      for (int i = 1; i <= neighbours; ++i) {
         std::string chassis = "n";
         chassis += std::to_string(p * 1000 + i);
         Lldp::Msap msap({.chassisIdentifier = Lldp::ChassisIdentifier(
                              {.subtype = Lldp::chassisIdSubtypeLocal, .value = chassis})});
         auto r = Vel::make<Lldp::RemoteSystem>(i, msap);
         r->expiryTimeIs(100 + i);
         port->remoteSystemByMsapIs(r);
         port->remoteSystemIs(i, r);
      }
      table->portStatusIs(intf, port);
   };
   for (int p = 1; p <= 3; ++p) addPort(p, 400);

   const std::string path = tmpName("mirror-inproc.sock");
   Daemon::ControlSocket socket(Vel::make<Lldp::CliConfig>());
   std::string error;
   ASSERT_TRUE(socket.listen(path, &error)) << error;
   auto activeRec = Vel::make<Lldp::RedundancyStatus>();
   Daemon::MirrorService service(socket, table, activeRec,
                                 {.windowBytes = 8192, .maxLagBytes = 32768});
   auto dir = Vel::make<Vel::Dir>();
   auto standbyRec = Vel::make<Lldp::RedundancyStatus>();
   Daemon::MirrorClient client({.peerSocket = path},
                               Vel::make<Lldp::Agent::StandbyLldpStatusDirSm>(dir), standbyRec,
                               nullptr);
   client.start();
   auto copyEqual = [&] {
      if (standbyRec->mirrorState() != Lldp::MirrorStateNames::mirrorInSync ||
          !service.standbyInSync()) {
         return false;
      }
      auto copy = dir->entryAs<Lldp::Status>("1");
      if (!copy || copy->portStatus().size() != table->portStatus().size()) return false;
      for (const auto& [intf, port] : table->portStatus()) {
         auto c = copy->portStatus(intf);
         if (!c || Vel::toJson(c->remoteSystem()) != Vel::toJson(port->remoteSystem())) {
            return false;
         }
      }
      return true;
   };
   ASSERT_TRUE(loop.runUntil(copyEqual, 20)) << Vel::toJson(*standbyRec).dump();
   EXPECT_EQ(service.resyncs(), 0u);

   // Every neighbour refreshed at once: far more than the standby may lag by.
   for (const auto& [intf, port] : table->portStatus()) {
      for (const auto& [i, r] : port->remoteSystem()) {
         const_cast<Lldp::RemoteSystem&>(*r).expiryTimeIs(5000 + i);
      }
   }
   owner->portStatusDel(Wire::IntfId("Ethernet2"));
   table->portStatusDel(Wire::IntfId("Ethernet2"));
   addPort(4, 10);
   ASSERT_TRUE(loop.runUntil(copyEqual, 20)) << Vel::toJson(*standbyRec).dump();
   EXPECT_GE(service.resyncs(), 1u);
   EXPECT_GE(standbyRec->mirrorResyncs(), 1u);
   client.stop();
   EXPECT_EQ(standbyRec->mirrorState(), Lldp::MirrorStateNames::mirrorNotMirroring);
}

}  // namespace

// A standby agent taking over from the active one, between real processes: our agents
// in one namespace, lldpd as the neighbour in the other, snmpd as the AgentX master of
// both agents. Our side sends every 2 s with a time to live of 6 s, so a takeover that
// kept lldpd waiting 4 s would cost us lldpd's entry. Checked across `kill -9` of the
// active agent, across `lldp switchover` and across a plain restart beside a running
// agent (--auto-standby, as the systemd units run it): lldpd never loses us; the original socket
// path shows the same neighbours with the same index and creation time; no counter goes
// down; the SNMP remote table keeps its rows; and a neighbour that fell silent before the
// switch ages out when its mirrored time to live runs out, not later. Under --user too,
// where the agent that takes over may neither bind nor make a socket file: it serves the
// listening socket the active agent handed it.
#include <pwd.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "tests/Interop/LldpdInteropFixture.h"
#include "tests/Support/Snmpd.h"

namespace {

using Interop::Json;
using Interop::Lldpd;
using TestSupport::Process;
using TestSupport::runCli;
using TestSupport::Snmpd;
using TestSupport::tmpName;
using TestSupport::waitFor;

// lldpRemTable: its rows (time mark 0, local port, neighbour index) with every column.
const std::string remTable = ".1.0.8802.1.1.2.1.4.1.1";

class LldpdTakeover : public LldpdInterop {
protected:
   // One of our agents: the active one on `socket`, or (peer given) the standby of the
   // agent on `peer`.
   std::unique_ptr<Process> agent(const std::string& name, const std::string& socket,
                                  const std::string& peer = "", bool autoStandby = false,
                                  const std::string& user = "", const std::string& metrics = "") {
      std::vector<std::string> args = {"ip",       "netns",        "exec",       ns_->nsA(),
                                       LLDP_AGENT, "--config",     configPath(), "--socket",
                                       socket,     "--interfaces", ourPorts(),   "--foreground",
                                       "--agentx", snmpd->agentx()};
      if (!peer.empty()) args.insert(args.end(), {"--standby", "--peer-socket", peer});
      if (autoStandby) args.push_back("--auto-standby");
      if (!user.empty()) args.insert(args.end(), {"--user", user});
      if (!metrics.empty()) args.insert(args.end(), {"--metrics", metrics});
      auto p = std::make_unique<Process>(args, logOf(name));
      logs.push_back(logOf(name));
      return p;
   }
   std::string configPath() {
      const std::string path = tmpName("takeover.conf");
      std::ofstream(path) << "lldp timer 2\nlldp hold-time 6\n";
      return path;
   }
   static std::string logOf(const std::string& name) { return tmpName(name + ".log"); }
   void TearDown() override {
      if (HasFailure()) {
         for (const auto& l : logs)
            std::fprintf(stderr, "--- %s:\n%s", l.c_str(), TestSupport::readFile(l).c_str());
      }
      for (const auto& l : logs) ::unlink(l.c_str());
   }
   static Json cli(const std::string& socket, std::vector<std::string> args) {
      args.push_back("--json");
      const auto r = runCli(socket, args);
      if (r.status != 0) return nullptr;
      Json j = Json::parse(r.out, nullptr, false);
      return j.is_discarded() ? Json(nullptr) : j;
   }
   static bool inSync(const std::string& standby) {
      return Interop::at(cli(standby, {"show", "redundancy"}), {"mirrorState"}) == "inSync";
   }
   // chassis ID -> (index, creation time) of the neighbours on `intf`.
   static std::map<std::string, std::pair<int, double>> neighbours(const std::string& socket,
                                                                   const std::string& intf) {
      std::map<std::string, std::pair<int, double>> out;
      const Json all = cli(socket, {"show", "neighbors"});
      for (const Json& r :
           Lldpd::list(Interop::at(all, {"interfaces", intf.c_str(), "remoteSystem"}))) {
         out[r["chassisIdentifier"]["value"].get<std::string>()] = {
             r["index"].get<int>(), r["creationTime"].get<double>()};
      }
      return out;
   }
   // Watches lldpd's entry for us on `theirs` every 0.2 s for `seconds`: the number of
   // looks that found none.
   static int missedLooks(const Lldpd& peer, const std::string& theirs, double seconds) {
      int missed = 0;
      const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
      while (std::chrono::steady_clock::now() < end) {
         if (peer.neighbour(theirs).is_null()) ++missed;
         ::usleep(200000);
      }
      return missed;
   }
   static std::set<std::string> rows(const std::map<std::string, std::string>& walk) {
      std::set<std::string> out;
      for (const auto& [oid, v] : walk) out.insert(oid);
      return out;
   }

   std::unique_ptr<Snmpd> snmpd;
   std::vector<std::string> logs;
};

// The lines of /proc/PID/status, by name.
std::map<std::string, std::string> procStatus(pid_t pid) {
   std::map<std::string, std::string> out;
   std::istringstream in(TestSupport::readFile("/proc/" + std::to_string(pid) + "/status"));
   for (std::string line; std::getline(in, line);) {
      const size_t colon = line.find(':');
      const size_t start = line.find_first_not_of(" \t", colon + 1);
      if (colon != std::string::npos && start != std::string::npos) {
         out[line.substr(0, colon)] = line.substr(start);
      }
   }
   return out;
}

TEST_F(LldpdTakeover, KillAndSwitchoverLoseNoNeighbourOnEitherSide) {
   for (const char* p : {"snmpd", "snmpwalk"}) {
      if (!Interop::haveProgram(p)) GTEST_SKIP() << p << " is not installed";
   }
   const auto link = addLink(), link2 = addLink();
   const std::string ours = link.first, theirs = link.second;
   const std::string ours2 = link2.first, theirs2 = link2.second;
   TestSupport::ipIn(ns_->nsA(), "link set lo up");  // snmpd answers on 127.0.0.1
   snmpd = std::make_unique<Snmpd>(ns_->nsA(), "takeover-snmpd");
   Lldpd peer(ns_->nsB(), "takeover-peer", theirs);
   // The neighbour that falls silent: a time to live of 10 s, to run across the switch.
   Lldpd quiet(ns_->nsB(), "takeover-quiet", theirs2);
   ASSERT_TRUE(peer.running() && quiet.running());
   ASSERT_TRUE(quiet.cli("configure lldp tx-hold 10"));

   const std::string sock = tmpName("takeover.sock");
   const std::string sock2 = tmpName("takeover-2.sock"), sock3 = tmpName("takeover-3.sock");
   auto active = agent("active", sock);
   ASSERT_GE(waitFor([&] { return !peer.neighbour(theirs).is_null(); }, 10), 0);
   auto standby = agent("standby", sock2, sock);
   ASSERT_GE(waitFor(
                 [&] {
                    return neighbours(sock, ours).size() == 1 &&
                           neighbours(sock, ours2).size() == 1 && inSync(sock2);
                 },
                 15),
             0);
   const auto before = neighbours(sock, ours);
   const Json stats = cli(sock, {"show", "statistics"});
   std::set<std::string> walked;
   waitFor([&] { return (walked = rows(snmpd->walk(remTable))).size() >= 2; }, 30);
   ASSERT_FALSE(walked.empty());

   // The quiet neighbour stops (no shutdown LLDPDU); then the active agent dies.
   const Json quietEntry = Lldpd::list(Interop::at(
       cli(sock, {"show", "neighbors"}), {"interfaces", ours2.c_str(), "remoteSystem"}))[0];
   const double quietExpiry = quietEntry["expiryTime"].get<double>();
   quiet.stop(SIGKILL);
   ::kill(active->pid(), SIGKILL);
   // kill -9 reaches the whole process group of the active agent only.
   active->stop(SIGKILL);
   EXPECT_EQ(missedLooks(peer, theirs, 8), 0) << "lldpd lost us across kill -9";

   // The original path answers with the same neighbours, counters never lower.
   EXPECT_EQ(neighbours(sock, ours), before);
   const Json after = cli(sock, {"show", "statistics"});
   EXPECT_GE(Interop::at(after, {"interfaces", ours.c_str(), "rxFramesTotal"}).get<int>(),
             Interop::at(stats, {"interfaces", ours.c_str(), "rxFramesTotal"}).get<int>());
   EXPECT_GE(after["remTablesInserts"].get<int>(), stats["remTablesInserts"].get<int>());
   EXPECT_EQ(Interop::at(cli(sock, {"show", "redundancy"}), {"lastSwitchoverReason"}), "peerDied");
   // SNMP: the new active agent registered again; the same rows, but the quiet
   // neighbour's once it has aged out.
   std::set<std::string> walkedAfter;
   waitFor([&] { return !(walkedAfter = rows(snmpd->walk(remTable))).empty(); }, 30);
   EXPECT_FALSE(walkedAfter.empty());
   EXPECT_TRUE(std::includes(walked.begin(), walked.end(), walkedAfter.begin(), walkedAfter.end()));

   // The quiet neighbour goes at its mirrored expiry time, not a full TTL after takeover.
   double goneAt = 0;
   waitFor(
       [&] {
          const Json all = cli(sock, {"show", "neighbors"});
          goneAt = all.value("currentTime", 0.0);
          return Lldpd::list(Interop::at(all, {"interfaces", ours2.c_str(), "remoteSystem"}))
              .empty();
       },
       20);
   EXPECT_NEAR(goneAt, quietExpiry, 1.0);

   // An operator's switchover to a fresh standby: lldpd again never notices.
   auto third = agent("third", sock3, sock);
   ASSERT_GE(waitFor([&] { return inSync(sock3); }, 10), 0);
   const auto beforeSwitch = neighbours(sock, ours);
   const Json statsSwitch = cli(sock, {"show", "statistics"});
   const auto run = runCli(sock, {"switchover"});
   EXPECT_EQ(run.status, 0) << run.err;
   EXPECT_TRUE(standby->waitExit(5)) << "the former active agent did not exit";
   EXPECT_EQ(missedLooks(peer, theirs, 6), 0) << "lldpd lost us across lldp switchover";
   EXPECT_EQ(neighbours(sock, ours), beforeSwitch);
   EXPECT_EQ(neighbours(sock, ours), before);
   EXPECT_GE(cli(sock, {"show", "statistics"})["remTablesInserts"].get<int>(),
             statsSwitch["remTablesInserts"].get<int>());
   EXPECT_EQ(Interop::at(cli(sock, {"show", "redundancy"}), {"lastSwitchoverReason"}),
             "operatorRequest");
   // With no standby left, a switchover is refused and changes nothing.
   const auto refused = runCli(sock, {"switchover"});
   EXPECT_EQ(refused.status, 2);
   EXPECT_NE(refused.err.find("no standby"), std::string::npos) << refused.err;

   // A plain restart beside it (what the systemd units do): the new agent, finding the
   // path served, becomes the standby; the running one stopped cleanly hands over.
   auto restarted = agent("restarted", sock, "", true);
   const std::string restartedSock = tmpName("takeover-standby.sock");
   ASSERT_GE(waitFor([&] { return inSync(restartedSock); }, 10), 0);
   EXPECT_EQ(third->stop(SIGTERM), 0);
   EXPECT_EQ(missedLooks(peer, theirs, 6), 0) << "lldpd lost us across a restart";
   EXPECT_EQ(neighbours(sock, ours), before);
   EXPECT_EQ(Interop::at(cli(sock, {"show", "redundancy"}), {"lastSwitchoverReason"}),
             "peerStopped");
}

// Both agents run as a user of their own, with their sockets in a directory only root may
// write (as /run is): the standby can make no socket file there and the system call filter
// refuses it bind, so it can serve the original path only through the listening socket
// the active agent handed it.
TEST_F(LldpdTakeover, UnderUserTheStandbyServesTheHandedOverSocket) {
   for (const char* p : {"snmpd", "snmpwalk"}) {
      if (!Interop::haveProgram(p)) GTEST_SKIP() << p << " is not installed";
   }
   const std::string user = "lldp-takeovertest";
   if (!::getpwnam(user.c_str())) {
      ASSERT_TRUE(
          TestSupport::runCmd("useradd --system --user-group --no-create-home --shell "
                              "/usr/sbin/nologin " +
                              user));
   }
   const passwd* pw = ::getpwnam(user.c_str());
   ASSERT_NE(pw, nullptr);
   const std::string uid = std::to_string(pw->pw_uid);
   const std::string dir = tmpName("takeover-run");
   ASSERT_EQ(::mkdir(dir.c_str(), 0755), 0);
   struct Finally {
      std::string dir;
      ~Finally() { TestSupport::runCmd("rm -rf " + dir); }
   } finally{dir};

   const auto link = addLink();
   const std::string ours = link.first, theirs = link.second;
   TestSupport::ipIn(ns_->nsA(), "link set lo up");
   snmpd = std::make_unique<Snmpd>(ns_->nsA(), "takeover-user-snmpd",
                                   "agentXPerms 0660 0755 root " + user + "\n");
   Lldpd peer(ns_->nsB(), "takeover-user-peer", theirs);
   ASSERT_TRUE(peer.running());

   const std::string sock = dir + "/agent.sock", sock2 = dir + "/standby.sock",
                     sock3 = dir + "/third.sock";
   const std::string metricsAt = "127.0.0.1:9479";
   auto active = agent("user-active", sock, "", false, user, metricsAt);
   ASSERT_GE(waitFor([&] { return !peer.neighbour(theirs).is_null(); }, 10), 0);
   auto standby = agent("user-standby", sock2, sock, false, user, metricsAt);
   ASSERT_GE(waitFor([&] { return neighbours(sock, ours).size() == 1 && inSync(sock2); }, 15), 0);
   const auto before = neighbours(sock, ours);

   active->stop(SIGKILL);
   EXPECT_EQ(missedLooks(peer, theirs, 8), 0) << "lldpd lost us across kill -9";
   EXPECT_EQ(neighbours(sock, ours), before) << "the original path does not answer";
   EXPECT_EQ(Interop::at(cli(sock, {"show", "redundancy"}), {"lastSwitchoverReason"}), "peerDied");
   std::set<std::string> walked;
   waitFor([&] { return !(walked = rows(snmpd->walk(remTable))).empty(); }, 30);
   EXPECT_FALSE(walked.empty()) << "the agent that took over did not register with snmpd";
   // Its metrics listener, on the same port, made after the privileges were given up.
   std::string metrics;
   waitFor(
       [&] {
          return TestSupport::runIn(ns_->nsA(),
                                    "/usr/bin/python3 -c \"import urllib.request; "
                                    "print(urllib.request.urlopen('http://" +
                                        metricsAt + "/metrics').read().decode())\"",
                                    &metrics) &&
                 metrics.find("lldp_remote_tables_inserts_total") != std::string::npos;
       },
       10);
   EXPECT_NE(metrics.find("lldp_remote_tables_inserts_total"), std::string::npos) << metrics;
   auto st = procStatus(standby->pid());
   EXPECT_EQ(st["Uid"], uid + "\t" + uid + "\t" + uid + "\t" + uid);
   EXPECT_EQ(st["CapEff"], "0000000000000000");
   EXPECT_EQ(st["Seccomp"], "2");

   // A switchover between two such agents: the one leaving must leave the socket file to
   // the one that now serves it.
   auto third = agent("user-third", sock3, sock, false, user);
   ASSERT_GE(waitFor([&] { return inSync(sock3); }, 10), 0);
   const auto run = runCli(sock, {"switchover"});
   EXPECT_EQ(run.status, 0) << run.err;
   EXPECT_TRUE(standby->waitExit(5)) << "the former active agent did not exit";
   EXPECT_EQ(missedLooks(peer, theirs, 6), 0) << "lldpd lost us across lldp switchover";
   EXPECT_EQ(neighbours(sock, ours), before);
   EXPECT_EQ(Interop::at(cli(sock, {"show", "redundancy"}), {"lastSwitchoverReason"}),
             "operatorRequest");
   st = procStatus(third->pid());
   EXPECT_EQ(st["CapEff"], "0000000000000000");
   EXPECT_EQ(st["Seccomp"], "2");
}

}  // namespace

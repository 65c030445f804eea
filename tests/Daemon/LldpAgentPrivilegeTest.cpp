// lldp-agent --user: started as root, it runs as a system user of the test's making with
// no capabilities, no new privileges and a seccomp filter (/proc/PID/status), and keeps
// working: it learns a neighbour (another agent across a veth), follows a port that comes
// later (every port does: the agent starts with none), is scraped for metrics, re-reads its
// configuration on SIGHUP, answers an SNMP walk through a real snmpd and registers again after
// snmpd restarts. A system call outside its list is refused and logged, and the agent lives on.
// Root only; skips without snmpd and snmpwalk.
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "Daemon/ControlSocket.h"
#include "tests/Support/AgentProcess.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/NetNs.h"
#include "tests/Support/Poll.h"
#include "tests/Support/Snmpd.h"

namespace {

using TestSupport::Process;
using TestSupport::readFile;
using TestSupport::runCmd;
using TestSupport::tmpName;
using TestSupport::waitFor;

const std::string testUser = "lldp-privtest";

// The lines of /proc/PID/status this test looks at, by name.
std::map<std::string, std::string> procStatus(pid_t pid) {
   std::map<std::string, std::string> out;
   std::istringstream in(readFile("/proc/" + std::to_string(pid) + "/status"));
   for (std::string line; std::getline(in, line);) {
      const size_t colon = line.find(':');
      if (colon == std::string::npos) continue;
      const size_t start = line.find_first_not_of(" \t", colon + 1);
      out[line.substr(0, colon)] = start == std::string::npos ? "" : line.substr(start);
   }
   return out;
}

// snmpd as AgentX master, its socket open to the test user's group only.
class Snmpd : public TestSupport::Snmpd {
public:
   explicit Snmpd(const std::string& ns)
       : TestSupport::Snmpd(ns, "priv-snmpd", "agentXPerms 0660 0755 root " + testUser + "\n") {}
   // lldpRemPortId of every neighbour, as snmpwalk prints the column (quickly empty while
   // snmpd is down).
   std::string remotePortIds() const { return walkText(".1.0.8802.1.1.2.1.4.1.1.7", "-t 1 -r 0"); }
};

Vel::Json control(const std::string& socket, const Vel::Json& req) {
   Vel::Json reply;
   std::string error;
   if (!Daemon::request(socket, req, &reply, &error, 5)) return {{"failed", error}};
   return reply;
}

TEST(LldpAgentPrivilege, RunsAsItsUserWithoutCapabilitiesAndKeepsWorking) {
   if (::geteuid() != 0) GTEST_SKIP() << "needs root to create namespaces and users";
   if (!TestSupport::haveProgram("snmpd") || !TestSupport::haveProgram("snmpwalk") ||
       !TestSupport::haveProgram("curl")) {
      GTEST_SKIP() << "needs snmpd, snmpwalk and curl";
   }
   // A system user of its own, with a group of the same name (kept for later runs).
   if (!::getpwnam(testUser.c_str())) {
      ASSERT_TRUE(
          runCmd("useradd --system --user-group --no-create-home --shell "
                 "/usr/sbin/nologin " +
                 testUser));
   }
   const passwd* pw = ::getpwnam(testUser.c_str());
   ASSERT_NE(pw, nullptr);
   const std::string uid = std::to_string(pw->pw_uid);

   TestSupport::NetNsPair ns;
   ASSERT_TRUE(ns.ok()) << ns.error();
   const std::string tag = std::to_string(::getpid() % 100000);
   auto link = [&](const std::string& n) {
      const std::string a = "pva" + n + "-" + tag, b = "pvb" + n + "-" + tag;
      return runCmd("ip link add " + a + " netns " + ns.nsA() + " type veth peer name " + b +
                    " netns " + ns.nsB()) &&
             TestSupport::ipIn(ns.nsA(), "link set " + a + " up") &&
             TestSupport::ipIn(ns.nsB(), "link set " + b + " up");
   };
   ASSERT_TRUE(TestSupport::ipIn(ns.nsA(), "link set lo up"));

   Snmpd snmpd(ns.nsA());
   ASSERT_GE(waitFor([&] { return ::access(snmpd.agentx().c_str(), F_OK) == 0; }, 10), 0);
   TestSupport::Agent peer(ns.nsB(), "priv-peer", "pvb*", "lldp timer 1\n");

   const std::string config = tmpName("priv.conf"), socket = tmpName("priv.sock"),
                     log = tmpName("priv.log");
   std::ofstream(config) << "lldp timer 1\n";
   Process agent({"ip", "netns", "exec", ns.nsA(), LLDP_AGENT, "--config", config, "--socket",
                  socket, "--interfaces", "pva*", "--foreground", "--user", testUser, "--agentx",
                  snmpd.agentx(), "--metrics", "127.0.0.1:19101"},
                 log);
   auto cleanup = [&] {
      ::unlink(config.c_str());
      ::unlink(socket.c_str());
      if (::testing::Test::HasFailure())
         std::fprintf(stderr, "--- agent log:\n%s", readFile(log).c_str());
      ::unlink(log.c_str());
   };
   struct Finally {
      std::function<void()> f;
      ~Finally() { f(); }
   } finally{cleanup};

   // Root is given up on the loop's first turn, once everything is open.
   ASSERT_GE(waitFor(
                 [&] {
                    return procStatus(agent.pid())["Uid"] ==
                           uid + "\t" + uid + "\t" + uid + "\t" + uid;
                 },
                 10),
             0)
       << procStatus(agent.pid())["Uid"];
   auto holds = [&] {
      auto st = procStatus(agent.pid());
      EXPECT_EQ(st["Uid"], uid + "\t" + uid + "\t" + uid + "\t" + uid);
      EXPECT_EQ(st["CapEff"], "0000000000000000");
      EXPECT_EQ(st["CapPrm"], "0000000000000000");
      EXPECT_EQ(st["CapAmb"], "0000000000000000");
      EXPECT_EQ(st["CapBnd"], "0000000000000000");
      EXPECT_EQ(st["NoNewPrivs"], "1");
      EXPECT_EQ(st["Seccomp"], "2");
   };
   holds();

   // Its ports all come after the drop: a neighbour on each, read through SNMP.
   ASSERT_TRUE(link("1"));
   const std::string b1 = "pvb1-" + tag, b2 = "pvb2-" + tag;
   EXPECT_GE(waitFor([&] { return snmpd.remotePortIds().find(b1) != std::string::npos; }, 20), 0)
       << snmpd.remotePortIds();
   ASSERT_TRUE(link("2"));
   EXPECT_GE(waitFor([&] { return snmpd.remotePortIds().find(b2) != std::string::npos; }, 20), 0)
       << snmpd.remotePortIds();

   // The metrics listener's threads serve a scrape under the filter too.
   std::string scrape;
   TestSupport::runIn(ns.nsA(), "curl -sS --noproxy '*' http://127.0.0.1:19101/metrics", &scrape);
   EXPECT_NE(scrape.find("lldp_neighbors{interface=\"pva2-" + tag + "\"} 1"), std::string::npos)
       << scrape;

   // SIGHUP re-reads the configuration.
   std::ofstream(config) << "lldp timer 1\nlldp hold-time 7\n";
   ::kill(agent.pid(), SIGHUP);
   EXPECT_GE(waitFor(
                 [&] {
                    const Vel::Json r = control(socket, {{"op", "show-configuration"}});
                    return r.value("data", std::string()).find("lldp hold-time 7") !=
                           std::string::npos;
                 },
                 10),
             0);

   // snmpd restarts: the agent registers again, as its own user.
   snmpd.stop();
   EXPECT_EQ(snmpd.remotePortIds().find(b1), std::string::npos);
   snmpd.start();
   EXPECT_GE(waitFor([&] { return snmpd.remotePortIds().find(b1) != std::string::npos; }, 20), 0)
       << snmpd.remotePortIds();

   // A call outside the list is refused and logged; the agent goes on.
   const Vel::Json probe = control(socket, {{"op", "privilege"}, {"probe", true}});
   EXPECT_EQ(probe["data"]["probe"], "refused") << probe;
   EXPECT_GE(probe["data"]["syscallsRefused"].get<uint64_t>(), 1u) << probe;
   EXPECT_GE(waitFor(
                 [&] {
                    return readFile(log).find("LLDP_SYSCALL_REFUSED: Refused system call syncfs") !=
                           std::string::npos;
                 },
                 5),
             0);
   EXPECT_EQ(control(socket, {{"op", "list"}})["ok"], true);
   holds();
   EXPECT_EQ(readFile(log).find("LLDP_SYSCALL_REFUSED: Refused system call syncfs"),
             readFile(log).find("LLDP_SYSCALL_REFUSED"))
       << "a call the agent makes itself was refused";
   EXPECT_EQ(agent.stop(SIGTERM), 0);
}

}  // namespace

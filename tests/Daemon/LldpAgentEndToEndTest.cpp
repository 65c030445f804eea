// Two lldp-agent processes in two network namespaces joined by two veth pairs: they
// discover each other on both links, the command line shows, changes, clears and
// follows them, a link taken down loses its neighbour, and a stopped agent's neighbour
// ages out after its TTL. Everything is read through the `lldp` command line.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/Support/AgentProcess.h"
#include "tests/Support/Frames.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/NetNs.h"
#include "tests/Support/Poll.h"

namespace {

using TestSupport::Agent;
using TestSupport::CliRun;
using TestSupport::readFile;
using TestSupport::runCli;
using TestSupport::waitFor;

using Clock = std::chrono::steady_clock;

TEST(LldpAgentEndToEnd, TwoAgentsOnTwoLinks) {
   if (::geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces";
   TestSupport::NetNsPair ns;
   ASSERT_TRUE(ns.ok()) << ns.error();
   // Two links of our own naming (the agents run on e2e* ports only).
   const std::string tag = std::to_string(::getpid() % 100000);
   const std::string a1 = "e2ea1-" + tag, a2 = "e2ea2-" + tag, b1 = "e2eb1-" + tag,
                     b2 = "e2eb2-" + tag;
   for (auto [a, b] : {std::pair{a1, b1}, std::pair{a2, b2}}) {
      ASSERT_TRUE(TestSupport::runCmd("ip link add " + a + " netns " + ns.nsA() +
                                      " type veth peer name " + b + " netns " + ns.nsB()));
      ASSERT_TRUE(TestSupport::ipIn(ns.nsA(), "link set " + a + " up"));
      ASSERT_TRUE(TestSupport::ipIn(ns.nsB(), "link set " + b + " up"));
   }
   // The left agent starts as systemd starts a Type=notify service: it says when it is ready
   // and when it stops, on the socket its environment names.
   const std::string notifyPath = TestSupport::tmpName("notify");
   const int notifyFd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
   sockaddr_un addr{};
   addr.sun_family = AF_UNIX;
   notifyPath.copy(addr.sun_path, sizeof(addr.sun_path) - 1);
   ASSERT_EQ(::bind(notifyFd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
   auto notified = [&]() -> std::string {
      pollfd p{notifyFd, POLLIN, 0};
      char buf[256] = {};
      if (::poll(&p, 1, 20000) != 1 || ::recv(notifyFd, buf, sizeof(buf) - 1, 0) <= 0) return {};
      return buf;
   };
   const std::string timers = "lldp timer 1\nlldp hold-time 4\n";
   ::setenv("NOTIFY_SOCKET", notifyPath.c_str(), 1);
   Agent left(ns.nsA(), "left", "e2e*", timers + "lldp system-name left\n");
   ::unsetenv("NOTIFY_SOCKET");
   Agent right(ns.nsB(), "right", "e2e*", timers + "lldp system-name right\n");
   ASSERT_TRUE(left.running() && right.running());
   EXPECT_EQ(notified(), "READY=1");

   // Both links within a few transmit intervals (1 s) from the moment both agents answer:
   // the first frames go out as soon as a port is up, not after a full interval. The
   // margin is for a loaded machine; the neighbours' TTL is 4 s.
   auto answers = [](const Agent& a) { return a.run({"show", "local"}).status == 0; };
   auto one = [](const Agent& a, const std::string& intf) {
      return a.neighbours(intf).size() == 1;
   };
   ASSERT_GE(waitFor([&] { return answers(left) && answers(right); }, 5), 0) << "not started";
   ASSERT_GE(
       waitFor([&] { return one(left, a1) && one(left, a2) && one(right, b1) && one(right, b2); },
               3),
       0)
       << "not discovered on both links";

   // What one side advertises is what the other side stores.
   const Vel::Json leftLocal = left.cli({"show", "local"});
   for (auto [mine, theirs] : {std::pair{a1, b1}, std::pair{a2, b2}}) {
      const Vel::Json n = right.neighbours(theirs)[0];
      EXPECT_EQ(n["chassisIdentifier"], leftLocal["chassisIdentifier"]);
      EXPECT_EQ(n["chassisIdentifier"]["subtype"], "macAddress");  // the system MAC
      EXPECT_EQ(n["portIdentifier"], leftLocal["interfaces"][mine]["portIdentifier"]);
      EXPECT_EQ(n["portIdentifier"]["subtype"], "interfaceName");
      EXPECT_EQ(n["portIdentifier"]["value"], mine);
      EXPECT_EQ(n["sysName"], "left");
      EXPECT_EQ(n["ttl"], 4);
      // Its times as the daemon's clocks give them: whole seconds of age and of TTL left,
      // and the wall-clock time it was first heard.
      EXPECT_LE(n["ttlRemaining"], 4);
      std::tm created{};
      const std::string stamp = n["creationTimestamp"].get<std::string>();
      ASSERT_NE(::strptime(stamp.c_str(), "%Y-%m-%dT%H:%M:%S", &created), nullptr) << stamp;
      EXPECT_NEAR(double(::timegm(&created)), double(::time(nullptr) - n["age"].get<int>()), 2)
          << stamp;
      // The fallback management address: the system MAC itself.
      ASSERT_EQ(n["managementAddress"].size(), 1u) << n.dump();
      EXPECT_EQ(n["managementAddress"], leftLocal["managementAddress"]);
      EXPECT_EQ(n["managementAddress"][0]["key"]["subtype"], "mac");
      EXPECT_EQ(n["managementAddress"][0]["key"]["address"],
                leftLocal["chassisIdentifier"]["value"]);
   }
   CliRun table = right.run({"show", "neighbors"});
   EXPECT_EQ(table.status, 0);
   EXPECT_NE(table.out.find(b1 + "  " + leftLocal["chassisIdentifier"]["value"].get<std::string>() +
                            "  " + a1),
             std::string::npos)
       << table.out;
   EXPECT_NE(table.out.find("Total neighbors: 2"), std::string::npos) << table.out;
   const Vel::Json stats = right.cli({"show", "statistics", "interface", b1});
   EXPECT_GT(stats["interfaces"][b1]["rxFramesTotal"], 0);
   EXPECT_EQ(stats["interfaces"].size(), 1u);
   EXPECT_GE(stats["remTablesInserts"], 2);

   // Refusals: one line on standard error, status 2, nothing changed.
   for (const auto& args :
        std::vector<std::vector<std::string>>{{"show", "neighbors", "interface", "nosuch0"},
                                              {"frobnicate"},
                                              {"configure", "lldp hold-time 7", "lldp timer 0"}}) {
      CliRun r = right.run(args);
      EXPECT_EQ(r.status, 2) << args[0];
      EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
   }
   EXPECT_EQ(runCli("/tmp/lldp-e2e-nobody.sock", {"show", "local"}).status, 2);
   const std::string config = right.run({"show", "configuration"}).out;
   EXPECT_NE(config.find("lldp hold-time 4\n"), std::string::npos) << config;
   EXPECT_EQ(config.find("hold-time 7"), std::string::npos) << config;

   // Live configuration: the left agent's new hold time reaches the right's table.
   const std::string watchOut = TestSupport::tmpName("watch.out");
   TestSupport::Process watcher({LLDP_CLI, "--socket", right.socket(), "watch", "--json"},
                                watchOut);
   ASSERT_TRUE(watcher.running());
   ASSERT_EQ(left.run({"configure", "lldp hold-time 5"}).status, 0);
   EXPECT_NE(left.run({"show", "configuration"}).out.find("lldp hold-time 5\n"), std::string::npos);
   EXPECT_GE(waitFor(
                 [&] {
                    const Vel::Json n = right.neighbours(b2);
                    return n.size() == 1 && n[0]["ttl"] == 5;
                 },
                 3),
             0);

   // Clearing empties the tables, is logged with who asked, and the next frames refill them.
   CliRun cleared = right.run({"clear", "neighbors"});
   EXPECT_EQ(cleared.status, 0);
   EXPECT_EQ(cleared.out, "Cleared 2 neighbors.\n");
   EXPECT_NE(right.log().find("LLDP_REMOTE_TABLES_CLEARED: LLDP neighbor table cleared by"),
             std::string::npos);
   // Both links refill: each from its own next frame, up to a transmit interval apart.
   EXPECT_GE(waitFor([&] { return one(right, b1) && one(right, b2); }, 3), 0);

   // One link down: its neighbour goes on the other side at once; the other link stays.
   ASSERT_TRUE(TestSupport::ipIn(ns.nsA(), "link set " + a1 + " down"));
   EXPECT_GE(waitFor([&] { return right.neighbours(b1) == Vel::Json::array(); }, 2), 0);
   EXPECT_TRUE(one(right, b2));

   // The watch saw the clear remove both neighbours, the next frames add them again and
   // the link going down remove one (a new TTL alone is a refresh, not a change).
   watcher.stop(SIGTERM);
   std::map<std::string, int> events;
   std::istringstream lines(readFile(watchOut));
   for (std::string line; std::getline(lines, line);) {
      Vel::Json e = Vel::Json::parse(line, nullptr, false);
      ASSERT_FALSE(e.is_discarded()) << line;
      events[e["event"].get<std::string>() + " " + e["interface"].get<std::string>()]++;
   }
   ::unlink(watchOut.c_str());
   EXPECT_EQ(
       events,
       (std::map<std::string, int>{
           {"removed " + b1, 2}, {"removed " + b2, 1}, {"added " + b1, 1}, {"added " + b2, 1}}));

   // A stopped agent sends nothing more: its neighbour ages out after the TTL.
   EXPECT_EQ(left.stop(), 0);
   const auto stopped = Clock::now();
   EXPECT_GE(waitFor([&] { return right.neighbours(b2) == Vel::Json::array(); }, 6), 0);
   const double aged = std::chrono::duration<double>(Clock::now() - stopped).count();
   EXPECT_GT(aged, 2.0);  // not before most of the 4 s TTL has run
   EXPECT_EQ(notified(), "STOPPING=1");
   ::close(notifyFd);
   ::unlink(notifyPath.c_str());
   EXPECT_EQ(right.stop(), 0);
}

// Frames that arrive while the agent cannot read them fill the kernel's receive ring, and
// the kernel drops the rest. Every frame sent is read or counted: the drops are in the
// agent's statistics.
TEST(LldpAgentEndToEnd, FramesTheKernelDropsAreCounted) {
   if (::geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces";
   TestSupport::NetNsPair ns;
   ASSERT_TRUE(ns.ok()) << ns.error();
   Agent agent(ns.nsA(), "drops", ns.intfA(), "lldp timer 30\n");
   ASSERT_TRUE(agent.running());
   const auto stats = [&] { return agent.cli({"show", "statistics"}); };
   ASSERT_GE(waitFor([&] { return stats().contains("rxFramesDroppedByKernel"); }, 10), 0);
   EXPECT_TRUE(stats().contains("clientLimits"));  // what the control socket refused
   TestSupport::RawSender peer(ns.nsB(), ns.intfB());
   const TestSupport::Bytes frame = TestSupport::lldpFrame("flood", 120);

   constexpr int sent = 20000;  // several times what the ring holds
   ASSERT_EQ(::kill(agent.pid(), SIGSTOP), 0);
   for (int i = 0; i < sent; ++i) {
      ASSERT_TRUE(peer.send(frame));
      // Paced, so that the link itself (the kernel's backlog) loses none on the way.
      if (i % 100 == 99) ::usleep(1000);
   }
   ASSERT_EQ(::kill(agent.pid(), SIGCONT), 0);

   uint64_t read = 0, dropped = 0;
   waitFor(
       [&] {
          const Vel::Json s = stats();
          if (!s.is_object() || !s.contains("interfaces")) return false;
          const Vel::Json& port = s["interfaces"][ns.intfA()];
          read = port.value("rxFramesTotal", 0u) + port.value("rxLldpdusRateLimited", 0u);
          dropped = s.value("rxFramesDroppedByKernel", 0u);
          return read + dropped >= uint64_t(sent);
       },
       10);
   EXPECT_EQ(read + dropped, uint64_t(sent)) << read << " read, " << dropped << " dropped";
   EXPECT_GT(dropped, 0u);
   EXPECT_GT(read, 0u);
   const TestSupport::CliRun text = agent.run({"show", "statistics"});
   EXPECT_NE(text.out.find("Frames the kernel dropped before the agent read them: " +
                           std::to_string(dropped)),
             std::string::npos)
       << text.out;
}

}  // namespace

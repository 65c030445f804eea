// Two lldp-agent processes in two network namespaces joined by two veth pairs: they
// discover each other on both links, a link taken down loses its neighbour, and a
// stopped agent's neighbour ages out after its TTL. Everything is read through the
// agents' control sockets, as the command line reads it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "Daemon/ControlSocket.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/NetNs.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

// One agent process in a namespace.
class AgentProcess {
public:
   AgentProcess(const std::string& ns, const std::string& name, const std::string& config)
       : socket_("/tmp/lldp-e2e-" + std::to_string(::getpid()) + "-" + name + ".sock"),
         configPath_("/tmp/lldp-e2e-" + std::to_string(::getpid()) + "-" + name + ".conf") {
      std::ofstream(configPath_) << config;
      std::vector<std::string> args = {
          "/usr/bin/env", "ip",       "netns", "exec",         ns,     LLDP_AGENT,    "--config",
          configPath_,    "--socket", socket_, "--interfaces", "e2e*", "--foreground"};
      std::vector<char*> argv;
      for (auto& a : args) argv.push_back(a.data());
      argv.push_back(nullptr);
      posix_spawn_file_actions_t actions;
      posix_spawn_file_actions_init(&actions);
      posix_spawn_file_actions_addopen(&actions, 2, ("/tmp/lldp-e2e-" + name + ".log").c_str(),
                                       O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
      posix_spawn_file_actions_destroy(&actions);
   }
   ~AgentProcess() {
      stop();
      ::unlink(configPath_.c_str());
   }
   bool running() const { return pid_ > 0; }
   // SIGTERM and wait: the agent cleans up and exits 0.
   int stop() {
      if (pid_ <= 0) return -1;
      ::kill(pid_, SIGTERM);
      int status = 0;
      ::waitpid(pid_, &status, 0);
      pid_ = -1;
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
   }
   Vel::Json get(const std::string& path) const {
      Vel::Json reply;
      std::string error;
      if (!Daemon::request(socket_, {{"op", "get"}, {"path", path}}, &reply, &error)) {
         return nullptr;
      }
      return reply.value("ok", false) ? reply["data"] : Vel::Json(nullptr);
   }
   // The neighbours on a port: the remote systems of its status record.
   Vel::Json neighbours(const std::string& intf) const {
      Vel::Json status = get("l2discovery/lldp/status/local");
      if (!status.is_object()) return Vel::Json::array();
      for (const auto& port : status["portStatus"]) {
         if (port["intfId"] == intf) return port.value("remoteSystem", Vel::Json::array());
      }
      return Vel::Json::array();
   }

private:
   pid_t pid_ = -1;
   std::string socket_;
   std::string configPath_;
};

// Waits (polling) until `done` or the timeout; returns the seconds it took, or -1.
double waitFor(const std::function<bool()>& done, double timeout) {
   const auto start = Clock::now();
   for (;;) {
      const double waited = std::chrono::duration<double>(Clock::now() - start).count();
      if (done()) return waited;
      if (waited > timeout) return -1;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
   }
}

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
   const std::string timers = "lldp timer 1\nlldp hold-time 4\n";
   AgentProcess left(ns.nsA(), "left", timers + "lldp system-name left\n");
   AgentProcess right(ns.nsB(), "right", timers + "lldp system-name right\n");
   ASSERT_TRUE(left.running() && right.running());

   // Both links within txDelay (1 s with a 1 s interval) plus a second, from the moment
   // both agents answer.
   ASSERT_GE(waitFor(
                 [&] {
                    return left.get("l2discovery/lldp/config").is_object() &&
                           right.get("l2discovery/lldp/config").is_object();
                 },
                 5),
             0)
       << "the agents did not start";
   const double took = waitFor(
       [&] {
          return left.neighbours(a1).size() == 1 && left.neighbours(a2).size() == 1 &&
                 right.neighbours(b1).size() == 1 && right.neighbours(b2).size() == 1;
       },
       4);
   ASSERT_GE(took, 0) << "not discovered on both links";
   EXPECT_LE(took, 2.5);

   const Vel::Json leftLocal = left.get("l2discovery/lldp/localSystem");
   for (auto [mine, theirs] : {std::pair{a1, b1}, std::pair{a2, b2}}) {
      const Vel::Json n = right.neighbours(theirs)[0];
      EXPECT_EQ(n["msap"]["chassisIdentifier"], leftLocal["chassisIdentifier"]);
      EXPECT_EQ(n["msap"]["chassisIdentifier"]["subtype"], 4);  // the system MAC
      EXPECT_EQ(n["msap"]["portIdentifier"]["subtype"], 5);     // the interface name
      EXPECT_EQ(n["msap"]["portIdentifier"]["value"], mine);
      EXPECT_EQ(n["sysName"], "left");
      EXPECT_EQ(n["ttl"], 4);
      // The fallback management address: the system MAC itself.
      ASSERT_EQ(n["managementAddress"].size(), 1u) << n.dump();
      EXPECT_EQ(n["managementAddress"][0]["key"]["subtype"], 6);
      EXPECT_EQ(n["managementAddress"][0]["key"]["address"],
                leftLocal["chassisIdentifier"]["value"]);
   }

   // One link down: its neighbour goes on the other side at once; the other link stays.
   ASSERT_TRUE(TestSupport::ipIn(ns.nsA(), "link set " + a1 + " down"));
   EXPECT_GE(waitFor([&] { return right.neighbours(b1).empty(); }, 2), 0);
   EXPECT_EQ(right.neighbours(b2).size(), 1u);

   // A stopped agent sends nothing more: its neighbour ages out after the TTL.
   EXPECT_EQ(left.stop(), 0);
   const auto stopped = Clock::now();
   EXPECT_GE(waitFor([&] { return right.neighbours(b2).empty(); }, 6), 0);
   const double aged = std::chrono::duration<double>(Clock::now() - stopped).count();
   EXPECT_GT(aged, 2.0);  // not before most of the 4 s TTL has run
   EXPECT_EQ(right.stop(), 0);
}

}  // namespace

// Two lldp-agent processes in two network namespaces joined by two veth pairs: they
// discover each other on both links, the command line shows, changes, clears and
// follows them, a link taken down loses its neighbour, and a stopped agent's neighbour
// ages out after its TTL. Everything is read through the `lldp` command line.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Daemon/ControlSocket.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/NetNs.h"
#include "tests/Support/Poll.h"

extern char** environ;

namespace {

using TestSupport::readFile;
using TestSupport::waitFor;

using Clock = std::chrono::steady_clock;

// One agent process in a namespace.
class AgentProcess {
public:
   AgentProcess(const std::string& ns, const std::string& name, const std::string& config)
       : name_(name),
         socket_("/tmp/lldp-e2e-" + std::to_string(::getpid()) + "-" + name + ".sock"),
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
   const std::string& socket() const { return socket_; }
   const std::string logPath() const { return "/tmp/lldp-e2e-" + name_ + ".log"; }

   // The neighbours on a port, as `lldp show neighbors detail --json` shows them; null when
   // the command failed.
   Vel::Json neighbours(const std::string& intf) const;

private:
   pid_t pid_ = -1;
   std::string name_;
   std::string socket_;
   std::string configPath_;
};

// One run of the command line: its exit status and what it printed.
struct CliRun {
   int status = -1;
   std::string out, err;
};

// Runs `lldp --socket SOCKET args...`, or with its output going to `outPath` and not
// waited for when `background` (returns the pid in `status`).
CliRun lldp(const std::string& socket, std::vector<std::string> args, bool background = false,
            const std::string& outPath = "") {
   static int runs = 0;
   const std::string base =
       "/tmp/lldp-e2e-cli-" + std::to_string(::getpid()) + "-" + std::to_string(++runs);
   const std::string out = outPath.empty() ? base + ".out" : outPath, err = base + ".err";
   args.insert(args.begin(), {LLDP_CLI, "--socket", socket});
   std::vector<char*> argv;
   for (auto& a : args) argv.push_back(a.data());
   argv.push_back(nullptr);
   posix_spawn_file_actions_t actions;
   posix_spawn_file_actions_init(&actions);
   posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
   posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
   CliRun r;
   pid_t pid = -1;
   const bool started = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0;
   posix_spawn_file_actions_destroy(&actions);
   if (!started) return r;
   if (background) {
      r.status = pid;
      return r;
   }
   int status = 0;
   ::waitpid(pid, &status, 0);
   r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
   r.out = readFile(out);
   r.err = readFile(err);
   ::unlink(out.c_str());
   ::unlink(err.c_str());
   return r;
}

Vel::Json lldpJson(const std::string& socket, std::vector<std::string> args) {
   args.push_back("--json");
   CliRun r = lldp(socket, std::move(args));
   if (r.status != 0) return nullptr;
   Vel::Json j = Vel::Json::parse(r.out, nullptr, false);
   return j.is_discarded() ? Vel::Json(nullptr) : j;
}

Vel::Json AgentProcess::neighbours(const std::string& intf) const {
   // A failed command is null, never an empty list that a wait could take for "gone".
   Vel::Json view = lldpJson(socket_, {"show", "neighbors", "detail"});
   if (!view.is_object()) return nullptr;
   if (!view["interfaces"].contains(intf)) return Vel::Json::array();
   return view["interfaces"][intf]["remoteSystem"];
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
                    return lldp(left.socket(), {"show", "local"}).status == 0 &&
                           lldp(right.socket(), {"show", "local"}).status == 0;
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

   // What one side advertises is what the other side stores.
   const Vel::Json leftLocal = lldpJson(left.socket(), {"show", "local"});
   for (auto [mine, theirs] : {std::pair{a1, b1}, std::pair{a2, b2}}) {
      const Vel::Json n = right.neighbours(theirs)[0];
      EXPECT_EQ(n["chassisIdentifier"], leftLocal["chassisIdentifier"]);
      EXPECT_EQ(n["chassisIdentifier"]["subtype"], "macAddress");  // the system MAC
      EXPECT_EQ(n["portIdentifier"], leftLocal["interfaces"][mine]["portIdentifier"]);
      EXPECT_EQ(n["portIdentifier"]["subtype"], "interfaceName");
      EXPECT_EQ(n["portIdentifier"]["value"], mine);
      EXPECT_EQ(n["sysName"], "left");
      EXPECT_EQ(n["ttl"], 4);
      // The fallback management address: the system MAC itself.
      ASSERT_EQ(n["managementAddress"].size(), 1u) << n.dump();
      EXPECT_EQ(n["managementAddress"], leftLocal["managementAddress"]);
      EXPECT_EQ(n["managementAddress"][0]["key"]["subtype"], "mac");
      EXPECT_EQ(n["managementAddress"][0]["key"]["address"],
                leftLocal["chassisIdentifier"]["value"]);
   }
   CliRun table = lldp(right.socket(), {"show", "neighbors"});
   EXPECT_EQ(table.status, 0);
   EXPECT_NE(table.out.find(b1 + "  " + leftLocal["chassisIdentifier"]["value"].get<std::string>() +
                            "  " + a1),
             std::string::npos)
       << table.out;
   EXPECT_NE(table.out.find("Total neighbors: 2"), std::string::npos) << table.out;
   const Vel::Json stats = lldpJson(right.socket(), {"show", "statistics", "interface", b1});
   EXPECT_GT(stats["interfaces"][b1]["rxFramesTotal"], 0);
   EXPECT_EQ(stats["interfaces"].size(), 1u);
   EXPECT_GE(stats["remTablesInserts"], 2);

   // Refusals: one line on standard error, status 2, nothing changed.
   for (const auto& args :
        std::vector<std::vector<std::string>>{{"show", "neighbors", "interface", "nosuch0"},
                                              {"frobnicate"},
                                              {"configure", "lldp hold-time 7", "lldp timer 0"}}) {
      CliRun r = lldp(right.socket(), args);
      EXPECT_EQ(r.status, 2) << args[0];
      EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
   }
   EXPECT_EQ(lldp("/tmp/lldp-e2e-nobody.sock", {"show", "local"}).status, 2);
   const std::string config = lldp(right.socket(), {"show", "configuration"}).out;
   EXPECT_NE(config.find("lldp hold-time 4\n"), std::string::npos) << config;
   EXPECT_EQ(config.find("hold-time 7"), std::string::npos) << config;

   // Live configuration: the left agent's new hold time reaches the right's table.
   const std::string watchOut = "/tmp/lldp-e2e-watch-" + tag + ".out";
   const pid_t watcher = lldp(right.socket(), {"watch", "--json"}, true, watchOut).status;
   ASSERT_GT(watcher, 0);
   ASSERT_EQ(lldp(left.socket(), {"configure", "lldp hold-time 5"}).status, 0);
   EXPECT_NE(lldp(left.socket(), {"show", "configuration"}).out.find("lldp hold-time 5\n"),
             std::string::npos);
   EXPECT_GE(waitFor(
                 [&] {
                    const Vel::Json n = right.neighbours(b2);
                    return n.size() == 1 && n[0]["ttl"] == 5;
                 },
                 3),
             0);

   // Clearing empties the tables, is logged with who asked, and the next frames refill them.
   CliRun cleared = lldp(right.socket(), {"clear", "neighbors"});
   EXPECT_EQ(cleared.status, 0);
   EXPECT_EQ(cleared.out, "Cleared 2 neighbors.\n");
   EXPECT_NE(
       readFile(right.logPath()).find("LLDP_REMOTE_TABLES_CLEARED: LLDP neighbor table cleared by"),
       std::string::npos);
   // Both links refill: each from its own next frame, up to a transmit interval apart.
   EXPECT_GE(
       waitFor([&] { return right.neighbours(b1).size() == 1 && right.neighbours(b2).size() == 1; },
               3),
       0);

   // One link down: its neighbour goes on the other side at once; the other link stays.
   ASSERT_TRUE(TestSupport::ipIn(ns.nsA(), "link set " + a1 + " down"));
   EXPECT_GE(waitFor([&] { return right.neighbours(b1) == Vel::Json::array(); }, 2), 0);
   EXPECT_EQ(right.neighbours(b2).size(), 1u);

   // The watch saw the clear remove both neighbours, the next frames add them again and
   // the link going down remove one (a new TTL alone is a refresh, not a change).
   ::kill(watcher, SIGTERM);
   ::waitpid(watcher, nullptr, 0);
   std::map<std::string, int> events;
   std::istringstream lines(readFile(watchOut));
   for (std::string line; std::getline(lines, line);) {
      Vel::Json e = Vel::Json::parse(line, nullptr, false);
      ASSERT_FALSE(e.is_discarded()) << line;
      events[e["event"].get<std::string>() + " " + e["interface"].get<std::string>()]++;
   }
   ::unlink(watchOut.c_str());
   EXPECT_EQ(events["removed " + b1], 2);
   EXPECT_EQ(events["removed " + b2], 1);
   EXPECT_EQ(events["added " + b1], 1);
   EXPECT_EQ(events["added " + b2], 1);

   // A stopped agent sends nothing more: its neighbour ages out after the TTL.
   EXPECT_EQ(left.stop(), 0);
   const auto stopped = Clock::now();
   EXPECT_GE(waitFor([&] { return right.neighbours(b2) == Vel::Json::array(); }, 6), 0);
   const double aged = std::chrono::duration<double>(Clock::now() - stopped).count();
   EXPECT_GT(aged, 2.0);  // not before most of the 4 s TTL has run
   EXPECT_EQ(right.stop(), 0);
}

}  // namespace

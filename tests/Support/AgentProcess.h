// Processes in tests that run our programs for real: a child process whose output goes to a
// file, our daemon inside a network namespace, and one run of the `lldp` command line.
// Everything started here is stopped, and every file removed, when its object goes, so a
// failed check leaves nothing behind. The including test target defines LLDP_AGENT and
// LLDP_CLI, the paths of the two programs.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "Framework/Vel/Json.h"
#include "tests/Support/Poll.h"
#include "tests/Support/Spawn.h"

namespace TestSupport {

// A unique path for one of this test process's files, so tests running side by side do not
// meet.
inline std::string tmpName(const std::string& what) {
   return "/tmp/lldp-test-" + std::to_string(::getpid()) + "-" + what;
}

// A child process with standard output and error sent to a file. Killed (SIGKILL) and
// reaped when the object goes, unless stopped before.
class Process {
public:
   Process() = default;
   Process(const std::vector<std::string>& args, const std::string& logPath) {
      start(args, logPath);
   }
   ~Process() { stop(SIGKILL); }
   Process(const Process&) = delete;
   Process& operator=(const Process&) = delete;

   bool start(const std::vector<std::string>& args, const std::string& logPath) {
      stop(SIGKILL);
      pid_ = spawn(args, logPath);
      return pid_ > 0;
   }
   bool running() const { return pid_ > 0; }
   pid_t pid() const { return pid_; }
   // Sends the signal and waits; returns the exit status (128 + signal when killed).
   // SIGKILL goes to the process's whole group (spawn() gives it one of its own) at the same
   // moment: a daemon that forked a worker must vanish whole, not leave the worker to say
   // goodbye.
   int stop(int sig = SIGTERM) {
      if (pid_ <= 0) return -1;
      const pid_t group = pid_;
      ::kill(sig == SIGKILL ? -group : group, sig);
      const int status = reap(std::exchange(pid_, -1));
      // The rest of the group was re-parented away from us; wait until it is gone.
      if (sig == SIGKILL) waitFor([&] { return ::kill(-group, 0) != 0; }, 2);
      return status;
   }
   // Waits for the process to end by itself, at most `timeout` seconds.
   bool waitExit(double timeout) {
      const auto ended = [&] { return pid_ <= 0 || ::waitpid(pid_, nullptr, WNOHANG) == pid_; };
      if (waitFor(ended, timeout) < 0) return false;
      pid_ = -1;
      return true;
   }

private:
   pid_t pid_ = -1;
};

// One finished run of the command line: its exit status and what it printed.
struct CliRun {
   int status = -1;
   std::string out, err;
};

// `lldp --socket SOCKET ARGS...`, run to the end. Each argument is one word, spaces and all.
inline CliRun runCli(const std::string& socket, std::vector<std::string> args) {
   static int runs = 0;
   const std::string base = tmpName("cli-" + std::to_string(++runs));
   const std::string out = base + ".out", err = base + ".err";
   args.insert(args.begin(), {LLDP_CLI, "--socket", socket});
   CliRun r;
   if (const pid_t pid = spawn(args, out, err); pid > 0) {
      r.status = reap(pid);
      r.out = readFile(out);
      r.err = readFile(err);
   }
   ::unlink(out.c_str());
   ::unlink(err.c_str());
   return r;
}

// Our daemon in a namespace, read through the `lldp` command line as a user reads it. When
// the test has failed, the daemon's log is printed as the object goes.
class Agent {
public:
   Agent(const std::string& ns, const std::string& name, const std::string& interfaces,
         const std::string& config)
       : name_(name),
         socket_(tmpName(name + ".sock")),
         configPath_(tmpName(name + ".conf")),
         logPath_(tmpName(name + ".log")) {
      std::ofstream(configPath_) << config;
      proc_.start({"ip", "netns", "exec", ns, LLDP_AGENT, "--config", configPath_, "--socket",
                   socket_, "--interfaces", interfaces, "--foreground"},
                  logPath_);
   }
   ~Agent() {
      stop();
      if (::testing::Test::HasFailure()) {
         std::fprintf(stderr, "--- log of agent %s:\n%s", name_.c_str(), log().c_str());
      }
      ::unlink(configPath_.c_str());
      ::unlink(logPath_.c_str());
   }
   // Started and answering on its control socket (waited for, up to ten seconds): a client
   // started next finds the socket there.
   bool running() const {
      if (!proc_.running()) return false;
      if (!ready_) ready_ = waitFor([&] { return answers(socket_); }, 10) >= 0;
      return ready_;
   }
   pid_t pid() const { return proc_.pid(); }
   // SIGTERM and wait: the agent cleans up and exits 0.
   int stop() { return proc_.stop(SIGTERM); }
   const std::string& socket() const { return socket_; }
   std::string log() const { return readFile(logPath_); }

   CliRun run(std::vector<std::string> args) const { return runCli(socket_, std::move(args)); }
   // `lldp ... ARGS --json`, parsed; null when it failed or printed no JSON.
   Vel::Json cli(std::vector<std::string> args) const {
      args.push_back("--json");
      const CliRun r = run(std::move(args));
      if (r.status != 0) return nullptr;
      Vel::Json j = Vel::Json::parse(r.out, nullptr, false);
      return j.is_discarded() ? Vel::Json(nullptr) : j;
   }
   Vel::Json local() const { return cli({"show", "local"}); }
   // The neighbours on one port (`show neighbors detail`): an empty array when none, null
   // when the command failed, so that a wait for "gone" is never met by a failure.
   Vel::Json neighbours(const std::string& intf) const {
      const Vel::Json all = cli({"show", "neighbors", "detail"});
      if (!all.is_object() || !all.contains("interfaces")) return nullptr;
      const Vel::Json& intfs = all["interfaces"];
      if (!intfs.contains(intf)) return Vel::Json::array();
      return intfs[intf].value("remoteSystem", Vel::Json::array());
   }

private:
   static bool answers(const std::string& path) {
      sockaddr_un addr{};
      addr.sun_family = AF_UNIX;
      if (path.size() >= sizeof(addr.sun_path)) return false;
      path.copy(addr.sun_path, path.size());
      const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      const bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
      ::close(fd);
      return ok;
   }

   std::string name_, socket_, configPath_, logPath_;
   Process proc_;
   mutable bool ready_ = false;
};

}  // namespace TestSupport

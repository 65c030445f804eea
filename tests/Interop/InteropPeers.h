// The processes of an interoperation test: our daemon, an independent LLDP daemon run as a
// black-box peer, and a packet capture, each inside a network namespace the test created.
// Every process is stopped and every file removed when its object goes, so a failed check
// leaves nothing behind. Header only: the interop test is the one user.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Framework/Vel/Json.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/Poll.h"

extern char** environ;

namespace Interop {

using Json = Vel::Json;
using Clock = std::chrono::steady_clock;

// A unique prefix for this process's files, so tests running side by side do not meet.
inline std::string tmpName(const std::string& what) {
   return "/tmp/lldp-interop-" + std::to_string(::getpid()) + "-" + what;
}

using TestSupport::readFile;
using TestSupport::waitFor;

// j[k1][k2]... without throwing or asserting: null when any step is missing.
inline Json at(const Json& j, std::initializer_list<const char*> keys) {
   const Json* cur = &j;
   for (const char* k : keys) {
      if (!cur->is_object() || !cur->contains(k)) return nullptr;
      cur = &(*cur)[k];
   }
   return *cur;
}

// True when the program is found on PATH (or is an existing absolute path).
inline bool haveProgram(const std::string& name) {
   return TestSupport::runCmd("command -v " + name + " >/dev/null");
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
      std::vector<std::string> copy = args;
      std::vector<char*> argv;
      for (auto& a : copy) argv.push_back(a.data());
      argv.push_back(nullptr);
      posix_spawn_file_actions_t actions;
      posix_spawn_file_actions_init(&actions);
      posix_spawn_file_actions_addopen(&actions, 1, logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                       0644);
      posix_spawn_file_actions_adddup2(&actions, 1, 2);
      if (posix_spawnp(&pid_, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
      posix_spawn_file_actions_destroy(&actions);
      return pid_ > 0;
   }
   bool running() const { return pid_ > 0; }
   // Sends the signal and waits; returns the exit status (128 + signal when killed).
   // SIGKILL takes the process's descendants with it at the same moment: a daemon that
   // forked a worker must vanish whole, not leave the worker to say goodbye.
   int stop(int sig = SIGTERM) {
      if (pid_ <= 0) return -1;
      std::vector<pid_t> family;
      if (sig == SIGKILL) family = descendants(pid_);
      for (pid_t p : family) ::kill(p, SIGKILL);
      ::kill(pid_, sig);
      int status = 0;
      ::waitpid(pid_, &status, 0);
      pid_ = -1;
      // The descendants were re-parented away from us; wait until they are gone.
      waitFor(
          [&] {
             for (pid_t p : family) {
                if (::kill(p, 0) == 0) return false;
             }
             return true;
          },
          2);
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
   }

   // Every process below `root`, from the parent links in /proc.
   static std::vector<pid_t> descendants(pid_t root) {
      std::vector<std::pair<pid_t, pid_t>> parentOf;  // (pid, ppid)
      if (DIR* d = ::opendir("/proc")) {
         while (dirent* e = ::readdir(d)) {
            const pid_t pid = static_cast<pid_t>(std::atoi(e->d_name));
            if (pid <= 0) continue;
            const std::string stat = readFile("/proc/" + std::string(e->d_name) + "/stat");
            const size_t close = stat.rfind(')');
            if (close == std::string::npos) continue;
            // After the command name: state, then the parent's pid.
            std::istringstream rest(stat.substr(close + 1));
            std::string state;
            pid_t ppid = 0;
            rest >> state >> ppid;
            parentOf.emplace_back(pid, ppid);
         }
         ::closedir(d);
      }
      std::vector<pid_t> out = {root};
      for (size_t i = 0; i < out.size(); ++i) {
         for (auto [pid, ppid] : parentOf) {
            if (ppid == out[i]) out.push_back(pid);
         }
      }
      out.erase(out.begin());
      return out;
   }
   // Waits for the process to end by itself, at most `timeout` seconds.
   bool waitExit(double timeout) {
      return waitFor(
                 [&] {
                    int status = 0;
                    if (pid_ > 0 && ::waitpid(pid_, &status, WNOHANG) == pid_) pid_ = -1;
                    return pid_ <= 0;
                 },
                 timeout) >= 0;
   }

private:
   pid_t pid_ = -1;
};

// Our daemon in a namespace, read through the `lldp` command line as a user reads it.
class Agent {
public:
   Agent(const std::string& ns, const std::string& name, const std::string& interfaces,
         const std::string& config)
       : socket_(tmpName(name + ".sock")),
         configPath_(tmpName(name + ".conf")),
         logPath_(tmpName(name + ".log")) {
      std::ofstream(configPath_) << config;
      proc_.start({"ip", "netns", "exec", ns, LLDP_AGENT, "--config", configPath_, "--socket",
                   socket_, "--interfaces", interfaces, "--foreground"},
                  logPath_);
   }
   ~Agent() {
      stop();
      ::unlink(configPath_.c_str());
      ::unlink(logPath_.c_str());
   }
   bool running() const { return proc_.running(); }
   int stop() { return proc_.stop(SIGTERM); }
   const std::string& socket() const { return socket_; }
   std::string log() const { return readFile(logPath_); }

   // `lldp --socket S ARGS --json`, parsed; null when it failed or printed no JSON.
   Json cli(const std::string& args) const {
      std::string out;
      if (!TestSupport::runCmd(
              std::string(LLDP_CLI) + " --socket " + socket_ + " " + args + " --json 2>/dev/null",
              &out)) {
         return nullptr;
      }
      return Json::parse(out, nullptr, false);
   }
   Json local() const { return cli("show local"); }
   // The neighbours on one port (`show neighbors detail`); an empty array when none.
   Json neighbours(const std::string& intf) const {
      // A failed command is null, never an empty list that a wait could take for "gone".
      const Json all = cli("show neighbors detail");
      if (!all.is_object() || !all.contains("interfaces")) return nullptr;
      const Json& intfs = all["interfaces"];
      if (!intfs.contains(intf)) return Json::array();
      return intfs[intf].value("remoteSystem", Json::array());
   }

private:
   std::string socket_, configPath_, logPath_;
   Process proc_;
};

// lldpd in a namespace with its own control socket and pid file, configured through
// lldpcli. Its JSON writes a single member as an object and several as an array; list()
// and members() below smooth that over.
class Lldpd {
public:
   // `medClass` 0 sends no LLDP-MED, 1..4 makes it an LLDP-MED device of that class.
   Lldpd(const std::string& ns, const std::string& name, const std::string& interfaces,
         int medClass = 0)
       : ns_(ns),
         interfaces_(interfaces),
         medClass_(medClass),
         socket_(tmpName(name + ".lldpd.sock")),
         pidPath_(tmpName(name + ".lldpd.pid")),
         logPath_(tmpName(name + ".lldpd.log")) {
      start();
   }
   ~Lldpd() {
      proc_.stop(SIGKILL);
      cleanFiles();
      ::unlink(logPath_.c_str());
   }

   // -dd: stay in the foreground and log to standard error only; -L '': read no
   // configuration files at start, so only what the test sets through lldpcli applies.
   bool start() {
      std::vector<std::string> args = {"ip", "netns", "exec",  ns_,  "lldpd",  "-dd", "-L",
                                       "",   "-u",    socket_, "-p", pidPath_, "-I",  interfaces_};
      if (medClass_ > 0) {
         args.push_back("-M");
         args.push_back(std::to_string(medClass_));
      }
      if (!proc_.start(args, logPath_)) return false;
      // Ready once its control socket answers.
      return waitFor(
                 [&] {
                    return TestSupport::runIn(
                        ns_, "lldpcli -u " + socket_ + " show configuration >/dev/null");
                 },
                 5) >= 0;
   }
   bool running() const { return proc_.running(); }
   // SIGTERM: lldpd says goodbye with a shutdown LLDPDU; SIGKILL: it vanishes.
   int stop(int sig) {
      const int status = proc_.stop(sig);
      cleanFiles();
      return status;
   }
   std::string log() const { return readFile(logPath_); }

   // One lldpcli command, through the shell (quote words with spaces in them); false,
   // with what lldpcli said in `out`, when it failed.
   bool cli(const std::string& cmd, std::string* out = nullptr) const {
      return TestSupport::runIn(ns_, "lldpcli -u " + socket_ + " " + cmd, out);
   }
   Json json(const std::string& cmd) const {
      std::string out;
      if (!cli("-f json " + cmd, &out)) return nullptr;
      return Json::parse(out, nullptr, false);
   }
   // `show neighbors details` / `show interfaces details`, as (interface, entry) pairs.
   std::vector<std::pair<std::string, Json>> neighbours() const {
      return members(at(json("show neighbors details"), {"lldp", "interface"}));
   }
   std::vector<std::pair<std::string, Json>> interfaces() const {
      return members(at(json("show interfaces details"), {"lldp", "interface"}));
   }

   // A member that may be absent, one object or an array of them, as an array.
   static Json list(const Json& j) {
      if (j.is_null()) return Json::array();
      if (j.is_array()) return j;
      return Json::array({j});
   }
   // {"name": {...}} or [{"name": {...}}, ...] as (name, value) pairs.
   static std::vector<std::pair<std::string, Json>> members(const Json& j) {
      std::vector<std::pair<std::string, Json>> out;
      for (const Json& item : list(j)) {
         if (!item.is_object()) continue;
         for (auto it = item.begin(); it != item.end(); ++it)
            out.emplace_back(it.key(), it.value());
      }
      return out;
   }

private:
   void cleanFiles() {
      for (const std::string& f : {socket_, socket_ + ".lock", pidPath_}) ::unlink(f.c_str());
   }
   std::string ns_, interfaces_;
   int medClass_;
   std::string socket_, pidPath_, logPath_;
   Process proc_;
};

}  // namespace Interop

// The peers of an interoperation test: an independent LLDP daemon run as a black-box peer
// inside a network namespace the test created, next to our own daemon (tests/Support).
// Every process is stopped and every file removed when its object goes, so a failed check
// leaves nothing behind. Header only: the interop test is the one user.
#pragma once

#include <signal.h>
#include <unistd.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "Framework/Vel/Json.h"
#include "tests/Support/AgentProcess.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/Poll.h"

namespace Interop {

using Json = Vel::Json;

using TestSupport::Agent;
using TestSupport::haveProgram;
using TestSupport::Process;
using TestSupport::readFile;
using TestSupport::tmpName;
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

// lldpd in a namespace with its own control socket and pid file, configured through
// lldpcli, sending every second. Its JSON writes a single member as an object and several
// as an array; list() and members() below smooth that over.
class Lldpd {
public:
   // `medClass` 0 sends no LLDP-MED, 1..4 makes it an LLDP-MED device of that class.
   // -dd: stay in the foreground and log to standard error only; -L '': read no
   // configuration files at start, so only what the test sets through lldpcli applies.
   Lldpd(const std::string& ns, const std::string& name, const std::string& interfaces,
         int medClass = 0)
       : ns_(ns),
         socket_(tmpName(name + ".lldpd.sock")),
         pidPath_(tmpName(name + ".lldpd.pid")),
         logPath_(tmpName(name + ".lldpd.log")) {
      std::vector<std::string> args = {"ip", "netns", "exec",  ns_,  "lldpd",  "-dd", "-L",
                                       "",   "-u",    socket_, "-p", pidPath_, "-I",  interfaces};
      if (medClass > 0) args.insert(args.end(), {"-M", std::to_string(medClass)});
      // Ready once its control socket answers; then it is told to send every second.
      if (proc_.start(args, logPath_) && waitFor([&] { return cli("show configuration"); }, 5) >= 0)
         cli("configure lldp tx-interval 1");
   }
   ~Lldpd() {
      proc_.stop(SIGKILL);
      cleanFiles();
      ::unlink(logPath_.c_str());
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
   // `show neighbors details`, as (interface, entry) pairs.
   std::vector<std::pair<std::string, Json>> neighbours() const {
      return members(at(json("show neighbors details"), {"lldp", "interface"}));
   }
   // The neighbour lldpd holds on one of its ports, null while there is none. Given a
   // chassis ID, the one with that identity: lldpd keeps a neighbour with a stale identity
   // until its TTL runs out.
   Json neighbour(const std::string& intf, const std::string& chassisId = "") const {
      for (auto& [name, entry] : neighbours()) {
         if (name != intf) continue;
         for (auto& [sysName, chassis] : members(entry["chassis"])) {
            if (chassisId.empty() || at(chassis, {"id", "value"}) == chassisId) return entry;
         }
      }
      return nullptr;
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
   std::string ns_, socket_, pidPath_, logPath_;
   Process proc_;
};

// tshark capturing the LLDP frames on a port of a namespace (`filter` narrows them further)
// until `count` frames or `seconds` have passed; then the capture decoded in full (-V) and
// the analyser's expert summary, the two things a test judges our frames by.
class Tshark {
public:
   Tshark(const std::string& ns, const std::string& intf, const std::string& name, int count,
          int seconds, const std::string& filter = "")
       : pcap_(tmpName(name + ".pcap")), logPath_(tmpName(name + ".tshark.log")) {
      proc_.start({"ip", "netns", "exec", ns, "tshark", "-i", intf, "-f",
                   "ether proto 0x88cc" + (filter.empty() ? "" : " and " + filter), "-c",
                   std::to_string(count), "-a", "duration:" + std::to_string(seconds), "-w", pcap_},
                  logPath_);
   }
   ~Tshark() {
      proc_.stop(SIGKILL);
      for (const std::string& f : {pcap_, logPath_}) ::unlink(f.c_str());
   }
   std::string log() const { return readFile(logPath_); }
   // Whether it has started capturing, within `seconds`.
   bool capturing(double seconds = 10) const {
      return waitFor([&] { return log().find("Capturing on") != std::string::npos; }, seconds) >= 0;
   }
   // Waits for the capture to end and decodes it; false when tshark did not finish or could
   // not read what it wrote (the reason is then in `decoded`).
   bool decode(std::string* decoded, std::string* expert) {
      if (!proc_.waitExit(12)) {
         *decoded = "the capture did not end: " + log();
         return false;
      }
      return TestSupport::runCmd("tshark -r " + pcap_ + " -V", decoded) &&
             TestSupport::runCmd("tshark -r " + pcap_ + " -q -z expert", expert);
   }

private:
   std::string pcap_, logPath_;
   Process proc_;
};

}  // namespace Interop

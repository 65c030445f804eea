// A real snmpd in a network namespace as AgentX master for the agent under test: its AgentX
// socket private to the test, community "public" answered on the namespace's 127.0.0.1:1161
// only, its state and log in files of its own that go with it. `extraConfig` adds lines to
// its configuration (a trap sink, the AgentX socket's permissions).
#pragma once

#include <signal.h>
#include <sys/stat.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "tests/Support/AgentProcess.h"
#include "tests/Support/IpCmd.h"

namespace TestSupport {

// OID -> value as `snmpwalk -On -Oq` prints it (quotes taken off strings).
using SnmpWalk = std::map<std::string, std::string>;

class Snmpd {
public:
   Snmpd(const std::string& ns, const std::string& name, const std::string& extraConfig = "")
       : ns_(ns), base_(tmpName(name)) {
      ::mkdir((base_ + "-state").c_str(), 0700);
      std::ofstream(base_ + ".conf") << "master agentx\nagentXSocket unix:" << agentx()
                                     << "\nagentaddress udp:127.0.0.1:1161\n"
                                     << "rocommunity public 127.0.0.1\n"
                                     << extraConfig;
      start();
   }
   ~Snmpd() {
      proc_.stop(SIGKILL);
      runCmd("rm -rf " + base_ + "*");
   }
   Snmpd(const Snmpd&) = delete;
   Snmpd& operator=(const Snmpd&) = delete;

   std::string agentx() const { return base_ + ".agentx"; }
   void start() {
      proc_.start(
          {"ip", "netns", "exec", ns_, "env", "SNMP_PERSISTENT_DIR=" + base_ + "-state", "snmpd",
           "-f", "-Lf", base_ + ".log", "-C", "-c", base_ + ".conf", "-p", base_ + ".pid"},
          base_ + ".out");
   }
   void stop() { proc_.stop(SIGTERM); }

   // What `snmpwalk -On -Oq` prints for the subtree; `retry` its timeout and retry options
   // (a short one finds a stopped snmpd quickly).
   std::string walkText(const std::string& oid, const std::string& retry = "-t 2 -r 1") const {
      std::string out;
      runIn(ns_, "snmpwalk -v2c -c public -On -Oq " + retry + " 127.0.0.1:1161 " + oid, &out);
      return out;
   }
   SnmpWalk walk(const std::string& oid) const {
      SnmpWalk w;
      std::istringstream lines(walkText(oid));
      for (std::string line; std::getline(lines, line);) {
         const size_t sp = line.find(' ');
         if (line.empty() || line[0] != '.' || sp == std::string::npos) continue;
         std::string v = line.substr(sp + 1);
         if (v.size() >= 2 && v.front() == '"' && v.back() == '"') v = v.substr(1, v.size() - 2);
         w[line.substr(0, sp)] = v;
      }
      return w;
   }

private:
   std::string ns_, base_;
   Process proc_;
};

}  // namespace TestSupport

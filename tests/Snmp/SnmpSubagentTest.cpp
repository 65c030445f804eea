// lldp-agent --agentx through a real snmpd: the master runs in a network namespace of the
// test with a private AgentX socket and a loopback-only community, and `snmpwalk -On`
// reads our agent by numeric OIDs. The neighbour is lldpd on a veth, sending LLDP-MED
// and IEEE 802.1/802.3 TLVs. Root only; skips without snmpd, snmp or lldpd.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "tests/Interop/InteropPeers.h"
#include "tests/Support/AgentProcess.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/Poll.h"

namespace {

using TestSupport::Process;
using TestSupport::readFile;
using TestSupport::runCmd;
using TestSupport::runIn;
using TestSupport::tmpName;
using TestSupport::waitFor;

const std::string lldpMib = ".1.0.8802.1.1.2";
const std::string remTable = lldpMib + ".1.4.1.1";

// OID -> value as `snmpwalk -On -Oq` prints it (quotes taken off strings).
using Walk = std::map<std::string, std::string>;

// A namespace's snmpd as AgentX master, answering community "public" on 127.0.0.1 only,
// sending notifications to a trap receiver on the namespace's loopback.
class Snmpd {
public:
   Snmpd(const std::string& ns, const std::string& name) : ns_(ns), base_(tmpName(name)) {
      ::mkdir((base_ + "-state").c_str(), 0700);
      std::ofstream(base_ + ".conf") << "master agentx\nagentXSocket unix:" << agentx()
                                     << "\nagentaddress udp:127.0.0.1:1161\n"
                                     << "rocommunity public 127.0.0.1\n"
                                     << "trap2sink 127.0.0.1:1162 public\n";
      start();
   }
   ~Snmpd() {
      proc_.stop(SIGKILL);
      runCmd("rm -rf " + base_ + "*");
   }
   std::string agentx() const { return base_ + ".agentx"; }
   void start() {
      proc_.start(
          {"ip", "netns", "exec", ns_, "env", "SNMP_PERSISTENT_DIR=" + base_ + "-state", "snmpd",
           "-f", "-Lf", base_ + ".log", "-C", "-c", base_ + ".conf", "-p", base_ + ".pid"},
          base_ + ".out");
   }
   void stop() { proc_.stop(SIGTERM); }
   Walk walk(const std::string& oid) const {
      std::string out;
      runIn(ns_, "snmpwalk -v2c -c public -On -Oq -t 2 -r 1 127.0.0.1:1161 " + oid, &out);
      Walk w;
      std::istringstream lines(out);
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

// The values of one column of a walk, whatever their index.
std::multiset<std::string> column(const Walk& w, const std::string& col) {
   std::multiset<std::string> out;
   for (const auto& [oid, v] : w) {
      if (oid.rfind(col + ".", 0) == 0) out.insert(v);
   }
   return out;
}

size_t countUnder(const Walk& w, const std::string& prefix) {
   return column(w, prefix).size();
}

// Our agent in namespace "a", lldpd in "c" on a veth a1 <-> c1. With `withLldpdMaster`,
// lldpd also has c2 to a namespace "b" where a second lldpd serves the same MIB itself
// through its own snmpd, so both read the same far-side neighbour.
class SnmpLab {
public:
   explicit SnmpLab(bool withLldpdMaster = false) {
      const std::string id = std::to_string(::getpid());
      nsA_ = "snmpA" + id;
      nsB_ = "snmpB" + id;
      nsC_ = "snmpC" + id;
      for (const auto& ns : {nsA_, nsB_, nsC_}) {
         if (!runCmd("ip netns add " + ns)) {
            error_ = "cannot create network namespaces (needs root)";
            return;
         }
         created_.push_back(ns);
         TestSupport::ipIn(ns, "link set lo up");
      }
      runCmd("ip link add a1 netns " + nsA_ + " type veth peer name c1 netns " + nsC_);
      runCmd("ip link add b1 netns " + nsB_ + " type veth peer name c2 netns " + nsC_);
      for (auto [ns, intf] : {std::pair{nsA_, "a1"}, {nsC_, "c1"}, {nsC_, "c2"}, {nsB_, "b1"}}) {
         TestSupport::ipIn(ns, std::string("link set ") + intf + " up");
      }
      snmpd_ = std::make_unique<Snmpd>(nsA_, "snmpd-a");
      const std::string conf = tmpName("agent.conf");
      std::ofstream(conf) << "lldp timer 5\n";
      agentLog_ = tmpName("agent.log");
      agent_.start({"ip",
                    "netns",
                    "exec",
                    nsA_,
                    LLDP_AGENT,
                    "--config",
                    conf,
                    "--socket",
                    tmpName("agent.sock"),
                    "--interfaces",
                    "a1",
                    "--foreground",
                    "--agentx",
                    snmpd_->agentx(),
                    "--snmp-notify",
                    "a*",
                    "--snmp-notify-interval",
                    "5",
                    "--trace",
                    "LldpSnmp/0-4"},
                   agentLog_);
      far_ = std::make_unique<Interop::Lldpd>(nsC_, "far", "c1,c2", 1);
      far_->cli("configure lldp tx-interval 1");
      far_->cli("configure system hostname far-side");
      far_->cli("configure med policy application voice vlan 10 priority voice dscp 46");
      far_->cli("configure med location elin 5551234567");
      if (withLldpdMaster) {
         lldpdSnmpd_ = std::make_unique<Snmpd>(nsB_, "snmpd-b");
         near_.start(
             {"ip", "netns", "exec", nsB_, "lldpd", "-dd", "-L", "", "-u", tmpName("near.sock"),
              "-p", tmpName("near.pid"), "-I", "b1", "-x", "-X", lldpdSnmpd_->agentx()},
             tmpName("near.log"));
      }
   }
   ~SnmpLab() {
      near_.stop(SIGKILL);
      far_.reset();
      agent_.stop(SIGTERM);
      if (::testing::Test::HasFailure()) {
         std::fprintf(stderr, "--- agent log:\n%s", readFile(agentLog_).c_str());
      }
      snmpd_.reset();
      lldpdSnmpd_.reset();
      for (const auto& ns : created_) runCmd("ip netns del " + ns);
      runCmd("rm -f " + tmpName("agent") + "* " + tmpName("near") + "*");
   }
   const std::string& error() const { return error_; }
   Snmpd& snmpd() { return *snmpd_; }
   Snmpd& lldpdSnmpd() { return *lldpdSnmpd_; }
   const std::string& nsA() const { return nsA_; }

   // Walks until `ok` holds (generous: the machine may be loaded).
   Walk walkUntil(Snmpd& s, const std::string& oid, const std::function<bool(const Walk&)>& ok,
                  double timeout = 40) {
      Walk w;
      waitFor(
          [&] {
             w = s.walk(oid);
             return ok(w);
          },
          timeout);
      return w;
   }

private:
   std::string error_, nsA_, nsB_, nsC_, agentLog_;
   std::vector<std::string> created_;
   std::unique_ptr<Snmpd> snmpd_, lldpdSnmpd_;
   std::unique_ptr<Interop::Lldpd> far_;
   Process agent_, near_;
};

bool haveTools() {
   for (const char* p : {"snmpd", "snmpwalk", "snmptrapd", "lldpd", "lldpcli"}) {
      if (!Interop::haveProgram(p)) return false;
   }
   return true;
}

TEST(SnmpSubagent, ServesLocalSystemNeighbourCountersAndExtensions) {
   if (::geteuid() != 0 || !haveTools()) GTEST_SKIP() << "needs root, snmpd, snmp, lldpd";
   SnmpLab lab;
   ASSERT_TRUE(lab.error().empty()) << lab.error();
   // The neighbour, with its LLDP-MED inventory, is in.
   const std::string medRem = lldpMib + ".1.5.4795.1.3";
   Walk w = lab.walkUntil(lab.snmpd(), lldpMib, [&](const Walk& x) {
      return column(x, remTable + ".9").count("far-side") && countUnder(x, medRem + ".3.1") > 0;
   });
   // Local system: chassis ID subtype MAC address, one local port (a1, by interface name).
   EXPECT_EQ(w[lldpMib + ".1.3.1.0"], "4");
   EXPECT_EQ(column(w, lldpMib + ".1.3.7.1.3"), std::multiset<std::string>{"a1"});
   EXPECT_EQ(w[lldpMib + ".1.1.1.0"], "5");  // lldp timer 5
   // The neighbour row is indexed by time mark 0, a1's ifindex and index 1.
   std::string ifIndex;
   runIn(lab.nsA(), "cat /sys/class/net/a1/ifindex", &ifIndex);
   ifIndex.erase(ifIndex.find_last_not_of("\n") + 1);
   EXPECT_EQ(w[remTable + ".9.0." + ifIndex + ".1"], "far-side");
   EXPECT_EQ(w[remTable + ".6.0." + ifIndex + ".1"], "3");  // lldpd: port ID is the MAC
   // Extensions: IEEE 802.3 MAC/PHY and link aggregation, LLDP-MED capabilities, media policy
   // (voice: bit 1 of PolicyAppType, index length 2) and the ELIN location.
   EXPECT_EQ(countUnder(w, lldpMib + ".1.5.4623.1.3.1.1.4"), 1u);  // MAC/PHY: MAU type
   EXPECT_EQ(countUnder(w, lldpMib + ".1.5.4623.1.3.3.1.1"), 1u);  // link aggregation
   EXPECT_EQ(countUnder(w, medRem + ".1.1.3"), 1u);
   EXPECT_EQ(w[medRem + ".2.1.2.0." + ifIndex + ".1.2.64.0"], "10");
   EXPECT_EQ(w[medRem + ".2.1.4.0." + ifIndex + ".1.2.64.0"], "46");
   EXPECT_EQ(w[medRem + ".4.1.2.0." + ifIndex + ".1.4"], "5551234567");
   // Counters move: lldpd sends every second.
   const std::string rxTotal = lldpMib + ".1.2.7.1.4." + ifIndex;
   const long before = std::atol(w[rxTotal].c_str());
   Walk later = lab.walkUntil(lab.snmpd(), lldpMib + ".1.2.7", [&](const Walk& x) {
      return x.count(rxTotal) && std::atol(x.at(rxTotal).c_str()) > before;
   });
   EXPECT_GT(std::atol(later[rxTotal].c_str()), before);
   EXPECT_EQ(w[lldpMib + ".1.2.2.0"], "1");  // lldpStatsRemTablesInserts
}

TEST(SnmpSubagent, NotifiesAndRegistersAgainWhenTheMasterRestarts) {
   if (::geteuid() != 0 || !haveTools()) GTEST_SKIP() << "needs root, snmpd, snmp, lldpd";
   SnmpLab lab;
   ASSERT_TRUE(lab.error().empty()) << lab.error();
   const std::string trapLog = tmpName("traps.log"), trapConf = tmpName("traps.conf");
   std::ofstream(trapConf) << "disableAuthorization yes\n";
   Process traps({"ip", "netns", "exec", lab.nsA(), "snmptrapd", "-f", "-C", "-c", trapConf, "-Lf",
                  trapLog, "-On", "-p", tmpName("traps.pid"), "udp:127.0.0.1:1162"},
                 tmpName("traps.out"));
   // The neighbour's arrival on a1 (notifications on for a*) is announced.
   EXPECT_GE(
       waitFor([&] { return readFile(trapLog).find(".1.0.8802.1.1.2.0.0.1") != std::string::npos; },
               40),
       0)
       << readFile(trapLog);

   lab.snmpd().stop();
   lab.snmpd().start();
   const double back =
       waitFor([&] { return lab.snmpd().walk(lldpMib + ".1.3.3").size() == 1; }, 40);
   EXPECT_GE(back, 0) << "not registered again after the master restarted";
   traps.stop(SIGKILL);
   runCmd("rm -f " + tmpName("traps") + "*");
}

// lldpd serves the same MIB for the same far-side neighbour: the columns that do not
// depend on which of the far side's ports was heard must read the same.
TEST(SnmpSubagent, AgreesWithLldpdOnTheSameNeighbour) {
   if (::geteuid() != 0 || !haveTools()) GTEST_SKIP() << "needs root, snmpd, snmp, lldpd";
   SnmpLab lab(true);
   ASSERT_TRUE(lab.error().empty()) << lab.error();
   auto heard = [](const Walk& x) { return column(x, remTable + ".9").count("far-side") > 0; };
   Walk ours = lab.walkUntil(lab.snmpd(), remTable, heard);
   Walk theirs = lab.walkUntil(lab.lldpdSnmpd(), remTable, heard);
   ASSERT_TRUE(heard(ours));
   ASSERT_TRUE(heard(theirs));
   // chassis ID subtype and ID, port ID subtype, system name and description, and the
   // capabilities supported and enabled (the time marks differ: see the README)
   for (int col : {4, 5, 6, 9, 10, 11, 12}) {
      EXPECT_EQ(column(ours, remTable + "." + std::to_string(col)),
                column(theirs, remTable + "." + std::to_string(col)))
          << "lldpRemTable column " << col;
   }
}

}  // namespace

// lldp-agent --agentx through a real snmpd: the master runs in a network namespace of the
// test with a private AgentX socket and a loopback-only community, and `snmpwalk -On`
// reads our agent by numeric OIDs. The neighbours are lldpd on a veth, sending LLDP-MED
// and IEEE 802.1/802.3 TLVs, and LLDPDUs of the test's own making on the same link: one
// with no optional TLV at all, one with only an LLDP-MED inventory TLV, and one with every
// extension TLV the MIBs show. Root only; skips without snmpd, snmp or lldpd.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/Interop/InteropPeers.h"
#include "tests/Support/AgentProcess.h"
#include "tests/Support/Frames.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/NetNs.h"
#include "tests/Support/Poll.h"
#include "tests/Support/Snmpd.h"

namespace {

using TestSupport::Process;
using TestSupport::readFile;
using TestSupport::runCmd;
using TestSupport::runIn;
using TestSupport::tmpName;
using TestSupport::waitFor;
using namespace std::string_literals;

const std::string lldpMib = ".1.0.8802.1.1.2";
const std::string remTable = lldpMib + ".1.4.1.1";

using Walk = TestSupport::SnmpWalk;

// The namespace's snmpd, also sending notifications to a trap receiver on the namespace's
// loopback.
class Snmpd : public TestSupport::Snmpd {
public:
   Snmpd(const std::string& ns, const std::string& name)
       : TestSupport::Snmpd(ns, name, "trap2sink 127.0.0.1:1162 public\n") {}
};

// The values of one column of a walk, whatever their index.
std::multiset<std::string> column(const Walk& w, const std::string& col) {
   std::multiset<std::string> out;
   for (const auto& [oid, v] : w) {
      if (oid.rfind(col + ".", 0) == 0) out.insert(v);
   }
   return out;
}

// The rows each neighbour has in the remote tables of the extension MIBs, by the
// neighbour's index (lldpRemTimeMark.lldpRemLocalPortNum.lldpRemIndex), as
// "oui.table.column" (lldpExtensions.oui.1.3.table.1.column.index...).
std::map<std::string, std::set<std::string>> extRemoteRows(const Walk& w) {
   std::map<std::string, std::set<std::string>> out;
   const std::string ext = lldpMib + ".1.5.";
   for (const auto& [oid, v] : w) {
      if (oid.rfind(ext, 0) != 0) continue;
      std::vector<std::string> c;
      std::istringstream parts(oid.substr(ext.size()));
      for (std::string part; std::getline(parts, part, '.');) c.push_back(part);
      if (c.size() < 9 || c[1] != "1" || c[2] != "3") continue;
      out[c[6] + "." + c[7] + "." + c[8]].insert(c[0] + "." + c[3] + "." + c[5]);
   }
   return out;
}

// An LLDPDU of the test's own making: chassis ID `chassis`, port ID "p", time to live two
// minutes, then `tlvs`.
TestSupport::Bytes neighbourFrame(const std::string& chassis, const std::string& tlvs) {
   TestSupport::Bytes f = TestSupport::lldpFrame(chassis, 120);
   f.insert(f.end() - 2, tlvs.begin(), tlvs.end());  // before End of LLDPDU
   return f;
}

std::string tlv(int type, const std::string& value) {
   return std::string{char((type << 1) | (value.size() >> 8)), char(value.size())} + value;
}
std::string orgTlv(uint32_t oui, int subtype, const std::string& info) {
   return tlv(127, std::string{char(oui >> 16), char(oui >> 8), char(oui), char(subtype)} + info);
}

// Our agent in namespace "a", lldpd in "c" on a veth a1 <-> c1, and on c2 to a namespace
// "b" where a second lldpd serves the same MIB itself through its own snmpd, so both read
// the same far-side neighbour.
class SnmpLab {
public:
   SnmpLab() {
      const std::string id = std::to_string(::getpid());
      for (const char* n : {"A", "B", "C"}) {
         if (!runCmd("ip netns add snmp" + std::string(n) + id)) {
            error = "cannot create network namespaces (needs root)";
            return;
         }
         created_.push_back("snmp" + std::string(n) + id);
         TestSupport::ipIn(created_.back(), "link set lo up");
      }
      nsA = created_[0];
      nsC = created_[2];
      const std::string& nsB = created_[1];
      runCmd("ip link add a1 netns " + nsA + " type veth peer name c1 netns " + nsC);
      runCmd("ip link add b1 netns " + nsB + " type veth peer name c2 netns " + nsC);
      for (auto [ns, intf] : {std::pair{nsA, "a1"}, {nsC, "c1"}, {nsC, "c2"}, {nsB, "b1"}}) {
         TestSupport::ipIn(ns, std::string("link set ") + intf + " up");
      }
      snmpd = std::make_unique<Snmpd>(nsA, "snmpd-a");
      // The notification receiver listens before the agent starts: the neighbour's arrival
      // is notified within seconds of it, however slowly a loaded machine starts programs.
      std::ofstream(tmpName("traps.conf")) << "disableAuthorization yes\n";
      traps_.start(
          {"ip", "netns", "exec", nsA, "snmptrapd", "-f", "-C", "-c", tmpName("traps.conf"), "-Lf",
           trapLog, "-On", "-p", tmpName("traps.pid"), "udp:127.0.0.1:1162"},
          tmpName("traps.out"));
      if (waitFor([&] { return runIn(nsA, "ss -Hlun 'sport = :1162' | grep -q 1162"); }, 40) < 0) {
         error = "snmptrapd is not listening";
         return;
      }
      const std::string conf = tmpName("agent.conf");
      std::ofstream(conf) << "lldp timer 5\n";
      std::vector<std::string> args = {"ip", "netns", "exec", nsA, LLDP_AGENT, "--foreground"};
      args.insert(args.end(),
                  {"--config", conf, "--socket", tmpName("agent.sock"), "--interfaces", "a1"});
      // As a subagent of snmpd, notifying for a1 at most every 5 s, tracing its SNMP side.
      args.insert(args.end(), {"--agentx", snmpd->agentx(), "--snmp-notify", "a*",
                               "--snmp-notify-interval", "5", "--trace", "LldpSnmp/0-4"});
      agent_.start(args, tmpName("agent.log"));
      far_ = std::make_unique<Interop::Lldpd>(nsC, "far", "c1,c2", 1);
      far_->cli("configure system hostname far-side");
      // Every second, but a time to live of half a minute: a loaded machine that holds lldpd
      // back for a few seconds must not age the neighbour out and in again under a new index.
      far_->cli("configure lldp tx-hold 30");
      far_->cli("configure med policy application voice vlan 10 priority voice dscp 46");
      far_->cli("configure med location elin 5551234567");
      lldpdSnmpd = std::make_unique<Snmpd>(nsB, "snmpd-b");
      near_.start({"ip", "netns", "exec", nsB, "lldpd", "-dd", "-L", "", "-u", tmpName("near.sock"),
                   "-p", tmpName("near.pid"), "-I", "b1", "-x", "-X", lldpdSnmpd->agentx()},
                  tmpName("near.log"));
   }
   ~SnmpLab() {
      traps_.stop(SIGKILL);
      near_.stop(SIGKILL);
      far_.reset();
      agent_.stop(SIGTERM);
      if (::testing::Test::HasFailure()) {
         std::fprintf(stderr, "--- agent log:\n%s", readFile(tmpName("agent.log")).c_str());
      }
      snmpd.reset();
      lldpdSnmpd.reset();
      for (const auto& ns : created_) runCmd("ip netns del " + ns);
      runCmd("rm -f " + tmpName("agent") + "* " + tmpName("near") + "* " + tmpName("traps") + "*");
   }

   // Walks until `ok` holds (generous: the machine may be loaded).
   static Walk walkUntil(Snmpd& s, const std::string& oid,
                         const std::function<bool(const Walk&)>& ok) {
      Walk w;
      waitFor(
          [&] {
             w = s.walk(oid);
             return ok(w);
          },
          40);
      return w;
   }

   const std::string trapLog = tmpName("traps.log");
   std::string error, nsA, nsC;
   std::unique_ptr<Snmpd> snmpd, lldpdSnmpd;

private:
   std::vector<std::string> created_;
   std::unique_ptr<Interop::Lldpd> far_;
   Process traps_, agent_, near_;
};

// One lab for all: the neighbour's arrival is notified, the MIB is served and agrees with
// lldpd's, and the agent registers again when its master restarts.
TEST(SnmpSubagent, ServesTheMibNotifiesAndRegistersAgain) {
   for (const char* p : {"snmpd", "snmpwalk", "snmptrapd", "lldpd", "lldpcli"}) {
      if (::geteuid() != 0 || !Interop::haveProgram(p)) GTEST_SKIP() << "needs root and " << p;
   }
   SnmpLab lab;
   ASSERT_TRUE(lab.error.empty()) << lab.error;

   // The neighbour, with everything it sends, is in. A walk is many requests, not a
   // snapshot: one the neighbour (or its later LLDP-MED policy and location) arrived in the
   // middle of shows it in the columns read after that moment only, so the wait is for a
   // walk that holds every cell the checks below read. The neighbour row is indexed by
   // time mark 0, a1's ifindex and index 1.
   std::string ifIndex;
   runIn(lab.nsA, "cat /sys/class/net/a1/ifindex", &ifIndex);
   ifIndex.erase(ifIndex.find_last_not_of("\n") + 1);
   const std::string farRow = "0." + ifIndex + ".1";
   const std::string medRem = lldpMib + ".1.5.4795.1.3";
   const std::string policy = medRem + ".2.1.2." + farRow + ".2.64.0",
                     elin = medRem + ".4.1.2." + farRow + ".4";
   const std::string macPhy = lldpMib + ".1.5.4623.1.3.1.1.4",
                     linkAgg = lldpMib + ".1.5.4623.1.3.3.1.1";
   Walk w = lab.walkUntil(*lab.snmpd, lldpMib, [&](const Walk& x) {
      const auto name = x.find(remTable + ".9." + farRow);
      return name != x.end() && name->second == "far-side" && x.count(remTable + ".4." + farRow) &&
             x.count(policy) && x.count(elin) && column(x, medRem + ".3.1").size() > 0 &&
             column(x, macPhy).size() > 0 && column(x, linkAgg).size() > 0;
   });
   // Local system: chassis ID subtype MAC address, one local port (a1, by interface name).
   EXPECT_EQ(w[lldpMib + ".1.3.1.0"], "4");
   EXPECT_EQ(column(w, lldpMib + ".1.3.7.1.3"), std::multiset<std::string>{"a1"});
   EXPECT_EQ(w[lldpMib + ".1.1.1.0"], "5");  // lldp timer 5
   EXPECT_EQ(w[remTable + ".9." + farRow], "far-side");
   EXPECT_EQ(w[remTable + ".6." + farRow], "3");  // lldpd: port ID is the MAC
   // Extensions: IEEE 802.3 MAC/PHY and link aggregation, LLDP-MED capabilities, media policy
   // (voice: bit 1 of PolicyAppType, index length 2) and the ELIN location.
   EXPECT_EQ(column(w, macPhy).size(), 1u);   // MAC/PHY: MAU type
   EXPECT_EQ(column(w, linkAgg).size(), 1u);  // link aggregation
   EXPECT_EQ(column(w, medRem + ".1.1.3").size(), 1u);
   EXPECT_EQ(w[policy], "10");
   EXPECT_EQ(w[medRem + ".2.1.4." + farRow + ".2.64.0"], "46");
   EXPECT_EQ(w[elin], "5551234567");
   // lldpStatsRemTablesInserts, read now: the walk read it before the neighbour's row.
   EXPECT_EQ(lab.snmpd->walk(lldpMib + ".1.2.2")[lldpMib + ".1.2.2.0"], "1");
   // Counters move: lldpd sends every second.
   const std::string rxTotal = lldpMib + ".1.2.7.1.4." + ifIndex;
   const long before = std::atol(w[rxTotal].c_str());
   Walk later = lab.walkUntil(*lab.snmpd, lldpMib + ".1.2.7", [&](const Walk& x) {
      return x.count(rxTotal) && std::atol(x.at(rxTotal).c_str()) > before;
   });
   EXPECT_GT(std::atol(later[rxTotal].c_str()), before);

   // lldpd serves the same MIB for the same far-side neighbour: the columns that do not
   // depend on which of the far side's ports was heard must read the same: chassis ID
   // subtype and ID, port ID subtype, system name and description, and the capabilities
   // supported and enabled (the time marks differ: see the README).
   // (Heard: the name is far-side and no column read before it lacks the row.)
   auto heard = [](const Walk& x) {
      const size_t rows = column(x, remTable + ".9").size();
      for (int col : {4, 5, 6}) {
         if (column(x, remTable + "." + std::to_string(col)).size() != rows) return false;
      }
      return column(x, remTable + ".9").count("far-side") > 0;
   };
   Walk theirs = lab.walkUntil(*lab.lldpdSnmpd, remTable, heard);
   ASSERT_TRUE(heard(theirs));
   for (int col : {4, 5, 6, 9, 10, 11, 12}) {
      const std::string c = remTable + "." + std::to_string(col);
      EXPECT_EQ(column(w, c), column(theirs, c)) << "lldpRemTable column " << col;
   }

   // The remote tables, against neighbours that sent nothing optional, only LLDP-MED
   // inventory, and everything: a neighbour has its lldpRemTable row (empty strings for
   // what it did not send) and its lldpXdot1RemTable row (port VLAN 0 when unknown)
   // whatever it sent, and one in lldpXMedRemCapabilitiesTable once it speaks LLDP-MED at
   // all; every other extension table has rows only for what arrived.
   const uint32_t dot1Oui = 0x0080c2, dot3Oui = 0x00120f, medOui = 0x0012bb;
   const std::string full =
       tlv(4, "uplink") + tlv(5, "full-sys") +        // port description, system name
       orgTlv(dot1Oui, 1, "\x00\x64"s) +              // port VLAN 100
       orgTlv(dot1Oui, 2, "\x06\x00\x0a"s) +          // PPVID 10, supported and enabled
       orgTlv(dot1Oui, 3, "\000\012\004blue"s) +      // VLAN 10 "blue"
       orgTlv(dot1Oui, 4, "\002BB"s) +                // protocol identity
       orgTlv(dot3Oui, 1, "\x03\x6c\x01\x00\x1e"s) +  // autoneg on, MAU type 30
       orgTlv(dot3Oui, 2, "\x07\x01\x02"s) +          // PSE, signal pairs, class 2
       orgTlv(dot3Oui, 3, "\x03\x00\x00\x00\x07"s) +  // aggregated, port 7
       orgTlv(dot3Oui, 4, "\x24\x00"s) +              // 9216 bytes
       orgTlv(medOui, 1, "\x00\x27\x03"s) +           // endpoint class III
       orgTlv(medOui, 2, "\x01\x40\x29\x6e"s) +       // voice: VLAN 20 tagged, priority 5, DSCP 46
       orgTlv(medOui, 3, "\0035551230000"s) +         // ELIN
       orgTlv(medOui, 10, "phone-x"s);                // model name
   const std::map<std::string, TestSupport::Bytes> crafted = {
       {"bare", neighbourFrame("bare", "")},
       {"medonly", neighbourFrame("medonly", orgTlv(medOui, 10, "box"s))},
       {"full", neighbourFrame("full", full)}};
   TestSupport::RawSender sender(lab.nsC, "c1");
   ASSERT_TRUE(sender.ok());
   auto lastSent = std::chrono::steady_clock::now() - std::chrono::seconds(5);
   Walk x = lab.walkUntil(*lab.snmpd, lldpMib, [&](const Walk& y) {
      if (std::chrono::steady_clock::now() - lastSent > std::chrono::seconds(1)) {
         for (const auto& [name, frame] : crafted) sender.send(frame);
         lastSent = std::chrono::steady_clock::now();
      }
      const auto chassis = column(y, remTable + ".5");
      return chassis.count("bare") && chassis.count("medonly") && chassis.count("full");
   });
   std::map<std::string, std::string> rem;  // chassis ID -> the neighbour's index
   for (const auto& [oid, v] : x) {
      if (oid.rfind(remTable + ".5.", 0) == 0) rem[v] = oid.substr(remTable.size() + 3);
   }
   ASSERT_EQ(rem.size(), 4u);
   const auto rows = extRemoteRows(x);
   const std::set<std::string> medOnlyRows = {"32962.1.1", "4795.1.1", "4795.1.2", "4795.1.3",
                                              "4795.3.1",  "4795.3.2", "4795.3.3", "4795.3.4",
                                              "4795.3.5",  "4795.3.6", "4795.3.7"};
   EXPECT_EQ(rows.count(rem["bare"]) ? rows.at(rem["bare"]) : std::set<std::string>{},
             std::set<std::string>{"32962.1.1"});
   EXPECT_EQ(rows.count(rem["medonly"]) ? rows.at(rem["medonly"]) : std::set<std::string>{},
             medOnlyRows);
   const std::string dot1 = lldpMib + ".1.5.32962.1.3.", dot3 = lldpMib + ".1.5.4623.1.3.",
                     medR = lldpMib + ".1.5.4795.1.3.";
   // column, what follows the neighbour's index, then the value for bare, medonly and
   // full; nullptr: no row.
   struct Cell {
      std::string column, tail;
      const char *bare, *medOnly, *full;
   };
   for (const Cell& c : std::vector<Cell>{
            {remTable + ".8", "", "", "", "uplink"},         // lldpRemPortDesc
            {remTable + ".9", "", "", "", "full-sys"},       // lldpRemSysName
            {dot1 + "1.1.1", "", "0", "0", "100"},           // lldpXdot1RemPortVlanId
            {dot1 + "2.1.2", ".10", nullptr, nullptr, "1"},  // lldpXdot1RemProtoVlanSupported
            {dot1 + "2.1.3", ".10", nullptr, nullptr, "1"},  // lldpXdot1RemProtoVlanEnabled
            {dot1 + "3.1.2", ".10", nullptr, nullptr, "blue"},
            {dot1 + "4.1.2", ".1", nullptr, nullptr, "BB"},
            {dot3 + "1.1.2", "", nullptr, nullptr, "1"},   // lldpXdot3RemPortAutoNegEnabled
            {dot3 + "1.1.4", "", nullptr, nullptr, "30"},  // lldpXdot3RemPortOperMauType
            {dot3 + "2.1.1", "", nullptr, nullptr, "1"},   // lldpXdot3RemPowerPortClass: PSE
            {dot3 + "2.1.6", "", nullptr, nullptr, "2"},   // lldpXdot3RemPowerClass
            {dot3 + "3.1.2", "", nullptr, nullptr, "7"},   // lldpXdot3RemLinkAggPortId
            {dot3 + "4.1.1", "", nullptr, nullptr, "9216"},
            {medR + "1.1.3", "", nullptr, "0", "3"},  // lldpXMedRemDeviceClass
            {medR + "2.1.2", ".2.64.0", nullptr, nullptr, "20"},
            {medR + "2.1.3", ".2.64.0", nullptr, nullptr, "5"},
            {medR + "3.1.6", "", nullptr, "box", "phone-x"},
            {medR + "3.1.1", "", nullptr, "", ""},  // no hardware revision: empty
            {medR + "4.1.2", ".4", nullptr, nullptr, "5551230000"}}) {
      for (auto [who, want] :
           {std::pair{"bare", c.bare}, {"medonly", c.medOnly}, {"full", c.full}}) {
         const std::string oid = c.column + "." + rem[who] + c.tail;
         if (want) {
            EXPECT_EQ(x.count(oid) ? x[oid] : "<no row>", want) << who << " " << oid;
         } else {
            EXPECT_EQ(x.count(oid), 0u) << who << " " << oid << " = " << x[oid];
         }
      }
   }

   // The neighbour's arrival on a1 (notifications on for a*) was announced.
   EXPECT_GE(
       waitFor(
           [&] { return readFile(lab.trapLog).find(".1.0.8802.1.1.2.0.0.1") != std::string::npos; },
           40),
       0)
       << readFile(lab.trapLog);

   lab.snmpd->stop();
   lab.snmpd->start();
   const double back = waitFor([&] { return lab.snmpd->walk(lldpMib + ".1.3.3").size() == 1; }, 40);
   EXPECT_GE(back, 0) << "not registered again after the master restarted";
}

}  // namespace

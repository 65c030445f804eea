// The configuration language: every command form, comments and interface blocks in both
// styles, bad lines that change nothing, whole-file loads that replace the configuration, rendering
// that loads back to the same configuration, and notifications only for real changes.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Config/ConfigLanguage.h"
#include "Framework/Vel/Json.h"

namespace {

using Lldp::CliConfig;
using Lldp::CliPortConfig;

Vel::Ptr<CliConfig> fresh() {
   return Vel::make<CliConfig>();
}

// The lines of a text.
std::vector<std::string> linesOf(std::string_view text) {
   std::vector<std::string> out;
   for (size_t at = 0;;) {
      const size_t nl = text.find('\n', at);
      out.emplace_back(text.substr(at, nl - at));
      if (nl == std::string_view::npos) return out;
      at = nl + 1;
   }
}

// Applies lines that must be good.
void good(CliConfig& c, std::string_view text) {
   Config::Result r = Config::apply(linesOf(text), c);
   ASSERT_TRUE(r.ok()) << r.error->message();
}

Vel::Ptr<CliPortConfig> portOf(CliConfig& c, const char* name) {
   return c.cliPortConfig(Wire::IntfId(name));
}

// Each form sets what it says (a JSON pointer into the record, ports by position), and
// its `no` form restores the default.
TEST(ConfigLanguageTest, FormsSetWhatTheySay) {
   using J = Vel::Json;
   struct Case {
      std::string text;
      std::string pointer;
      J value;
   };
   const Case cases[] = {
       {"no lldp run", "/enabled", false},
       {"lldp timer 1", "/messageTxInterval", 1},
       {"! a comment\n# another\n\n   \nlldp timer 7 # trailing comment", "/messageTxInterval", 7},
       {"lldp timer 65535", "/messageTxInterval", 65535},
       {"lldp hold-time 65535", "/messageTxHoldTime", 65535},
       {"lldp timer reinitialization 20", "/reinitDelay", 20},
       {"lldp receive packet tagged drop", "/rxTaggedPacketsDrop", true},
       {"lldp management-address vrf mgmt", "/mgmtAddrVrf", "mgmt"},
       {"lldp management-address interface Management1", "/mgmtAddrTxIntf", "Management1"},
       {"lldp management-address interface eth0\nlldp management-address all", "/mgmtAddrTxIntf",
        ""},
       {"lldp management-address all", "/mgmtAddrTxMode", int(Lldp::mgmtAddrTxModeAll)},
       {"lldp neighbor-limit 1000000", "/remoteSystemLimit", 1000000},
       {"lldp neighbor-limit total 10000000", "/remoteSystemLimitTotal", 10000000},
       {"lldp classification mac 00:1c:73:aa:bb:cc device", "/nbrClassification/0/value", "device"},
       {"interface e1\nlldp classification mac 00:1c:73:aa:bb:cc device", "/nbrClassification",
        J::array()},
       {"lldp system-name  core switch  1  ! the big one", "/sysName", "core switch  1"},
       {R"(lldp system-description "says \"hi\" ! not a comment\x41\\")", "/sysDesc",
        "says \"hi\" ! not a commentA\\"},
       // A '!' inside a word is text; so is a quote that does not start a word.
       {"lldp system-name sw!1", "/sysName", "sw!1"},
       {R"(lldp system-description 19" rack)", "/sysDesc", "19\" rack"},
       {"lldp system-name " + std::string(255, 'n'), "/sysName", std::string(255, 'n')},
       // Switch style: per-port commands after `interface` need no indentation, and a
       // command with a global and a per-port form is the port's inside the block.
       {"interface e1\nlldp neighbor-limit 7", "/remoteSystemLimit", 64},
       {"interface e1\nexit\nlldp neighbor-limit 7", "/remoteSystemLimit", 7},
       {"interface e1\nlldp timer 9\nlldp neighbor-limit 7", "/remoteSystemLimit", 7},
       // The limit across ports has no per-port form: it is global inside a block too.
       {"interface e1\nlldp neighbor-limit total 7", "/remoteSystemLimitTotal", 7},
       {"interface e1\nno lldp transmit\ninterface e2\nno lldp receive",
        "/cliPortConfig/1/adminStatus", 1},
       // Outside a block, indentation does not matter.
       {"  lldp timer 9", "/messageTxInterval", 9},
       {"interface veth-lab1\ninterface eth1\nno interface eth1", "/cliPortConfig/0/intfId",
        "veth-lab1"},
   };
   // Per-port forms, each in a block of its own; indentation is free, spaces or a tab.
   const Case portCases[] = {
       // Neither direction is "disabled" (4), never 0.
       {"   ! a comment inside the block does not end it\n\n   no lldp transmit  ! nor does this",
        "adminStatus", 2},
       {"no lldp transmit", "adminStatus", 2},
       {" no lldp transmit\n no lldp receive", "adminStatus", 4},
       {" no lldp receive\n lldp receive", "adminStatus", 3},
       {"\tlldp receive rate-limit 5 interval 0.25", "rxRateLimitMaxLldpdus", 5},
       {"  lldp receive rate-limit 5 interval 0.25", "rxRateLimitInterval", 0.25},
       {"  lldp ztp vlan 4094", "ztpBootVlan", 4094},
       {"  lldp power-via-mdi fallback 15400", "poeAllocatedPowerFallback", 15400},
       {"lldp neighbor-limit 5000", "remoteSystemLimit", 5000},
       // Inside a block a classification is the port's alone; the global list stays empty.
       {"lldp classification mac 00:1C:73:AA:BB:CC telephone\n"
        "lldp classification mac 00:1c:73:aa:bb:dd device\n"
        "no lldp classification mac 00:1c:73:aa:bb:dd",
        "nbrClassification", J::parse(R"([{"key": "00:1c:73:aa:bb:cc", "value": "telephone"}])")},
       {"dot1x telephone bypass", "dot1xTelephoneBypass", true},
       // Options in any order; a second line for an application replaces the first.
       {"lldp med network-policy voice vlan 9\n"
        "lldp med network-policy voice dscp 46 untagged vlan 10 priority 5",
        "networkPolicyConfig",
        J::parse(R"([{"appType": 1, "tagged": false, "vlanId": 10, "priority": 5, "dscp": 46}])")},
       {"lldp med network-policy video-signaling vlan 0\n"
        "lldp med network-policy guest-voice vlan 4094\nno lldp med network-policy guest-voice",
        "networkPolicyConfig/0/appType", 8},
   };
   for (const auto& [text, pointer, value] : cases) {
      auto c = fresh();
      good(*c, text);
      EXPECT_EQ(Vel::toJson(*c).at(J::json_pointer(pointer)), value) << text;
   }
   for (const auto& [text, pointer, value] : portCases) {
      auto c = fresh();
      good(*c, "interface Ethernet3/1\n" + text);
      EXPECT_EQ(Vel::toJson(*portOf(*c, "Ethernet3/1")).at(J::json_pointer("/" + pointer)), value)
          << text;
   }
   // Every `no` form of a global setting restores its default.
   auto c = fresh();
   good(*c,
        "no lldp run\nlldp timer 5\nlldp hold-time 9\nlldp timer reinitialization 3\n"
        "lldp receive packet tagged drop\nlldp management-address vrf m\n"
        "lldp management-address all\nlldp neighbor-limit 9\nlldp neighbor-limit total 9\n"
        "lldp system-name x\n"
        "lldp system-description y");
   good(*c,
        "lldp run\nno lldp timer\nno lldp hold-time\nno lldp timer reinitialization\n"
        "no lldp receive packet tagged drop\nno lldp management-address vrf\n"
        "no lldp management-address\nno lldp neighbor-limit\nno lldp neighbor-limit total\n"
        "no lldp system-name\n"
        "no lldp system-description");
   EXPECT_EQ(Vel::toJson(*c), Vel::toJson(*fresh()));
   // Per port likewise; `no` only switches the rate limit off, its numbers stay for the next
   // `rate-limit`.
   good(*c,
        "interface e1\nlldp neighbor-limit 9\nlldp ztp vlan 3\nlldp power-via-mdi fallback 2\n"
        "lldp receive rate-limit 5 interval 2\nno lldp neighbor-limit\nno lldp ztp vlan\n"
        "no lldp power-via-mdi fallback\nno lldp receive rate-limit");
   CliPortConfig expected(Wire::IntfId("e1"));
   expected.rxRateLimitEnabledIs(false);
   expected.rxRateLimitMaxLldpdusIs(5);
   expected.rxRateLimitIntervalIs(2.0);
   EXPECT_EQ(Vel::toJson(*portOf(*c, "e1")), Vel::toJson(expected));
}

TEST(ConfigLanguageTest, TlvSelectMovesExactlyItsOwnSwitch) {
   const std::vector<std::pair<std::string, const bool& (CliConfig::*)() const>> tlvs = {
       {"port-description", &CliConfig::portDescriptionTx},
       {"system-name", &CliConfig::systemNameTx},
       {"system-description", &CliConfig::systemDescriptionTx},
       {"system-capabilities", &CliConfig::systemCapabilitiesTx},
       {"management-address", &CliConfig::managementAddressTx},
       {"port-vlan", &CliConfig::portVlanTx},
       {"vlan-name", &CliConfig::vlanNameTx},
       {"link-aggregation", &CliConfig::linkAggregationTx},
       {"max-frame-size", &CliConfig::maxFrameSizeTx},
       {"power-via-mdi", &CliConfig::powerViaMdiTx},
       {"med-network-policy", &CliConfig::medNetworkPolicyTx},
   };
   for (const auto& [name, get] : tlvs) {
      auto c = fresh();
      good(*c, "no lldp tlv-select " + name);
      EXPECT_FALSE(((*c).*get)()) << name;
      Vel::Json diff = Vel::Json::diff(Vel::toJson(*fresh()), Vel::toJson(*c));
      EXPECT_EQ(diff.size(), 1u) << name << ": " << diff;
      EXPECT_EQ(Config::render(*c), "no lldp tlv-select " + name + "\n");
      good(*c, "lldp tlv-select " + name);
      EXPECT_TRUE(((*c).*get)()) << name;
   }
}

// Windows line ends in a file are taken as plain ones.
TEST(ConfigLanguageTest, WindowsLineEnds) {
   auto c = fresh();
   ASSERT_TRUE(Config::load("lldp timer 11\r\ninterface eth9\r\n  no lldp receive\r\n", *c));
   EXPECT_EQ(c->messageTxInterval(), 11u);
   EXPECT_EQ(portOf(*c, "eth9")->adminStatus(), Lldp::adminStatusTxOnly);
}

// Each case comes after good lines that leave an interface block open, so a per-port
// command needs no `interface` line of its own; the refusal is on the case's last line.
TEST(ConfigLanguageTest, BadLinesChangeNothing) {
   const std::pair<std::string, std::string> cases[] = {
       {"lldp timer 0", "lldp timer: 0 is out of range 1..65535"},
       {"lldp timer 65536", "lldp timer: 65536 is out of range 1..65535"},
       {"lldp timer 99999999999999999999999",
        "lldp timer: 99999999999999999999999 is out of range 1..65535"},
       {"lldp timer -1", "lldp timer: '-1' is not a number"},
       {"lldp timer 5s", "lldp timer: '5s' is not a number"},
       {"lldp timer 5 6", "lldp timer: expected 'lldp timer SECONDS'"},
       {"no lldp timer 5", "no lldp timer: expected 'no lldp timer'"},
       {"lldp hold-time 0", "lldp hold-time: 0 is out of range 1..65535"},
       {"lldp timer reinitialization 21", "lldp timer reinitialization: 21 is out of range 1..20"},
       {"exit\nlldp neighbor-limit 0", "lldp neighbor-limit: 0 is out of range 1..1000000"},
       {"lldp neighbor-limit 0", "lldp neighbor-limit: 0 is out of range 1..1000000"},
       {"lldp neighbor-limit 1000001", "lldp neighbor-limit: 1000001 is out of range 1..1000000"},
       {"lldp neighbor-limit total 0", "lldp neighbor-limit total: 0 is out of range 1..10000000"},
       {"lldp neighbor-limit total",
        "lldp neighbor-limit total: expected 'lldp neighbor-limit total COUNT'"},
       {"lldp foo", "unknown command 'lldp foo'"},
       {"LLDP run", "unknown command 'LLDP run'"},
       {"lldp", "unknown command 'lldp'"},
       {"lldp tlv-select chassis-id",
        "lldp tlv-select: unknown TLV 'chassis-id' (one of port-description, system-name, "
        "system-description, system-capabilities, management-address, port-vlan, vlan-name, "
        "link-aggregation, max-frame-size, power-via-mdi, med-network-policy)"},
       {"lldp system-name " + std::string(256, 'n'),
        "lldp system-name: text is 256 bytes, at most 255 allowed"},
       {"lldp system-name \"open", "unterminated quoted text"},
       {R"(lldp system-name "a\qb")", "unknown escape '\\q' in quoted text"},
       {"lldp system-name \"a\"b", "text after closing quote"},
       {"lldp system-name my \"big\" switch",
        "lldp system-name: quote the whole text or none of it"},
       {"lldp system-name ! all comment", "lldp system-name: expected 'lldp system-name TEXT'"},
       {"lldp management-address",
        "lldp management-address: expected 'lldp management-address all | interface NAME | vrf "
        "NAME'"},
       {"no lldp management-address all", "unknown command 'no lldp management-address all'"},
       {"lldp management-address vrf " + std::string(16, 'v'),
        "lldp management-address vrf: vrf name 'vvvvvvvvvvvvvvvv' is longer than 15 bytes"},
       {"interface", "interface: expected 'interface NAME'"},
       {"interface " + std::string(16, 'e'),
        "interface: interface name 'eeeeeeeeeeeeeeee' is longer than 15 bytes"},
       {"interface \"eth 1\"", "interface: interface name 'eth 1' has a space or control byte"},
       {"interface \"\"", "interface: interface name is empty"},
       // Per-port commands need an open block: `exit` and global commands close it.
       {"exit\nno lldp transmit",
        "'no lldp transmit' is a per-port command: put it after 'interface NAME'"},
       {"lldp timer 5\n  lldp transmit",
        "'lldp transmit' is a per-port command: put it after 'interface NAME'"},
       {"exit\nlldp tlv oui 00-80-c2 subtype 1 info 00",
        "'lldp tlv oui' is a per-port command: put it after 'interface NAME'"},
       {"  lldp receive packet tagged drop",
        "'lldp receive packet tagged drop' is not a per-port command: end the interface block "
        "(no indentation) first"},
       {"  dot1x lldp bypass",
        "'dot1x lldp bypass' is not a per-port command: end the interface block (no "
        "indentation) first"},
       {"  lldp ztp vlan 4095", "lldp ztp vlan: 4095 is out of range 1..4094"},
       {"  lldp power-via-mdi fallback 0",
        "lldp power-via-mdi fallback: 0 is out of range 1..100000"},
       {"  lldp med network-policy voice vlan 4095",
        "lldp med network-policy: vlan 4095 is out of range 0..4094"},
       {"  lldp med network-policy voice vlan 5 dscp 64",
        "lldp med network-policy: dscp 64 is out of range 0..63"},
       {"  lldp med network-policy voice vlan 5 vlan 6",
        "lldp med network-policy: 'vlan' given twice"},
       {"  lldp med network-policy voice priority 5",
        "lldp med network-policy: a VLAN is required: expected 'APPLICATION vlan VLAN "
        "[untagged] [priority 0-7] [dscp 0-63]'"},
       {"  no lldp med network-policy phone",
        "no lldp med network-policy: unknown application 'phone'"},
       {"  lldp receive rate-limit 0 interval 1",
        "lldp receive rate-limit: 0 is out of range 1..4294967295"},
       {"  lldp receive rate-limit 5 interval 0",
        "lldp receive rate-limit: 0 is out of range 0.001..3600"},
       {"  lldp receive rate-limit 5 interval nan",
        "lldp receive rate-limit: 'nan' is not a number of seconds"},
       {"  lldp receive rate-limit 5 interval inf",
        "lldp receive rate-limit: 'inf' is not a number of seconds"},
       {"  lldp receive rate-limit 5 every 1",
        "lldp receive rate-limit: expected 'interval' after the count, not 'every'"},
       {"lldp tlv oui 0080c2 subtype 1 info 00",
        "lldp tlv oui: '0080c2' is not an OUI (three hex bytes, as 00-80-c2)"},
       {"lldp tlv oui 00-80-c2 subtype 256 info 00", "lldp tlv oui: 256 is out of range 0..255"},
       {"lldp tlv oui 00-80-c2 subtype 1 info 0g",
        "lldp tlv oui: '0g' is not hex bytes (as 0a1b2c or 0a:1b:2c)"},
       {"lldp tlv oui 00-80-c2 subtype 1 info " + std::string(1016, 'a'),
        "lldp tlv oui: info is 508 bytes, at most 507 allowed"},
       {"lldp tlv oui 00-80-c2 type 1 info 00",
        "lldp tlv oui: expected 'subtype' after the OUI, not 'type'"},
       {"lldp classification mac 00:1c:73:aa:bb telephone",
        "lldp classification mac: '00:1c:73:aa:bb' is not a MAC address (as 00:1c:73:aa:bb:cc)"},
       {"exit\nlldp classification mac 01:80:c2:00:00:0e telephone",
        "lldp classification mac: '01:80:c2:00:00:0e' is not a station's address (zero or "
        "multicast)"},
       {"lldp classification mac 00:1c:73:aa:bb:cc phone",
        "lldp classification mac: 'phone' is not a class (telephone or device)"},
       {"lldp classification mac 00:1c:73:aa:bb:cc",
        "lldp classification mac: expected 'lldp classification mac MAC telephone|device'"},
       {"no lldp classification mac zz",
        "no lldp classification mac: 'zz' is not a MAC address (as 00:1c:73:aa:bb:cc)"},
       {"exit\ndot1x telephone bypass",
        "'dot1x telephone bypass' is a per-port command: put it after 'interface NAME'"},
   };
   for (const auto& [text, reason] : cases) {
      auto c = fresh();
      good(*c, "lldp timer 8\ninterface eth7");
      const Vel::Json before = Vel::toJson(*c);
      // The bad line comes after good ones, which must not have been applied either.
      std::vector<std::string> lines = linesOf("lldp timer 9\ninterface eth8\n  no lldp receive");
      for (std::string& line : linesOf(text)) lines.push_back(line);
      Config::Result r = Config::apply(lines, *c);
      ASSERT_FALSE(r.ok()) << text;
      EXPECT_EQ(r.error->message(), "line " + std::to_string(lines.size()) + ": " + reason);
      EXPECT_EQ(Vel::toJson(*c), before) << text;
   }
}

// Every attribute away from its default, through the language alone.
const char* everythingText = R"(no lldp run
lldp timer 10
lldp hold-time 40
lldp timer reinitialization 5
no lldp tlv-select port-description
no lldp tlv-select system-name
no lldp tlv-select system-description
no lldp tlv-select system-capabilities
no lldp tlv-select management-address
no lldp tlv-select port-vlan
no lldp tlv-select vlan-name
no lldp tlv-select link-aggregation
no lldp tlv-select max-frame-size
no lldp tlv-select power-via-mdi
no lldp tlv-select med-network-policy
lldp system-name "  spaced ! \"quoted\" \x7f "
lldp system-description "# rack 4"
lldp receive packet tagged drop
lldp management-address interface Management1
lldp management-address vrf mgmt
lldp neighbor-limit 5000
lldp neighbor-limit total 20000
dot1x lldp bypass
lldp classification mac 00:1c:73:aa:bb:01 telephone
lldp classification mac 00:1c:73:aa:bb:02 telephone
lldp classification mac 00:1c:73:aa:bb:02 device
lldp classification mac 00:1c:73:aa:bb:03 device
no lldp classification mac 00:1c:73:aa:bb:03
interface Ethernet1
   dot1x telephone bypass
   lldp classification mac 00:1c:73:aa:bb:01 device
   no lldp transmit
   lldp receive rate-limit 7 interval 0.1
   no lldp receive rate-limit
   lldp ztp vlan 100
   lldp power-via-mdi fallback 30000
   lldp neighbor-limit 1
   macsec lldp bypass
   lldp tlv oui 00-80-C2 subtype 127 info 0a:ff
   lldp tlv oui 33-44-66 subtype 0 info ""
   lldp tlv oui 33-44-66 subtype 7 info 01
   lldp tlv oui 33-44-66 subtype 7 info 0203
   lldp tlv oui 33-44-66 subtype 9 info 04
   no lldp tlv oui 33-44-66 subtype 9
   lldp med network-policy voice vlan 100 priority 5 dscp 46
   lldp med network-policy video-signaling vlan 0 untagged
interface Ethernet2
   no lldp receive
   no lldp transmit
interface eth10
)";

TEST(ConfigLanguageTest, RenderLoadsBackExactly) {
   auto c = fresh();
   Config::Result r = Config::load(everythingText, *c);
   ASSERT_TRUE(r.ok()) << r.error->message();

   // Every attribute of the record and of a port differs from its default.
   const Vel::Json defaults = Vel::toJson(*fresh());
   const Vel::Json all = Vel::toJson(*c);
   for (auto it = defaults.begin(); it != defaults.end(); ++it) {
      EXPECT_NE(all[it.key()], it.value()) << it.key() << " is not reachable";
   }
   const Vel::Json portDefaults = Vel::toJson(*Vel::make<CliPortConfig>(Wire::IntfId("Ethernet1")));
   const Vel::Json port = Vel::toJson(*portOf(*c, "Ethernet1"));
   for (auto it = portDefaults.begin(); it != portDefaults.end(); ++it) {
      if (it.key() == "intfId") continue;
      EXPECT_NE(port[it.key()], it.value()) << it.key() << " is not reachable";
   }
   // One operator TLV per OUI and subtype: a later line replaces, `no` removes.
   const auto& tlvs = portOf(*c, "Ethernet1")->externalTlv();
   ASSERT_EQ(tlvs.size(), 3u);
   const Lldp::UnknownOrgDefTlv* t7 =
       tlvs.find(Lldp::UnknownOrgDefTlv::Key({.oui = Lldp::Oui(0x334466), .subtype = 7}));
   ASSERT_TRUE(t7);
   EXPECT_EQ(t7->value().value(), "\x02\x03");

   const std::string rendered = Config::render(*c);
   auto back = fresh();
   r = Config::load(rendered, *back);
   ASSERT_TRUE(r.ok()) << r.error->message() << "\n" << rendered;
   EXPECT_EQ(Vel::toJson(*back), all) << rendered;
   EXPECT_EQ(Config::render(*back), rendered);
   EXPECT_NE(rendered.find("interface eth10\n"), std::string::npos);

   // Defaults render as nothing at all.
   EXPECT_EQ(Config::render(*fresh()), "");

   // Awkward texts and numbers survive the trip.
   for (std::string name :
        {std::string("a\"b"), std::string(" lead"), std::string("trail\t"), std::string("x #y"),
         std::string("!bang"), std::string("tab\tin"), std::string("back\\slash"),
         std::string("nl\nin"), std::string("\xc3\xa9t\xc3\xa9"), std::string(255, '"')}) {
      auto x = fresh();
      x->sysNameIs(Lldp::BoundedString255(name));
      x->cliPortConfigIs(Wire::IntfId("eth1"))->rxRateLimitIntervalIs(0.1 + 0.2);
      auto y = fresh();
      r = Config::load(Config::render(*x), *y);
      ASSERT_TRUE(r.ok()) << r.error->message() << "\n" << Config::render(*x);
      EXPECT_EQ(y->sysName(), x->sysName()) << Config::render(*x);
      EXPECT_EQ(y->cliPortConfig(Wire::IntfId("eth1"))->rxRateLimitInterval(), 0.1 + 0.2);
   }
}

// Counts notifications per attribute.
struct Watcher : CliConfig::Notifiee {
   std::map<std::string, int> count;
   void enabledChanged() override { ++count["enabled"]; }
   void messageTxIntervalChanged() override { ++count["messageTxInterval"]; }
   void messageTxHoldTimeChanged() override { ++count["messageTxHoldTime"]; }
   void sysNameChanged() override { ++count["sysName"]; }
   void vlanNameTxChanged() override { ++count["vlanNameTx"]; }
   void cliPortConfigChanged(const Wire::IntfId& intf) override {
      ++count["port " + intf.stringValue()];
   }
};
struct PortWatcher : CliPortConfig::Notifiee {
   std::map<std::string, int> count;
   void adminStatusChanged() override { ++count["adminStatus"]; }
   void rxRateLimitEnabledChanged() override { ++count["rxRateLimitEnabled"]; }
   void rxRateLimitIntervalChanged() override { ++count["rxRateLimitInterval"]; }
};

TEST(ConfigLanguageTest, LoadReplacesAndNotifiesOnlyChanges) {
   auto c = fresh();
   const std::string first = R"(lldp timer 10
lldp system-name spine1
no lldp tlv-select vlan-name
interface eth1
   no lldp transmit
interface eth2
   lldp receive rate-limit 3 interval 2
interface eth3
)";
   ASSERT_TRUE(Config::load(first, *c));
   Watcher w;
   w.notifierIs(c);
   PortWatcher pw;
   pw.notifierIs(portOf(*c, "eth2"));

   // The same file again: nothing moves.
   ASSERT_TRUE(Config::load(first, *c));
   EXPECT_TRUE(w.count.empty());
   EXPECT_TRUE(pw.count.empty());

   // A new file: what it leaves out returns to its default, ports it does not name go.
   const std::string second = R"(lldp timer 10
lldp hold-time 60
interface eth2
   lldp receive rate-limit 3 interval 2.5
   no lldp receive
interface eth4
)";
   ASSERT_TRUE(Config::load(second, *c));
   EXPECT_EQ(w.count, (std::map<std::string, int>{{"messageTxHoldTime", 1},
                                                  {"sysName", 1},
                                                  {"vlanNameTx", 1},
                                                  {"port eth1", 1},
                                                  {"port eth3", 1},
                                                  {"port eth4", 1}}));
   EXPECT_EQ(pw.count,
             (std::map<std::string, int>{{"adminStatus", 1}, {"rxRateLimitInterval", 1}}));
   EXPECT_FALSE(portOf(*c, "eth1"));
   EXPECT_FALSE(portOf(*c, "eth3"));
   EXPECT_TRUE(portOf(*c, "eth4"));
   EXPECT_TRUE(c->sysName().empty());
   EXPECT_TRUE(c->vlanNameTx());

   // A bad file keeps the configuration in force.
   const Vel::Json before = Vel::toJson(*c);
   w.count.clear();
   Config::Result r = Config::load("lldp timer 20\ninterface eth9\n  lldp ztp vlan 5000\n", *c);
   ASSERT_FALSE(r.ok());
   EXPECT_EQ(r.error->message(), "line 3: lldp ztp vlan: 5000 is out of range 1..4094");
   EXPECT_EQ(Vel::toJson(*c), before);
   EXPECT_TRUE(w.count.empty());

   // An empty file is the default configuration.
   ASSERT_TRUE(Config::load("", *c));
   EXPECT_EQ(Vel::toJson(*c), Vel::toJson(*fresh()));
}

// Lines built from the language's own words and random bytes: each is accepted or
// refused with a line number, never an exception, and what is accepted renders and loads
// back to the same configuration.
TEST(ConfigLanguageTest, RandomLinesAreAcceptedOrRefusedCleanly) {
   std::vector<std::string> words;
   std::istringstream all(
       "lldp no interface eth1 Ethernet1/1 exit run timer hold-time reinitialization "
       "tlv-select port-vlan system-name system-description receive transmit packet tagged "
       "drop management-address all vrf rate-limit interval ztp vlan power-via-mdi fallback "
       "neighbor-limit med network-policy voice video-signaling untagged priority dscp "
       "0 1 20 4094 65536 0.5 -3 ! # \" \"a\\x4 \"q\"");
   for (std::string w; all >> w;) words.push_back(w);
   words.push_back("   ");
   const std::vector<std::string> templates = linesOf(
       "lldp timer N\nno lldp run\nlldp hold-time N\nlldp timer reinitialization N\n"
       "no lldp tlv-select vlan-name\nlldp system-name sw N\nlldp system-description \"N\"\n"
       "lldp management-address interface ethN\nlldp management-address vrf vN\n"
       "lldp neighbor-limit N\ninterface ethN\ninterface Ethernet1/N\n  no lldp transmit\n"
       "no lldp receive\n  lldp receive rate-limit N interval N\n  lldp ztp vlan N\n"
       "lldp power-via-mdi fallback N\nlldp med network-policy voice vlan N dscp N\n"
       "no lldp med network-policy voice\nno interface ethN\n  exit");
   const std::vector<std::string> numbers = {"0",    "1",     "2",     "5",    "20",  "64",
                                             "4094", "65535", "70000", "0.25", "1e3", "x"};
   std::mt19937 rng(11);
   size_t accepted = 0;
   for (int round = 0; round < 3000; ++round) {
      std::vector<std::string> lines;
      for (int n = int(rng() % 4) + 1; n > 0; --n) {
         std::string line;
         if (rng() % 4 != 0) {
            // A command of the language with a random number, sometimes mangled.
            line = templates[rng() % templates.size()];
            size_t at = line.find('N');
            if (at != std::string::npos) line.replace(at, 1, numbers[rng() % numbers.size()]);
            if (rng() % 5 == 0) line.insert(rng() % (line.size() + 1), words[rng() % words.size()]);
         } else {
            line = rng() % 3 == 0 ? "  " : "";
            for (int w = int(rng() % 7); w >= 0; --w) {
               line += rng() % 10 == 0 ? std::string(1, char(rng() % 256))
                                       : words[rng() % words.size()];
               line += ' ';
            }
         }
         lines.push_back(line);
      }
      auto c = fresh();
      Config::Result r;
      ASSERT_NO_THROW(r = Config::apply(lines, *c));
      if (!r.ok()) {
         EXPECT_GE(r.error->line, 1);
         EXPECT_LE(r.error->line, int(lines.size()));
         EXPECT_EQ(Vel::toJson(*c), Vel::toJson(*fresh()));
         continue;
      }
      ++accepted;
      auto back = fresh();
      r = Config::load(Config::render(*c), *back);
      ASSERT_TRUE(r.ok()) << r.error->message();
      EXPECT_EQ(Vel::toJson(*back), Vel::toJson(*c));
   }
   EXPECT_GT(accepted, 300u);
}

}  // namespace

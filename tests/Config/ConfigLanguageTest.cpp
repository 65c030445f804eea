// The configuration language: every command form, comments and interface blocks, bad
// lines that change nothing, whole-file loads that replace the configuration, rendering
// that loads back to the same configuration, and notifications only for real changes.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "Config/ConfigLanguage.h"
#include "Framework/Vel/Json.h"

namespace {

using Lldp::CliConfig;
using Lldp::CliPortConfig;

Vel::Ptr<CliConfig> fresh() {
   return Vel::make<CliConfig>();
}

// Applies lines that must be good.
void good(CliConfig& c, const std::vector<std::string>& lines) {
   Config::Result r = Config::apply(lines, c);
   ASSERT_TRUE(r.ok()) << r.error->message();
}

std::string errorOf(CliConfig& c, const std::vector<std::string>& lines) {
   Config::Result r = Config::apply(lines, c);
   return r ? std::string("ok") : r.error->message();
}

Vel::Ptr<CliPortConfig> portOf(CliConfig& c, const char* name) {
   return c.cliPortConfig(Wire::IntfId(name));
}

TEST(ConfigLanguageTest, GlobalFormsAndTheirNoForms) {
   auto c = fresh();
   good(*c,
        {"no lldp run", "lldp timer 5", "lldp hold-time 65535", "lldp timer reinitialization 20",
         "lldp receive packet tagged drop", "lldp management-address vrf mgmt"});
   EXPECT_FALSE(c->enabled());
   EXPECT_EQ(c->messageTxInterval(), 5u);
   EXPECT_EQ(c->messageTxHoldTime(), 65535u);
   EXPECT_EQ(c->reinitDelay(), 20u);
   EXPECT_TRUE(c->rxTaggedPacketsDrop());
   EXPECT_EQ(c->mgmtAddrVrf(), "mgmt");

   good(*c, {"lldp run", "no lldp timer", "no lldp hold-time", "no lldp timer reinitialization",
             "no lldp receive packet tagged drop", "no lldp management-address vrf"});
   EXPECT_EQ(Vel::toJson(*c), Vel::toJson(*fresh()));

   // Bounds are inclusive.
   good(*c,
        {"lldp timer 1", "lldp timer 65535", "lldp hold-time 1", "lldp timer reinitialization 1"});
   EXPECT_EQ(c->messageTxInterval(), 65535u);
   EXPECT_EQ(c->messageTxHoldTime(), 1u);
   EXPECT_EQ(c->reinitDelay(), 1u);
}

TEST(ConfigLanguageTest, TlvSelectCoversEveryOptionalTlv) {
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
      good(*c, {"no lldp tlv-select " + name});
      EXPECT_FALSE(((*c).*get)()) << name;
      // Exactly one attribute moved.
      Vel::Json diff = Vel::Json::diff(Vel::toJson(*fresh()), Vel::toJson(*c));
      EXPECT_EQ(diff.size(), 1u) << name << ": " << diff;
      good(*c, {"lldp tlv-select " + name});
      EXPECT_TRUE(((*c).*get)()) << name;
   }
   auto c = fresh();
   EXPECT_EQ(errorOf(*c, {"lldp tlv-select chassis-id"}),
             "line 1: lldp tlv-select: unknown TLV 'chassis-id' (one of port-description, "
             "system-name, system-description, system-capabilities, management-address, "
             "port-vlan, vlan-name, link-aggregation, max-frame-size, power-via-mdi, "
             "med-network-policy)");
}

TEST(ConfigLanguageTest, TextArguments) {
   auto c = fresh();
   good(*c, {"lldp system-name  core switch  1  ! the big one",
             R"(lldp system-description "says \"hi\" ! not a comment\x01\\")"});
   EXPECT_EQ(c->sysName().value(), "core switch  1");
   EXPECT_EQ(c->sysDesc().value(), std::string("says \"hi\" ! not a comment\x01\\"));

   // A '!' inside a word is text; a quote that does not start a word is text too.
   good(*c, {"lldp system-name sw!1", R"(lldp system-description 19" rack)"});
   EXPECT_EQ(c->sysName().value(), "sw!1");
   EXPECT_EQ(c->sysDesc().value(), "19\" rack");

   good(*c, {"lldp system-name " + std::string(255, 'n'), "lldp system-description \"\""});
   EXPECT_EQ(c->sysName().size(), 255u);
   EXPECT_TRUE(c->sysDesc().empty());
   good(*c, {"no lldp system-name", "lldp system-description x", "no lldp system-description"});
   EXPECT_TRUE(c->sysName().empty());
   EXPECT_TRUE(c->sysDesc().empty());

   EXPECT_EQ(errorOf(*c, {"lldp system-name " + std::string(256, 'n')}),
             "line 1: lldp system-name: text is 256 bytes, at most 255 allowed");
   EXPECT_EQ(errorOf(*c, {"lldp system-name \"open"}), "line 1: unterminated quoted text");
   EXPECT_EQ(errorOf(*c, {R"(lldp system-name "a\qb")"}),
             "line 1: unknown escape '\\q' in quoted text");
   EXPECT_EQ(errorOf(*c, {"lldp system-name \"a\"b"}), "line 1: text after closing quote");
   EXPECT_EQ(errorOf(*c, {"lldp system-name my \"big\" switch"}),
             "line 1: lldp system-name: quote the whole text or none of it");
   EXPECT_EQ(errorOf(*c, {"lldp system-name ! all comment"}),
             "line 1: lldp system-name: expected 'lldp system-name TEXT'");
}

TEST(ConfigLanguageTest, ManagementAddressModes) {
   auto c = fresh();
   good(*c, {"lldp management-address interface Management1"});
   EXPECT_EQ(c->mgmtAddrTxMode(), Lldp::mgmtAddrTxModeIntfName);
   EXPECT_EQ(c->mgmtAddrTxIntf(), Wire::IntfId("Management1"));
   good(*c, {"lldp management-address all"});
   EXPECT_EQ(c->mgmtAddrTxMode(), Lldp::mgmtAddrTxModeAll);
   EXPECT_TRUE(c->mgmtAddrTxIntf().empty());
   good(*c, {"lldp management-address interface eth0", "no lldp management-address"});
   EXPECT_EQ(c->mgmtAddrTxMode(), Lldp::mgmtAddrTxModeBest);
   EXPECT_TRUE(c->mgmtAddrTxIntf().empty());

   EXPECT_EQ(errorOf(*c, {"lldp management-address"}),
             "line 1: lldp management-address: expected 'lldp management-address all | "
             "interface NAME | vrf NAME'");
   EXPECT_EQ(errorOf(*c, {"lldp management-address interface"}),
             "line 1: lldp management-address interface: expected 'lldp management-address "
             "interface NAME'");
   EXPECT_EQ(errorOf(*c, {"no lldp management-address all"}),
             "line 1: unknown command 'no lldp management-address all'");
}

TEST(ConfigLanguageTest, PortForms) {
   auto c = fresh();
   good(*c, {"interface Ethernet3/1", "   no lldp transmit"});
   auto p = portOf(*c, "Ethernet3/1");
   ASSERT_TRUE(p);
   EXPECT_EQ(p->adminStatus(), Lldp::adminStatusRxOnly);
   // Neither direction is "disabled" (4), never 0.
   good(*c, {"interface Ethernet3/1", "   no lldp receive"});
   EXPECT_EQ(p->adminStatus(), Lldp::adminStatusDisabled);
   good(*c, {"interface Ethernet3/1", "   lldp transmit"});
   EXPECT_EQ(p->adminStatus(), Lldp::adminStatusTxOnly);
   good(*c, {"interface Ethernet3/1", "   lldp receive"});
   EXPECT_EQ(p->adminStatus(), Lldp::adminStatusTxAndRx);

   good(*c, {"interface eth1", "\tlldp receive rate-limit 5 interval 0.25", "\tlldp ztp vlan 4094",
             "\tlldp power-via-mdi fallback 15400"});
   auto e = portOf(*c, "eth1");
   ASSERT_TRUE(e);
   EXPECT_TRUE(e->rxRateLimitEnabled());
   EXPECT_EQ(e->rxRateLimitMaxLldpdus(), 5u);
   EXPECT_EQ(e->rxRateLimitInterval(), 0.25);
   EXPECT_EQ(e->ztpBootVlan().value(), 4094);
   EXPECT_EQ(e->poeAllocatedPowerFallback(), 15400u);

   good(*c, {"interface eth1", "  no lldp receive rate-limit", "  no lldp ztp vlan",
             "  no lldp power-via-mdi fallback"});
   EXPECT_FALSE(e->rxRateLimitEnabled());
   EXPECT_EQ(e->rxRateLimitMaxLldpdus(), 5u);  // `no` only switches the limit off
   EXPECT_EQ(e->ztpBootVlan().value(), 0);
   EXPECT_EQ(e->poeAllocatedPowerFallback(), 0u);

   // `interface` alone makes the port's record; `no interface` removes it.
   good(*c, {"interface veth-lab1", "no interface eth1"});
   EXPECT_TRUE(portOf(*c, "veth-lab1"));
   EXPECT_FALSE(portOf(*c, "eth1"));
   EXPECT_EQ(c->cliPortConfig().size(), 2u);
}

TEST(ConfigLanguageTest, CommentsBlanksAndInterfaceBlocks) {
   auto c = fresh();
   good(*c, {
                "! a comment",
                "# another",
                "",
                "   ",
                "lldp timer 7 # trailing comment",
                "interface eth1",
                "   ! a comment inside the block does not end it",
                "",
                "   no lldp transmit  ! nor does this one",
                "interface eth2",
                "   no lldp receive",
                "   exit",
                "lldp hold-time 60",
            });
   EXPECT_EQ(c->messageTxInterval(), 7u);
   EXPECT_EQ(c->messageTxHoldTime(), 60u);
   EXPECT_EQ(portOf(*c, "eth1")->adminStatus(), Lldp::adminStatusRxOnly);
   EXPECT_EQ(portOf(*c, "eth2")->adminStatus(), Lldp::adminStatusTxOnly);

   // A non-indented line or `exit` closes the block: per-port commands then fail, and
   // global commands fail inside a block.
   EXPECT_EQ(errorOf(*c, {"interface eth1", "no lldp transmit"}),
             "line 2: 'no lldp transmit' is a per-port command: indent it under 'interface "
             "NAME'");
   EXPECT_EQ(errorOf(*c, {"interface eth1", "  exit", "  lldp transmit"}),
             "line 3: 'lldp transmit' is a per-port command: indent it under 'interface NAME'");
   EXPECT_EQ(errorOf(*c, {"interface eth1", "  lldp timer 5"}),
             "line 2: 'lldp timer' is not a per-port command: end the interface block (no "
             "indentation) first");
   // Outside a block, indentation does not matter.
   good(*c, {"  lldp timer 9"});
   EXPECT_EQ(c->messageTxInterval(), 9u);
   // Windows line ends in a file are taken as plain ones.
   ASSERT_TRUE(Config::load("lldp timer 11\r\ninterface eth9\r\n  no lldp receive\r\n", *c));
   EXPECT_EQ(c->messageTxInterval(), 11u);
   EXPECT_EQ(portOf(*c, "eth9")->adminStatus(), Lldp::adminStatusTxOnly);
}

TEST(ConfigLanguageTest, BadLinesChangeNothing) {
   const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
       {{"lldp timer 0"}, "line 1: lldp timer: 0 is out of range 1..65535"},
       {{"lldp timer 65536"}, "line 1: lldp timer: 65536 is out of range 1..65535"},
       {{"lldp timer 99999999999999999999999"},
        "line 1: lldp timer: 99999999999999999999999 is out of range 1..65535"},
       {{"lldp timer -1"}, "line 1: lldp timer: '-1' is not a number"},
       {{"lldp timer 5s"}, "line 1: lldp timer: '5s' is not a number"},
       {{"lldp timer"}, "line 1: lldp timer: expected 'lldp timer SECONDS'"},
       {{"lldp timer 5 6"}, "line 1: lldp timer: expected 'lldp timer SECONDS'"},
       {{"no lldp timer 5"}, "line 1: no lldp timer: expected 'no lldp timer'"},
       {{"lldp hold-time 0"}, "line 1: lldp hold-time: 0 is out of range 1..65535"},
       {{"lldp timer reinitialization 21"},
        "line 1: lldp timer reinitialization: 21 is out of range 1..20"},
       {{"lldp foo"}, "line 1: unknown command 'lldp foo'"},
       {{"LLDP run"}, "line 1: unknown command 'LLDP run'"},
       {{"lldp"}, "line 1: unknown command 'lldp'"},
       {{"interface"}, "line 1: interface: expected 'interface NAME'"},
       {{"interface " + std::string(16, 'e')},
        "line 1: interface: interface name 'eeeeeeeeeeeeeeee' is longer than 15 bytes"},
       {{"interface \"eth 1\""},
        "line 1: interface: interface name 'eth 1' has a space or "
        "control byte"},
       {{"interface \"\""}, "line 1: interface: interface name is empty"},
       {{"interface eth1", "  lldp ztp vlan 4095"},
        "line 2: lldp ztp vlan: 4095 is out of range 1..4094"},
       {{"interface eth1", "  lldp ztp vlan 0"},
        "line 2: lldp ztp vlan: 0 is out of range 1..4094"},
       {{"interface eth1", "  lldp power-via-mdi fallback 0"},
        "line 2: lldp power-via-mdi fallback: 0 is out of range 1..100000"},
       {{"interface eth1", "  lldp receive rate-limit 0 interval 1"},
        "line 2: lldp receive rate-limit: 0 is out of range 1..4294967295"},
       {{"interface eth1", "  lldp receive rate-limit 5 interval 0"},
        "line 2: lldp receive rate-limit: 0 is out of range 0.001..3600"},
       {{"interface eth1", "  lldp receive rate-limit 5 interval nan"},
        "line 2: lldp receive rate-limit: 'nan' is not a number of seconds"},
       {{"interface eth1", "  lldp receive rate-limit 5 interval inf"},
        "line 2: lldp receive rate-limit: 'inf' is not a number of seconds"},
       {{"interface eth1", "  lldp receive rate-limit 5 every 1"},
        "line 2: lldp receive rate-limit: expected 'interval' after the count, not 'every'"},
       {{"interface eth1", "  lldp receive packet tagged drop"},
        "line 2: 'lldp receive packet tagged drop' is not a per-port command: end the "
        "interface block (no indentation) first"},
       {{"lldp management-address vrf " + std::string(16, 'v')},
        "line 1: lldp management-address vrf: vrf name 'vvvvvvvvvvvvvvvv' is longer than 15 "
        "bytes"},
   };
   for (const auto& [lines, expected] : cases) {
      auto c = fresh();
      good(*c, {"lldp timer 8", "interface eth7"});
      const Vel::Json before = Vel::toJson(*c);
      // The bad line comes after good ones, which must not have been applied either.
      std::vector<std::string> all = {"lldp timer 9", "interface eth8", "  no lldp receive"};
      all.insert(all.end(), lines.begin(), lines.end());
      Config::Result r = Config::apply(all, *c);
      ASSERT_FALSE(r.ok()) << lines.back();
      EXPECT_EQ(r.error->line, int(3 + expected[5] - '0')) << expected;
      EXPECT_EQ(r.error->message().substr(0, 7), "line " + std::to_string(r.error->line) + ":");
      EXPECT_EQ(r.error->reason, expected.substr(expected.find(": ") + 2));
      EXPECT_EQ(Vel::toJson(*c), before) << expected;
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
interface Ethernet1
   no lldp transmit
   lldp receive rate-limit 7 interval 0.1
   no lldp receive rate-limit
   lldp ztp vlan 100
   lldp power-via-mdi fallback 30000
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
   const std::vector<std::string> words = {"lldp",
                                           "no",
                                           "interface",
                                           "eth1",
                                           "Ethernet1/1",
                                           "exit",
                                           "run",
                                           "timer",
                                           "hold-time",
                                           "reinitialization",
                                           "tlv-select",
                                           "port-vlan",
                                           "system-name",
                                           "system-description",
                                           "receive",
                                           "transmit",
                                           "packet",
                                           "tagged",
                                           "drop",
                                           "management-address",
                                           "all",
                                           "vrf",
                                           "rate-limit",
                                           "interval",
                                           "ztp",
                                           "vlan",
                                           "power-via-mdi",
                                           "fallback",
                                           "0",
                                           "1",
                                           "20",
                                           "4094",
                                           "65536",
                                           "0.5",
                                           "-3",
                                           "!",
                                           "#",
                                           "\"",
                                           "\"a\\x4",
                                           "\"q\"",
                                           "   "};
   const std::vector<std::string> templates = {"lldp timer N",
                                               "no lldp run",
                                               "lldp hold-time N",
                                               "lldp timer reinitialization N",
                                               "no lldp tlv-select vlan-name",
                                               "lldp system-name sw N",
                                               "lldp system-description \"N\"",
                                               "lldp management-address interface ethN",
                                               "lldp management-address vrf vN",
                                               "interface ethN",
                                               "interface Ethernet1/N",
                                               "  no lldp transmit",
                                               "  no lldp receive",
                                               "  lldp receive rate-limit N interval N",
                                               "  lldp ztp vlan N",
                                               "  lldp power-via-mdi fallback N",
                                               "no interface ethN",
                                               "  exit"};
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

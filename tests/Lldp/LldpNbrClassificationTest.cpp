// Neighbour classification through the agent in virtual time: the rule that makes a
// neighbour a telephone, the operator's classes winning over LLDP, neighbours coming,
// changing and going, clear requests and what they leave, and refreshes that cost nothing.
#include "tests/Lldp/LldpAgentFixture.h"

using namespace LldpAgentTests;

namespace {

using Identity::NbrClassification::EntryKey;
using Identity::NbrClassification::NbrClass;
using Identity::NbrClassification::NbrClassSource;

// What a neighbour says of itself.
struct Says {
   bool telephoneCap = false;  // telephone bit enabled in System Capabilities
   uint8_t medDeviceType = 0;  // 0: no LLDP-MED capabilities TLV
   uint8_t policyApp = 0;      // a network policy of this application (0: none)
};

class NbrClassificationTest : public LldpAgentTest {
protected:
   void SetUp() override {
      LldpAgentTest::SetUp();
      status =
          db.entityAs<Identity::NbrClassification::Status>("identity/nbrClassification/status");
      cli = db.entityAs<Identity::NbrClassification::CliConfig>(
          "identity/nbrClassification/cliConfig");
      for (const char* p : {"eth1", "eth2"}) portUp(p);
   }
   static Wire::EthAddr mac(uint8_t last) { return Wire::EthAddr({0, 0x1c, 0x73, 0, 0, last}); }
   // A neighbour's LLDPDU as the receive processor records it.
   Lldp::RemoteSystem::Ptr neighbour(const char* port, int index, uint8_t macLast, Says says) {
      auto ps = agent->lldpStatusLocal()->portStatus(eth(port));
      std::string name = std::to_string(index);
      name.insert(name.begin(), 'n');
      auto r = ps->remoteSystemIs(index, Lldp::Msap({.chassisIdentifier = Lldp::ChassisIdentifier(
                                                         {.subtype = 7, .value = name})}));
      r->ethAddrIs(mac(macLast));
      r->expiryTimeIs(1e9);  // never ages out here
      Lldp::SystemCapabilitiesMap caps;
      caps.telephoneIs(says.telephoneCap);
      r->systemCapabilitiesIs(Lldp::SystemCapabilitiesTlv::create(caps, caps));
      r->medCapabilitiesTlvReceivedIs(says.medDeviceType != 0);
      r->medCapabilitiesInfoIs(Lldp::MedCapabilitiesInfo({.deviceType = says.medDeviceType}));
      r->networkPolicyTlvDelAll();
      if (says.policyApp)
         r->networkPolicyTlvIs(Lldp::NetworkPolicyTlv({.appType = says.policyApp}));
      ps->remoteSystemTouched(index);
      return r;
   }
   void gone(const char* port, int index) {
      agent->lldpStatusLocal()->portStatus(eth(port))->remoteSystemDel(index);
   }
   // "telephone/lldp", "device/configured", or "" when the station has no entry.
   std::string entry(const char* port, uint8_t macLast) {
      auto e = status->entry(EntryKey({.intfId = eth(port), .ethAddr = mac(macLast)}));
      return e ? e->nbrClass().stringValue() + "/" + e->source().stringValue() : "";
   }
   void clear(uint8_t macLast, const char* port) {
      cli->clearRequestEthAddrIs(macLast ? mac(macLast) : Wire::EthAddr());
      cli->clearRequestIntfIdIs(port ? eth(port) : Wire::IntfId());
      cli->clearRequestedByIs(Lldp::BoundedString255("tester"));
      cli->clearRequestTimeIs(loop().now() + ++clears);
   }

   Identity::NbrClassification::Status::Ptr status;
   Identity::NbrClassification::CliConfig::Ptr cli;
   int clears = 0;
};

TEST_F(NbrClassificationTest, TelephoneByCapabilityOrMedVoicePolicyElseDevice) {
   struct Case {
      Says says;
      const char* expected;
   } const cases[] = {
       {{}, "device/lldp"},
       {{.telephoneCap = true}, "telephone/lldp"},
       {{.medDeviceType = 3, .policyApp = 1}, "telephone/lldp"},  // endpoint class III, voice
       {{.medDeviceType = 1, .policyApp = 1}, "telephone/lldp"},  // class I
       {{.medDeviceType = 3, .policyApp = 6}, "device/lldp"},     // video conferencing only
       {{.medDeviceType = 3}, "device/lldp"},                     // no policy at all
       {{.medDeviceType = 4, .policyApp = 1}, "device/lldp"},     // network connectivity
       {{.policyApp = 1}, "device/lldp"},                         // policy without LLDP-MED
   };
   for (const auto& c : cases) {
      neighbour("eth1", 1, 1, c.says);
      EXPECT_EQ(entry("eth1", 1), c.expected)
          << int(c.says.telephoneCap) << " " << int(c.says.medDeviceType) << " "
          << int(c.says.policyApp);
   }
   // Keyed by port and source address: the same address elsewhere is another station.
   neighbour("eth2", 1, 1, {.telephoneCap = true});
   EXPECT_EQ(entry("eth2", 1), "telephone/lldp");
   EXPECT_EQ(status->entry().size(), 2u);
}

TEST_F(NbrClassificationTest, FollowsNeighboursAndConfiguredClassesWin) {
   auto phone = neighbour("eth1", 1, 1, {.telephoneCap = true});
   const auto key = EntryKey({.intfId = eth("eth1"), .ethAddr = mac(1)});
   ASSERT_EQ(entry("eth1", 1), "telephone/lldp");
   EXPECT_EQ(status->entry(key)->since(), 100);
   EXPECT_EQ(status->entry(key)->neighbor(), phone->msap());

   // Another change of the neighbour says nothing new: the entry stays as it was.
   loop().advanceBy(5);
   phone->sysNameIs(Lldp::BoundedString255Tlv("desk phone"));
   agent->lldpStatusLocal()->portStatus(eth("eth1"))->remoteSystemTouched(1);
   ASSERT_EQ(entry("eth1", 1), "telephone/lldp");
   EXPECT_EQ(status->entry(key)->since(), 100);
   // A capability change reclassifies, and the time moves.
   neighbour("eth1", 1, 1, {});
   EXPECT_EQ(entry("eth1", 1), "device/lldp");
   EXPECT_EQ(status->entry(key)->since(), 105);

   // The operator's class for the address wins; the port's own over the switch-wide one.
   cli->globalClassIs(mac(1), NbrClass::telephone);
   EXPECT_EQ(entry("eth1", 1), "telephone/configured");
   cli->intfClassIs(key, NbrClass::device);
   EXPECT_EQ(entry("eth1", 1), "device/configured");
   cli->intfClassDel(key);
   EXPECT_EQ(entry("eth1", 1), "telephone/configured");
   cli->globalClassDel(mac(1));
   EXPECT_EQ(entry("eth1", 1), "device/lldp");

   // A port's own class stands without a neighbour; a switch-wide one only where the
   // address is seen.
   cli->intfClassIs(EntryKey({.intfId = eth("eth2"), .ethAddr = mac(9)}), NbrClass::telephone);
   cli->globalClassIs(mac(8), NbrClass::device);
   EXPECT_EQ(entry("eth2", 9), "telephone/configured");
   EXPECT_EQ(entry("eth1", 8), "");
   neighbour("eth2", 3, 8, {.telephoneCap = true});
   EXPECT_EQ(entry("eth2", 8), "device/configured");

   // Two neighbours behind one address are one station, named after the one counted last;
   // a telephone among them makes it a telephone, and it stays while either is there.
   auto second = neighbour("eth1", 4, 1, {.telephoneCap = true});
   EXPECT_EQ(entry("eth1", 1), "telephone/lldp");
   EXPECT_EQ(status->entry(key)->neighbor(), second->msap());
   gone("eth1", 1);
   EXPECT_EQ(entry("eth1", 1), "telephone/lldp");
   auto first = neighbour("eth1", 1, 1, {});
   gone("eth1", 4);
   EXPECT_EQ(entry("eth1", 1), "device/lldp");
   EXPECT_EQ(status->entry(key)->neighbor(), first->msap());

   // Gone (shutdown, age-out, clear of the table) or its port gone: no entry.
   gone("eth1", 1);
   EXPECT_EQ(entry("eth1", 1), "");
   agent->lldpStatusLocal()->portStatus(eth("eth2"))->remoteSystemDelAll();
   EXPECT_EQ(entry("eth2", 8), "");
   EXPECT_EQ(entry("eth2", 9), "telephone/configured");
   neighbour("eth1", 2, 2, {.telephoneCap = true});
   portUp("eth1", Interface::forwardingModelDiscarded);
   EXPECT_EQ(entry("eth1", 2), "");

   // Stopping removes everything the machine published.
   agent->doCleanup();
   agent = nullptr;
   EXPECT_TRUE(status->entry().empty());
}

TEST_F(NbrClassificationTest, ClearsForgetWhatTheyMatchUntilTheNextLldpdu) {
   auto n1 = neighbour("eth1", 1, 1, {.telephoneCap = true});
   neighbour("eth1", 2, 2, {});
   neighbour("eth2", 1, 1, {});
   auto n4 = neighbour("eth2", 2, 4, {.telephoneCap = true});
   cli->globalClassIs(mac(2), NbrClass::telephone);
   const auto all = [&] {
      return entry("eth1", 1) + " " + entry("eth1", 2) + " " + entry("eth2", 1) + " " +
             entry("eth2", 4);
   };
   ASSERT_EQ(all(), "telephone/lldp telephone/configured device/lldp telephone/lldp");
   const auto counts = [&] {
      return std::to_string(status->lldpTelephones()) + std::to_string(status->lldpDevices()) +
             std::to_string(status->configuredTelephones()) +
             std::to_string(status->configuredDevices());
   };
   EXPECT_EQ(counts(), "2110");

   clear(1, nullptr);  // by address: on every port
   EXPECT_EQ(all(), " telephone/configured  telephone/lldp");
   // Its next LLDPDU, even one that changes nothing, brings it back.
   n1->lastRefreshTimeIs(200);
   EXPECT_EQ(all(), "telephone/lldp telephone/configured  telephone/lldp");

   clear(0, "eth2");  // by port
   EXPECT_EQ(all(), "telephone/lldp telephone/configured  ");
   n4->lastRefreshTimeIs(201);
   EXPECT_EQ(entry("eth2", 4), "telephone/lldp");

   clear(4, "eth1");  // both must match: nothing here
   EXPECT_EQ(all(), "telephone/lldp telephone/configured  telephone/lldp");

   clear(0, nullptr);  // all: configured classes stay
   EXPECT_EQ(all(), " telephone/configured  ");
   EXPECT_EQ(counts(), "0010");
   EXPECT_GT(status->lastClearTime(), 0);
   // A request not later than the last one served is not served again.
   n1->lastRefreshTimeIs(202);
   cli->clearRequestTimeIs(status->lastClearTime() - 1);
   EXPECT_EQ(entry("eth1", 1), "telephone/lldp");
   // Unconfigured while forgotten: gone until it sends again.
   cli->globalClassDel(mac(2));
   EXPECT_EQ(entry("eth1", 2), "");
   neighbour("eth1", 2, 2, {});
   EXPECT_EQ(entry("eth1", 2), "device/lldp");
}

// Counts what readers of the status hear.
struct EntryWatcher : Identity::NbrClassification::Status::Notifiee {
   int changes = 0;
   void entryChanged(const EntryKey&) override { ++changes; }
};

TEST_F(NbrClassificationTest, RefreshesAndOtherChangesCostReadersNothing) {
   auto n = neighbour("eth1", 1, 1, {.medDeviceType = 3, .policyApp = 1});
   EntryWatcher w;
   w.notifierIs(status);
   for (int i = 0; i < 100; ++i) {
      n->lastRefreshTimeIs(100 + i);
      n->ttlIs(uint16_t(120 + i));
      agent->lldpStatusLocal()->portStatus(eth("eth1"))->remoteSystemTouched(1);
   }
   EXPECT_EQ(w.changes, 0);
   neighbour("eth1", 1, 1, {.telephoneCap = true});  // still a telephone
   EXPECT_EQ(w.changes, 0);
   neighbour("eth1", 1, 1, {});
   EXPECT_EQ(w.changes, 1);
   w.notifierIs(nullptr);
}

}  // namespace

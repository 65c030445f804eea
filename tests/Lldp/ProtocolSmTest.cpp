// The protocol engine as a whole, in virtual time: the set of per-port machines follows
// the ports' records and packet access, local changes reach the ports they concern, and
// the global switch turns packet access on and off. Packet access is in memory: each port
// is cabled to a far end the test sends and listens on, or to another switch.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Lldp/LldpProtocolSm.h"
#include "tests/Support/Frames.h"
#include "tests/Support/Switch.h"
#include "tests/Support/VirtualTime.h"

namespace {

using namespace Lldp::Agent::Protocol;
using TestSupport::InMemoryLinks;
using TestSupport::Switch;

// Counts and keeps what arrives at a far end.
struct FarEnd final : Wire::Pam::Notifiee {
   explicit FarEnd(Vel::Ptr<Wire::InMemoryPam> p) : pam(std::move(p)) { pam->notifieeIs(this); }
   ~FarEnd() { pam->notifieeIs(nullptr); }
   void handleReadableCount() override {
      if (auto pkt = pam->rxPkt()) frames.emplace_back(pkt->data(), pkt->bytes());
   }
   void send(const TestSupport::Bytes& f) {
      auto pkt = Wire::PktMan::instance().newPkt();
      std::memcpy(pkt->dataAppend(f.size()), f.data(), f.size());
      pam->txPktIs(pkt);
   }
   Vel::Ptr<Wire::InMemoryPam> pam;
   std::vector<std::string> frames;
};

class ProtocolSmTest : public ::testing::Test {
protected:
   void SetUp() override {
      for (const char* p : {"Ethernet1", "Ethernet2"}) {
         links.linkIs(Wire::IntfId(p), Wire::IntfId(std::string("far-").append(p)));
      }
      sw = std::make_unique<Switch>("sw1", 1, links.factory());
   }
   void TearDown() override {
      far1.reset();
      far2.reset();
      sw.reset();
   }
   static Vel::EventLoop& loop() { return Vel::EventLoop::instance(); }
   void at(Vel::Seconds t) { loop().advanceTo(t0 + t); }
   // Both ports up and listened to; the first frames are out by t = 2.
   void twoPorts() {
      far1 = std::make_unique<FarEnd>(links.far("Ethernet1"));
      far2 = std::make_unique<FarEnd>(links.far("Ethernet2"));
      sw->start();
      sw->portIs("Ethernet1", 1);
      sw->portIs("Ethernet2", 2);
   }

   const Vel::Seconds t0 = 5000;
   TestSupport::VirtualTime vt{t0};
   std::vector<std::string>& logs = vt.logs;
   InMemoryLinks links;
   std::unique_ptr<Switch> sw;
   std::unique_ptr<FarEnd> far1, far2;
};

TEST_F(ProtocolSmTest, PortGetsAMachineOnlyWithAllItsInputs) {
   sw->start();
   const Wire::IntfId intf("Ethernet1");
   auto& protocol = *sw->root->protocolSm();
   // Every input but packet access: no machine.
   sw->intfStatusDir->intfStatusIs(intf)->linkStatusIs(Interface::linkStatusUp);
   sw->config->portConfigIs(intf);
   sw->localSystem->localPortIs(intf);
   sw->status->portStatusIs(intf, 0.0);
   EXPECT_FALSE(protocol.lldpPamSmHas(intf));
   EXPECT_EQ(sw->pamCollection->intfPams(), 0u);
   // Packet access wanted: the manager opens it and the port qualifies.
   sw->desiredIntfDir->intfDesiredIs(intf, true);
   EXPECT_EQ(sw->pamCollection->intfPams(), 1u);
   ASSERT_TRUE(protocol.lldpPamSmHas(intf));
   EXPECT_EQ(protocol.lldpPamSm(intf)->txFsmState(), txFsmTxWait);
   EXPECT_TRUE(protocol.localPortSmHas(intf));
   // Losing the interface status is enough to lose the machine.
   sw->intfStatusDir->intfStatusDel(intf);
   EXPECT_FALSE(protocol.lldpPamSmHas(intf));
   sw->intfStatusDir->intfStatusIs(intf)->linkStatusIs(Interface::linkStatusUp);
   EXPECT_TRUE(protocol.lldpPamSmHas(intf));
   // So is losing the local port, which also drops its local-port machine.
   sw->localSystem->localPortDel(intf);
   EXPECT_FALSE(protocol.lldpPamSmHas(intf));
   EXPECT_FALSE(protocol.localPortSmHas(intf));
}

TEST_F(ProtocolSmTest, PortConfigGoneDropsMachineAndNeighboursThenAFreshStart) {
   twoPorts();
   far1->send(TestSupport::lldpFrame("peer-a", 120));
   loop().advanceBy(0);
   ASSERT_EQ(sw->neighbours("Ethernet1"), 1u);
   at(40);
   const Wire::IntfId intf("Ethernet1");
   auto before = sw->sm("Ethernet1");
   ASSERT_TRUE(before);
   EXPECT_EQ(before->txFsmState(), txFsmIdle);
   const uint64_t deletesBefore = sw->status->remTablesDeletes();

   sw->config->portConfigDel(intf);
   EXPECT_FALSE(sw->sm("Ethernet1"));
   EXPECT_EQ(sw->neighbours("Ethernet1"), 0u);  // gone at once, not when they age
   EXPECT_EQ(sw->status->remTablesDeletes(), deletesBefore + 1);
   EXPECT_TRUE(sw->sm("Ethernet2"));  // the other port is untouched
   const size_t framesBefore = far1->frames.size();
   at(100);
   EXPECT_EQ(far1->frames.size(), framesBefore);  // the old machine's timers died with it

   sw->config->portConfigIs(intf);
   auto fresh = sw->sm("Ethernet1");
   ASSERT_TRUE(fresh);
   EXPECT_NE(fresh, before);
   EXPECT_EQ(fresh->txFsmState(), txFsmTxWait);  // initialised afresh: waits txDelay
   at(101.9);
   EXPECT_EQ(far1->frames.size(), framesBefore);
   at(102);
   EXPECT_EQ(far1->frames.size(), framesBefore + 1);
}

TEST_F(ProtocolSmTest, LocalSystemChangeReachesEveryPortLocalPortChangeOnlyItsOwn) {
   twoPorts();
   at(40);  // both idle: a change goes out at once
   const size_t one = far1->frames.size(), two = far2->frames.size();

   sw->localSystem->sysNameIs("renamed");
   loop().advanceBy(0);
   EXPECT_EQ(far1->frames.size(), one + 1);
   EXPECT_EQ(far2->frames.size(), two + 1);
   EXPECT_NE(far1->frames.back().find("renamed"), std::string::npos);

   at(50);  // out of txDelay again
   sw->localSystem->localPort(Wire::IntfId("Ethernet2"))->portDescIs("uplink");
   loop().advanceBy(0);
   EXPECT_EQ(far1->frames.size(), one + 1);
   EXPECT_EQ(far2->frames.size(), two + 2);

   // A PoE report on the port is a change of that port alone.
   at(55);
   auto poe = sw->localSystem->localPort(Wire::IntfId("Ethernet1"))->initilizeLocalPortPoeInfo();
   loop().advanceBy(0);
   const size_t afterPoeRecord = far1->frames.size();
   EXPECT_EQ(afterPoeRecord, one + 2);  // a PoE record appearing is a change too
   at(65);
   Environment::Power::PoePortStatus::PortStatus report;
   report.stateIs(Environment::Power::PoePortStatus::PortStatus::stateDelivering);
   poe->poePortStatusIs(report);
   loop().advanceBy(0);
   EXPECT_EQ(far1->frames.size(), afterPoeRecord + 1);
   EXPECT_EQ(far2->frames.size(), two + 2);
}

TEST_F(ProtocolSmTest, ChangesOfOneTurnGoOutTogetherInOneFrame) {
   twoPorts();
   at(40);
   const size_t one = far1->frames.size();
   // An update that writes several attributes: the frame sent at once has all of them,
   // and the rest of the txDelay has nothing left to send.
   sw->localSystem->sysNameIs("name-two");
   sw->localSystem->sysDescIs("desc-two");
   sw->localSystem->localPort(Wire::IntfId("Ethernet1"))->portDescIs("port-two");
   loop().advanceBy(0);
   ASSERT_EQ(far1->frames.size(), one + 1);
   const std::string& f = far1->frames.back();
   for (const char* s : {"name-two", "desc-two", "port-two"}) {
      EXPECT_NE(f.find(s), std::string::npos) << s;
   }
   at(42);
   EXPECT_EQ(far1->frames.size(), one + 1);
   EXPECT_EQ(sw->sm("Ethernet1")->txFsmState(), txFsmIdle);
}

TEST_F(ProtocolSmTest, GlobalSwitchTurnsPacketAccessOffAndOn) {
   twoPorts();
   far1->send(TestSupport::lldpFrame("peer-a", 120));
   at(10);
   ASSERT_EQ(sw->neighbours("Ethernet1"), 1u);
   EXPECT_TRUE(sw->root->pamMan()->enabled());

   sw->cliConfig->enabledIs(false);
   EXPECT_FALSE(sw->root->pamMan()->enabled());
   EXPECT_EQ(sw->pamCollection->intfPams(), 0u);
   EXPECT_TRUE(sw->root->protocolSm()->lldpPamSm().empty());
   EXPECT_EQ(sw->neighbours("Ethernet1"), 0u);
   // The records stay: only frames stop.
   EXPECT_TRUE(sw->config->portConfig(Wire::IntfId("Ethernet1")));
   EXPECT_TRUE(sw->root->protocolSm()->localPortSmHas(Wire::IntfId("Ethernet1")));

   sw->cliConfig->enabledIs(true);
   EXPECT_EQ(sw->pamCollection->intfPams(), 2u);
   ASSERT_TRUE(sw->sm("Ethernet1"));
   EXPECT_EQ(sw->sm("Ethernet1")->txFsmState(), txFsmTxWait);
   // A new cable end to listen on: the old one went with the old packet access.
   far1 = std::make_unique<FarEnd>(links.far("Ethernet1"));
   at(12);
   EXPECT_EQ(far1->frames.size(), 1u);
}

TEST_F(ProtocolSmTest, PacketAccessThatCannotBeOpenedIsRetriedWhenTheInterfaceAppears) {
   links.missing[Wire::IntfId("Ethernet1")] = true;
   sw->start();
   sw->portIs("Ethernet1", 1);
   auto& man = *sw->root->pamMan();
   ASSERT_EQ(man.failed().count(Wire::IntfId("Ethernet1")), 1u);
   EXPECT_EQ(man.failed().at(Wire::IntfId("Ethernet1")), "no such interface");
   EXPECT_FALSE(sw->sm("Ethernet1"));

   links.missing.clear();
   // The platform reports the device (here: its status record comes again).
   sw->intfStatusDir->intfStatusDel(Wire::IntfId("Ethernet1"));
   sw->intfStatusDir->intfStatusIs(Wire::IntfId("Ethernet1"))
       ->linkStatusIs(Interface::linkStatusUp);
   EXPECT_TRUE(man.failed().empty());
   EXPECT_TRUE(sw->sm("Ethernet1"));

   // Not wanted any more: closed, and a later retry does nothing.
   sw->desiredIntfDir->intfDesiredIs(Wire::IntfId("Ethernet1"), false);
   EXPECT_EQ(sw->pamCollection->intfPams(), 0u);
   EXPECT_FALSE(sw->sm("Ethernet1"));
   const int made = links.made;
   man.intfRetry(Wire::IntfId("Ethernet1"));
   EXPECT_EQ(links.made, made);
}

TEST_F(ProtocolSmTest, TwoSwitchesDiscoverEachOtherThroughTheirEngines) {
   InMemoryLinks cable;
   cable.linkIs(Wire::IntfId("Ethernet7"), Wire::IntfId("Ethernet9"));
   Switch a("left", 0x0a, cable.factory()), b("right", 0x0b, cable.factory());
   a.start();
   b.start();
   a.portIs("Ethernet7", 7);
   b.portIs("Ethernet9", 9);
   at(2);
   ASSERT_EQ(a.neighbours("Ethernet7"), 1u);
   ASSERT_EQ(b.neighbours("Ethernet9"), 1u);
   auto seen = b.portStatus("Ethernet9")->remoteSystem().begin()->second;
   EXPECT_EQ(seen->sysName().value(), "left");
   EXPECT_EQ(seen->msap().portIdentifier().value().value(), "Ethernet7");
   // A port taken away on one side: the other ages its neighbour out at the TTL.
   a.portDel("Ethernet7");
   at(2 + 120 - 0.5);
   EXPECT_EQ(b.neighbours("Ethernet9"), 1u);
   at(2 + 120);
   EXPECT_EQ(b.neighbours("Ethernet9"), 0u);
   EXPECT_EQ(std::count(logs.begin(), logs.end(), "LLDP_NEIGHBOR_TIMEOUT"), 1);
}

}  // namespace

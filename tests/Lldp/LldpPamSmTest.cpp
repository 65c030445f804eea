// The per-port machine in virtual time: two machines joined by an in-memory packet access
// pair, timers advanced by the test.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Lldp/LldpProtocolSm.h"
#include "tests/Support/Frames.h"
#include "tests/Support/LldpPort.h"
#include "tests/Support/VirtualTime.h"

namespace {

using Lldp::Agent::Protocol::LldpPamSm;
using namespace Lldp::Agent::Protocol;

using Side = TestSupport::LldpPort;

class LldpPamSmTest : public ::testing::Test {
protected:
   void SetUp() override {
      auto [pa, pb] = Wire::InMemoryPam::pair(Wire::IntfId("Ethernet1"), Wire::IntfId("Ethernet2"));
      pamA = pa;
      pamB = pb;
      a = std::make_unique<Side>("Ethernet1", pamA, 1);
      b = std::make_unique<Side>("Ethernet2", pamB, 2);
   }
   void TearDown() override {
      a.reset();
      b.reset();
   }
   static Vel::EventLoop& loop() { return Vel::EventLoop::instance(); }
   void at(Vel::Seconds t) { loop().advanceTo(t0 + t); }
   // The times (relative to t0) of A's transmissions up to `until`, one second apart.
   std::vector<double> sendTimesOfA(double from, double until) {
      std::vector<double> times;
      uint32_t before = a->sent();
      for (double t = from; t <= until; t += 0.5) {
         at(t);
         if (a->sent() != before) times.push_back(a->portStatus->lastTxTime() - t0);
         before = a->sent();
      }
      return times;
   }
   // Sends one LLDPDU from B's side of the link with this chassis name and TTL.
   void injectFromB(const std::string& chassis, int ttl, uint16_t ethType = 0x88cc,
                    bool tagged = false) {
      const TestSupport::Bytes f = TestSupport::lldpFrame(chassis, uint16_t(ttl), ethType, tagged);
      auto pkt = Wire::PktMan::instance().newPkt();
      std::memcpy(pkt->dataAppend(f.size()), f.data(), f.size());
      pamB->txPktIs(pkt);
   }

   const Vel::Seconds t0 = 1000;
   TestSupport::VirtualTime vt{t0};
   std::vector<std::string>& logs = vt.logs;
   Vel::Ptr<Wire::InMemoryPam> pamA, pamB;
   std::unique_ptr<Side> a, b;
};

TEST_F(LldpPamSmTest, TwoMachinesDiscoverEachOtherAfterTxDelay) {
   a->sm->handleInitialized();
   b->sm->handleInitialized();
   EXPECT_EQ(a->sm->txFsmState(), txFsmTxWait);
   at(1.9);
   EXPECT_EQ(a->sent(), 0u);  // the first frame waits txDelay
   at(2);
   EXPECT_EQ(a->sent(), 1u);
   EXPECT_EQ(a->portStatus->lastTxTime(), t0 + 2);
   ASSERT_EQ(a->neighbours(), 1u);
   ASSERT_EQ(b->neighbours(), 1u);
   auto seenByB = b->portStatus->remoteSystem().begin()->second;
   EXPECT_EQ(seenByB->sysName().value(), "sw-Ethernet1");
   EXPECT_EQ(seenByB->msap().portIdentifier().value().value(), "Ethernet1");
   EXPECT_EQ(seenByB->ethAddr(), a->intfStatus->addr());
   // Each machine heard a new neighbour while in txDelay: one more frame when it ends.
   at(4);
   EXPECT_EQ(a->sent(), 2u);
}

TEST_F(LldpPamSmTest, RefreshEveryMessageTxIntervalAndLocalChanges) {
   a->sm->handleInitialized();  // B stays silent: no neighbour-triggered frames
   EXPECT_EQ(sendTimesOfA(0, 95), (std::vector<double>{2, 32, 62, 92}));
   // Idle: a local change goes out at once; a second within txDelay waits for the
   // running delay without restarting it; a third in txWait does nothing.
   at(100);
   EXPECT_EQ(a->sm->txFsmState(), txFsmIdle);
   a->sm->doProcessSomethingChangedLocal();
   EXPECT_EQ(a->sent(), 5u);
   at(101);
   a->sm->doProcessSomethingChangedLocal();
   EXPECT_EQ(a->sm->txFsmState(), txFsmTxWait);
   at(101.5);
   a->sm->doProcessSomethingChangedLocal();
   EXPECT_EQ(sendTimesOfA(101.5, 140), (std::vector<double>{102, 132}));
}

TEST_F(LldpPamSmTest, LinkDownReinitialisesWithoutAShutdownFrame) {
   a->sm->handleInitialized();
   at(10);
   const uint32_t before = a->sent();
   a->intfStatus->linkStatusIs(Interface::linkStatusDown);
   EXPECT_EQ(a->sm->txFsmState(), txFsmReinitializing);
   at(11);
   a->intfStatus->linkStatusIs(Interface::linkStatusUp);  // back during reinitDelay
   EXPECT_EQ(a->sm->txFsmState(), txFsmReinitializing);
   EXPECT_EQ(a->sent(), before);
   at(12);  // reinitDelay over: disabled, sees the link up, waits txDelay
   EXPECT_EQ(a->sm->txFsmState(), txFsmTxWait);
   EXPECT_EQ(sendTimesOfA(12, 14), (std::vector<double>{14}));
   // Unknown link status stops transmission too.
   a->intfStatus->linkStatusIs(Interface::linkStatusUnknown);
   EXPECT_EQ(a->sm->txFsmState(), txFsmReinitializing);
}

TEST_F(LldpPamSmTest, ReceiveOnlyPortNeverSendsButLearns) {
   a->portConfig->adminStatusIs(Lldp::adminStatusRxOnly);
   a->sm->handleInitialized();
   b->sm->handleInitialized();
   at(100);
   EXPECT_EQ(a->sent(), 0u);
   EXPECT_EQ(a->sm->txFsmState(), txFsmDisabled);
   EXPECT_EQ(a->neighbours(), 1u);
   EXPECT_EQ(b->neighbours(), 0u);
   // Transmit-only to transmit-and-receive while idle changes nothing on B's side.
   b->portConfig->adminStatusIs(Lldp::adminStatusTxOnly);
   EXPECT_EQ(b->sm->txFsmState(), txFsmIdle);
}

TEST_F(LldpPamSmTest, RateLimitDropsAndLogsOncePerFixedWindow) {
   a->portConfig->rxRateLimitMaxLldpdusIs(5);
   a->sm->handleInitialized();  // the window runs [0, 1), [1, 2), ...
   at(0.1);
   for (int i = 0; i < 7; ++i) injectFromB(std::string("c").append(std::to_string(i)), 120);
   at(0.2);
   EXPECT_EQ(a->neighbours(), 5u);
   EXPECT_EQ(a->sm->rxLldpdusRateLimited(), 2u);
   EXPECT_EQ(std::count(logs.begin(), logs.end(), "LLDP_RX_RATELIMIT"), 1);
   at(1.1);  // a new window
   injectFromB("c7", 120);
   at(1.2);
   EXPECT_EQ(a->neighbours(), 6u);
   EXPECT_EQ(a->sm->rxLldpdus(), 1u);
}

TEST_F(LldpPamSmTest, RateLimitClockSleepsUntilAnLldpduCountsAndKeepsItsBoundaries) {
   a->portConfig->rxRateLimitMaxLldpdusIs(2);
   a->sm->handleInitialized();  // intervals [0, 1), [1, 2), ... however quiet the port
   at(3.5);
   EXPECT_EQ(a->sm->rxRateLimitClock().timeMin(), Vel::never);
   at(3.9);
   for (int i = 0; i < 3; ++i) injectFromB("q" + std::to_string(i), 120);
   at(3.95);
   EXPECT_EQ(a->sm->rxLldpdusRateLimited(), 1u);
   EXPECT_EQ(a->sm->rxRateLimitClock().timeMin(), t0 + 4);
   at(4);  // the interval ends on time, then the clock sleeps again
   EXPECT_EQ(a->sm->rxLldpdus(), 0u);
   EXPECT_EQ(a->sm->rxRateLimitClock().timeMin(), Vel::never);
   at(4.05);
   for (int i = 3; i < 5; ++i) injectFromB("q" + std::to_string(i), 120);
   at(4.1);
   EXPECT_EQ(a->sm->rxLldpdusRateLimited(), 1u);
   EXPECT_EQ(a->neighbours(), 4u);
}

TEST_F(LldpPamSmTest, FramesForOtherAddressesOrTypesAreIgnoredTaggedOnesAccepted) {
   a->sm->handleInitialized();
   at(0.1);
   injectFromB("x", 120, 0x0800);
   injectFromB("tagged", 120, 0x88cc, true);
   at(0.2);
   ASSERT_EQ(a->neighbours(), 1u);
   EXPECT_EQ(a->portStatus->remoteSystem().begin()->second->msap().chassisIdentifier().value(),
             Lldp::IdentifierValue("tagged"));
   EXPECT_EQ(a->portStatus->rxFramesTotal(), 1u);  // the IP frame never reached the processor
}

TEST_F(LldpPamSmTest, AgeingAtExactExpiryAndLinkDownVersusUnknown) {
   a->sm->handleInitialized();
   at(0.5);
   injectFromB("ten", 10);
   injectFromB("twenty", 20);
   at(0.5);
   ASSERT_EQ(a->neighbours(), 2u);
   EXPECT_EQ(a->sm->ageClock().timeMin(), t0 + 10.5);
   at(10.4);
   EXPECT_EQ(a->neighbours(), 2u);
   at(10.5);  // expiry equals now: aged
   EXPECT_EQ(a->neighbours(), 1u);
   EXPECT_EQ(a->sm->ageClock().timeMin(), t0 + 20.5);
   EXPECT_EQ(a->portStatus->rxAgeoutsTotal(), 1u);
   EXPECT_EQ(a->status->remTablesAgeouts(), 1u);
   EXPECT_EQ(std::count(logs.begin(), logs.end(), "LLDP_NEIGHBOR_TIMEOUT"), 1);
   // Unknown link status keeps neighbours; down deletes them without counting ageouts.
   injectFromB("third", 120);
   at(11);
   a->intfStatus->linkStatusIs(Interface::linkStatusUnknown);
   EXPECT_EQ(a->neighbours(), 2u);
   const uint32_t deletes = a->status->remTablesDeletes();
   a->intfStatus->linkStatusIs(Interface::linkStatusDown);
   EXPECT_EQ(a->neighbours(), 0u);
   EXPECT_EQ(a->status->remTablesDeletes(), deletes + 2);
   EXPECT_EQ(a->portStatus->rxAgeoutsTotal(), 1u);
   at(30);  // nothing left to age: the clock is parked
   EXPECT_EQ(a->sm->ageClock().timeMin(), Vel::never);
}

}  // namespace

// The Power via MDI information a PoE port advertises: which form is chosen, the bytes of
// each form, and the fallback reply.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "Records/PoeUtils.h"
#include "tests/Support/Frames.h"

namespace {

using Lldp::PowerViaMdiInfo;
using PoeStatus = Environment::Power::PoePortStatus::PortStatus;
using TestSupport::Bytes;
using TestSupport::bytes;

constexpr uint8_t delivering = PoeStatus::stateDelivering;
constexpr uint8_t searching = PoeStatus::stateSearching;

// The power agent's report on the port, its fields in declaration order.
PoeStatus agent(uint8_t state, uint8_t pseType, uint8_t powerClass, uint8_t pair,
                uint8_t source = 1, uint8_t priority = 0, uint16_t allocated = 0,
                uint16_t maxAvailable = 0) {
   return PoeStatus({state, pseType, powerClass, pair, source, priority, allocated, maxAvailable});
}

struct PoeBuild : ::testing::Test {
   void SetUp() override { info.fill(0x5a); }

   // A PD neighbour's request in the given form.
   Vel::Ptr<Lldp::RemoteSystem> pdRequest(int index, uint8_t form, uint16_t requested) {
      auto r = portStatus->remoteSystemIs(index, Lldp::Msap());
      // No support bits, pair 1, class 4; type 2 PD, PSE source, critical.
      PowerViaMdiInfo p({form, 0x00, 1, 5, 0x51, requested});
      if (form == PowerViaMdiInfo::formDot3bt) {
         p.pdRequestedPowerAIs(200);
         p.pdRequestedPowerBIs(180);
         p.powerStatusIs(0x3000 | 0x0155);  // 4-pair dual-signature PD, class fields
      }
      r->powerViaMdiInfoIs(p);
      r->powerViaMdiTlvReceivedIs(true);
      return r;
   }
   // Builds from the power agent's status `s`; returns the length.
   int build(const PoeStatus& s, bool received = true) {
      poe.poePortStatusIs(s);
      return PoeUtils::buildPowerViaMdiTlv(info.data(), poe, received);
   }
   int fallback(bool received = true) {
      return PoeUtils::maybeBuildFallbackPowerViaMdiTlv(info.data(), poe, received, portConfig,
                                                        portStatus);
   }
   // `n` bytes of what was built, from `at`.
   Bytes built(size_t at, size_t n) const { return Bytes(info.data() + at, info.data() + at + n); }

   std::array<char, 64> info{};
   Lldp::LocalPortPoeInfo poe;
   Lldp::PortConfig::Ptr portConfig = Vel::make<Lldp::PortConfig>(Wire::IntfId("Ethernet1"));
   Lldp::PortStatus::Ptr portStatus = Vel::make<Lldp::PortStatus>(Wire::IntfId("Ethernet1"), 0.0);
};

TEST_F(PoeBuild, Dot3afFormForType1PseWithoutNeighbourRequest) {
   ASSERT_EQ(build(agent(delivering, 1, 3, 2), false), 3);
   // PSE, supported, enabled; pair 2; class 3; nothing written past the form.
   EXPECT_EQ(built(0, 4), bytes({0x07, 2, 4, 0x5a}));

   // Searching: not enabled. A pair of 0 becomes 1, a class above 4 is capped.
   ASSERT_EQ(build(agent(searching, 1, 7, 0), false), 3);
   EXPECT_EQ(built(0, 3), bytes({0x03, 1, 5}));
}

TEST_F(PoeBuild, Dot3atFormEchoesRequestAndReportsAllocation) {
   // Type 1 PSE: the 802.3at part only because a neighbour sent Power via MDI.
   ASSERT_EQ(build(agent(delivering, 1, 2, 1, 2, 3, 70)), 8);
   // Type 1 PSE, backup source, low; no neighbour to echo; 7 W allocated.
   EXPECT_EQ(built(3, 5), bytes({0x80 | 0x20 | 0x03, 0, 0, 0, 70}));

   // Type 2 PSE: always the 802.3at form; echoes the answered neighbour's request.
   poe.remoteSystemIs(pdRequest(1, PowerViaMdiInfo::formDot3at, 255));
   ASSERT_EQ(build(agent(delivering, 2, 4, 1, 1, 1, 255), false), 8);
   // Class 4; type 2 PSE, primary, critical; 25.5 W asked and allocated.
   EXPECT_EQ(built(0, 8), bytes({0x07, 1, 5, 0x11, 0, 255, 0, 255}));

   // A neighbour in the 802.3bt form answered by a type 2 PSE still gets the 802.3at form.
   poe.remoteSystemIs(pdRequest(2, PowerViaMdiInfo::formDot3bt, 400));
   EXPECT_EQ(build(poe.poePortStatus()), 8);
   EXPECT_EQ(built(4, 2), bytes({0x01, 0x90}));
}

TEST_F(PoeBuild, Dot3btFormForType3PseAnsweringDot3btPd) {
   poe.remoteSystemIs(pdRequest(1, PowerViaMdiInfo::formDot3bt, 380));
   PoeStatus s = agent(delivering, 3, 6, 1, 1, 2, 400, 600);
   ASSERT_EQ(build(s), 25);
   EXPECT_EQ(
       built(0, 25),
       bytes({0x0f, 1,    5,    0x12,  // with pair control; type 2 PSE, primary, high
              0x01, 0x7c, 0x01, 0x90,  // 38 W asked and 40 W allocated
              0,    200,  0,    180,   // the per-pair requests echoed
              0,    200,  0,    180,   // and granted: 200 + 180 fit in 400
              0xfd, 0x55,              // 4-pair dual-signature on both pairs, PD's fields
              0,    0x02, 0x58, 0,    0, 0, 0}));  // setup, 60 W available, autoclass, power down

   // Not enough for the per-pair request: no per-pair allocation is confirmed.
   s.allocatedPowerIs(379);
   ASSERT_EQ(build(s), 25);
   EXPECT_EQ(built(12, 4), bytes({0, 0, 0, 0}));

   // Not delivering: the PSE's own power status fields are clear, the PD's are echoed.
   s.stateIs(searching);
   ASSERT_EQ(build(s), 25);
   EXPECT_EQ(built(0, 1), bytes({0x0b}));
   EXPECT_EQ(built(16, 2), bytes({0x31, 0x55}));
}

TEST_F(PoeBuild, Dot3btPowerStatusForSingleSignaturePd) {
   auto pd = pdRequest(1, PowerViaMdiInfo::formDot3bt, 250);
   auto p = pd->powerViaMdiInfo();
   p.powerStatusIs(0x1000 | 0x0004);  // single-signature PD, class 4
   p.pdRequestedPowerAIs(0);
   p.pdRequestedPowerBIs(0);
   pd->powerViaMdiInfoIs(p);
   poe.remoteSystemIs(pd);
   PoeStatus s = agent(delivering, 4, 0, 2, 1, 0, 250);
   ASSERT_EQ(build(s), 25);
   EXPECT_EQ(built(12, 2), bytes({0, 0}));  // no per-pair request
   // 2-pair powering on alternative B: 0x4000 | 0x1000 | 0x0800 | 0x0004.
   EXPECT_EQ(built(16, 2), bytes({0x58, 0x04}));

   s.allocatedPowerIs(301);  // beyond two pairs: 0x8000 | 0x1000 | 0x0c00 | 0x0004
   ASSERT_EQ(build(s), 25);
   EXPECT_EQ(built(16, 2), bytes({0x9c, 0x04}));
}

TEST_F(PoeBuild, FallbackRepliesToPdRequestWithMinOfRequestAndFallback) {
   portConfig->poeAllocatedPowerFallbackIs(15400);  // 15.4 W
   pdRequest(1, PowerViaMdiInfo::formDot3at, 255);
   ASSERT_EQ(fallback(), 8);
   // PSE, supported, enabled; pair 1; the PD's class echoed; type 2 PSE, primary, unknown
   // priority; the request echoed; 15.4 W allocated.
   EXPECT_EQ(built(0, 8), bytes({0x07, 1, 5, 0x10, 0, 255, 0, 154}));

   // A generous fallback grants exactly the request.
   portConfig->poeAllocatedPowerFallbackIs(90000);
   ASSERT_EQ(fallback(), 8);
   EXPECT_EQ(built(6, 2), bytes({0, 255}));
}

TEST_F(PoeBuild, FallbackOnlyAnswersPdRequestsInTheLongerForms) {
   auto pd = pdRequest(1, PowerViaMdiInfo::formDot3at, 130);
   // No configuration, or no fallback configured.
   EXPECT_EQ(
       PoeUtils::maybeBuildFallbackPowerViaMdiTlv(info.data(), poe, true, nullptr, portStatus), 0);
   EXPECT_EQ(fallback(), 0);
   portConfig->poeAllocatedPowerFallbackIs(7000);
   // The port says nobody sent Power via MDI.
   EXPECT_EQ(fallback(false), 0);

   // A request in the 802.3af form carries no power value.
   auto p = pd->powerViaMdiInfo();
   p.formIs(PowerViaMdiInfo::formDot3af);
   pd->powerViaMdiInfoIs(p);
   EXPECT_EQ(fallback(), 0);
   // Another PSE is not asking for power.
   p.formIs(PowerViaMdiInfo::formDot3at);
   p.typeSourcePriorityIs(0x10);
   pd->powerViaMdiInfoIs(p);
   EXPECT_EQ(fallback(), 0);

   // A second neighbour that is a PD in the 802.3bt form is answered in the 802.3at form.
   pdRequest(2, PowerViaMdiInfo::formDot3bt, 500);
   ASSERT_EQ(fallback(), 8);
   EXPECT_EQ(built(4, 4), bytes({0x01, 0xf4, 0, 70}));
}

TEST_F(PoeBuild, FallbackPrefersTheNeighbourThePortAnswers) {
   portConfig->poeAllocatedPowerFallbackIs(0xffffffffu);  // capped to the 16-bit field
   pdRequest(1, PowerViaMdiInfo::formDot3at, 100);
   auto chosen = pdRequest(2, PowerViaMdiInfo::formDot3at, 0xffff);
   poe.remoteSystemIs(chosen);
   ASSERT_EQ(fallback(), 8);
   EXPECT_EQ(built(4, 4), bytes({0xff, 0xff, 0xff, 0xff}));

   // When that neighbour no longer qualifies, the first one that does is answered.
   chosen->powerViaMdiTlvReceivedIs(false);
   ASSERT_EQ(fallback(), 8);
   EXPECT_EQ(built(4, 2), bytes({0, 100}));
}

}  // namespace

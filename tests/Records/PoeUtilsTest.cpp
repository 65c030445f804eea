// The Power via MDI information a PoE port advertises: which form is chosen, the fields
// of each form, the fallback reply, and that the decoder reads back what was built.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "Records/LldpExtDot3Parse.h"
#include "Records/PoeUtils.h"

namespace {

using Lldp::PowerViaMdiInfo;
using PoeStatus = Environment::Power::PoePortStatus::PortStatus;

uint8_t u8(const char* p) {
   return static_cast<uint8_t>(*p);
}
uint16_t u16(const char* p) {
   return static_cast<uint16_t>((u8(p) << 8) | u8(p + 1));
}

struct PoeBuild : ::testing::Test {
   void SetUp() override { info.fill(0x5a); }

   // A PD neighbour's request in the given form.
   Vel::Ptr<Lldp::RemoteSystem> pdRequest(int index, uint8_t form, uint16_t requested) {
      auto r = portStatus->remoteSystemIs(index, Lldp::Msap());
      PowerViaMdiInfo p({.form = form,
                         .mdiPowerSupport = 0x00,
                         .psePowerPair = 1,
                         .powerClass = 5,
                         .typeSourcePriority = 0x51,  // type 2 PD, PSE source, critical
                         .pdRequestedPower = requested});
      if (form == PowerViaMdiInfo::formDot3bt) {
         p.pdRequestedPowerAIs(200);
         p.pdRequestedPowerBIs(180);
         p.powerStatusIs(0x3000 | 0x0155);  // 4-pair dual-signature PD, class fields
      }
      r->powerViaMdiInfoIs(p);
      r->powerViaMdiTlvReceivedIs(true);
      return r;
   }
   // Decodes what a builder produced, as a neighbour of ours would.
   PowerViaMdiInfo roundTrip(int len) {
      auto rx = Vel::make<Lldp::RemoteSystem>(9, Lldp::Msap());
      EXPECT_EQ(parseExtDot3Tlv(2, len, info.data(), rx), TlvParseResultOk);
      EXPECT_TRUE(rx->powerViaMdiTlvReceived());
      return rx->powerViaMdiInfo();
   }

   std::array<char, 64> info{};
   Lldp::LocalPortPoeInfo poe;
   Lldp::PortConfig::Ptr portConfig = Vel::make<Lldp::PortConfig>(Wire::IntfId("Ethernet1"));
   Lldp::PortStatus::Ptr portStatus = Vel::make<Lldp::PortStatus>(Wire::IntfId("Ethernet1"), 0.0);
};

TEST_F(PoeBuild, Dot3afFormForType1PseWithoutNeighbourRequest) {
   poe.poePortStatusIs(PoeStatus(
       {.state = PoeStatus::stateDelivering, .pseType = 1, .powerClass = 3, .psePowerPair = 2}));
   ASSERT_EQ(PoeUtils::buildPowerViaMdiTlv(info.data(), poe, false), 3);
   EXPECT_EQ(u8(&info[0]), 0x07);  // PSE, supported, enabled
   EXPECT_EQ(u8(&info[1]), 2);
   EXPECT_EQ(u8(&info[2]), 4);     // class 3
   EXPECT_EQ(u8(&info[3]), 0x5a);  // nothing written past the form

   // Searching: not enabled. A pair of 0 becomes 1, a class above 4 is capped.
   poe.poePortStatusIs(PoeStatus(
       {.state = PoeStatus::stateSearching, .pseType = 1, .powerClass = 7, .psePowerPair = 0}));
   ASSERT_EQ(PoeUtils::buildPowerViaMdiTlv(info.data(), poe, false), 3);
   EXPECT_EQ(u8(&info[0]), 0x03);
   EXPECT_EQ(u8(&info[1]), 1);
   EXPECT_EQ(u8(&info[2]), 5);
   EXPECT_EQ(roundTrip(3), PowerViaMdiInfo({.form = PowerViaMdiInfo::formDot3af,
                                            .mdiPowerSupport = 0x03,
                                            .psePowerPair = 1,
                                            .powerClass = 5}));
}

TEST_F(PoeBuild, Dot3atFormEchoesRequestAndReportsAllocation) {
   // Type 1 PSE: the 802.3at part only because a neighbour sent Power via MDI.
   poe.poePortStatusIs(PoeStatus({.state = PoeStatus::stateDelivering,
                                  .pseType = 1,
                                  .powerClass = 2,
                                  .powerSource = 2,
                                  .priority = 3,
                                  .allocatedPower = 70}));
   ASSERT_EQ(PoeUtils::buildPowerViaMdiTlv(info.data(), poe, true), 8);
   EXPECT_EQ(u8(&info[3]), 0x80 | 0x20 | 0x03);  // type 1 PSE, backup source, low
   EXPECT_EQ(u16(&info[4]), 0);                  // no neighbour to echo
   EXPECT_EQ(u16(&info[6]), 70);

   // Type 2 PSE: always the 802.3at form; echoes the answered neighbour's request.
   poe.poePortStatusIs(PoeStatus({.state = PoeStatus::stateDelivering,
                                  .pseType = 2,
                                  .powerClass = 4,
                                  .priority = 1,
                                  .allocatedPower = 255}));
   poe.remoteSystemIs(pdRequest(1, PowerViaMdiInfo::formDot3at, 255));
   ASSERT_EQ(PoeUtils::buildPowerViaMdiTlv(info.data(), poe, false), 8);
   const PowerViaMdiInfo rx = roundTrip(8);
   EXPECT_EQ(rx, PowerViaMdiInfo({.form = PowerViaMdiInfo::formDot3at,
                                  .mdiPowerSupport = 0x07,
                                  .psePowerPair = 1,
                                  .powerClass = 5,
                                  .typeSourcePriority = 0x11,  // type 2 PSE, primary, critical
                                  .pdRequestedPower = 255,
                                  .pseAllocatedPower = 255}));
   EXPECT_TRUE(rx.fromPse());

   // A neighbour in the 802.3bt form answered by a type 2 PSE still gets the 802.3at form.
   poe.remoteSystemIs(pdRequest(2, PowerViaMdiInfo::formDot3bt, 400));
   EXPECT_EQ(PoeUtils::buildPowerViaMdiTlv(info.data(), poe, true), 8);
   EXPECT_EQ(u16(&info[4]), 400);
}

TEST_F(PoeBuild, Dot3btFormForType3PseAnsweringDot3btPd) {
   poe.poePortStatusIs(PoeStatus({.state = PoeStatus::stateDelivering,
                                  .pseType = 3,
                                  .powerClass = 6,
                                  .psePowerPair = 1,
                                  .powerSource = 1,
                                  .priority = 2,
                                  .allocatedPower = 400,
                                  .maxAvailablePower = 600}));
   poe.remoteSystemIs(pdRequest(1, PowerViaMdiInfo::formDot3bt, 380));
   ASSERT_EQ(PoeUtils::buildPowerViaMdiTlv(info.data(), poe, true), 25);
   EXPECT_EQ(roundTrip(25),
             PowerViaMdiInfo({.form = PowerViaMdiInfo::formDot3bt,
                              .mdiPowerSupport = 0x0f,  // with pair control
                              .psePowerPair = 1,
                              .powerClass = 5,
                              .typeSourcePriority = 0x12,
                              .pdRequestedPower = 380,
                              .pseAllocatedPower = 400,
                              .pdRequestedPowerA = 200,
                              .pdRequestedPowerB = 180,
                              .pseAllocatedPowerA = 200,  // 200 + 180 fit in 400
                              .pseAllocatedPowerB = 180,
                              // 4-pair dual-signature powering on both pairs; PD fields echoed
                              .powerStatus = 0xc000 | 0x3000 | 0x0c00 | 0x0155,
                              .pseMaxAvailablePower = 600}));

   // Not enough for the per-pair request: no per-pair allocation is confirmed.
   auto s = poe.poePortStatus();
   s.allocatedPowerIs(379);
   poe.poePortStatusIs(s);
   ASSERT_EQ(PoeUtils::buildPowerViaMdiTlv(info.data(), poe, true), 25);
   EXPECT_EQ(u16(&info[12]), 0);
   EXPECT_EQ(u16(&info[14]), 0);

   // Not delivering: the PSE's own power status fields are clear, the PD's are echoed.
   s.stateIs(PoeStatus::stateSearching);
   poe.poePortStatusIs(s);
   ASSERT_EQ(PoeUtils::buildPowerViaMdiTlv(info.data(), poe, true), 25);
   EXPECT_EQ(u8(&info[0]), 0x0b);
   EXPECT_EQ(u16(&info[16]), 0x3155);
}

TEST_F(PoeBuild, Dot3btPowerStatusForSingleSignaturePd) {
   auto pd = pdRequest(1, PowerViaMdiInfo::formDot3bt, 250);
   auto p = pd->powerViaMdiInfo();
   p.powerStatusIs(0x1000 | 0x0004);  // single-signature PD, class 4
   p.pdRequestedPowerAIs(0);
   p.pdRequestedPowerBIs(0);
   pd->powerViaMdiInfoIs(p);
   poe.remoteSystemIs(pd);
   PoeStatus s({.state = PoeStatus::stateDelivering,
                .pseType = 4,
                .psePowerPair = 2,
                .allocatedPower = 250});
   poe.poePortStatusIs(s);
   ASSERT_EQ(PoeUtils::buildPowerViaMdiTlv(info.data(), poe, true), 25);
   EXPECT_EQ(u16(&info[16]), 0x4000 | 0x1000 | 0x0800 | 0x0004);  // 2-pair on alternative B
   EXPECT_EQ(u16(&info[12]), 0);                                  // no per-pair request

   s.allocatedPowerIs(301);  // beyond two pairs
   poe.poePortStatusIs(s);
   ASSERT_EQ(PoeUtils::buildPowerViaMdiTlv(info.data(), poe, true), 25);
   EXPECT_EQ(u16(&info[16]), 0x8000 | 0x1000 | 0x0c00 | 0x0004);
}

TEST_F(PoeBuild, FallbackRepliesToPdRequestWithMinOfRequestAndFallback) {
   portConfig->poeAllocatedPowerFallbackIs(15400);  // 15.4 W
   pdRequest(1, PowerViaMdiInfo::formDot3at, 255);
   ASSERT_EQ(
       PoeUtils::maybeBuildFallbackPowerViaMdiTlv(info.data(), poe, true, portConfig, portStatus),
       8);
   const PowerViaMdiInfo rx = roundTrip(8);
   EXPECT_EQ(rx, PowerViaMdiInfo({.form = PowerViaMdiInfo::formDot3at,
                                  .mdiPowerSupport = 0x07,
                                  .psePowerPair = 1,
                                  .powerClass = 5,  // the PD's class echoed
                                  .typeSourcePriority = 0x10,
                                  .pdRequestedPower = 255,
                                  .pseAllocatedPower = 154}));
   EXPECT_TRUE(rx.fromPse());

   // A generous fallback grants exactly the request.
   portConfig->poeAllocatedPowerFallbackIs(90000);
   ASSERT_EQ(
       PoeUtils::maybeBuildFallbackPowerViaMdiTlv(info.data(), poe, true, portConfig, portStatus),
       8);
   EXPECT_EQ(u16(&info[6]), 255);
}

TEST_F(PoeBuild, FallbackOnlyAnswersPdRequestsInTheLongerForms) {
   auto build = [&](bool received, Lldp::PortConfig::PtrConst config) {
      return PoeUtils::maybeBuildFallbackPowerViaMdiTlv(info.data(), poe, received, config,
                                                        portStatus);
   };
   auto pd = pdRequest(1, PowerViaMdiInfo::formDot3at, 130);
   // No configuration, or no fallback configured.
   EXPECT_EQ(build(true, nullptr), 0);
   EXPECT_EQ(build(true, portConfig), 0);
   portConfig->poeAllocatedPowerFallbackIs(7000);
   // The port says nobody sent Power via MDI.
   EXPECT_EQ(build(false, portConfig), 0);

   // A request in the 802.3af form carries no power value.
   auto p = pd->powerViaMdiInfo();
   p.formIs(PowerViaMdiInfo::formDot3af);
   pd->powerViaMdiInfoIs(p);
   EXPECT_EQ(build(true, portConfig), 0);
   // Another PSE is not asking for power.
   p.formIs(PowerViaMdiInfo::formDot3at);
   p.typeSourcePriorityIs(0x10);
   pd->powerViaMdiInfoIs(p);
   EXPECT_EQ(build(true, portConfig), 0);

   // A second neighbour that is a PD in the 802.3bt form is answered in the 802.3at form.
   pdRequest(2, PowerViaMdiInfo::formDot3bt, 500);
   ASSERT_EQ(build(true, portConfig), 8);
   EXPECT_EQ(u16(&info[4]), 500);
   EXPECT_EQ(u16(&info[6]), 70);
}

TEST_F(PoeBuild, FallbackPrefersTheNeighbourThePortAnswers) {
   portConfig->poeAllocatedPowerFallbackIs(0xffffffffu);  // capped to the 16-bit field
   pdRequest(1, PowerViaMdiInfo::formDot3at, 100);
   auto chosen = pdRequest(2, PowerViaMdiInfo::formDot3at, 0xffff);
   poe.remoteSystemIs(chosen);
   ASSERT_EQ(
       PoeUtils::maybeBuildFallbackPowerViaMdiTlv(info.data(), poe, true, portConfig, portStatus),
       8);
   EXPECT_EQ(u16(&info[4]), 0xffff);
   EXPECT_EQ(u16(&info[6]), 0xffff);

   // When that neighbour no longer qualifies, the first one that does is answered.
   chosen->powerViaMdiTlvReceivedIs(false);
   ASSERT_EQ(
       PoeUtils::maybeBuildFallbackPowerViaMdiTlv(info.data(), poe, true, portConfig, portStatus),
       8);
   EXPECT_EQ(u16(&info[4]), 100);
}

}  // namespace

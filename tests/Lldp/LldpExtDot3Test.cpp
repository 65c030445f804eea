// Transmit of the IEEE 802.3 TLVs: order, room rules, the PoE paths, and that what we
// send decodes to what we meant.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "Lldp/LldpExtDot3.h"
#include "Lldp/LldpProtocol.h"
#include "tests/Support/AllocCounter.h"
#include "tests/Support/ExtTlvChecks.h"

namespace {

using Lldp::PowerViaMdiInfo;
using PoeStatus = Environment::Power::PoePortStatus::PortStatus;
using TestSupport::traced;

struct Dot3Tx : ::testing::Test {
   void SetUp() override {
      infoBuf = scratch.data();
      localPort->linkAggregationInfoIs(
          Lldp::LinkAggregationInfo({Lldp::LinkAggStatusMap(0x03), 1000001}));
      localPort->maximumFrameSizeInfoIs(Lldp::MaximumFrameSizeInfo({.maxFrameSize = 9236}));
      localPort->initilizeLocalPortPoeInfo();
   }
   void TearDown() override { infoBuf = nullptr; }

   bool add(size_t room) {
      pos = frame.data();
      return addExtDot3Tlvs(&pos, frame.data() + room, localPort, portConfig, infoBuf + 4,
                            portStatus);
   }
   void poeReady(uint8_t pseType) {
      localPort->localPortPoeInfo()->poePortStatusIs(PoeStatus(
          {.state = PoeStatus::stateDelivering, .pseType = pseType, .allocatedPower = 130}));
   }
   // A powered device on the port asking for power in the given form.
   Vel::Ptr<Lldp::RemoteSystem> pdAsks(uint8_t form, uint16_t requested) {
      auto pd = portStatus->remoteSystemIs(1, Lldp::Msap());
      // Type 2 PD, PSE source, unknown priority.
      pd->powerViaMdiInfoIs(PowerViaMdiInfo({form, 0, 0, 0, 0x50, requested}));
      pd->powerViaMdiTlvReceivedIs(true);
      return pd;
   }
   // The 802.3 subtypes in what add() wrote, in order, each decoded into `rx`.
   std::vector<int> sent() {
      std::vector<int> subtypes;
      TestSupport::forEachOrgTlv(frame.data(), pos, [&](const TestSupport::OrgTlv& t) {
         EXPECT_EQ(t.oui, Lldp::ouiIeee8023.value());
         EXPECT_EQ(parseExtDot3Tlv(t.subtype, t.infoLen, t.info, rx), TlvParseResultOk);
         subtypes.push_back(t.subtype);
      });
      return subtypes;
   }

   TestSupport::TraceCapture trace{"LldpExtDot3"};
   std::array<char, 600> scratch{};
   std::array<char, 200> frame{};
   char* pos = nullptr;
   Lldp::LocalPort::Ptr localPort = Vel::make<Lldp::LocalPort>(Wire::IntfId("Ethernet1"));
   Lldp::PortConfig::Ptr portConfig = Vel::make<Lldp::PortConfig>(Wire::IntfId("Ethernet1"));
   Lldp::PortStatus::Ptr portStatus = Vel::make<Lldp::PortStatus>(Wire::IntfId("Ethernet1"), 0.0);
   Vel::Ptr<Lldp::RemoteSystem> rx = Vel::make<Lldp::RemoteSystem>(1, Lldp::Msap());
};

TEST_F(Dot3Tx, AllThreeInOrderWhenThereIsRoom) {
   poeReady(2);
   ASSERT_EQ(portConfig->dot3EnabledTlvs().value(), 0x0e);
   EXPECT_TRUE(add(frame.size()));
   EXPECT_EQ(sent(), (std::vector<int>{2, 3, 4}));
   EXPECT_EQ(pos - frame.data(), (6 + 8) + (6 + 5) + (6 + 2));
   EXPECT_EQ(rx->powerViaMdiInfo().form(), PowerViaMdiInfo::formDot3at);
   EXPECT_EQ(rx->powerViaMdiInfo().pseAllocatedPower(), 130);
   EXPECT_EQ(rx->linkAggregationInfo(), localPort->linkAggregationInfo());
   EXPECT_EQ(rx->maximumFrameSizeInfo(), localPort->maximumFrameSizeInfo());
   // Link Aggregation on the wire: status byte, then the port ID big-endian.
   const std::string agg(frame.data() + 14 + 6, 5);
   EXPECT_EQ(agg, std::string("\x03\x00\x0f\x42\x41", 5));
   EXPECT_TRUE(traced("Added Link Aggregation: status=0x3, portId=1000001", 6));
   EXPECT_TRUE(traced("Added Maximum Frame Size: maxFrameSize=9236", 6));
}

TEST_F(Dot3Tx, SmallerTlvStillFitsAfterLargerOneFailed) {
   // 8 bytes: Link Aggregation (11) is skipped, Maximum Frame Size (8) goes in.
   EXPECT_FALSE(add(8));
   EXPECT_EQ(sent(), (std::vector<int>{4}));
   EXPECT_TRUE(traced("Not enough space to add Link Aggregation", 2));

   // A 25-byte Power via MDI does not fit in what the other two need; they still go in.
   poeReady(3);
   localPort->localPortPoeInfo()->remoteSystemIs(pdAsks(PowerViaMdiInfo::formDot3bt, 0));
   EXPECT_FALSE(add(30));
   EXPECT_EQ(sent(), (std::vector<int>{3, 4}));
   EXPECT_TRUE(traced("Not enough space to Power Via MDI TLV (IEEE Std 802.3at)", 2));

   // One byte short of all three: only Maximum Frame Size, the last, is left out.
   EXPECT_FALSE(add(31 + 11 + 7));
   EXPECT_EQ(sent(), (std::vector<int>{2, 3}));
   EXPECT_TRUE(traced("Not enough space to add Maximum Frame Size", 2));
   EXPECT_TRUE(add(31 + 11 + 8));
   EXPECT_EQ(sent(), (std::vector<int>{2, 3, 4}));
   EXPECT_EQ(rx->powerViaMdiInfo().form(), PowerViaMdiInfo::formDot3bt);
}

TEST_F(Dot3Tx, FallbackAnswersPdWhilePowerAgentIsSilent) {
   pdAsks(PowerViaMdiInfo::formDot3at, 90);
   // Power agent silent and no fallback configured: no Power via MDI, and no failure.
   EXPECT_TRUE(add(frame.size()));
   EXPECT_EQ(sent(), (std::vector<int>{3, 4}));

   portConfig->poeAllocatedPowerFallbackIs(4000);
   EXPECT_TRUE(add(frame.size()));
   EXPECT_EQ(sent(), (std::vector<int>{2, 3, 4}));
   EXPECT_EQ(rx->powerViaMdiInfo().pdRequestedPower(), 90);
   EXPECT_EQ(rx->powerViaMdiInfo().pseAllocatedPower(), 40);

   // Once the power agent reports, its data is what is sent.
   poeReady(2);
   EXPECT_TRUE(add(frame.size()));
   sent();
   EXPECT_EQ(rx->powerViaMdiInfo().pseAllocatedPower(), 130);

   // Without any PoE record on the port there is nothing to say either.
   localPort->localPortPoeInfoIs(nullptr);
   EXPECT_TRUE(add(frame.size()));
   EXPECT_EQ(sent(), (std::vector<int>{3, 4}));
}

TEST_F(Dot3Tx, MacPhyConfigStatusBitStopsTheAgent) {
   portConfig->dot3EnabledTlvsIs(Lldp::Dot3EnabledTlvs(0x0f));
   EXPECT_DEATH(add(frame.size()),
                "Assertion failed: !portConfig->dot3EnabledTlvs\\(\\)\\.macPhyConfigStatus\\(\\)");
}

TEST_F(Dot3Tx, NoAllocationAfterWarmUp) {
   Vel::Trace::configure("");
   portConfig->poeAllocatedPowerFallbackIs(4000);
   localPort->localPortPoeInfo()->remoteSystemIs(pdAsks(PowerViaMdiInfo::formDot3bt, 90));
   EXPECT_TRUE(add(frame.size()));  // fallback
   poeReady(3);
   EXPECT_TRUE(add(frame.size()));  // power agent data, 802.3bt form

   TestSupport::AllocScope scope;
   EXPECT_TRUE(add(frame.size()));
   EXPECT_FALSE(add(20));
   localPort->localPortPoeInfo()->poePortStatusIs(PoeStatus());
   EXPECT_TRUE(add(frame.size()));
   EXPECT_EQ(scope.count(), 0u);
}

}  // namespace

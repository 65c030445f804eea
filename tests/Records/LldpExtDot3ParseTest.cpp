// Decoding of received IEEE 802.3 TLVs: each layout, every length boundary, and that a
// rejected TLV leaves the record as it was.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "Records/LldpExtDot3Parse.h"
#include "tests/Support/AllocCounter.h"
#include "tests/Support/Frames.h"

namespace {

using Lldp::PowerViaMdiInfo;
using TestSupport::Bytes;

struct Dot3Parse : ::testing::Test {
   void SetUp() override {
      Vel::Trace::textTraceIs("-");
      Vel::Trace::configure("LldpExtDot3/*");
      Vel::Trace::ringClear();
   }
   void TearDown() override { Vel::Trace::configure(""); }

   // Parses from a heap copy of exactly `len` bytes, so that a read past the information
   // string is a read past the allocation.
   TlvParseResult parse(int subtype, const Bytes& b, int len = -1) {
      if (len < 0) len = static_cast<int>(b.size());
      auto exact = std::make_unique<char[]>(static_cast<size_t>(std::max(len, 1)));
      std::copy_n(b.begin(), std::min<size_t>(b.size(), static_cast<size_t>(len)), exact.get());
      return parseExtDot3Tlv(subtype, len, exact.get(), remote);
   }
   static bool traced(const std::string& text) {
      auto ring = Vel::Trace::ringSnapshot();
      return std::any_of(ring.begin(), ring.end(), [&](auto& e) { return e.text == text; });
   }

   Vel::Ptr<Lldp::RemoteSystem> remote = Vel::make<Lldp::RemoteSystem>(1, Lldp::Msap());
};

Bytes dot3bt() {
   return TestSupport::bytes({0x0f, 0x02, 0x05,              // support, pair, class
                              0x51, 0x02, 0x58, 0x02, 0x26,  // tsp, requested 600, allocated 550
                              0x01, 0x2c, 0x01, 0x2d,        // requested A 300, B 301
                              0x01, 0x2e, 0x01, 0x2f,        // allocated A 302, B 303
                              0xb7, 0x48, 0x06,              // power status, system setup
                              0x03, 0x84, 0x01,              // max available 900, autoclass
                              0x12, 0x34, 0x56});            // power down
}

TEST_F(Dot3Parse, FixedLayouts) {
   ASSERT_EQ(parse(1, TestSupport::bytes({0x03, 0x6c, 0x01, 0x00, 0x1e})), TlvParseResultOk);
   EXPECT_TRUE(remote->macPhyConfigStatusTlvReceived());
   EXPECT_EQ(remote->macPhyConfigStatusInfo(),
             Lldp::MacPhyConfigStatusInfo({.autonegSupported = true,
                                           .autonegEnabled = true,
                                           .pmdAutonegAdvertisedCapability = 0x6c01,
                                           .operationalMauType = 0x001e}));
   // Only the two low bits carry meaning; supported without enabled is kept as such.
   ASSERT_EQ(parse(1, TestSupport::bytes({0xf1, 0, 0, 0, 0})), TlvParseResultOk);
   EXPECT_TRUE(remote->macPhyConfigStatusInfo().autonegSupported());
   EXPECT_FALSE(remote->macPhyConfigStatusInfo().autonegEnabled());

   ASSERT_EQ(parse(3, TestSupport::bytes({0x03, 0x80, 0x00, 0x00, 0x2a})), TlvParseResultOk);
   EXPECT_TRUE(remote->linkAggregationTlvReceived());
   EXPECT_EQ(remote->linkAggregationInfo().status().value(), 0x03);
   EXPECT_EQ(remote->linkAggregationInfo().aggregatedPortId(), 0x8000002au);

   ASSERT_EQ(parse(4, TestSupport::bytes({0x25, 0xee})), TlvParseResultOk);
   EXPECT_TRUE(remote->maximumFrameSizeTlvReceived());
   EXPECT_EQ(remote->maximumFrameSizeInfo().maxFrameSize(), 9710);
}

// The 802.3af form is read back in the builder tests; here the longer two.
TEST_F(Dot3Parse, PowerViaMdiForms) {
   ASSERT_EQ(parse(2, dot3bt()), TlvParseResultOk);
   EXPECT_TRUE(remote->powerViaMdiTlvReceived());
   EXPECT_EQ(remote->powerViaMdiInfo(), PowerViaMdiInfo({.form = PowerViaMdiInfo::formDot3bt,
                                                         .mdiPowerSupport = 0x0f,
                                                         .psePowerPair = 2,
                                                         .powerClass = 5,
                                                         .typeSourcePriority = 0x51,
                                                         .pdRequestedPower = 600,
                                                         .pseAllocatedPower = 550,
                                                         .pdRequestedPowerA = 300,
                                                         .pdRequestedPowerB = 301,
                                                         .pseAllocatedPowerA = 302,
                                                         .pseAllocatedPowerB = 303,
                                                         .powerStatus = 0xb748,
                                                         .systemSetup = 0x06,
                                                         .pseMaxAvailablePower = 900,
                                                         .autoclass = 0x01,
                                                         .powerDown = 0x123456}));

   // A type 2 PD asking for 25.5 W: the PD bit of the power type wins over byte 0, and
   // the fields of the longer form return to their defaults.
   ASSERT_EQ(parse(2, TestSupport::bytes({0x07, 0x01, 0x05, 0x53, 0x00, 0xff, 0x00, 0x00})),
             TlvParseResultOk);
   const PowerViaMdiInfo& at = remote->powerViaMdiInfo();
   EXPECT_EQ(at.form(), PowerViaMdiInfo::formDot3at);
   EXPECT_EQ(at.pdRequestedPower(), 255);
   EXPECT_FALSE(at.fromPse());
   EXPECT_EQ(at.pdRequestedPowerA(), 0);
}

// For each subtype: every length below the shortest layout is fatal, every other length
// that is not a layout is an error, and neither touches the record.
TEST_F(Dot3Parse, LengthBoundariesLeaveRecordUntouched) {
   struct Case {
      int subtype;
      std::vector<int> layouts;
   };
   const std::vector<Case> cases = {{1, {5}}, {2, {3, 8, 25}}, {3, {5}}, {4, {2}}};
   const Bytes filler(40, static_cast<char>(0xa5));
   // A known state to compare against: a valid TLV of every subtype.
   ASSERT_EQ(parse(1, TestSupport::bytes({1, 0, 1, 0, 1})), TlvParseResultOk);
   ASSERT_EQ(parse(2, dot3bt()), TlvParseResultOk);
   ASSERT_EQ(parse(3, TestSupport::bytes({1, 0, 0, 0, 7})), TlvParseResultOk);
   ASSERT_EQ(parse(4, TestSupport::bytes({0x05, 0xee})), TlvParseResultOk);
   const auto macPhy = remote->macPhyConfigStatusInfo();
   const auto power = remote->powerViaMdiInfo();
   const auto agg = remote->linkAggregationInfo();
   const auto mfs = remote->maximumFrameSizeInfo();
   for (const Case& c : cases) {
      for (int len = 0; len <= 30; ++len) {
         if (std::count(c.layouts.begin(), c.layouts.end(), len)) continue;
         const TlvParseResult expected =
             len < c.layouts.front() ? TlvParseResultFatalError : TlvParseResultError;
         EXPECT_EQ(parse(c.subtype, filler, len), expected)
             << "subtype " << c.subtype << " len " << len;
      }
   }
   EXPECT_EQ(remote->macPhyConfigStatusInfo(), macPhy);
   EXPECT_EQ(remote->powerViaMdiInfo(), power);
   EXPECT_EQ(remote->linkAggregationInfo(), agg);
   EXPECT_EQ(remote->maximumFrameSizeInfo(), mfs);

   // On a fresh record a rejected TLV does not set its flag either.
   remote = Vel::make<Lldp::RemoteSystem>(2, Lldp::Msap());
   EXPECT_EQ(parse(2, filler, 9), TlvParseResultError);
   EXPECT_EQ(parse(4, filler, 1), TlvParseResultFatalError);
   EXPECT_EQ(parse(3, filler, 4), TlvParseResultFatalError);
   EXPECT_EQ(parse(1, filler, 6), TlvParseResultError);
   EXPECT_FALSE(remote->powerViaMdiTlvReceived());
   EXPECT_FALSE(remote->maximumFrameSizeTlvReceived());
   EXPECT_FALSE(remote->linkAggregationTlvReceived());
   EXPECT_FALSE(remote->macPhyConfigStatusTlvReceived());

   EXPECT_TRUE(traced("Error: Power Via MDI TLV has invalid length (orgDefInfoLen=9)"));
   EXPECT_TRUE(traced("Error: Maximum Frame Size TLV is too short (orgDefInfoLen=1)"));
   EXPECT_TRUE(traced("Error: Link Aggregation TLV is too short (orgDefInfoLen=4)"));
   EXPECT_TRUE(
       traced("Error: MAC/PHY Configuration/Status TLV has invalid length (orgDefInfoLen=6)"));
}

TEST_F(Dot3Parse, UnknownSubtypeIsUnrecognized) {
   for (int subtype : {0, 5, 255}) {
      EXPECT_EQ(parse(subtype, TestSupport::bytes({1, 2})), TlvParseResultUnrecognized);
   }
   EXPECT_EQ(parse(9, Bytes(), 0), TlvParseResultUnrecognized);
   EXPECT_FALSE(remote->maximumFrameSizeTlvReceived());
}

TEST_F(Dot3Parse, NoAllocationAfterWarmUp) {
   Vel::Trace::configure("");
   const Bytes macPhy = TestSupport::bytes({3, 0x6c, 1, 0, 0x1e});
   const Bytes bt = dot3bt();
   const Bytes agg = TestSupport::bytes({3, 0, 0, 0, 9});
   const Bytes mfs = TestSupport::bytes({0x05, 0xee});
   auto all = [&] {
      parseExtDot3Tlv(1, 5, macPhy.data(), remote);
      parseExtDot3Tlv(2, 25, bt.data(), remote);
      parseExtDot3Tlv(3, 5, agg.data(), remote);
      parseExtDot3Tlv(4, 2, mfs.data(), remote);
      parseExtDot3Tlv(2, 7, bt.data(), remote);
      parseExtDot3Tlv(4, 1, mfs.data(), remote);
      parseExtDot3Tlv(7, 2, mfs.data(), remote);
   };
   all();
   remote->resetAttrs();
   TestSupport::AllocScope scope;
   all();
   EXPECT_EQ(scope.count(), 0u);
   EXPECT_TRUE(remote->powerViaMdiTlvReceived());
}

}  // namespace

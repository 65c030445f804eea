// Decoding of received IEEE 802.3 TLVs: each layout, every length boundary, and that a
// rejected TLV leaves the record as it was.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "Records/LldpExtDot3Parse.h"
#include "tests/Support/AllocCounter.h"
#include "tests/Support/ExtTlvChecks.h"
#include "tests/Support/Frames.h"

namespace {

using Lldp::PowerViaMdiInfo;
using TestSupport::Bytes;
using TestSupport::bytes;
using TestSupport::snapshot;
using TestSupport::traced;

struct Dot3Parse : ::testing::Test {
   // Parses from a heap copy of exactly `len` bytes, so that a read past the information
   // string is a read past the allocation.
   TlvParseResult parse(int subtype, const Bytes& b, int len = -1) {
      if (len < 0) len = static_cast<int>(b.size());
      auto exact = std::make_unique<char[]>(static_cast<size_t>(std::max(len, 1)));
      std::copy_n(b.begin(), std::min<size_t>(b.size(), static_cast<size_t>(len)), exact.get());
      return parseExtDot3Tlv(subtype, len, exact.get(), remote);
   }

   TestSupport::TraceCapture trace{"LldpExtDot3"};
   Vel::Ptr<Lldp::RemoteSystem> remote = Vel::make<Lldp::RemoteSystem>(1, Lldp::Msap());
};

const Bytes dot3bt = bytes({0x0f, 0x02, 0x05,              // support, pair, class
                            0x51, 0x02, 0x58, 0x02, 0x26,  // tsp, requested 600, allocated 550
                            0x01, 0x2c, 0x01, 0x2d,        // requested A 300, B 301
                            0x01, 0x2e, 0x01, 0x2f,        // allocated A 302, B 303
                            0xb7, 0x48, 0x06,              // power status, system setup
                            0x03, 0x84, 0x01,              // max available 900, autoclass
                            0x12, 0x34, 0x56});            // power down

// One valid TLV of each subtype.
const std::pair<int, Bytes> valid[] = {{1, bytes({0x03, 0x6c, 0x01, 0x00, 0x1e})},
                                       {2, dot3bt},
                                       {3, bytes({0x03, 0x80, 0x00, 0x00, 0x2a})},
                                       {4, bytes({0x25, 0xee})}};

TEST_F(Dot3Parse, FixedLayouts) {
   for (const auto& [subtype, info] : valid) ASSERT_EQ(parse(subtype, info), TlvParseResultOk);
   EXPECT_TRUE(remote->macPhyConfigStatusTlvReceived());
   // Supported, enabled, advertised capability, operational MAU type.
   EXPECT_EQ(remote->macPhyConfigStatusInfo(),
             Lldp::MacPhyConfigStatusInfo({true, true, 0x6c01, 0x001e}));
   EXPECT_TRUE(remote->linkAggregationTlvReceived());
   EXPECT_EQ(remote->linkAggregationInfo().status().value(), 0x03);
   EXPECT_EQ(remote->linkAggregationInfo().aggregatedPortId(), 0x8000002au);
   EXPECT_TRUE(remote->maximumFrameSizeTlvReceived());
   EXPECT_EQ(remote->maximumFrameSizeInfo().maxFrameSize(), 9710);

   // Only the two low bits carry meaning; supported without enabled is kept as such.
   ASSERT_EQ(parse(1, bytes({0xf1, 0, 0, 0, 0})), TlvParseResultOk);
   EXPECT_EQ(remote->macPhyConfigStatusInfo(), Lldp::MacPhyConfigStatusInfo({true, false, 0, 0}));
}

// Each form, longest first: a shorter one leaves the fields it lacks at their defaults.
TEST_F(Dot3Parse, PowerViaMdiForms) {
   ASSERT_EQ(parse(2, dot3bt), TlvParseResultOk);
   EXPECT_TRUE(remote->powerViaMdiTlvReceived());
   // Every field in declaration order, as the bytes above give them.
   EXPECT_EQ(remote->powerViaMdiInfo(),
             PowerViaMdiInfo({PowerViaMdiInfo::formDot3bt, 0x0f, 2, 5, 0x51, 600, 550, 300, 301,
                              302, 303, 0xb748, 0x06, 900, 0x01, 0x123456}));

   // A type 2 PD asking for 25.5 W: the PD bit of the power type wins over byte 0, and
   // the fields of the longer form return to their defaults.
   ASSERT_EQ(parse(2, bytes({0x07, 0x01, 0x05, 0x53, 0x00, 0xff, 0x00, 0x00})), TlvParseResultOk);
   EXPECT_EQ(remote->powerViaMdiInfo(),
             PowerViaMdiInfo({PowerViaMdiInfo::formDot3at, 0x07, 1, 5, 0x53, 255, 0}));
   EXPECT_FALSE(remote->powerViaMdiInfo().fromPse());

   ASSERT_EQ(parse(2, bytes({0x03, 0x01, 0x05})), TlvParseResultOk);
   EXPECT_EQ(remote->powerViaMdiInfo(), PowerViaMdiInfo({PowerViaMdiInfo::formDot3af, 3, 1, 5}));
}

// For each subtype: every length below the shortest layout is fatal, every other length
// that is not a layout is an error, and neither touches the record, whether it held 802.3
// content before or not. Unknown subtypes are unrecognised at every length.
TEST_F(Dot3Parse, LengthBoundariesLeaveRecordUntouched) {
   const std::vector<std::pair<int, std::vector<int>>> cases = {
       {1, {5}}, {2, {3, 8, 25}}, {3, {5}}, {4, {2}}, {0, {}}, {5, {}}, {255, {}}};
   const Bytes filler(40, static_cast<char>(0xa5));
   for (bool populated : {false, true}) {
      for (const auto& [subtype, info] : valid) {
         if (populated) {
            ASSERT_EQ(parse(subtype, info), TlvParseResultOk);
         }
      }
      const std::string before = snapshot(*remote);
      for (const auto& [subtype, layouts] : cases) {
         for (int len = 0; len <= 30; ++len) {
            SCOPED_TRACE("subtype " + std::to_string(subtype) + " len " + std::to_string(len));
            if (std::count(layouts.begin(), layouts.end(), len)) continue;
            EXPECT_EQ(parse(subtype, filler, len), layouts.empty() ? TlvParseResultUnrecognized
                                                   : len < layouts.front()
                                                       ? TlvParseResultFatalError
                                                       : TlvParseResultError);
            EXPECT_EQ(snapshot(*remote), before);
         }
      }
   }
   EXPECT_TRUE(traced("Error: Power Via MDI TLV has invalid length (orgDefInfoLen=9)", 0));
   EXPECT_TRUE(traced("Error: Maximum Frame Size TLV is too short (orgDefInfoLen=1)", 0));
   EXPECT_TRUE(traced("Error: Link Aggregation TLV is too short (orgDefInfoLen=4)", 0));
   EXPECT_TRUE(
       traced("Error: MAC/PHY Configuration/Status TLV has invalid length (orgDefInfoLen=6)", 0));
}

TEST_F(Dot3Parse, NoAllocationAfterWarmUp) {
   Vel::Trace::configure("");
   // Every valid TLV, then an error, a fatal error and an unknown subtype.
   auto all = [&] {
      for (const auto& [subtype, info] : valid)
         parseExtDot3Tlv(subtype, int(info.size()), info.data(), remote);
      parseExtDot3Tlv(2, 7, dot3bt.data(), remote);
      parseExtDot3Tlv(4, 1, dot3bt.data(), remote);
      parseExtDot3Tlv(7, 2, dot3bt.data(), remote);
   };
   all();
   remote->resetAttrs();
   TestSupport::AllocScope scope;
   all();
   EXPECT_EQ(scope.count(), 0u);
   EXPECT_TRUE(remote->powerViaMdiTlvReceived());
}

}  // namespace

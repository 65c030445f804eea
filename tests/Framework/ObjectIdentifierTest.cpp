// The BER object identifier decoder against net-snmp's own parser: the same arcs, and the
// same verdict on what cannot be decoded.
#include <gtest/gtest.h>

// clang-format off
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/types.h>
#include <net-snmp/library/asn1.h>
// clang-format on

#include <optional>
#include <random>
#include <vector>

#include "Framework/Snmp/ObjectIdentifier.h"

namespace {

// What net-snmp makes of the same contents behind an OBJECT IDENTIFIER header: the arcs,
// or nothing when it refuses them.
std::optional<std::vector<uint32_t>> snmpLibrary(const std::vector<uint8_t>& contents) {
   std::vector<u_char> buf{ASN_OBJECT_ID, 0x81, u_char(contents.size())};
   buf.insert(buf.end(), contents.begin(), contents.end());
   size_t remaining = buf.size();
   u_char type = 0;
   ::oid ids[Snmp::ObjectIdentifier::maxSubIds];
   size_t count = Snmp::ObjectIdentifier::maxSubIds;
   if (!asn_parse_objid(buf.data(), &remaining, &type, ids, &count)) return std::nullopt;
   EXPECT_EQ(remaining, 0u);
   return std::vector<uint32_t>(ids, ids + count);
}

std::optional<std::vector<uint32_t>> ours(const std::vector<uint8_t>& contents) {
   Snmp::ObjectIdentifier oid;
   oid.push(7);  // anything held before is replaced
   if (!oid.berContentsIs(contents.data(), contents.size())) {
      EXPECT_TRUE(oid.empty());
      return std::nullopt;
   }
   std::vector<uint32_t> arcs;
   for (size_t i = 0; i < oid.size(); ++i) arcs.push_back(oid[i]);
   return arcs;
}

using Arcs = std::vector<uint32_t>;

TEST(ObjectIdentifierTest, DecodesBerContents) {
   EXPECT_EQ(ours({0x2b, 6, 1, 4, 1, 0x82, 0x37, 1}), (Arcs{1, 3, 6, 1, 4, 1, 311, 1}));
   EXPECT_EQ(ours({0x88, 0x37, 3}), (Arcs{2, 999, 3}));   // arc 2 takes the rest
   EXPECT_EQ(ours({0x27}), (Arcs{0, 39}));                // first value under 40
   EXPECT_EQ(ours({0x2b, 0x8f, 0xff, 0xff, 0xff, 0x7f}),  // 2^32 - 1 fits
             (Arcs{1, 3, 0xffffffffu}));
   EXPECT_EQ(ours({0x2b, 0x90, 0x80, 0x80, 0x80, 0x00}), std::nullopt);  // 2^32 does not
   EXPECT_EQ(ours({0x2b, 0x86}), std::nullopt);                          // ends inside an arc
   EXPECT_EQ(ours({}), (Arcs{0}));
   // Reuses the room it has: a shorter identifier after a longer one.
   Snmp::ObjectIdentifier oid;
   const uint8_t longer[] = {0x2b, 6, 1, 2, 1, 2, 2, 1, 1, 5};
   const uint8_t shorter[] = {0x2b, 6, 1};
   ASSERT_TRUE(oid.berContentsIs(longer, sizeof(longer)));
   ASSERT_TRUE(oid.berContentsIs(shorter, sizeof(shorter)));
   EXPECT_EQ(oid.stringValue(), "1.3.6.1");
}

// Every length a Management Address TLV allows, octets mostly with their high bit set so
// that long, over-long (wrapping past 64 bits) and truncated arcs all come up often.
TEST(ObjectIdentifierTest, AgreesWithTheSnmpLibrary) {
   std::mt19937 rng(29);
   std::uniform_int_distribution<int> length(0, 128), octet(0, 255), coin(0, 7);
   size_t refused = 0;
   for (int round = 0; round < 200'000; ++round) {
      std::vector<uint8_t> contents(size_t(length(rng)));
      const int highBitOdds = coin(rng);
      for (auto& b : contents) {
         b = uint8_t(octet(rng));
         if (coin(rng) < highBitOdds) b |= 0x80;
      }
      const auto expected = snmpLibrary(contents);
      refused += !expected;
      ASSERT_EQ(ours(contents), expected) << "round " << round;
   }
   // Both verdicts were exercised.
   EXPECT_GT(refused, 1000u);
   EXPECT_LT(refused, 199'000u);
}

}  // namespace

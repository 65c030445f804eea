// TLV framing: room rules, bounds and the exact failure traces.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

#include "Lldp/LldpProtocol.h"
#include "tests/Support/AllocCounter.h"

namespace {

struct Framing : ::testing::Test {
   void SetUp() override {
      Vel::Trace::textTraceIs("-");
      Vel::Trace::configure("LldpProtocol/*");
      Vel::Trace::ringClear();
   }
   void TearDown() override {
      Vel::Trace::configure("");
      infoBuf = nullptr;
   }
   static bool traced(const std::string& text) {
      auto ring = Vel::Trace::ringSnapshot();
      return std::any_of(ring.begin(), ring.end(), [&](auto& e) { return e.text == text; });
   }
   std::array<char, 1024> buf{};
   char info[600] = {};
};

TEST_F(Framing, PutTlvRoomAndLengthRules) {
   // Exactly infoLen + 2 bytes left: fits and leaves the position at the end.
   char* pos = buf.data();
   std::copy_n("hello", 5, info);
   ASSERT_TRUE(putTlv(&pos, buf.data() + 7, 5, 5, info));
   EXPECT_EQ(pos, buf.data() + 7);
   EXPECT_EQ(std::string(buf.data(), 7), "\x0a\x05hello");  // type 5 << 9 | 5

   // One byte short: refused, nothing written, position unchanged, traced at level 2.
   pos = buf.data();
   buf.fill(0x55);
   EXPECT_FALSE(putTlv(&pos, buf.data() + 6, 5, 5, info));
   EXPECT_EQ(pos, buf.data());
   EXPECT_EQ(uint8_t(buf[0]), 0x55);
   EXPECT_TRUE(traced("No room for TLV (type=5, infoLen=5); remaining space6 bytes"));

   // More than the 9-bit length field holds: refused without room, a programming error
   // with it.
   EXPECT_FALSE(putTlv(&pos, buf.data() + 100, 4, 512, info));
   EXPECT_EQ(pos, buf.data());
   EXPECT_DEATH(
       {
          char* p = buf.data();
          putTlv(&p, buf.data() + buf.size(), 4, 512, info);
       },
       "Assertion failed: !\\( infoLen & ~0x1ff \\)");
}

TEST_F(Framing, PutOrgDefTlvPrefixesOuiAndSubtypeInPlace) {
   infoBuf = info;
   char* pos = buf.data();
   ASSERT_TRUE(putOrgDefTlv(&pos, buf.data() + buf.size(), Lldp::ouiIeee8021, 0x101, 0, info + 4));
   // Empty organizationally defined information: infoLen 4, subtype cut to 8 bits.
   EXPECT_EQ(pos - buf.data(), 6);
   EXPECT_EQ(std::string(buf.data(), 6), std::string("\xfe\x04\x00\x80\xc2\x01", 6));
   EXPECT_DEATH(
       {
          char* p = buf.data();
          putOrgDefTlv(&p, buf.data() + buf.size(), Lldp::ouiTia, 1, 0, info + 5);
       },
       "Assertion failed: info == infoBuf");
}

// What each failure leaves in the out-parameters: a cut header writes none of them; an
// information string that overruns the end writes all of them, the position where the
// TLV claims to end.
TEST_F(Framing, ExtractTlvNeverReadsPastTheEnd) {
   const char one[] = {0x02};
   const char* pos = one;
   int type = -1, len = -1;
   const char* inf = nullptr;
   EXPECT_FALSE(extractTlv(&pos, one + 1, &type, &len, &inf));
   EXPECT_TRUE(traced("Error: frame ended during (or before) TLV header"));
   EXPECT_EQ(pos, one);
   EXPECT_EQ(type, -1);
   EXPECT_EQ(len, -1);
   EXPECT_EQ(inf, nullptr);

   // Header claims 3 bytes, 2 present before the end (the buffer goes on beyond it).
   const char shortInfo[] = {0x0a, 0x03, 'a', 'b', 'c', 'd'};
   pos = shortInfo;
   EXPECT_FALSE(extractTlv(&pos, shortInfo + 4, &type, &len, &inf));
   EXPECT_TRUE(traced("Error: frame ended during TLV information string (type=5, infoLen=3)"));
   EXPECT_EQ(type, 5);
   EXPECT_EQ(len, 3);
   EXPECT_EQ(inf, shortInfo + 2);
   EXPECT_EQ(pos, shortInfo + 5);
}

TEST_F(Framing, MandatoryTlvTypeAndLengthBounds) {
   int len;
   const char* inf;
   for (int type : {1, 2, 3}) {
      for (int infoLen : {0, 1}) {
         char tlv[4] = {char(type << 1), char(infoLen), 7, 7};
         const char* pos = tlv;
         EXPECT_FALSE(extractMandatoryTlv(&pos, tlv + 4, type, 256, &len, &inf))
             << "type " << type << " infoLen " << infoLen;
      }
   }
   EXPECT_TRUE(traced("Error: size of TLV out of range (infoLen=1)"));

   const char ttl[] = {0x06, 0x02, 0x00, 0x78};
   const char* pos = ttl;
   EXPECT_FALSE(extractMandatoryTlv(&pos, ttl + 4, 1, 256, &len, &inf));
   EXPECT_TRUE(traced("Error: TLV was not of the expected type (type=3)"));
   pos = ttl;
   EXPECT_FALSE(extractMandatoryTlv(&pos, ttl + 4, 3, 1, &len, &inf));
   pos = ttl;
   EXPECT_TRUE(extractMandatoryTlv(&pos, ttl + 4, 3, 2147483647, &len, &inf));

   pos = ttl;
   EXPECT_FALSE(extractMandatoryTlv(&pos, ttl + 3, 3, 2, &len, &inf));
   EXPECT_TRUE(traced("Error: frame ended during mandatory TLV"));
}

TEST_F(Framing, WhatIsPutIsExtractedAgainWithoutAllocating) {
   Vel::Trace::configure("");  // tracing off: the byte path proper
   for (int i = 0; i < 512; ++i) info[i] = char(i * 7);
   TestSupport::AllocScope scope;
   char* pos = buf.data();
   char* end = buf.data() + buf.size();
   const int lens[] = {0, 1, 2, 255, 511};
   for (int i = 0; i < 5; ++i) ASSERT_TRUE(putTlv(&pos, end, 9 + i, lens[i], info));
   const char* rd = buf.data();
   for (int i = 0; i < 5; ++i) {
      int type, len;
      const char* inf;
      ASSERT_TRUE(extractTlv(&rd, pos, &type, &len, &inf));
      EXPECT_EQ(type, 9 + i);
      EXPECT_EQ(len, lens[i]);
      EXPECT_TRUE(std::equal(inf, inf + len, info));
   }
   EXPECT_EQ(rd, pos);
   EXPECT_EQ(scope.count(), 0u);
}

}  // namespace

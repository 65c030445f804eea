// Linux packet access over a real veth between two network namespaces that each test
// creates. The Pams are opened from inside their namespace (the thread enters it, opens
// the socket and comes back); the sockets stay bound there, and the test runs on the
// event loop in its own namespace.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Wire/Pkt.h"
#include "Platform/Linux/LinuxPam.h"
#include "tests/Support/NetNs.h"
#include "tests/Support/PamFrames.h"
#include "tests/Support/Switch.h"

namespace {

using Platform::Linux::LinuxPam;
using TestSupport::ethFrame;
using TestSupport::lldpGroup;
using TestSupport::PamReader;
using TestSupport::pktOf;
using TestSupport::tagged;
using Wire::Pkt;
using Wire::PktMan;

const std::string otherGroup("\x01\x80\xc2\x00\x00\x03", 6);

std::string macOf(const LinuxPam& pam) {
   return std::string(reinterpret_cast<const char*>(pam.ethAddr().bytes().data()), 6);
}

class LinuxPamTest : public ::testing::Test {
protected:
   // Creates the namespaces and opens a Pam on each end; false (and a skip) without root.
   void open(unsigned mtu = 0, LinuxPam::Options optionsB = {}) {
      ns = std::make_unique<TestSupport::NetNsPair>(mtu);
      if (!ns->ok()) {
         if (ns->error().find("root") != std::string::npos) GTEST_SKIP() << ns->error();
         FAIL() << ns->error();
      }
      // Both ends as the agent opens them: its filter, group address, priority, limit.
      LinuxPam::Options optionsA;
      optionsA.settings = optionsB.settings = TestSupport::lldpPamSettings();
      for (auto [where, intf, options, pam] : {std::tuple(ns->nsA(), ns->intfA(), optionsA, &a),
                                               std::tuple(ns->nsB(), ns->intfB(), optionsB, &b)}) {
         TestSupport::NetNsScope in(where);
         ASSERT_TRUE(in.ok());
         std::string error;
         *pam = LinuxPam::open(Wire::IntfId(intf), options, &error);
         ASSERT_TRUE(*pam) << error;
      }
   }
   void SetUp() override { Vel::EventLoop::instance().virtualTimeIs(false); }
   void TearDown() override {
      a = nullptr;
      b = nullptr;
      ns.reset();
      PktMan::instance().dataSizeIs(PktMan::defaultDataSize);
   }
   // Runs the loop in short turns (conditions such as a count in the ring change without
   // any event the loop would wake for) until `done` or the timeout.
   static bool waitFor(const std::function<bool()>& done, double timeout = 2.0) {
      for (double waited = 0; !done(); waited += 0.005) {
         if (waited >= timeout) return false;
         Vel::EventLoop::instance().runOnce(0.005);
      }
      return true;
   }
   // Lets frames in flight arrive (the kernel hands over a block within a few ms).
   static void settle() {
      waitFor([] { return false; }, 0.05);
   }

   std::unique_ptr<TestSupport::NetNsPair> ns;
   Vel::Ptr<LinuxPam> a;
   Vel::Ptr<LinuxPam> b;
};

// LLDP frames to the nearest bridge group cross both ways unchanged, with any tag (in the
// bytes or held apart in the packet) apart; everything else is filtered out.
TEST_F(LinuxPamTest, LldpFramesCrossUnchangedTagsApartOthersFilteredOut) {
   open();
   if (IsSkipped() || HasFatalFailure()) return;
   EXPECT_FALSE(a->ethAddr().isZero());
   EXPECT_NE(a->ethAddr(), b->ethAddr());

   PamReader ra(a.ptr());
   PamReader rb(b.ptr());
   const std::string src = macOf(*a);
   a->txPktIs(pktOf(ethFrame("other group", src, otherGroup)));
   a->txPktIs(pktOf(ethFrame("unicast", src, macOf(*b))));
   a->txPktIs(pktOf(ethFrame("ipv4", src, lldpGroup, 0x0800)));
   a->txPktIs(pktOf(tagged(ethFrame("tagged ipv4", src, lldpGroup, 0x0800), 5)));
   a->txPktIs(pktOf(tagged(ethFrame("tagged other group", src, otherGroup), 5)));
   const std::string toB = ethFrame(std::string(300, 'b'), src);
   const std::string toA = ethFrame("short", macOf(*b));
   a->txPktIs(pktOf(toB));
   b->txPktIs(pktOf(toA));
   a->txPktIs(pktOf(tagged(toB, 0xa00a)));
   Vel::Ptr<Pkt> apart = pktOf(toB);
   apart->dot1qHdrIs(0x8100, 0x2005);
   a->txPktIs(apart);
   EXPECT_EQ(a->txFrames(), 8u);
   EXPECT_EQ(a->txErrors(), 0u);
   ASSERT_TRUE(waitFor([&] { return ra.frames.size() == 1 && rb.frames.size() == 3; }));
   // A sender does not hear its own frames, and nothing else comes.
   settle();
   ASSERT_EQ(ra.frames.size(), 1u);
   EXPECT_EQ(ra.frames[0].bytes, toA);
   ASSERT_EQ(rb.frames.size(), 3u);
   for (const auto& f : rb.frames) EXPECT_EQ(f.bytes, toB);
   EXPECT_EQ(rb.frames[0].tci, -1);
   EXPECT_EQ(rb.frames[1].tci, 0xa00a);
   EXPECT_EQ(rb.frames[1].tpid, 0x8100);
   EXPECT_EQ(rb.frames[2].tci, 0x2005);
   EXPECT_EQ(rb.frames[2].tpid, 0x8100);
   EXPECT_EQ(b->rxFrames(), 3u);
   EXPECT_EQ(std::string(apart->data(), apart->bytes()), toB);
}

TEST_F(LinuxPamTest, RingCountsWaitingFramesDropsWhatDoesNotFitAndRecovers) {
   // A small ring on b: blocks of 16 KiB (about 15 of the 1 KB frames each, and less
   // than the longest frame), 8 of them; a link and packets long enough for 20000 bytes.
   LinuxPam::Options small;
   small.blockSize = 16384;
   small.blockCount = 8;
   open(20000, small);
   if (IsSkipped() || HasFatalFailure()) return;
   PktMan::instance().dataSizeIs(20000);
   const std::string src = macOf(*a);
   auto nth = [&](int i) { return ethFrame(std::to_string(i) + std::string(1000, '.'), src); };
   const int count = 60;
   for (int i = 0; i < count; ++i) a->txPktIs(pktOf(nth(i)));
   // Nobody reads yet: the frames wait in the ring.
   ASSERT_TRUE(waitFor([&] { return b->readableCount() == count; }));
   PamReader rb(b.ptr());
   ASSERT_TRUE(waitFor([&] { return rb.frames.size() == count; }));
   EXPECT_EQ(b->readableCount(), 0u);
   ASSERT_EQ(rb.countsSeen.size(), size_t(count));
   for (int i = 0; i < count; ++i) {
      EXPECT_EQ(rb.countsSeen[size_t(i)], uint32_t(count - i));
      EXPECT_EQ(rb.frames[size_t(i)].bytes, nth(i));
   }
   EXPECT_EQ(b->rxDropsRingFull(), 0u);

   // The ring goes round more than once.
   for (int round = 0; round < 3; ++round) {
      for (int i = 0; i < count; ++i) a->txPktIs(pktOf(nth(i)));
      ASSERT_TRUE(waitFor([&] { return rb.frames.size() == size_t(count * (round + 2)); }));
   }
   EXPECT_EQ(rb.frames.back().bytes, nth(count - 1));
   EXPECT_EQ(b->readableCount(), 0u);

   // Frames over the limit are dropped whole and counted, whether or not a block holds them.
   const size_t limit = Wire::Pam::rxFrameLimit;
   a->txPktIs(pktOf(ethFrame(std::string(12000 - 14, 'o'), src)));
   a->txPktIs(pktOf(ethFrame(std::string(20000 - 14, 'O'), src)));
   a->txPktIs(pktOf(ethFrame(std::string(limit + 1 - 14, '1'), src)));
   const std::string atLimit = ethFrame(std::string(limit - 14, 'k'), src);
   a->txPktIs(pktOf(atLimit));
   EXPECT_EQ(a->txErrors(), 0u);
   ASSERT_TRUE(waitFor([&] { return rb.frames.size() > size_t(4 * count); }))
       << "oversize drops " << b->rxDropsOversize() << ", ring drops " << b->rxDropsRingFull()
       << ", waiting " << b->readableCount();
   settle();
   EXPECT_EQ(b->rxDropsOversize(), 3u);
   ASSERT_EQ(rb.frames.size(), size_t(4 * count + 1));
   EXPECT_EQ(rb.frames.back().bytes, atLimit);

   // Far more than the ring holds, with nobody reading: the kernel drops the rest, and the
   // ring works on afterwards.
   b->notifieeIs(nullptr);
   for (int i = 0; i < 200; ++i) a->txPktIs(pktOf(nth(i)));
   settle();
   EXPECT_GT(b->rxDropsRingFull(), 0u);
   b->notifieeIs(&rb);
   ASSERT_TRUE(waitFor([&] { return b->readableCount() == 0; }));
   const size_t before = rb.frames.size();
   EXPECT_GT(before, size_t(4 * count + 1));  // what the ring held did arrive
   const std::string after = ethFrame("after", src);
   a->txPktIs(pktOf(after));
   ASSERT_TRUE(waitFor([&] { return rb.frames.size() == before + 1; }));
   EXPECT_EQ(rb.frames.back().bytes, after);
}

TEST_F(LinuxPamTest, MissingInterfaceIsAnErrorNotACrash) {
   std::string error;
   Vel::Ptr<LinuxPam> pam = LinuxPam::open(Wire::IntfId("no-such-intf0"), &error);
   EXPECT_FALSE(pam);
   EXPECT_NE(error.find("no-such-intf0"), std::string::npos) << error;
   // Tags can only come apart from the frame here; asking otherwise is refused.
   LinuxPam::Options inLine;
   inLine.settings.separateDot1QHdr = false;
   EXPECT_FALSE(LinuxPam::open(Wire::IntfId("lo"), inLine, &error));
   EXPECT_NE(error.find("802.1Q"), std::string::npos) << error;
}

}  // namespace

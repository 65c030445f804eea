// Linux packet access over a real veth between two network namespaces that each test
// creates. The Pams are opened from inside their namespace (the thread enters it, opens
// the socket and comes back); the sockets stay bound there, and the test runs on the
// event loop in its own namespace.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Wire/Pkt.h"
#include "Platform/Linux/LinuxPam.h"
#include "tests/Support/NetNs.h"
#include "tests/Support/Switch.h"

namespace {

using Platform::Linux::LinuxPam;
using Wire::Pkt;
using Wire::PktMan;

const std::string lldpGroup("\x01\x80\xc2\x00\x00\x0e", 6);
const std::string otherGroup("\x01\x80\xc2\x00\x00\x03", 6);

std::string macOf(const LinuxPam& pam) {
   return std::string(reinterpret_cast<const char*>(pam.ethAddr().bytes().data()), 6);
}

std::string frame(const std::string& dst, const std::string& src, uint16_t ethType,
                  const std::string& payload) {
   std::string f = dst + src;
   f += char(ethType >> 8);
   f += char(ethType & 0xff);
   f += payload;
   if (f.size() < 60) f.resize(60, '\0');
   return f;
}

std::string tagged(const std::string& f, uint16_t tci) {
   std::string tag("\x81\x00", 2);
   tag += char(tci >> 8);
   tag += char(tci & 0xff);
   return f.substr(0, 12) + tag + f.substr(12);
}

Vel::Ptr<Pkt> pktOf(const std::string& f) {
   Vel::Ptr<Pkt> p = PktMan::instance().newPkt();
   std::memcpy(p->dataAppend(f.size()), f.data(), f.size());
   return p;
}

struct Received {
   std::string bytes;
   bool tagValid;
   uint16_t tpid;
   uint16_t tci;
};

struct Reader : Wire::Pam::Notifiee {
   explicit Reader(Wire::Pam* p) : pam(p) { pam->notifieeIs(this); }
   ~Reader() { pam->notifieeIs(nullptr); }
   void handleReadableCount() override {
      countsSeen.push_back(pam->readableCount());
      if (Vel::Ptr<Pkt> p = pam->rxPkt()) {
         frames.push_back({std::string(p->data(), p->bytes()), p->dot1qHdrValid(), p->dot1qTpid(),
                           p->dot1qTci()});
      }
   }
   Wire::Pam* pam;
   std::vector<uint32_t> countsSeen;
   std::vector<Received> frames;
};

class LinuxPamTest : public ::testing::Test {
protected:
   // Creates the namespaces and opens a Pam on each end; false (and a skip) without root.
   void open(unsigned mtu = 0, LinuxPam::Options optionsB = {}) {
      ns = std::make_unique<TestSupport::NetNsPair>(mtu);
      if (!ns->ok()) {
         if (ns->error().find("root") != std::string::npos) GTEST_SKIP() << ns->error();
         FAIL() << ns->error();
      }
      std::string error;
      // Both ends as the agent opens them: its filter, group address, priority, limit.
      LinuxPam::Options optionsA;
      optionsA.settings = optionsB.settings = TestSupport::lldpPamSettings();
      {
         TestSupport::NetNsScope in(ns->nsA());
         ASSERT_TRUE(in.ok());
         a = LinuxPam::open(Wire::IntfId(ns->intfA()), optionsA, &error);
         ASSERT_TRUE(a) << error;
      }
      {
         TestSupport::NetNsScope in(ns->nsB());
         ASSERT_TRUE(in.ok());
         b = LinuxPam::open(Wire::IntfId(ns->intfB()), optionsB, &error);
         ASSERT_TRUE(b) << error;
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

TEST_F(LinuxPamTest, LldpFramesCrossBothWaysUnchanged) {
   open();
   if (IsSkipped() || HasFatalFailure()) return;
   EXPECT_FALSE(a->ethAddr().isZero());
   EXPECT_NE(a->ethAddr(), b->ethAddr());
   EXPECT_EQ(b->intfId().stringValue(), ns->intfB());

   Reader ra(a.ptr());
   Reader rb(b.ptr());
   const std::string toB = frame(lldpGroup, macOf(*a), 0x88cc, std::string(300, 'b'));
   const std::string toA = frame(lldpGroup, macOf(*b), 0x88cc, "short");
   a->txPktIs(pktOf(toB));
   b->txPktIs(pktOf(toA));
   ASSERT_TRUE(waitFor([&] { return ra.frames.size() == 1 && rb.frames.size() == 1; }));
   EXPECT_EQ(rb.frames[0].bytes, toB);
   EXPECT_FALSE(rb.frames[0].tagValid);
   EXPECT_EQ(ra.frames[0].bytes, toA);
   EXPECT_EQ(a->txFrames(), 1u);
   EXPECT_EQ(b->rxFrames(), 1u);
   EXPECT_EQ(a->txErrors(), 0u);
   // A sender does not hear its own frames.
   settle();
   EXPECT_EQ(ra.frames.size(), 1u);
   EXPECT_EQ(rb.frames.size(), 1u);
}

TEST_F(LinuxPamTest, OnlyLldpToTheNearestBridgeGroupReachesTheReader) {
   open();
   if (IsSkipped() || HasFatalFailure()) return;
   Reader rb(b.ptr());
   const std::string src = macOf(*a);
   a->txPktIs(pktOf(frame(otherGroup, src, 0x88cc, "other group")));
   a->txPktIs(pktOf(frame(macOf(*b), src, 0x88cc, "unicast")));
   a->txPktIs(pktOf(frame(lldpGroup, src, 0x0800, "ipv4")));
   a->txPktIs(pktOf(tagged(frame(lldpGroup, src, 0x0800, "tagged ipv4"), 5)));
   a->txPktIs(pktOf(tagged(frame(otherGroup, src, 0x88cc, "tagged other group"), 5)));
   const std::string good = frame(lldpGroup, src, 0x88cc, "the one");
   a->txPktIs(pktOf(good));
   EXPECT_EQ(a->txFrames(), 6u);
   ASSERT_TRUE(waitFor([&] { return !rb.frames.empty(); }));
   settle();
   ASSERT_EQ(rb.frames.size(), 1u);
   EXPECT_EQ(rb.frames[0].bytes, good);
   EXPECT_EQ(b->rxFrames(), 1u);
}

TEST_F(LinuxPamTest, TagArrivesSeparatedFromAnOtherwiseIdenticalFrame) {
   open();
   if (IsSkipped() || HasFatalFailure()) return;
   Reader rb(b.ptr());
   const std::string plain = frame(lldpGroup, macOf(*a), 0x88cc, std::string(100, 't'));
   // Once with the tag in the bytes, once held apart in the packet.
   a->txPktIs(pktOf(tagged(plain, 0xa00a)));
   Vel::Ptr<Pkt> apart = pktOf(plain);
   apart->dot1qHdrIs(0x8100, 0x2005);
   a->txPktIs(apart);
   ASSERT_TRUE(waitFor([&] { return rb.frames.size() == 2; }));
   for (const Received& r : rb.frames) {
      EXPECT_EQ(r.bytes, plain);
      EXPECT_TRUE(r.tagValid);
      EXPECT_EQ(r.tpid, 0x8100);
   }
   EXPECT_EQ(rb.frames[0].tci, 0xa00a);
   EXPECT_EQ(rb.frames[1].tci, 0x2005);
   EXPECT_EQ(std::string(apart->data(), apart->bytes()), plain);
}

TEST_F(LinuxPamTest, FramesOverTheLimitAreDroppedWholeAndCounted) {
   // A small ring block on b, so the longest frame does not fit one.
   LinuxPam::Options small;
   small.blockSize = 16384;
   small.blockCount = 8;  // each of these frames may take a block of its own
   open(20000, small);
   if (IsSkipped() || HasFatalFailure()) return;
   PktMan::instance().dataSizeIs(20000);  // so a can build them
   Reader rb(b.ptr());
   const std::string src = macOf(*a);
   const size_t limit = Wire::Pam::rxFrameLimit;
   a->txPktIs(pktOf(frame(lldpGroup, src, 0x88cc, std::string(12000 - 14, 'o'))));
   a->txPktIs(pktOf(frame(lldpGroup, src, 0x88cc, std::string(20000 - 14, 'O'))));
   a->txPktIs(pktOf(frame(lldpGroup, src, 0x88cc, std::string(limit + 1 - 14, '1'))));
   const std::string atLimit = frame(lldpGroup, src, 0x88cc, std::string(limit - 14, 'k'));
   a->txPktIs(pktOf(atLimit));
   EXPECT_EQ(a->txErrors(), 0u);
   ASSERT_TRUE(waitFor([&] { return !rb.frames.empty(); }))
       << "oversize drops " << b->rxDropsOversize() << ", ring drops " << b->rxDropsRingFull()
       << ", waiting " << b->readableCount();
   settle();
   EXPECT_EQ(b->rxDropsOversize(), 3u);
   ASSERT_EQ(rb.frames.size(), 1u);
   EXPECT_EQ(rb.frames[0].bytes, atLimit);
}

TEST_F(LinuxPamTest, ReadableCountCoversEveryWaitingFrameAcrossBlocks) {
   LinuxPam::Options small;
   small.blockSize = 16384;  // about 15 of these frames a block
   small.blockCount = 8;
   open(0, small);
   if (IsSkipped() || HasFatalFailure()) return;
   const std::string src = macOf(*a);
   auto nth = [&](int i) {
      return frame(lldpGroup, src, 0x88cc, std::to_string(i) + std::string(1000, '.'));
   };
   const int count = 60;
   for (int i = 0; i < count; ++i) a->txPktIs(pktOf(nth(i)));
   // Nobody reads yet: the frames wait in the ring.
   ASSERT_TRUE(waitFor([&] { return b->readableCount() == count; }));
   Reader rb(b.ptr());
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
}

TEST_F(LinuxPamTest, FullRingDropsInTheKernelAndRecovers) {
   LinuxPam::Options tiny;
   tiny.blockSize = 16384;
   tiny.blockCount = 2;
   open(0, tiny);
   if (IsSkipped() || HasFatalFailure()) return;
   const std::string src = macOf(*a);
   // Far more than two blocks hold, with nobody reading.
   for (int i = 0; i < 200; ++i) {
      a->txPktIs(pktOf(frame(lldpGroup, src, 0x88cc, std::string(1000, 'f'))));
   }
   settle();
   EXPECT_GT(b->rxDropsRingFull(), 0u);
   Reader rb(b.ptr());
   ASSERT_TRUE(waitFor([&] { return b->readableCount() == 0; }));
   const size_t before = rb.frames.size();
   EXPECT_GT(before, 0u);
   const std::string after = frame(lldpGroup, src, 0x88cc, "after");
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

// Packets, the packet manager and the in-memory Pam pair, on virtual time.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Wire/Pam.h"
#include "Framework/Wire/Pkt.h"
#include "tests/Support/AllocCounter.h"
#include "tests/Support/PamFrames.h"

namespace {

using TestSupport::ethFrame;
using TestSupport::PamReader;
using TestSupport::pktOf;
using TestSupport::tagged;
using Wire::Pkt;
using Wire::PktMan;

class PktManTest : public ::testing::Test {
protected:
   void TearDown() override {
      PktMan::instance().maxPktsIs(PktMan::defaultMaxPkts);
      PktMan::instance().dataSizeIs(PktMan::defaultDataSize);
   }
};

TEST_F(PktManTest, FreshPacketHasHeadRoomAndFullCapacityAndNoMore) {
   Vel::Ptr<Pkt> p = PktMan::instance().newPkt();
   ASSERT_TRUE(p);
   EXPECT_EQ(p->bytes(), 0u);
   EXPECT_EQ(p->maxSharedData(), PktMan::defaultDataSize);
   EXPECT_FALSE(p->dot1qHdrValid());

   char* start = p->dataAppend(100);
   EXPECT_EQ(start, p->data());
   std::memset(start, 'x', 100);
   EXPECT_EQ(p->dataAppend(20), start + 100);
   EXPECT_EQ(p->bytes(), 120u);
   p->trimTail(20);
   EXPECT_EQ(p->bytes(), 100u);

   // An Ethernet header goes in front without moving the data.
   char* head = p->prepend(14);
   EXPECT_EQ(head, start - 14);
   EXPECT_EQ(p->bytes(), 114u);
   EXPECT_EQ(p->maxSharedData(), PktMan::defaultDataSize + 14);
   EXPECT_EQ(std::string(head + 14, 100), std::string(100, 'x'));
   p->prepend(Pkt::headRoom - 14);  // all of the head room
   EXPECT_EQ(p->maxSharedData(), PktMan::defaultDataSize + Pkt::headRoom);
   // Growing beyond the buffer is an invariant breach.
   EXPECT_DEATH(p->prepend(1), "prepend beyond head room");

   p->dot1qHdrIs(0x8100, 0x2064);
   p->reset();
   EXPECT_EQ(p->bytes(), 0u);
   EXPECT_EQ(p->data(), start);
   EXPECT_FALSE(p->dot1qHdrValid());
   EXPECT_DEATH(p->prepend(Pkt::headRoom + 1), "prepend beyond head room");
   EXPECT_DEATH(p->dataAppend(PktMan::defaultDataSize + 1), "dataAppend beyond capacity");
   p->dataAppend(PktMan::defaultDataSize);  // exactly full is fine
   EXPECT_DEATH(p->dataAppend(1), "dataAppend beyond capacity");
   EXPECT_DEATH(p->trimTail(PktMan::defaultDataSize + 1), "trimTail beyond data");
}

TEST_F(PktManTest, ReleasedPacketsAreReusedWithoutAllocating) {
   PktMan& man = PktMan::instance();
   const size_t inUse = man.pktsInUse();
   {
      Vel::Ptr<Pkt> a = man.newPkt();
      Vel::Ptr<Pkt> b = man.newPkt();
      EXPECT_EQ(man.pktsInUse(), inUse + 2);
      a->dataAppend(10);
      a->dot1qHdrIs(0x8100, 5);
   }
   EXPECT_EQ(man.pktsInUse(), inUse);
   ASSERT_GE(man.pktsFree(), 2u);

   const uint64_t heap = man.heapAllocs();
   TestSupport::AllocScope allocs;
   for (int i = 0; i < 1000; ++i) {
      Vel::Ptr<Pkt> a = man.newPkt();
      Vel::Ptr<Pkt> b = man.newPkt();
      // A reused packet starts out as a fresh one.
      ASSERT_EQ(a->bytes(), 0u);
      ASSERT_FALSE(a->dot1qHdrValid());
      ASSERT_EQ(a->maxSharedData(), PktMan::defaultDataSize);
      a->dataAppend(64);
   }
   EXPECT_EQ(allocs.count(), 0u);
   EXPECT_EQ(man.heapAllocs(), heap);
}

TEST_F(PktManTest, LimitMakesNewPktFailUntilOneIsReleasedAndDataSizeAppliesToNewOnes) {
   PktMan& man = PktMan::instance();
   man.maxPktsIs(man.pktsInUse() + 2);
   Vel::Ptr<Pkt> a = man.newPkt();
   Vel::Ptr<Pkt> b = man.newPkt();
   ASSERT_TRUE(a && b);
   const uint64_t failures = man.newPktFailures();
   EXPECT_FALSE(man.newPkt());
   EXPECT_EQ(man.newPktFailures(), failures + 1);
   a = nullptr;
   EXPECT_TRUE(man.newPkt());
   man.maxPktsIs(PktMan::defaultMaxPkts);

   // A new data size applies to new packets; old ones are not recycled.
   Vel::Ptr<Pkt> old = man.newPkt();
   man.dataSizeIs(2000);
   EXPECT_EQ(man.pktsFree(), 0u);
   Vel::Ptr<Pkt> small = man.newPkt();
   EXPECT_EQ(small->maxSharedData(), 2000u);
   EXPECT_EQ(old->maxSharedData(), PktMan::defaultDataSize);
   old = nullptr;  // its size is no longer handed out: back to the heap
   EXPECT_EQ(man.pktsFree(), 0u);
   small = nullptr;
   EXPECT_EQ(man.pktsFree(), 1u);
}

class InMemoryPamTest : public PktManTest {
protected:
   void SetUp() override { Vel::EventLoop::instance().virtualTimeIs(true); }
   void TearDown() override {
      Vel::EventLoop::instance().advanceBy(0);
      Vel::EventLoop::instance().virtualTimeIs(false);
      PktManTest::TearDown();
   }
   void run() { Vel::EventLoop::instance().advanceBy(0); }
   std::pair<Vel::Ptr<Wire::InMemoryPam>, Vel::Ptr<Wire::InMemoryPam>> pams =
       Wire::InMemoryPam::pair("Ethernet1", "Ethernet2");
   Wire::InMemoryPam& a = *pams.first;
   Wire::InMemoryPam& b = *pams.second;
};

TEST_F(InMemoryPamTest, FramesArriveInOrderOnePerNotificationThroughTheLoop) {
   EXPECT_EQ(a.intfId(), Wire::IntfId("Ethernet1"));
   EXPECT_EQ(b.intfId(), Wire::IntfId("Ethernet2"));
   a.txPktIs(pktOf(ethFrame("early")));
   run();  // no reader yet: the frame waits, to be announced to the reader when it comes
   EXPECT_EQ(b.readableCount(), 1u);
   PamReader reader(&b);
   EXPECT_TRUE(reader.countsSeen.empty());
   run();
   ASSERT_EQ(reader.frames.size(), 1u);
   EXPECT_EQ(reader.frames[0].bytes, ethFrame("early"));
   for (char c : std::string("xyz")) a.txPktIs(pktOf(ethFrame(std::string(50, c))));
   // Sending never calls a reader back, not even the other end's.
   EXPECT_EQ(reader.countsSeen.size(), 1u);
   EXPECT_EQ(b.readableCount(), 3u);

   run();
   EXPECT_EQ(reader.countsSeen, (std::vector<uint32_t>{1, 3, 2, 1}));
   ASSERT_EQ(reader.frames.size(), 4u);
   EXPECT_EQ(reader.frames[1].bytes, ethFrame(std::string(50, 'x')));
   EXPECT_EQ(reader.frames[3].bytes, ethFrame(std::string(50, 'z')));
   EXPECT_EQ(b.readableCount(), 0u);
   EXPECT_EQ(a.txFrames(), 4u);
   EXPECT_EQ(b.rxFrames(), 4u);
   EXPECT_EQ(a.rxFrames(), 0u);
}

TEST_F(InMemoryPamTest, ReadersSendingFromTheirHandlerDoNotReenter) {
   PamReader ra(&a);
   PamReader rb(&b);
   rb.echo = true;
   a.txPktIs(pktOf(ethFrame("ping")));
   run();
   // b took the frame and sent it back from its handler; a heard of it on a later turn.
   EXPECT_EQ(rb.countsSeen, std::vector<uint32_t>{1});
   EXPECT_EQ(ra.countsSeen, std::vector<uint32_t>{1});
   ASSERT_EQ(ra.frames.size(), 1u);
   EXPECT_EQ(ra.frames[0].bytes, ethFrame("ping"));
}

TEST_F(InMemoryPamTest, ReaderThatTakesNothingIsNotAskedAgainUntilMoreArrive) {
   struct Declining : Wire::Pam::Notifiee {
      void handleReadableCount() override { ++calls; }
      int calls = 0;
   } declining;
   b.notifieeIs(&declining);
   a.txPktIs(pktOf(ethFrame("one")));
   run();  // would never return if the Pam kept asking
   EXPECT_EQ(declining.calls, 1);
   a.txPktIs(pktOf(ethFrame("two")));
   run();
   EXPECT_EQ(declining.calls, 2);
   EXPECT_EQ(b.readableCount(), 2u);
   b.notifieeIs(nullptr);
}

// A tag in line comes apart when the receiver separates tags and stays otherwise; a tag
// held apart in a sent packet goes out in line, leaving the sender's packet as it was.
TEST_F(InMemoryPamTest, TagsSeparatedOrInLineAsTheReceiverWants) {
   PamReader reader(&b);
   const std::string plain = ethFrame("tagged payload");
   a.txPktIs(pktOf(tagged(plain, 0x6005)));
   b.separateDot1QHdrIs(false);
   a.txPktIs(pktOf(tagged(plain, 0x6005)));
   Vel::Ptr<Pkt> apart = pktOf(plain);
   apart->dot1qHdrIs(0x8100, 0x0064);
   a.txPktIs(apart);
   run();
   ASSERT_EQ(reader.frames.size(), 3u);
   EXPECT_EQ(reader.frames[0].bytes, plain);
   EXPECT_EQ(reader.frames[0].tci, 0x6005);
   EXPECT_EQ(reader.frames[1].bytes, tagged(plain, 0x6005));
   EXPECT_EQ(reader.frames[1].tci, -1);
   EXPECT_EQ(reader.frames[2].bytes, tagged(plain, 0x0064));
   EXPECT_EQ(std::string(apart->data(), apart->bytes()), plain);
}

TEST_F(InMemoryPamTest, FramesOverTheLimitOrWithoutAFreePacketAreDroppedAndCounted) {
   PamReader reader(&b);
   const size_t limit = Wire::Pam::rxFrameLimit;
   a.txPktIs(pktOf(ethFrame(std::string(limit + 1 - 14, 'o'))));
   a.txPktIs(pktOf(ethFrame(std::string(limit - 14, 'k'))));
   // The tag does not count: it is not part of the frame the reader gets.
   a.txPktIs(pktOf(tagged(ethFrame(std::string(limit - 14, 't')), 7)));
   Vel::Ptr<Pkt> lost = pktOf(ethFrame("lost"));
   PktMan::instance().maxPktsIs(PktMan::instance().pktsInUse());
   a.txPktIs(lost);
   PktMan::instance().maxPktsIs(PktMan::defaultMaxPkts);
   run();
   EXPECT_EQ(b.rxDropsOversize(), 1u);
   EXPECT_EQ(b.rxDropsNoPkt(), 1u);
   ASSERT_EQ(reader.frames.size(), 2u);
   EXPECT_EQ(reader.frames[0].bytes.size(), limit);
   EXPECT_EQ(reader.frames[1].bytes.size(), limit);
   EXPECT_EQ(reader.frames[1].tci, 7);
   EXPECT_EQ(b.readableCount(), 0u);
}

TEST_F(InMemoryPamTest, ReceiverDroppedWhileNotificationPendingAndSenderAlone) {
   {
      auto [x, y] = Wire::InMemoryPam::pair("Ethernet3", "Ethernet4");
      PamReader reader(y.ptr());
      x->txPktIs(pktOf(ethFrame("late")));
   }
   run();  // the pending notification finds the Pam still alive, without a reader

   pams.second = nullptr;  // b is gone
   a.txPktIs(pktOf(ethFrame("nobody")));
   EXPECT_EQ(a.txErrors(), 1u);
   EXPECT_EQ(a.peer(), nullptr);
}

}  // namespace

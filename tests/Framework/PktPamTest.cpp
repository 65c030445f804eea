// Packets, the packet manager and the in-memory Pam pair, on virtual time.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Wire/Pam.h"
#include "Framework/Wire/Pkt.h"
#include "tests/Support/AllocCounter.h"

namespace {

using Wire::Pkt;
using Wire::PktMan;

std::string bytesOf(const Pkt& p) {
   return std::string(p.data(), p.bytes());
}

// An LLDP frame to the nearest bridge group address whose payload is `payload`.
std::string lldpFrame(const std::string& payload) {
   std::string f("\x01\x80\xc2\x00\x00\x0e\x02\x00\x00\x00\x00\x01\x88\xcc", 14);
   return f + payload;
}

// The same frame with an 802.1Q tag in line.
std::string tagged(const std::string& frame, uint16_t tci) {
   std::string tag("\x81\x00", 2);
   tag += char(tci >> 8);
   tag += char(tci & 0xff);
   return frame.substr(0, 12) + tag + frame.substr(12);
}

Vel::Ptr<Pkt> pktOf(const std::string& frame) {
   Vel::Ptr<Pkt> p = PktMan::instance().newPkt();
   std::memcpy(p->dataAppend(frame.size()), frame.data(), frame.size());
   return p;
}

class PktManTest : public ::testing::Test {
protected:
   void TearDown() override {
      PktMan::instance().maxPktsIs(PktMan::defaultMaxPkts);
      PktMan::instance().dataSizeIs(PktMan::defaultDataSize);
   }
};

TEST_F(PktManTest, FreshPacketHasHeadRoomAndFullCapacity) {
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

   p->dot1qHdrIs(0x8100, 0x2064);
   p->reset();
   EXPECT_EQ(p->bytes(), 0u);
   EXPECT_EQ(p->data(), start);
   EXPECT_FALSE(p->dot1qHdrValid());
}

TEST_F(PktManTest, GrowingBeyondTheBufferIsAnInvariantBreach) {
   Vel::Ptr<Pkt> p = PktMan::instance().newPkt();
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

TEST_F(PktManTest, LimitMakesNewPktFailUntilOneIsReleased) {
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
}

TEST_F(PktManTest, DataSizeAppliesToNewPacketsAndOldOnesAreNotRecycled) {
   PktMan& man = PktMan::instance();
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

// Takes one frame per notification, as an LLDP port does.
struct Reader : Wire::Pam::Notifiee {
   explicit Reader(Wire::Pam* p) : pam(p) { pam->notifieeIs(this); }
   ~Reader() { pam->notifieeIs(nullptr); }
   void handleReadableCount() override {
      ++calls;
      countsSeen.push_back(pam->readableCount());
      if (Vel::Ptr<Pkt> p = pam->rxPkt()) {
         frames.push_back(bytesOf(*p));
         tags.push_back(p->dot1qHdrValid() ? p->dot1qTci() : -1);
         if (echo) pam->txPktIs(p);
      }
   }
   Wire::Pam* pam;
   int calls = 0;
   bool echo = false;
   std::vector<uint32_t> countsSeen;
   std::vector<std::string> frames;
   std::vector<int> tags;
};

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
   Reader reader(&b);
   EXPECT_EQ(a.intfId(), Wire::IntfId("Ethernet1"));
   EXPECT_EQ(b.intfId(), Wire::IntfId("Ethernet2"));
   for (char c : std::string("xyz")) a.txPktIs(pktOf(lldpFrame(std::string(50, c))));
   // Sending never calls a reader back, not even the other end's.
   EXPECT_EQ(reader.calls, 0);
   EXPECT_EQ(b.readableCount(), 3u);

   run();
   EXPECT_EQ(reader.calls, 3);
   EXPECT_EQ(reader.countsSeen, (std::vector<uint32_t>{3, 2, 1}));
   ASSERT_EQ(reader.frames.size(), 3u);
   EXPECT_EQ(reader.frames[0], lldpFrame(std::string(50, 'x')));
   EXPECT_EQ(reader.frames[2], lldpFrame(std::string(50, 'z')));
   EXPECT_EQ(b.readableCount(), 0u);
   EXPECT_EQ(a.txFrames(), 3u);
   EXPECT_EQ(b.rxFrames(), 3u);
   EXPECT_EQ(a.rxFrames(), 0u);
}

TEST_F(InMemoryPamTest, FramesWaitingBeforeTheReaderComesAreAnnouncedToIt) {
   a.txPktIs(pktOf(lldpFrame("early")));
   run();  // no reader yet: the frame waits
   EXPECT_EQ(b.readableCount(), 1u);
   Reader reader(&b);
   EXPECT_EQ(reader.calls, 0);
   run();
   ASSERT_EQ(reader.frames.size(), 1u);
   EXPECT_EQ(reader.frames[0], lldpFrame("early"));
}

TEST_F(InMemoryPamTest, ReadersSendingFromTheirHandlerDoNotReenter) {
   Reader ra(&a);
   Reader rb(&b);
   rb.echo = true;
   a.txPktIs(pktOf(lldpFrame("ping")));
   run();
   // b took the frame and sent it back from its handler; a heard of it on a later turn.
   EXPECT_EQ(rb.calls, 1);
   EXPECT_EQ(ra.calls, 1);
   ASSERT_EQ(ra.frames.size(), 1u);
   EXPECT_EQ(ra.frames[0], lldpFrame("ping"));
}

TEST_F(InMemoryPamTest, ReaderThatTakesNothingIsNotAskedAgainUntilMoreArrive) {
   struct Declining : Wire::Pam::Notifiee {
      void handleReadableCount() override { ++calls; }
      int calls = 0;
   } declining;
   b.notifieeIs(&declining);
   a.txPktIs(pktOf(lldpFrame("one")));
   run();  // would never return if the Pam kept asking
   EXPECT_EQ(declining.calls, 1);
   a.txPktIs(pktOf(lldpFrame("two")));
   run();
   EXPECT_EQ(declining.calls, 2);
   EXPECT_EQ(b.readableCount(), 2u);
   b.notifieeIs(nullptr);
}

TEST_F(InMemoryPamTest, InLineTagIsSeparatedWhenTheReceiverSeparatesTags) {
   Reader reader(&b);
   const std::string plain = lldpFrame("tagged payload");
   a.txPktIs(pktOf(tagged(plain, 0x6005)));
   b.separateDot1QHdrIs(false);
   a.txPktIs(pktOf(tagged(plain, 0x6005)));
   run();
   ASSERT_EQ(reader.frames.size(), 2u);
   EXPECT_EQ(reader.frames[0], plain);
   EXPECT_EQ(reader.tags[0], 0x6005);
   EXPECT_EQ(reader.frames[1], tagged(plain, 0x6005));
   EXPECT_EQ(reader.tags[1], -1);
}

TEST_F(InMemoryPamTest, SeparatedTagOfASentPacketGoesOutInLine) {
   Reader reader(&b);
   b.separateDot1QHdrIs(false);
   const std::string plain = lldpFrame("payload");
   Vel::Ptr<Pkt> p = pktOf(plain);
   p->dot1qHdrIs(0x8100, 0x0064);
   a.txPktIs(p);
   run();
   ASSERT_EQ(reader.frames.size(), 1u);
   EXPECT_EQ(reader.frames[0], tagged(plain, 0x0064));
   // The sender's packet is left as it was.
   EXPECT_EQ(bytesOf(*p), plain);
}

TEST_F(InMemoryPamTest, FramesOverTheLimitAreDroppedWhole) {
   Reader reader(&b);
   const size_t limit = Wire::Pam::rxFrameLimit;
   a.txPktIs(pktOf(lldpFrame(std::string(limit + 1 - 14, 'o'))));
   a.txPktIs(pktOf(lldpFrame(std::string(limit - 14, 'k'))));
   // The tag does not count: it is not part of the frame the reader gets.
   a.txPktIs(pktOf(tagged(lldpFrame(std::string(limit - 14, 't')), 7)));
   run();
   EXPECT_EQ(b.rxDropsOversize(), 1u);
   ASSERT_EQ(reader.frames.size(), 2u);
   EXPECT_EQ(reader.frames[0].size(), limit);
   EXPECT_EQ(reader.frames[1].size(), limit);
   EXPECT_EQ(reader.tags[1], 7);
}

TEST_F(InMemoryPamTest, NoPacketFreeDropsTheFrameAndCountsIt) {
   Reader reader(&b);
   Vel::Ptr<Pkt> p = pktOf(lldpFrame("lost"));
   PktMan::instance().maxPktsIs(PktMan::instance().pktsInUse());
   a.txPktIs(p);
   EXPECT_EQ(b.rxDropsNoPkt(), 1u);
   PktMan::instance().maxPktsIs(PktMan::defaultMaxPkts);
   a.txPktIs(p);
   run();
   ASSERT_EQ(reader.frames.size(), 1u);
   EXPECT_EQ(b.readableCount(), 0u);
}

TEST_F(InMemoryPamTest, ReceiverDroppedWhileNotificationPendingAndSenderAlone) {
   {
      auto [x, y] = Wire::InMemoryPam::pair("Ethernet3", "Ethernet4");
      Reader reader(y.ptr());
      x->txPktIs(pktOf(lldpFrame("late")));
   }
   run();  // the pending notification finds the Pam still alive, without a reader

   pams.second = nullptr;  // b is gone
   a.txPktIs(pktOf(lldpFrame("nobody")));
   EXPECT_EQ(a.txErrors(), 1u);
   EXPECT_EQ(a.peer(), nullptr);
}

}  // namespace

// Event loop: clock order and re-entrancy in virtual time, deferred calls, and real
// descriptors and timers in real time.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Framework/Vel/EventLoop.h"
#include "tests/Support/AllocCounter.h"

namespace {

using Vel::Clock;
using Vel::EventLoop;
using Vel::FdReactor;
using Vel::never;

EventLoop& loop() {
   return EventLoop::instance();
}

// Every test starts in virtual time at 1000 and must leave nothing scheduled behind.
struct VirtualTimeTest : ::testing::Test {
   std::vector<std::string> fired;

   void SetUp() override { loop().virtualTimeIs(true, 1000); }
   void TearDown() override {
      EXPECT_EQ(loop().scheduledClocks(), 0u);
      loop().virtualTimeIs(false);
   }
   std::function<void()> record(const std::string& name) {
      return [this, name] { fired.push_back(name); };
   }
};

// Many clocks scheduled, re-scheduled and parked at random, then fired: the order must
// match a plain sort by (time, scheduling order), so ties fire in scheduling order, a
// re-scheduled clock goes behind those already waiting, and a parked one never fires.
TEST_F(VirtualTimeTest, RandomScheduleFiresInSortedOrder) {
   constexpr int clockCount = 300;
   std::mt19937 rng(7);
   std::vector<std::unique_ptr<Clock>> clocks;
   std::vector<int> order;
   for (int i = 0; i < clockCount; ++i) {
      clocks.push_back(std::make_unique<Clock>([&order, i] { order.push_back(i); }));
   }
   for (int round = 0; round < 20; ++round) {
      Vel::Seconds base = loop().now();
      // clock -> (time, order of its last scheduling); time `never` when parked
      std::vector<std::pair<Vel::Seconds, int>> model(clockCount, {never, 0});
      for (int step = 0; step < 2000; ++step) {
         int i = int(rng() % clockCount);
         if (rng() % 4 == 0) {
            clocks[i]->timeMinIs(never);
            model[i] = {never, step};
         } else {
            Vel::Seconds t = base + double(rng() % 50);  // plenty of ties
            clocks[i]->timeMinIs(t);
            model[i] = {t, step};
         }
      }
      std::vector<int> expected;
      for (int i = 0; i < clockCount; ++i) {
         if (model[i].first != never) expected.push_back(i);
      }
      std::sort(expected.begin(), expected.end(),
                [&](int a, int b) { return model[a] < model[b]; });
      EXPECT_EQ(loop().scheduledClocks(), expected.size());
      order.clear();
      loop().advanceTo(base + 100);
      ASSERT_EQ(order, expected) << "round " << round;
   }
}

TEST_F(VirtualTimeTest, HandlerSeesItsOwnTimeAndParkedClock) {
   std::vector<Vel::Seconds> seen;
   Clock late, past;
   late.handlerIs([&] {
      seen.push_back(loop().now());
      EXPECT_EQ(late.timeMin(), never);
   });
   past.handlerIs([&] { seen.push_back(loop().now()); });
   late.timeMinIs(1002.5);
   past.timeMinIs(990);  // already past: fires at once, at the current time
   loop().advanceTo(1100);
   EXPECT_EQ(seen, (std::vector<Vel::Seconds>{1000, 1002.5}));
   EXPECT_EQ(loop().now(), 1100);
   EXPECT_EQ(late.timeMin(), never);

   // Time does not go back.
   loop().advanceTo(1050);
   EXPECT_EQ(loop().now(), 1100);
}

TEST_F(VirtualTimeTest, PeriodicClockFiresExactlyOnItsPeriodAllDayWithoutAllocating) {
   loop().virtualTimeIs(true, 0);
   constexpr Vel::Seconds period = 30;
   size_t firings = 0;
   size_t offPeriod = 0;
   Clock tick;
   tick.handlerIs([&] {
      if (loop().now() != period * double(firings)) ++offPeriod;
      ++firings;
      tick.timeMinIs(loop().now() + period);
   });
   tick.timeMinIs(0);
   TestSupport::AllocScope allocs;
   loop().advanceTo(86400 - 1);
   EXPECT_EQ(allocs.count(), 0u);
   EXPECT_EQ(firings, 2880u);
   EXPECT_EQ(offPeriod, 0u);
   EXPECT_EQ(tick.timeMin(), 86400);
   tick.timeMinIs(never);
}

TEST_F(VirtualTimeTest, HandlersMayDestroyOrParkOtherDueClocksAndThemselves) {
   auto victim = std::make_unique<Clock>(record("victim"));
   Clock parked(record("parked"));
   Clock killer([&] {
      fired.push_back("killer");
      victim.reset();
      parked.timeMinIs(never);
   });
   auto self = std::make_unique<Clock>();
   std::string name = "self";
   self->handlerIs([&, name] {
      self.reset();
      fired.push_back(name);  // the running handler's captures outlive its clock
   });
   Clock after(record("after"));
   killer.timeMinIs(1010);
   victim->timeMinIs(1010);
   parked.timeMinIs(1010);
   self->timeMinIs(1010);
   after.timeMinIs(1010);
   loop().advanceTo(1010);
   EXPECT_EQ(fired, (std::vector<std::string>{"killer", "self", "after"}));
   EXPECT_EQ(self, nullptr);
}

TEST_F(VirtualTimeTest, ClocksScheduledByHandlersFireInTheSameAdvance) {
   Clock second([&] { fired.push_back("second@" + std::to_string(int(loop().now()))); });
   Clock first([&] {
      fired.push_back("first");
      second.timeMinIs(loop().now() + 10);
   });
   Clock outside(record("outside"));
   first.timeMinIs(1010);
   loop().advanceTo(1030);
   EXPECT_EQ(fired, (std::vector<std::string>{"first", "second@1020"}));

   // Scheduled past the window: waits for a later advance.
   fired.clear();
   first.handlerIs([&] { outside.timeMinIs(1100); });
   first.timeMinIs(1040);
   loop().advanceTo(1050);
   EXPECT_TRUE(fired.empty());
   EXPECT_EQ(outside.timeMin(), 1100);
   loop().advanceTo(1100);
   EXPECT_EQ(fired, (std::vector<std::string>{"outside"}));
}

TEST_F(VirtualTimeTest, HandlerReplacedFromInsideItselfStaysReplaced) {
   Clock c;
   c.handlerIs([&] {
      fired.push_back("old");
      c.handlerIs(record("new"));
      c.timeMinIs(loop().now() + 1);
   });
   c.timeMinIs(1001);
   loop().advanceTo(1005);
   EXPECT_EQ(fired, (std::vector<std::string>{"old", "new"}));
}

TEST_F(VirtualTimeTest, DeferredCallsRunInPostingOrder) {
   loop().post(record("a"));
   loop().post([&] {
      fired.push_back("b");
      loop().post(record("d"));  // same round, after those already queued
   });
   loop().post(record("c"));
   EXPECT_TRUE(fired.empty());
   loop().advanceBy(0);
   EXPECT_EQ(fired, (std::vector<std::string>{"a", "b", "c", "d"}));

   // A call posted by a clock handler runs before the next clock fires.
   fired.clear();
   Clock one([&] {
      fired.push_back("one");
      loop().post(record("posted"));
   });
   Clock two(record("two"));
   one.timeMinIs(1001);
   two.timeMinIs(1001);
   loop().advanceBy(1);
   EXPECT_EQ(fired, (std::vector<std::string>{"one", "posted", "two"}));

   // Many calls at once: the queue grows and keeps its order.
   std::vector<int> order;
   for (int i = 0; i < 100; ++i) loop().post([&order, i] { order.push_back(i); });
   EXPECT_TRUE(loop().runOnce(0));
   ASSERT_EQ(order.size(), 100u);
   for (int i = 0; i < 100; ++i) EXPECT_EQ(order[i], i);
}

TEST_F(VirtualTimeTest, TurnFiresOnlyWhatIsDueAndNeverMovesTime) {
   Clock now(record("now"));
   Clock later(record("later"));
   Clock again;
   again.handlerIs([&] {
      fired.push_back("again");
      again.timeMinIs(loop().now());  // due, but only on the next turn
   });
   now.timeMinIs(1000);
   later.timeMinIs(1001);
   again.timeMinIs(999);
   EXPECT_TRUE(loop().runOnce(0));
   EXPECT_EQ(fired, (std::vector<std::string>{"again", "now"}));
   EXPECT_EQ(loop().now(), 1000);
   EXPECT_TRUE(loop().runOnce(0));
   EXPECT_EQ(fired, (std::vector<std::string>{"again", "now", "again"}));
   again.timeMinIs(never);
   later.timeMinIs(never);
}

// ---------------------------------------------------------------------------------------
// Real time.

struct Pipe {
   int rd = -1;
   int wr = -1;
   Pipe() {
      int fds[2];
      EXPECT_EQ(pipe2(fds, O_NONBLOCK | O_CLOEXEC), 0);
      rd = fds[0];
      wr = fds[1];
   }
   ~Pipe() {
      closeWriter();
      close(rd);
   }
   void closeWriter() {
      if (wr >= 0) close(wr);
      wr = -1;
   }
   void put(const std::string& s) { EXPECT_EQ(write(wr, s.data(), s.size()), ssize_t(s.size())); }
};

struct RealTimeTest : ::testing::Test {
   void SetUp() override { ASSERT_FALSE(loop().virtualTime()); }
   void TearDown() override { EXPECT_EQ(loop().scheduledClocks(), 0u); }
};

TEST_F(RealTimeTest, ReadableDescriptorCallsItsReactorUntilDestroyed) {
   Pipe p;
   std::string got;
   bool eof = false;
   std::unique_ptr<FdReactor> reactor;
   reactor = std::make_unique<FdReactor>(p.rd, [&] {
      char buf[64];
      ssize_t n = read(p.rd, buf, sizeof buf);
      if (n > 0) {
         got.append(buf, size_t(n));
      } else if (n == 0) {
         eof = true;
         reactor.reset();  // from its own handler
      }
   });
   ASSERT_TRUE(reactor->registered());
   p.put("hello");
   EXPECT_TRUE(loop().runUntil([&] { return got == "hello"; }, 5));
   loop().post([&] { p.put(" world"); });
   EXPECT_TRUE(loop().runUntil([&] { return got == "hello world"; }, 5));
   p.closeWriter();
   EXPECT_TRUE(loop().runUntil([&] { return eof; }, 5));
   EXPECT_EQ(reactor, nullptr);
   // Nothing left to wake the loop: runUntil gives up after its timeout.
   EXPECT_FALSE(loop().runUntil([] { return false; }, 0.02));
}

TEST_F(RealTimeTest, ReactorDestroyedByAnEarlierHandlerOfTheTurnIsNotCalled) {
   Pipe p1, p2;
   std::unique_ptr<FdReactor> r1, r2;
   int calls = 0;
   char c;
   r1 = std::make_unique<FdReactor>(p1.rd, [&] {
      ++calls;
      EXPECT_EQ(read(p1.rd, &c, 1), 1);
      r2.reset();
   });
   r2 = std::make_unique<FdReactor>(p2.rd, [&] {
      ++calls;
      EXPECT_EQ(read(p2.rd, &c, 1), 1);
      r1.reset();
   });
   p1.put("x");
   p2.put("y");
   EXPECT_TRUE(loop().runUntil([&] { return calls > 0; }, 5));
   EXPECT_TRUE(loop().runOnce(0));
   EXPECT_EQ(calls, 1);
   EXPECT_TRUE(r1 == nullptr || r2 == nullptr);
}

TEST_F(RealTimeTest, InvalidDescriptorIsRefusedQuietly) {
   FdReactor bad(-1, [] {});
   EXPECT_FALSE(bad.registered());
   int fd = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
   ASSERT_GE(fd, 0);
   {
      FdReactor regularFile(fd, [] {});  // epoll does not watch regular files
      EXPECT_FALSE(regularFile.registered());
   }
   close(fd);
}

TEST_F(RealTimeTest, ClockFiresWhenDue) {
   Vel::Seconds due = loop().now() + 0.02;
   Vel::Seconds firedAt = 0;
   Clock c([&] { firedAt = loop().now(); });
   c.timeMinIs(due);
   EXPECT_TRUE(loop().runUntil([&] { return firedAt != 0; }, 5));
   EXPECT_GE(firedAt, due);
   EXPECT_EQ(c.timeMin(), never);
}

TEST_F(RealTimeTest, StopEndsRun) {
   int ticks = 0;
   Clock c;
   c.handlerIs([&] {
      if (++ticks == 3) {
         loop().stop();
      } else {
         c.timeMinIs(loop().now() + 0.001);
      }
   });
   c.timeMinIs(loop().now());
   loop().run();
   EXPECT_EQ(ticks, 3);
   EXPECT_TRUE(loop().runOnce(0));  // the request is used up
}

}  // namespace

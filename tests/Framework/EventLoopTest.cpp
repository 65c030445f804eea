// Event loop: clock order and re-entrancy in virtual time, deferred calls, and real
// descriptors and timers in real time.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <numeric>
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
// Each handler runs with now() at its own time and its clock already parked.
TEST_F(VirtualTimeTest, RandomScheduleFiresInSortedOrder) {
   constexpr int clockCount = 300;
   std::mt19937 rng(7);
   std::vector<std::unique_ptr<Clock>> clocks;
   // clock -> (time, order of its last scheduling); time `never` when parked
   std::vector<std::pair<Vel::Seconds, int>> model;
   std::vector<int> order;
   int wrongTime = 0;
   for (int i = 0; i < clockCount; ++i) {
      clocks.push_back(std::make_unique<Clock>([&, i] {
         order.push_back(i);
         if (loop().now() != model[i].first || clocks[i]->timeMin() != never) ++wrongTime;
      }));
   }
   for (int round = 0; round < 20; ++round) {
      Vel::Seconds base = loop().now();
      model.assign(clockCount, {never, 0});
      for (int step = 0; step < 2000; ++step) {
         int i = int(rng() % clockCount);
         if (rng() % 4 == 0) {
            clocks[i]->timeMinIs(never);
            model[i] = {never, step};
         } else {
            Vel::Seconds t = base + double(rng() % 100) / 2;  // plenty of ties
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
      EXPECT_EQ(loop().now(), base + 100);
   }
   EXPECT_EQ(wrongTime, 0);
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
      loop().post(record("posted"));  // runs before the next clock fires
   });
   auto self = std::make_unique<Clock>();
   std::string name = "self";
   self->handlerIs([&, name] {
      self.reset();
      fired.push_back(name);  // the running handler's captures outlive its clock
   });
   Clock after(record("after"));
   for (Clock* c : {&killer, victim.get(), &parked, self.get(), &after}) c->timeMinIs(1010);
   loop().advanceTo(1010);
   EXPECT_EQ(fired, (std::vector<std::string>{"killer", "posted", "self", "after"}));
   EXPECT_EQ(self, nullptr);
}

TEST_F(VirtualTimeTest, ClocksScheduledByHandlersFireInTheSameAdvance) {
   Clock second([&] { fired.push_back("second@" + std::to_string(int(loop().now()))); });
   Clock outside(record("outside"));
   Clock first;
   first.handlerIs([&] {
      fired.push_back("first");
      second.timeMinIs(loop().now() + 10);
      // Replaced from inside itself: the replacement stays once this handler returns.
      first.handlerIs([&] { outside.timeMinIs(1100); });
   });
   first.timeMinIs(1010);
   loop().advanceTo(1030);
   EXPECT_EQ(fired, (std::vector<std::string>{"first", "second@1020"}));

   // Scheduled past the window: waits for a later advance.
   fired.clear();
   first.timeMinIs(1040);
   loop().advanceTo(1050);
   EXPECT_TRUE(fired.empty());
   EXPECT_EQ(outside.timeMin(), 1100);
   loop().advanceTo(1100);
   EXPECT_EQ(fired, (std::vector<std::string>{"outside"}));
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

   // Many calls at once: the queue grows and keeps its order.
   std::vector<int> order, expected(100);
   std::iota(expected.begin(), expected.end(), 0);
   for (int i : expected) loop().post([&order, i] { order.push_back(i); });
   EXPECT_TRUE(loop().runOnce(0));
   EXPECT_EQ(order, expected);
}

TEST_F(VirtualTimeTest, TurnFiresOnlyWhatIsDueAndNeverMovesTime) {
   Clock now(record("now"));
   Clock later(record("later"));
   Clock again;
   again.handlerIs([&] {
      fired.push_back("again@" + std::to_string(int(loop().now())));
      again.timeMinIs(loop().now());  // due, but only on the next turn
   });
   now.timeMinIs(1000);
   later.timeMinIs(1001);
   again.timeMinIs(999);  // already past: fires at once, at the current time
   EXPECT_TRUE(loop().runOnce(0));
   EXPECT_EQ(fired, (std::vector<std::string>{"again@1000", "now"}));
   EXPECT_EQ(loop().now(), 1000);
   EXPECT_TRUE(loop().runOnce(0));
   EXPECT_EQ(fired, (std::vector<std::string>{"again@1000", "now", "again@1000"}));
   again.timeMinIs(never);
   loop().advanceTo(1100);
   EXPECT_EQ(fired.back(), "later");
   // Time does not go back.
   loop().advanceTo(1050);
   EXPECT_EQ(loop().now(), 1100);
}

// ---------------------------------------------------------------------------------------
// Real time.

// A non-blocking pipe: fd[0] to read, fd[1] to write.
struct Pipe {
   int fd[2] = {-1, -1};
   Pipe() { EXPECT_EQ(pipe2(fd, O_NONBLOCK | O_CLOEXEC), 0); }
   ~Pipe() {
      for (int f : fd) close(f);
   }
   void put(const std::string& s) {
      EXPECT_EQ(write(fd[1], s.data(), s.size()), ssize_t(s.size()));
   }
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
   reactor = std::make_unique<FdReactor>(p.fd[0], [&] {
      char buf[64];
      ssize_t n = read(p.fd[0], buf, sizeof buf);
      if (n > 0) {
         got.append(buf, size_t(n));
      } else if (n == 0) {
         eof = true;
         reactor.reset();  // from its own handler
      }
   });
   ASSERT_TRUE(reactor->registered());
   // Descriptors epoll cannot watch are refused quietly.
   EXPECT_FALSE(FdReactor(-1, [] {}).registered());
   const int file = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
   ASSERT_GE(file, 0);
   EXPECT_FALSE(FdReactor(file, [] {}).registered());
   close(file);
   p.put("hello");
   EXPECT_TRUE(loop().runUntil([&] { return got == "hello"; }, 5));
   loop().post([&] { p.put(" world"); });
   EXPECT_TRUE(loop().runUntil([&] { return got == "hello world"; }, 5));
   close(std::exchange(p.fd[1], -1));
   EXPECT_TRUE(loop().runUntil([&] { return eof; }, 5));
   EXPECT_EQ(reactor, nullptr);
   // Nothing left to wake the loop: runUntil gives up after its timeout.
   EXPECT_FALSE(loop().runUntil([] { return false; }, 0.02));
}

// Both readable in the same turn; whichever runs first destroys the other.
TEST_F(RealTimeTest, ReactorDestroyedByAnEarlierHandlerOfTheTurnIsNotCalled) {
   Pipe p[2];
   std::unique_ptr<FdReactor> r[2];
   int calls = 0;
   for (int i : {0, 1}) {
      r[i] = std::make_unique<FdReactor>(p[i].fd[0], [&, i] {
         ++calls;
         char c;
         EXPECT_EQ(read(p[i].fd[0], &c, 1), 1);
         r[1 - i].reset();
      });
      p[i].put("x");
   }
   EXPECT_TRUE(loop().runUntil([&] { return calls > 0; }, 5));
   EXPECT_TRUE(loop().runOnce(0));
   EXPECT_EQ(calls, 1);
   EXPECT_TRUE(r[0] == nullptr || r[1] == nullptr);
}

// Each firing comes no earlier than due; stop() ends run() from a handler.
TEST_F(RealTimeTest, ClockFiresWhenDueAndStopEndsRun) {
   std::vector<Vel::Seconds> late;
   Vel::Seconds due = loop().now() + 0.02;
   Clock c;
   c.handlerIs([&] {
      late.push_back(loop().now() - due);
      // The time it was due, not the loop's, while its handler runs; even once it is
      // scheduled again.
      const Vel::Seconds was = due;
      EXPECT_EQ(c.firingTime(), was);
      if (late.size() == 3) {
         loop().stop();
      } else {
         due = loop().now() + 0.001;
         c.timeMinIs(due);
      }
      EXPECT_EQ(c.firingTime(), was);
   });
   c.timeMinIs(due);
   EXPECT_EQ(c.firingTime(), never);
   loop().run();
   EXPECT_EQ(c.firingTime(), never);
   ASSERT_EQ(late.size(), 3u);
   for (Vel::Seconds l : late) EXPECT_GE(l, 0);
   EXPECT_EQ(c.timeMin(), never);
   EXPECT_TRUE(loop().runOnce(0));  // the request is used up
}

// Clocks due within the coalescing window share one wake-up, each handler seeing a time
// no earlier than its own; a turn is one instant, however long its handlers take.
TEST_F(RealTimeTest, ClocksDueTogetherShareAWakeUpAndATurnIsOneInstant) {
   const Vel::Seconds first = loop().now() + 0.02;
   const Vel::Seconds dues[3] = {first, first + 0.002, first + 0.05};
   std::vector<Vel::Seconds> seen(3, never);
   bool oneInstant = true;
   Clock clocks[3];
   for (int i = 0; i < 3; ++i) {
      clocks[i].handlerIs([&, i] {
         seen[i] = loop().now();
         usleep(1000);
         oneInstant = oneInstant && loop().now() == seen[i];
      });
      clocks[i].timeMinIs(dues[i]);
   }
   EXPECT_TRUE(loop().runUntil([&] { return seen[0] != never; }, 5));
   EXPECT_NE(seen[1], never);  // in the same turn as the first
   EXPECT_EQ(seen[2], never);
   EXPECT_TRUE(loop().runUntil([&] { return seen[2] != never; }, 5));
   for (int i = 0; i < 3; ++i) EXPECT_GE(seen[i], dues[i]) << i;
   EXPECT_TRUE(oneInstant);
   EXPECT_LT(seen[2] - dues[2], 0.02);  // on time, not rounded
}

}  // namespace

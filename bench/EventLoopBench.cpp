// The event loop's timer path: firing a periodic clock, re-scheduling one clock among
// many, and a deferred call. In virtual time, so the figures are the loop's own cost
// rather than the kernel's. Each reports heap allocations per operation beside its time.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "Framework/Vel/EventLoop.h"
#include "tests/Support/AllocCounter.h"

namespace {

using Vel::Clock;
using Vel::EventLoop;

void reportAllocations(benchmark::State& state, const TestSupport::AllocScope& allocs) {
   state.counters["allocs/op"] =
       benchmark::Counter(double(allocs.count()), benchmark::Counter::kAvgIterations);
}

// Clocks other than the one measured, spread over the next hour, so the schedule has
// the depth a port-heavy agent gives it.
std::vector<std::unique_ptr<Clock>> background(size_t n) {
   std::vector<std::unique_ptr<Clock>> clocks;
   EventLoop& loop = EventLoop::instance();
   for (size_t i = 0; i < n; ++i) {
      clocks.push_back(std::make_unique<Clock>([] {}));
      clocks.back()->timeMinIs(loop.now() + 3600 + double(i % 97));
   }
   return clocks;
}

// One firing of a 30 s periodic clock: advance to its time, fire, re-schedule.
void BM_PeriodicClockFire(benchmark::State& state) {
   EventLoop& loop = EventLoop::instance();
   loop.virtualTimeIs(true, 0);
   auto others = background(size_t(state.range(0)));
   Clock tick;
   tick.handlerIs([&] { tick.timeMinIs(loop.now() + 30); });
   tick.timeMinIs(30);
   TestSupport::AllocScope allocs;
   for (auto _ : state) loop.advanceBy(30);
   reportAllocations(state, allocs);
   tick.timeMinIs(Vel::never);
   others.clear();
   loop.virtualTimeIs(false);
}
BENCHMARK(BM_PeriodicClockFire)->Arg(0)->Arg(1000);

// Moving one scheduled clock to a new time, as a received frame refreshing a neighbour's
// ageing clock does.
void BM_ClockReschedule(benchmark::State& state) {
   EventLoop& loop = EventLoop::instance();
   loop.virtualTimeIs(true, 0);
   auto others = background(size_t(state.range(0)));
   Clock ageing([] {});
   double t = 120;
   TestSupport::AllocScope allocs;
   for (auto _ : state) {
      ageing.timeMinIs(t);
      t += 1;
      if (t > 7200) t = 120;
   }
   reportAllocations(state, allocs);
   ageing.timeMinIs(Vel::never);
   others.clear();
   loop.virtualTimeIs(false);
}
BENCHMARK(BM_ClockReschedule)->Arg(0)->Arg(1000);

// Posting a small call and running it.
void BM_PostAndRun(benchmark::State& state) {
   EventLoop& loop = EventLoop::instance();
   loop.virtualTimeIs(true, 0);
   int calls = 0;
   TestSupport::AllocScope allocs;
   for (auto _ : state) {
      loop.post([&calls] { ++calls; });
      loop.advanceBy(0);
   }
   reportAllocations(state, allocs);
   benchmark::DoNotOptimize(calls);
   loop.virtualTimeIs(false);
}
BENCHMARK(BM_PostAndRun);

}  // namespace

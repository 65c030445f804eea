// The agent's one event loop: timers (clock notifiees), file-descriptor readiness and
// deferred calls, over epoll and a timerfd. Everything runs on the loop's thread; nothing
// here is synchronized.
//
// Time is the framework's activity clock, `Vel::Seconds` since an arbitrary origin (the
// monotonic clock, CLOCK_MONOTONIC). Inside a turn of the loop it is the turn's time,
// read once when the turn's wait ends: everything a turn does happens at one instant, so
// work started by one event (ports coming up together) gets one set of deadlines. A clock
// handler never sees a time before its clock's minimum time. Clocks that fall due within
// `coalescingWindow` of each other share one wake-up: those due a little later fire with
// the first, each seeing its own minimum time.
//
// In virtual-time mode (tests) the clock stands still until the test advances it;
// advancing fires every due clock notifiee in time order, each seeing now() equal to its
// own minimum time, so days of protocol time run in milliseconds and deterministically.
//
// Handlers may do anything from inside the loop: schedule, park or destroy any clock
// (their own included), create or destroy descriptor reactors, post calls. The loop takes
// one due clock at a time and looks at the schedule afresh after every handler, so a clock
// destroyed or parked by an earlier handler of the same turn is simply not called. The
// loop itself must not be entered again from a handler (advanceTo, runOnce, run, runUntil).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>

#include "Framework/Vel/Callback.h"
#include "Framework/Vel/Types.h"

namespace Vel {

inline constexpr Seconds never = std::numeric_limits<Seconds>::infinity();
// Real time: how much earlier than its minimum time a clock may fire to share a wake-up.
inline constexpr Seconds coalescingWindow = 0.004;

class Clock;
class FdReactor;

class EventLoop {
public:
   // The process-wide loop. It lives until the process ends (it is never destroyed, so
   // clocks and reactors with static storage may outlive main()).
   static EventLoop& instance();

   // The activity clock: monotonic seconds, or the virtual time.
   Seconds now() const;

   // Switches virtual time on (at `start`) or off. Meant for when no clock is scheduled;
   // clocks that stay scheduled keep their minimum times, read in the new time base.
   void virtualTimeIs(bool on, Seconds start = 0);
   bool virtualTime() const;
   // Virtual time only: runs deferred calls, then fires due clocks in order of their
   // minimum time (ties in scheduling order) up to and including `t`, running deferred
   // calls after each; leaves now() at `t`. Clocks scheduled by handlers for times up to
   // `t` fire in the same call. Time never goes back: a `t` before now() only fires what
   // is already due and leaves now() as it is.
   void advanceTo(Seconds t);
   void advanceBy(Seconds d) { advanceTo(now() + d); }

   // One turn of the loop: runs deferred calls, waits at most `maxWait` real seconds for
   // a due clock, a ready descriptor or a deferred call, then fires the clocks that were
   // due when the wait ended (in time order; clocks scheduled by those handlers wait for
   // the next turn) and calls the handlers of ready descriptors. Returns false if stop()
   // was called (and clears that request), true otherwise.
   //
   // In virtual time a turn does not move the clock: it fires only clocks already due at
   // now(), and waits (not longer than `maxWait` of real time) only for descriptors.
   bool runOnce(Seconds maxWait = never);
   // runOnce until stop().
   void run();
   // Makes run() (or the runOnce in progress) return after the current turn.
   void stop();
   // Runs the loop until `done` returns true or `timeout` real seconds pass; returns
   // done(). For tests that wait for an outcome on real sockets; it works in virtual time
   // too, where only descriptors and deferred calls make progress.
   bool runUntil(const std::function<bool()>& done, Seconds timeout);

   // Calls `fn` from the loop soon (after the current handler returns), in posting order.
   // Calls posted by a deferred call run in the same round, after those already queued.
   void post(std::function<void()> fn);

   // How many clocks are scheduled (not parked).
   size_t scheduledClocks() const;

private:
   friend class Clock;
   friend class FdReactor;
   struct Impl;
   EventLoop();
   ~EventLoop();
   Impl* impl_;
};

// A clock notifiee: a timer with a minimum time. Setting the minimum time schedules it
// (a time in the past fires on the next turn of the loop); `never` parks it. It fires
// once per scheduling: its minimum time reads `never` when its handler runs, and the
// handler usually sets the next time. Setting the time again re-schedules it, behind
// clocks already scheduled for the same time.
class Clock {
public:
   explicit Clock(Callback handler = nullptr);
   ~Clock();
   Clock(const Clock&) = delete;
   Clock& operator=(const Clock&) = delete;

   void handlerIs(Callback handler);
   Seconds timeMin() const { return timeMin_; }
   void timeMinIs(Seconds t);
   // While its handler runs, the time it was scheduled for (the loop's time may be a
   // little later); never otherwise.
   Seconds firingTime() const;

private:
   friend class EventLoop;
   friend struct EventLoop::Impl;
   static constexpr size_t unscheduled = ~size_t(0);
   struct Firing;
   // The clock whose handler is running, if any: the loop is not entered again from a
   // handler, so there is at most one, and a clock keeps no pointer of its own for it.
   static Firing* firing;

   Callback handler_;  // two words: ports keep clocks, one or two each
   Seconds timeMin_ = never;
   uint64_t seq_ = 0;                // scheduling order, for ties
   size_t heapIndex_ = unscheduled;  // position in the loop's schedule
};

// Calls its handler from the loop whenever the descriptor is readable (level-triggered:
// again on every turn while data remains). Hang-up and error conditions count as readable,
// since a read then reports them. The reactor does not own the descriptor; destroy the
// reactor before closing it.
class FdReactor {
public:
   FdReactor(int fd, std::function<void()> onReadable);
   ~FdReactor();
   FdReactor(const FdReactor&) = delete;
   FdReactor& operator=(const FdReactor&) = delete;
   int fd() const { return fd_; }
   // Whether the loop watches the descriptor (false if registering it failed).
   bool registered() const { return registered_; }

private:
   friend class EventLoop;
   friend struct EventLoop::Impl;
   int fd_;
   std::function<void()> onReadable_;
   uint32_t serial_ = 0;  // tells this reactor from a later one on the same descriptor
   bool registered_ = false;
};

}  // namespace Vel

#include "Framework/Vel/EventLoop.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <ctime>
#include <utility>
#include <vector>

#include "Framework/Assert.h"
#include "Framework/Trace.h"

namespace Vel {

namespace {

Trace::Handle traceEventLoop("EventLoop");

// Tags the timerfd's epoll entry; a reactor's entry holds its descriptor (never all ones)
// and its serial.
constexpr uint64_t timerTag = ~uint64_t(0);
constexpr int maxEvents = 64;

Seconds monotonicNow() {
   timespec ts;
   clock_gettime(CLOCK_MONOTONIC, &ts);
   return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

// An absolute monotonic time for the timerfd, rounded up to the nanosecond so the timer
// never expires before the clock is due. A zero time would disarm the timer, so times at
// or before the origin become one nanosecond.
timespec absoluteTimespec(Seconds t) {
   if (!(t > 0)) return {0, 1};
   double whole = std::floor(t);
   long ns = long(std::ceil((t - whole) * 1e9));
   if (ns >= 1000000000L) {
      whole += 1;
      ns -= 1000000000L;
   }
   return {time_t(whole), ns};
}

// An epoll timeout: milliseconds rounded up, -1 for no limit.
int timeoutMs(Seconds wait) {
   if (wait == never) return -1;
   if (!(wait > 0)) return 0;
   double ms = std::ceil(wait * 1000);
   return ms >= double(INT_MAX) ? INT_MAX : int(ms);
}

// The deferred calls: a ring of std::function slots that grows by doubling and is then
// reused, so posting and running calls allocates nothing beyond what a call's own
// captures need.
class CallQueue {
public:
   CallQueue() : slots_(16) {}
   bool empty() const { return count_ == 0; }
   void push(std::function<void()> fn) {
      if (count_ == slots_.size()) grow();
      slots_[(head_ + count_) & (slots_.size() - 1)] = std::move(fn);
      ++count_;
   }
   std::function<void()> pop() {
      std::function<void()>& slot = slots_[head_];
      std::function<void()> fn = std::move(slot);
      slot = nullptr;
      head_ = (head_ + 1) & (slots_.size() - 1);
      --count_;
      return fn;
   }

private:
   void grow() {
      std::vector<std::function<void()>> bigger(slots_.size() * 2);
      for (size_t i = 0; i < count_; ++i) {
         bigger[i] = std::move(slots_[(head_ + i) & (slots_.size() - 1)]);
      }
      slots_.swap(bigger);
      head_ = 0;
   }

   std::vector<std::function<void()>> slots_;  // size is a power of two
   size_t head_ = 0;
   size_t count_ = 0;
};

}  // namespace

// What a clock's handler may do to the clock while it runs, recorded for the loop.
struct Clock::Firing {
   Clock* clock;
   Seconds time;  // what the clock was scheduled for
   bool destroyed = false;
   bool handlerSet = false;
};

Clock::Firing* Clock::firing = nullptr;

struct EventLoop::Impl {
   int epfd = -1;
   int timerfd = -1;
   bool virtualOn = false;
   Seconds virtualNow = 0;
   bool running = false;
   bool stopRequested = false;
   // Real time: the time of the current turn, which every handler of the turn reads.
   Seconds turnNow = 0;

   // The schedule: a binary min-heap of clocks by (minimum time, scheduling order); each
   // clock knows its position so it can leave from anywhere.
   std::vector<Clock*> heap;
   uint64_t lastSeq = 0;
   Seconds armedAt = never;  // what the timerfd is set for
   bool armFailed = false;

   CallQueue posted;

   std::vector<FdReactor*> reactors;  // by descriptor
   uint32_t lastSerial = 0;
   epoll_event events[maxEvents];

   Seconds now() const {
      if (virtualOn) return virtualNow;
      return running ? turnNow : monotonicNow();
   }

   // --- Schedule.

   static bool before(const Clock* a, const Clock* b) {
      return a->timeMin_ < b->timeMin_ || (a->timeMin_ == b->timeMin_ && a->seq_ < b->seq_);
   }
   void place(size_t i, Clock* c) {
      heap[i] = c;
      c->heapIndex_ = i;
   }
   void siftUp(size_t i) {
      Clock* c = heap[i];
      while (i > 0) {
         size_t parent = (i - 1) / 2;
         if (!before(c, heap[parent])) break;
         place(i, heap[parent]);
         i = parent;
      }
      place(i, c);
   }
   void siftDown(size_t i) {
      Clock* c = heap[i];
      size_t n = heap.size();
      for (;;) {
         size_t child = 2 * i + 1;
         if (child >= n) break;
         if (child + 1 < n && before(heap[child + 1], heap[child])) ++child;
         if (!before(heap[child], c)) break;
         place(i, heap[child]);
         i = child;
      }
      place(i, c);
   }
   void schedule(Clock* c, Seconds t) {
      c->timeMin_ = t;
      c->seq_ = ++lastSeq;
      if (c->heapIndex_ == Clock::unscheduled) {
         heap.push_back(c);
         c->heapIndex_ = heap.size() - 1;
      }
      // A new time may move the clock either way.
      siftUp(c->heapIndex_);
      siftDown(c->heapIndex_);
   }
   void unschedule(Clock* c) {
      size_t i = c->heapIndex_;
      VEL_ASSERT(i < heap.size() && heap[i] == c, "EventLoop: clock in its schedule slot");
      c->heapIndex_ = Clock::unscheduled;
      Clock* last = heap.back();
      heap.pop_back();
      if (last == c) return;
      place(i, last);
      siftUp(i);
      siftDown(last->heapIndex_);
   }

   // Fires one clock: takes it off the schedule, then calls its handler. The handler is
   // moved to the stack for the call, so a handler that destroys its own clock (or
   // replaces its handler) does not destroy the function that is running.
   void fire(Clock* c) {
      unschedule(c);
      const Seconds due = std::exchange(c->timeMin_, never);
      if (!c->handler_) return;
      struct Guard {
         Clock::Firing firing;
         Callback handler;
         ~Guard() {
            Clock::firing = nullptr;
            if (firing.destroyed) return;
            if (!firing.handlerSet) firing.clock->handler_ = std::move(handler);
         }
      } guard{{c, due}, std::move(c->handler_)};
      c->handler_ = nullptr;
      Clock::firing = &guard.firing;
      guard.handler();
   }

   // Fires, in order, the clocks due at `t` that were scheduled no later than `seq`. In
   // real time a clock taken a little early (within the coalescing window) moves the
   // turn's time up to its own: no handler sees a time before its clock's.
   void fireDue(Seconds t, uint64_t seq) {
      while (!heap.empty()) {
         Clock* c = heap.front();
         if (c->timeMin_ > t || c->seq_ > seq) break;
         if (!virtualOn && c->timeMin_ > turnNow) turnNow = c->timeMin_;
         fire(c);
         drainPosted();
      }
   }

   void drainPosted() {
      while (!posted.empty()) {
         std::function<void()> fn = posted.pop();
         fn();
      }
   }

   // --- Real time.

   void arm(Seconds t) {
      armFailed = false;
      if (t == armedAt || timerfd < 0) {
         armFailed = timerfd < 0;
         return;
      }
      itimerspec spec{};
      if (t != never) spec.it_value = absoluteTimespec(t);
      if (timerfd_settime(timerfd, TFD_TIMER_ABSTIME, &spec, nullptr) != 0) {
         int err = errno;
         VEL_TRACE(traceEventLoop, 0, "timerfd_settime failed: " << std::strerror(err));
         armFailed = true;
         armedAt = never;
         return;
      }
      armedAt = t;
   }

   void readTimer() {
      uint64_t expirations;
      while (read(timerfd, &expirations, sizeof expirations) < 0 && errno == EINTR) {
      }
   }

   int wait(int ms) {
      for (;;) {
         int n = epoll_wait(epfd, events, maxEvents, ms);
         if (n >= 0) return n;
         if (errno == EINTR) continue;
         int err = errno;
         VEL_TRACE(traceEventLoop, 0, "epoll_wait failed: " << std::strerror(err));
         return 0;
      }
   }

   // --- Descriptors.

   void add(FdReactor* r) {
      int fd = r->fd_;
      if (fd < 0) {
         VEL_TRACE(traceEventLoop, 0, "reactor for invalid descriptor " << fd);
         return;
      }
      if (size_t(fd) >= reactors.size()) reactors.resize(size_t(fd) + 1, nullptr);
      VEL_ASSERT(reactors[fd] == nullptr, "EventLoop: one reactor per descriptor");
      if (++lastSerial == 0) ++lastSerial;
      r->serial_ = lastSerial;
      epoll_event ev{};
      ev.events = EPOLLIN;
      ev.data.u64 = (uint64_t(r->serial_) << 32) | uint32_t(fd);
      if (epoll_ctl(epfd, EPOLL_CTL_ADD, fd, &ev) != 0) {
         int err = errno;
         VEL_TRACE(traceEventLoop, 0,
                   "cannot watch descriptor " << fd << ": " << std::strerror(err));
         return;
      }
      reactors[fd] = r;
      r->registered_ = true;
   }

   void remove(FdReactor* r) {
      if (!r->registered_) return;
      r->registered_ = false;
      reactors[r->fd_] = nullptr;
      // A descriptor closed already has left the epoll set by itself.
      if (epoll_ctl(epfd, EPOLL_CTL_DEL, r->fd_, nullptr) != 0 && errno != EBADF &&
          errno != ENOENT) {
         int err = errno;
         VEL_TRACE(traceEventLoop, 0,
                   "cannot unwatch descriptor " << r->fd_ << ": " << std::strerror(err));
      }
   }

   FdReactor* reactor(int fd, uint32_t serial) const {
      if (fd < 0 || size_t(fd) >= reactors.size()) return nullptr;
      FdReactor* r = reactors[fd];
      return r != nullptr && r->serial_ == serial ? r : nullptr;
   }

   // Calls the handler of the reactor an event names, if that reactor still exists (an
   // earlier handler of the same turn may have destroyed it).
   void dispatch(uint64_t data) {
      int fd = int(uint32_t(data));
      uint32_t serial = uint32_t(data >> 32);
      FdReactor* r = reactor(fd, serial);
      if (r == nullptr || !r->onReadable_) return;
      std::function<void()> handler = std::move(r->onReadable_);
      r->onReadable_ = nullptr;
      handler();
      if (FdReactor* still = reactor(fd, serial)) still->onReadable_ = std::move(handler);
   }
};

// ---------------------------------------------------------------------------------------
// EventLoop.

EventLoop& EventLoop::instance() {
   // Never destroyed: clocks and reactors in static storage may unregister at exit.
   static EventLoop* loop = new EventLoop();
   return *loop;
}

EventLoop::EventLoop() : impl_(new Impl) {
   Impl& m = *impl_;
   m.heap.reserve(256);
   m.epfd = epoll_create1(EPOLL_CLOEXEC);
   if (m.epfd < 0) {
      int err = errno;
      VEL_TRACE(traceEventLoop, 0, "epoll_create1 failed: " << std::strerror(err));
   }
   m.timerfd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
   if (m.timerfd < 0) {
      int err = errno;
      VEL_TRACE(traceEventLoop, 0, "timerfd_create failed: " << std::strerror(err));
      return;
   }
   epoll_event ev{};
   ev.events = EPOLLIN;
   ev.data.u64 = timerTag;
   if (epoll_ctl(m.epfd, EPOLL_CTL_ADD, m.timerfd, &ev) != 0) {
      int err = errno;
      VEL_TRACE(traceEventLoop, 0, "cannot watch the timer: " << std::strerror(err));
      close(m.timerfd);
      m.timerfd = -1;
   }
}

EventLoop::~EventLoop() {
   if (impl_->timerfd >= 0) close(impl_->timerfd);
   if (impl_->epfd >= 0) close(impl_->epfd);
   delete impl_;
}

Seconds EventLoop::now() const {
   return impl_->now();
}

void EventLoop::virtualTimeIs(bool on, Seconds start) {
   Impl& m = *impl_;
   m.virtualOn = on;
   if (on) {
      m.virtualNow = start;
      m.arm(never);
   }
}

bool EventLoop::virtualTime() const {
   return impl_->virtualOn;
}

void EventLoop::advanceTo(Seconds t) {
   Impl& m = *impl_;
   VEL_ASSERT(m.virtualOn, "EventLoop: advancing needs virtual time");
   VEL_ASSERT(!std::isnan(t), "EventLoop: advancing to a number");
   VEL_ASSERT(!m.running, "EventLoop: not entered again from a handler");
   m.running = true;
   m.drainPosted();
   while (!m.heap.empty() && m.heap.front()->timeMin_ <= t) {
      Clock* c = m.heap.front();
      if (c->timeMin_ > m.virtualNow) m.virtualNow = c->timeMin_;
      m.fire(c);
      m.drainPosted();
   }
   if (t > m.virtualNow) m.virtualNow = t;
   m.running = false;
}

bool EventLoop::runOnce(Seconds maxWait) {
   Impl& m = *impl_;
   VEL_ASSERT(!m.running, "EventLoop: not entered again from a handler");
   m.turnNow = monotonicNow();
   m.running = true;
   m.drainPosted();

   Seconds wait = maxWait;
   Seconds first = m.heap.empty() ? never : m.heap.front()->timeMin_;
   Seconds start = m.now();
   if (first <= start) wait = 0;
   if (m.virtualOn) {
      m.arm(never);
   } else {
      m.arm(first);
      // Without the timer the wait itself has to end when the first clock is due.
      if (m.armFailed && first - start < wait) wait = first - start;
   }
   int n = m.wait(timeoutMs(wait));

   // Clocks that handlers schedule from here on wait for the next turn, so a handler
   // that keeps scheduling in the past cannot hold the loop in one turn. Clocks due
   // within the coalescing window share this wake-up.
   if (m.virtualOn) {
      m.fireDue(m.now(), m.lastSeq);
   } else {
      m.turnNow = monotonicNow();
      m.fireDue(m.turnNow + coalescingWindow, m.lastSeq);
   }
   for (int i = 0; i < n; ++i) {
      uint64_t data = m.events[i].data.u64;
      if (data == timerTag) {
         m.readTimer();
      } else {
         m.dispatch(data);
         m.drainPosted();
      }
   }
   m.running = false;
   bool stopped = m.stopRequested;
   m.stopRequested = false;
   return !stopped;
}

void EventLoop::run() {
   while (runOnce()) {
   }
}

void EventLoop::stop() {
   impl_->stopRequested = true;
}

bool EventLoop::runUntil(const std::function<bool()>& done, Seconds timeout) {
   Seconds deadline = monotonicNow() + timeout;
   while (!done()) {
      Seconds left = deadline - monotonicNow();
      if (left <= 0 || !runOnce(left)) return done();
   }
   return true;
}

void EventLoop::post(std::function<void()> fn) {
   if (fn) impl_->posted.push(std::move(fn));
}

size_t EventLoop::scheduledClocks() const {
   return impl_->heap.size();
}

// ---------------------------------------------------------------------------------------
// Clock.

Clock::Clock(Callback handler) : handler_(std::move(handler)) {}

Clock::~Clock() {
   if (firing != nullptr && firing->clock == this) firing->destroyed = true;
   if (heapIndex_ != unscheduled) EventLoop::instance().impl_->unschedule(this);
}

void Clock::handlerIs(Callback handler) {
   handler_ = std::move(handler);
   if (firing != nullptr && firing->clock == this) firing->handlerSet = true;
}

Seconds Clock::firingTime() const {
   return firing != nullptr && firing->clock == this ? firing->time : never;
}

void Clock::timeMinIs(Seconds t) {
   VEL_ASSERT(!std::isnan(t), "Clock: minimum time is a number");
   EventLoop::Impl& m = *EventLoop::instance().impl_;
   if (t == never) {
      if (heapIndex_ != unscheduled) m.unschedule(this);
      timeMin_ = never;
      return;
   }
   m.schedule(this, t);
}

// ---------------------------------------------------------------------------------------
// FdReactor.

FdReactor::FdReactor(int fd, std::function<void()> onReadable)
    : fd_(fd), onReadable_(std::move(onReadable)) {
   EventLoop::instance().impl_->add(this);
}

FdReactor::~FdReactor() {
   EventLoop::instance().impl_->remove(this);
}

}  // namespace Vel

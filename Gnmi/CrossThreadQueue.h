// Work handed from other threads (gRPC's) to the event loop. Any thread may post a task; the
// loop runs the tasks in posting order, woken through an eventfd that an FdReactor watches,
// so the loop never polls and never waits for the posting threads. A post costs a lock and,
// only when the queue was empty, one write to the eventfd.
//
// Closing (on the loop) refuses later posts and calls each task still waiting with `run`
// false, so that whoever waits on it (a gRPC call) is answered without the loop's work.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Vel {
class FdReactor;
}

namespace Gnmi {

class CrossThreadQueue {
public:
   // `run` is true on the loop, false when the queue closed before the task's turn.
   using Task = std::function<void(bool run)>;

   CrossThreadQueue();
   ~CrossThreadQueue();  // closes
   CrossThreadQueue(const CrossThreadQueue&) = delete;
   CrossThreadQueue& operator=(const CrossThreadQueue&) = delete;

   // False (with the reason) when the eventfd could not be made.
   bool ok(std::string* error) const;

   // Any thread. False when the queue is closed (or broken): the task is dropped uncalled
   // and the caller answers for itself.
   bool post(Task task);

   // On the loop: no more posts; waiting tasks are called with false.
   void close();

   // Tasks run so far (for tests and benchmarks; on the loop).
   uint64_t tasksRun() const { return tasksRun_; }

private:
   void drain();

   std::mutex mutex_;
   std::vector<Task> waiting_;  // guarded by mutex_
   bool closed_ = false;        // guarded by mutex_
   std::vector<Task> running_;  // the loop's, swapped with waiting_ to run them unlocked
   int fd_ = -1;
   int openErrno_ = 0;
   std::unique_ptr<Vel::FdReactor> reactor_;
   uint64_t tasksRun_ = 0;
};

}  // namespace Gnmi

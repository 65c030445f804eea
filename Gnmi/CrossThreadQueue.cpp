#include "Gnmi/CrossThreadQueue.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Framework/Vel/EventLoop.h"

namespace Gnmi {

CrossThreadQueue::CrossThreadQueue() {
   fd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
   if (fd_ < 0) {
      openErrno_ = errno;
      closed_ = true;
      return;
   }
   reactor_ = std::make_unique<Vel::FdReactor>(fd_, [this] { drain(); });
}

CrossThreadQueue::~CrossThreadQueue() {
   close();
   reactor_.reset();
   if (fd_ >= 0) ::close(fd_);
}

bool CrossThreadQueue::ok(std::string* error) const {
   if (fd_ < 0) {
      *error = std::string("eventfd: ") + std::strerror(openErrno_);
      return false;
   }
   if (!reactor_->registered()) {
      *error = "eventfd: the event loop cannot watch it";
      return false;
   }
   return true;
}

bool CrossThreadQueue::post(Task task) {
   bool wake = false;
   {
      std::lock_guard<std::mutex> lock(mutex_);
      if (closed_) return false;
      wake = waiting_.empty();
      waiting_.push_back(std::move(task));
   }
   if (wake) {
      const uint64_t one = 1;
      // Cannot fail short of the counter overflowing, which a read resets long before.
      [[maybe_unused]] ssize_t n = ::write(fd_, &one, sizeof one);
   }
   return true;
}

void CrossThreadQueue::drain() {
   uint64_t count;
   [[maybe_unused]] ssize_t n = ::read(fd_, &count, sizeof count);
   {
      std::lock_guard<std::mutex> lock(mutex_);
      running_.swap(waiting_);
   }
   // A task may post again (to this queue or the loop): those run on the next wake-up.
   for (Task& t : running_) {
      ++tasksRun_;
      t(true);
   }
   running_.clear();
}

void CrossThreadQueue::close() {
   std::vector<Task> left;
   {
      std::lock_guard<std::mutex> lock(mutex_);
      closed_ = true;
      left.swap(waiting_);
   }
   for (Task& t : left) t(false);
}

}  // namespace Gnmi

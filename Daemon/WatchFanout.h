// One source of events shared by every control connection that watches it: the source is
// made for the first watcher and goes once the last one has gone, so nothing is watched
// while nobody listens.
#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "Daemon/ControlSocket.h"
#include "Framework/Vel/EventLoop.h"

namespace Daemon {

template <class Watch>
class WatchFanout {
public:
   bool started() const { return watch_ != nullptr; }
   void start(std::unique_ptr<Watch> watch) { watch_ = std::move(watch); }
   void add(const Vel::Ptr<ControlConnection>& connection) { watchers_.push_back(connection); }

   // To every watcher still connected.
   void send(const Vel::Json& event) {
      std::erase_if(watchers_, [](const auto& c) { return c->closed(); });
      for (const auto& c : watchers_) c->send(event);
      std::erase_if(watchers_, [](const auto& c) { return c->closed(); });
      if (watchers_.empty() && watch_) {
         // Not from inside the source's own call: let it finish first.
         Vel::EventLoop::instance().post([this, alive = std::weak_ptr<bool>(alive_)] {
            if (alive.lock() && watchers_.empty()) watch_.reset();
         });
      }
   }

private:
   std::unique_ptr<Watch> watch_;
   std::vector<Vel::Ptr<ControlConnection>> watchers_;
   // Lets a posted clean-up tell whether this object still exists when it runs.
   std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace Daemon

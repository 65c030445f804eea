#include "Daemon/NeighborWatch.h"

#include "Daemon/CliViews.h"
#include "Framework/Vel/EventLoop.h"

namespace Cli {

class NeighborWatch::StatusWatcher : public Lldp::AllStatus::Notifiee {
public:
   StatusWatcher(NeighborWatch* w, const Lldp::AllStatus::PtrConst& s) : watch_(w) {
      notifierIs(s);
   }
   void portStatusChanged(const Wire::IntfId& intf) override { watch_->portIs(intf); }

private:
   NeighborWatch* watch_;
};

class NeighborWatch::PortWatcher : public Lldp::PortStatus::Notifiee {
public:
   PortWatcher(NeighborWatch* w, const Lldp::PortStatus::PtrConst& p) : watch_(w), port_(p) {
      notifierIs(p);
   }
   const Lldp::PortStatus::PtrConst& port() const { return port_; }
   void remoteSystemChanged(const int& index) override {
      watch_->remoteChanged(port_->intfId(), index, *port_);
   }

private:
   NeighborWatch* watch_;
   Lldp::PortStatus::PtrConst port_;
};

// Every change of a neighbour other than its refresh moves its last change time.
class NeighborWatch::RemoteWatcher : public Lldp::RemoteSystem::Notifiee {
public:
   RemoteWatcher(NeighborWatch* w, Key key, const Lldp::RemoteSystem::PtrConst& r)
       : watch_(w), key_(std::move(key)), remote_(r) {
      notifierIs(r);
   }
   const Lldp::RemoteSystem::PtrConst& remote() const { return remote_; }
   void lastChangeTimeChanged() override { watch_->pendingIs(key_, changeChanged); }

private:
   NeighborWatch* watch_;
   Key key_;
   Lldp::RemoteSystem::PtrConst remote_;
};

NeighborWatch::NeighborWatch(Lldp::AllStatus::PtrConst status, Sink sink) : sink_(std::move(sink)) {
   for (const auto& [intf, port] : status->portStatus()) {
      if (!port) continue;
      ports_[intf] = std::make_unique<PortWatcher>(this, port);
      for (const auto& [index, remote] : port->remoteSystem()) {
         Key key{intf, index};
         remotes_[key] = std::make_unique<RemoteWatcher>(this, key, remote);
      }
   }
   status_ = std::make_unique<StatusWatcher>(this, status);
}

NeighborWatch::~NeighborWatch() = default;

size_t NeighborWatch::neighborCount() const {
   return remotes_.size();
}

void NeighborWatch::portIs(const Wire::IntfId& intf) {
   const Vel::Ptr<const Lldp::PortStatus>* now = status_->notifier()->portStatus(intf);
   auto it = ports_.find(intf);
   if (it != ports_.end() && now && *now == it->second->port()) return;
   // Gone or replaced: the old record's neighbours go with it.
   if (it != ports_.end()) {
      for (auto r = remotes_.lower_bound(Key{intf, INT32_MIN});
           r != remotes_.end() && r->first.intf == intf; ++r) {
         pendingIs(r->first, changeRemoved);
      }
      ports_.erase(it);
   }
   if (now && *now) {
      ports_[intf] = std::make_unique<PortWatcher>(this, *now);
      for (const auto& [index, remote] : (*now)->remoteSystem()) {
         remoteChanged(intf, index, **now);
      }
   }
}

void NeighborWatch::remoteChanged(const Wire::IntfId& intf, int index,
                                  const Lldp::PortStatus& port) {
   Key key{intf, index};
   auto remote = port.remoteSystem(index);
   auto it = remotes_.find(key);
   if (!remote) {
      if (it != remotes_.end()) pendingIs(key, changeRemoved);
      return;
   }
   if (it != remotes_.end() && it->second->remote() == remote) return;
   remotes_[key] = std::make_unique<RemoteWatcher>(this, key, remote);
   pendingIs(key, changeAdded);
}

void NeighborWatch::pendingIs(const Key& key, Change change) {
   auto [it, added] = pending_.try_emplace(key, change);
   if (!added) {
      // Within one turn: added then changed is still added, and added then removed is
      // nothing the client ever saw.
      if (change == changeRemoved && it->second == changeAdded) {
         pending_.erase(it);
         remotes_.erase(key);
         return;
      }
      if (change == changeRemoved) it->second = changeRemoved;
   }
   if (flushPosted_) return;
   flushPosted_ = true;
   std::weak_ptr<bool> alive = alive_;
   Vel::EventLoop::instance().post([this, alive] {
      if (alive.lock()) flush();
   });
}

void NeighborWatch::flush() {
   flushPosted_ = false;
   std::map<Key, Change> pending;
   pending.swap(pending_);
   const ViewTime time(Vel::EventLoop::instance().now());
   for (const auto& [key, change] : pending) {
      auto it = remotes_.find(key);
      if (it == remotes_.end()) continue;
      static const char* const names[] = {"added", "changed", "removed"};
      Vel::Json event = {
          {"event", names[change]},
          {"interface", std::string(key.intf.name())},
          {"timestamp", rfc3339(time.wallNow)},
          {"remoteSystem", remoteSystemJson(*it->second->remote(), change != changeRemoved, time)}};
      if (change == changeRemoved) remotes_.erase(it);
      sink_(event);
   }
}

}  // namespace Cli

#include "Records/NeighborChanges.h"

#include "Framework/Vel/EventLoop.h"

namespace Lldp {

class NeighborChanges::StatusWatcher : public AllStatus::Notifiee {
public:
   StatusWatcher(NeighborChanges* w, const AllStatus::PtrConst& s) : watch_(w) { notifierIs(s); }
   void portStatusChanged(const Wire::IntfId& intf) override { watch_->portIs(intf); }

private:
   NeighborChanges* watch_;
};

class NeighborChanges::PortWatcher : public PortStatus::Notifiee {
public:
   PortWatcher(NeighborChanges* w, const PortStatus::PtrConst& p) : watch_(w), port_(p) {
      notifierIs(p);
   }
   const PortStatus::PtrConst& port() const { return port_; }
   void remoteSystemChanged(const int& index) override {
      watch_->remoteChanged(port_->intfId(), index, *port_);
   }

private:
   NeighborChanges* watch_;
   PortStatus::PtrConst port_;
};

// Every change of a neighbour other than its refresh moves its last change time.
class NeighborChanges::RemoteWatcher : public RemoteSystem::Notifiee {
public:
   RemoteWatcher(NeighborChanges* w, Key key, const RemoteSystem::PtrConst& r)
       : watch_(w), key_(std::move(key)), remote_(r) {
      notifierIs(r);
   }
   const RemoteSystem::PtrConst& remote() const { return remote_; }
   void lastChangeTimeChanged() override { watch_->pendingIs(key_, changeChanged); }

private:
   NeighborChanges* watch_;
   Key key_;
   RemoteSystem::PtrConst remote_;
};

NeighborChanges::NeighborChanges(AllStatus::PtrConst status, Sink sink) : sink_(std::move(sink)) {
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

NeighborChanges::~NeighborChanges() = default;

size_t NeighborChanges::neighborCount() const {
   return remotes_.size();
}

void NeighborChanges::portIs(const Wire::IntfId& intf) {
   const Vel::Ptr<const PortStatus>* now = status_->notifier()->portStatus(intf);
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

void NeighborChanges::remoteChanged(const Wire::IntfId& intf, int index, const PortStatus& port) {
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

void NeighborChanges::pendingIs(const Key& key, Change change) {
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

void NeighborChanges::flush() {
   flushPosted_ = false;
   std::map<Key, Change> pending;
   pending.swap(pending_);
   for (const auto& [key, change] : pending) {
      auto it = remotes_.find(key);
      if (it == remotes_.end()) continue;
      const RemoteSystem::PtrConst remote = it->second->remote();
      if (change == changeRemoved) remotes_.erase(it);
      sink_(key.intf, key.index, change, remote);
   }
}

}  // namespace Lldp

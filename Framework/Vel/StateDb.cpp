#include "Framework/Vel/StateDb.h"

#include "Framework/Vel/EventLoop.h"

namespace Vel {

StateDb& StateDb::instance() {
   static StateDb db;
   return db;
}

Ptr<Entity> StateDb::entity(const std::string& path) const {
   auto it = entries_.find(path);
   return it == entries_.end() ? nullptr : it->second.entity;
}

std::string StateDb::typeName(const std::string& path) const {
   auto it = entries_.find(path);
   return it == entries_.end() ? std::string() : it->second.typeName;
}

std::vector<std::string> StateDb::paths() const {
   std::vector<std::string> out;
   out.reserve(entries_.size());
   for (const auto& [path, entry] : entries_) out.push_back(path);
   return out;
}

Json StateDb::json(const std::string& path) const {
   auto it = entries_.find(path);
   return it == entries_.end() ? Json(nullptr) : it->second.toJson(*it->second.entity);
}

int StateDb::mountCount(const std::string& path) const {
   auto it = mountCount_.find(path);
   return it == mountCount_.end() ? 0 : it->second;
}

StateDb::MountGroup::IntfDirMounter& StateDb::MountGroup::intfDirMounterIs(
    const std::string& name) {
   if (!intfDirMounter_) intfDirMounter_.reset(new IntfDirMounter(*this, name));
   return *intfDirMounter_;
}

void StateDb::MountGroup::closeWith(std::function<void()> complete) {
   EventLoop::instance().post([live = live_, complete = std::move(complete)] {
      if (*live) complete();
   });
}

void StateDb::MountGroup::release() {
   *live_ = false;
   for (const Mount& m : mounts_) {
      auto it = db_.mountCount_.find(m.path);
      if (it != db_.mountCount_.end() && --it->second <= 0) db_.mountCount_.erase(it);
   }
   mounts_.clear();
   intfDirMounter_.reset();
}

}  // namespace Vel

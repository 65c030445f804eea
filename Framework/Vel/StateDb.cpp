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

void StateDb::MountGroup::closeWith(std::function<void()> complete) {
   EventLoop::instance().post(std::move(complete));
}

}  // namespace Vel

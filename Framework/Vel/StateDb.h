// The state database, in process: entities published under paths ("l2discovery/lldp/
// config"), shared by everyone who mounts the path. The agent, the platform and the
// control socket meet here: the platform fills the entities it owns, the agent reads
// those and publishes its own, and the control socket exports any of them as JSON.
//
// Mounting a path gives the entity there, creating it (with its defaults) when nobody
// has yet, so readers and writers always share one object whatever order they start in.
// A mount group collects an agent's mounts and completes on the event loop, after the
// caller has returned, as a mount over a connection to a separate database would.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Framework/Vel/Entity.h"
#include "Framework/Vel/Json.h"

namespace Vel {

class StateDb {
public:
   static StateDb& instance();

   template <class E>
   Ptr<E> mount(const std::string& path) {
      if (Ptr<E> existing = entityAs<E>(path)) return existing;
      Ptr<E> e = make<E>();
      entityIs(path, e);
      return e;
   }
   // Publishes `e` under `path`, replacing what was there.
   template <class E>
   void entityIs(const std::string& path, const Ptr<E>& e) {
      entries_[path] = Entry{Ptr<Entity>(e), E::typeName(),
                             [](const Entity& x) { return toJson(static_cast<const E&>(x)); }};
   }
   void entityDel(const std::string& path) { entries_.erase(path); }
   void clear() { entries_.clear(); }

   Ptr<Entity> entity(const std::string& path) const;
   template <class E>
   Ptr<E> entityAs(const std::string& path) const {
      return Ptr<E>(dynamic_cast<E*>(entity(path).ptr()));
   }
   // The entity's type name, empty when nothing is there.
   std::string typeName(const std::string& path) const;
   std::vector<std::string> paths() const;
   // The entity as JSON (attribute names as keys); null when nothing is there.
   Json json(const std::string& path) const;

   // A set of mounts that completes together, from the event loop.
   class MountGroup {
   public:
      explicit MountGroup(StateDb& db) : db_(db) {}
      // `mode` says how the agent uses the entity ("r" reads, "w" writes, ...); it is
      // recorded for the listing, the in-process database grants every mode.
      template <class E>
      Ptr<E> mount(const std::string& path, const std::string& mode) {
         mounts_.push_back({path, mode});
         return db_.mount<E>(path);
      }
      const std::vector<std::pair<std::string, std::string>>& mounts() const { return mounts_; }
      // Calls `complete` from the loop once the mounts are in place.
      void closeWith(std::function<void()> complete);

   private:
      StateDb& db_;
      std::vector<std::pair<std::string, std::string>> mounts_;
   };

private:
   struct Entry {
      Ptr<Entity> entity;
      std::string typeName;
      std::function<Json(const Entity&)> toJson;
   };
   std::map<std::string, Entry> entries_;
};

}  // namespace Vel

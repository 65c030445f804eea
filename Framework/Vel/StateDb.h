// The state database, in process: entities published under paths ("l2discovery/lldp/
// config"), shared by everyone who mounts the path. The agent, the platform and the
// control socket meet here: the platform fills the entities it owns, the agent reads
// those and publishes its own, and the control socket exports any of them as JSON.
//
// Mounting a path gives the entity there, creating it (with its defaults) when nobody
// has yet, so readers and writers always share one object whatever order they start in.
// A mount group collects an agent's mounts and completes on the event loop, after the
// caller has returned, as a mount over a connection to a separate database would. The
// database counts the groups that hold each path; a group releases its mounts when it is
// released or destroyed, and a group released before it completed never completes.
#pragma once

#include <functional>
#include <map>
#include <memory>
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

   // How many mount groups hold `path` now.
   int mountCount(const std::string& path) const;

   struct Mount {
      std::string path;
      std::string typeName;
      std::string mode;
   };

   // A set of mounts that completes together, from the event loop.
   class MountGroup {
   public:
      explicit MountGroup(StateDb& db) : db_(db) {}
      MountGroup(const MountGroup&) = delete;
      MountGroup& operator=(const MountGroup&) = delete;
      ~MountGroup() { release(); }

      // `mode` says how the agent uses the entity ("r" reads, "w" writes, ...); it is
      // recorded for the listing, the in-process database grants every mode.
      template <class E>
      Ptr<E> mount(const std::string& path, const std::string& mode) {
         mounts_.push_back({path, E::typeName(), mode});
         ++db_.mountCount_[path];
         return db_.mount<E>(path);
      }
      const std::vector<Mount>& mounts() const { return mounts_; }

      // Interface directories, attached by a local name through a mounter of their own
      // that keeps the directories' interface indexes current as interfaces come and go
      // (the in-process database has nothing to translate: it mounts and records).
      class IntfDirMounter {
      public:
         struct Attachment {
            std::string path;
            std::string typeName;
            std::string localName;
         };
         const std::string& name() const { return name_; }
         template <class E>
         Ptr<E> dirIs(const std::string& path, const std::string& localName) {
            attachments_.push_back({path, E::typeName(), localName});
            return group_.mount<E>(path, "r");
         }
         const std::vector<Attachment>& attachments() const { return attachments_; }

      private:
         friend class MountGroup;
         IntfDirMounter(MountGroup& group, std::string name)
             : group_(group), name_(std::move(name)) {}
         MountGroup& group_;
         std::string name_;
         std::vector<Attachment> attachments_;
      };
      IntfDirMounter& intfDirMounterIs(const std::string& name);
      // Null until intfDirMounterIs.
      const IntfDirMounter* intfDirMounter() const { return intfDirMounter_.get(); }

      // Calls `complete` from the loop once the mounts are in place, unless the group has
      // been released by then.
      void closeWith(std::function<void()> complete);
      // Gives every mount back; the entities stay in the database for their other users.
      void release();

   private:
      StateDb& db_;
      std::vector<Mount> mounts_;
      std::unique_ptr<IntfDirMounter> intfDirMounter_;
      std::shared_ptr<bool> live_ = std::make_shared<bool>(true);
   };

private:
   struct Entry {
      Ptr<Entity> entity;
      std::string typeName;
      std::function<Json(const Entity&)> toJson;
   };
   std::map<std::string, Entry> entries_;
   std::map<std::string, int> mountCount_;
};

}  // namespace Vel

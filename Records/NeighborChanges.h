// Follows the neighbour tables of every port and reports each neighbour that is added,
// changed or removed. Changes are gathered during a loop turn and reported after it, one
// report per neighbour, so a neighbour that a frame creates is reported once, with
// everything that frame told us; one added and removed within a turn is not reported.
// A changed neighbour is one whose last change time moved (every change but a refresh
// moves it); a port that goes away, or whose record is replaced, removes its neighbours.
// Neighbours already in the tables when it starts are known but not reported. It follows
// the records' notifications and never walks a table except a port's that appears.
#pragma once

#include <functional>
#include <map>
#include <memory>

#include "Records/LldpStatus.h"

namespace Lldp {

class NeighborChanges {
public:
   enum Change { changeAdded, changeChanged, changeRemoved };
   // `remote` is the record as it is now, or for a removed neighbour as it was last.
   using Sink = std::function<void(const Wire::IntfId& intf, int index, Change change,
                                   const RemoteSystem::PtrConst& remote)>;
   NeighborChanges(AllStatus::PtrConst status, Sink sink);
   ~NeighborChanges();
   NeighborChanges(const NeighborChanges&) = delete;
   NeighborChanges& operator=(const NeighborChanges&) = delete;

   size_t neighborCount() const;

private:
   class StatusWatcher;
   class PortWatcher;
   class RemoteWatcher;
   struct Key {
      Wire::IntfId intf;
      int index;
      auto operator<=>(const Key&) const = default;
   };

   void portIs(const Wire::IntfId& intf);
   void remoteChanged(const Wire::IntfId& intf, int index, const PortStatus& port);
   void pendingIs(const Key& key, Change change);
   void flush();

   Sink sink_;
   std::unique_ptr<StatusWatcher> status_;
   std::map<Wire::IntfId, std::unique_ptr<PortWatcher>> ports_;
   std::map<Key, std::unique_ptr<RemoteWatcher>> remotes_;
   std::map<Key, Change> pending_;
   bool flushPosted_ = false;
   std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);  // for the posted flush
};

}  // namespace Lldp

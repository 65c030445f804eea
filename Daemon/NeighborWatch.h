// Follows the neighbour tables of every port and reports each neighbour that is added,
// changed or removed, for `lldp watch`. Changes are gathered during a loop turn and
// reported after it, one event per neighbour, so a neighbour that a frame creates is
// reported once, with everything that frame told us:
//    {"event": "added" | "changed" | "removed", "interface": "eth1",
//     "timestamp": "2026-11-24T05:06:46.123Z" (when it was reported),
//     "remoteSystem": {...every attribute, as `show neighbors detail` has it...}}
// A removed neighbour is reported with the identity it had (index, chassisIdentifier,
// portIdentifier, sysName). A port that goes away removes its neighbours.
#pragma once

#include <functional>
#include <map>
#include <memory>

#include "Framework/Vel/Json.h"
#include "Records/LldpStatus.h"

namespace Cli {

class NeighborWatch {
public:
   using Sink = std::function<void(const Vel::Json& event)>;
   // Neighbours already in the tables are known but not reported.
   NeighborWatch(Lldp::AllStatus::PtrConst status, Sink sink);
   ~NeighborWatch();
   NeighborWatch(const NeighborWatch&) = delete;
   NeighborWatch& operator=(const NeighborWatch&) = delete;

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
   enum Change { changeAdded, changeChanged, changeRemoved };

   void portIs(const Wire::IntfId& intf);
   void remoteChanged(const Wire::IntfId& intf, int index, const Lldp::PortStatus& port);
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

}  // namespace Cli

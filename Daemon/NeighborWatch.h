// Follows the neighbour tables of every port and reports each neighbour that is added,
// changed or removed, for `lldp watch`. Changes are gathered during a loop turn and
// reported after it, one event per neighbour, so a neighbour that a frame creates is
// reported once, with everything that frame told us:
//    {"event": "added" | "changed" | "removed", "interface": "eth1",
//     "timestamp": "2026-11-24T05:06:46.123Z" (when it was reported),
//     "remoteSystem": {...every attribute, as `show neighbors detail` has it...}}
// A removed neighbour is reported with the identity it had (index, chassisIdentifier,
// portIdentifier, sysName). A port that goes away removes its neighbours. The tables are
// followed by Lldp::NeighborChanges.
#pragma once

#include <functional>

#include "Framework/Vel/Json.h"
#include "Records/LldpStatus.h"
#include "Records/NeighborChanges.h"

namespace Cli {

class NeighborWatch {
public:
   using Sink = std::function<void(const Vel::Json& event)>;
   // Neighbours already in the tables are known but not reported.
   NeighborWatch(Lldp::AllStatus::PtrConst status, Sink sink);
   ~NeighborWatch();
   NeighborWatch(const NeighborWatch&) = delete;
   NeighborWatch& operator=(const NeighborWatch&) = delete;

   size_t neighborCount() const { return changes_.neighborCount(); }

private:
   void report(const Wire::IntfId& intf, Lldp::NeighborChanges::Change change,
               const Lldp::RemoteSystem& remote);

   Sink sink_;
   Lldp::NeighborChanges changes_;
};

}  // namespace Cli

#include "Daemon/NeighborWatch.h"

#include "Daemon/CliViews.h"
#include "Framework/Vel/EventLoop.h"

namespace Cli {

NeighborWatch::NeighborWatch(Lldp::AllStatus::PtrConst status, Sink sink)
    : sink_(std::move(sink)),
      changes_(
          std::move(status),
          [this](const Wire::IntfId& intf, int, Lldp::NeighborChanges::Change change,
                 const Lldp::RemoteSystem::PtrConst& remote) { report(intf, change, *remote); }) {}

NeighborWatch::~NeighborWatch() = default;

void NeighborWatch::report(const Wire::IntfId& intf, Lldp::NeighborChanges::Change change,
                           const Lldp::RemoteSystem& remote) {
   static const char* const names[] = {"added", "changed", "removed"};
   const ViewTime time(Vel::EventLoop::instance().now());
   const bool removed = change == Lldp::NeighborChanges::changeRemoved;
   sink_(Vel::Json{{"event", names[change]},
                   {"interface", std::string(intf.name())},
                   {"timestamp", rfc3339(time.wallNow)},
                   {"remoteSystem", remoteSystemJson(remote, !removed, time)}});
}

}  // namespace Cli

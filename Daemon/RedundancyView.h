// `lldp show redundancy`: this agent's role, its peer, the mirror and the last switchover,
// from the redundancy status (Records/LldpRedundancy.h), with how much of the active
// agent's status a standby holds; and, with "neighbors", the neighbours it holds, in the
// shape of `show neighbors`.
//    {"op":"show-redundancy"}
//        every attribute of the redundancy status, plus "mirroredPorts",
//        "mirroredNeighbors", "mirroredStatus" (the mirrored global counters, null when
//        there is no copy), "lastSwitchoverTimestamp" and "currentTime"
//    {"op":"show-redundancy","neighbors":true,"detail":bool,"interface":NAME}
//        the mirrored copy of the active agent's neighbours (an error when there is none)
#pragma once

#include "Daemon/CliViews.h"
#include "Daemon/ControlSocket.h"
#include "Framework/Vel/StateDb.h"
#include "Records/LldpRedundancy.h"

namespace Cli {

Vel::Json redundancyView(const Lldp::RedundancyStatus& status, const Vel::Dir* lldpStatusDir,
                         const ViewTime& time);
// The neighbours of the peer cell's status in `lldpStatusDir`, as neighborsView shows them.
View mirroredNeighborsView(const Lldp::RedundancyStatus& status, const Vel::Dir* lldpStatusDir,
                           bool detail, const std::string& intf, const ViewTime& time);

// Adds show-redundancy to `socket`, reading the records of `db` at each request, and a
// `mirror` that refuses with the reason until the mirror service takes its place.
void serveRedundancyView(Daemon::ControlSocket& socket, Vel::StateDb& db);

}  // namespace Cli

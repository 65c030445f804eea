// The daemon's side of the command line: the control-socket operations that `lldp` uses
// beyond the socket's own (get, list, configure, load, show-configuration):
//    {"op":"show","view":"neighbors"|"statistics"|"local"|"power","detail":bool,
//     "interface":NAME}
//        the view (Cli/CliViews.h) as data; an unknown interface is an error
//    {"op":"clear-neighbors","user":WHO,"terminal":WHERE}                      (root only)
//        asks the agent to empty every neighbour table, logged with the connected user
//        (from the kernel), WHO as the client's own word when it differs, and WHERE
//    {"op":"watch"}
//        {"ok":true} at once, then one line per neighbour event (Cli/NeighborWatch.h)
//        until the client hangs up
// Records are looked up in the state database on every request, so the service can be
// set up before the agent publishes them (a view without them is an error reply).
#pragma once

#include <memory>
#include <vector>

#include "Daemon/ControlSocket.h"
#include "Daemon/WatchFanout.h"
#include "Framework/Vel/StateDb.h"

namespace Cli {

class NeighborWatch;

class CliService {
public:
   CliService(Daemon::ControlSocket& socket, Vel::StateDb& db);
   ~CliService();
   CliService(const CliService&) = delete;
   CliService& operator=(const CliService&) = delete;

private:
   Vel::Json show(const Vel::Json& request) const;
   Vel::Json clearNeighbors(const Vel::Json& request, const Daemon::Peer& peer);
   Vel::Json watch(const Vel::Ptr<Daemon::ControlConnection>& connection);

   Vel::StateDb& db_;
   Daemon::WatchFanout<NeighborWatch> watch_;
};

}  // namespace Cli

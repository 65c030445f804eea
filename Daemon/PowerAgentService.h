// The control-socket operations of power agents, the programs that drive PoE controllers:
//    {"op":"power-agent","agent":NAME,"ports":{"<interface>":STATUS|null,...}}  (root only)
//        publishes (or, for null, withdraws) the status of the named ports under the agent's
//        NAME; ports not named keep what was published before. STATUS is an object:
//          "state"              "disabled", "searching", "delivering" or "fault" (required)
//          "pseType"            IEEE PSE type 1..4
//          "powerClass"         IEEE class of the powered device, 0..8
//          "powerPairs"         "signal" or "spare"
//          "powerSource"        "primary" or "backup"
//          "priority"           "critical", "high", "low" or "unknown"
//          "allocatedPower"     watts, 0..6553.5 in steps of 0.1
//          "maxAvailablePower"  watts, likewise
//        Members left out take the defaults (type unknown, class 0, signal pairs, primary
//        source, unknown priority, 0 W). A bad request changes nothing.
//    {"op":"power-agent","agent":NAME,"withdraw":true}                         (root only)
//        withdraws everything the agent published.
//    {"op":"watch-power-requests"}
//        {"ok":true,"data":{"<interface>":REQUEST,...}} at once, then a line
//        {"event":"powerRequest","interface":NAME,"request":REQUEST|null} whenever the
//        request a port answers changes or goes, until the client hangs up. REQUEST is the
//        chosen neighbour with its Power via MDI TLV (Cli/PowerView.h's "neighbor"),
//        powers in watts.
// What power agents keep published is bounded (ClientLimits: ports per agent, and all
// agents' ports together, each agent counting at least one); a request that would pass a
// limit is refused whole, with the reason, and counted.
// The same requests, in the records' units (0.1 W), are at the state-database path
// "l2discovery/lldp/status/powerRequest" for `get`. What power agents publish is in the
// directory "environment/power/status/poePort", one entry per agent.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "Daemon/ControlSocket.h"
#include "Framework/Vel/Dir.h"
#include "Framework/Vel/StateDb.h"
#include "Records/Lldp.h"

namespace Cli {

class PowerAgentService {
public:
   PowerAgentService(Daemon::ControlSocket& socket, Vel::StateDb& db);
   ~PowerAgentService();
   PowerAgentService(const PowerAgentService&) = delete;
   PowerAgentService& operator=(const PowerAgentService&) = delete;

   Vel::Json powerAgent(const Vel::Json& request);
   Vel::Json watch(const Vel::Ptr<Daemon::ControlConnection>& connection);

private:
   struct RequestReactor : Lldp::PowerRequestStatus::Notifiee {
      PowerAgentService* service;
      void requestChanged(const Wire::IntfId& intf) override { service->handleRequest(intf); }
   };
   void handleRequest(const Wire::IntfId& intf);

   Daemon::ClientLimits::Ptr limits_;
   // What each agent published counts against the limits: its ports, at least one.
   std::map<std::string, size_t> cost_;
   size_t totalCost_ = 0;
   Vel::Ptr<Vel::Dir> agents_;
   Lldp::PowerRequestStatus::Ptr requests_;
   std::vector<Vel::Ptr<Daemon::ControlConnection>> watchers_;
   RequestReactor requestReactor_;
};

}  // namespace Cli

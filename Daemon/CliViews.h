// What the command line shows, as JSON built from the published records: the daemon
// answers `show` requests with these views and `lldp` prints them as they are (--json) or
// as text. Keys are the records' attribute names; per-port values are grouped as
// {"interfaces": {"<name>": {...}}} with the global values beside "interfaces", and
// "currentTime" (the agent clock, seconds) says when the view was taken, so that the
// times in it (creationTime, expiryTime, ...) can be turned into ages.
#pragma once

#include <string>

#include "Framework/Vel/Dir.h"
#include "Framework/Vel/Json.h"
#include "Records/IntfStatus.h"
#include "Records/LldpConfig.h"
#include "Records/LldpExternalTlv.h"
#include "Records/LldpLocalSystem.h"
#include "Records/LldpStatus.h"

namespace Cli {

// A view, or why there is none (an interface that runs no LLDP).
struct View {
   Vel::Json json;
   std::string error;
   bool ok() const { return error.empty(); }
};

// One neighbour. The summary has its identity (index, chassisIdentifier,
// portIdentifier), ethAddr, sysName, ttl and its four times; the detail every attribute,
// with the MSAP's two identifiers at the top level instead of "msap".
Vel::Json remoteSystemJson(const Lldp::RemoteSystem& remote, bool detail);

// Views over the ports of `status`; `intf` empty for every port, else that port alone.
View neighborsView(const Lldp::AllStatus& status, bool detail, const std::string& intf,
                   Vel::Seconds now);
// The per-port counters and the global remote-table counters (with the last clear time
// when `remTables` is given).
View statisticsView(const Lldp::AllStatus& status, const Lldp::RemTablesStatus* remTables,
                    const std::string& intf, Vel::Seconds now);
// The local system and each local port as advertised, with the timers that set the TTL
// and each port's admin status and advertised VLAN names. "advertisedManagementAddress"
// lists the management addresses in the order they go on the wire, each with the
// interface it comes from (named through `interfaces`, by interface index). Each port's
// "externalTlv" lists the TLVs the clients of `externalTlvDir` give it:
// {"client", "oui", "subtype", "info" (hex), "advertised"}.
View localView(const Lldp::LocalSystem& local, const Lldp::Config& config,
               const Lldp::AllStatus& status, const std::string& intf, Vel::Seconds now,
               const Interface::AllIntfStatusDir* interfaces = nullptr,
               const Vel::Dir* externalTlvDir = nullptr);

}  // namespace Cli

// What the command line shows, as JSON built from the published records: the daemon
// answers `show` requests with these views and `lldp` prints them as they are (--json) or
// as text. Keys are the records' attribute names; per-port values are grouped as
// {"interfaces": {"<name>": {...}}} with the global values beside "interfaces", and
// "currentTime" (the agent clock, seconds) says when the view was taken, so that the
// times in it (creationTime, expiryTime, ...) can be turned into ages. The times people
// ask "when" of have a wall-clock twin named ...Timestamp ("creationTimestamp":
// "2026-11-24T05:06:46.123Z", UTC, null for a time that has not happened). Numbers that stand for
// something (MAU types, LLDP-MED applications, power classes, ...) keep their numbers and gain a
// ...Name beside them (Records/LldpNames.h).
#pragma once

#include <string>
#include <string_view>

#include "Daemon/ClientLimits.h"
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

// When a view is taken: the agent clock (monotonic seconds, the clock of every time in
// the records) and the wall clock (seconds since the epoch) at the same instant. Made
// from the agent clock alone, it reads the wall clock itself.
struct ViewTime {
   ViewTime(Vel::Seconds agentNow);  // implicit: a view is usually taken now
   ViewTime(Vel::Seconds agentNow, double wallNow) : now(agentNow), wallNow(wallNow) {}
   // The wall-clock time of an agent-clock time, or null for 0 (never).
   Vel::Json timestamp(Vel::Seconds t) const;
   Vel::Seconds now;
   double wallNow;
};

// "2026-11-24T05:06:46.123Z" for seconds since the epoch.
std::string rfc3339(double unixSeconds);

// One neighbour. The summary has its identity (index, chassisIdentifier,
// portIdentifier), ethAddr, sysName, ttl and its four times; the detail every attribute,
// with the MSAP's two identifiers at the top level instead of "msap". Both add "age"
// (whole seconds since creation), "ttlRemaining" (whole seconds to expiry, not below 0),
// "creationTimestamp" and "lastChangeTimestamp".
Vel::Json remoteSystemJson(const Lldp::RemoteSystem& remote, bool detail, const ViewTime& time);

// A Power via MDI TLV's fields with the names of their numbers: powerClassName,
// psePowerPairName; from the IEEE 802.3at form on powerTypeName, powerSourceName,
// powerPriorityName; in the IEEE 802.3bt form powerClassExtName and powerTypeExtName.
Vel::Json powerViaMdiJson(const Lldp::PowerViaMdiInfo& info);

// Views over the ports of `status`; `intf` empty for every port, else that port alone.
View neighborsView(const Lldp::AllStatus& status, bool detail, const std::string& intf,
                   const ViewTime& time);
// The per-port counters and the global remote-table counters (with the last clear time
// when `remTables` is given), each time with its timestamp; with `clientLimits`, the
// control socket's limits and what it refused for them ("clientLimits").
View statisticsView(const Lldp::AllStatus& status, const Lldp::RemTablesStatus* remTables,
                    const std::string& intf, const ViewTime& time,
                    const Daemon::ClientLimits* clientLimits = nullptr);
// The local system and each local port as advertised, with the timers that set the TTL
// and each port's admin status and advertised VLAN names. "advertisedManagementAddress"
// lists the management addresses in the order they go on the wire, each with the
// interface it comes from (named through `interfaces`, by interface index). Each port's
// "externalTlv" lists the TLVs the clients of `externalTlvDir` give it:
// {"client", "oui", "subtype", "info" (hex), "advertised"}.
View localView(const Lldp::LocalSystem& local, const Lldp::Config& config,
               const Lldp::AllStatus& status, const std::string& intf, const ViewTime& time,
               const Interface::AllIntfStatusDir* interfaces = nullptr,
               const Vel::Dir* externalTlvDir = nullptr);

}  // namespace Cli

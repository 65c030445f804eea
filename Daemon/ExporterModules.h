// The daemon's optional exporters, each a module of its own that the daemon loads only
// when its option is given, so that their libraries cost nothing otherwise:
//    lldp-agent-gnmi.so     `--gnmi`     gRPC, protobuf (Daemon/GnmiModule.cpp)
//    lldp-agent-snmp.so     `--agentx`   net-snmp's agent library (Daemon/SnmpModule.cpp)
//    lldp-agent-metrics.so  `--metrics`  prometheus-cpp and its HTTP server
//                                        (Daemon/MetricsModule.cpp)
// Each module has one entry point, which starts its exporter over the records and hands
// it to the daemon.
#pragma once

#include <string>

#include "Framework/Vel/ModuleObject.h"
#include "Gnmi/GnmiOptions.h"
#include "Snmp/SubagentOptions.h"

namespace Vel {
class StateDb;
}

namespace Daemon::ExporterModules {

template <class Start>
struct Entry {
   const char* file;
   const char* symbol;
};

// Listens at options.address; null with the reason (bad address, port in use, TLS files
// unreadable).
using GnmiStart = Vel::ModuleObject*(const Gnmi::Options& options, Vel::StateDb& db,
                                     std::string* error);
// Null when a subagent already runs in this process.
using SnmpStart = Vel::ModuleObject*(const Snmp::SubagentOptions& options, Vel::StateDb& db);
// Serves at "ADDRESS:PORT"; null with the reason when it is malformed or cannot be bound.
using MetricsStart = Vel::ModuleObject*(const std::string& address, Vel::StateDb& db,
                                        std::string* error);

inline constexpr Entry<GnmiStart> gnmi{"lldp-agent-gnmi.so", "lldpGnmiStart"};
inline constexpr Entry<SnmpStart> snmp{"lldp-agent-snmp.so", "lldpSnmpStart"};
inline constexpr Entry<MetricsStart> metrics{"lldp-agent-metrics.so", "lldpMetricsStart"};

// The module's entry point; null with the loader's reason.
template <class Start>
Start* load(const Entry<Start>& entry, std::string* error) {
   return Vel::moduleFunction<Start>(entry.file, entry.symbol, error);
}

}  // namespace Daemon::ExporterModules

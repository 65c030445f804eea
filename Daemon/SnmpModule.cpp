// The entry point of lldp-agent-snmp.so.
#include <type_traits>

#include "Daemon/ExporterModules.h"
#include "Snmp/AgentxSubagent.h"

extern "C" Vel::ModuleObject* lldpSnmpStart(const Snmp::SubagentOptions& options,
                                            Vel::StateDb& db) {
   return Snmp::AgentxSubagent::start(options, db).release();
}

static_assert(std::is_same_v<decltype(lldpSnmpStart), Daemon::ExporterModules::SnmpStart>);

// The entry point of lldp-agent-gnmi.so.
#include <type_traits>

#include "Daemon/ExporterModules.h"
#include "Gnmi/GnmiServer.h"

extern "C" Vel::ModuleObject* lldpGnmiStart(const Gnmi::Options& options, Vel::StateDb& db,
                                            std::string* error) {
   return Gnmi::GnmiServer::start(options, db, error).release();
}

static_assert(std::is_same_v<decltype(lldpGnmiStart), Daemon::ExporterModules::GnmiStart>);

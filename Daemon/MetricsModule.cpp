// The entry point of lldp-agent-metrics.so.
#include <memory>
#include <type_traits>

#include "Daemon/ExporterModules.h"
#include "Daemon/MetricsExporter.h"

extern "C" Vel::ModuleObject* lldpMetricsStart(const std::string& address, Vel::StateDb& db,
                                               std::string* error) {
   auto exporter = std::make_unique<Daemon::MetricsExporter>(db);
   if (!exporter->listen(address, error)) return nullptr;
   return exporter.release();
}

static_assert(std::is_same_v<decltype(lldpMetricsStart), Daemon::ExporterModules::MetricsStart>);

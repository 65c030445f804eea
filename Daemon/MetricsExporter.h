// `lldp-agent --metrics ADDRESS:PORT`: the Prometheus text format at /metrics.
//
// The HTTP server (prometheus-cpp's exposer) answers on threads of its own. A scrape
// there wakes the event loop through an eventfd and waits; the loop builds a snapshot
// of the records in slices of `sliceNeighbors` neighbours, one slice per turn of the loop
// (so frames, timers and the control socket are served between slices), and hands the
// finished snapshot back; the HTTP thread formats it and answers. Scrapes arriving
// together are served one after the other. The loop never waits for the HTTP threads.
#pragma once

#include <memory>
#include <string>

#include "Framework/Vel/ModuleObject.h"
#include "Framework/Vel/StateDb.h"

namespace Daemon {

class MetricsExporter : public Vel::ModuleObject {
public:
   // Neighbours copied per turn of the loop: about a millisecond's work (see bench/).
   static constexpr size_t sliceNeighbors = 2000;

   // Reads the records from `db` (they may be published later: a scrape before then
   // shows empty tables).
   explicit MetricsExporter(Vel::StateDb& db);
   ~MetricsExporter() override;
   MetricsExporter(const MetricsExporter&) = delete;
   MetricsExporter& operator=(const MetricsExporter&) = delete;

   // Starts serving on "ADDRESS:PORT" (IPv4; 0.0.0.0 for every address); false with the reason
   // when the address is malformed or cannot be bound.
   bool listen(const std::string& address, std::string* error);

private:
   struct Impl;
   std::unique_ptr<Impl> impl_;
};

}  // namespace Daemon

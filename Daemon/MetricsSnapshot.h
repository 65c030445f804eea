// What one Prometheus scrape reports, copied out of the records, and the Prometheus metric
// families made from it.
//
// The records belong to the event loop's thread and are never locked, while the HTTP
// server that answers scrapes runs threads of its own. So a scrape asks the loop for a
// snapshot: the loop copies the raw bytes of what it needs into plain memory (no
// references into the records, no formatting), a bounded number of neighbours per turn of
// the loop, so that frames keep being handled between two slices however large the
// tables are. The HTTP thread then formats the copy (identifiers as text, labels as valid
// UTF-8) while the loop goes on. Each record is read whole within one turn, so no value is
// ever half-updated; a scrape of a large table spans several turns, and a neighbour that
// comes or goes meanwhile may be missing from it, as it would from the next scrape.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Daemon/ClientLimits.h"
#include "Framework/Vel/Ptr.h"
#include "Framework/Wire/IntfId.h"
#include "Gnmi/GnmiServerStatus.h"
#include "Records/Identity.h"
#include "Records/LldpConfig.h"
#include "Records/LldpLocalSystem.h"
#include "Records/LldpStatus.h"

namespace prometheus {
struct MetricFamily;
}

namespace Daemon {

// The per-port counters, in the order of the `portCounters` table (MetricsSnapshot.cpp).
inline constexpr size_t metricsPortCounters = 12;

struct MetricsSnapshot {
   struct Port {
      std::string name;
      uint32_t counter[metricsPortCounters] = {};
      uint32_t neighbors = 0;
      uint8_t adminStatus = 0;  // 0 when the port has no configuration record
   };
   // A neighbour's label values as raw bytes in `bytes`, one after the other from
   // `offset`: chassis ID, port ID, system name, port description, management address.
   struct Neighbor {
      uint32_t port = 0;  // index into `ports`
      uint32_t offset = 0;
      uint8_t length[5] = {};
      uint8_t chassisSubtype = 0, portIdSubtype = 0, mgmtSubtype = 0;
      uint16_t ttl = 0;
   };
   std::vector<Port> ports;
   std::vector<Neighbor> neighbors;
   std::string bytes;
   uint32_t remTablesInserts = 0, remTablesDeletes = 0, remTablesDrops = 0, remTablesAgeouts = 0;
   uint32_t rxFramesDroppedByKernel = 0;
   // Times on the agent's clock; `clockToUnix` turns them into seconds since the epoch.
   double remTablesLastChangeTime = 0, remTablesLastClearTime = 0, clockToUnix = 0;
   std::string localChassisId, localSysName;  // formatted: there are only two
   // Classified stations by class (telephone, device) and source (lldp, configured), and
   // the telephone bypass's forwarding-database writes.
   uint32_t classified[2][2] = {};
   uint64_t fdbWrites = 0, fdbWritesRefused = 0;
   // What the control socket refused for a limit (ClientLimits' counters, in their order).
   uint64_t clientLimitHits[5] = {};
   // The gNMI server's counters, when it runs (see Gnmi/GnmiServerStatus.h).
   bool gnmi = false;
   uint64_t gnmiSubscribers = 0, gnmiSubscribersRefused = 0, gnmiSubscribersDropped = 0,
            gnmiNotifications = 0, gnmiNotificationsCoalesced = 0, gnmiRequestsRefused = 0;
   bool complete = false;
};

// Fills a snapshot from the records, a slice at a time, on the loop's thread. The table is
// walked by key (port, then neighbour index), never by a held iterator, so the records may
// change freely between slices.
class MetricsSnapshotBuilder {
public:
   // Any record may be null (not published yet): it then adds nothing.
   MetricsSnapshotBuilder(Vel::Ptr<const Lldp::AllStatus> status,
                          Vel::Ptr<const Lldp::RemTablesStatus> remTables,
                          Vel::Ptr<const Lldp::Config> config,
                          Vel::Ptr<const Lldp::LocalSystem> local);
   // Neighbour classification (either may be null: then nothing is reported of it).
   void classificationIs(Vel::Ptr<const Identity::NbrClassification::Status> status,
                         Vel::Ptr<const Identity::NbrClassification::BypassStatus> bypass) {
      classification_ = std::move(status);
      bypass_ = std::move(bypass);
   }
   // The control socket's limits (null: nothing is reported of them).
   void clientLimitsIs(Vel::Ptr<const ClientLimits> limits) { clientLimits_ = std::move(limits); }
   // The gNMI server's counters (null when it does not run: nothing is reported of it).
   void gnmiIs(Vel::Ptr<const Gnmi::GnmiServerStatus> gnmi) { gnmi_ = std::move(gnmi); }
   // Starts a new snapshot: the global values now, the table from its first port.
   void start(double clockNow, double unixNow);
   // Copies up to `budget` neighbours (the ports met on the way cost one each); true once
   // the snapshot is complete.
   bool step(size_t budget);
   MetricsSnapshot take() { return std::move(snap_); }

private:
   Vel::Ptr<const Lldp::AllStatus> status_;
   Vel::Ptr<const Lldp::RemTablesStatus> remTables_;
   Vel::Ptr<const Lldp::Config> config_;
   Vel::Ptr<const Lldp::LocalSystem> local_;
   Vel::Ptr<const Identity::NbrClassification::Status> classification_;
   Vel::Ptr<const Identity::NbrClassification::BypassStatus> bypass_;
   Vel::Ptr<const ClientLimits> clientLimits_;
   Vel::Ptr<const Gnmi::GnmiServerStatus> gnmi_;
   MetricsSnapshot snap_;
   // Where the next slice resumes: the port (and whether its own values are taken) and
   // the last neighbour index copied on it.
   Wire::IntfId port_;
   Vel::Ptr<const Lldp::PortStatus> portRecord_;  // the record taken under port_
   bool portTaken_ = false;
   bool portsLeft_ = false;
   int lastIndex_ = 0;
   bool anyIndex_ = true;  // no neighbour copied on this port yet
};

// The metric families of a snapshot, label values made valid UTF-8.
std::vector<prometheus::MetricFamily> metricFamilies(const MetricsSnapshot& snap);

// `bytes` as valid UTF-8: every byte that does not belong to a well-formed sequence (a
// stray continuation byte, a truncated, overlong or surrogate sequence, anything above
// U+10FFFF) becomes U+FFFD. Prometheus refuses a whole scrape with one invalid label.
std::string validUtf8(std::string_view bytes);

}  // namespace Daemon

#include "Daemon/MetricsSnapshot.h"

#include <prometheus/metric_family.h>

#include <algorithm>
#include <iterator>

namespace Daemon {

namespace {

struct PortCounter {
   uint32_t (Lldp::PortStatus::*get)() const;
   const char* name;
   const char* help;
};

// Every counter of `lldp show statistics`, per port.
const PortCounter portCounters[metricsPortCounters] = {
    {&Lldp::PortStatus::txFramesTotal, "lldp_tx_frames_total", "LLDPDUs sent."},
    {&Lldp::PortStatus::txFramesLengthExceeded, "lldp_tx_frames_length_exceeded_total",
     "LLDPDUs that did not fit in a frame (optional TLVs left out)."},
    {&Lldp::PortStatus::txFramesNoMemErrors, "lldp_tx_frames_no_mem_errors_total",
     "LLDPDUs not sent for lack of a packet buffer."},
    {&Lldp::PortStatus::rxFramesTotal, "lldp_rx_frames_total", "LLDPDUs received."},
    {&Lldp::PortStatus::rxFramesDiscardedTotal, "lldp_rx_frames_discarded_total",
     "Received LLDPDUs discarded."},
    {&Lldp::PortStatus::rxFramesErrors, "lldp_rx_frames_errors_total",
     "Received LLDPDUs with errors."},
    {&Lldp::PortStatus::rxTLVsDiscardedTotal, "lldp_rx_tlvs_discarded_total",
     "Received TLVs discarded."},
    {&Lldp::PortStatus::rxTLVsUnrecognizedTotal, "lldp_rx_tlvs_unrecognized_total",
     "Received TLVs not recognised."},
    {&Lldp::PortStatus::rxAgeoutsTotal, "lldp_rx_ageouts_total",
     "Neighbours deleted because their time to live ran out."},
    {&Lldp::PortStatus::rxLldpdusRateLimited, "lldp_rx_lldpdus_rate_limited_total",
     "Received LLDPDUs dropped over the receive rate limit."},
    {&Lldp::PortStatus::rxNeighborsRefused, "lldp_rx_neighbors_refused_total",
     "LLDPDUs of new neighbours refused because the port's neighbour table was full."},
    {&Lldp::PortStatus::rxNeighborsRefusedTotalLimit, "lldp_rx_neighbors_refused_total_limit_total",
     "LLDPDUs of new neighbours refused because all ports together were at their neighbour "
     "limit."},
};

// Neighbour label bytes: where each sits among a neighbour's five byte strings.
enum : size_t { chassisBytes, portIdBytes, sysNameBytes, portDescBytes, mgmtBytes };

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

MetricFamily family(const char* name, const char* help, MetricType type) {
   MetricFamily f;
   f.name = name;
   f.help = help;
   f.type = type;
   return f;
}

void add(MetricFamily& f, std::vector<ClientMetric::Label> labels, double value) {
   ClientMetric m;
   m.label = std::move(labels);
   if (f.type == MetricType::Counter) {
      m.counter.value = value;
   } else {
      m.gauge.value = value;
   }
   f.metric.push_back(std::move(m));
}

}  // namespace

MetricsSnapshotBuilder::MetricsSnapshotBuilder(Vel::Ptr<const Lldp::AllStatus> status,
                                               Vel::Ptr<const Lldp::RemTablesStatus> remTables,
                                               Vel::Ptr<const Lldp::Config> config,
                                               Vel::Ptr<const Lldp::LocalSystem> local)
    : status_(std::move(status)),
      remTables_(std::move(remTables)),
      config_(std::move(config)),
      local_(std::move(local)) {}

void MetricsSnapshotBuilder::start(double clockNow, double unixNow) {
   snap_ = MetricsSnapshot();
   snap_.clockToUnix = unixNow - clockNow;
   portTaken_ = false;
   portsLeft_ = false;
   anyIndex_ = true;
   portRecord_ = nullptr;
   if (local_) {
      snap_.localChassisId = local_->chassisIdentifier().stringValue();
      snap_.localSysName = local_->sysName().stringValue();
   }
   if (remTables_) snap_.remTablesLastClearTime = remTables_->remTablesLastClearTime();
   if (classification_) {
      snap_.classified[0][0] = classification_->lldpTelephones();
      snap_.classified[0][1] = classification_->configuredTelephones();
      snap_.classified[1][0] = classification_->lldpDevices();
      snap_.classified[1][1] = classification_->configuredDevices();
   }
   if (bypass_) {
      snap_.fdbWrites = bypass_->fdbWrites();
      snap_.fdbWritesRefused = bypass_->fdbWritesRefused();
   }
   if (clientLimits_) {
      const ClientLimits& l = *clientLimits_;
      snap_.clientLimitHits[0] = l.clientsRefused();
      snap_.clientLimitHits[1] = l.requestsTooLong();
      snap_.clientLimitHits[2] = l.clientsDroppedUnread();
      snap_.clientLimitHits[3] = l.externalTlvSetsRefused();
      snap_.clientLimitHits[4] = l.powerRequestsRefused();
   }
   if (gnmi_) {
      snap_.gnmi = true;
      snap_.gnmiSubscribers = gnmi_->subscribers();
      snap_.gnmiSubscribersRefused = gnmi_->subscribersRefused();
      snap_.gnmiSubscribersDropped = gnmi_->subscribersDropped();
      snap_.gnmiNotifications = gnmi_->notifications();
      snap_.gnmiNotificationsCoalesced = gnmi_->notificationsCoalesced();
      snap_.gnmiRequestsRefused = gnmi_->requestsRefused();
   }
   if (!status_) return;
   snap_.remTablesInserts = status_->remTablesInserts();
   snap_.remTablesDeletes = status_->remTablesDeletes();
   snap_.remTablesDrops = status_->remTablesDrops();
   snap_.remTablesAgeouts = status_->remTablesAgeouts();
   snap_.rxFramesDroppedByKernel = status_->rxFramesDroppedByKernel();
   snap_.remTablesLastChangeTime = status_->remTablesLastChangeTime();
   // Room for the whole table now, so that no later slice copies what earlier ones took.
   size_t total = 0;
   for (const auto& [id, port] : status_->portStatus()) {
      if (port) total += port->remoteSystem().size();
   }
   snap_.ports.reserve(status_->portStatus().size());
   snap_.neighbors.reserve(total);
   snap_.bytes.reserve(total * 48);
   if (status_->portStatus().begin() != status_->portStatus().end()) {
      port_ = status_->portStatus().begin()->first;
      portsLeft_ = true;
   }
}

bool MetricsSnapshotBuilder::step(size_t budget) {
   if (!status_ || !portsLeft_) {
      snap_.complete = true;
      return true;
   }
   const auto& ports = status_->portStatus();
   auto it =
       std::lower_bound(ports.begin(), ports.end(), port_,
                        [](const auto& entry, const Wire::IntfId& k) { return entry.first < k; });
   if (portTaken_ && (it == ports.end() || it->second != portRecord_)) {
      // The port this slice stopped in has gone meanwhile: carry on with the next one. One
      // re-created under the same name starts its indexes afresh; it is left out of this
      // scrape rather than reported twice.
      portTaken_ = false;
      if (it != ports.end() && it->first == port_) ++it;
   }
   size_t used = 0;
   for (; it != ports.end(); ++it) {
      if (used >= budget) {
         port_ = it->first;
         return false;
      }
      const Lldp::PortStatus* port = it->second.ptr();
      if (!port) continue;
      if (!portTaken_) {
         port_ = it->first;
         portRecord_ = it->second;
         portTaken_ = true;
         anyIndex_ = true;
         MetricsSnapshot::Port p;
         p.name = std::string(it->first.name());
         for (size_t i = 0; i < metricsPortCounters; ++i)
            p.counter[i] = (port->*portCounters[i].get)();
         p.neighbors = static_cast<uint32_t>(port->remoteSystem().size());
         if (config_) {
            if (auto pc = config_->portConfig(it->first)) p.adminStatus = pc->adminStatus();
         }
         snap_.ports.push_back(std::move(p));
         ++used;
      }
      const auto& remotes = port->remoteSystem();
      auto r = anyIndex_ ? remotes.begin() : remotes.upper_bound(lastIndex_);
      for (; r != remotes.end() && used < budget; ++r, ++used) {
         const Lldp::RemoteSystem& rs = *r->second;
         MetricsSnapshot::Neighbor n;
         n.port = static_cast<uint32_t>(snap_.ports.size() - 1);
         n.offset = static_cast<uint32_t>(snap_.bytes.size());
         n.ttl = rs.ttl();
         n.chassisSubtype = rs.msap().chassisIdentifier().subtype();
         n.portIdSubtype = rs.msap().portIdentifier().subtype();
         auto append = [&](size_t which, std::string_view v) {
            n.length[which] = static_cast<uint8_t>(v.size());
            snap_.bytes.append(v);
         };
         append(chassisBytes, rs.msap().chassisIdentifier().value().value());
         append(portIdBytes, rs.msap().portIdentifier().value().value());
         append(sysNameBytes, rs.sysName().value());
         append(portDescBytes, rs.portDesc().value());
         if (rs.managementAddress().begin() != rs.managementAddress().end()) {
            const auto key = rs.managementAddress().begin()->first;
            n.mgmtSubtype = key.subtype();
            append(mgmtBytes, key.address().value());
         }
         snap_.neighbors.push_back(n);
         lastIndex_ = r->first;
         anyIndex_ = false;
      }
      if (r != remotes.end()) return false;  // the budget ran out inside this port
      portTaken_ = false;
   }
   portsLeft_ = false;
   portRecord_ = nullptr;
   snap_.complete = true;
   return true;
}

std::string validUtf8(std::string_view s) {
   std::string out;
   out.reserve(s.size());
   size_t i = 0;
   while (i < s.size()) {
      const auto b = static_cast<uint8_t>(s[i]);
      size_t len = 0;
      uint32_t min = 0, cp = 0;
      if (b < 0x80) {
         out.push_back(static_cast<char>(b));
         ++i;
         continue;
      } else if ((b & 0xe0) == 0xc0) {
         len = 2, min = 0x80, cp = b & 0x1f;
      } else if ((b & 0xf0) == 0xe0) {
         len = 3, min = 0x800, cp = b & 0x0f;
      } else if ((b & 0xf8) == 0xf0) {
         len = 4, min = 0x10000, cp = b & 0x07;
      }
      bool ok = len != 0 && i + len <= s.size();
      for (size_t k = 1; ok && k < len; ++k) {
         const auto c = static_cast<uint8_t>(s[i + k]);
         ok = (c & 0xc0) == 0x80;
         cp = (cp << 6) | (c & 0x3f);
      }
      ok = ok && cp >= min && cp <= 0x10ffff && !(cp >= 0xd800 && cp <= 0xdfff);
      if (ok) {
         out.append(s.substr(i, len));
         i += len;
      } else {
         out.append("\xef\xbf\xbd");  // U+FFFD, for this one byte
         ++i;
      }
   }
   return out;
}

std::vector<MetricFamily> metricFamilies(const MetricsSnapshot& snap) {
   std::vector<MetricFamily> out;
   const auto unixTime = [&](double t) { return t > 0 ? t + snap.clockToUnix : 0.0; };

   MetricFamily local =
       family("lldp_local_info", "This agent's own identity, as its neighbours see it.",
              MetricType::Gauge);
   add(local,
       {{"chassis_id", validUtf8(snap.localChassisId)},
        {"system_name", validUtf8(snap.localSysName)}},
       1);
   out.push_back(std::move(local));

   for (size_t i = 0; i < metricsPortCounters; ++i) {
      MetricFamily f = family(portCounters[i].name, portCounters[i].help, MetricType::Counter);
      for (const auto& p : snap.ports) add(f, {{"interface", validUtf8(p.name)}}, p.counter[i]);
      out.push_back(std::move(f));
   }
   MetricFamily count =
       family("lldp_neighbors", "Neighbours in the port's table.", MetricType::Gauge);
   MetricFamily admin = family("lldp_admin_status",
                               "The port's admin status: 1 transmit only, 2 receive only, 3 "
                               "transmit and receive, 4 disabled.",
                               MetricType::Gauge);
   for (const auto& p : snap.ports) {
      add(count, {{"interface", validUtf8(p.name)}}, p.neighbors);
      if (p.adminStatus) add(admin, {{"interface", validUtf8(p.name)}}, p.adminStatus);
   }
   out.push_back(std::move(count));
   out.push_back(std::move(admin));

   const struct {
      const char* name;
      const char* help;
      uint32_t value;
   } global[] = {
       {"lldp_remote_tables_inserts_total", "Neighbours added to the tables.",
        snap.remTablesInserts},
       {"lldp_remote_tables_deletes_total", "Neighbours deleted from the tables.",
        snap.remTablesDeletes},
       {"lldp_remote_tables_drops_total", "Neighbours not added for lack of room.",
        snap.remTablesDrops},
       {"lldp_remote_tables_ageouts_total", "Neighbours aged out.", snap.remTablesAgeouts},
       {"lldp_rx_frames_dropped_by_kernel_total",
        "LLDP frames the kernel dropped before the agent read them (its receive ring was "
        "full); the kernel does not say on which port.",
        snap.rxFramesDroppedByKernel},
   };
   for (const auto& g : global) {
      MetricFamily f = family(g.name, g.help, MetricType::Counter);
      add(f, {}, g.value);
      out.push_back(std::move(f));
   }
   MetricFamily classified =
       family("lldp_classified_neighbors",
              "Stations classified on the ports, by class (telephone, device) and source (lldp, "
              "configured).",
              MetricType::Gauge);
   for (int c = 0; c < 2; ++c) {
      for (int s = 0; s < 2; ++s) {
         add(classified,
             {{"class", c ? "device" : "telephone"}, {"source", s ? "configured" : "lldp"}},
             snap.classified[c][s]);
      }
   }
   out.push_back(std::move(classified));
   const struct {
      const char* name;
      const char* help;
      uint64_t value;
   } fdb[] = {
       {"lldp_telephone_bypass_fdb_writes_total",
        "Forwarding-database writes for telephones on locked ports.", snap.fdbWrites},
       {"lldp_telephone_bypass_fdb_writes_refused_total",
        "Forwarding-database writes for telephones the kernel refused.", snap.fdbWritesRefused},
   };
   for (const auto& g : fdb) {
      MetricFamily f = family(g.name, g.help, MetricType::Counter);
      add(f, {}, double(g.value));
      out.push_back(std::move(f));
   }
   MetricFamily refused = family(
       "lldp_control_limit_hits_total",
       "What the control socket refused for a limit: connections past maxClients (clients), "
       "request lines past maxRequestBytes (request_bytes), clients dropped past "
       "maxReplyBacklogBytes (reply_backlog), external TLV sets and power requests past their "
       "limits (external_tlvs, power_ports).",
       MetricType::Counter);
   const char* const limitNames[] = {"clients", "request_bytes", "reply_backlog", "external_tlvs",
                                     "power_ports"};
   for (size_t i = 0; i < std::size(limitNames); ++i) {
      add(refused, {{"limit", limitNames[i]}}, double(snap.clientLimitHits[i]));
   }
   out.push_back(std::move(refused));
   if (snap.gnmi) {
      MetricFamily subscribers =
          family("lldp_gnmi_subscribers", "gNMI Subscribe calls open.", MetricType::Gauge);
      add(subscribers, {}, double(snap.gnmiSubscribers));
      out.push_back(std::move(subscribers));
      const struct {
         const char* name;
         const char* help;
         uint64_t value;
      } gnmi[] = {
          {"lldp_gnmi_subscribers_refused_total",
           "gNMI Subscribe calls refused: the most allowed were open.",
           snap.gnmiSubscribersRefused},
          {"lldp_gnmi_subscribers_dropped_total",
           "gNMI subscribers ended for falling too far behind.", snap.gnmiSubscribersDropped},
          {"lldp_gnmi_notifications_total", "gNMI notifications queued for subscribers.",
           snap.gnmiNotifications},
          {"lldp_gnmi_notifications_coalesced_total",
           "Changes merged into a gNMI notification already waiting.",
           snap.gnmiNotificationsCoalesced},
          {"lldp_gnmi_requests_refused_total", "gNMI calls answered with an error status.",
           snap.gnmiRequestsRefused},
      };
      for (const auto& g : gnmi) {
         MetricFamily f = family(g.name, g.help, MetricType::Counter);
         add(f, {}, double(g.value));
         out.push_back(std::move(f));
      }
   }
   MetricFamily change = family("lldp_remote_tables_last_change_timestamp_seconds",
                                "When a neighbour was last added, changed or deleted (Unix "
                                "time; 0 never).",
                                MetricType::Gauge);
   add(change, {}, unixTime(snap.remTablesLastChangeTime));
   out.push_back(std::move(change));
   MetricFamily clear =
       family("lldp_remote_tables_last_clear_timestamp_seconds",
              "When the tables were last cleared (Unix time; 0 never).", MetricType::Gauge);
   add(clear, {}, unixTime(snap.remTablesLastClearTime));
   out.push_back(std::move(clear));

   MetricFamily info = family("lldp_neighbor_info",
                              "A neighbour on a port: its identity, names and first "
                              "management address.",
                              MetricType::Gauge);
   MetricFamily ttl = family("lldp_neighbor_ttl_seconds",
                             "The time to live the neighbour advertised.", MetricType::Gauge);
   info.metric.reserve(snap.neighbors.size());
   ttl.metric.reserve(snap.neighbors.size());
   for (const auto& n : snap.neighbors) {
      std::string_view field[5];
      size_t at = n.offset;
      for (size_t k = 0; k < 5; ++k) {
         field[k] = std::string_view(snap.bytes).substr(at, n.length[k]);
         at += n.length[k];
      }
      const std::string intf = validUtf8(snap.ports[n.port].name);
      std::string chassis = validUtf8(
          Lldp::ChassisIdentifier({.subtype = n.chassisSubtype, .value = field[chassisBytes]})
              .stringValue());
      std::string portId =
          validUtf8(Lldp::PortIdentifier({.subtype = n.portIdSubtype, .value = field[portIdBytes]})
                        .stringValue());
      std::string mgmt;
      if (n.mgmtSubtype) {
         mgmt = validUtf8(
             Lldp::ManagementAddressKey({.subtype = n.mgmtSubtype, .address = field[mgmtBytes]})
                 .stringValue());
      }
      add(ttl, {{"interface", intf}, {"chassis_id", chassis}, {"port_id", portId}}, n.ttl);
      add(info,
          {{"interface", intf},
           {"chassis_id", std::move(chassis)},
           {"port_id", std::move(portId)},
           {"system_name", validUtf8(field[sysNameBytes])},
           {"port_description", validUtf8(field[portDescBytes])},
           {"management_address", std::move(mgmt)}},
          1);
   }
   out.push_back(std::move(info));
   out.push_back(std::move(ttl));
   return out;
}

}  // namespace Daemon

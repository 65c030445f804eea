// What the MIB tables read: the agent's published records, found in the state database,
// and the ports in the order the MIB wants them (by local port number, which is the
// Linux ifindex). Nothing is copied out of the records, so nothing can drift; only the
// port order is kept, rebuilt when a port comes or goes.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Framework/Vel/StateDb.h"
#include "Records/IntfStatus.h"
#include "Records/LldpConfig.h"
#include "Records/LldpLocalSystem.h"
#include "Records/LldpStatus.h"
#include "Snmp/MibTree.h"

namespace Snmp {

// Settings of our own that the records do not hold.
struct MibSettings {
   uint32_t notificationInterval = 30;  // lldpNotificationInterval, seconds
   // lldpPortConfigNotificationEnable, by port name.
   bool (*notificationEnabled)(const Wire::IntfId&, const void* ctx) = nullptr;
   const void* notificationCtx = nullptr;
};

class LldpMibSource {
public:
   struct Port {
      uint32_t ifIndex;
      Wire::IntfId intf;
   };

   // Mounts the records (they are created empty if the agent has not published them yet).
   explicit LldpMibSource(Vel::StateDb& db, Vel::Seconds origin);
   ~LldpMibSource();
   LldpMibSource(const LldpMibSource&) = delete;
   LldpMibSource& operator=(const LldpMibSource&) = delete;

   const Lldp::Config& config() const { return *config_; }
   const Lldp::LocalSystem& localSystem() const { return *localSystem_; }
   const Lldp::AllStatus& status() const { return *status_; }
   const Lldp::AllStatus::Ptr& statusPtr() const { return status_; }
   MibSettings& settings() { return settings_; }
   const MibSettings& settings() const { return settings_; }
   bool notificationEnabled(const Wire::IntfId& intf) const {
      return settings_.notificationEnabled &&
             settings_.notificationEnabled(intf, settings_.notificationCtx);
   }

   // Every port that has configuration, a local port record or a status, by ifindex;
   // ports without an ifindex are left out (the MIB cannot name them).
   const std::vector<Port>& ports() const;
   // The position of the first port whose ifindex is at least `ifIndex`.
   size_t firstPortFrom(uint32_t ifIndex) const;
   const Lldp::PortStatus* portStatus(const Wire::IntfId& intf) const;
   const Lldp::PortConfig* portConfig(const Wire::IntfId& intf) const;
   const Lldp::LocalPort* localPort(const Wire::IntfId& intf) const;

   // A time of the agent's clock as TimeTicks since the SNMP side started (our sysUpTime).
   uint32_t ticks(Vel::Seconds t) const;

   // Offers each neighbour's rows of one column, in index order (time mark, local port,
   // neighbour index, then what `rows` appends), starting where the finder's bound is,
   // and stops at the first neighbour that gave a row. `rows` gets the index filled up
   // to the neighbour index. The time mark filters: a neighbour whose last change is
   // older than a non-zero time mark is not there (TimeFilter).
   using RemoteRows = void (*)(const Lldp::RemoteSystem&, uint32_t col, Oid& index, RowFinder&);
   void seekRemote(uint32_t col, RowFinder& finder, RemoteRows rows) const;
   // The same over ports: `rows` gets the index holding the ifindex.
   using PortRows = void (*)(const LldpMibSource&, const Port&, uint32_t col, Oid& index,
                             RowFinder&);
   void seekPorts(uint32_t col, RowFinder& finder, PortRows rows) const;

private:
   void rebuildPorts() const;

   Lldp::Config::Ptr config_;
   Lldp::LocalSystem::Ptr localSystem_;
   Lldp::AllStatus::Ptr status_;
   Interface::AllIntfStatusDir::Ptr intfDir_;
   Vel::Seconds origin_;
   MibSettings settings_;
   mutable std::vector<Port> ports_;
   mutable bool portsDirty_ = true;
   std::vector<std::unique_ptr<Vel::NotifieeBase>> watchers_;
};

}  // namespace Snmp

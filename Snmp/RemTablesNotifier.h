// Decides when to send lldpRemTablesChange: when a port on which notifications are
// enabled gained, lost or changed a neighbour, at most once per notification interval
// (a change inside the interval is sent when the interval is over, carrying the counters
// of that moment).
#pragma once

#include <functional>
#include <map>
#include <memory>

#include "Framework/Vel/EventLoop.h"
#include "Snmp/LldpMibSource.h"

namespace Snmp {

class RemTablesNotifier {
public:
   // `send` gets lldpStatsRemTablesInserts, Deletes, Drops and Ageouts.
   using Send = std::function<void(uint32_t, uint32_t, uint32_t, uint32_t)>;
   RemTablesNotifier(const LldpMibSource& src, Send send);
   ~RemTablesNotifier();

   void handlePortStatus(const Wire::IntfId& intf);
   void handleRemoteSystem(const Wire::IntfId& intf);
   uint32_t sent() const { return sent_; }

private:
   struct PortWatch;
   struct StatusWatch;
   void doSend();

   const LldpMibSource& src_;
   Send send_;
   std::unique_ptr<StatusWatch> statusWatch_;
   std::map<Wire::IntfId, std::unique_ptr<PortWatch>> ports_;
   Vel::Clock clock_;
   Vel::Seconds lastSent_ = -Vel::never;
   uint32_t sent_ = 0;
};

}  // namespace Snmp

#include "Snmp/RemTablesNotifier.h"

#include <algorithm>

namespace Snmp {

struct RemTablesNotifier::PortWatch : Lldp::PortStatus::Notifiee {
   RemTablesNotifier* owner;
   Wire::IntfId intf;
   void remoteSystemChanged(const int&) override { owner->handleRemoteSystem(intf); }
};

struct RemTablesNotifier::StatusWatch : Lldp::AllStatus::Notifiee {
   RemTablesNotifier* owner;
   void portStatusChanged(const Wire::IntfId& intf) override { owner->handlePortStatus(intf); }
};

RemTablesNotifier::RemTablesNotifier(const LldpMibSource& src, Send send)
    : src_(src), send_(std::move(send)), clock_([this] { doSend(); }) {
   statusWatch_ = std::make_unique<StatusWatch>();
   statusWatch_->owner = this;
   statusWatch_->notifierIs(src_.statusPtr());
   for (const auto& [intf, ps] : src_.status().portStatus()) handlePortStatus(intf);
}

RemTablesNotifier::~RemTablesNotifier() = default;

void RemTablesNotifier::handlePortStatus(const Wire::IntfId& intf) {
   const auto* ps = src_.status().portStatus(intf);
   if (!ps || !*ps) {
      ports_.erase(intf);
      return;
   }
   auto& w = ports_[intf];
   if (w && w->notifier() == *ps) return;
   w = std::make_unique<PortWatch>();
   w->owner = this;
   w->intf = intf;
   w->notifierIs(*ps);
}

void RemTablesNotifier::handleRemoteSystem(const Wire::IntfId& intf) {
   if (!src_.notificationEnabled(intf) || clock_.timeMin() != Vel::never) return;
   const Vel::Seconds now = Vel::EventLoop::instance().now();
   const Vel::Seconds interval = std::max<uint32_t>(src_.settings().notificationInterval, 1);
   clock_.timeMinIs(std::max(now, lastSent_ + interval));
}

void RemTablesNotifier::doSend() {
   lastSent_ = Vel::EventLoop::instance().now();
   ++sent_;
   const Lldp::AllStatus& s = src_.status();
   send_(s.remTablesInserts(), s.remTablesDeletes(), s.remTablesDrops(), s.remTablesAgeouts());
}

}  // namespace Snmp

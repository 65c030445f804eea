#include "Platform/Linux/TelephoneBypassSm.h"

#include "Framework/Log.h"

namespace Platform::Linux {

using Identity::NbrClassification::EntryKey;
using Identity::NbrClassification::NbrClass;

// Argument: the port. Logged when a port asks for telephone bypass while LLDP may not run
// on ports that 802.1X holds: no telephone can be classified on such a port then.
constinit const Vel::Log::Handle LLDP_TELEPHONE_BYPASS_WITHOUT_LLDP_BYPASS(
    "LLDP_TELEPHONE_BYPASS_WITHOUT_LLDP_BYPASS", 4,
    "dot1x telephone bypass on %s needs dot1x lldp bypass: LLDP does not run on a port "
    "802.1X holds without it, so no telephone is classified there",
    "A port lets classified telephones through while 802.1X holds it, but LLDP itself may not "
    "run on such a port.",
    "Configure 'dot1x lldp bypass', or remove 'dot1x telephone bypass' from the port.", 0);

TelephoneBypassSm::TelephoneBypassSm(Vel::StateDb& db)
    : status_(db.mount<Identity::NbrClassification::Status>("identity/nbrClassification/status")),
      cliConfig_(db.mount<Lldp::CliConfig>("l2discovery/lldp/cliConfig")),
      bypassStatus_(db.mount<Identity::NbrClassification::BypassStatus>(
          "identity/nbrClassification/bypassStatus")) {
   statusReactor_.sm = this;
   configReactor_.sm = this;
   if (!writer_.ok()) {
      VEL_TRACE(platformTrace, 0, "TelephoneBypassSm: cannot open an rtnetlink socket");
   }
   statusReactor_.notifierIs(status_);
   configReactor_.notifierIs(cliConfig_);
   for (const auto& [intf, p] : cliConfig_->cliPortConfig())
      configReactor_.cliPortConfigChanged(intf);
   for (const auto& [key, e] : status_->entry()) handleEntry(key);
}

TelephoneBypassSm::~TelephoneBypassSm() {
   statusReactor_.notifierIs(nullptr);
   configReactor_.notifierIs(nullptr);
   portConfigReactors_.clear();
   // Stopping: what we added goes now, whatever the rate.
   for (auto& [intf, port] : ports_) {
      port.clock.reset();
      while (!port.installed.empty()) doRemove(intf, port, *port.installed.begin());
   }
}

void TelephoneBypassSm::ConfigReactor::cliPortConfigChanged(const Wire::IntfId& intf) {
   auto p = sm->cliConfig_->cliPortConfig(intf);
   if (p) {
      auto& r = sm->portConfigReactors_[intf];
      if (!r) {
         r = std::make_unique<PortConfigReactor>();
         r->sm = sm;
         r->intf = intf;
      }
      r->notifierIs(p);
   } else {
      sm->portConfigReactors_.erase(intf);
   }
   sm->handlePortConfig(intf);
}

bool TelephoneBypassSm::bypassConfigured(const Wire::IntfId& intf) const {
   auto p = cliConfig_->cliPortConfig(intf);
   return p && p->dot1xTelephoneBypass();
}

void TelephoneBypassSm::handlePortConfig(const Wire::IntfId& intf) {
   if (bypassConfigured(intf) && !cliConfig_->dot1xLldpBypass()) {
      LLDP_TELEPHONE_BYPASS_WITHOUT_LLDP_BYPASS.log(intf);
   }
   doRequestSync(intf);
}

void TelephoneBypassSm::handleLldpBypass() {
   if (cliConfig_->dot1xLldpBypass()) return;
   for (const auto& [intf, p] : cliConfig_->cliPortConfig()) {
      if (p->dot1xTelephoneBypass()) LLDP_TELEPHONE_BYPASS_WITHOUT_LLDP_BYPASS.log(intf);
   }
}

void TelephoneBypassSm::modelIs(const NetModel& model) {
   std::map<Wire::IntfId, std::pair<int, bool>> now;
   for (const auto& [index, link] : model.links) {
      if (link.master == 0) continue;  // only bridge ports can be locked
      now[Wire::IntfId(link.name.value())] = {index, model.lockedPorts.count(index) != 0};
   }
   for (auto& [intf, port] : ports_) {
      auto it = now.find(intf);
      const int ifindex = it == now.end() ? 0 : it->second.first;
      const bool locked = it != now.end() && it->second.second;
      if (ifindex == port.ifindex && locked == port.locked) continue;
      VEL_TRACE(platformTrace, 4,
                "TelephoneBypassSm: " << intf << (locked ? " locked" : " not locked"));
      if (ifindex != port.ifindex) {
         // The kernel dropped the old port's entries with it.
         for (const auto& mac : port.installed) {
            bypassStatus_->fdbEntryDel(EntryKey({.intfId = intf, .ethAddr = mac}));
         }
         port.installed.clear();
         port.skipped.clear();
      }
      port.ifindex = ifindex;
      port.locked = locked;
      doRequestSync(intf);
   }
   for (const auto& [intf, state] : now) {
      if (ports_.count(intf)) continue;
      Port& port = ports_[intf];
      port.ifindex = state.first;
      port.locked = state.second;
      if (port.locked) doRequestSync(intf);
   }
}

void TelephoneBypassSm::handleEntry(const EntryKey& key) {
   auto e = status_->entry(key);
   const bool telephone = e && e->nbrClass() == NbrClass::telephone;
   Port& port = ports_[key.intfId()];
   const bool was = port.telephones.count(key.ethAddr()) != 0;
   if (telephone == was) return;
   if (telephone) {
      port.telephones.insert(key.ethAddr());
   } else {
      port.telephones.erase(key.ethAddr());
   }
   if ((port.locked && bypassConfigured(key.intfId())) || !port.installed.empty() ||
       !port.skipped.empty()) {
      doRequestSync(key.intfId());
   }
}

void TelephoneBypassSm::doRequestSync(const Wire::IntfId& intf) {
   Port& port = ports_[intf];
   const Vel::Seconds now = Vel::EventLoop::instance().now();
   if (now >= port.lastWrite + minWriteInterval) {
      doSync(intf);
      return;
   }
   if (!port.clock) {
      port.clock = std::make_unique<Vel::Clock>([this, intf] { doSync(intf); });
   }
   if (port.clock->timeMin() == Vel::never)
      port.clock->timeMinIs(port.lastWrite + minWriteInterval);
}

void TelephoneBypassSm::doRemove(const Wire::IntfId& intf, Port& port, const Wire::EthAddr& mac) {
   std::string error;
   bypassStatus_->fdbWritesInc();
   if (writer_.del(port.ifindex, mac, &error) == FdbWriter::Result::refused) {
      bypassStatus_->fdbWritesRefusedInc();
      VEL_TRACE(platformTrace, 0,
                "TelephoneBypassSm: the kernel refused to remove " << mac << " on " << intf << ": "
                                                                   << error);
   } else {
      VEL_TRACE(platformTrace, 4, "TelephoneBypassSm: removed " << mac << " on " << intf);
   }
   // Not ours any more either way: never removed twice.
   port.installed.erase(mac);
   bypassStatus_->fdbEntryDel(EntryKey({.intfId = intf, .ethAddr = mac}));
}

void TelephoneBypassSm::doSync(const Wire::IntfId& intf) {
   Port& port = ports_[intf];
   if (port.clock) port.clock->timeMinIs(Vel::never);
   const bool active = port.locked && port.ifindex != 0 && bypassConfigured(intf);
   static const std::set<Wire::EthAddr> none;
   const std::set<Wire::EthAddr>& wanted = active ? port.telephones : none;
   bool wrote = false;
   for (auto it = port.skipped.begin(); it != port.skipped.end();) {
      it = wanted.count(*it) ? std::next(it) : port.skipped.erase(it);
   }
   std::vector<Wire::EthAddr> gone;
   for (const auto& mac : port.installed) {
      if (!wanted.count(mac)) gone.push_back(mac);
   }
   for (const auto& mac : gone) {
      doRemove(intf, port, mac);
      wrote = true;
   }
   for (const auto& mac : wanted) {
      if (port.installed.count(mac) || port.skipped.count(mac)) continue;
      std::string error;
      bypassStatus_->fdbWritesInc();
      wrote = true;
      switch (writer_.add(port.ifindex, mac, &error)) {
         case FdbWriter::Result::done:
            VEL_TRACE(platformTrace, 4, "TelephoneBypassSm: added " << mac << " on " << intf);
            port.installed.insert(mac);
            bypassStatus_->fdbEntryIs(EntryKey({.intfId = intf, .ethAddr = mac}), true);
            break;
         case FdbWriter::Result::exists:
            VEL_TRACE(platformTrace, 2,
                      "TelephoneBypassSm: " << mac << " on " << intf
                                            << " has a forwarding entry already; left alone");
            port.skipped.insert(mac);
            break;
         default:
            bypassStatus_->fdbWritesRefusedInc();
            VEL_TRACE(platformTrace, 0,
                      "TelephoneBypassSm: the kernel refused to add " << mac << " on " << intf
                                                                      << ": " << error);
            port.skipped.insert(mac);
            break;
      }
   }
   if (wrote) port.lastWrite = Vel::EventLoop::instance().now();
}

}  // namespace Platform::Linux

#include "Snmp/LldpMibSource.h"

#include <algorithm>
#include <climits>

namespace Snmp {

namespace {

// Marks the port order stale when a port comes or goes in any of the records.

struct ConfigWatch : Lldp::Config::Notifiee {
   bool* dirty;
   void portConfigChanged(const Wire::IntfId&) override { *dirty = true; }
};
struct LocalWatch : Lldp::LocalSystem::Notifiee {
   bool* dirty;
   void localPortChanged(const Wire::IntfId&) override { *dirty = true; }
};
struct StatusWatch : Lldp::AllStatus::Notifiee {
   bool* dirty;
   void portStatusChanged(const Wire::IntfId&) override { *dirty = true; }
};
struct IntfWatch : Interface::AllIntfStatusDir::Notifiee {
   bool* dirty;
   void intfStatusChanged(const Wire::IntfId&) override { *dirty = true; }
};

template <class W, class E>
std::unique_ptr<Vel::NotifieeBase> watch(const Vel::Ptr<E>& e, bool* dirty) {
   auto w = std::make_unique<W>();
   w->dirty = dirty;
   w->notifierIs(e);
   return w;
}

}  // namespace

LldpMibSource::LldpMibSource(Vel::StateDb& db, Vel::Seconds origin)
    : config_(db.mount<Lldp::Config>("l2discovery/lldp/config")),
      localSystem_(db.mount<Lldp::LocalSystem>("l2discovery/lldp/localSystem")),
      status_(db.mount<Lldp::AllStatus>("l2discovery/lldp/status/all")),
      intfDir_(db.mount<Interface::AllIntfStatusDir>("interface/status/all")),
      origin_(origin) {
   watchers_.push_back(watch<ConfigWatch>(config_, &portsDirty_));
   watchers_.push_back(watch<LocalWatch>(localSystem_, &portsDirty_));
   watchers_.push_back(watch<StatusWatch>(status_, &portsDirty_));
   watchers_.push_back(watch<IntfWatch>(intfDir_, &portsDirty_));
}

LldpMibSource::~LldpMibSource() = default;

void LldpMibSource::rebuildPorts() const {
   ports_.clear();
   auto add = [&](const Wire::IntfId& intf) {
      const auto st = intfDir_->intfStatus(intf);
      if (!st || st->ifIndex() == 0) return;
      ports_.push_back({st->ifIndex(), intf});
   };
   for (const auto& [intf, pc] : config_->portConfig()) add(intf);
   for (const auto& [intf, lp] : localSystem_->localPort()) add(intf);
   for (const auto& [intf, ps] : status_->portStatus()) add(intf);
   std::sort(ports_.begin(), ports_.end(),
             [](const Port& a, const Port& b) { return a.ifIndex < b.ifIndex; });
   ports_.erase(std::unique(ports_.begin(), ports_.end(),
                            [](const Port& a, const Port& b) { return a.ifIndex == b.ifIndex; }),
                ports_.end());
   portsDirty_ = false;
}

const std::vector<LldpMibSource::Port>& LldpMibSource::ports() const {
   if (portsDirty_) rebuildPorts();
   return ports_;
}

size_t LldpMibSource::firstPortFrom(uint32_t ifIndex) const {
   const auto& p = ports();
   return std::lower_bound(p.begin(), p.end(), ifIndex,
                           [](const Port& a, uint32_t i) { return a.ifIndex < i; }) -
          p.begin();
}

const Lldp::PortStatus* LldpMibSource::portStatus(const Wire::IntfId& intf) const {
   const auto* p = status_->portStatus(intf);
   return p ? p->ptr() : nullptr;
}

const Lldp::PortConfig* LldpMibSource::portConfig(const Wire::IntfId& intf) const {
   return config_->portConfig(intf).ptr();
}

const Lldp::LocalPort* LldpMibSource::localPort(const Wire::IntfId& intf) const {
   return localSystem_->localPort(intf).ptr();
}

uint32_t LldpMibSource::ticks(Vel::Seconds t) const {
   const double d = (t - origin_) * 100.0;
   if (!(d > 0)) return 0;
   return d >= 4294967295.0 ? 0xffffffffu : static_cast<uint32_t>(d);
}

void LldpMibSource::seekRemote(uint32_t col, RowFinder& finder, RemoteRows rows) const {
   const uint32_t* b = finder.bound();
   const size_t n = finder.boundLen();
   const uint32_t timeMark = n > 0 ? b[0] : 0;
   const uint32_t fromPort = n > 1 ? b[1] : 0;
   const auto& all = ports();
   Oid index;
   for (size_t i = firstPortFrom(fromPort); i < all.size(); ++i) {
      const Lldp::PortStatus* ps = portStatus(all[i].intf);
      if (!ps) continue;
      const auto& table = ps->remoteSystem();
      auto it = table.begin();
      if (all[i].ifIndex == fromPort && n > 2) {
         if (b[2] > uint32_t(INT_MAX)) continue;
         it = table.lower_bound(static_cast<int>(b[2]));
      }
      for (; it != table.end(); ++it) {
         const Lldp::RemoteSystem& rs = *it->second;
         if (it->first < 1) continue;  // the MIB's indexes start at 1
         if (timeMark && ticks(rs.lastChangeTime()) < timeMark) continue;
         index.len = 0;
         index.push(timeMark);
         index.push(all[i].ifIndex);
         index.push(static_cast<uint32_t>(it->first));
         rows(rs, col, index, finder);
         if (finder.found) return;
      }
   }
}

void LldpMibSource::seekPorts(uint32_t col, RowFinder& finder, PortRows rows) const {
   const uint32_t fromPort = finder.boundLen() > 0 ? finder.bound()[0] : 0;
   const auto& all = ports();
   Oid index;
   for (size_t i = firstPortFrom(fromPort); i < all.size(); ++i) {
      index.len = 0;
      index.push(all[i].ifIndex);
      rows(*this, all[i], col, index, finder);
      if (finder.found) return;
   }
}

}  // namespace Snmp

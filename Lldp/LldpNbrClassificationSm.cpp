#include "Lldp/LldpNbrClassificationSm.h"

#include <absl/container/flat_hash_map.h>

#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Framework/Log.h"
#include "Framework/Vel/EventLoop.h"

namespace Lldp::Agent {

Vel::Trace::Handle traceLldpNbrClassification("LldpNbrClassification");

using Identity::NbrClassification::Entry;
using Identity::NbrClassification::NbrClassSource;

// Arguments: what was cleared ("all", "mac ...", "interface ..."), who asked and where.
constinit const Vel::Log::Handle LLDP_NEIGHBOR_CLASSIFICATION_CLEARED(
    "LLDP_NEIGHBOR_CLASSIFICATION_CLEARED", 5,
    "LLDP neighbor classification (%s) cleared by %s on %s",
    "Learnt LLDP neighbor classifications were cleared by a CLI command.", "no action required", 0);

namespace {

constexpr uint8_t medVoiceApplication = 1;

// Moves the status's count of one class and source by `sign`.
void countEntry(Identity::NbrClassification::Status& status,
                Identity::NbrClassification::NbrClass c, NbrClassSource s, int sign) {
   using C = Identity::NbrClassification::NbrClass;
   using Status = Identity::NbrClassification::Status;
   const bool telephone = c == C::telephone;
   const bool configured = s == NbrClassSource::configured;
   const uint32_t& (Status::*get)() const =
       configured ? (telephone ? &Status::configuredTelephones : &Status::configuredDevices)
                  : (telephone ? &Status::lldpTelephones : &Status::lldpDevices);
   void (Status::*set)(const uint32_t&) =
       configured ? (telephone ? &Status::configuredTelephonesIs : &Status::configuredDevicesIs)
                  : (telephone ? &Status::lldpTelephonesIs : &Status::lldpDevicesIs);
   (status.*set)(uint32_t(int64_t((status.*get)()) + sign));
}

bool isMedEndpoint(uint8_t deviceType) {
   return deviceType >= 1 && deviceType <= 3;
}

}  // namespace

Identity::NbrClassification::NbrClass lldpClassOf(const Lldp::RemoteSystem& remote) {
   using C = Identity::NbrClassification::NbrClass;
   if (remote.systemCapabilities().enabled().telephone()) return C::telephone;
   if (remote.medCapabilitiesTlvReceived() &&
       isMedEndpoint(remote.medCapabilitiesInfo().deviceType()) &&
       remote.networkPolicyTlv(medVoiceApplication)) {
      return C::telephone;
   }
   return C::device;
}

struct NbrClassificationSm::Learned {
   Wire::EthAddr ethAddr;
   NbrClass nbrClass;
   bool cleared = false;
};

// Tells the machine when a neighbour forgotten by a clear request sends again.
struct NbrClassificationSm::RefreshWatch : Lldp::RemoteSystem::Notifiee {
   NbrClassificationSm* sm;
   Wire::IntfId intf;
   int index;
   void lastRefreshTimeChanged() override { sm->handleRefresh(intf, index); }
};

class NbrClassificationSm::PortSm : public Vel::RefCounted, public Lldp::PortStatus::Notifiee {
public:
   // It holds the port status as its notifiee, from construction until the machine lets
   // the port go.
   PortSm(NbrClassificationSm* sm, const Lldp::PortStatus::PtrConst& ps) : sm_(sm) {
      notifierIs(ps);
   }
   Lldp::PortStatus::PtrConst portStatus() const { return notifier(); }
   const Wire::IntfId& intfId() const { return notifierPtr()->intfId(); }
   void doClose() { notifierIs(nullptr); }
   // What each neighbour said, by its index in the port's table; the stations they make;
   // the neighbours a clear request forgot, watched until they send again. The first two
   // hold every neighbour of the port, so they are flat tables of a few words an entry,
   // made with the port's first neighbour (most ports have none); the rest are rare, so
   // they are made together on first use.
   struct Tables {
      absl::flat_hash_map<int, Learned> learned;
      absl::flat_hash_map<Wire::EthAddr, Station, Vel::Hash<Wire::EthAddr>> stations;
   };
   using Watches = std::unordered_map<int, std::unique_ptr<RefreshWatch>>;
   using ForgottenStations =
       absl::flat_hash_map<Wire::EthAddr, Forgotten, Vel::Hash<Wire::EthAddr>>;
   struct Cleared {
      ForgottenStations forgotten;
      Watches watches;
   };
   std::unique_ptr<Tables> tables;  // there while a neighbour is learned
   std::unique_ptr<Cleared> cleared;
   Cleared& clearedMade() {
      if (!cleared) cleared = std::make_unique<Cleared>();
      return *cleared;
   }
   Station* station(const Wire::EthAddr& a) {
      if (!tables) return nullptr;
      auto it = tables->stations.find(a);
      return it == tables->stations.end() ? nullptr : &it->second;
   }
   Forgotten* forgottenStation(const Wire::EthAddr& a) {
      if (!cleared) return nullptr;
      auto it = cleared->forgotten.find(a);
      return it == cleared->forgotten.end() ? nullptr : &it->second;
   }
   void unwatch(int index) {
      if (cleared) cleared->watches.erase(index);
   }

private:
   void remoteSystemChanged(const int& index) override {
      sm_->handleRemoteSystem(notifier()->intfId(), index);
   }
   NbrClassificationSm* sm_;
};

NbrClassificationSm::NbrClassificationSm(Lldp::Status::PtrConst lldpStatus,
                                         Identity::NbrClassification::Status::Ptr status,
                                         Identity::NbrClassification::CliConfig::PtrConst cliConfig)
    : lldpStatus_(std::move(lldpStatus)),
      status_(std::move(status)),
      cliConfig_(std::move(cliConfig)) {
   cliReactor_.sm = this;
   statusReactor_.sm = this;
}

NbrClassificationSm::~NbrClassificationSm() = default;

void NbrClassificationSm::handleInitialized() {
   VEL_TRACE(traceLldpNbrClassification, 8, "NbrClassificationSm::handleInitialized()");
   // Whatever an earlier run left is derived afresh.
   status_->entryDelAll();
   doResetCounts();
   initialized_ = true;
   cliReactor_.notifierIs(cliConfig_);
   statusReactor_.notifierIs(lldpStatus_);
   for (const auto& [key, c] : cliConfig_->intfClass()) doSyncEntry(key);
   for (const auto& [intf, ps] : lldpStatus_->portStatus()) handlePortStatus(intf);
   // A request made before the agent started is history, not a request.
   status_->lastClearTimeIs(cliConfig_->clearRequestTime());
}

void NbrClassificationSm::doResetCounts() {
   status_->lldpTelephonesIs(0);
   status_->lldpDevicesIs(0);
   status_->configuredTelephonesIs(0);
   status_->configuredDevicesIs(0);
}

void NbrClassificationSm::doClose() {
   VEL_TRACE(traceLldpNbrClassification, 8, "NbrClassificationSm::doClose()");
   initialized_ = false;
   cliReactor_.notifierIs(nullptr);
   statusReactor_.notifierIs(nullptr);
   Wire::closeAll(portSm_);
   status_->entryDelAll();
   doResetCounts();
}

void NbrClassificationSm::handlePortStatus(const Wire::IntfId& intf) {
   if (!initialized_) return;
   auto ps = lldpStatus_->portStatus(intf);
   auto it = portSm_.find(intf);
   if (it != portSm_.end() && it->second->portStatus() != ps) {
      VEL_TRACE(traceLldpNbrClassification, 6,
                "NbrClassificationSm::handlePortStatus( " << intf << " ) removing port");
      const Vel::Ptr<PortSm> port = it->second;
      portSm_.erase(it);
      port->notifierIs(nullptr);
      // Its stations went with it.
      if (port->tables) {
         for (const auto& [ethAddr, s] : port->tables->stations) {
            doSyncEntry(EntryKey({.intfId = intf, .ethAddr = ethAddr}));
         }
      }
      if (port->cleared) {
         for (const auto& [ethAddr, f] : port->cleared->forgotten) {
            doSyncEntry(EntryKey({.intfId = intf, .ethAddr = ethAddr}));
         }
      }
      it = portSm_.end();
   }
   if (ps && it == portSm_.end()) {
      VEL_TRACE(traceLldpNbrClassification, 6,
                "NbrClassificationSm::handlePortStatus( " << intf << " ) adding port");
      auto port = Vel::make<PortSm>(this, ps);
      portSm_.add(port);
      for (const auto& [index, remote] : ps->remoteSystem()) handleRemoteSystem(intf, index);
   }
}

void NbrClassificationSm::doCount(PortSm& port, int index, const Learned& l, int sign) {
   if (l.ethAddr.isZero()) return;  // no source address: not a station
   const auto add = [sign](uint32_t n) { return uint32_t(int64_t(n) + sign); };
   if (l.cleared) {
      auto& forgotten = port.clearedMade().forgotten;
      Forgotten& f = forgotten[l.ethAddr];
      f.cleared = add(f.cleared);
      if (sign > 0) {
         f.neighbor = index;
         if (Station* s = port.station(l.ethAddr)) s->neighbor = index;
      }
      if (f.cleared == 0) forgotten.erase(l.ethAddr);
      return;
   }
   // `l` is learned, so the port's tables are there.
   auto& stations = port.tables->stations;
   Station& s = stations[l.ethAddr];
   if (l.nbrClass == NbrClass::telephone) {
      s.telephones = add(s.telephones);
   } else {
      s.devices = add(s.devices);
   }
   if (sign > 0) {
      s.neighbor = index;
      if (Forgotten* f = port.forgottenStation(l.ethAddr)) f->neighbor = index;
   }
   if (s.telephones == 0 && s.devices == 0) stations.erase(l.ethAddr);
}

void NbrClassificationSm::handleRemoteSystem(const Wire::IntfId& intf, int index) {
   if (!initialized_) return;
   PortSm* const found = portSm_.get(intf);
   if (!found) return;
   PortSm& port = *found;
   const auto remote = port.portStatus()->remoteSystem(index);
   if (!port.tables) {
      if (!remote) return;
      port.tables = std::make_unique<PortSm::Tables>();
   }
   auto& learned = port.tables->learned;
   auto l = learned.find(index);
   if (!remote) {
      if (l == learned.end()) return;
      VEL_TRACE(traceLldpNbrClassification, 6,
                "NbrClassificationSm: neighbor " << index << " gone from " << intf);
      doCount(port, index, l->second, -1);
      const EntryKey key({.intfId = intf, .ethAddr = l->second.ethAddr});
      learned.erase(l);
      port.unwatch(index);
      doSyncEntry(key);
      return;
   }
   const NbrClass nbrClass = lldpClassOf(*remote);
   const Wire::EthAddr& ethAddr = remote->ethAddr();
   // A neighbour that changed something else says nothing new about what it is.
   if (l != learned.end() && !l->second.cleared && l->second.ethAddr == ethAddr &&
       l->second.nbrClass == nbrClass) {
      return;
   }
   std::optional<EntryKey> oldKey;
   if (l != learned.end()) {
      doCount(port, index, l->second, -1);
      if (l->second.ethAddr != ethAddr) {
         oldKey = EntryKey({.intfId = intf, .ethAddr = l->second.ethAddr});
      }
   } else {
      l = learned.emplace(index, Learned()).first;
   }
   Learned& n = l->second;
   n.ethAddr = ethAddr;
   n.nbrClass = nbrClass;
   n.cleared = false;
   port.unwatch(index);
   VEL_TRACE(traceLldpNbrClassification, 6,
             "NbrClassificationSm: " << ethAddr << " on " << intf << " says " << nbrClass);
   doCount(port, index, n, +1);
   if (oldKey) doSyncEntry(*oldKey);
   doSyncEntry(EntryKey({.intfId = intf, .ethAddr = ethAddr}));
}

void NbrClassificationSm::handleRefresh(const Wire::IntfId& intf, int index) {
   PortSm* const found = portSm_.get(intf);
   if (!found) return;
   PortSm& port = *found;
   if (!port.tables || !port.cleared) return;
   auto l = port.tables->learned.find(index);
   if (l == port.tables->learned.end() || !l->second.cleared) return;
   auto& watches = port.cleared->watches;
   auto w = watches.find(index);
   if (w == watches.end()) return;
   // The watch that called goes once the call has returned to it.
   const std::unique_ptr<RefreshWatch> watch = std::move(w->second);
   watches.erase(w);
   watch->notifierIs(nullptr);
   VEL_TRACE(traceLldpNbrClassification, 6,
             "NbrClassificationSm: cleared neighbor " << index << " on " << intf << " is back");
   doCount(port, index, l->second, -1);
   l->second.cleared = false;
   doCount(port, index, l->second, +1);
   doSyncEntry(EntryKey({.intfId = intf, .ethAddr = l->second.ethAddr}));
}

void NbrClassificationSm::handleGlobalClass(const Wire::EthAddr& ethAddr) {
   VEL_TRACE(traceLldpNbrClassification, 6,
             "NbrClassificationSm::handleGlobalClass( " << ethAddr << " )");
   // The station may be on any port, and there are few ports.
   for (const auto& [intf, port] : portSm_) {
      doSyncEntry(EntryKey({.intfId = intf, .ethAddr = ethAddr}));
   }
   // Configured for a port without neighbours yet.
   for (const auto& [key, c] : cliConfig_->intfClass()) {
      if (key.ethAddr() == ethAddr && !portSm_.count(key.intfId())) doSyncEntry(key);
   }
}

void NbrClassificationSm::handleIntfClass(const EntryKey& key) {
   VEL_TRACE(traceLldpNbrClassification, 6,
             "NbrClassificationSm::handleIntfClass( " << key << " )");
   doSyncEntry(key);
}

void NbrClassificationSm::doSyncEntry(const EntryKey& key) {
   PortSm* const port = portSm_.get(key.intfId());
   const Station* s = nullptr;
   const Forgotten* f = nullptr;
   if (port) {
      s = port->station(key.ethAddr());
      f = port->forgottenStation(key.ethAddr());
   }
   const NbrClass configured = cliConfig_->configuredClass(key);
   const bool portConfigured = cliConfig_->intfClass(key) != nullptr;
   NbrClass nbrClass;
   NbrClassSource source;
   if (configured != NbrClass::none && (portConfigured || s || f)) {
      nbrClass = configured;
      source = NbrClassSource::configured;
   } else if (s && (s->telephones || s->devices)) {
      nbrClass = s->telephones ? NbrClass::telephone : NbrClass::device;
      source = NbrClassSource::lldp;
   } else {
      if (auto gone = status_->entry(key)) {
         countEntry(*status_, gone->nbrClass(), gone->source(), -1);
         status_->entryDel(key);
         VEL_TRACE(traceLldpNbrClassification, 4, "NbrClassification: removed " << key);
      }
      return;
   }
   auto entry = status_->entry(key);
   // The neighbour last counted for the station; when it has gone since, the one the entry
   // already names.
   Lldp::Msap neighbor;
   if (s || f) {
      if (auto remote = port->portStatus()->remoteSystem(s ? s->neighbor : f->neighbor)) {
         neighbor = remote->msap();
      } else if (entry) {
         neighbor = entry->neighbor();
      }
   }
   const Vel::Seconds now = Vel::EventLoop::instance().now();
   if (!entry) {
      // Filled before it is published, so readers see it whole.
      entry = Vel::make<Entry>(key);
      entry->nbrClassIs(nbrClass);
      entry->sourceIs(source);
      entry->sinceIs(now);
      entry->neighborIs(neighbor);
      VEL_TRACE(traceLldpNbrClassification, 4,
                "NbrClassification: " << key << " is a " << nbrClass << " (" << source << ")");
      countEntry(*status_, nbrClass, source, +1);
      status_->entryIs(key, entry);
      return;
   }
   if (entry->nbrClass() == nbrClass && entry->source() == source &&
       entry->neighbor() == neighbor) {
      return;
   }
   if (entry->nbrClass() != nbrClass || entry->source() != source) {
      VEL_TRACE(traceLldpNbrClassification, 4,
                "NbrClassification: " << key << " is now a " << nbrClass << " (" << source << ")");
      entry->sinceIs(now);
      countEntry(*status_, entry->nbrClass(), entry->source(), -1);
      countEntry(*status_, nbrClass, source, +1);
   }
   entry->nbrClassIs(nbrClass);
   entry->sourceIs(source);
   entry->neighborIs(neighbor);
   status_->entryTouched(key);
}

void NbrClassificationSm::doForget(PortSm& port, int index, Learned& l) {
   const Wire::IntfId& intf = port.portStatus()->intfId();
   doCount(port, index, l, -1);
   l.cleared = true;
   doCount(port, index, l, +1);
   if (auto remote = port.portStatus()->remoteSystem(index)) {
      auto& watch = port.clearedMade().watches[index];
      watch = std::make_unique<RefreshWatch>();
      watch->sm = this;
      watch->intf = intf;
      watch->index = index;
      watch->notifierIs(remote);
   }
}

void NbrClassificationSm::handleClearRequest() {
   const Vel::Seconds requestTime = cliConfig_->clearRequestTime();
   const Vel::Seconds lastClearTime = status_->lastClearTime();
   VEL_TRACE(traceLldpNbrClassification, 4,
             "NbrClassificationSm::handleClearRequest(): request from "
                 << requestTime << ", last clear time " << lastClearTime);
   if (!(lastClearTime < requestTime)) return;
   status_->lastClearTimeIs(requestTime);
   const Wire::EthAddr& ethAddr = cliConfig_->clearRequestEthAddr();
   const Wire::IntfId& onlyIntf = cliConfig_->clearRequestIntfId();
   std::set<EntryKey> keys;
   for (const auto& [intf, port] : portSm_) {
      if (!port->tables || (!onlyIntf.empty() && intf != onlyIntf)) continue;
      for (auto& [index, l] : port->tables->learned) {
         if (l.cleared || (!ethAddr.isZero() && l.ethAddr != ethAddr)) continue;
         doForget(*port, index, l);
         keys.insert(EntryKey({.intfId = intf, .ethAddr = l.ethAddr}));
      }
   }
   for (const auto& key : keys) doSyncEntry(key);
   std::string what = "all";
   if (!ethAddr.isZero()) what = "mac " + ethAddr.stringValue();
   if (!onlyIntf.empty()) {
      what = (ethAddr.isZero() ? "" : what + " ") + "interface " + onlyIntf.stringValue();
   }
   LLDP_NEIGHBOR_CLASSIFICATION_CLEARED.log(what, cliConfig_->clearRequestedBy(),
                                            cliConfig_->clearRequestedOn());
}

}  // namespace Lldp::Agent

#include "Lldp/LldpStandbyLldpStatusDirSm.h"

#include <vector>

#include "Lldp/LldpInputSm.h"
#include "Lldp/LldpMirrorCodec.h"
#include "Records/LldpRedundancy.h"

namespace Lldp::Agent {

using Input::traceLldpAgent;

StandbyCellDirSm::StandbyCellDirSm(Vel::Ptr<Vel::Dir> lldpStatusDir, uint32_t cellId)
    : lldpStatusDir_(std::move(lldpStatusDir)),
      cellId_(cellId),
      scratchPort_(Vel::make<Lldp::PortStatus>(Wire::IntfId(), 0)),
      scratchRemote_(Vel::make<Lldp::RemoteSystem>(0, Lldp::Msap())),
      scratchGlobal_(Vel::make<Lldp::StatusBase>()) {
   const std::string name = lldpStatusDirName(cellId_);
   status_ = lldpStatusDir_->entryAs<Lldp::Status>(name);
   if (!status_) {
      VEL_TRACE(traceLldpAgent, 4, "StandbyCellDirSm: mirroring cell " << cellId_);
      status_ = Vel::make<Lldp::Status>();
      lldpStatusDir_->entryIs(name, Vel::Ptr<Vel::Entity>(status_));
      created_ = true;
   }
   for (const auto& [intf, port] : status_->portStatus())
      remoteSystems_ += port->remoteSystem().size();
}

StandbyCellDirSm::~StandbyCellDirSm() = default;

void StandbyCellDirSm::doClose() {
   if (!created_) return;
   created_ = false;
   const std::string name = lldpStatusDirName(cellId_);
   const Vel::Ptr<Vel::Entity>* e = lldpStatusDir_->entry(name);
   if (e && e->ptr() == status_.ptr()) lldpStatusDir_->entryDel(name);
}

void StandbyCellDirSm::handleSnapshotBegin() {
   VEL_TRACE(traceLldpAgent, 6, "StandbyCellDirSm::handleSnapshotBegin() cell " << cellId_);
   inSnapshot_ = true;
   seenPorts_.clear();
   seenRemotes_.clear();
}

void StandbyCellDirSm::handleSnapshotEnd() {
   if (!inSnapshot_) return;
   inSnapshot_ = false;
   // Whatever the snapshot did not name is gone from the active agent.
   std::vector<Wire::IntfId> goneP;
   for (const auto& [intf, port] : status_->portStatus()) {
      if (!seenPorts_.count(intf)) {
         goneP.push_back(intf);
         continue;
      }
      std::vector<int> goneR;
      for (const auto& [index, r] : port->remoteSystem()) {
         if (!seenRemotes_.count(Key{intf, index})) goneR.push_back(index);
      }
      for (int index : goneR) doDelRemote(*port, index);
   }
   for (const auto& intf : goneP) handlePortDel(intf);
   seenPorts_ = {};
   seenRemotes_ = {};
   VEL_TRACE(traceLldpAgent, 4,
             "StandbyCellDirSm: cell " << cellId_ << " in sync, " << status_->portStatus().size()
                                       << " ports, " << remoteSystems_ << " neighbors");
}

bool StandbyCellDirSm::handlePort(const Wire::IntfId& intf, std::string_view bytes,
                                  std::string* error) {
   if (!Mirror::decode(bytes, *scratchPort_) || scratchPort_->intfId() != intf) {
      if (error) *error = "port status of " + intf.stringValue() + " does not decode";
      return false;
   }
   Lldp::PortStatus::Ptr port = status_->portStatus(intf);
   if (!port) {
      // Filled before it is added, so that those who watch see it complete.
      port = Vel::make<Lldp::PortStatus>(intf, scratchPort_->creationTime());
      Mirror::copyAttrs(*scratchPort_, *port);
      status_->portStatusIs(intf, port);
   } else {
      Mirror::copyAttrs(*scratchPort_, *port);
   }
   if (inSnapshot_) seenPorts_.insert(intf);
   return true;
}

void StandbyCellDirSm::handlePortDel(const Wire::IntfId& intf) {
   Lldp::PortStatus::Ptr port = status_->portStatus(intf);
   if (!port) return;
   remoteSystems_ -= port->remoteSystem().size();
   status_->portStatusDel(intf);
}

void StandbyCellDirSm::doDelRemote(Lldp::PortStatus& port, int index) {
   Lldp::RemoteSystem::Ptr r = port.remoteSystem(index);
   if (!r) return;
   port.remoteSystemByMsapDel(r->msap());
   port.remoteSystemDel(index);
   --remoteSystems_;
}

bool StandbyCellDirSm::handleRemoteSystem(const Wire::IntfId& intf, std::string_view bytes,
                                          std::string* error) {
   Lldp::RemoteSystem& s = *scratchRemote_;
   if (!Mirror::decode(bytes, s)) {
      if (error) *error = "a neighbor on " + intf.stringValue() + " does not decode";
      return false;
   }
   Lldp::PortStatus::Ptr port = status_->portStatus(intf);
   if (!port) {
      if (error) *error = "a neighbor on " + intf.stringValue() + ", a port not mirrored";
      return false;
   }
   if (inSnapshot_) seenRemotes_.insert(Key{intf, s.index()});
   Lldp::RemoteSystem::Ptr r = port->remoteSystem(s.index());
   if (r && r->msap() == s.msap()) {
      Mirror::copyAttrs(s, *r);
      return true;
   }
   if (r) doDelRemote(*port, s.index());  // another neighbour now holds the index
   // A neighbour that moved to another index on this port keeps only the new one.
   if (Lldp::RemoteSystem::Ptr old = port->remoteSystemByMsap(s.msap())) {
      doDelRemote(*port, old->index());
   }
   r = Vel::make<Lldp::RemoteSystem>(s.index(), s.msap());
   Mirror::copyAttrs(s, *r);
   port->remoteSystemByMsapIs(r);
   port->remoteSystemIs(r->index(), r);
   ++remoteSystems_;
   return true;
}

void StandbyCellDirSm::handleRemoteSystemDel(const Wire::IntfId& intf, int index) {
   if (Lldp::PortStatus::Ptr port = status_->portStatus(intf)) doDelRemote(*port, index);
}

bool StandbyCellDirSm::handleGlobal(std::string_view bytes, std::string* error) {
   if (!Mirror::decode(bytes, *scratchGlobal_)) {
      if (error) *error = "the global counters do not decode";
      return false;
   }
   Mirror::copyAttrs(*scratchGlobal_, *status_);
   return true;
}

// ---------------------------------------------------------------------------------------

StandbyLldpStatusDirSm::StandbyLldpStatusDirSm(Vel::Ptr<Vel::Dir> lldpStatusDir)
    : lldpStatusDir_(std::move(lldpStatusDir)) {}

StandbyLldpStatusDirSm::~StandbyLldpStatusDirSm() = default;

Vel::Ptr<StandbyCellDirSm> StandbyLldpStatusDirSm::standbyCellDirSmIs(uint32_t cellId) {
   auto& sm = standbyCellDirSm_[cellId];
   if (!sm) sm = Vel::make<StandbyCellDirSm>(lldpStatusDir_, cellId);
   return sm;
}

Vel::Ptr<StandbyCellDirSm> StandbyLldpStatusDirSm::standbyCellDirSm(uint32_t cellId) const {
   auto it = standbyCellDirSm_.find(cellId);
   return it == standbyCellDirSm_.end() ? nullptr : it->second;
}

void StandbyLldpStatusDirSm::standbyCellDirSmDel(uint32_t cellId) {
   standbyCellDirSm_.erase(cellId);
}

void StandbyLldpStatusDirSm::doClose() {
   for (auto& [cell, sm] : standbyCellDirSm_) sm->doClose();
   standbyCellDirSm_.clear();
}

}  // namespace Lldp::Agent

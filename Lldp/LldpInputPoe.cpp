#include "Lldp/LldpInputPoe.h"

#include <algorithm>
#include <vector>

#include "Lldp/LldpInputSm.h"

namespace Lldp::Agent::Input {

using PoeAgentStatus = Environment::Power::PoePortStatus;

namespace Poe {

bool shouldPoeDataFromPowerViaMdiBePublished(const Lldp::RemoteSystem& remote) {
   const Lldp::PowerViaMdiInfo& p = remote.powerViaMdiInfo();
   if (!remote.powerViaMdiTlvReceived()) {
      VEL_TRACE(traceLldpAgent, 8, "PowerViaMdiInfo not received");
      return false;
   }
   if (p.form() < Lldp::PowerViaMdiInfo::formDot3at) {
      VEL_TRACE(traceLldpAgent, 8,
                "Ignoring PowerViaMdiInfo because it was received but @ 802.3af");
      return false;
   }
   if (p.fromPse()) {
      VEL_TRACE(traceLldpAgent, 8, "Ignoring PowerViaMdiInfo because it was received from PSE");
      return false;
   }
   return true;
}

namespace {

// Later data first; between records changed at the same moment, the newer record.
bool moreRecent(const Lldp::RemoteSystem& a, const Lldp::RemoteSystem& b) {
   if (a.lastChangeTime() != b.lastChangeTime()) return a.lastChangeTime() > b.lastChangeTime();
   return a.index() > b.index();
}

}  // namespace

Vel::Ptr<const Lldp::RemoteSystem> findRemoteSystemWithPowerRequest(
    const Lldp::PortStatus& portStatus, const Vel::SmallVector<int>& requesting) {
   const Wire::IntfId& intf = portStatus.intfId();
   const char* fn = "PoeSm::findRemoteSystemWithPowerRequest( ";
   Vel::Ptr<const Lldp::RemoteSystem> best;
   const size_t found = requesting.size();
   if (found == 0) {
      VEL_TRACE(traceLldpAgent, 8,
                fn << intf << " )"
                   << ": could not find RemoteSystem with power request");
      return nullptr;
   }
   if (found > 1) {
      VEL_TRACE(traceLldpAgent, 6,
                fn << intf << " )"
                   << ": found " << found << " RemoteSystems, choosing best one");
   }
   for (int index : requesting) {
      Vel::Ptr<const Lldp::RemoteSystem> r = portStatus.remoteSystem(index);
      if (!best) {
         best = r;
         continue;
      }
      if (r->ethAddr() != best->ethAddr()) {
         VEL_TRACE(traceLldpAgent, 4,
                   fn << intf << " )"
                      << ": found 2 RemoteSystems with requested power "
                      << best->powerViaMdiInfo().pdRequestedPower() << " and "
                      << r->powerViaMdiInfo().pdRequestedPower()
                      << " from different src addresses ( " << best->ethAddr() << " and "
                      << r->ethAddr() << " ) => can not choose one");
         return nullptr;
      }
      if (moreRecent(*r, *best)) {
         VEL_TRACE(traceLldpAgent, 6,
                   fn << intf << " )"
                      << ": found more recent RemoteSystem from " << r->ethAddr()
                      << " => replacing " << best->index() << " with " << r->index());
         best = r;
      }
   }
   if (found == 1) {
      VEL_TRACE(traceLldpAgent, 6,
                fn << intf << " )"
                   << ": found RemoteSystem with power request from " << best->ethAddr());
   }
   return best;
}

void updateLocalPortFromPowerAgent(Lldp::LocalSystem& localSystem, const Wire::IntfId& intf,
                                   const PoeAgentStatus::PortStatus& status) {
   auto lp = localSystem.localPort(intf);
   if (!lp || !lp->localPortPoeInfo()) return;  // the port does not run LLDP (yet)
   VEL_TRACE(traceLldpAgent, 6,
             "Interface " << intf << " is allowed to use " << status.allocatedPower() / 10 << '.'
                          << status.allocatedPower() % 10 << " W");
   lp->localPortPoeInfo()->poePortStatusIs(status);
}

}  // namespace Poe

// ---------------------------------------------------------------------------------------
// PoeAgentPortSm.

PoeAgentPortSm::PoeAgentPortSm(PoeSm* sm, PoeAgentStatus::PtrConst agent, const Wire::IntfId& intf)
    : sm_(sm), agent_(std::move(agent)), intfId_(intf) {}

void PoeAgentPortSm::handlePoePortStatus() {
   if (const auto* status = agent_->portStatus(intfId_)) {
      Poe::updateLocalPortFromPowerAgent(*sm_->root()->localSystem(), intfId_, *status);
   }
}

// ---------------------------------------------------------------------------------------
// PoeSm.

PoeSm::PoeSm(Root* root, Vel::Ptr<const Vel::Dir> powerAgentDir,
             Lldp::PowerRequestStatus::Ptr powerRequestStatus)
    : root_(root),
      powerAgentDir_(std::move(powerAgentDir)),
      powerRequestStatus_(std::move(powerRequestStatus)) {
   dirReactor_.sm = statusReactor_.sm = localSystemReactor_.sm = this;
}

PoeSm::~PoeSm() = default;

void PoeSm::handleInitialized() {
   VEL_TRACE(traceLldpAgent, 8, "PoeSm::handleInitialized()");
   dirReactor_.notifierIs(powerAgentDir_);
   statusReactor_.notifierIs(root_->status());
   localSystemReactor_.notifierIs(root_->localSystem());
   for (const auto& [name, e] : powerAgentDir_->entry()) handlePowerAgentUpdate(name);
   for (const auto& [intf, ps] : root_->status()->portStatus()) handlePortStatus(intf);
}

void PoeSm::doClose() {
   dirReactor_.notifierIs(nullptr);
   statusReactor_.notifierIs(nullptr);
   localSystemReactor_.notifierIs(nullptr);
   portStatusReactor_.clear();
   std::vector<std::string> names;
   for (const auto& [name, a] : agent_) names.push_back(name);
   for (const auto& name : names) handlePowerAgentDelete(name);
   for (const auto& [intf, lp] : root_->localSystem()->localPort()) {
      if (lp->localPortPoeInfo()) lp->localPortPoeInfo()->remoteSystemIs(nullptr);
   }
   powerRequestStatus_->requestDelAll();
}

void PoeSm::DirReactor::entryChanged(const std::string& name) {
   if (sm->powerAgentDir_->entry(name)) {
      sm->handlePowerAgentUpdate(name);
   } else {
      sm->handlePowerAgentDelete(name);
   }
}

void PoeSm::handlePowerAgentUpdate(const std::string& name) {
   auto status = powerAgentDir_->entryAs<PoeAgentStatus>(name);
   auto it = agent_.find(name);
   if (it != agent_.end() && it->second.status == status) return;
   if (it != agent_.end()) handlePowerAgentDelete(name);  // replaced by a new entity
   if (!status) {
      VEL_TRACE(traceLldpAgent, 2,
                "PoeSm::handlePowerAgentUpdate(" << name << ") -> not a PoE port status");
      return;
   }
   Agent& agent = agent_[name];
   agent.status = status;
   agent.reactor = std::make_unique<AgentReactor>();
   agent.reactor->sm = this;
   agent.reactor->name = name;
   agent.reactor->notifierIs(status);
   VEL_TRACE(traceLldpAgent, 6, "PoeSm::handlePowerAgentUpdate(" << name << ") -> Created SM");
   for (const auto& [intf, s] : status->portStatus()) handlePoePortStatus(name, intf);
}

void PoeSm::handlePowerAgentDelete(const std::string& name) {
   auto it = agent_.find(name);
   if (it == agent_.end()) return;
   VEL_TRACE(traceLldpAgent, 6, "PoeSm::handlePowerAgentDelete(" << name << ")");
   std::vector<Wire::IntfId> ports;
   for (const auto& [intf, sm] : it->second.poeAgentPortSm) ports.push_back(intf);
   agent_.erase(it);
   for (const auto& intf : ports) doSyncPortFromAgents(intf);
}

void PoeSm::handlePoePortStatus(const std::string& name, const Wire::IntfId& intf) {
   auto it = agent_.find(name);
   if (it == agent_.end()) return;
   Agent& agent = it->second;
   auto& machines = agent.poeAgentPortSm;
   if (agent.status->portStatus(intf)) {
      if (!machines.count(intf))
         machines[intf] = Vel::make<PoeAgentPortSm>(this, agent.status, intf);
   } else {
      machines.erase(intf);
   }
   doSyncPortFromAgents(intf);
}

void PoeSm::doSyncPortFromAgents(const Wire::IntfId& intf) {
   for (const auto& [name, agent] : agent_) {
      if (auto it = agent.poeAgentPortSm.find(intf); it != agent.poeAgentPortSm.end()) {
         it->second->handlePoePortStatus();
         return;
      }
   }
   auto lp = root_->localSystem()->localPort(intf);
   if (!lp || !lp->localPortPoeInfo()) return;
   if (lp->localPortPoeInfo()->readyToSendTlv()) {
      VEL_TRACE(traceLldpAgent, 6,
                "PoeSm::handlePowerAgentDelete reset localPort PoE info for " << intf);
   }
   lp->localPortPoeInfo()->poePortStatusIs({});
}

void PoeSm::PortStatusReactor::requestingIs(int index) {
   const Lldp::RemoteSystem* remote = notifier()->remoteSystemAt(index);
   const bool asks = remote && Poe::shouldPoeDataFromPowerViaMdiBePublished(*remote);
   const int* at = std::lower_bound(requesting.begin(), requesting.end(), index);
   const bool held = at != requesting.end() && *at == index;
   if (asks && !held) {
      requesting.insert(at, index);
   } else if (!asks && held) {
      requesting.erase(at);
   }
}

void PoeSm::PortStatusReactor::remoteSystemChanged(const int& index) {
   requestingIs(index);
   sm->handleRemoteSystem(notifierPtr()->intfId());
}

void PoeSm::handlePortStatus(const Wire::IntfId& intf) {
   auto ps = root_->status()->portStatus(intf);
   auto it = portStatusReactor_.find(intf);
   if (!ps) {
      if (it != portStatusReactor_.end()) portStatusReactor_.erase(it);
   } else if (it == portStatusReactor_.end() || it->second->notifier() != ps) {
      auto reactor = std::make_unique<PortStatusReactor>();
      reactor->sm = this;
      reactor->notifierIs(ps);
      for (const auto& [index, remote] : ps->remoteSystem()) reactor->requestingIs(index);
      portStatusReactor_[intf] = std::move(reactor);
   }
   // The port's records are complete once its status exists (the local port's PoE record
   // is filled in after the local port itself appears).
   doSyncPortFromAgents(intf);
   handleRemoteSystem(intf);
}

void PoeSm::handleLocalPort(const Wire::IntfId& intf) {
   // A port that comes (back) starts from a fresh PoE record.
   doSyncPortFromAgents(intf);
   handleRemoteSystem(intf);
}

void PoeSm::handleRemoteSystem(const Wire::IntfId& intf) {
   const char* fn = "PoeSm::handleRemoteSystem( ";
   if (!root_->localSystem()) {
      VEL_TRACE(traceLldpAgent, 0,
                fn << intf << " )"
                   << "NO localSystem");
      return;
   }
   auto ps = root_->status()->portStatus(intf);
   auto lp = root_->localSystem()->localPort(intf);
   auto poe = lp ? lp->localPortPoeInfo() : nullptr;
   const auto reactor = portStatusReactor_.find(intf);
   Vel::Ptr<const Lldp::RemoteSystem> remote =
       ps && poe && reactor != portStatusReactor_.end() && reactor->second
           ? Poe::findRemoteSystemWithPowerRequest(*ps, reactor->second->requesting)
           : nullptr;
   if (remote) {
      const Lldp::PowerRequest request({.intfId = intf,
                                        .remoteIndex = remote->index(),
                                        .source = remote->ethAddr(),
                                        .chassisIdentifier = remote->msap().chassisIdentifier(),
                                        .powerViaMdiInfo = remote->powerViaMdiInfo()});
      const Lldp::PowerRequest* before = powerRequestStatus_->request(intf);
      if (poe->remoteSystem() != remote || !before || !(*before == request)) {
         VEL_TRACE(traceLldpAgent, 6,
                   fn << intf << " )"
                      << ": set Remote System to: " << remote->msap());
      }
      poe->remoteSystemIs(remote);
      powerRequestStatus_->requestIs(request);
      return;
   }
   if ((poe && poe->remoteSystem()) || powerRequestStatus_->request(intf)) {
      VEL_TRACE(traceLldpAgent, 6,
                fn << intf << " )"
                   << ": remove Remote System");
   }
   if (poe) poe->remoteSystemIs(nullptr);
   powerRequestStatus_->requestDel(intf);
}

}  // namespace Lldp::Agent::Input

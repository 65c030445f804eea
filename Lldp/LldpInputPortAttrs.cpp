#include "Lldp/LldpInputPortAttrs.h"

#include <algorithm>
#include <set>

#include "Framework/Assert.h"
#include "Lldp/LldpInputSm.h"

namespace Lldp::Agent::Input {

// ---------------------------------------------------------------------------------------
// The input machine's side: which machine serves which interface.

void InputSm::handleBridgingVlanConfig() {
   if (!initialized_) return;
   std::set<Bridging::VlanId> vlans;
   for (const auto& [vlanId, c] : root_->bridgingConfig()->vlanConfig()) vlans.insert(vlanId);
   for (const auto& [vlanId, sm] : vlanBridgingConfigSm_) vlans.insert(vlanId);
   for (const Bridging::VlanId& vlanId : vlans) handleBridgingVlanConfig(vlanId);
}

void InputSm::handleBridgingVlanConfig(const Bridging::VlanId& vlanId) {
   if (!initialized_) return;
   auto vlanConfig = root_->bridgingConfig()->vlanConfig(vlanId);
   auto it = vlanBridgingConfigSm_.find(vlanId);
   const bool wanted = vlanConfig && cliConfig_->vlanNameTx();
   if (!cliConfig_->vlanNameTx()) VEL_TRACE(traceLldpAgent, 8, "VlanName disabled in CLI");
   if (it != vlanBridgingConfigSm_.end() && (!wanted || it->second->vlanConfig() != vlanConfig)) {
      VEL_TRACE(traceLldpAgent, 8, "Delete vlanBridgingConfigSm for vlan: " << vlanId);
      it->second->doClose();
      vlanBridgingConfigSm_.erase(it);
      it = vlanBridgingConfigSm_.end();
   }
   if (wanted && it == vlanBridgingConfigSm_.end()) {
      VEL_TRACE(traceLldpAgent, 8, "Create vlanBridgingConfigSm for vlan: " << vlanId);
      auto sm = Vel::make<VlanBridgingConfigSm>(root_, vlanConfig);
      vlanBridgingConfigSm_[vlanId] = sm;
      sm->handleInitialized();
   }
}

void InputSm::handleBridgingMaxFrameSize() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleBridgingMaxFrameSize()");
   for (const auto& [intf, lp] : root_->localSystem()->localPort()) {
      if (!intf.isManagement()) syncMaximumFrameSize(*lp, *root_->bridgingConfig());
   }
}

void syncMaximumFrameSize(Lldp::LocalPort& localPort, const Bridging::Config& bridgingConfig) {
   const uint32_t* own = bridgingConfig.intfMaxFrameSize(localPort.intfId());
   const uint32_t size = std::min<uint32_t>(own ? *own : bridgingConfig.maxFrameSize(), 0xffff);
   localPort.maximumFrameSizeInfoIs(Lldp::MaximumFrameSizeInfo({.maxFrameSize = uint16_t(size)}));
}

void InputSm::handleSwitchIntfConfig(const Wire::IntfId& intf) {
   if (!initialized_) return;
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleSwitchIntfConfig( " << intf << " )");
   auto sw = root_->bridgingConfig()->switchIntfConfig(intf);
   auto it = switchIntfConfigSm_.find(intf);
   if (it != switchIntfConfigSm_.end() && it->second->switchIntfConfig() != sw) {
      // Gone or made anew: its ports lose their VLAN until a machine serves them again.
      const auto old = it->second;
      switchIntfConfigSm_.erase(it);
      old->doClose();
      it = switchIntfConfigSm_.end();
   }
   if (sw && it == switchIntfConfigSm_.end()) {
      auto sm = Vel::make<SwitchIntfConfigSm>(root_, sw);
      switchIntfConfigSm_.add(sm);
      sm->handleInitialized();
   }
   // The ports this switchport governs: itself, or an aggregate's members.
   for (const auto& [port, lp] : root_->localSystem()->localPort()) {
      if (governingSwitchIntf(port) == intf) doSyncPortSwitchIntf(*lp);
   }
}

Wire::IntfId InputSm::governingSwitchIntf(const Wire::IntfId& port) const {
   const Wire::IntfId lag = root_->portToLag(port);
   return lag.empty() ? port : lag;
}

Wire::IntfId InputSm::servingSwitchIntf(const Wire::IntfId& port) const {
   if (auto it = aggregateServed_.find(port); it != aggregateServed_.end()) return it->second;
   const SwitchIntfConfigSm* own = switchIntfConfigSm_.get(port);
   if (own && own->associatedIntfIdHas(port)) return port;
   return {};
}

void InputSm::doSyncPortSwitchIntf(Lldp::LocalPort& localPort) {
   const Wire::IntfId& port = localPort.intfId();
   const Wire::IntfId governing = governingSwitchIntf(port);
   const Wire::IntfId served = servingSwitchIntf(port);
   if (!served.empty() && served != governing) {
      if (auto it = switchIntfConfigSm_.find(served); it != switchIntfConfigSm_.end()) {
         it->second->doRemovePort(port);
      }
      aggregateServed_.erase(port);
   }
   auto it = switchIntfConfigSm_.find(governing);
   if (it == switchIntfConfigSm_.end()) {
      aggregateServed_.erase(port);
      localPort.portVlanIdIs(0);
      if (auto pc = root_->config()->portConfig(port)) doSyncPortConfigAdminStatus(*pc);
      return;
   }
   if (governing != port) aggregateServed_[port] = governing;
   if (it->second->associatedIntfIdHas(port)) {
      it->second->doSyncLocalPort(localPort);
      if (auto pc = root_->config()->portConfig(port)) doSyncPortConfigAdminStatus(*pc);
   } else {
      it->second->doAddPort(port);
   }
}

void InputSm::doRemoveLocalPort(const Wire::IntfId& port) {
   const Wire::IntfId served = servingSwitchIntf(port);
   if (served.empty()) return;
   if (auto it = switchIntfConfigSm_.find(served); it != switchIntfConfigSm_.end()) {
      it->second->doRemovePort(port);
   }
   aggregateServed_.erase(port);
}

void InputSm::handleIntfConfig(const Wire::IntfId& intf) {
   if (!initialized_) return;
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleIntfConfig( " << intf << " )");
   auto intfConfig = ethPhyIntfConfigDir_->intfConfig(intf);
   auto it = ethPhyIntfConfigSm_.find(intf);
   if (it != ethPhyIntfConfigSm_.end() && it->second->intfConfig() != intfConfig) {
      VEL_ASSERT(ethPhyIntfConfigSmHas(intf), "ethPhyIntfConfigSmHas( intfId )");
      const auto sm = it->second;
      ethPhyIntfConfigSm_.erase(it);
      sm->doClose();
      it = ethPhyIntfConfigSm_.end();
   }
   if (intfConfig && it == ethPhyIntfConfigSm_.end()) {
      VEL_ASSERT(!ethPhyIntfConfigSmHas(intf), "!ethPhyIntfConfigSmHas( intfId )");
      auto sm = Vel::make<EthPhyIntfConfigSm>(root_, intfConfig);
      ethPhyIntfConfigSm_.add(sm);
      sm->handleInitialized();
   }
}

// ---------------------------------------------------------------------------------------
// EthPhyIntfConfigSm.

EthPhyIntfConfigSm::EthPhyIntfConfigSm(Root* root, Interface::EthPhyIntfConfig::PtrConst c)
    : root_(root) {
   notifierIs(c);
}

void EthPhyIntfConfigSm::handleInitialized() {
   handleDescription();
}

void EthPhyIntfConfigSm::doClose() {
   const Lldp::LocalPort::Ptr lp = root_->localSystem()->localPort(intfId());
   notifierIs(nullptr);
   if (lp) lp->portDescIs({});
}

void EthPhyIntfConfigSm::handleDescription() {
   VEL_TRACE(traceLldpAgent, 8, "EthPhyIntfConfigSm::handleDescription( " << intfId() << " )");
   if (auto lp = root_->localSystem()->localPort(intfId())) doSyncLocalPort(*lp);
}

void EthPhyIntfConfigSm::doSyncLocalPort(Lldp::LocalPort& localPort) {
   VEL_ASSERT(localPort.intfId() == intfId(), "localPort->intfId() == intfId()");
   localPort.portDescIs(cutTo255(notifier()->description().value()));
}

// ---------------------------------------------------------------------------------------
// SwitchIntfConfigSm.

SwitchIntfConfigSm::SwitchIntfConfigSm(Root* root, Bridging::SwitchIntfConfig::PtrConst c)
    : root_(root) {
   notifierIs(c);
}

void SwitchIntfConfigSm::handleInitialized() {}

void SwitchIntfConfigSm::doClose() {
   // Its ports first: the configuration names the machine in their traces.
   for (const auto& port : associatedIntfId()) doRemovePort(port);
   notifierIs(nullptr);
}

SwitchIntfConfigSm::Ports SwitchIntfConfigSm::associatedIntfId() const {
   Ports ports(members_.begin(), members_.end());
   if (servesOwn_) ports.insert(std::lower_bound(ports.begin(), ports.end(), intfId()), intfId());
   return ports;
}

void SwitchIntfConfigSm::handleSwitchportModeAndNativeVlan() {
   VEL_TRACE(traceLldpAgent, 8,
             "SwitchIntfConfigSm::handleSwitchportModeAndNativeVlan( " << intfId() << " )");
   // A copy: the syncs below may reach doRemovePort().
   for (const auto& port : associatedIntfId()) {
      // The mode also rules whether the port may transmit.
      if (auto lp = root_->localSystem()->localPort(port)) doSyncLocalPort(*lp);
      if (auto pc = root_->config()->portConfig(port)) syncPortConfig(*pc, *root_);
   }
}

void SwitchIntfConfigSm::doSyncLocalPort(Lldp::LocalPort& localPort) {
   VEL_ASSERT(associatedIntfIdHas(localPort.intfId()),
              "associatedIntfIdHas( localPort->intfId() )");
   const Bridging::SwitchIntfConfig& config = *notifier();
   const bool routed = config.switchportMode() == Bridging::switchportModeRouted;
   localPort.portVlanIdIs(routed ? Bridging::VlanIdOrNone(0) : config.nativeVlan());
}

void SwitchIntfConfigSm::doAddPort(const Wire::IntfId& portId) {
   VEL_ASSERT(!associatedIntfIdHas(portId), "!associatedIntfIdHas( portId )");
   VEL_TRACE(traceLldpAgent, 8,
             "SwitchIntfConfigSm::doAddPort( " << intfId() << ", " << portId << " )");
   if (portId == intfId()) {
      servesOwn_ = true;
   } else {
      members_.emplace(std::lower_bound(members_.begin(), members_.end(), portId), portId);
   }
   if (auto lp = root_->localSystem()->localPort(portId)) doSyncLocalPort(*lp);
   if (auto pc = root_->config()->portConfig(portId)) syncPortConfig(*pc, *root_);
}

void SwitchIntfConfigSm::doRemovePort(const Wire::IntfId& portId) {
   VEL_TRACE(traceLldpAgent, 8,
             "SwitchIntfConfigSm::doRemovePort( " << intfId() << ", " << portId << " )");
   if (portId == intfId()) {
      servesOwn_ = false;
   } else if (auto at = std::lower_bound(members_.begin(), members_.end(), portId);
              at != members_.end() && *at == portId) {
      members_.erase(at, at + 1);
   }
   if (auto lp = root_->localSystem()->localPort(portId)) lp->portVlanIdIs(0);
}

// ---------------------------------------------------------------------------------------
// VlanBridgingConfigSm.

VlanBridgingConfigSm::VlanBridgingConfigSm(Root* root, Bridging::VlanConfig::PtrConst vlanConfig)
    : root_(root), vlanConfig_(std::move(vlanConfig)), vlanId_(vlanConfig_->vlanId()) {}

void VlanBridgingConfigSm::handleInitialized() {
   notifierIs(vlanConfig_);
   handleConfigChange();
}

void VlanBridgingConfigSm::doClose() {
   notifierIs(nullptr);
   delVlanFromAllPorts("no longer advertised");
}

bool VlanBridgingConfigSm::carries(const Wire::IntfId& port) const {
   // An aggregate's member carries what the aggregate carries.
   const Wire::IntfId lag = root_->portToLag(port);
   return vlanConfig_->member(lag.empty() ? port : lag);
}

std::optional<Lldp::VlanName> VlanBridgingConfigSm::vlanName() const {
   // A platform may name a VLAN longer than the TLV can carry: that name is refused (and
   // said so), never thrown out of the reactor.
   try {
      return Lldp::VlanName({.vlanId = vlanId_, .name = vlanConfig_->name()});
   } catch (const Vel::RangeException& e) {
      VEL_TRACE(traceLldpAgent, 0, "VLAN " << vlanId_ << " name not advertised: " << e.what());
      return std::nullopt;
   }
}

void VlanBridgingConfigSm::handleConfigChange() {
   VEL_TRACE(traceLldpAgent, 8, "VlanBridgingConfigSm::handleConfigChange( " << vlanId_ << " )");
   for (const auto& [intf, ps] : root_->status()->portStatus()) handleConfigChange(intf);
}

void VlanBridgingConfigSm::handleConfigChange(const Wire::IntfId& intf, bool onlyWhenDifferent) {
   Lldp::PortStatus::Ptr ps = root_->status()->portStatus(intf);
   if (!ps) {
      VEL_TRACE(traceLldpAgent, 8, "No portStatus for " << intf);
      return;
   }
   if (const bool* promoted = vlanConfig_->promotedPort(intf); promoted && *promoted) {
      VEL_TRACE(
          traceLldpAgent, 8,
          "Skipping " << vlanId_ << " for portStatus/" << intf << " because it is promotedPort");
      return;
   }
   const std::optional<Lldp::VlanName> name = vlanName();
   if (name && carries(intf)) {
      // A change of the VLAN's configuration is news for the port even when its name
      // stays; a port merely re-synced hears only of a real difference.
      if (!onlyWhenDifferent || !ps->vlanName(vlanId_) || !(*ps->vlanName(vlanId_) == *name)) {
         VEL_TRACE(traceLldpAgent, 8, "Adding " << vlanId_ << " to portStatus/" << intf);
         ps->vlanNameIs(*name);
         ps->vlanNamesChangedIs(true);
      }
   } else if (ps->vlanName(vlanId_)) {
      VEL_TRACE(traceLldpAgent, 8, "Deleting " << vlanId_ << " from portStatus/" << intf);
      ps->vlanNameDel(vlanId_);
   }
}

void VlanBridgingConfigSm::handleMemberChange(const Wire::IntfId& intf) {
   // A port is settled alone; anything else (an aggregate) may govern several ports.
   if (root_->status()->portStatus(intf)) {
      handleConfigChange(intf);
   } else {
      handleConfigChange();
   }
}

void VlanBridgingConfigSm::handleNameChange() {
   VEL_TRACE(traceLldpAgent, 8, "VlanBridgingConfigSm::handleNameChange( " << vlanId_ << " )");
   const std::optional<Lldp::VlanName> name = vlanName();
   if (!name) {
      delVlanFromAllPorts("name out of range");
      return;
   }
   // Ports that carry the VLAN may not hold its name yet (the last one was refused).
   for (const auto& [intf, ps] : root_->status()->portStatus()) {
      if (ps->vlanName(vlanId_) || carries(intf)) writeName(*ps, *name);
   }
}

bool VlanBridgingConfigSm::writeName(Lldp::PortStatus& ps, const Lldp::VlanName& name) {
   // Only a real difference is news for the transmit side.
   if (const auto* stored = ps.vlanName(vlanId_); stored && *stored == name) return false;
   ps.vlanNameIs(name);
   ps.vlanNamesChangedIs(true);
   return true;
}

void VlanBridgingConfigSm::delVlanFromAllPorts(const char* reason) {
   VEL_TRACE(traceLldpAgent, 8,
             "Deleting " << vlanId_ << " from all localport becasue it's " << reason);
   for (const auto& [intf, ps] : root_->status()->portStatus()) {
      if (ps->vlanName(vlanId_)) ps->vlanNameDel(vlanId_);
   }
}

}  // namespace Lldp::Agent::Input

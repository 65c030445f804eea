#include "Lldp/LldpInputPorts.h"

#include <algorithm>

#include "Framework/Vel/EventLoop.h"
#include "Lldp/LldpInputSm.h"

namespace Lldp::Agent::Input {

// ---------------------------------------------------------------------------------------
// CliPortConfigSm.

CliPortConfigSm::CliPortConfigSm(Root* root, Lldp::CliPortConfig::PtrConst cliPortConfig)
    : root_(root), cliPortConfig_(std::move(cliPortConfig)) {}

void CliPortConfigSm::handleInitialized() {
   notifierIs(cliPortConfig_);
   handleAdminStatus();
   handleRxRateLimit();
   handleNetworkPolicyCliConfig();
   handlePoeAllocatedPowerFallback();
   handleZtpBootVlan();
   handleRemoteSystemLimit();
}

void CliPortConfigSm::doClose() {
   notifierIs(nullptr);
   const Wire::IntfId& intf = cliPortConfig_->intfId();
   if (auto pc = root_->config()->portConfig(intf)) {
      portAdminStatusIs(*pc, Lldp::adminStatusTxAndRx, *root_->bridgingConfig(), *root_);
      pc->ztpBootVlanIs(0);
      pc->poeAllocatedPowerFallbackIs(0);
      const Lldp::PortConfig defaults(intf);
      pc->rxRateLimitEnabledIs(defaults.rxRateLimitEnabled());
      pc->rxRateLimitMaxLldpdusIs(defaults.rxRateLimitMaxLldpdus());
      pc->rxRateLimitIntervalIs(defaults.rxRateLimitInterval());
      // The network policies stay until the port's configuration is synced again.
   }
   if (auto lp = root_->localSystem()->localPort(intf)) lp->ztpBootVlanIs(0);
   handleRemoteSystemLimit();
}

void CliPortConfigSm::handleAdminStatus() {
   if (auto pc = root_->config()->portConfig(cliPortConfig_->intfId())) {
      if (root_->inputSm()) root_->inputSm()->doSyncPortConfigAdminStatus(*pc);
   }
}

void CliPortConfigSm::handleRxRateLimit() {
   if (auto pc = root_->config()->portConfig(cliPortConfig_->intfId())) {
      pc->rxRateLimitEnabledIs(cliPortConfig_->rxRateLimitEnabled());
      pc->rxRateLimitMaxLldpdusIs(cliPortConfig_->rxRateLimitMaxLldpdus());
      pc->rxRateLimitIntervalIs(cliPortConfig_->rxRateLimitInterval());
   }
}

void CliPortConfigSm::handleZtpBootVlan() {
   const Wire::IntfId& intf = cliPortConfig_->intfId();
   VEL_TRACE(traceLldpAgent, 8,
             "CliPortConfigSm::handleZtpBootVlan() for "
                 << intf << " ztpBootVlan: " << cliPortConfig_->ztpBootVlan());
   if (auto pc = root_->config()->portConfig(intf))
      pc->ztpBootVlanIs(cliPortConfig_->ztpBootVlan());
   if (auto lp = root_->localSystem()->localPort(intf)) {
      lp->ztpBootVlanIs(cliPortConfig_->ztpBootVlan());
   }
}

void CliPortConfigSm::handleRemoteSystemLimit() {
   auto pc = root_->config()->portConfig(cliPortConfig_->intfId());
   if (pc && root_->inputSm()) root_->inputSm()->doSyncPortConfigRemoteSystemLimit(*pc);
}

void CliPortConfigSm::handlePoeAllocatedPowerFallback() {
   const Wire::IntfId& intf = cliPortConfig_->intfId();
   auto pc = root_->config()->portConfig(intf);
   if (!pc) {
      VEL_TRACE(traceLldpAgent, 8,
                "CliPortConfigSm::handlePoeAllocatedPowerFallback() for "
                    << intf << " portConfig not found");
      return;
   }
   VEL_TRACE(traceLldpAgent, 8,
             "CliPortConfigSm::handlePoeAllocatedPowerFallback() for "
                 << intf << " fallbackPower: " << cliPortConfig_->poeAllocatedPowerFallback());
   pc->poeAllocatedPowerFallbackIs(cliPortConfig_->poeAllocatedPowerFallback());
}

void CliPortConfigSm::handleNetworkPolicyCliConfig(uint8_t appType) {
   const Wire::IntfId& intf = cliPortConfig_->intfId();
   VEL_TRACE(traceLldpAgent, 8,
             "CliPortConfigSm::handleNetworkPolicyCliConfig(" << int(appType) << ")"
                                                              << " for " << intf);
   auto pc = root_->config()->portConfig(intf);
   if (!pc) return;
   if (const auto* c = cliPortConfig_->networkPolicyConfig(appType)) {
      pc->networkPolicyConfigIs(*c);
   } else {
      pc->networkPolicyConfigDel(appType);
   }
   if (auto lp = root_->localSystem()->localPort(intf)) {
      syncMedNetworkPolicyCapability(*lp, !pc->networkPolicyConfig().empty());
   }
}

void CliPortConfigSm::handleNetworkPolicyCliConfig() {
   VEL_TRACE(traceLldpAgent, 8,
             "CliPortConfigSm::handleNetworkPolicyCliConfig(all) for " << cliPortConfig_->intfId());
   if (auto pc = root_->config()->portConfig(cliPortConfig_->intfId())) {
      syncPortConfigNetworkPolicy(*pc, cliPortConfig_.ptr(), *root_);
   }
}

// ---------------------------------------------------------------------------------------
// Ports.

EthPhyIntfStatusSm::EthPhyIntfStatusSm(Root* root, Interface::EthPhyIntfStatus::PtrConst status)
    : root_(root), intfStatus_(std::move(status)) {}

void EthPhyIntfStatusSm::handleInitialized() {
   notifierIs(intfStatus_);
   handleForwardingModel();
}

void EthPhyIntfStatusSm::handleForwardingModel() {
   // A port that port authentication holds at "data link" still runs LLDP with bypass.
   const uint8_t model = intfStatus_->forwardingModel();
   const bool bypass = lldpBypass(*root_, intfId());
   const uint8_t limit =
       bypass ? Interface::forwardingModelDataLink : Interface::forwardingModelBridged;
   const bool takesPart = model >= limit;
   if (takesPart && model < Interface::forwardingModelBridged) {
      VEL_TRACE(traceLldpAgent, 6,
                "LLDP bypass enabled, using interface ( "
                    << intfId() << " ) with forwardingModel:" << int(model));
   }
   if (takesPart && !active_) {
      doCreatePort();
   } else if (!takesPart && active_) {
      VEL_TRACE(traceLldpAgent, 6, "EthPhyIntfStatusSm::handleForwardingModel for " << intfId());
      doClose();
      notifierIs(intfStatus_);  // still watching for the port to come back
   }
}

void EthPhyIntfStatusSm::doCreatePort() {
   const Wire::IntfId& intf = intfId();
   VEL_TRACE(traceLldpAgent, 6, "EthPhyIntfStatusSm::doCreatePort for " << intf);
   active_ = true;
   Lldp::PortConfig::Ptr pc = root_->config()->portConfigIs(intf);
   Lldp::LocalPort::Ptr lp = root_->localSystem()->localPortIs(intf);
   lp->initilizeLocalPortPoeInfo();
   root_->status()->portStatusIs(intf, Vel::EventLoop::instance().now());
   lp->portIdentifierIs(Lldp::PortIdentifier({.subtype = 5, .value = cutTo255(intf.name())}));
   if (intf.isManagement()) {
      if (auto* dir = root_->activeEthIntfStatusDirSm().ptr()) {
         if (auto* mgmt = dir->mgmtEthPhyIntfStatusSm(intf)) mgmt->handleMaxMtu();
      }
   } else {
      syncMaximumFrameSize(*lp, *root_->bridgingConfig());
   }
   syncLinkAggregationInfo(*lp, *root_);
   syncPortConfig(*pc, *root_);
   if (root_->inputSm()) root_->inputSm()->doSyncLocalPort(*lp);
   // Last: packet access (and with it the port's protocol machine) finds every record
   // filled in.
   root_->desiredIntfDir()->intfDesiredIs(intf, true);
}

MgmtEthPhyIntfStatusSm::MgmtEthPhyIntfStatusSm(Root* root,
                                               Interface::EthPhyIntfStatus::PtrConst status)
    : root_(root), intfStatus_(std::move(status)) {}

void MgmtEthPhyIntfStatusSm::handleInitialized() {
   notifierIs(intfStatus_);
   handleMaxMtu();
}

void MgmtEthPhyIntfStatusSm::doClose() {
   notifierIs(nullptr);
}

void MgmtEthPhyIntfStatusSm::handleMaxMtu() {
   VEL_TRACE(traceLldpAgent, 8, "MgmtEthPhyIntfStatusSm::handleMaxMtu( " << intfId() << " )");
   // The record exists only while the port takes part in LLDP.
   if (auto lp = root_->localSystem()->localPort(intfId())) {
      const uint32_t maxMtu = intfStatus_->maxMtu();
      const uint16_t size = uint16_t(std::min<uint32_t>(maxMtu, 0xffff - 18) + 18);
      lp->maximumFrameSizeInfoIs(Lldp::MaximumFrameSizeInfo({.maxFrameSize = size}));
   }
}

void EthPhyIntfStatusSm::doClose() {
   notifierIs(nullptr);
   if (!active_) return;
   active_ = false;
   const Wire::IntfId intf = intfId();
   VEL_TRACE(traceLldpAgent, 6, "EthPhyIntfStatusSm::doClose for " << intf);
   root_->desiredIntfDir()->intfDesiredDel(intf);
   if (root_->inputSm()) root_->inputSm()->doRemoveLocalPort(intf);
   root_->config()->portConfigDel(intf);
   root_->status()->portStatusDel(intf);
   root_->localSystem()->localPortDel(intf);
}

ActiveEthIntfStatusDirSm::ActiveEthIntfStatusDirSm(Root* root,
                                                   Interface::EthPhyIntfStatusDir::PtrConst phyDir,
                                                   Interface::EthLagIntfStatusDir::PtrConst lagDir)
    : root_(root), phyDir_(std::move(phyDir)), lagDir_(std::move(lagDir)) {
   phyDirReactor_.sm = lagDirReactor_.sm = this;
}

ActiveEthIntfStatusDirSm::~ActiveEthIntfStatusDirSm() = default;

void ActiveEthIntfStatusDirSm::handleInitialized() {
   phyDirReactor_.notifierIs(phyDir_);
   lagDirReactor_.notifierIs(lagDir_);
   // Aggregates first, so that ports start with their aggregate's settings.
   for (const auto& [lag, s] : lagDir_->intfStatus()) handleLagIntfStatus(lag);
   for (const auto& [intf, s] : phyDir_->intfStatus()) handlePhyIntfStatus(intf);
}

void ActiveEthIntfStatusDirSm::doClose() {
   phyDirReactor_.notifierIs(nullptr);
   lagDirReactor_.notifierIs(nullptr);
   for (const auto& sm : Wire::valuesOf(mgmtEthPhyIntfStatusSm_)) sm->doClose();
   mgmtEthPhyIntfStatusSm_.clear();
   for (const auto& sm : Wire::valuesOf(ethPhyIntfStatusSm_)) sm->doClose();
   ethPhyIntfStatusSm_.clear();
   for (const auto& sm : Wire::valuesOf(ethLagIntfStatusSm_)) sm->doClose();
   ethLagIntfStatusSm_.clear();
}

void ActiveEthIntfStatusDirSm::handlePhyIntfStatus(const Wire::IntfId& intf) {
   VEL_TRACE(traceLldpAgent, 8, "ActiveEthIntfStatusDirSm::handlePhyIntfStatus( " << intf << " )");
   const auto status = lldpCapable(intf) ? phyDir_->intfStatus(intf) : nullptr;
   auto it = ethPhyIntfStatusSm_.find(intf);
   // Gone, or a new record for the port: the old machine removes what it published.
   if (it != ethPhyIntfStatusSm_.end() && it->second->intfStatus() != status) {
      if (auto mgmt = mgmtEthPhyIntfStatusSm_.find(intf); mgmt != mgmtEthPhyIntfStatusSm_.end()) {
         mgmt->second->doClose();
         mgmtEthPhyIntfStatusSm_.erase(mgmt);
      }
      const auto sm = it->second;
      ethPhyIntfStatusSm_.erase(it);
      sm->doClose();
      it = ethPhyIntfStatusSm_.end();
   }
   if (status && it == ethPhyIntfStatusSm_.end()) {
      // The frame size machine first: creating the port's records asks it for the size.
      if (intf.isManagement()) {
         auto mgmt = Vel::make<MgmtEthPhyIntfStatusSm>(root_, status);
         mgmtEthPhyIntfStatusSm_[intf] = mgmt;
         mgmt->handleInitialized();
      }
      auto sm = Vel::make<EthPhyIntfStatusSm>(root_, status);
      ethPhyIntfStatusSm_.add(sm);
      sm->handleInitialized();
   }
}

MgmtEthPhyIntfStatusSm* ActiveEthIntfStatusDirSm::mgmtEthPhyIntfStatusSm(
    const Wire::IntfId& intf) const {
   auto it = mgmtEthPhyIntfStatusSm_.find(intf);
   return it == mgmtEthPhyIntfStatusSm_.end() ? nullptr : it->second.ptr();
}

void ActiveEthIntfStatusDirSm::handleLagIntfStatus(const Wire::IntfId& lag) {
   VEL_TRACE(traceLldpAgent, 8, "ActiveEthIntfStatusDirSm::handleLagIntfStatus( " << lag << " )");
   const auto status = lagDir_->intfStatus(lag);
   auto it = ethLagIntfStatusSm_.find(lag);
   if (it != ethLagIntfStatusSm_.end() && it->second->lagIntfStatus() != status) {
      const auto sm = it->second;
      ethLagIntfStatusSm_.erase(it);
      sm->doClose();
      it = ethLagIntfStatusSm_.end();
   }
   if (status && it == ethLagIntfStatusSm_.end()) {
      auto sm = Vel::make<EthLagIntfStatusSm>(root_, status);
      ethLagIntfStatusSm_[lag] = sm;
      sm->handleInitialized();
   }
}

// ---------------------------------------------------------------------------------------
// StandbyEthIntfStatusDirSm.

StandbyEthIntfStatusDirSm::StandbyEthIntfStatusDirSm(
    Root* root, Interface::EthPhyIntfStatusDir::PtrConst phyDir)
    : root_(root), phyDir_(std::move(phyDir)) {}

void StandbyEthIntfStatusDirSm::handleInitialized() {
   VEL_TRACE(traceLldpAgent, 8, "StandbyEthIntfStatusDirSm::handleInitialized()");
   notifierIs(phyDir_);
   for (const auto& [intf, s] : phyDir_->intfStatus()) doMaybeCreateDesiredIntf(intf);
}

void StandbyEthIntfStatusDirSm::doClose() {
   notifierIs(nullptr);
   for (const auto& intf : desired_) root_->desiredIntfDir()->intfDesiredDel(intf);
   desired_.clear();
}

void StandbyEthIntfStatusDirSm::doMaybeCreateDesiredIntf(const Wire::IntfId& intf) {
   VEL_TRACE(traceLldpAgent, 8,
             "StandbyEthIntfStatusDirSm::doMaybeCreateDesiredIntf( " << intf << " )");
   if (lldpCapable(intf) && phyDir_->intfStatus(intf)) {
      if (desired_.insert(intf).second) root_->desiredIntfDir()->intfDesiredIs(intf, true);
   } else if (desired_.erase(intf)) {
      root_->desiredIntfDir()->intfDesiredDel(intf);
   }
}

// ---------------------------------------------------------------------------------------
// EthLagIntfStatusSm.

EthLagIntfStatusSm::EthLagIntfStatusSm(Root* root, Interface::EthLagIntfStatus::PtrConst status)
    : root_(root), lagIntfStatus_(std::move(status)) {}

void EthLagIntfStatusSm::handleInitialized() {
   VEL_TRACE(traceLldpAgent, 8, "EthLagIntfStatusSm::handleInitialized( " << intfId() << " )");
   notifierIs(lagIntfStatus_);
   for (const auto& [port, member] : lagIntfStatus_->member()) {
      if (!member) continue;
      member_.insert(port);
      addLagMember(port, intfId(), *root_);
   }
}

void EthLagIntfStatusSm::doClose() {
   VEL_TRACE(traceLldpAgent, 8, "EthLagIntfStatusSm::doClose( " << intfId() << " )");
   notifierIs(nullptr);
   while (!member_.empty()) {
      const Wire::IntfId port = *member_.begin();
      member_.erase(member_.begin());
      removeLagMember(port, intfId(), *root_);
   }
}

void EthLagIntfStatusSm::handleMember(const Wire::IntfId& intf) {
   VEL_TRACE(traceLldpAgent, 8,
             "EthLagIntfStatusSm::handleMember( " << intfId() << ", " << intf << " )");
   const bool* member = lagIntfStatus_->member(intf);
   const bool now = member && *member;
   if (now == (member_.count(intf) != 0)) return;
   if (now) {
      member_.insert(intf);
      addLagMember(intf, intfId(), *root_);
   } else {
      member_.erase(intf);
      removeLagMember(intf, intfId(), *root_);
   }
}

}  // namespace Lldp::Agent::Input

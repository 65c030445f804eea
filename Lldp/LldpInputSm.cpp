#include "Lldp/LldpInputSm.h"

#include <algorithm>
#include <set>

#include "Framework/Assert.h"
#include "Framework/Vel/EventLoop.h"
#include "Lldp/LldpEvents.h"
#include "Lldp/LldpToggles.h"

namespace Lldp::Agent::Input {

Vel::Trace::Handle traceLldpAgent("LldpAgent");

namespace {

constexpr size_t maxString = 255;

std::string cut(std::string_view s) {
   return std::string(s.substr(0, std::min(s.size(), maxString)));
}

// Switchport modes whose ports must not send LLDP of their own.
bool suppressesTransmit(uint8_t mode) {
   return mode == Bridging::switchportModeDot1qTunnel || mode == Bridging::switchportModeTap ||
          mode == Bridging::switchportModeTool;
}

const Lldp::ManAddrPriority zeroPriority{};

uint16_t frameSizeOf(uint32_t mtu) {
   return uint16_t(std::min<uint32_t>(mtu + 18, 0xffff));
}

}  // namespace

bool lldpCapable(const Wire::IntfId& intf) {
   return intf.isEthernet() || intf.isManagement();
}

void getEnabledTlvValues(const Lldp::CliConfig& cli, Lldp::EnabledTlvs& enabledTlvs,
                         bool& mgmtAddrTxEnable, bool& portVlanTxEnable, bool& vlanNameTxEnable,
                         Lldp::Dot3EnabledTlvs& dot3EnabledTlvs,
                         Lldp::TiaEnabledTlvs& tiaEnabledTlvs) {
   enabledTlvs.portDescriptionIs(cli.portDescriptionTx());
   enabledTlvs.systemNameIs(cli.systemNameTx());
   enabledTlvs.systemDescriptionIs(cli.systemDescriptionTx());
   enabledTlvs.systemCapabilitiesIs(cli.systemCapabilitiesTx());
   mgmtAddrTxEnable = cli.managementAddressTx();
   portVlanTxEnable = cli.portVlanTx();
   vlanNameTxEnable = cli.vlanNameTx();
   dot3EnabledTlvs.linkAggregationIs(cli.linkAggregationTx());
   dot3EnabledTlvs.maxFrameSizeIs(cli.maxFrameSizeTx());
   dot3EnabledTlvs.powerViaMdiIs(cli.powerViaMdiTx());
   tiaEnabledTlvs.networkPolicyIs(cli.medNetworkPolicyTx());
}

uint32_t txDelayFor(uint32_t messageTxInterval) {
   return messageTxInterval <= 1 ? messageTxInterval : 2;
}

std::string systemNameOf(const std::string& hostname, const std::string& domainName) {
   return cut(domainName.empty() ? hostname : hostname + "." + domainName);
}

// ---------------------------------------------------------------------------------------
// Free functions shared by the machines.

void portAdminStatusIs(Lldp::PortConfig& portConfig, Lldp::AdminStatus requested,
                       const Bridging::Config& bridgingConfig, const Root& root) {
   const Wire::IntfId lag = root.portToLag(portConfig.intfId());
   const Wire::IntfId& governing = lag.empty() ? portConfig.intfId() : lag;
   Lldp::AdminStatus status = requested;
   if (auto sw = bridgingConfig.switchIntfConfig(governing);
       sw && suppressesTransmit(sw->switchportMode())) {
      if (requested == Lldp::adminStatusTxAndRx) status = Lldp::adminStatusRxOnly;
      if (requested == Lldp::adminStatusTxOnly) status = Lldp::adminStatusDisabled;
   }
   VEL_TRACE(
       traceLldpAgent, 8,
       "portAdminStatusIs( " << portConfig.intfId() << " ): " << requested << " -> " << status);
   portConfig.adminStatusIs(status);
}

void syncPortConfig(Lldp::PortConfig& portConfig, Root& root) {
   if (root.inputSm()) root.inputSm()->doSyncPortConfig(portConfig);
}

void syncLinkAggregationInfo(Lldp::LocalPort& localPort, const Root& root) {
   const Wire::IntfId lag = root.portToLag(localPort.intfId());
   Lldp::LinkAggStatusMap status;
   status.capableIs(true);
   status.enabledIs(!lag.empty());
   VEL_ASSERT(status.capable(), "status.aggCapable()");
   localPort.linkAggregationInfoIs(Lldp::LinkAggregationInfo(
       {.status = status, .aggregatedPortId = lag.empty() ? 0 : root.ifIndexVal(lag)}));
}

void maybeAddFallbackManAddr(Root& root) {
   Lldp::LocalSystem& local = *root.localSystem();
   for (const auto& [prio, key] : local.managementAddressPrio()) {
      if (!(prio == zeroPriority)) return;
   }
   if (!root.fallbackManagementAddressKeyPresent()) return;
   const Lldp::ManagementAddress::Key& key = root.fallbackManagementAddressKey();
   const Lldp::ManagementAddress* addr = local.managementAddress(key);
   if (!addr || *addr == Lldp::ManagementAddress()) return;
   VEL_TRACE(traceLldpAgent, 6, "Adding fallback management address " << key);
   local.managementAddressPrioIs(zeroPriority, key);
}

void removeFallbackManAddr(Root& root) {
   Lldp::LocalSystem& local = *root.localSystem();
   if (const auto* key = local.managementAddressPrio(zeroPriority)) {
      VEL_TRACE(traceLldpAgent, 6, "Deleting fallback management address " << *key);
      local.managementAddressPrioDel(zeroPriority);
   }
}

// ---------------------------------------------------------------------------------------
// Root.

Root::~Root() = default;

void Root::inputSmIs(Lldp::CliConfig::PtrConst cliConfig,
                     Interface::EthPhyIntfConfigDir::PtrConst ethPhyIntfConfigDir,
                     Routing::Config::PtrConst routingConfig,
                     EntityMib::SysDescr::PtrConst sysDescr,
                     System::NetStatus::PtrConst netStatus) {
   if (inputSm_) return;
   inputSm_ =
       Vel::make<InputSm>(this, std::move(cliConfig), std::move(ethPhyIntfConfigDir),
                          std::move(routingConfig), std::move(sysDescr), std::move(netStatus));
   inputSm_->handleInitialized();
}

void Root::inputSmDel() {
   if (auto sm = std::exchange(inputSm_, nullptr)) sm->doClose();
}

void Root::activeEthIntfStatusDirSmIs(Interface::EthPhyIntfStatusDir::PtrConst phyDir,
                                      Interface::EthLagIntfStatusDir::PtrConst lagDir) {
   if (activeEthIntfStatusDirSm_) return;
   activeEthIntfStatusDirSm_ =
       Vel::make<ActiveEthIntfStatusDirSm>(this, std::move(phyDir), std::move(lagDir));
   activeEthIntfStatusDirSm_->handleInitialized();
}

void Root::activeEthIntfStatusDirSmDel() {
   if (auto sm = std::exchange(activeEthIntfStatusDirSm_, nullptr)) sm->doClose();
}

void Root::remTablesClearRequestSmIs(Lldp::RemTablesCliConfig::PtrConst remTablesCliConfig) {
   if (remTablesClearRequestSm_) return;
   remTablesClearRequestSm_ =
       Vel::make<RemTablesClearRequestSm>(this, std::move(remTablesCliConfig));
   remTablesClearRequestSm_->handleInitialized();
}

void Root::remTablesClearRequestSmDel() {
   if (auto sm = std::exchange(remTablesClearRequestSm_, nullptr)) sm->doClose();
}

void Root::doClose() {
   // Ports first: their records go while the input machine can still see them.
   activeEthIntfStatusDirSmDel();
   inputSmDel();
   remTablesClearRequestSmDel();
}

RemTablesClearRequestSm::RemTablesClearRequestSm(Root* root,
                                                 Lldp::RemTablesCliConfig::PtrConst cliConfig)
    : root_(root), remTablesCliConfig_(std::move(cliConfig)) {}

void RemTablesClearRequestSm::handleInitialized() {
   notifierIs(remTablesCliConfig_);
   handleRemTablesClearRequest();
}

void RemTablesClearRequestSm::doClose() {
   notifierIs(nullptr);
}

void RemTablesClearRequestSm::handleRemTablesClearRequest() {
   const Vel::Seconds requestTime = remTablesCliConfig_->clearRequestTime();
   const Vel::Seconds lastClearTime = root_->remTablesStatus()->remTablesLastClearTime();
   const Vel::Seconds now = Vel::EventLoop::instance().now();
   VEL_TRACE(traceLldpAgent, 4,
             "handleRemTablesClearRequest() at " << now << ": handling request from " << requestTime
                                                 << ", because last clear time is " << lastClearTime
                                                 << ".");
   if (!(lastClearTime < requestTime)) return;
   root_->remTablesStatus()->remTablesLastClearTimeIs(requestTime);
   for (auto& [intf, portStatus] : root_->status()->portStatus()) {
      // The index first, so that no record is ever in it without being in the table.
      portStatus->remoteSystemByMsapDelAll();
      portStatus->remoteSystemDelAll();
   }
   root_->status()->remTablesLastChangeTimeIs(now);
   Lldp::LLDP_REMOTE_TABLES_CLEARED.log(remTablesCliConfig_->clearRequestedBy(),
                                        remTablesCliConfig_->clearRequestedOn());
}

uint32_t Root::ifIndexVal(const Wire::IntfId& intf) const {
   auto status = allIntfStatusDir_ ? allIntfStatusDir_->intfStatus(intf) : nullptr;
   if (!status) {
      VEL_TRACE(traceLldpAgent, 2, "Failed to create IntfDetailsProvider for interface " << intf);
      return 0;
   }
   return status->ifIndex();
}

Wire::IntfId Root::portToLag(const Wire::IntfId& port) const {
   auto it = portToLagsMap_.find(port);
   return it == portToLagsMap_.end() || it->second.empty() ? Wire::IntfId() : *it->second.begin();
}

void Root::lagMemberIs(const Wire::IntfId& port, const Wire::IntfId& lag, bool member) {
   if (member) {
      portToLagsMap_[port].insert(lag);
      return;
   }
   auto it = portToLagsMap_.find(port);
   if (it == portToLagsMap_.end()) return;
   it->second.erase(lag);
   if (it->second.empty()) portToLagsMap_.erase(it);
}

// ---------------------------------------------------------------------------------------
// CliPortConfigSm.

CliPortConfigSm::CliPortConfigSm(Root* root, Lldp::CliPortConfig::PtrConst cliPortConfig)
    : root_(root), cliPortConfig_(std::move(cliPortConfig)) {}

void CliPortConfigSm::handleInitialized() {
   notifierIs(cliPortConfig_);
   handleAdminStatus();
   handleRxRateLimit();
   handlePoeAllocatedPowerFallback();
   handleZtpBootVlan();
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
   }
   if (auto lp = root_->localSystem()->localPort(intf)) lp->ztpBootVlanIs(0);
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

void CliPortConfigSm::handlePoeAllocatedPowerFallback() {
   if (auto pc = root_->config()->portConfig(cliPortConfig_->intfId())) {
      pc->poeAllocatedPowerFallbackIs(cliPortConfig_->poeAllocatedPowerFallback());
   }
}

// ---------------------------------------------------------------------------------------
// InputSm.

InputSm::InputSm(Root* root, Lldp::CliConfig::PtrConst cliConfig,
                 Interface::EthPhyIntfConfigDir::PtrConst ethPhyIntfConfigDir,
                 Routing::Config::PtrConst routingConfig, EntityMib::SysDescr::PtrConst sysDescr,
                 System::NetStatus::PtrConst netStatus)
    : root_(root),
      cliConfig_(std::move(cliConfig)),
      ethPhyIntfConfigDir_(std::move(ethPhyIntfConfigDir)),
      routingConfig_(std::move(routingConfig)),
      sysDescr_(std::move(sysDescr)),
      netStatus_(std::move(netStatus)) {
   cliReactor_.sm = bridgingReactor_.sm = intfConfigDirReactor_.sm = routingReactor_.sm =
       sysDescrReactor_.sm = netStatusReactor_.sm = this;
}

InputSm::~InputSm() = default;

void InputSm::handleInitialized() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleInitialized()");
   initialized_ = true;
   cliReactor_.notifierIs(cliConfig_);
   bridgingReactor_.notifierIs(root_->bridgingConfig());
   intfConfigDirReactor_.notifierIs(ethPhyIntfConfigDir_);
   routingReactor_.notifierIs(routingConfig_);
   sysDescrReactor_.notifierIs(sysDescr_);
   netStatusReactor_.notifierIs(netStatus_);
   for (const auto& [intf, c] : ethPhyIntfConfigDir_->intfConfig()) handleIntfConfig(intf);
   handleBridgeMacAddr();
   for (const auto& [intf, c] : root_->bridgingConfig()->switchIntfConfig()) {
      handleSwitchIntfConfig(intf);
   }
   handleMgmtAddrVrf();
   handleRouting();
   handleDescription();
   handleHostnameOrDomainName();
   handleMessageTxInterval();
   handleMessageTxHoldTime();
   handleReinitDelay();
   handleEnabledTlvs();
   handleMgmtAddrTxOption();
   handleRxTaggedPacketsDrop();
   handleBridgingMaxFrameSize();
   handleEnabled();
   // Ports the operator configured whose machines handleEnabled did not create (LLDP off).
   for (const auto& [intf, c] : cliConfig_->cliPortConfig()) handleCliPortConfig(intf);
}

void InputSm::doClose() {
   initialized_ = false;
   cliReactor_.notifierIs(nullptr);
   bridgingReactor_.notifierIs(nullptr);
   intfConfigDirReactor_.notifierIs(nullptr);
   routingReactor_.notifierIs(nullptr);
   sysDescrReactor_.notifierIs(nullptr);
   netStatusReactor_.notifierIs(nullptr);
   switchIntfReactor_.clear();
   intfConfigReactor_.clear();
   for (auto& [intf, sm] : cliPortConfigSm_) sm->doClose();
   cliPortConfigSm_.clear();
   for (auto& [vlanId, sm] : vlanBridgingConfigSm_) sm->doClose();
   vlanBridgingConfigSm_.clear();
   // What this machine published about the system.
   Lldp::LocalSystem& local = *root_->localSystem();
   removeFallbackManAddr(*root_);
   if (root_->fallbackManagementAddressKeyPresent()) {
      local.managementAddressDel(root_->fallbackManagementAddressKey());
      root_->fallbackManagementAddressKeyIs({}, false);
   }
}

void InputSm::handleMessageTxInterval() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleMessageTxInterval()");
   Lldp::Config& config = *root_->config();
   const uint32_t interval = cliConfig_->messageTxInterval();
   // The delay first: the transmit machine checks that the interval is not below it.
   if (txDelayFor(interval) < config.txDelay()) {
      config.txDelayIs(txDelayFor(interval));
      config.messageTxIntervalIs(interval);
   } else {
      config.messageTxIntervalIs(interval);
      config.txDelayIs(txDelayFor(interval));
   }
}

void InputSm::handleMessageTxHoldTime() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleMessageTxHoldTime()");
   root_->config()->messageTxHoldTimeIs(cliConfig_->messageTxHoldTime());
}

void InputSm::handleReinitDelay() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleReinitDelay()");
   root_->config()->reinitDelayIs(cliConfig_->reinitDelay());
}

void InputSm::handleRxTaggedPacketsDrop() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleRxTaggedPacketsDrop()");
   root_->config()->rxTaggedPacketsDropIs(cliConfig_->rxTaggedPacketsDrop());
}

void InputSm::handleEnabledTlvs() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleEnabledTlvs()");
   for (const auto& [intf, pc] : root_->config()->portConfig()) doSyncPortConfigTlvs(*pc);
   // The VLAN name switch decides whether the names are kept at all.
   handleBridgingVlanConfig();
}

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

void InputSm::doSyncPortConfigTlvs(Lldp::PortConfig& pc) {
   Lldp::EnabledTlvs enabled = pc.enabledTlvs();
   bool mgmt = false, portVlan = false, vlanName = false;
   Lldp::Dot3EnabledTlvs dot3 = pc.dot3EnabledTlvs();
   Lldp::TiaEnabledTlvs tia = pc.tiaEnabledTlvs();
   getEnabledTlvValues(*cliConfig_, enabled, mgmt, portVlan, vlanName, dot3, tia);
   pc.enabledTlvsIs(enabled);
   pc.mgmtAddrTxEnableIs(mgmt);
   pc.portVlanTxEnableIs(portVlan);
   pc.vlanNameTxEnableIs(vlanName);
   pc.dot3EnabledTlvsIs(dot3);
   pc.tiaEnabledTlvsIs(tia);
}

void InputSm::handleEnabled() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleEnabled()");
   if (cliConfig_->enabled()) {
      for (const auto& [intf, c] : cliConfig_->cliPortConfig()) handleCliPortConfig(intf);
   }
   for (const auto& [intf, pc] : root_->config()->portConfig()) doSyncPortConfigAdminStatus(*pc);
}

void InputSm::handleMgmtAddrTxOption() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleMgmtAddrTxOption()");
   root_->config()->maxTxMgmtAddrsIs(
       cliConfig_->mgmtAddrTxMode() == Lldp::mgmtAddrTxModeAll ? 4294967295u : 1u);
}

void InputSm::handleMgmtAddrVrf() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleMgmtAddrVrf()");
   const std::string& vrf = cliConfig_->mgmtAddrVrf();
   root_->status()->mgmtAddrVrfIs(L3::VrfName(std::string_view(vrf).substr(0, 64)));
}

const Lldp::CliPortConfig* InputSm::cliPortConfigOf(const Wire::IntfId& intf) const {
   return cliConfig_->cliPortConfig(intf).ptr();
}

void InputSm::handleCliPortConfig(const Wire::IntfId& intf) {
   if (!initialized_) return;
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleCliPortConfig( " << intf << " )");
   const auto cli = cliConfig_->cliPortConfig(intf);
   auto it = cliPortConfigSm_.find(intf);
   if (cli && it != cliPortConfigSm_.end() && it->second->cliPortConfig() == cli) return;
   if (it != cliPortConfigSm_.end()) {
      VEL_ASSERT(cliPortConfigSmHas(intf), "cliPortConfigSmHas( intfId )");
      const auto sm = it->second;
      cliPortConfigSm_.erase(it);
      sm->doClose();
      // Back to what the global settings alone give the port.
      if (auto pc = root_->config()->portConfig(intf)) doSyncPortConfigAdminStatus(*pc);
   }
   if (cli) {
      VEL_ASSERT(!cliPortConfigSmHas(intf), "!cliPortConfigSmHas( intfId )");
      auto sm = Vel::make<CliPortConfigSm>(root_, cli);
      cliPortConfigSm_[intf] = sm;
      sm->handleInitialized();
   }
}

void InputSm::doSyncPortConfigAdminStatus(Lldp::PortConfig& portConfig) {
   Lldp::AdminStatus requested = Lldp::adminStatusDisabled;
   if (cliConfig_->enabled()) {
      const Lldp::CliPortConfig* cli = cliPortConfigOf(portConfig.intfId());
      requested = cli ? cli->adminStatus() : Lldp::adminStatusTxAndRx;
   }
   portAdminStatusIs(portConfig, requested, *root_->bridgingConfig(), *root_);
}

void InputSm::doSyncPortConfig(Lldp::PortConfig& pc) {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::doSyncPortConfig( " << pc.intfId() << " )");
   doSyncPortConfigTlvs(pc);
   const Lldp::CliPortConfig defaults(pc.intfId());
   const Lldp::CliPortConfig* cli = cliPortConfigOf(pc.intfId());
   const Lldp::CliPortConfig& from = cli ? *cli : defaults;
   pc.poeAllocatedPowerFallbackIs(from.poeAllocatedPowerFallback());
   pc.ztpBootVlanIs(from.ztpBootVlan());
   pc.rxRateLimitEnabledIs(from.rxRateLimitEnabled());
   pc.rxRateLimitMaxLldpdusIs(from.rxRateLimitMaxLldpdus());
   pc.rxRateLimitIntervalIs(from.rxRateLimitInterval());
   doSyncPortConfigAdminStatus(pc);
}

namespace {

// What this agent is to an LLDP-MED endpoint: network connectivity equipment that speaks
// the capabilities and network policy TLVs (it sends no location, power or inventory).
// A capabilities TLV must at least claim itself, so zero is never a valid answer.
Lldp::MedCapabilitiesInfo localMedCapabilities() {
   Lldp::MedCapabilitiesInfo info;
   Lldp::MedCapability caps;
   caps.lldpMedCapabilitiesIs(true);
   caps.networkPolicyIs(true);
   info.capabilitiesIs(caps);
   info.deviceTypeIs(4);
   return info;
}

}  // namespace

void InputSm::doSyncLocalPort(Lldp::LocalPort& localPort) {
   const Wire::IntfId& intf = localPort.intfId();
   const Wire::IntfId lag = root_->portToLag(intf);
   const Bridging::Config& bridging = *root_->bridgingConfig();
   Bridging::VlanIdOrNone portVlan = 0;
   if (auto sw = bridging.switchIntfConfig(lag.empty() ? intf : lag)) {
      if (sw->switchportMode() != Bridging::switchportModeRouted) portVlan = sw->nativeVlan();
   }
   localPort.portVlanIdIs(portVlan);
   const Lldp::CliPortConfig* cli = cliPortConfigOf(intf);
   localPort.ztpBootVlanIs(cli ? cli->ztpBootVlan() : Bridging::VlanIdOrNone(0));
   auto intfConfig = ethPhyIntfConfigDir_->intfConfig(intf);
   localPort.portDescIs(cut(intfConfig ? intfConfig->description() : std::string()));
   localPort.medCapabilitiesIs(localMedCapabilities());
   // A new port, or one that joined or left an aggregate, carries other VLANs now.
   for (const auto& [vlanId, sm] : vlanBridgingConfigSm_) sm->handleConfigChange(intf);
}

void InputSm::doNotifyPortLagChange(const Wire::IntfId& port) {
   VEL_TRACE(traceLldpAgent, 8,
             "InputSm::doNotifyPortLagChange( " << port << " ) lag: " << root_->portToLag(port));
   if (auto lp = root_->localSystem()->localPort(port)) {
      doSyncLocalPort(*lp);
      syncLinkAggregationInfo(*lp, *root_);
   }
   if (auto pc = root_->config()->portConfig(port)) doSyncPortConfigAdminStatus(*pc);
}

void InputSm::handleBridgeMacAddr() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleBridgeMacAddr()");
   const Wire::EthAddr mac = root_->bridgingConfig()->bridgeMacAddr();
   Lldp::LocalSystem& local = *root_->localSystem();
   const std::string_view bytes(reinterpret_cast<const char*>(mac.bytes().data()), 6);
   local.chassisIdentifierIs(Lldp::ChassisIdentifier({.subtype = 4, .value = bytes}));
   // The same MAC is the management address of last resort.
   removeFallbackManAddr(*root_);
   if (root_->fallbackManagementAddressKeyPresent()) {
      local.managementAddressDel(root_->fallbackManagementAddressKey());
   }
   if (mac.isZero()) {
      root_->fallbackManagementAddressKeyIs({}, false);
      return;
   }
   const Lldp::ManagementAddress::Key key({.subtype = Lldp::addrFamilyMac, .address = bytes});
   local.managementAddressIs(Lldp::ManagementAddress(
       {.key = key, .ifNumberingSubtype = Lldp::ifNumberingUnknown, .ifNumber = 0}));
   root_->fallbackManagementAddressKeyIs(key, true);
   maybeAddFallbackManAddr(*root_);
}

void InputSm::handleBridgingMaxFrameSize() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleBridgingMaxFrameSize()");
   const uint32_t size = std::min<uint32_t>(root_->bridgingConfig()->maxFrameSize(), 0xffff);
   for (const auto& [intf, lp] : root_->localSystem()->localPort()) {
      if (intf.isManagement()) continue;
      lp->maximumFrameSizeInfoIs(Lldp::MaximumFrameSizeInfo({.maxFrameSize = uint16_t(size)}));
   }
}

void InputSm::handleSwitchIntfConfig(const Wire::IntfId& intf) {
   if (!initialized_) return;
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleSwitchIntfConfig( " << intf << " )");
   auto sw = root_->bridgingConfig()->switchIntfConfig(intf);
   if (sw && !switchIntfReactor_.count(intf)) {
      auto reactor = std::make_unique<SwitchIntfReactor>();
      reactor->sm = this;
      reactor->intf = intf;
      reactor->notifierIs(sw);
      switchIntfReactor_[intf] = std::move(reactor);
   } else if (!sw) {
      switchIntfReactor_.erase(intf);
   }
   // The ports this switchport governs: itself, or an aggregate's members.
   for (const auto& [port, lp] : root_->localSystem()->localPort()) {
      const Wire::IntfId lag = root_->portToLag(port);
      if ((lag.empty() ? port : lag) != intf) continue;
      doSyncLocalPort(*lp);
      if (auto pc = root_->config()->portConfig(port)) doSyncPortConfigAdminStatus(*pc);
   }
   // A system with bridged ports acts as a bridge.
   bool bridging = false;
   for (const auto& [i, s] : root_->bridgingConfig()->switchIntfConfig()) {
      const uint8_t mode = s->switchportMode();
      bridging |= mode == Bridging::switchportModeAccess || mode == Bridging::switchportModeTrunk;
   }
   Lldp::SystemCapabilitiesMap enabled = root_->localSystem()->sysCapEnabled();
   enabled.bridgeIs(bridging);
   root_->localSystem()->sysCapEnabledIs(enabled);
}

void InputSm::handleIntfConfig(const Wire::IntfId& intf) {
   if (!initialized_) return;
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleIntfConfig( " << intf << " )");
   auto intfConfig = ethPhyIntfConfigDir_->intfConfig(intf);
   auto it = intfConfigReactor_.find(intf);
   if (intfConfig && (it == intfConfigReactor_.end() || it->second->notifier() != intfConfig)) {
      auto reactor = std::make_unique<IntfConfigReactor>();
      reactor->sm = this;
      reactor->intf = intf;
      reactor->notifierIs(intfConfig);
      intfConfigReactor_[intf] = std::move(reactor);
   } else if (!intfConfig && it != intfConfigReactor_.end()) {
      intfConfigReactor_.erase(it);
   }
   if (auto lp = root_->localSystem()->localPort(intf)) {
      lp->portDescIs(cut(intfConfig ? intfConfig->description() : std::string()));
   }
}

void InputSm::handleHostnameOrDomainName() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleHostnameOrDomainName()");
   Lldp::BoundedString255 name;
   if (Lldp::toggleTxValuesConfig() && !cliConfig_->sysName().empty()) {
      name = cliConfig_->sysName();
   } else {
      name = systemNameOf(netStatus_->hostname(), netStatus_->domainName());
   }
   root_->localSystem()->sysNameIs(name);
   root_->config()->sysNameTlvIs(name);
}

void InputSm::handleDescription() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleDescription()");
   Lldp::BoundedString255 desc;
   if (Lldp::toggleTxValuesConfig() && !cliConfig_->sysDesc().empty()) {
      desc = cliConfig_->sysDesc();
   } else {
      desc = cut(sysDescr_->description());
   }
   root_->localSystem()->sysDescIs(desc);
   root_->config()->sysDescTlvIs(desc);
}

void InputSm::handleRouting() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleRouting()");
   Lldp::SystemCapabilitiesMap enabled = root_->localSystem()->sysCapEnabled();
   enabled.routerIs(routingConfig_->ipRouting());
   root_->localSystem()->sysCapEnabledIs(enabled);
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

Lldp::VlanName VlanBridgingConfigSm::vlanName() const {
   return Lldp::VlanName({.vlanId = vlanId_, .name = vlanConfig_->name()});
}

void VlanBridgingConfigSm::handleConfigChange() {
   for (const auto& [intf, ps] : root_->status()->portStatus()) handleConfigChange(intf);
}

void VlanBridgingConfigSm::handleConfigChange(const Wire::IntfId& intf) {
   Lldp::PortStatus::Ptr ps = root_->status()->portStatus(intf);
   if (!ps) {
      VEL_TRACE(traceLldpAgent, 8, "No portStatus for " << intf);
      return;
   }
   if (carries(intf)) {
      if (writeName(*ps, vlanName())) {
         VEL_TRACE(traceLldpAgent, 8, "Adding " << vlanId_ << " to portStatus/" << intf);
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
   const Lldp::VlanName name = vlanName();
   for (const auto& [intf, ps] : root_->status()->portStatus()) {
      if (ps->vlanName(vlanId_)) writeName(*ps, name);
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

// ---------------------------------------------------------------------------------------
// Ports.

EthPhyIntfStatusSm::EthPhyIntfStatusSm(Root* root, Interface::EthPhyIntfStatus::PtrConst status)
    : root_(root), intfStatus_(std::move(status)) {}

void EthPhyIntfStatusSm::handleInitialized() {
   notifierIs(intfStatus_);
   handleForwardingModel();
}

void EthPhyIntfStatusSm::handleForwardingModel() {
   const bool takesPart = intfStatus_->forwardingModel() >= Interface::forwardingModelBridged;
   if (takesPart && !active_) {
      doCreatePort();
   } else if (!takesPart && active_) {
      VEL_TRACE(traceLldpAgent, 6,
                "EthPhyIntfStatusSm::handleForwardingModel for "
                    << intfId() << ": model " << int(intfStatus_->forwardingModel()));
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
   lp->portIdentifierIs(Lldp::PortIdentifier({.subtype = 5, .value = cut(intf.name())}));
   if (intf.isManagement()) {
      handleMaxMtu();
   } else {
      const uint32_t size = std::min<uint32_t>(root_->bridgingConfig()->maxFrameSize(), 0xffff);
      lp->maximumFrameSizeInfoIs(Lldp::MaximumFrameSizeInfo({.maxFrameSize = uint16_t(size)}));
   }
   syncLinkAggregationInfo(*lp, *root_);
   syncPortConfig(*pc, *root_);
   if (root_->inputSm()) root_->inputSm()->doSyncLocalPort(*lp);
   // Last: packet access (and with it the port's protocol machine) finds every record
   // filled in.
   root_->desiredIntfDir()->intfDesiredIs(intf, true);
}

void EthPhyIntfStatusSm::handleMaxMtu() {
   if (!active_ || !intfId().isManagement()) return;
   // A management port's own MTU bounds its frames (there is no bridge setting for it).
   if (auto lp = root_->localSystem()->localPort(intfId())) {
      lp->maximumFrameSizeInfoIs(
          Lldp::MaximumFrameSizeInfo({.maxFrameSize = frameSizeOf(intfStatus_->mtu())}));
   }
}

void EthPhyIntfStatusSm::doClose() {
   notifierIs(nullptr);
   if (!active_) return;
   active_ = false;
   const Wire::IntfId intf = intfId();
   VEL_TRACE(traceLldpAgent, 6, "EthPhyIntfStatusSm::doClose for " << intf);
   root_->desiredIntfDir()->intfDesiredDel(intf);
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
   lagReactor_.clear();
   for (auto& [intf, sm] : ethPhyIntfStatusSm_) sm->doClose();
   ethPhyIntfStatusSm_.clear();
   for (const auto& [lag, members] : lagMembers_) {
      for (const auto& port : members) root_->lagMemberIs(port, lag, false);
   }
   lagMembers_.clear();
}

void ActiveEthIntfStatusDirSm::handlePhyIntfStatus(const Wire::IntfId& intf) {
   const auto status = lldpCapable(intf) ? phyDir_->intfStatus(intf) : nullptr;
   auto it = ethPhyIntfStatusSm_.find(intf);
   // Gone, or a new record for the port: the old machine removes what it published.
   if (it != ethPhyIntfStatusSm_.end() && it->second->intfStatus() != status) {
      const auto sm = it->second;
      ethPhyIntfStatusSm_.erase(it);
      sm->doClose();
      it = ethPhyIntfStatusSm_.end();
   }
   if (status && it == ethPhyIntfStatusSm_.end()) {
      auto sm = Vel::make<EthPhyIntfStatusSm>(root_, status);
      ethPhyIntfStatusSm_[intf] = sm;
      sm->handleInitialized();
   }
}

void ActiveEthIntfStatusDirSm::handleLagIntfStatus(const Wire::IntfId& lag) {
   auto status = lagDir_->intfStatus(lag);
   std::set<Wire::IntfId> now;
   if (status) {
      for (const auto& [port, member] : status->member()) {
         if (member) now.insert(port);
      }
      auto& reactor = lagReactor_[lag];
      if (!reactor || reactor->notifier() != status) {
         reactor = std::make_unique<LagReactor>();
         reactor->sm = this;
         reactor->lag = lag;
         reactor->notifierIs(status);
      }
   } else {
      lagReactor_.erase(lag);
   }
   std::set<Wire::IntfId>& before = lagMembers_[lag];
   std::vector<Wire::IntfId> changed;
   for (const auto& port : before) {
      if (!now.count(port)) changed.push_back(port);
   }
   for (const auto& port : now) {
      if (!before.count(port)) changed.push_back(port);
   }
   for (const auto& port : changed) root_->lagMemberIs(port, lag, now.count(port) != 0);
   if (now.empty()) {
      lagMembers_.erase(lag);
   } else {
      before = std::move(now);
   }
   for (const auto& port : changed) {
      if (root_->inputSm()) root_->inputSm()->doNotifyPortLagChange(port);
   }
}

}  // namespace Lldp::Agent::Input

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

// Switchport modes whose ports must not send LLDP of their own.
bool suppressesTransmit(uint8_t mode) {
   return mode == Bridging::switchportModeDot1qTunnel || mode == Bridging::switchportModeTap ||
          mode == Bridging::switchportModeTool;
}

}  // namespace

std::string cutTo255(std::string_view s) {
   return std::string(s.substr(0, std::min(s.size(), maxString)));
}

bool isLocalMgmtIntf(const Wire::IntfId& intf, uint32_t cellId) {
   const std::string prefix = "Management" + std::to_string(cellId) + "/";
   return intf.name().starts_with(prefix);
}

bool lldpCapable(const Wire::IntfId& intf) {
   if (intf.isEthernet()) return !intf.name().starts_with("UnconnectedEthernet");
   return intf.isManagement();
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
   return cutTo255(domainName.empty() ? hostname : hostname + "." + domainName);
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

// ---------------------------------------------------------------------------------------
// Root.

Root::~Root() = default;

void Root::inputSmIs(InputEntities entities) {
   if (inputSm_) return;
   inputSm_ = Vel::make<InputSm>(this, std::move(entities));
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

void Root::standbyEthIntfStatusDirSmIs(Interface::EthPhyIntfStatusDir::PtrConst phyDir) {
   if (standbyEthIntfStatusDirSm_) return;
   standbyEthIntfStatusDirSm_ = Vel::make<StandbyEthIntfStatusDirSm>(this, std::move(phyDir));
   standbyEthIntfStatusDirSm_->handleInitialized();
}

void Root::standbyEthIntfStatusDirSmDel() {
   if (auto sm = std::exchange(standbyEthIntfStatusDirSm_, nullptr)) sm->doClose();
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

void Root::identityDot1xStatusSmIs() {
   if (identityDot1xStatusSm_ || !identityDot1xStatus_) return;
   identityDot1xStatusSm_ = Vel::make<IdentityDot1xStatusSm>(this, identityDot1xStatus_);
   identityDot1xStatusSm_->handleInitialized();
}

void Root::identityDot1xStatusSmDel() {
   if (auto sm = std::exchange(identityDot1xStatusSm_, nullptr)) sm->doClose();
}

void Root::identityMacsecStatusSmIs() {
   if (identityMacsecStatusSm_ || !identityMacsecStatus_) return;
   identityMacsecStatusSm_ = Vel::make<IdentityMacsecStatusSm>(this, identityMacsecStatus_);
   identityMacsecStatusSm_->handleInitialized();
}

void Root::identityMacsecStatusSmDel() {
   if (auto sm = std::exchange(identityMacsecStatusSm_, nullptr)) sm->doClose();
}

void Root::networkPolicySmIs() {
   if (networkPolicySm_) return;
   networkPolicySm_ = Vel::make<NetworkPolicySm>(this);
   networkPolicySm_->handleInitialized();
}

void Root::networkPolicySmDel() {
   if (auto sm = std::exchange(networkPolicySm_, nullptr)) sm->doClose();
}

void Root::poeSmIs(Vel::Ptr<const Vel::Dir> powerAgentDir,
                   Lldp::PowerRequestStatus::Ptr powerRequestStatus) {
   if (poeSm_ || !powerAgentDir || !powerRequestStatus) return;
   poeSm_ = Vel::make<PoeSm>(this, std::move(powerAgentDir), std::move(powerRequestStatus));
   poeSm_->handleInitialized();
}

void Root::poeSmDel() {
   if (auto sm = std::exchange(poeSm_, nullptr)) sm->doClose();
}

void Root::nbrClassificationSmIs(Identity::NbrClassification::Status::Ptr status,
                                 Identity::NbrClassification::CliConfig::PtrConst cliConfig) {
   if (nbrClassificationSm_ || !status || !cliConfig) return;
   nbrClassificationSm_ =
       Vel::make<NbrClassificationSm>(status_, std::move(status), std::move(cliConfig));
   nbrClassificationSm_->handleInitialized();
}

void Root::nbrClassificationSmDel() {
   if (auto sm = std::exchange(nbrClassificationSm_, nullptr)) sm->doClose();
}

void Root::doClose() {
   nbrClassificationSmDel();
   poeSmDel();
   networkPolicySmDel();
   identityDot1xStatusSmDel();
   identityMacsecStatusSmDel();
   // Ports first: their records go while the input machine can still see them.
   activeEthIntfStatusDirSmDel();
   standbyEthIntfStatusDirSmDel();
   inputSmDel();
   remTablesClearRequestSmDel();
}

uint32_t Root::ifIndexVal(const Wire::IntfId& intf) const {
   auto status = allIntfStatusDir_ ? allIntfStatusDir_->intfStatus(intf) : nullptr;
   if (!status) {
      VEL_TRACE(traceLldpAgent, 2, "Failed to create IntfDetailsProvider for interface " << intf);
      return 0;
   }
   return status->ifIndex();
}

const Lags* Root::portToLagsMap(const Wire::IntfId& port) const {
   auto it = portToLagsMap_.find(port);
   return it == portToLagsMap_.end() ? nullptr : &it->second;
}

Wire::IntfId Root::portToLag(const Wire::IntfId& port) const {
   const Lags* lags = portToLagsMap(port);
   return !lags || lags->empty() ? Wire::IntfId() : *lags->lagId().begin();
}

void addLagMember(const Wire::IntfId& member, const Wire::IntfId& lag, Root& root) {
   const Wire::IntfId oldLag = root.portToLag(member);
   root.portToLagsMapIs(member).lagIdIs(lag, true);
   notifyPortLagChange(member, oldLag, root.portToLag(member), root);
}

void removeLagMember(const Wire::IntfId& member, const Wire::IntfId& lag, Root& root) {
   if (!root.portToLagsMap(member)) return;
   const Wire::IntfId oldLag = root.portToLag(member);
   Lags& lags = root.portToLagsMapIs(member);
   lags.lagIdDel(lag);
   if (lags.empty()) root.portToLagsMapDel(member);
   notifyPortLagChange(member, oldLag, root.portToLag(member), root);
}

void notifyPortLagChange(const Wire::IntfId& port, const Wire::IntfId& oldLag,
                         const Wire::IntfId& newLag, Root& root) {
   if (root.inputSm()) root.inputSm()->doNotifyPortLagChange(port, oldLag, newLag);
}

// ---------------------------------------------------------------------------------------
// InputSm.

InputSm::InputSm(Root* root, Root::InputEntities e)
    : root_(root),
      cliConfig_(std::move(e.cliConfig)),
      ethPhyIntfConfigDir_(std::move(e.ethPhyIntfConfigDir)),
      routingConfig_(std::move(e.routingConfig)),
      sysDescr_(std::move(e.sysDescr)),
      netStatus_(std::move(e.netStatus)),
      ipStatus_(e.ipStatus ? std::move(e.ipStatus) : Vel::make<Ip::Status>()),
      ip6Status_(e.ip6Status ? std::move(e.ip6Status) : Vel::make<Ip6::Status>()),
      externalTlvsDir_(e.externalTlvsDir ? std::move(e.externalTlvsDir) : Vel::make<Vel::Dir>()) {
   cliReactor_.sm = bridgingReactor_.sm = intfConfigDirReactor_.sm = routingReactor_.sm =
       sysDescrReactor_.sm = netStatusReactor_.sm = allIntfStatusReactor_.sm = ipStatusReactor_.sm =
           ip6StatusReactor_.sm = externalTlvsDirReactor_.sm = this;
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
   allIntfStatusReactor_.notifierIs(root_->allIntfStatusDir());
   ipStatusReactor_.notifierIs(ipStatus_);
   ip6StatusReactor_.notifierIs(ip6Status_);
   externalTlvsDirReactor_.notifierIs(externalTlvsDir_);
   for (const auto& [intf, c] : ethPhyIntfConfigDir_->intfConfig()) handleIntfConfig(intf);
   handleBridgeMacAddr();
   handleBridgingVlanConfig();
   for (const auto& [intf, c] : root_->bridgingConfig()->switchIntfConfig()) {
      handleSwitchIntfConfig(intf);
   }
   handleMgmtAddrVrf();
   // handleMgmtAddrVrf walks the IP interface machines, which are created here: the
   // interface-name priority must be known before the first address is entered.
   handleMgmtAddrTxOption();
   for (const auto& [intf, s] : root_->allIntfStatusDir()->intfStatus()) {
      handleIntfStatusOrIpIntfStatus(intf);
   }
   for (const auto& [intf, s] : ipStatus_->ipIntfStatus()) handleIntfStatusOrIpIntfStatus(intf);
   for (const auto& [intf, s] : ip6Status_->intf()) handleIp6IntfStatus(intf);
   handleRouting();
   handleDescription();
   for (const auto& [name, e] : externalTlvsDir_->entry()) handleExternalTlvsEntityPtr(name);
   handleHostnameOrDomainName();
   handleMessageTxInterval();
   handleMessageTxHoldTime();
   handleReinitDelay();
   handleEnabledTlvs();
   handleMgmtAddrTxOption();
   handleRxTaggedPacketsDrop();
   handleRemoteSystemLimit();
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
   allIntfStatusReactor_.notifierIs(nullptr);
   ipStatusReactor_.notifierIs(nullptr);
   ip6StatusReactor_.notifierIs(nullptr);
   externalTlvsDirReactor_.notifierIs(nullptr);
   ip6IntfReactor_.clear();
   for (auto& [name, sm] : externalTlvConfigSm_) sm->doClose();
   externalTlvConfigSm_.clear();
   Wire::closeAll(switchIntfConfigSm_);
   aggregateServed_.clear();
   Wire::closeAll(ethPhyIntfConfigSm_);
   for (const auto& sm : Wire::valuesOf(cliPortConfigSm_)) sm->doClose();
   cliPortConfigSm_.clear();
   for (auto& [vlanId, sm] : vlanBridgingConfigSm_) sm->doClose();
   vlanBridgingConfigSm_.clear();
   // What this machine published about the system.
   for (const auto& sm : Wire::valuesOf(ipIntfStatusSm_)) sm->doClose();
   ipIntfStatusSm_.clear();
   clearIp6ManagementAddress(*root_);
   ip6Intf_ = {};
   ip6Addr_ = {};
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
   for (const auto& [intf, pc] : root_->config()->portConfig()) {
      doSyncPortConfigAdminStatus(*pc);
      doSyncPortConfigNetworkPolicy(*pc);
   }
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
   doSyncPortConfigRemoteSystemLimit(pc);
   doSyncPortConfigAdminStatus(pc);
   doSyncPortConfigNetworkPolicy(pc);
}

// ---------------------------------------------------------------------------------------
// The neighbour limit: a port's own limit when the operator set one, else the global one;
// and the limit on all ports together.

void InputSm::handleRemoteSystemLimit() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleRemoteSystemLimit()");
   for (const auto& [intf, pc] : root_->config()->portConfig()) {
      doSyncPortConfigRemoteSystemLimit(*pc);
   }
}

void InputSm::doSyncPortConfigRemoteSystemLimit(Lldp::PortConfig& pc) {
   const Lldp::CliPortConfig* cli = cliPortConfigOf(pc.intfId());
   const uint32_t own = cli ? cli->remoteSystemLimit() : 0;
   pc.remoteSystemLimitIs(own != 0 ? own : cliConfig_->remoteSystemLimit());
   pc.remoteSystemLimitTotalIs(cliConfig_->remoteSystemLimitTotal());
}

namespace {

// What this agent is to an LLDP-MED endpoint: network connectivity equipment that speaks
// the capabilities TLV, and network policy on a port with a policy configured (it sends
// no location, power or inventory). A capabilities TLV must at least claim itself, so
// zero is never a valid answer.
Lldp::MedCapabilitiesInfo localMedCapabilities(bool networkPolicy) {
   Lldp::MedCapabilitiesInfo info;
   Lldp::MedCapability caps;
   caps.lldpMedCapabilitiesIs(true);
   caps.networkPolicyIs(networkPolicy);
   info.capabilitiesIs(caps);
   info.deviceTypeIs(4);
   return info;
}

}  // namespace

void InputSm::doSyncLocalPort(Lldp::LocalPort& localPort) {
   const Wire::IntfId& intf = localPort.intfId();
   doSyncPortSwitchIntf(localPort);
   const Lldp::CliPortConfig* cli = cliPortConfigOf(intf);
   localPort.ztpBootVlanIs(cli ? cli->ztpBootVlan() : Bridging::VlanIdOrNone(0));
   if (auto it = ethPhyIntfConfigSm_.find(intf); it != ethPhyIntfConfigSm_.end()) {
      it->second->doSyncLocalPort(localPort);
   } else {
      localPort.portDescIs({});
   }
   const auto pc = root_->config()->portConfig(intf);
   localPort.medCapabilitiesIs(localMedCapabilities(pc && !pc->networkPolicyConfig().empty()));
   // TLVs a client listed for the port before it existed.
   for (const auto& [name, sm] : externalTlvConfigSm_) sm->doSyncLocalPort(intf);
   // A new port, or one that joined or left an aggregate, carries other VLANs now.
   for (const auto& [vlanId, sm] : vlanBridgingConfigSm_) sm->handleConfigChange(intf, true);
}

void InputSm::doNotifyPortLagChange(const Wire::IntfId& port, const Wire::IntfId& oldLag,
                                    const Wire::IntfId& newLag) {
   VEL_TRACE(
       traceLldpAgent, 8,
       "InputSm::doNotifyPortLagChange( " << port << ", " << oldLag << ", " << newLag << " )");
   // The switchport that serves the port follows the aggregate (doSyncLocalPort moves
   // it), and with it the port VLAN and the admin status.
   auto lp = root_->localSystem()->localPort(port);
   if (lp) {
      doSyncLocalPort(*lp);
      syncLinkAggregationInfo(*lp, *root_);
   }
   if (auto pc = root_->config()->portConfig(port)) doSyncPortConfig(*pc);
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
   const Lldp::ManagementAddress::Key key({.subtype = Lldp::addrFamilyMac, .address = bytes});
   local.managementAddressIs(Lldp::ManagementAddress(
       {.key = key, .ifNumberingSubtype = Lldp::ifNumberingUnknown, .ifNumber = 0}));
   root_->fallbackManagementAddressKeyIs(key, true);
   maybeAddFallbackManAddr(*root_);
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
      desc = cutTo255(sysDescr_->description());
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

}  // namespace Lldp::Agent::Input

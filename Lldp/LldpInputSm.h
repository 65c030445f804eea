// The input side: turns the operator's configuration and the platform's state into the
// records the protocol engine and the transmit builder read (the effective
// configuration with one port configuration per LLDP-capable port, the local system and
// one local port per port, and each port's status record), and asks for packet access on
// every such port.
//
// A tree of machines under one root: InputSm follows the global configuration and the
// system's identity, one CliPortConfigSm per port the operator configured, and
// ActiveEthIntfStatusDirSm keeps one EthPhyIntfStatusSm per Ethernet or management port,
// which creates and removes the port's records. Every handler re-derives its result from
// the entities as they are now, so the order in which the reactors of one change run
// does not matter.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>

#include "Framework/Trace.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Wire/PamMan.h"
#include "Records/Bridging.h"
#include "Records/IntfStatus.h"
#include "Records/Lldp.h"
#include "Records/SystemStatus.h"

namespace Lldp::Agent::Input {

// Trace handle of the input machines (shared with the rest of the agent).
extern Vel::Trace::Handle traceLldpAgent;

// Only Ethernet and management ports run LLDP.
bool lldpCapable(const Wire::IntfId& intf);

// The global TLV switches of the configuration as per-port sets: each governed bit is set
// when its switch is on and cleared when it is off; other bits are left as they were.
void getEnabledTlvValues(const Lldp::CliConfig& cli, Lldp::EnabledTlvs& enabledTlvs,
                         bool& mgmtAddrTxEnable, bool& portVlanTxEnable, bool& vlanNameTxEnable,
                         Lldp::Dot3EnabledTlvs& dot3EnabledTlvs,
                         Lldp::TiaEnabledTlvs& tiaEnabledTlvs);

// The transmit interval caps the delay between local-change transmissions.
uint32_t txDelayFor(uint32_t messageTxInterval);

// The system name as advertised: host name, then "." and the domain when there is one,
// cut to 255 bytes.
std::string systemNameOf(const std::string& hostname, const std::string& domainName);

class Root;
class InputSm;
class CliPortConfigSm;
class EthPhyIntfStatusSm;
class ActiveEthIntfStatusDirSm;
class RemTablesClearRequestSm;
class VlanBridgingConfigSm;

// Writes the port's effective admin status: the one asked for, unless the switchport mode
// governing the port (its aggregate's, when it is a member) must not transmit LLDP of
// its own (tunnel, tap, tool): then transmit-and-receive becomes receive-only and
// transmit-only becomes disabled.
void portAdminStatusIs(Lldp::PortConfig& portConfig, Lldp::AdminStatus requested,
                       const Bridging::Config& bridgingConfig, const Root& root);
// The full sync of one port's configuration (InputSm::doSyncPortConfig).
void syncPortConfig(Lldp::PortConfig& portConfig, Root& root);
// The link aggregation TLV of a port: capable always, aggregated while in an aggregate.
void syncLinkAggregationInfo(Lldp::LocalPort& localPort, const Root& root);
// The bridge MAC is advertised as management address while no other address is.
void maybeAddFallbackManAddr(Root& root);
void removeFallbackManAddr(Root& root);

class Root : public Vel::RefCounted {
public:
   Root() = default;
   ~Root() override;

   const Lldp::Config::Ptr& config() const { return config_; }
   void configIs(Lldp::Config::Ptr c) { config_ = std::move(c); }
   const Lldp::LocalSystem::Ptr& localSystem() const { return localSystem_; }
   void localSystemIs(Lldp::LocalSystem::Ptr l) { localSystem_ = std::move(l); }
   const Lldp::Status::Ptr& status() const { return status_; }
   void statusIs(Lldp::Status::Ptr s) { status_ = std::move(s); }
   const Lldp::RemTablesStatus::Ptr& remTablesStatus() const { return remTablesStatus_; }
   void remTablesStatusIs(Lldp::RemTablesStatus::Ptr s) { remTablesStatus_ = std::move(s); }
   const Bridging::Config::PtrConst& bridgingConfig() const { return bridgingConfig_; }
   void bridgingConfigIs(Bridging::Config::PtrConst b) { bridgingConfig_ = std::move(b); }
   const Interface::AllIntfStatusDir::PtrConst& allIntfStatusDir() const {
      return allIntfStatusDir_;
   }
   void allIntfStatusDirIs(Interface::AllIntfStatusDir::PtrConst d) {
      allIntfStatusDir_ = std::move(d);
   }
   const Interface::PamDesiredIntfDir::Ptr& desiredIntfDir() const { return desiredIntfDir_; }
   void desiredIntfDirIs(Interface::PamDesiredIntfDir::Ptr d) { desiredIntfDir_ = std::move(d); }

   const Vel::Ptr<InputSm>& inputSm() const { return inputSm_; }
   void inputSmIs(Lldp::CliConfig::PtrConst cliConfig,
                  Interface::EthPhyIntfConfigDir::PtrConst ethPhyIntfConfigDir,
                  Routing::Config::PtrConst routingConfig, EntityMib::SysDescr::PtrConst sysDescr,
                  System::NetStatus::PtrConst netStatus);
   void inputSmDel();
   const Vel::Ptr<ActiveEthIntfStatusDirSm>& activeEthIntfStatusDirSm() const {
      return activeEthIntfStatusDirSm_;
   }
   void activeEthIntfStatusDirSmIs(Interface::EthPhyIntfStatusDir::PtrConst ethPhyIntfStatusDir,
                                   Interface::EthLagIntfStatusDir::PtrConst lagIntfStatusDir);
   void activeEthIntfStatusDirSmDel();
   const Vel::Ptr<RemTablesClearRequestSm>& remTablesClearRequestSm() const {
      return remTablesClearRequestSm_;
   }
   void remTablesClearRequestSmIs(Lldp::RemTablesCliConfig::PtrConst remTablesCliConfig);
   void remTablesClearRequestSmDel();
   // Closes the machines (each removes what it published).
   void doClose();

   // The interface index of an interface; 0 when the platform does not know it.
   uint32_t ifIndexVal(const Wire::IntfId& intf) const;

   // Aggregates each port belongs to, kept from the platform's aggregate status.
   const std::map<Wire::IntfId, std::set<Wire::IntfId>>& portToLagsMap() const {
      return portToLagsMap_;
   }
   // The lowest aggregate the port belongs to; empty when it is in none.
   Wire::IntfId portToLag(const Wire::IntfId& port) const;
   void lagMemberIs(const Wire::IntfId& port, const Wire::IntfId& lag, bool member);

   const Lldp::ManagementAddress::Key& fallbackManagementAddressKey() const {
      return fallbackManagementAddressKey_;
   }
   bool fallbackManagementAddressKeyPresent() const { return fallbackManagementAddressKeyPresent_; }
   void fallbackManagementAddressKeyIs(const Lldp::ManagementAddress::Key& key, bool present) {
      fallbackManagementAddressKey_ = key;
      fallbackManagementAddressKeyPresent_ = present;
   }

private:
   Lldp::Config::Ptr config_;
   Lldp::LocalSystem::Ptr localSystem_;
   Lldp::Status::Ptr status_;
   Lldp::RemTablesStatus::Ptr remTablesStatus_;
   Bridging::Config::PtrConst bridgingConfig_;
   Interface::AllIntfStatusDir::PtrConst allIntfStatusDir_;
   Interface::PamDesiredIntfDir::Ptr desiredIntfDir_;
   Vel::Ptr<InputSm> inputSm_;
   Vel::Ptr<ActiveEthIntfStatusDirSm> activeEthIntfStatusDirSm_;
   Vel::Ptr<RemTablesClearRequestSm> remTablesClearRequestSm_;
   std::map<Wire::IntfId, std::set<Wire::IntfId>> portToLagsMap_;
   Lldp::ManagementAddress::Key fallbackManagementAddressKey_;
   bool fallbackManagementAddressKeyPresent_ = false;
};

// Empties every port's neighbour table when the operator asks for it. A request is
// served once: only a request time later than the last clear counts.
class RemTablesClearRequestSm : public Vel::RefCounted, private Lldp::RemTablesCliConfig::Notifiee {
public:
   RemTablesClearRequestSm(Root* root, Lldp::RemTablesCliConfig::PtrConst remTablesCliConfig);
   void handleInitialized();
   void handleRemTablesClearRequest();
   void doClose();

private:
   void clearRequestTimeChanged() override { handleRemTablesClearRequest(); }
   Root* root_;
   Lldp::RemTablesCliConfig::PtrConst remTablesCliConfig_;
};

// One VLAN of the bridging configuration while VLAN names are advertised: its name goes
// into the status of every port that carries the VLAN (directly or through the port's
// aggregate), and leaves again when the port stops carrying it or the VLAN goes.
class VlanBridgingConfigSm : public Vel::RefCounted, private Bridging::VlanConfig::Notifiee {
public:
   VlanBridgingConfigSm(Root* root, Bridging::VlanConfig::PtrConst vlanConfig);
   const Bridging::VlanId& vlanId() const { return vlanId_; }
   const Bridging::VlanConfig::PtrConst& vlanConfig() const { return vlanConfig_; }
   void handleInitialized();
   void doClose();
   // Every port, or one port, brought in line with the VLAN's membership.
   void handleConfigChange();
   void handleConfigChange(const Wire::IntfId& intf);
   void handleNameChange();

private:
   void nameChanged() override { handleNameChange(); }
   void memberChanged(const Wire::IntfId& intf) override { handleMemberChange(intf); }
   void handleMemberChange(const Wire::IntfId& intf);
   bool carries(const Wire::IntfId& port) const;
   Lldp::VlanName vlanName() const;
   // Writes the name unless the port already holds it; true when it wrote.
   bool writeName(Lldp::PortStatus& portStatus, const Lldp::VlanName& name);
   void delVlanFromAllPorts(const char* reason);
   Root* root_;
   Bridging::VlanConfig::PtrConst vlanConfig_;
   Bridging::VlanId vlanId_;
};

// One port the operator configured: its admin status, receive rate limit, ZTP boot VLAN
// and PoE fallback reach the port's configuration.
class CliPortConfigSm : public Vel::RefCounted, private Lldp::CliPortConfig::Notifiee {
public:
   CliPortConfigSm(Root* root, Lldp::CliPortConfig::PtrConst cliPortConfig);
   const Lldp::CliPortConfig::PtrConst& cliPortConfig() const { return cliPortConfig_; }
   void handleInitialized();
   void doClose();
   void handleAdminStatus();
   void handleRxRateLimit();
   void handleZtpBootVlan();
   void handlePoeAllocatedPowerFallback();

private:
   void adminStatusChanged() override { handleAdminStatus(); }
   void rxRateLimitEnabledChanged() override { handleRxRateLimit(); }
   void rxRateLimitMaxLldpdusChanged() override { handleRxRateLimit(); }
   void rxRateLimitIntervalChanged() override { handleRxRateLimit(); }
   void ztpBootVlanChanged() override { handleZtpBootVlan(); }
   void poeAllocatedPowerFallbackChanged() override { handlePoeAllocatedPowerFallback(); }
   Root* root_;
   Lldp::CliPortConfig::PtrConst cliPortConfig_;
};

// The global configuration and the system's identity.
class InputSm : public Vel::RefCounted {
public:
   InputSm(Root* root, Lldp::CliConfig::PtrConst cliConfig,
           Interface::EthPhyIntfConfigDir::PtrConst ethPhyIntfConfigDir,
           Routing::Config::PtrConst routingConfig, EntityMib::SysDescr::PtrConst sysDescr,
           System::NetStatus::PtrConst netStatus);
   ~InputSm() override;

   const Lldp::CliConfig::PtrConst& cliConfig() const { return cliConfig_; }
   void handleInitialized();
   void doClose();

   void handleMessageTxInterval();
   void handleMessageTxHoldTime();
   void handleReinitDelay();
   void handleRxTaggedPacketsDrop();
   void handleEnabledTlvs();
   void handleEnabled();
   void handleMgmtAddrTxOption();
   void handleMgmtAddrVrf();
   void handleCliPortConfig(const Wire::IntfId& intf);
   void handleBridgeMacAddr();
   void handleBridgingMaxFrameSize();
   void handleSwitchIntfConfig(const Wire::IntfId& intf);
   void handleIntfConfig(const Wire::IntfId& intf);
   void handleHostnameOrDomainName();
   void handleDescription();
   void handleRouting();
   // VLAN-name machines: one VLAN as it comes, changes or goes, or all of them.
   void handleBridgingVlanConfig(const Bridging::VlanId& vlanId);
   void handleBridgingVlanConfig();

   // The port's full configuration sync and its admin status alone.
   void doSyncPortConfig(Lldp::PortConfig& portConfig);
   void doSyncPortConfigAdminStatus(Lldp::PortConfig& portConfig);
   // The port's TLV selection from the global switches.
   void doSyncPortConfigTlvs(Lldp::PortConfig& portConfig);
   // The local port's values that come from configuration and bridging.
   void doSyncLocalPort(Lldp::LocalPort& localPort);
   // A port joined or left an aggregate: its switchport, admin status and LAG TLV follow.
   void doNotifyPortLagChange(const Wire::IntfId& port);

   const Lldp::CliPortConfig* cliPortConfigOf(const Wire::IntfId& intf) const;
   bool cliPortConfigSmHas(const Wire::IntfId& intf) const {
      return cliPortConfigSm_.count(intf) != 0;
   }

private:
   struct CliReactor : Lldp::CliConfig::Notifiee {
      InputSm* sm;
      void enabledChanged() override { sm->handleEnabled(); }
      void messageTxIntervalChanged() override { sm->handleMessageTxInterval(); }
      void messageTxHoldTimeChanged() override { sm->handleMessageTxHoldTime(); }
      void reinitDelayChanged() override { sm->handleReinitDelay(); }
      void rxTaggedPacketsDropChanged() override { sm->handleRxTaggedPacketsDrop(); }
      void portDescriptionTxChanged() override { sm->handleEnabledTlvs(); }
      void systemNameTxChanged() override { sm->handleEnabledTlvs(); }
      void systemDescriptionTxChanged() override { sm->handleEnabledTlvs(); }
      void systemCapabilitiesTxChanged() override { sm->handleEnabledTlvs(); }
      void managementAddressTxChanged() override { sm->handleEnabledTlvs(); }
      void portVlanTxChanged() override { sm->handleEnabledTlvs(); }
      void vlanNameTxChanged() override { sm->handleEnabledTlvs(); }
      void linkAggregationTxChanged() override { sm->handleEnabledTlvs(); }
      void maxFrameSizeTxChanged() override { sm->handleEnabledTlvs(); }
      void powerViaMdiTxChanged() override { sm->handleEnabledTlvs(); }
      void medNetworkPolicyTxChanged() override { sm->handleEnabledTlvs(); }
      void sysNameChanged() override { sm->handleHostnameOrDomainName(); }
      void sysDescChanged() override { sm->handleDescription(); }
      void mgmtAddrTxModeChanged() override { sm->handleMgmtAddrTxOption(); }
      void mgmtAddrTxIntfChanged() override { sm->handleMgmtAddrTxOption(); }
      void mgmtAddrVrfChanged() override { sm->handleMgmtAddrVrf(); }
      void cliPortConfigChanged(const Wire::IntfId& intf) override {
         sm->handleCliPortConfig(intf);
      }
   };
   struct BridgingReactor : Bridging::Config::Notifiee {
      InputSm* sm;
      void bridgeMacAddrChanged() override { sm->handleBridgeMacAddr(); }
      void maxFrameSizeChanged() override { sm->handleBridgingMaxFrameSize(); }
      void switchIntfConfigChanged(const Wire::IntfId& intf) override {
         sm->handleSwitchIntfConfig(intf);
      }
      void vlanConfigChanged(const Bridging::VlanId& vlanId) override {
         sm->handleBridgingVlanConfig(vlanId);
      }
   };
   // A switchport's mode or native VLAN (the directory reports only members coming and
   // going, so each member is watched too).
   struct SwitchIntfReactor : Bridging::SwitchIntfConfig::Notifiee {
      InputSm* sm;
      Wire::IntfId intf;
      void switchportModeChanged() override { sm->handleSwitchIntfConfig(intf); }
      void nativeVlanChanged() override { sm->handleSwitchIntfConfig(intf); }
   };
   struct IntfConfigDirReactor : Interface::EthPhyIntfConfigDir::Notifiee {
      InputSm* sm;
      void intfConfigChanged(const Wire::IntfId& intf) override { sm->handleIntfConfig(intf); }
   };
   struct IntfConfigReactor : Interface::EthPhyIntfConfig::Notifiee {
      InputSm* sm;
      Wire::IntfId intf;
      void descriptionChanged() override { sm->handleIntfConfig(intf); }
   };
   struct RoutingReactor : Routing::Config::Notifiee {
      InputSm* sm;
      void ipRoutingChanged() override { sm->handleRouting(); }
   };
   struct SysDescrReactor : EntityMib::SysDescr::Notifiee {
      InputSm* sm;
      void descriptionChanged() override { sm->handleDescription(); }
   };
   struct NetStatusReactor : System::NetStatus::Notifiee {
      InputSm* sm;
      void hostnameChanged() override { sm->handleHostnameOrDomainName(); }
      void domainNameChanged() override { sm->handleHostnameOrDomainName(); }
   };

   Root* root_;
   Lldp::CliConfig::PtrConst cliConfig_;
   Interface::EthPhyIntfConfigDir::PtrConst ethPhyIntfConfigDir_;
   Routing::Config::PtrConst routingConfig_;
   EntityMib::SysDescr::PtrConst sysDescr_;
   System::NetStatus::PtrConst netStatus_;
   bool initialized_ = false;
   std::map<Wire::IntfId, Vel::Ptr<CliPortConfigSm>> cliPortConfigSm_;
   std::map<Wire::IntfId, std::unique_ptr<SwitchIntfReactor>> switchIntfReactor_;
   std::map<Wire::IntfId, std::unique_ptr<IntfConfigReactor>> intfConfigReactor_;
   std::map<Bridging::VlanId, Vel::Ptr<VlanBridgingConfigSm>> vlanBridgingConfigSm_;
   CliReactor cliReactor_;
   BridgingReactor bridgingReactor_;
   IntfConfigDirReactor intfConfigDirReactor_;
   RoutingReactor routingReactor_;
   SysDescrReactor sysDescrReactor_;
   NetStatusReactor netStatusReactor_;
};

// One Ethernet or management port: while its forwarding model lets LLDP run, the port has
// its configuration, local port and status records and wants packet access.
class EthPhyIntfStatusSm : public Vel::RefCounted, private Interface::EthPhyIntfStatus::Notifiee {
public:
   EthPhyIntfStatusSm(Root* root, Interface::EthPhyIntfStatus::PtrConst intfStatus);
   const Wire::IntfId& intfId() const { return intfStatus_->intfId(); }
   const Interface::EthPhyIntfStatus::PtrConst& intfStatus() const { return intfStatus_; }
   bool active() const { return active_; }
   void handleInitialized();
   void doClose();
   void handleForwardingModel();
   void handleMaxMtu();

private:
   void forwardingModelChanged() override { handleForwardingModel(); }
   void maxMtuChanged() override { handleMaxMtu(); }
   void doCreatePort();
   Root* root_;
   Interface::EthPhyIntfStatus::PtrConst intfStatus_;
   bool active_ = false;
};

// Keeps one EthPhyIntfStatusSm per LLDP-capable port and the port-to-aggregate map.
class ActiveEthIntfStatusDirSm : public Vel::RefCounted {
public:
   ActiveEthIntfStatusDirSm(Root* root, Interface::EthPhyIntfStatusDir::PtrConst phyDir,
                            Interface::EthLagIntfStatusDir::PtrConst lagDir);
   ~ActiveEthIntfStatusDirSm() override;
   void handleInitialized();
   void doClose();
   void handlePhyIntfStatus(const Wire::IntfId& intf);
   void handleLagIntfStatus(const Wire::IntfId& lag);
   const std::map<Wire::IntfId, Vel::Ptr<EthPhyIntfStatusSm>>& ethPhyIntfStatusSm() const {
      return ethPhyIntfStatusSm_;
   }

private:
   struct PhyDirReactor : Interface::EthPhyIntfStatusDir::Notifiee {
      ActiveEthIntfStatusDirSm* sm;
      void intfStatusChanged(const Wire::IntfId& intf) override { sm->handlePhyIntfStatus(intf); }
   };
   struct LagDirReactor : Interface::EthLagIntfStatusDir::Notifiee {
      ActiveEthIntfStatusDirSm* sm;
      void intfStatusChanged(const Wire::IntfId& lag) override { sm->handleLagIntfStatus(lag); }
   };
   struct LagReactor : Interface::EthLagIntfStatus::Notifiee {
      ActiveEthIntfStatusDirSm* sm;
      Wire::IntfId lag;
      void memberChanged(const Wire::IntfId&) override { sm->handleLagIntfStatus(lag); }
   };

   Root* root_;
   Interface::EthPhyIntfStatusDir::PtrConst phyDir_;
   Interface::EthLagIntfStatusDir::PtrConst lagDir_;
   std::map<Wire::IntfId, Vel::Ptr<EthPhyIntfStatusSm>> ethPhyIntfStatusSm_;
   std::map<Wire::IntfId, std::unique_ptr<LagReactor>> lagReactor_;
   std::map<Wire::IntfId, std::set<Wire::IntfId>> lagMembers_;
   PhyDirReactor phyDirReactor_;
   LagDirReactor lagDirReactor_;
};

}  // namespace Lldp::Agent::Input

// The input side: turns the operator's configuration and the platform's state into the
// records the protocol engine and the transmit builder read (the effective
// configuration with one port configuration per LLDP-capable port, the local system and
// one local port per port, and each port's status record), and asks for packet access on
// every such port.
//
// A tree of machines under one root. InputSm follows the global configuration and the
// system's identity and owns the machines keyed by interface or VLAN. The machines live
// in files by concern, each with its own header included here:
//    LldpInputPorts        port records and packet access (EthPhyIntfStatusSm, the
//                          management ports' MgmtEthPhyIntfStatusSm, the directory
//                          machine) and the operator's per-port settings (CliPortConfigSm)
//    LldpInputPortAttrs    port description, port VLAN, VLAN names (EthPhyIntfConfigSm,
//                          SwitchIntfConfigSm, VlanBridgingConfigSm)
//    LldpInputMgmtAddr     which management addresses are advertised, in what order
//                          (IpIntfStatusSm, priorities, fallback, IPv6)
//    LldpInputExternalTlv  TLVs other programs ask to advertise (ExternalTlvConfigSm)
//    LldpInputBypass       LLDP on ports port authentication holds closed
//                          (IdentityDot1xStatusSm, IdentityMacsecStatusSm)
//    LldpInputRemTables    the operator's requests to clear the neighbour tables
//    LldpInputNetworkPolicy  LLDP-MED network policies (NetworkPolicySm)
//    LldpInputPoe          power agents and neighbours' power requests (PoeSm)
// Every handler re-derives its result from the entities as they are now, so the order in
// which the reactors of one change run does not matter.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>

#include "Framework/Trace.h"
#include "Framework/Vel/Dir.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Wire/IntfMap.h"
#include "Framework/Wire/PamMan.h"
#include "Lldp/LldpInputBypass.h"
#include "Lldp/LldpInputExternalTlv.h"
#include "Lldp/LldpInputMgmtAddr.h"
#include "Lldp/LldpInputNetworkPolicy.h"
#include "Lldp/LldpInputPoe.h"
#include "Lldp/LldpInputPortAttrs.h"
#include "Lldp/LldpInputPorts.h"
#include "Lldp/LldpInputRemTables.h"
#include "Lldp/LldpNbrClassificationSm.h"
#include "Records/Bridging.h"
#include "Records/IntfStatus.h"
#include "Records/Lldp.h"
#include "Records/SystemStatus.h"

namespace Lldp::Agent::Input {

using Lldp::Agent::NbrClassificationSm;
class InputSm;

// Trace handle of the input machines (shared with the rest of the agent).
extern Vel::Trace::Handle traceLldpAgent;

// Only Ethernet and management ports run LLDP, and of the Ethernet ports only those that
// are connected (an Ethernet interface named UnconnectedEthernet... has no front-panel
// port). Public for the agent's standby handling too.
bool lldpCapable(const Wire::IntfId& intf);

// A management port of this supervisor: its name begins with "Management<cellId>/".
bool isLocalMgmtIntf(const Wire::IntfId& intf, uint32_t cellId);

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

// Platform strings (descriptions, names) are cut, never refused, at 255 bytes.
std::string cutTo255(std::string_view s);

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
// An Ethernet port's maximum frame size: its own where the bridging configuration has one
// for it, else the bridge's, at most what the TLV carries.
void syncMaximumFrameSize(Lldp::LocalPort& localPort, const Bridging::Config& bridgingConfig);
// The aggregates a port belongs to, lowest first.
class Lags {
public:
   const Wire::IntfSet& lagId() const { return lagId_; }
   bool lagId(const Wire::IntfId& lag) const { return lagId_.count(lag) != 0; }
   void lagIdIs(const Wire::IntfId& lag, bool member) {
      if (member) {
         lagId_.insert(lag);
      } else {
         lagId_.erase(lag);
      }
   }
   void lagIdDel(const Wire::IntfId& lag) { lagId_.erase(lag); }
   bool empty() const { return lagId_.empty(); }

private:
   Wire::IntfSet lagId_;
};
// A port joined or left an aggregate: the map, then the port's records follow.
void addLagMember(const Wire::IntfId& member, const Wire::IntfId& lag, Root& root);
void removeLagMember(const Wire::IntfId& member, const Wire::IntfId& lag, Root& root);
// The port's governing aggregate moved from oldLag to newLag (either may be empty).
void notifyPortLagChange(const Wire::IntfId& port, const Wire::IntfId& oldLag,
                         const Wire::IntfId& newLag, Root& root);

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
   const Identity::Dot1x::Status::PtrConst& identityDot1xStatus() const {
      return identityDot1xStatus_;
   }
   void identityDot1xStatusIs(Identity::Dot1x::Status::PtrConst s) {
      identityDot1xStatus_ = std::move(s);
   }
   const Identity::Macsec::Status::PtrConst& identityMacsecStatus() const {
      return identityMacsecStatus_;
   }
   void identityMacsecStatusIs(Identity::Macsec::Status::PtrConst s) {
      identityMacsecStatus_ = std::move(s);
   }

   // What the global input machine watches besides the root's own entities.
   struct InputEntities {
      Lldp::CliConfig::PtrConst cliConfig;
      Interface::EthPhyIntfConfigDir::PtrConst ethPhyIntfConfigDir;
      Routing::Config::PtrConst routingConfig;
      EntityMib::SysDescr::PtrConst sysDescr;
      System::NetStatus::PtrConst netStatus;
      Ip::Status::PtrConst ipStatus;
      Ip6::Status::PtrConst ip6Status;
      Vel::Ptr<const Vel::Dir> externalTlvsDir;
   };
   const Vel::Ptr<InputSm>& inputSm() const { return inputSm_; }
   void inputSmIs(InputEntities entities);
   void inputSmDel();
   const Vel::Ptr<ActiveEthIntfStatusDirSm>& activeEthIntfStatusDirSm() const {
      return activeEthIntfStatusDirSm_;
   }
   void activeEthIntfStatusDirSmIs(Interface::EthPhyIntfStatusDir::PtrConst ethPhyIntfStatusDir,
                                   Interface::EthLagIntfStatusDir::PtrConst lagIntfStatusDir);
   void activeEthIntfStatusDirSmDel();
   // On a standby supervisor, in place of the active one's port machines.
   const Vel::Ptr<StandbyEthIntfStatusDirSm>& standbyEthIntfStatusDirSm() const {
      return standbyEthIntfStatusDirSm_;
   }
   void standbyEthIntfStatusDirSmIs(Interface::EthPhyIntfStatusDir::PtrConst ethPhyIntfStatusDir);
   void standbyEthIntfStatusDirSmDel();
   const Vel::Ptr<RemTablesClearRequestSm>& remTablesClearRequestSm() const {
      return remTablesClearRequestSm_;
   }
   void remTablesClearRequestSmIs(Lldp::RemTablesCliConfig::PtrConst remTablesCliConfig);
   void remTablesClearRequestSmDel();
   // The bypass machines watch the identity entities given to the root.
   const Vel::Ptr<IdentityDot1xStatusSm>& identityDot1xStatusSm() const {
      return identityDot1xStatusSm_;
   }
   void identityDot1xStatusSmIs();
   void identityDot1xStatusSmDel();
   const Vel::Ptr<IdentityMacsecStatusSm>& identityMacsecStatusSm() const {
      return identityMacsecStatusSm_;
   }
   void identityMacsecStatusSmIs();
   void identityMacsecStatusSmDel();
   // Network policy and PoE (LldpInputNetworkPolicy, LldpInputPoe).
   const Vel::Ptr<NetworkPolicySm>& networkPolicySm() const { return networkPolicySm_; }
   void networkPolicySmIs();
   void networkPolicySmDel();
   const Vel::Ptr<PoeSm>& poeSm() const { return poeSm_; }
   void poeSmIs(Vel::Ptr<const Vel::Dir> powerAgentDir,
                Lldp::PowerRequestStatus::Ptr powerRequestStatus);
   void poeSmDel();
   // Neighbour classification (LldpNbrClassificationSm): follows the status given to the
   // root and the operator's classifications, and publishes into `status`.
   const Vel::Ptr<NbrClassificationSm>& nbrClassificationSm() const { return nbrClassificationSm_; }
   void nbrClassificationSmIs(Identity::NbrClassification::Status::Ptr status,
                              Identity::NbrClassification::CliConfig::PtrConst cliConfig);
   void nbrClassificationSmDel();
   // Closes the machines (each removes what it published).
   void doClose();

   // The interface index of an interface; 0 when the platform does not know it.
   uint32_t ifIndexVal(const Wire::IntfId& intf) const;
   uint32_t ifIndex(const Interface::IntfStatus& intfStatus) const {
      return ifIndexVal(intfStatus.intfId());
   }

   // Aggregates each port belongs to, kept from the platform's aggregate status: an
   // entry exists while the port is in at least one.
   const Wire::IntfMap<Lags>& portToLagsMap() const { return portToLagsMap_; }
   const Lags* portToLagsMap(const Wire::IntfId& port) const;
   Lags& portToLagsMapIs(const Wire::IntfId& port) { return portToLagsMap_[port]; }
   void portToLagsMapDel(const Wire::IntfId& port) { portToLagsMap_.erase(port); }
   // The lowest aggregate the port belongs to; empty when it is in none.
   Wire::IntfId portToLag(const Wire::IntfId& port) const;

   // Management addresses (see LldpInputMgmtAddr.h).
   const Lldp::ManagementAddress::Key& fallbackManagementAddressKey() const {
      return fallbackManagementAddressKey_;
   }
   bool fallbackManagementAddressKeyPresent() const { return fallbackManagementAddressKeyPresent_; }
   void fallbackManagementAddressKeyIs(const Lldp::ManagementAddress::Key& key, bool present) {
      fallbackManagementAddressKey_ = key;
      fallbackManagementAddressKeyPresent_ = present;
   }
   // The computed priority of the interface named in interface-name mode (the zero
   // priority in the other modes, which no interface has).
   const Lldp::ManAddrPriority& sourceIntfNamePriority() const { return sourceIntfNamePriority_; }
   void sourceIntfNamePriorityIs(const Lldp::ManAddrPriority& p) { sourceIntfNamePriority_ = p; }
   // Interfaces that carry an address another interface already advertises, by address.
   const std::map<Lldp::ManagementAddress::Key, Wire::IntfSet>& skippedAddr() const {
      return skippedAddr_;
   }
   void skippedAddrIntfIs(const Lldp::ManagementAddress::Key& key, const Wire::IntfId& intf);
   void skippedAddrIntfDel(const Lldp::ManagementAddress::Key& key, const Wire::IntfId& intf);

private:
   Lldp::Config::Ptr config_;
   Lldp::LocalSystem::Ptr localSystem_;
   Lldp::Status::Ptr status_;
   Lldp::RemTablesStatus::Ptr remTablesStatus_;
   Bridging::Config::PtrConst bridgingConfig_;
   Interface::AllIntfStatusDir::PtrConst allIntfStatusDir_;
   Interface::PamDesiredIntfDir::Ptr desiredIntfDir_;
   Identity::Dot1x::Status::PtrConst identityDot1xStatus_;
   Identity::Macsec::Status::PtrConst identityMacsecStatus_;
   Vel::Ptr<IdentityDot1xStatusSm> identityDot1xStatusSm_;
   Vel::Ptr<IdentityMacsecStatusSm> identityMacsecStatusSm_;
   Vel::Ptr<InputSm> inputSm_;
   Vel::Ptr<ActiveEthIntfStatusDirSm> activeEthIntfStatusDirSm_;
   Vel::Ptr<StandbyEthIntfStatusDirSm> standbyEthIntfStatusDirSm_;
   Vel::Ptr<RemTablesClearRequestSm> remTablesClearRequestSm_;
   Vel::Ptr<NetworkPolicySm> networkPolicySm_;
   Vel::Ptr<PoeSm> poeSm_;
   Vel::Ptr<NbrClassificationSm> nbrClassificationSm_;
   Wire::IntfMap<Lags> portToLagsMap_;
   Lldp::ManagementAddress::Key fallbackManagementAddressKey_;
   bool fallbackManagementAddressKeyPresent_ = false;
   Lldp::ManAddrPriority sourceIntfNamePriority_;
   std::map<Lldp::ManagementAddress::Key, Wire::IntfSet> skippedAddr_;
};

// The global configuration and the system's identity.
class InputSm : public Vel::RefCounted {
public:
   InputSm(Root* root, Root::InputEntities entities);
   ~InputSm() override;

   const Lldp::CliConfig::PtrConst& cliConfig() const { return cliConfig_; }
   const Ip::Status::PtrConst& ipStatus() const { return ipStatus_; }
   void handleInitialized();
   void doClose();

   void handleMessageTxInterval();
   void handleMessageTxHoldTime();
   void handleReinitDelay();
   void handleRxTaggedPacketsDrop();
   // The neighbour limit: the port's own, or the global one.
   void handleRemoteSystemLimit();
   void doSyncPortConfigRemoteSystemLimit(Lldp::PortConfig& portConfig);
   void handleEnabledTlvs();
   void handleEnabled();
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

   // Management addresses (LldpInputMgmtAddr.cpp).
   void handleMgmtAddrTxOption();
   void handleMgmtAddrVrf();
   void handleIntfStatusOrIpIntfStatus(const Wire::IntfId& intf);
   void handleIp6IntfStatus(const Wire::IntfId& intf);
   void handleIp6ManagementAddress();

   // External TLVs (LldpInputExternalTlv.cpp): a client's entity came, changed or went.
   void handleExternalTlvsEntityPtr(const std::string& name);
   bool externalTlvConfigSmHas(const std::string& name) const {
      return externalTlvConfigSm_.count(name) != 0;
   }

   // The port's full configuration sync and its admin status alone.
   void doSyncPortConfig(Lldp::PortConfig& portConfig);
   void doSyncPortConfigAdminStatus(Lldp::PortConfig& portConfig);
   // The port's network policies from its CLI configuration (LldpInputNetworkPolicy.cpp).
   void doSyncPortConfigNetworkPolicy(Lldp::PortConfig& portConfig);
   // The port's TLV selection from the global switches.
   void doSyncPortConfigTlvs(Lldp::PortConfig& portConfig);
   // The local port's values that come from configuration and bridging.
   void doSyncLocalPort(Lldp::LocalPort& localPort);
   // A port's aggregate changed: it leaves the old one's switchport machine and joins the
   // new one's, and its LAG TLV and configuration follow.
   void doNotifyPortLagChange(const Wire::IntfId& port, const Wire::IntfId& oldLag,
                              const Wire::IntfId& newLag);
   // A port's records are going: it leaves the switchport machine that served it.
   void doRemoveLocalPort(const Wire::IntfId& port);

   const Lldp::CliPortConfig* cliPortConfigOf(const Wire::IntfId& intf) const;
   bool cliPortConfigSmHas(const Wire::IntfId& intf) const {
      return cliPortConfigSm_.count(intf) != 0;
   }
   bool ethPhyIntfConfigSmHas(const Wire::IntfId& intf) const {
      return ethPhyIntfConfigSm_.count(intf) != 0;
   }
   const Wire::IntfMap<Vel::Ptr<IpIntfStatusSm>>& ipIntfStatusSm() const { return ipIntfStatusSm_; }
   IpIntfStatusSm* ipIntfStatusSm(const Wire::IntfId& intf) const;

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
      void remoteSystemLimitChanged() override { sm->handleRemoteSystemLimit(); }
      void remoteSystemLimitTotalChanged() override { sm->handleRemoteSystemLimit(); }
      void cliPortConfigChanged(const Wire::IntfId& intf) override {
         sm->handleCliPortConfig(intf);
      }
   };
   struct BridgingReactor : Bridging::Config::Notifiee {
      InputSm* sm;
      void bridgeMacAddrChanged() override { sm->handleBridgeMacAddr(); }
      void maxFrameSizeChanged() override { sm->handleBridgingMaxFrameSize(); }
      void intfMaxFrameSizeChanged(const Wire::IntfId&) override {
         sm->handleBridgingMaxFrameSize();
      }
      void switchIntfConfigChanged(const Wire::IntfId& intf) override {
         sm->handleSwitchIntfConfig(intf);
      }
      void vlanConfigChanged(const Bridging::VlanId& vlanId) override {
         sm->handleBridgingVlanConfig(vlanId);
      }
   };
   struct IntfConfigDirReactor : Interface::EthPhyIntfConfigDir::Notifiee {
      InputSm* sm;
      void intfConfigChanged(const Wire::IntfId& intf) override { sm->handleIntfConfig(intf); }
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
   struct AllIntfStatusReactor : Interface::AllIntfStatusDir::Notifiee {
      InputSm* sm;
      void intfStatusChanged(const Wire::IntfId& intf) override {
         sm->handleIntfStatusOrIpIntfStatus(intf);
         sm->handleIp6IntfStatus(intf);
      }
   };
   struct IpStatusReactor : Ip::Status::Notifiee {
      InputSm* sm;
      void ipIntfStatusChanged(const Wire::IntfId& intf) override {
         sm->handleIntfStatusOrIpIntfStatus(intf);
      }
   };
   struct ExternalTlvsDirReactor : Vel::Dir::Notifiee {
      InputSm* sm;
      void entryChanged(const std::string& name) override { sm->handleExternalTlvsEntityPtr(name); }
   };
   struct Ip6StatusReactor : Ip6::Status::Notifiee {
      InputSm* sm;
      void intfChanged(const Wire::IntfId& intf) override { sm->handleIp6IntfStatus(intf); }
   };
   // One interface's IPv6 addresses (the directory reports only interfaces coming and
   // going).
   struct Ip6IntfReactor : Ip6::IntfStatus::Notifiee {
      InputSm* sm;
      void addrChanged(const Wire::Ip6Addr&) override { sm->handleIp6ManagementAddress(); }
   };
   // Whether an interface's IPv6 addresses may be advertised (management VRF, mode).
   bool ip6Eligible(const Wire::IntfId& intf) const;
   // The governing switchport of a port: its aggregate's, or its own.
   Wire::IntfId governingSwitchIntf(const Wire::IntfId& port) const;
   void doSyncPortSwitchIntf(Lldp::LocalPort& localPort);
   // The interface whose switchport machine serves the port now; empty for none.
   Wire::IntfId servingSwitchIntf(const Wire::IntfId& port) const;

   Root* root_;
   Lldp::CliConfig::PtrConst cliConfig_;
   Interface::EthPhyIntfConfigDir::PtrConst ethPhyIntfConfigDir_;
   Routing::Config::PtrConst routingConfig_;
   EntityMib::SysDescr::PtrConst sysDescr_;
   System::NetStatus::PtrConst netStatus_;
   Ip::Status::PtrConst ipStatus_;
   Ip6::Status::PtrConst ip6Status_;
   Vel::Ptr<const Vel::Dir> externalTlvsDir_;
   bool initialized_ = false;
   Wire::IntfMap<Vel::Ptr<CliPortConfigSm>> cliPortConfigSm_;
   Wire::MachineMap<EthPhyIntfConfigSm> ethPhyIntfConfigSm_;
   Wire::MachineMap<SwitchIntfConfigSm> switchIntfConfigSm_;
   // The aggregate whose switchport machine serves a member port. A port its own machine
   // serves has no entry (most ports: the machine's own set says so).
   Wire::IntfMap<Wire::IntfId> aggregateServed_;
   std::map<Bridging::VlanId, Vel::Ptr<VlanBridgingConfigSm>> vlanBridgingConfigSm_;
   Wire::IntfMap<Vel::Ptr<IpIntfStatusSm>> ipIntfStatusSm_;
   std::map<std::string, Vel::Ptr<ExternalTlvConfigSm>> externalTlvConfigSm_;
   Wire::IntfMap<std::unique_ptr<Ip6IntfReactor>> ip6IntfReactor_;
   // The advertised IPv6 address and the interface it comes from (empty: none).
   Wire::IntfId ip6Intf_;
   Wire::Ip6Addr ip6Addr_;
   CliReactor cliReactor_;
   BridgingReactor bridgingReactor_;
   IntfConfigDirReactor intfConfigDirReactor_;
   RoutingReactor routingReactor_;
   SysDescrReactor sysDescrReactor_;
   NetStatusReactor netStatusReactor_;
   AllIntfStatusReactor allIntfStatusReactor_;
   IpStatusReactor ipStatusReactor_;
   Ip6StatusReactor ip6StatusReactor_;
   ExternalTlvsDirReactor externalTlvsDirReactor_;
};

}  // namespace Lldp::Agent::Input

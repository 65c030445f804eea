// Ports: which Ethernet and management ports take part in LLDP, their records and
// packet access, the management ports' frame size, and the operator's per-port settings.
#pragma once

#include <map>
#include <memory>
#include <set>

#include "Framework/Vel/Entity.h"
#include "Framework/Wire/IntfMap.h"
#include "Records/IntfStatus.h"
#include "Records/Lldp.h"

namespace Lldp::Agent::Input {

class Root;

// One port the operator configured: its admin status, receive rate limit, ZTP boot VLAN,
// PoE fallback and network policies reach the port's configuration.
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
   // One application's policy, or all of them.
   void handleNetworkPolicyCliConfig(uint8_t appType);
   void handleNetworkPolicyCliConfig();

private:
   void networkPolicyConfigChanged(const uint8_t& appType) override {
      handleNetworkPolicyCliConfig(appType);
   }
   void adminStatusChanged() override { handleAdminStatus(); }
   void rxRateLimitEnabledChanged() override { handleRxRateLimit(); }
   void rxRateLimitMaxLldpdusChanged() override { handleRxRateLimit(); }
   void rxRateLimitIntervalChanged() override { handleRxRateLimit(); }
   void ztpBootVlanChanged() override { handleZtpBootVlan(); }
   void poeAllocatedPowerFallbackChanged() override { handlePoeAllocatedPowerFallback(); }
   void remoteSystemLimitChanged() override { handleRemoteSystemLimit(); }
   void handleRemoteSystemLimit();
   Root* root_;
   Lldp::CliPortConfig::PtrConst cliPortConfig_;
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

private:
   void forwardingModelChanged() override { handleForwardingModel(); }
   void doCreatePort();
   Root* root_;
   Interface::EthPhyIntfStatus::PtrConst intfStatus_;
   bool active_ = false;
};

// A management port's maximum frame size: there is no bridge setting for management
// ports, so the largest MTU the port takes, plus the Ethernet header and frame check
// sequence, bounds its frames.
class MgmtEthPhyIntfStatusSm : public Vel::RefCounted,
                               private Interface::EthPhyIntfStatus::Notifiee {
public:
   MgmtEthPhyIntfStatusSm(Root* root, Interface::EthPhyIntfStatus::PtrConst intfStatus);
   const Wire::IntfId& intfId() const { return intfStatus_->intfId(); }
   void handleInitialized();
   void doClose();
   void handleMaxMtu();

private:
   void maxMtuChanged() override { handleMaxMtu(); }
   Root* root_;
   Interface::EthPhyIntfStatus::PtrConst intfStatus_;
};

// One link aggregation group: its members are entered into the root's port-to-aggregate
// map while they belong to it.
class EthLagIntfStatusSm : public Vel::RefCounted, private Interface::EthLagIntfStatus::Notifiee {
public:
   EthLagIntfStatusSm(Root* root, Interface::EthLagIntfStatus::PtrConst lagIntfStatus);
   const Wire::IntfId& intfId() const { return lagIntfStatus_->intfId(); }
   const Interface::EthLagIntfStatus::PtrConst& lagIntfStatus() const { return lagIntfStatus_; }
   void handleInitialized();
   void doClose();
   void handleMember(const Wire::IntfId& intf);

private:
   void memberChanged(const Wire::IntfId& intf) override { handleMember(intf); }
   Root* root_;
   Interface::EthLagIntfStatus::PtrConst lagIntfStatus_;
   // The members entered into the map.
   Wire::IntfSet member_;
};

// Keeps one EthPhyIntfStatusSm per LLDP-capable port (and a MgmtEthPhyIntfStatusSm per
// management port) and one EthLagIntfStatusSm per aggregate.
class ActiveEthIntfStatusDirSm : public Vel::RefCounted {
public:
   ActiveEthIntfStatusDirSm(Root* root, Interface::EthPhyIntfStatusDir::PtrConst phyDir,
                            Interface::EthLagIntfStatusDir::PtrConst lagDir);
   ~ActiveEthIntfStatusDirSm() override;
   void handleInitialized();
   void doClose();
   void handlePhyIntfStatus(const Wire::IntfId& intf);
   void handleLagIntfStatus(const Wire::IntfId& lag);
   const Wire::MachineMap<EthPhyIntfStatusSm>& ethPhyIntfStatusSm() const {
      return ethPhyIntfStatusSm_;
   }
   MgmtEthPhyIntfStatusSm* mgmtEthPhyIntfStatusSm(const Wire::IntfId& intf) const;

private:
   struct PhyDirReactor : Interface::EthPhyIntfStatusDir::Notifiee {
      ActiveEthIntfStatusDirSm* sm;
      void intfStatusChanged(const Wire::IntfId& intf) override { sm->handlePhyIntfStatus(intf); }
   };
   struct LagDirReactor : Interface::EthLagIntfStatusDir::Notifiee {
      ActiveEthIntfStatusDirSm* sm;
      void intfStatusChanged(const Wire::IntfId& lag) override { sm->handleLagIntfStatus(lag); }
   };

   Root* root_;
   Interface::EthPhyIntfStatusDir::PtrConst phyDir_;
   Interface::EthLagIntfStatusDir::PtrConst lagDir_;
   Wire::MachineMap<EthPhyIntfStatusSm> ethPhyIntfStatusSm_;
   Wire::IntfMap<Vel::Ptr<MgmtEthPhyIntfStatusSm>> mgmtEthPhyIntfStatusSm_;
   Wire::IntfMap<Vel::Ptr<EthLagIntfStatusSm>> ethLagIntfStatusSm_;
   PhyDirReactor phyDirReactor_;
   LagDirReactor lagDirReactor_;
};

// On a standby supervisor: every LLDP-capable port is wanted for packet access, and
// nothing else is published.
class StandbyEthIntfStatusDirSm : public Vel::RefCounted,
                                  private Interface::EthPhyIntfStatusDir::Notifiee {
public:
   StandbyEthIntfStatusDirSm(Root* root, Interface::EthPhyIntfStatusDir::PtrConst phyDir);
   void handleInitialized();
   void doClose();
   void doMaybeCreateDesiredIntf(const Wire::IntfId& intf);

private:
   void intfStatusChanged(const Wire::IntfId& intf) override { doMaybeCreateDesiredIntf(intf); }
   Root* root_;
   Interface::EthPhyIntfStatusDir::PtrConst phyDir_;
   Wire::IntfSet desired_;
};

}  // namespace Lldp::Agent::Input

// Port attributes that come from the platform's interface and bridging state rather than
// from the LLDP configuration: the port description, the port VLAN ID and the VLAN
// names.
#pragma once

#include <absl/container/inlined_vector.h>

#include <algorithm>
#include <optional>
#include <set>

#include "Framework/Vel/Entity.h"
#include "Framework/Vel/SmallVector.h"
#include "Framework/Wire/IntfMap.h"
#include "Records/Bridging.h"
#include "Records/IntfStatus.h"
#include "Records/Lldp.h"

namespace Lldp::Agent::Input {

class Root;

// One interface's configuration: its description is the port description. It holds the
// record as its notifiee, from construction until doClose().
class EthPhyIntfConfigSm : public Vel::RefCounted, private Interface::EthPhyIntfConfig::Notifiee {
public:
   EthPhyIntfConfigSm(Root* root, Interface::EthPhyIntfConfig::PtrConst intfConfig);
   const Wire::IntfId& intfId() const { return notifierPtr()->intfId(); }
   Interface::EthPhyIntfConfig::PtrConst intfConfig() const { return notifier(); }
   void handleInitialized();
   void doClose();
   void handleDescription();
   void doSyncLocalPort(Lldp::LocalPort& localPort);

private:
   void descriptionChanged() override { handleDescription(); }
   Root* root_;
};

// One switchport (a port's, or an aggregate's, which then governs its members): its
// native VLAN is the port VLAN ID of the ports it serves, and its mode rules their admin
// status.
class SwitchIntfConfigSm : public Vel::RefCounted, private Bridging::SwitchIntfConfig::Notifiee {
public:
   // It holds the configuration as its notifiee, from construction until doClose().
   SwitchIntfConfigSm(Root* root, Bridging::SwitchIntfConfig::PtrConst switchIntfConfig);
   const Wire::IntfId& intfId() const { return notifierPtr()->intfId(); }
   Bridging::SwitchIntfConfig::PtrConst switchIntfConfig() const { return notifier(); }
   void handleInitialized();
   void doClose();
   void handleSwitchportModeAndNativeVlan();
   void doSyncLocalPort(Lldp::LocalPort& localPort);
   void doAddPort(const Wire::IntfId& portId);
   void doRemovePort(const Wire::IntfId& portId);
   // The ports it serves, in order: the port itself for a port's own switchport (a flag),
   // an aggregate's members otherwise (a vector made with the first).
   using Ports = absl::InlinedVector<Wire::IntfId, 1>;
   Ports associatedIntfId() const;
   bool associatedIntfIdHas(const Wire::IntfId& intf) const {
      if (intf == intfId()) return servesOwn_;
      return std::binary_search(members_.begin(), members_.end(), intf);
   }

private:
   void switchportModeChanged() override { handleSwitchportModeAndNativeVlan(); }
   void nativeVlanChanged() override { handleSwitchportModeAndNativeVlan(); }
   Root* root_;
   Vel::SmallVector<Wire::IntfId> members_;
   bool servesOwn_ = false;
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
   void handleConfigChange(const Wire::IntfId& intf, bool onlyWhenDifferent = false);
   void handleNameChange();

private:
   void nameChanged() override { handleNameChange(); }
   void memberChanged(const Wire::IntfId& intf) override { handleMemberChange(intf); }
   void promotedPortChanged(const Wire::IntfId& intf) override { handleMemberChange(intf); }
   void handleMemberChange(const Wire::IntfId& intf);
   bool carries(const Wire::IntfId& port) const;
   // The name as advertised; none when it does not fit the TLV (a range error, traced).
   std::optional<Lldp::VlanName> vlanName() const;
   // Writes the name unless the port already holds it; true when it wrote.
   bool writeName(Lldp::PortStatus& portStatus, const Lldp::VlanName& name);
   void delVlanFromAllPorts(const char* reason);
   Root* root_;
   Bridging::VlanConfig::PtrConst vlanConfig_;
   Bridging::VlanId vlanId_;
};

}  // namespace Lldp::Agent::Input

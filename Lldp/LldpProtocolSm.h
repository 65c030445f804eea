// The protocol engine above the per-port machines (Lldp/LldpPamSm.h): the machines that
// keep one per-port machine for every port that has its records and packet access and
// turn local changes into transmissions, and their root, which also owns the packet
// access manager.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "Framework/Trace.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Vel/StateDb.h"
#include "Framework/Wire/IntfMap.h"
#include "Framework/Wire/Pam.h"
#include "Framework/Wire/PamMan.h"
#include "Lldp/LldpPamSm.h"
#include "Records/IntfStatus.h"
#include "Records/Lldp.h"

namespace Lldp::Agent::Protocol {

class Root;
class ProtocolSm;
class OnOffSwitchSm;

class LocalPortSm;

// Watches one local port's PoE record: what it says goes into the Power via MDI TLV. A
// part of the port's machine, attached while the port has a PoE record (a machine of
// its own for each port cost a block and a reference count).
class LocalPortPoeInfoSm : private Lldp::LocalPortPoeInfo::Notifiee {
public:
   explicit LocalPortPoeInfoSm(const LocalPortSm* owner) : owner_(owner) {}
   // Held as the notifiee's own, from handleInitialized() until doClose().
   Vel::Ptr<const Lldp::LocalPortPoeInfo> poeInfo() const { return notifier(); }
   void handleInitialized(Vel::Ptr<const Lldp::LocalPortPoeInfo> poeInfo);
   void doClose();
   void handleAttrsChanged();

private:
   void poePortStatusChanged() override { handleAttrsChanged(); }
   void remoteSystemChanged() override { handleAttrsChanged(); }
   const LocalPortSm* owner_;
};

// Watches one local port record: a change of one of its seven advertised attributes (port
// ID and description, port VLAN, aggregation, frame size, LLDP-MED capabilities, network
// policies) is a local change of that port only. The external TLVs and the ZTP boot VLAN
// go with the port's next frame; its PoE record has a machine of its own, and that record
// appearing or going is no change by itself.
class LocalPortSm : public Vel::RefCounted, private Lldp::LocalPort::Notifiee {
public:
   LocalPortSm(Root* root, Lldp::LocalPort::PtrConst localPort);
   Root* root() const { return root_; }
   const Wire::IntfId& intfId() const { return localPort_->intfId(); }
   const Lldp::LocalPort::PtrConst& localPort() const { return localPort_; }
   // Null while the port has no PoE record.
   const LocalPortPoeInfoSm* localPortPoeInfoSm() const {
      return localPortPoeInfoSm_.poeInfo() ? &localPortPoeInfoSm_ : nullptr;
   }
   void handleInitialized();
   void doClose();
   void handleLocalPortAttrs();
   void handleLocalPortPoE();

private:
   void portIdentifierChanged() override { handleLocalPortAttrs(); }
   void portDescChanged() override { handleLocalPortAttrs(); }
   void portVlanIdChanged() override { handleLocalPortAttrs(); }
   void linkAggregationInfoChanged() override { handleLocalPortAttrs(); }
   void maximumFrameSizeInfoChanged() override { handleLocalPortAttrs(); }
   void medCapabilitiesChanged() override { handleLocalPortAttrs(); }
   void localNetworkPolicyTlvChanged(const uint8_t&) override { handleLocalPortAttrs(); }
   void localPortPoeInfoChanged() override { handleLocalPortPoE(); }

   Root* root_;
   Lldp::LocalPort::PtrConst localPort_;
   LocalPortPoeInfoSm localPortPoeInfoSm_{this};
};

// A local port's advertised information changed: its per-port machine (if it has one)
// has something new to send.
void handleLocalPortAttrsChanged(Root& root, const Wire::IntfId& intf);

// Keeps the per-port machines: one for every port that has packet access, an interface
// status, a port configuration and a port status; a port that loses any of them loses its
// machine (and with it its neighbours). Turns a change of one of the local system's seven
// advertised attributes into a local change of every port, as it happens.
class ProtocolSm : public Vel::RefCounted {
public:
   using LldpPamSmMap = Wire::MachineMap<LldpPamSm>;
   using LocalPortSmMap = Wire::MachineMap<LocalPortSm>;

   explicit ProtocolSm(Root* root);
   ~ProtocolSm() override;

   void handleInitialized();
   void doClose();
   void handlePam(const Wire::IntfId& intf);
   void handleLocalPort(const Wire::IntfId& intf);
   void handleLocalSystemAttrs();

   const LldpPamSmMap& lldpPamSm() const { return lldpPamSm_; }
   Vel::Ptr<LldpPamSm> lldpPamSm(const Wire::IntfId& intf) const;
   bool lldpPamSmHas(const Wire::IntfId& intf) const { return lldpPamSm_.count(intf) != 0; }
   Vel::Ptr<LldpPamSm> lldpPamSmIs(const Wire::IntfId& intf, const Vel::Ptr<Wire::Pam>& pam);
   void lldpPamSmDel(const Wire::IntfId& intf);

   const LocalPortSmMap& localPortSm() const { return localPortSm_; }
   bool localPortSmHas(const Wire::IntfId& intf) const { return localPortSm_.count(intf) != 0; }
   Vel::Ptr<LocalPortSm> localPortSmIs(const Wire::IntfId& intf);
   void localPortSmDel(const Wire::IntfId& intf);

private:
   struct PortReactor : Lldp::Config::Notifiee {
      ProtocolSm* sm;
      void portConfigChanged(const Wire::IntfId& intf) override { sm->handlePam(intf); }
   };
   struct StatusReactor : Lldp::Status::Notifiee {
      ProtocolSm* sm;
      void portStatusChanged(const Wire::IntfId& intf) override { sm->handlePam(intf); }
   };
   struct IntfStatusReactor : Interface::EthPhyIntfStatusDir::Notifiee {
      ProtocolSm* sm;
      void intfStatusChanged(const Wire::IntfId& intf) override { sm->handlePam(intf); }
   };
   struct PamReactor : Wire::PamCollection::Notifiee {
      ProtocolSm* sm;
      void intfPamChanged(const Wire::IntfId& intf) override { sm->handlePam(intf); }
   };
   // The local system's seven advertised attributes; its local ports have machines of
   // their own. The management addresses are advertised in the order of their priority
   // map, which the input side writes after an address and before removing one: a change
   // of the map is the change, the address records alone are not.
   struct LocalSystemReactor : Lldp::LocalSystem::Notifiee {
      ProtocolSm* sm;
      void chassisIdentifierChanged() override { sm->handleLocalSystemAttrs(); }
      void sysNameChanged() override { sm->handleLocalSystemAttrs(); }
      void sysDescChanged() override { sm->handleLocalSystemAttrs(); }
      void sysCapSupportedChanged() override { sm->handleLocalSystemAttrs(); }
      void sysCapEnabledChanged() override { sm->handleLocalSystemAttrs(); }
      void ip6ManagementAddressChanged() override { sm->handleLocalSystemAttrs(); }
      void managementAddressPrioChanged(const Lldp::ManAddrPriority&) override {
         sm->handleLocalSystemAttrs();
      }
      void localPortChanged(const Wire::IntfId& intf) override { sm->handleLocalPort(intf); }
   };
   Root* root_;
   bool initialized_ = false;
   LldpPamSmMap lldpPamSm_;
   LocalPortSmMap localPortSm_;
   PortReactor portReactor_;
   StatusReactor statusReactor_;
   IntfStatusReactor intfStatusReactor_;
   PamReactor pamReactor_;
   LocalSystemReactor localSystemReactor_;
};

// The global switch: packet access (and with it all LLDP frames) follows
// `cliConfig.enabled`.
class OnOffSwitchSm : public Vel::RefCounted, private Lldp::CliConfig::Notifiee {
public:
   explicit OnOffSwitchSm(Root* root);
   void handleInitialized();
   void handleEnabled();
   void doClose();

private:
   void enabledChanged() override { handleEnabled(); }
   Root* root_;
};

// Where the platform keeps interface status: on Linux, the state database.
using IntfStatusManagerRoot = Vel::StateDb*;

// clang-format off
#define LLDP_PROTOCOL_ROOT_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL)          \
   KEY(std::string, name)                                                                 \
   ATTR(Vel::Ptr<const Lldp::Config>, config, nullptr)                                    \
   ATTR(Vel::Ptr<const Lldp::CliConfig>, cliConfig, nullptr)                              \
   ATTR(Vel::Ptr<Lldp::Status>, status, nullptr)                                          \
   ATTR(Vel::Ptr<const Lldp::LocalSystem>, localSystem, nullptr)                          \
   ATTR(Vel::Ptr<const Interface::EthPhyIntfStatusDir>, ethPhyIntfStatusDir, nullptr)     \
   ATTR(Vel::Ptr<const Interface::EthPhyIntfStatusDir>, deviceIntfStatusDir, nullptr)     \
   ATTR(Vel::Ptr<const Interface::PamDesiredIntfDir>, desiredIntfDir, nullptr)            \
   ATTR(Vel::Ptr<Wire::PamCollection>, pamCollection, nullptr)                            \
   ATTR(Vel::Ptr<Wire::PamMan>, pamMan, nullptr)                                          \
   ATTR(IntfStatusManagerRoot, intfStatusManagerRoot, nullptr)                                    \
   ATTR(Vel::Ptr<const Interface::AllIntfStatusDir>, allIntfStatusDir, nullptr)           \
   ATTR(Vel::Ptr<Interface::AllIntfStatusDir>, allIntfStatusLocalDir, nullptr)            \
   ATTR(bool, filterByNetNs, true)
// clang-format on

// The protocol engine's root. The agent gives it the records, initialises the packet
// access manager, then creates the protocol machine and the on/off switch.
//
// Interface status: `intfStatusManagerRoot` is where the platform keeps it (the state
// database); from there the root takes `allIntfStatusDir` ("interface/status/all", every
// interface the platform knows) when it initialises packet access, and keeps
// `allIntfStatusLocalDir`, the records of that directory that this agent can reach:
// with `filterByNetNs` (the default) those in the agent's own network namespace (same
// name, same index), otherwise all of them. With the filter, packet access opens only on
// an interface of the local directory, and a port waiting for it is retried when it
// appears there. The machines
// point back at the root, so the root must be closed (doClose) to be freed.
class Root : public Vel::Entity {
   VEL_ENTITY(Root, LLDP_PROTOCOL_ROOT_ATTRS)
   explicit Root(std::string name);
   // The records alone, for driving the codec and single per-port machines.
   Root(Vel::Ptr<const Lldp::Config> config, Vel::Ptr<const Lldp::LocalSystem> localSystem,
        Vel::Ptr<Lldp::Status> status = nullptr);
   ~Root() override;

   // The receive filter every packet access object gets: LLDP frames to
   // 01-80-C2-00-00-0E, untagged or behind one 802.1Q tag.
   static std::vector<Wire::BpfInsn> lldpRxFilterProgram();
   // Creates the packet access manager (disabled) over desiredIntfDir and pamCollection,
   // with packets made by `factory`.
   void doInitializePamMan(Wire::PamMan::Factory factory);

   const Vel::Ptr<ProtocolSm>& protocolSm() const { return protocolSm_; }
   void protocolSmIs();
   void protocolSmDel();
   const Vel::Ptr<OnOffSwitchSm>& onOffSwitchSm() const { return onOffSwitchSm_; }
   void onOffSwitchSmIs();
   void onOffSwitchSmDel();
   // Switches packet access off (closing every per-port machine) and removes the machines.
   void doClose();
   // An interface of allIntfStatusDir came, changed or went: the local directory follows.
   void handleAllIntfStatus(const Wire::IntfId& intf);

private:
   struct DeviceReactor : Interface::EthPhyIntfStatusDir::Notifiee {
      Root* root;
      void intfStatusChanged(const Wire::IntfId& intf) override;
   };
   struct AllIntfStatusReactor : Interface::AllIntfStatusDir::Notifiee {
      Root* root;
      void intfStatusChanged(const Wire::IntfId& intf) override { root->handleAllIntfStatus(intf); }
   };
   Vel::Ptr<ProtocolSm> protocolSm_;
   Vel::Ptr<OnOffSwitchSm> onOffSwitchSm_;
   DeviceReactor deviceReactor_;
   AllIntfStatusReactor allIntfStatusReactor_;
};

Vel::Ptr<Root> rootFactory(const std::string& name);

}  // namespace Lldp::Agent::Protocol

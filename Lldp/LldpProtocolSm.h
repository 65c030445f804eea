// The protocol engine: the per-port machine (transmit state machine, receive path, rate
// limit, ageing), the machines that keep one per-port machine for every port that has
// its records and packet access and turn local changes into transmissions, and their
// root, which also owns the packet access manager.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "Framework/Trace.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Vel/EventLoop.h"
#include "Framework/Wire/Pam.h"
#include "Framework/Wire/PamMan.h"
#include "Records/IntfStatus.h"
#include "Records/Lldp.h"

namespace Lldp::Agent::Protocol {

class Root;
class ProtocolSm;
class OnOffSwitchSm;

// States of the per-port transmit machine.
enum TxFsmState : uint8_t {
   txFsmUninitialized = 0,
   txFsmDisabled = 1,
   txFsmTxWait = 2,
   txFsmTxDelay = 3,
   txFsmIdle = 4,
   txFsmReinitializing = 5,
};
std::ostream& operator<<(std::ostream& os, TxFsmState s);

// The per-port protocol machine: the transmit state machine with its timer, the receive
// path with its rate limit, and the ageing of the port's remote systems. Created by the
// protocol root for each port that has packet access and records; initialised with
// handleInitialized(), closed with doClose() before it is dropped.
class LldpPamSm : public Vel::RefCounted, private Wire::Pam::Notifiee {
public:
   static constexpr uint32_t maxTxFrameSize = 1518;  // with the frame check sequence
   static constexpr size_t lldpduRoom = 1500;

   LldpPamSm(const Wire::IntfId& intf, Vel::Ptr<Wire::Pam> pam, Vel::Ptr<const Root> root,
             Interface::EthPhyIntfStatus::PtrConst ethPhyIntfStatus,
             Lldp::PortConfig::PtrConst portConfig, Lldp::PortStatus::Ptr portStatus,
             Lldp::LocalPort::PtrConst localPort, Lldp::LocalSystem::PtrConst localSystem);
   // A machine without packet access or records, never initialised: what the receive
   // processor's own tests and benchmarks hand it (it only records a transmit nudge).
   explicit LldpPamSm(const Wire::IntfId& intf);
   ~LldpPamSm() override;

   const Wire::IntfId& intfId() const { return intfId_; }
   const Vel::Ptr<Wire::Pam>& pam() const { return pam_; }
   const Vel::Ptr<const Root>& root() const { return root_; }
   const Interface::EthPhyIntfStatus::PtrConst& ethPhyIntfStatus() const {
      return ethPhyIntfStatus_;
   }
   const Lldp::PortConfig::PtrConst& portConfig() const { return portConfig_; }
   const Lldp::PortStatus::Ptr& portStatus() const { return portStatus_; }
   const Lldp::LocalPort::PtrConst& localPort() const { return localPort_; }
   TxFsmState txFsmState() const { return txFsmState_; }
   TxFsmState lastTxFsmState() const { return lastTxFsmState_; }
   uint64_t rxLldpdus() const { return rxLldpdus_; }
   uint64_t rxLldpdusRateLimited() const { return rxLldpdusRateLimited_; }
   bool initialized() const { return initialized_; }
   const Vel::Clock& txClock() const { return txClock_; }
   const Vel::Clock& ageClock() const { return ageClock_; }
   const Vel::Clock& rxRateLimitClock() const { return rxRateLimitClock_; }

   void handleInitialized();
   void doClose();

   // Transmit.
   void txFsmStateIs(TxFsmState s);
   void handleTxFsmState();
   void handleTxClock();
   void handleAdminStatus();
   void handleLinkStatusTx();
   void handleRemoteSystem(int index);
   void doProcessSomethingChangedLocal();
   void doCheckPortEnabled();
   void doCheckStillTransmitting(bool conditionHolds, const char* stopTrace);
   void doSendLldpdu();
   Vel::Ptr<Wire::Pkt> doBuildLldpdu();

   // Receive.
   void handleReadableCount() override;
   void handleRxRateLimitClock();
   void handleRxRateLimitInterval();
   void handleAgeClock();
   void handleLinkStatusRx();
   void doDeleteAllRemoteSystems();

private:
   // Reactors on the records the machine watches, forwarding to its handlers.
   struct PortConfigReactor : Lldp::PortConfig::Notifiee {
      LldpPamSm* sm;
      void adminStatusChanged() override { sm->handleAdminStatus(); }
      void rxRateLimitIntervalChanged() override { sm->handleRxRateLimitInterval(); }
   };
   struct IntfStatusReactor : Interface::EthPhyIntfStatus::Notifiee {
      LldpPamSm* sm;
      void linkStatusChanged() override;
   };
   struct PortStatusReactor : Lldp::PortStatus::Notifiee {
      LldpPamSm* sm;
      void remoteSystemChanged(const int& index) override { sm->handleRemoteSystem(index); }
   };

   Wire::IntfId intfId_;
   Vel::Ptr<Wire::Pam> pam_;
   Vel::Ptr<const Root> root_;
   Vel::Clock txClock_;
   Vel::Clock ageClock_;
   Vel::Clock rxRateLimitClock_;
   Interface::EthPhyIntfStatus::PtrConst ethPhyIntfStatus_;
   Lldp::PortConfig::PtrConst portConfig_;
   Lldp::PortStatus::Ptr portStatus_;
   Lldp::LocalPort::PtrConst localPort_;
   Lldp::LocalSystem::PtrConst localSystem_;
   TxFsmState txFsmState_ = txFsmUninitialized;
   TxFsmState lastTxFsmState_ = txFsmUninitialized;
   // Starts a new rate-limit interval if `now` is past the current one.
   void doRxRateLimitIntervalAt(Vel::Seconds now);
   uint64_t rxLldpdus_ = 0;
   uint64_t rxLldpdusRateLimited_ = 0;
   // The end of the current rate-limit interval, and the configured length as last seen
   // (it applies to intervals that start after it was set).
   Vel::Seconds rxRateLimitEnd_ = 0;
   Vel::Seconds rxRateLimitInterval_ = 0;
   bool initialized_ = false;
   PortConfigReactor portConfigReactor_;
   IntfStatusReactor intfStatusReactor_;
   PortStatusReactor portStatusReactor_;
};

// Watches one local port's PoE record: what it says goes into the Power via MDI TLV.
class LocalPortPoeInfoSm : public Vel::RefCounted, private Lldp::LocalPortPoeInfo::Notifiee {
public:
   LocalPortPoeInfoSm(Root* root, const Wire::IntfId& intf,
                      Vel::Ptr<const Lldp::LocalPortPoeInfo> poeInfo);
   const Vel::Ptr<const Lldp::LocalPortPoeInfo>& poeInfo() const { return poeInfo_; }
   void handleInitialized();
   void doClose();
   void handleAttrsChanged();

private:
   void poePortStatusChanged() override { handleAttrsChanged(); }
   void remoteSystemChanged() override { handleAttrsChanged(); }
   Root* root_;
   Wire::IntfId intfId_;
   Vel::Ptr<const Lldp::LocalPortPoeInfo> poeInfo_;
};

// Watches one local port record: a change of what the port advertises is a local change
// of that port only.
class LocalPortSm : public Vel::RefCounted, private Lldp::LocalPort::Notifiee {
public:
   LocalPortSm(Root* root, Lldp::LocalPort::PtrConst localPort);
   const Lldp::LocalPort::PtrConst& localPort() const { return localPort_; }
   const Vel::Ptr<LocalPortPoeInfoSm>& localPortPoeInfoSm() const { return localPortPoeInfoSm_; }
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
   void ztpBootVlanChanged() override { handleLocalPortAttrs(); }
   void localNetworkPolicyTlvChanged(const uint8_t&) override { handleLocalPortAttrs(); }
   void unknownOrgDefTlvChanged(const Lldp::UnknownOrgDefTlv::Key&) override {
      handleLocalPortAttrs();
   }
   void localPortPoeInfoChanged() override { handleLocalPortPoE(); }

   Root* root_;
   Lldp::LocalPort::PtrConst localPort_;
   Vel::Ptr<LocalPortPoeInfoSm> localPortPoeInfoSm_;
};

// A local port's advertised information changed: its per-port machine (if it has one)
// has something new to send.
void handleLocalPortAttrsChanged(Root& root, const Wire::IntfId& intf);

// Keeps the per-port machines: one for every port that has packet access, an interface
// status, a port configuration, a port status and a local port record; a port that loses
// any of them loses its machine (and with it its neighbours). Turns changes of the local
// system into local changes of every port.
//
// Local changes are gathered during one turn of the event loop and handed to the
// per-port machines after it, so that a frame sent at once carries all the attributes an
// update changed together, not the first of them.
class ProtocolSm : public Vel::RefCounted {
public:
   using LldpPamSmMap = std::map<Wire::IntfId, Vel::Ptr<LldpPamSm>>;
   using LocalPortSmMap = std::map<Wire::IntfId, Vel::Ptr<LocalPortSm>>;

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

   // A local change of one port, handed to its machine after this turn of the loop.
   void doLocalChangeLater(const Wire::IntfId& intf);

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
   // The local system's advertised attributes; its local ports have machines of their own.
   struct LocalSystemReactor : Lldp::LocalSystem::Notifiee {
      ProtocolSm* sm;
      void chassisIdentifierChanged() override { sm->handleLocalSystemAttrs(); }
      void sysNameChanged() override { sm->handleLocalSystemAttrs(); }
      void sysDescChanged() override { sm->handleLocalSystemAttrs(); }
      void sysCapSupportedChanged() override { sm->handleLocalSystemAttrs(); }
      void sysCapEnabledChanged() override { sm->handleLocalSystemAttrs(); }
      void managementAddressChanged(const Lldp::ManagementAddress::Key&) override {
         sm->handleLocalSystemAttrs();
      }
      void ip6ManagementAddressChanged() override { sm->handleLocalSystemAttrs(); }
      void managementAddressPrioChanged(const Lldp::ManAddrPriority&) override {
         sm->handleLocalSystemAttrs();
      }
      void localPortChanged(const Wire::IntfId& intf) override { sm->handleLocalPort(intf); }
   };
   void doLocalChangeSoon();
   void doLocalChangeNow();

   Root* root_;
   bool initialized_ = false;
   LldpPamSmMap lldpPamSm_;
   LocalPortSmMap localPortSm_;
   bool localChangeAll_ = false;
   bool localChangePosted_ = false;
   std::vector<Wire::IntfId> localChangePorts_;
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
   ATTR(Vel::Ptr<Wire::PamMan>, pamMan, nullptr)
// clang-format on

// The protocol engine's root. The agent gives it the records, initialises the packet
// access manager, then creates the protocol machine and the on/off switch. The machines
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

private:
   struct DeviceReactor : Interface::EthPhyIntfStatusDir::Notifiee {
      Root* root;
      void intfStatusChanged(const Wire::IntfId& intf) override;
   };
   Vel::Ptr<ProtocolSm> protocolSm_;
   Vel::Ptr<OnOffSwitchSm> onOffSwitchSm_;
   DeviceReactor deviceReactor_;
};

Vel::Ptr<Root> rootFactory(const std::string& name);

// Trace handle of the protocol engine.
extern Vel::Trace::Handle traceLldpProtocolSm;

}  // namespace Lldp::Agent::Protocol

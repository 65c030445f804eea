// The protocol engine: its root (so far what the per-port machines read: the global
// configuration, the local system and the status) and the per-port machine.
#pragma once

#include "Framework/Trace.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Vel/EventLoop.h"
#include "Framework/Wire/Pam.h"
#include "Records/IntfStatus.h"
#include "Records/Lldp.h"

namespace Lldp::Agent::Protocol {

// clang-format off
#define LLDP_PROTOCOL_ROOT_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(Vel::Ptr<const Lldp::Config>, config, nullptr)                          \
   ATTR(Vel::Ptr<const Lldp::LocalSystem>, localSystem, nullptr)                \
   ATTR(Vel::Ptr<Lldp::Status>, status, nullptr)
// clang-format on

class Root : public Vel::Entity {
   VEL_ENTITY(Root, LLDP_PROTOCOL_ROOT_ATTRS)
   Root(Vel::Ptr<const Lldp::Config> config, Vel::Ptr<const Lldp::LocalSystem> localSystem,
        Vel::Ptr<Lldp::Status> status = nullptr)
       : config_(std::move(config)),
         localSystem_(std::move(localSystem)),
         status_(std::move(status)) {}
};

}  // namespace Lldp::Agent::Protocol

namespace Lldp::Agent::Protocol {

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
   void handleAgeClock();
   void handleLinkStatusRx();
   void doDeleteAllRemoteSystems();

private:
   // Reactors on the records the machine watches, forwarding to its handlers.
   struct PortConfigReactor : Lldp::PortConfig::Notifiee {
      LldpPamSm* sm;
      void adminStatusChanged() override { sm->handleAdminStatus(); }
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
   uint64_t rxLldpdus_ = 0;
   uint64_t rxLldpdusRateLimited_ = 0;
   bool initialized_ = false;
   PortConfigReactor portConfigReactor_;
   IntfStatusReactor intfStatusReactor_;
   PortStatusReactor portStatusReactor_;
};

// Trace handle of the protocol engine.
extern Vel::Trace::Handle traceLldpProtocolSm;

}  // namespace Lldp::Agent::Protocol

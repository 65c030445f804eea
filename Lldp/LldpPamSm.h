// The per-port protocol machine: the transmit state machine with its timer, the receive
// path with its rate limit, and the ageing of the port's remote systems.
#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <vector>

#include "Framework/Trace.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Vel/EventLoop.h"
#include "Framework/Wire/Pam.h"
#include "Lldp/LldpAgeQueue.h"
#include "Records/IntfStatus.h"
#include "Records/Lldp.h"

namespace Lldp::Agent::Protocol {

class Root;

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

// Created by the protocol root for each port that has packet access, an interface status,
// a port configuration and a port status; it takes those and the port's local record from
// the root when it is initialised (handleInitialized()), and is closed with doClose()
// before it is dropped.
//
// In real time a frame leaves at its deadline: each deadline that follows a timer is
// counted from the timer's own deadline, not from when the loop got round to it, so the
// refresh period is exactly messageTxInterval and ports that came up together keep
// sharing their wake-ups.
// It watches its records itself, as a notifiee of each (a port has one machine, so the
// three notifiee bases cost what three forwarding reactors would, less their pointers back).
class LldpPamSm : public Vel::RefCounted,
                  private Wire::Pam::Notifiee,
                  private Lldp::PortConfig::Notifiee,
                  private Interface::EthPhyIntfStatus::Notifiee,
                  private Lldp::PortStatus::Notifiee {
public:
   static constexpr uint32_t maxTxFrameSize = 1518;  // with the frame check sequence
   static constexpr size_t lldpduRoom = 1500;

   LldpPamSm(const Wire::IntfId& intf, Vel::Ptr<Wire::Pam> pam, Vel::Ptr<const Root> root);
   // A machine without packet access or records, never initialised: what the receive
   // processor's own tests and benchmarks hand it (it only records a transmit nudge).
   explicit LldpPamSm(const Wire::IntfId& intf);
   ~LldpPamSm() override;

   const Wire::IntfId& intfId() const { return intfId_; }
   const Vel::Ptr<Wire::Pam>& pam() const { return pam_; }
   const Vel::Ptr<const Root>& root() const { return root_; }
   // The records it watches, which it holds as their notifiee from handleInitialized()
   // until doClose() (null outside that).
   Interface::EthPhyIntfStatus::PtrConst ethPhyIntfStatus() const {
      return Interface::EthPhyIntfStatus::PtrConst(intfStatusRecord());
   }
   Lldp::PortConfig::PtrConst portConfig() const {
      return Lldp::PortConfig::PtrConst(portConfigRecord());
   }
   Lldp::PortStatus::Ptr portStatus() const { return Lldp::PortStatus::Ptr(portStatusRecord()); }
   const Lldp::LocalPort::PtrConst& localPort() const { return localPort_; }
   // The port's local record was replaced (or removed: nothing is sent or received
   // without one).
   void localPortIs(Lldp::LocalPort::PtrConst localPort) { localPort_ = std::move(localPort); }
   TxFsmState txFsmState() const { return txFsmState_; }
   TxFsmState lastTxFsmState() const { return lastTxFsmState_; }
   uint64_t rxLldpdus() const { return rxRateLimit_ ? rxRateLimit_->lldpdus : 0; }
   uint64_t rxLldpdusRateLimited() const {
      return rxRateLimit_ ? rxRateLimit_->lldpdusRateLimited : 0;
   }
   bool initialized() const { return initialized_; }
   const Vel::Clock& txClock() const { return txClock_; }
   const Vel::Clock& ageClock() const { return ageClock_; }
   // When the rate-limit clock fires next (never while it sleeps or was never needed).
   Vel::Seconds rxRateLimitClockTime() const {
      return rxRateLimit_ ? rxRateLimit_->clock.timeMin() : Vel::never;
   }
   const LldpAgeQueue& ageQueue() const { return ageQueue_; }

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
   const Interface::EthPhyIntfStatus* intfStatusRecord() const {
      return static_cast<const Interface::EthPhyIntfStatus*>(IntfStatusReactor::notifierEntity());
   }
   const Lldp::PortConfig* portConfigRecord() const {
      return static_cast<const Lldp::PortConfig*>(PortConfigReactor::notifierEntity());
   }
   // The notifiee holds the port status as const; the machine was given it to update (its
   // counters and neighbours are the machine's to keep).
   Lldp::PortStatus* portStatusRecord() const {
      return const_cast<Lldp::PortStatus*>(
          static_cast<const Lldp::PortStatus*>(PortStatusReactor::notifierEntity()));
   }
   // What the watched records say, passed to the handlers.
   using PortConfigReactor = Lldp::PortConfig::Notifiee;
   using IntfStatusReactor = Interface::EthPhyIntfStatus::Notifiee;
   using PortStatusReactor = Lldp::PortStatus::Notifiee;
   void adminStatusChanged() override { handleAdminStatus(); }
   void rxRateLimitIntervalChanged() override { handleRxRateLimitInterval(); }
   void linkStatusChanged() override;
   void remoteSystemChanged(const int& index) override { handleRemoteSystem(index); }

   // The time the transmit machine counts its next deadline from: the deadline that just
   // expired while its timer is handled (unless the loop came much later than that, after
   // a stall), the loop's time otherwise.
   Vel::Seconds txNow() const;
   // Starts a new rate-limit interval if `now` is past the current one.
   void doRxRateLimitIntervalAt(Vel::Seconds now);

   Wire::IntfId intfId_;
   Vel::Ptr<Wire::Pam> pam_;
   Vel::Ptr<const Root> root_;
   Vel::Clock txClock_;
   Vel::Clock ageClock_;
   // What only a port that hears LLDPDUs needs, made with the first one: the rate-limit
   // clock and the interval's counts.
   struct RxRateLimit {
      explicit RxRateLimit(LldpPamSm* sm) : clock([sm] { sm->handleRxRateLimitClock(); }) {}
      Vel::Clock clock;
      uint64_t lldpdus = 0;  // in the current interval
      uint64_t lldpdusRateLimited = 0;
   };
   std::unique_ptr<RxRateLimit> rxRateLimit_;
   Lldp::LocalPort::PtrConst localPort_;
   TxFsmState txFsmState_ = txFsmUninitialized;
   TxFsmState lastTxFsmState_ = txFsmUninitialized;
   bool initialized_ = false;
   // The end of the current rate-limit interval, and the configured length as last seen
   // (it applies to intervals that start after it was set).
   Vel::Seconds rxRateLimitEnd_ = 0;
   Vel::Seconds rxRateLimitInterval_ = 0;
   // The port's neighbours by expiry.
   LldpAgeQueue ageQueue_;
};

// Trace handle of the protocol engine.
extern Vel::Trace::Handle traceLldpProtocolSm;

}  // namespace Lldp::Agent::Protocol

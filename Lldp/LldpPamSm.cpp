#include "Lldp/LldpPamSm.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ostream>
#include <vector>

#include "Framework/Assert.h"
#include "Lldp/LldpEvents.h"
#include "Lldp/LldpProtocol.h"
#include "Lldp/LldpProtocolSm.h"

namespace Lldp::Agent::Protocol {

std::ostream& operator<<(std::ostream& os, TxFsmState s) {
   switch (s) {
      case txFsmUninitialized:
         return os << "txFsmUninitialized";
      case txFsmDisabled:
         return os << "txFsmDisabled";
      case txFsmTxWait:
         return os << "txFsmTxWait";
      case txFsmTxDelay:
         return os << "txFsmTxDelay";
      case txFsmIdle:
         return os << "txFsmIdle";
      case txFsmReinitializing:
         return os << "txFsmReinitializing";
   }
   return os << "TxFsmState(" << int(s) << ")";
}

// ---------------------------------------------------------------------------------------
// The per-port machine.

Vel::Trace::Handle traceLldpProtocolSm("LldpProtocolSm");

namespace {

constexpr uint8_t lldpMulticast[6] = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e};

bool adminTransmits(uint8_t adminStatus) {
   return (adminStatus & ~0x2) == 1;  // 1 transmit only, 3 transmit and receive
}
bool adminReceives(uint8_t adminStatus) {
   return adminStatus == 2 || adminStatus == 3;
}

Vel::Seconds loopNow() {
   return Vel::EventLoop::instance().now();
}

}  // namespace

LldpPamSm::LldpPamSm(const Wire::IntfId& intf, Vel::Ptr<Wire::Pam> pam, Vel::Ptr<const Root> root)
    : intfId_(intf),
      pam_(std::move(pam)),
      root_(std::move(root)),
      txClock_([this] { handleTxClock(); }),
      ageClock_([this] { handleAgeClock(); }) {}

LldpPamSm::LldpPamSm(const Wire::IntfId& intf) : intfId_(intf) {}

LldpPamSm::~LldpPamSm() {
   if (pam_ && pam_->notifiee() == this) pam_->notifieeIs(nullptr);
}

void LldpPamSm::linkStatusChanged() {
   if (!initialized()) return;
   handleLinkStatusTx();
   handleLinkStatusRx();
}

void LldpPamSm::handleInitialized() {
   VEL_ASSERT(!initialized(), "!initialized()");
   const Root& root = *root_;
   IntfStatusReactor::notifierIs(root.ethPhyIntfStatusDir()->intfStatus(intfId_));
   VEL_ASSERT(ethPhyIntfStatus(), "ethPhyIntfStatus()");
   PortConfigReactor::notifierIs(root.config()->portConfig(intfId_));
   VEL_ASSERT(portConfig(), "portConfig()");
   PortStatusReactor::notifierIs(root.status()->portStatus(intfId_));
   VEL_ASSERT(portStatus(), "portStatus()");
   portStatusRecord()->senderTrackingIs(true);
   VEL_ASSERT(root.localSystem(), "localSystem()");
   localPort_ = root.localSystem()->localPort(intfId_);
   VEL_ASSERT(localPort_, "localPort()");
   if (pam_) pam_->notifieeIs(this);
   initialized_ = true;
   txClock_.timeMinIs(Vel::never);
   txFsmStateIs(txFsmDisabled);
   // Neighbours already in the table are aged from the first firing on.
   ageQueue_.rebuildFrom(portStatusRecord()->remoteSystem());
   ageClock_.timeMinIs(0);
   // The first rate-limit interval starts now. Its clock sleeps until an LLDPDU counts
   // (a port that hears nothing never wakes for it).
   rxRateLimitInterval_ = portConfigRecord()->rxRateLimitInterval();
   rxRateLimitEnd_ = loopNow() + rxRateLimitInterval_;
   if (rxRateLimit_) rxRateLimit_->clock.timeMinIs(Vel::never);
}

void LldpPamSm::doClose() {
   VEL_ASSERT(initialized(), "initialized()");
   doDeleteAllRemoteSystems();
   txClock_.timeMinIs(Vel::never);
   ageClock_.timeMinIs(Vel::never);
   if (rxRateLimit_) rxRateLimit_->clock.timeMinIs(Vel::never);
   if (pam_ && pam_->notifiee() == this) pam_->notifieeIs(nullptr);
   const Lldp::PortStatus::Ptr status = portStatus();
   PortConfigReactor::notifierIs(nullptr);
   IntfStatusReactor::notifierIs(nullptr);
   PortStatusReactor::notifierIs(nullptr);
   status->senderTrackingIs(false);
}

// ---------------------------------------------------------------------------------------
// Transmit.

void LldpPamSm::txFsmStateIs(TxFsmState s) {
   if (s == txFsmState_) return;
   txFsmState_ = s;
   // A machine that was never initialised only records the state (the receive
   // processor's nudge on a bare machine); entry actions need the machine's inputs.
   if (initialized_) handleTxFsmState();
}

void LldpPamSm::handleTxFsmState() {
   VEL_ASSERT(initialized(), "initialized()");
   VEL_TRACE(traceLldpProtocolSm, 8,
             "TX FSM transition " << lastTxFsmState_ << " -> " << txFsmState_);
   const TxFsmState previous = lastTxFsmState_;
   lastTxFsmState_ = txFsmState_;
   const Vel::Seconds now = txNow();
   const Lldp::Config& config = *root_->config();
   switch (txFsmState_) {
      case txFsmDisabled:
         VEL_TRACE(traceLldpProtocolSm, 6, "Entering disabled state: checking if port is enabled");
         doCheckPortEnabled();
         break;
      case txFsmTxWait:
         if (previous == txFsmTxDelay) {
            VEL_TRACE(traceLldpProtocolSm, 6, "Entering txWait state: no action");
         } else {
            VEL_TRACE(traceLldpProtocolSm, 6, "Entering txWait state: starting txDelayWhile timer");
            txClock_.timeMinIs(now + double(config.txDelay()));
         }
         break;
      case txFsmTxDelay:
         VEL_TRACE(traceLldpProtocolSm, 6,
                   "Entering txDelay state: tx LLDPDU and starting txDelayWhile timer");
         doSendLldpdu();
         txClock_.timeMinIs(now + double(config.txDelay()));
         break;
      case txFsmIdle:
         VEL_TRACE(traceLldpProtocolSm, 6, "Entering idle state: starting txTTR timer");
         VEL_ASSERT(config.messageTxInterval() >= config.txDelay(),
                    "config->messageTxInterval() >= config->txDelay()");
         txClock_.timeMinIs(now + double(config.messageTxInterval()) - double(config.txDelay()));
         break;
      case txFsmReinitializing:
         VEL_TRACE(traceLldpProtocolSm, 6,
                   "Entering reinitializing state: starting txShutdownWhile timer");
         VEL_ASSERT(txFsmState_ == txFsmReinitializing, "txFsmState() == txFsmReinitializing()");
         txClock_.timeMinIs(now + double(config.reinitDelay()));
         break;
      case txFsmUninitialized:
         break;
   }
   VEL_TRACE(traceLldpProtocolSm, 8,
             "Time is " << now << "; txClock set to expire at " << txClock_.timeMin());
}

// A timer that fires more than this late (the process was stopped, say) starts the next
// period from the loop's time: a stall never turns into a burst of catch-up frames.
constexpr Vel::Seconds txLateLimit = 1;

Vel::Seconds LldpPamSm::txNow() const {
   const Vel::Seconds now = loopNow();
   const Vel::Seconds due = txClock_.firingTime();  // never unless in handleTxClock()
   return due != Vel::never && now - due < txLateLimit ? due : now;
}

void LldpPamSm::handleTxClock() {
   VEL_ASSERT(initialized(), "initialized()");
   const Vel::Ptr<LldpPamSm> self(this);  // a frame sent may reach whoever drops us
   switch (txFsmState_) {
      case txFsmTxWait:
         VEL_TRACE(traceLldpProtocolSm, 6, "txDelayWhile timer expired: txWait -> txDelay");
         txFsmStateIs(txFsmTxDelay);
         break;
      case txFsmTxDelay:
         VEL_TRACE(traceLldpProtocolSm, 6, "txDelayWhile timer expired: txDelay -> idle");
         txFsmStateIs(txFsmIdle);
         break;
      case txFsmIdle:
         VEL_TRACE(traceLldpProtocolSm, 6, "txTTR timer expired: idle -> txDelay");
         txFsmStateIs(txFsmTxDelay);
         break;
      case txFsmReinitializing:
         VEL_TRACE(traceLldpProtocolSm, 6,
                   "txShutdownWhile timer expired: reinitializing -> disabled");
         txFsmStateIs(txFsmDisabled);
         break;
      default:
         VEL_ASSERT(txFsmState_ == txFsmReinitializing, "txFsmState() == txFsmReinitializing()");
   }
}

void LldpPamSm::doCheckPortEnabled() {
   VEL_ASSERT(txFsmState_ == txFsmDisabled, "txFsmState() == txFsmDisabled()");
   if (adminTransmits(portConfigRecord()->adminStatus()) &&
       intfStatusRecord()->linkStatus() == Interface::linkStatusUp) {
      VEL_TRACE(traceLldpProtocolSm, 6, "Port enabled: initiating transition -> txWait state");
      txFsmStateIs(txFsmTxWait);
   } else {
      VEL_TRACE(traceLldpProtocolSm, 6, "Port not enabled: no action");
   }
}

void LldpPamSm::handleAdminStatus() {
   if (!initialized_) return;
   doCheckStillTransmitting(adminTransmits(portConfigRecord()->adminStatus()),
                            "Admin state down: initiating transition -> reinitializing state");
}

void LldpPamSm::handleLinkStatusTx() {
   doCheckStillTransmitting(intfStatusRecord()->linkStatus() == Interface::linkStatusUp,
                            "Link down: initiating transition -> reinitializing state");
}

// Admin status and link status act alike: a disabled port checks whether it may start,
// an active one stops (through reinitialisation) when the condition no longer holds.
void LldpPamSm::doCheckStillTransmitting(bool conditionHolds, const char* stopTrace) {
   switch (txFsmState_) {
      case txFsmDisabled:
         doCheckPortEnabled();
         break;
      case txFsmTxWait:
      case txFsmTxDelay:
      case txFsmIdle:
         if (!conditionHolds) {
            VEL_TRACE(traceLldpProtocolSm, 6, stopTrace);
            txFsmStateIs(txFsmReinitializing);
         }
         break;
      default:
         break;
   }
}

void LldpPamSm::handleRemoteSystem(int index) {
   if (!initialized_) return;
   portStatusRecord()->remoteSystemSenderIs(index);
   const Lldp::RemoteSystem* remote = portStatusRecord()->remoteSystemAt(index);
   if (!remote) return;
   // New, or changed with its expiry perhaps earlier: either way it needs an entry now.
   ageQueue_.queueIs(*remote, portStatusRecord()->remoteSystem());
   doProcessSomethingChangedLocal();
}

void LldpPamSm::doProcessSomethingChangedLocal() {
   if (!initialized_) return;
   if (txFsmState_ == txFsmTxDelay) {
      VEL_TRACE(traceLldpProtocolSm, 6,
                "Local System MIB changed: initiating transition -> txWait state");
      txFsmStateIs(txFsmTxWait);
   } else if (txFsmState_ == txFsmIdle) {
      VEL_TRACE(traceLldpProtocolSm, 6,
                "Local System MIB changed: initiating transition -> txDelay state");
      txFsmStateIs(txFsmTxDelay);
   }
}

Vel::Ptr<Wire::Pkt> LldpPamSm::doBuildLldpdu() {
   if (!localPort_) {
      VEL_TRACE(traceLldpProtocolSm, 2, "No local port record for " << intfId_ << ": nothing sent");
      return nullptr;
   }
   Vel::Ptr<Wire::Pkt> pkt = Wire::PktMan::instance().newPkt();
   if (!pkt) {
      VEL_TRACE(traceLldpProtocolSm, 0, "Packet allocation failed");
      portStatusRecord()->txFramesNoMemErrorsInc();
      return nullptr;
   }
   VEL_ASSERT(pkt->maxSharedData() >= (maxTxFrameSize - 4),
              "pkt->maxSharedData() >= ( root()->config()->maxTxFrameSize() - 4 )");
   char* start = pkt->dataAppend(lldpduRoom);
   char* usedEnd =
       buildTxLldpdu(start, start + lldpduRoom, root_, localPort_, portConfig(), portStatus());
   VEL_ASSERT(usedEnd, "usedEnd");
   pkt->trimTail(size_t(start + lldpduRoom - usedEnd));
   char* eth = pkt->prepend(Wire::ethHdrLen);
   std::memcpy(eth, lldpMulticast, 6);
   std::memcpy(eth + 6, intfStatusRecord()->addr().bytes().data(), 6);
   Lldp::Be::put16(eth + 12, Wire::ethTypeLldp);
   return pkt;
}

void LldpPamSm::doSendLldpdu() {
   VEL_TRACE(traceLldpProtocolSm, 8, "LldpPamSm::doSendLldpdu()");
   Vel::Ptr<Wire::Pkt> pkt = doBuildLldpdu();
   if (!pkt || !pam_) return;
   const uint64_t errorsBefore = pam_->txErrors();
   pam_->txPktIs(pkt);
   if (pam_->txErrors() == errorsBefore) return;
   // The builder has counted the frame as sent and that stands; the refusal is counted
   // beside it.
   VEL_TRACE(traceLldpProtocolSm, 0,
             "Failed to send LLDPDU on " << intfId_ << ": " << pam_->txErrorReason());
   portStatusRecord()->txFramesErrorsInc();
}

// ---------------------------------------------------------------------------------------
// Receive.

void LldpPamSm::handleReadableCount() {
   VEL_ASSERT(initialized(), "initialized()");
   VEL_TRACE(traceLldpProtocolSm, 8, "LldpPamSm::handleReadableCount()");
   Vel::Ptr<Wire::Pkt> pkt = pam_->rxPkt();
   if (!pkt) {
      VEL_TRACE(traceLldpProtocolSm, 0, "Error receiving frame");
      return;
   }
   VEL_TRACE(traceLldpProtocolSm, 4,
             "Received frame on interface " << intfId_ << " (length=" << pkt->bytes() << ")");
   if (!adminReceives(portConfigRecord()->adminStatus())) {
      VEL_TRACE(traceLldpProtocolSm, 6, "LLDP Receive disabled -- discarding received LLDPDU");
      return;
   }
   if (!localPort_) return;  // the port's local record went: nothing to answer with
   VEL_ASSERT(pkt->bytes() >= Wire::ethHdrLen, "pkt->bytes() >= sizeof( Wire::EthHdr )");
   char* frame = pkt->data();
   if (std::memcmp(frame, lldpMulticast, 6) != 0) {
      VEL_TRACE(traceLldpProtocolSm, 2, "Received frame with incorrect DMAC -- ignoring");
      return;
   }
   size_t header = Wire::ethHdrLen;
   uint16_t ethType = Lldp::Be::get16(frame + 12);
   if (!root_->config()->rxTaggedPacketsDrop()) {
      if (pkt->dot1qHdrValid()) {
         VEL_TRACE(traceLldpProtocolSm, 6,
                   "Received 802.1Q-tagged frame (Tpid: 0x" << std::hex << pkt->dot1qTpid()
                                                            << std::dec << ") with VLAN ID"
                                                            << (pkt->dot1qTci() & 0xfff));
         pkt->dot1qHdrDel();
      } else if (ethType == Wire::ethTypeDot1Q && pkt->bytes() >= Wire::ethHdrLen + 4) {
         VEL_TRACE(
             traceLldpProtocolSm, 6,
             "Received 802.1Q-tagged frame with VLAN ID" << (Lldp::Be::get16(frame + 14) & 0xfff));
         ethType = Lldp::Be::get16(frame + 16);
         header += Wire::dot1qHdrLen;
      }
   }
   if (ethType != Wire::ethTypeLldp) {
      VEL_TRACE(traceLldpProtocolSm, 2, "Received frame with incorrect EtherType -- ignoring");
      return;
   }
   if (!rxRateLimit_) rxRateLimit_ = std::make_unique<RxRateLimit>(this);
   RxRateLimit& rx = *rxRateLimit_;
   doRxRateLimitIntervalAt(loopNow());
   const uint64_t count = ++rx.lldpdus;
   if (rx.clock.timeMin() == Vel::never) rx.clock.timeMinIs(rxRateLimitEnd_);
   if (portConfigRecord()->rxRateLimitEnabled() &&
       count > portConfigRecord()->rxRateLimitMaxLldpdus()) {
      if (count - 1 == portConfigRecord()->rxRateLimitMaxLldpdus()) {
         Lldp::LLDP_RX_RATELIMIT.log(intfId_, portConfigRecord()->rxRateLimitMaxLldpdus(),
                                     portConfigRecord()->rxRateLimitInterval());
      }
      ++rx.lldpdusRateLimited;
      portStatusRecord()->rxLldpdusRateLimitedInc();
      return;
   }
   Wire::EthAddr source = Wire::EthAddr::fromBytes(frame + 6);
   Lldp::RemoteSystem::PtrConst remote =
       processRxLldpdu(frame + header, frame + pkt->bytes(), portConfig(), root_->status(),
                       portStatus(), localPort_, Vel::Ptr<LldpPamSm>(this), source);
   if (!remote) return;
   // A refresh moves the expiry later, which the queue finds out for itself; one that may
   // have moved it earlier than its entry (a shorter time to live) is queued again.
   if (remote->expiryTime() < ageQueue_.latestQueued()) {
      ageQueue_.queueIs(*remote, portStatusRecord()->remoteSystem());
   }
   if (remote->expiryTime() < ageClock_.timeMin()) {
      VEL_TRACE(traceLldpProtocolSm, 8, "Setting ageClock to expire at " << remote->expiryTime());
      ageClock_.timeMinIs(remote->expiryTime());
   }
}

// The rate-limit intervals are fixed, back-to-back periods from initialisation, each
// taking the configured length in force when it starts. The clock runs only while the
// current interval has counted an LLDPDU: it ends the interval (the count goes back to 0)
// and then sleeps; the next LLDPDU finds the interval it falls in by arithmetic and wakes
// the clock for that interval's end. Counts and logs are those of a clock that fires at
// every boundary, without the wake-up per port per interval.
void LldpPamSm::doRxRateLimitIntervalAt(Vel::Seconds now) {
   if (now < rxRateLimitEnd_) return;
   if (rxRateLimit_) rxRateLimit_->lldpdus = 0;
   // Every boundary up to now began an interval of the length in force since the last
   // change (a change catches up first, with the length it replaces).
   const Vel::Seconds length = rxRateLimitInterval_;
   if (length > 0) {
      rxRateLimitEnd_ += (std::floor((now - rxRateLimitEnd_) / length) + 1) * length;
   } else {
      rxRateLimitEnd_ = now;
   }
}

void LldpPamSm::handleRxRateLimitClock() {
   VEL_ASSERT(initialized(), "initialized()");
   VEL_TRACE(traceLldpProtocolSm, 8, "LldpPamSm::handleRxRateLimitClock()");
   doRxRateLimitIntervalAt(loopNow());
   if (rxRateLimit_->lldpdus > 0) rxRateLimit_->clock.timeMinIs(rxRateLimitEnd_);
}

void LldpPamSm::handleRxRateLimitInterval() {
   if (!initialized_) return;
   doRxRateLimitIntervalAt(loopNow());
   rxRateLimitInterval_ = portConfigRecord()->rxRateLimitInterval();
}

void LldpPamSm::handleAgeClock() {
   VEL_ASSERT(initialized(), "initialized()");
   const Vel::Seconds now = loopNow();
   Lldp::Status& status = *root_->status();
   // Taken first: deleting while the queue is read would change what it reads. The list
   // is one for all ports (of the thread), borrowed for the call and given back with its
   // room.
   thread_local std::vector<Lldp::RemoteSystem::Ptr> spare;
   std::vector<Lldp::RemoteSystem::Ptr> expired = std::move(spare);
   ageQueue_.expiredAt(now, portStatusRecord()->remoteSystem(), expired);
   const Vel::Seconds next = ageQueue_.front();
   for (const auto& remote : expired) {
      VEL_TRACE(traceLldpProtocolSm, 4, "Aging RemoteSystem for " << remote->msap());
      portStatusRecord()->remoteSystemByMsapDel(remote->msap());
      portStatusRecord()->remoteSystemDel(remote->index());
      portStatusRecord()->rxAgeoutsTotalInc();
      status.remTablesAgeoutsInc();
      status.remTablesDeletesInc();
      Lldp::LLDP_NEIGHBOR_TIMEOUT.log(remote->msap().chassisIdentifier().stringValue(),
                                      remote->msap().portIdentifier().stringValue(), intfId_);
      status.remTablesLastChangeTimeIs(now);
   }
   expired.clear();
   spare = std::move(expired);
   VEL_TRACE(traceLldpProtocolSm, 8, "Setting ageClock to expire at " << next);
   ageClock_.timeMinIs(next);
}

void LldpPamSm::handleLinkStatusRx() {
   if (intfStatusRecord()->linkStatus() != Interface::linkStatusDown) return;
   VEL_TRACE(traceLldpProtocolSm, 4, "Link down: deleting all RemoteSystems on " << intfId_);
   doDeleteAllRemoteSystems();
}

void LldpPamSm::doDeleteAllRemoteSystems() {
   VEL_ASSERT(initialized(), "initialized()");
   Lldp::Status& status = *root_->status();
   while (!portStatusRecord()->remoteSystem().empty()) {
      const Lldp::RemoteSystem::Ptr remote = portStatusRecord()->remoteSystem().begin()->second;
      VEL_TRACE(traceLldpProtocolSm, 4,
                "Deleting RemoteSystem for " << remote->msap().chassisIdentifier().stringValue()
                                             << " "
                                             << remote->msap().portIdentifier().stringValue());
      portStatusRecord()->remoteSystemByMsapDel(remote->msap());
      portStatusRecord()->remoteSystemDel(remote->index());
      status.remTablesDeletesInc();
   }
   // Nothing left to age.
   ageQueue_.clear();
   ageClock_.timeMinIs(Vel::never);
}

}  // namespace Lldp::Agent::Protocol

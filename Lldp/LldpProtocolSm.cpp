#include "Lldp/LldpProtocolSm.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ostream>
#include <vector>

#include "Framework/Assert.h"
#include "Lldp/LldpEvents.h"
#include "Lldp/LldpProtocol.h"

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

// Per-port timers that fall due close together share one wake-up of the agent: in real
// time a deadline is rounded up to the next multiple of timerSlack, so the ports of a
// switch (which come up within a few hundred milliseconds of each other) keep a handful
// of common phases instead of one each. A frame or an age-out is at most that much later
// than the machine's timers say. Virtual time keeps every deadline exact.
constexpr Vel::Seconds timerSlack = 0.25;

Vel::Seconds slackened(Vel::Seconds t) {
   if (t == Vel::never || Vel::EventLoop::instance().virtualTime()) return t;
   return std::ceil(t / timerSlack) * timerSlack;
}

}  // namespace

LldpPamSm::LldpPamSm(const Wire::IntfId& intf, Vel::Ptr<Wire::Pam> pam, Vel::Ptr<const Root> root,
                     Interface::EthPhyIntfStatus::PtrConst ethPhyIntfStatus,
                     Lldp::PortConfig::PtrConst portConfig, Lldp::PortStatus::Ptr portStatus,
                     Lldp::LocalPort::PtrConst localPort, Lldp::LocalSystem::PtrConst localSystem)
    : intfId_(intf),
      pam_(std::move(pam)),
      root_(std::move(root)),
      txClock_([this] { handleTxClock(); }),
      ageClock_([this] { handleAgeClock(); }),
      rxRateLimitClock_([this] { handleRxRateLimitClock(); }),
      ethPhyIntfStatus_(std::move(ethPhyIntfStatus)),
      portConfig_(std::move(portConfig)),
      portStatus_(std::move(portStatus)),
      localPort_(std::move(localPort)),
      localSystem_(std::move(localSystem)) {
   portConfigReactor_.sm = intfStatusReactor_.sm = portStatusReactor_.sm = this;
}

LldpPamSm::LldpPamSm(const Wire::IntfId& intf) : intfId_(intf) {
   portConfigReactor_.sm = intfStatusReactor_.sm = portStatusReactor_.sm = this;
}

LldpPamSm::~LldpPamSm() {
   if (pam_ && pam_->notifiee() == this) pam_->notifieeIs(nullptr);
}

void LldpPamSm::IntfStatusReactor::linkStatusChanged() {
   if (!sm->initialized()) return;
   sm->handleLinkStatusTx();
   sm->handleLinkStatusRx();
}

void LldpPamSm::handleInitialized() {
   VEL_ASSERT(!initialized(), "!initialized()");
   intfStatusReactor_.notifierIs(ethPhyIntfStatus_);
   VEL_ASSERT(ethPhyIntfStatus_, "ethPhyIntfStatus()");
   portConfigReactor_.notifierIs(portConfig_);
   VEL_ASSERT(portConfig_, "portConfig()");
   portStatusReactor_.notifierIs(portStatus_);
   VEL_ASSERT(portStatus_, "portStatus()");
   VEL_ASSERT(localSystem_, "localSystem()");
   VEL_ASSERT(localPort_, "localPort()");
   if (pam_) pam_->notifieeIs(this);
   initialized_ = true;
   txClock_.timeMinIs(Vel::never);
   txFsmStateIs(txFsmDisabled);
   ageClock_.timeMinIs(0);
   // The first rate-limit interval starts now. Its clock sleeps until an LLDPDU counts
   // (a port that hears nothing never wakes for it).
   rxRateLimitInterval_ = portConfig_->rxRateLimitInterval();
   rxRateLimitEnd_ = loopNow() + rxRateLimitInterval_;
   rxRateLimitClock_.timeMinIs(Vel::never);
}

void LldpPamSm::doClose() {
   VEL_ASSERT(initialized(), "initialized()");
   doDeleteAllRemoteSystems();
   txClock_.timeMinIs(Vel::never);
   ageClock_.timeMinIs(Vel::never);
   rxRateLimitClock_.timeMinIs(Vel::never);
   if (pam_ && pam_->notifiee() == this) pam_->notifieeIs(nullptr);
   portConfigReactor_.notifierIs(nullptr);
   intfStatusReactor_.notifierIs(nullptr);
   portStatusReactor_.notifierIs(nullptr);
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
   const Vel::Seconds now = loopNow();
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
            txClock_.timeMinIs(slackened(now + double(config.txDelay())));
         }
         break;
      case txFsmTxDelay:
         VEL_TRACE(traceLldpProtocolSm, 6,
                   "Entering txDelay state: tx LLDPDU and starting txDelayWhile timer");
         doSendLldpdu();
         txClock_.timeMinIs(slackened(now + double(config.txDelay())));
         break;
      case txFsmIdle:
         VEL_TRACE(traceLldpProtocolSm, 6, "Entering idle state: starting txTTR timer");
         VEL_ASSERT(config.messageTxInterval() >= config.txDelay(),
                    "config->messageTxInterval() >= config->txDelay()");
         txClock_.timeMinIs(
             slackened(now + double(config.messageTxInterval()) - double(config.txDelay())));
         break;
      case txFsmReinitializing:
         VEL_TRACE(traceLldpProtocolSm, 6,
                   "Entering reinitializing state: starting txShutdownWhile timer");
         VEL_ASSERT(txFsmState_ == txFsmReinitializing, "txFsmState() == txFsmReinitializing()");
         txClock_.timeMinIs(slackened(now + double(config.reinitDelay())));
         break;
      case txFsmUninitialized:
         break;
   }
   VEL_TRACE(traceLldpProtocolSm, 8,
             "Time is " << now << "; txClock set to expire at " << txClock_.timeMin());
}

void LldpPamSm::handleTxClock() {
   VEL_ASSERT(initialized(), "initialized()");
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
   if (adminTransmits(portConfig_->adminStatus()) &&
       ethPhyIntfStatus_->linkStatus() == Interface::linkStatusUp) {
      VEL_TRACE(traceLldpProtocolSm, 6, "Port enabled: initiating transition -> txWait state");
      txFsmStateIs(txFsmTxWait);
   } else {
      VEL_TRACE(traceLldpProtocolSm, 6, "Port not enabled: no action");
   }
}

void LldpPamSm::handleAdminStatus() {
   if (!initialized_) return;
   doCheckStillTransmitting(adminTransmits(portConfig_->adminStatus()),
                            "Admin state down: initiating transition -> reinitializing state");
}

void LldpPamSm::handleLinkStatusTx() {
   doCheckStillTransmitting(ethPhyIntfStatus_->linkStatus() == Interface::linkStatusUp,
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
   if (portStatus_->remoteSystem(index)) doProcessSomethingChangedLocal();
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
   Vel::Ptr<Wire::Pkt> pkt = Wire::PktMan::instance().newPkt();
   if (!pkt) {
      VEL_TRACE(traceLldpProtocolSm, 0, "Packet allocation failed");
      portStatus_->txFramesNoMemErrorsInc();
      return nullptr;
   }
   VEL_ASSERT(pkt->maxSharedData() >= (maxTxFrameSize - 4),
              "pkt->maxSharedData() >= ( root()->config()->maxTxFrameSize() - 4 )");
   char* start = pkt->dataAppend(lldpduRoom);
   char* usedEnd =
       buildTxLldpdu(start, start + lldpduRoom, root_, localPort_, portConfig_, portStatus_);
   VEL_ASSERT(usedEnd, "usedEnd");
   pkt->trimTail(size_t(start + lldpduRoom - usedEnd));
   char* eth = pkt->prepend(Wire::ethHdrLen);
   std::memcpy(eth, lldpMulticast, 6);
   std::memcpy(eth + 6, ethPhyIntfStatus_->addr().bytes().data(), 6);
   Lldp::Be::put16(eth + 12, Wire::ethTypeLldp);
   return pkt;
}

void LldpPamSm::doSendLldpdu() {
   VEL_TRACE(traceLldpProtocolSm, 8, "LldpPamSm::doSendLldpdu()");
   // The builder counts the frame as sent; a frame the kernel refuses was not.
   const uint32_t sentBefore = portStatus_->txFramesTotal();
   const Vel::Seconds lastTxBefore = portStatus_->lastTxTime();
   Vel::Ptr<Wire::Pkt> pkt = doBuildLldpdu();
   if (!pkt || !pam_) return;
   const uint64_t errorsBefore = pam_->txErrors();
   pam_->txPktIs(pkt);
   if (pam_->txErrors() == errorsBefore) return;
   VEL_TRACE(traceLldpProtocolSm, 0,
             "Failed to send LLDPDU on " << intfId_ << ": " << pam_->txErrorReason());
   portStatus_->txFramesTotalIs(sentBefore);
   portStatus_->lastTxTimeIs(lastTxBefore);
   portStatus_->txFramesErrorsInc();
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
   if (!adminReceives(portConfig_->adminStatus())) {
      VEL_TRACE(traceLldpProtocolSm, 6, "LLDP Receive disabled -- discarding received LLDPDU");
      return;
   }
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
   doRxRateLimitIntervalAt(loopNow());
   const uint64_t count = ++rxLldpdus_;
   if (rxRateLimitClock_.timeMin() == Vel::never) {
      rxRateLimitClock_.timeMinIs(slackened(rxRateLimitEnd_));
   }
   if (portConfig_->rxRateLimitEnabled() && count > portConfig_->rxRateLimitMaxLldpdus()) {
      if (count - 1 == portConfig_->rxRateLimitMaxLldpdus()) {
         Lldp::LLDP_RX_RATELIMIT.log(intfId_, portConfig_->rxRateLimitMaxLldpdus(),
                                     portConfig_->rxRateLimitInterval());
      }
      ++rxLldpdusRateLimited_;
      portStatus_->rxLldpdusRateLimitedInc();
      return;
   }
   Wire::EthAddr source = Wire::EthAddr::fromBytes(frame + 6);
   Lldp::RemoteSystem::PtrConst remote =
       processRxLldpdu(frame + header, frame + pkt->bytes(), portConfig_, root_->status(),
                       portStatus_, localPort_, Vel::Ptr<LldpPamSm>(this), source);
   if (remote && remote->expiryTime() < ageClock_.timeMin()) {
      VEL_TRACE(traceLldpProtocolSm, 8, "Setting ageClock to expire at " << remote->expiryTime());
      ageClock_.timeMinIs(slackened(remote->expiryTime()));
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
   rxLldpdus_ = 0;
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
   if (rxLldpdus_ > 0) rxRateLimitClock_.timeMinIs(slackened(rxRateLimitEnd_));
}

void LldpPamSm::handleRxRateLimitInterval() {
   if (!initialized_) return;
   doRxRateLimitIntervalAt(loopNow());
   rxRateLimitInterval_ = portConfig_->rxRateLimitInterval();
}

void LldpPamSm::handleAgeClock() {
   VEL_ASSERT(initialized(), "initialized()");
   const Vel::Seconds now = loopNow();
   Vel::Seconds next = Vel::never;
   Lldp::Status& status = *root_->status();
   // Collect first: deleting while walking the table would invalidate the walk.
   std::vector<Lldp::RemoteSystem::Ptr> expired;
   for (const auto& [index, remote] : portStatus_->remoteSystem()) {
      if (now >= remote->expiryTime()) {
         expired.push_back(remote);
      } else {
         next = std::min(next, remote->expiryTime());
      }
   }
   for (const auto& remote : expired) {
      VEL_TRACE(traceLldpProtocolSm, 4, "Aging RemoteSystem for " << remote->msap());
      portStatus_->remoteSystemByMsapDel(remote->msap());
      portStatus_->remoteSystemDel(remote->index());
      portStatus_->rxAgeoutsTotalInc();
      status.remTablesAgeoutsInc();
      status.remTablesDeletesInc();
      Lldp::LLDP_NEIGHBOR_TIMEOUT.log(remote->msap().chassisIdentifier().stringValue(),
                                      remote->msap().portIdentifier().stringValue(), intfId_);
      status.remTablesLastChangeTimeIs(now);
   }
   VEL_TRACE(traceLldpProtocolSm, 8, "Setting ageClock to expire at " << next);
   ageClock_.timeMinIs(slackened(next));
}

void LldpPamSm::handleLinkStatusRx() {
   if (ethPhyIntfStatus_->linkStatus() != Interface::linkStatusDown) return;
   VEL_TRACE(traceLldpProtocolSm, 4, "Link down: deleting all RemoteSystems on " << intfId_);
   doDeleteAllRemoteSystems();
}

void LldpPamSm::doDeleteAllRemoteSystems() {
   VEL_ASSERT(initialized(), "initialized()");
   Lldp::Status& status = *root_->status();
   while (!portStatus_->remoteSystem().empty()) {
      const Lldp::RemoteSystem::Ptr remote = portStatus_->remoteSystem().begin()->second;
      VEL_TRACE(traceLldpProtocolSm, 4,
                "Deleting RemoteSystem for " << remote->msap().chassisIdentifier().stringValue()
                                             << " "
                                             << remote->msap().portIdentifier().stringValue());
      portStatus_->remoteSystemByMsapDel(remote->msap());
      portStatus_->remoteSystemDel(remote->index());
      status.remTablesDeletesInc();
   }
   // Nothing left to age.
   ageClock_.timeMinIs(Vel::never);
}

}  // namespace Lldp::Agent::Protocol

// ---------------------------------------------------------------------------------------
// The machines that keep the per-port machines and carry local changes to them.

namespace Lldp::Agent::Protocol {

LocalPortPoeInfoSm::LocalPortPoeInfoSm(Root* root, const Wire::IntfId& intf,
                                       Vel::Ptr<const Lldp::LocalPortPoeInfo> poeInfo)
    : root_(root), intfId_(intf), poeInfo_(std::move(poeInfo)) {}

void LocalPortPoeInfoSm::handleInitialized() {
   notifierIs(poeInfo_);
}

void LocalPortPoeInfoSm::doClose() {
   notifierIs(nullptr);
}

void LocalPortPoeInfoSm::handleAttrsChanged() {
   VEL_TRACE(traceLldpProtocolSm, 8, "LocalPortPoeInfoSm::handleAttrsChanged() for " << intfId_);
   handleLocalPortAttrsChanged(*root_, intfId_);
}

LocalPortSm::LocalPortSm(Root* root, Lldp::LocalPort::PtrConst localPort)
    : root_(root), localPort_(std::move(localPort)) {}

void LocalPortSm::handleInitialized() {
   notifierIs(localPort_);
   handleLocalPortPoE();
}

void LocalPortSm::doClose() {
   if (localPortPoeInfoSm_) localPortPoeInfoSm_->doClose();
   localPortPoeInfoSm_ = nullptr;
   notifierIs(nullptr);
}

void LocalPortSm::handleLocalPortAttrs() {
   VEL_TRACE(traceLldpProtocolSm, 8,
             "LocalPortSm::handleLocalPortAttrs() for " << localPort_->intfId());
   handleLocalPortAttrsChanged(*root_, localPort_->intfId());
}

void LocalPortSm::handleLocalPortPoE() {
   const Vel::Ptr<const Lldp::LocalPortPoeInfo> poeInfo = localPort_->localPortPoeInfo();
   if (localPortPoeInfoSm_ && localPortPoeInfoSm_->poeInfo() == poeInfo) return;
   if (localPortPoeInfoSm_) {
      localPortPoeInfoSm_->doClose();
      localPortPoeInfoSm_ = nullptr;
   }
   if (poeInfo) {
      localPortPoeInfoSm_ = Vel::make<LocalPortPoeInfoSm>(root_, localPort_->intfId(), poeInfo);
      localPortPoeInfoSm_->handleInitialized();
   }
   // Another PoE record (or none) changes what the port advertises; a port's first record,
   // made with the port, changes nothing its machine has sent yet.
   handleLocalPortAttrsChanged(*root_, localPort_->intfId());
}

void handleLocalPortAttrsChanged(Root& root, const Wire::IntfId& intf) {
   if (root.protocolSm()) root.protocolSm()->doLocalChangeLater(intf);
}

ProtocolSm::ProtocolSm(Root* root) : root_(root) {
   portReactor_.sm = statusReactor_.sm = intfStatusReactor_.sm = pamReactor_.sm =
       localSystemReactor_.sm = this;
}

ProtocolSm::~ProtocolSm() = default;

void ProtocolSm::handleInitialized() {
   VEL_TRACE(traceLldpProtocolSm, 8, "ProtocolSm::handleInitialized()");
   VEL_ASSERT(root_->pamCollection()->intfPams() == 0, "pamCollection()->intfPams() == 0");
   portReactor_.notifierIs(root_->config());
   statusReactor_.notifierIs(root_->status());
   intfStatusReactor_.notifierIs(root_->ethPhyIntfStatusDir());
   pamReactor_.notifierIs(root_->pamCollection());
   localSystemReactor_.notifierIs(root_->localSystem());
   initialized_ = true;
   for (const auto& [intf, localPort] : root_->localSystem()->localPort()) handleLocalPort(intf);
}

void ProtocolSm::doClose() {
   VEL_TRACE(traceLldpProtocolSm, 8, "ProtocolSm::doClose()");
   initialized_ = false;
   portReactor_.notifierIs(nullptr);
   statusReactor_.notifierIs(nullptr);
   intfStatusReactor_.notifierIs(nullptr);
   pamReactor_.notifierIs(nullptr);
   localSystemReactor_.notifierIs(nullptr);
   while (!lldpPamSm_.empty()) lldpPamSmDel(lldpPamSm_.begin()->first);
   while (!localPortSm_.empty()) localPortSmDel(localPortSm_.begin()->first);
   localChangeAll_ = false;
   localChangePorts_.clear();
}

void ProtocolSm::handlePam(const Wire::IntfId& intf) {
   if (!initialized_) return;
   const Root& root = *root_;
   const Vel::Ptr<Wire::Pam>* pam = root.pamCollection()->intfPam(intf);
   const auto intfStatus = root.ethPhyIntfStatusDir()->intfStatus(intf);
   const auto portConfig = root.config()->portConfig(intf);
   const auto portStatus = root.status()->portStatus(intf);
   const auto localPort = root.localSystem()->localPort(intf);
   const bool qualifies = pam && intfStatus && portConfig && portStatus && localPort;
   Vel::Ptr<LldpPamSm> sm = lldpPamSm(intf);
   // A machine is bound to the objects it was made with: one that were replaced needs a
   // fresh machine.
   if (sm && qualifies &&
       (sm->pam() != *pam || sm->ethPhyIntfStatus() != intfStatus ||
        sm->portConfig() != portConfig || sm->portStatus() != portStatus ||
        sm->localPort() != localPort)) {
      lldpPamSmDel(intf);
      sm = nullptr;
   }
   if (qualifies && !sm) {
      lldpPamSmIs(intf, *pam);
   } else if (!qualifies && sm) {
      lldpPamSmDel(intf);
   }
}

Vel::Ptr<LldpPamSm> ProtocolSm::lldpPamSm(const Wire::IntfId& intf) const {
   auto it = lldpPamSm_.find(intf);
   return it == lldpPamSm_.end() ? nullptr : it->second;
}

Vel::Ptr<LldpPamSm> ProtocolSm::lldpPamSmIs(const Wire::IntfId& intf,
                                            const Vel::Ptr<Wire::Pam>& pam) {
   VEL_ASSERT(!lldpPamSmHas(intf), "!lldpPamSmHas( intfId )");
   VEL_TRACE(traceLldpProtocolSm, 4, "Creating LldpPamSm for " << intf);
   const Root& root = *root_;
   auto sm = Vel::make<LldpPamSm>(intf, pam, Vel::Ptr<const Root>(root_),
                                  root.ethPhyIntfStatusDir()->intfStatus(intf),
                                  root.config()->portConfig(intf), root.status()->portStatus(intf),
                                  root.localSystem()->localPort(intf), root.localSystem());
   lldpPamSm_[intf] = sm;
   sm->handleInitialized();
   return sm;
}

void ProtocolSm::lldpPamSmDel(const Wire::IntfId& intf) {
   auto it = lldpPamSm_.find(intf);
   if (it == lldpPamSm_.end()) return;
   VEL_TRACE(traceLldpProtocolSm, 4, "Removing LldpPamSm for " << intf);
   const Vel::Ptr<LldpPamSm> sm = it->second;
   lldpPamSm_.erase(it);
   sm->doClose();
}

void ProtocolSm::handleLocalPort(const Wire::IntfId& intf) {
   if (!initialized_) return;
   const auto localPort = root_->localSystem()->localPort(intf);
   auto it = localPortSm_.find(intf);
   if (localPort && it != localPortSm_.end() && it->second->localPort() != localPort) {
      localPortSmDel(intf);  // a new record for the port
   }
   if (localPort && !localPortSmHas(intf)) {
      VEL_ASSERT(!localPortSmHas(intf), "!localPortSmHas( intfId )");
      localPortSmIs(intf);
      VEL_ASSERT(localPortSmHas(intf), "localPortSmHas( intfId )");
   } else if (!localPort && localPortSmHas(intf)) {
      localPortSmDel(intf);
   }
   handlePam(intf);
}

Vel::Ptr<LocalPortSm> ProtocolSm::localPortSmIs(const Wire::IntfId& intf) {
   auto sm = Vel::make<LocalPortSm>(root_, root_->localSystem()->localPort(intf));
   localPortSm_[intf] = sm;
   sm->handleInitialized();
   return sm;
}

void ProtocolSm::localPortSmDel(const Wire::IntfId& intf) {
   auto it = localPortSm_.find(intf);
   if (it == localPortSm_.end()) return;
   const Vel::Ptr<LocalPortSm> sm = it->second;
   localPortSm_.erase(it);
   sm->doClose();
}

void ProtocolSm::handleLocalSystemAttrs() {
   VEL_TRACE(traceLldpProtocolSm, 8, "ProtocolSm::handleLocalSystemAttrs()");
   localChangeAll_ = true;
   doLocalChangeSoon();
}

void ProtocolSm::doLocalChangeLater(const Wire::IntfId& intf) {
   if (!initialized_ || !lldpPamSmHas(intf)) return;
   if (std::find(localChangePorts_.begin(), localChangePorts_.end(), intf) ==
       localChangePorts_.end()) {
      localChangePorts_.push_back(intf);
   }
   doLocalChangeSoon();
}

void ProtocolSm::doLocalChangeSoon() {
   if (!initialized_ || localChangePosted_) return;
   localChangePosted_ = true;
   Vel::EventLoop::instance().post([self = Vel::Ptr<ProtocolSm>(this)] {
      self->localChangePosted_ = false;
      self->doLocalChangeNow();
   });
}

void ProtocolSm::doLocalChangeNow() {
   if (!initialized_) return;
   const bool all = std::exchange(localChangeAll_, false);
   std::vector<Wire::IntfId> ports;
   ports.swap(localChangePorts_);
   // Copies: a machine's transmission may reach reactors that change the set.
   if (all) {
      const LldpPamSmMap machines = lldpPamSm_;
      for (const auto& [intf, sm] : machines) sm->doProcessSomethingChangedLocal();
      return;
   }
   for (const Wire::IntfId& intf : ports) {
      if (Vel::Ptr<LldpPamSm> sm = lldpPamSm(intf)) sm->doProcessSomethingChangedLocal();
   }
}

OnOffSwitchSm::OnOffSwitchSm(Root* root) : root_(root) {}

void OnOffSwitchSm::handleInitialized() {
   notifierIs(root_->cliConfig());
   handleEnabled();
}

void OnOffSwitchSm::handleEnabled() {
   const bool on = root_->cliConfig()->enabled();
   VEL_TRACE(traceLldpProtocolSm, 4, "LLDP " << (on ? "enabled" : "disabled") << " globally");
   root_->pamMan()->enabledIs(on);
}

void OnOffSwitchSm::doClose() {
   notifierIs(nullptr);
   if (root_->pamMan()) root_->pamMan()->enabledIs(false);
}

// ---------------------------------------------------------------------------------------
// The root.

Root::Root(std::string name) : name_(std::move(name)) {
   deviceReactor_.root = this;
}

Root::Root(Vel::Ptr<const Lldp::Config> config, Vel::Ptr<const Lldp::LocalSystem> localSystem,
           Vel::Ptr<Lldp::Status> status)
    : config_(std::move(config)), status_(std::move(status)), localSystem_(std::move(localSystem)) {
   deviceReactor_.root = this;
}

Root::~Root() = default;

std::vector<Wire::BpfInsn> Root::lldpRxFilterProgram() {
   // Classic BPF opcodes: load word / half-word at an absolute offset, jump if equal to
   // the constant, return a constant.
   constexpr uint16_t ldW = 0x20, ldH = 0x28, jeq = 0x15, ret = 0x06;
   return {
       {ldW, 0, 0, 2},                   // 0: destination bytes 2..5
       {jeq, 0, 8, 0xC200000E},          // 1: else reject
       {ldH, 0, 0, 0},                   // 2: destination bytes 0..1
       {jeq, 0, 6, 0x0180},              // 3: else reject
       {ldH, 0, 0, 12},                  // 4: EtherType
       {jeq, 3, 0, Wire::ethTypeLldp},   // 5: untagged LLDP: accept
       {jeq, 0, 3, Wire::ethTypeDot1Q},  // 6: one tag, else reject
       {ldH, 0, 0, 16},                  // 7: EtherType behind the tag
       {jeq, 0, 1, Wire::ethTypeLldp},   // 8: tagged LLDP: accept, else reject
       {ret, 0, 0, 65535},               // 9: accept, whole
       {ret, 0, 0, 0},                   // 10: reject
   };
}

void Root::doInitializePamMan(Wire::PamMan::Factory factory) {
   Wire::PktMan::instance().dataSizeIs(10236);
   auto man = Vel::make<Wire::PamMan>(desiredIntfDir(), pamCollection(), std::move(factory));
   man->separateDot1QHdrIs(true);
   man->lldpDestMacIs(Wire::EthAddr({0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e}));
   man->filterProgramIs(lldpRxFilterProgram());
   man->maxRxPktDataIs(10236);
   man->sockPrioIs(7);
   pamManIs(man);
   deviceReactor_.notifierIs(deviceIntfStatusDir());
}

void Root::DeviceReactor::intfStatusChanged(const Wire::IntfId& intf) {
   if (root->pamMan()) root->pamMan()->intfRetry(intf);
}

void Root::protocolSmIs() {
   if (protocolSm_) return;
   protocolSm_ = Vel::make<ProtocolSm>(this);
   protocolSm_->handleInitialized();
}

void Root::protocolSmDel() {
   if (!protocolSm_) return;
   const Vel::Ptr<ProtocolSm> sm = std::exchange(protocolSm_, nullptr);
   sm->doClose();
}

void Root::onOffSwitchSmIs() {
   if (onOffSwitchSm_) return;
   onOffSwitchSm_ = Vel::make<OnOffSwitchSm>(this);
   onOffSwitchSm_->handleInitialized();
}

void Root::onOffSwitchSmDel() {
   if (!onOffSwitchSm_) return;
   const Vel::Ptr<OnOffSwitchSm> sm = std::exchange(onOffSwitchSm_, nullptr);
   sm->doClose();
}

void Root::doClose() {
   onOffSwitchSmDel();
   protocolSmDel();
   deviceReactor_.notifierIs(nullptr);
   pamManIs(nullptr);
}

Vel::Ptr<Root> rootFactory(const std::string& name) {
   return Vel::make<Root>(name);
}

}  // namespace Lldp::Agent::Protocol

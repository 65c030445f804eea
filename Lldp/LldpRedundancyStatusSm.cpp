#include "Lldp/LldpRedundancyStatusSm.h"

#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Lldp/LldpInputSm.h"

namespace Lldp::Agent {

using Input::traceLldpAgent;

namespace {

constinit const Vel::Log::Handle LLDP_SUPERVISOR_TAKEOVER(
    "LLDP_SUPERVISOR_TAKEOVER", 5, "LLDP standby agent taking over as active (%s)",
    "The active LLDP agent went away or handed over, and this standby agent became active "
    "with the neighbours it had mirrored.",
    "no action required", 0);

constinit const Vel::Log::Handle LLDP_SWITCHOVER_REQUESTED(
    "LLDP_SWITCHOVER_REQUESTED", 5, "LLDP switchover to the standby agent requested by %s",
    "An operator asked the active LLDP agent to hand over to its standby agent and exit.",
    "no action required", 0);

const char* lossName(PeerLoss why) {
   switch (why) {
      case PeerLoss::connectionBroken:
         return "connection broken";
      case PeerLoss::peerStopping:
         return "active agent stopping";
      case PeerLoss::handedOver:
         return "active agent handed over";
   }
   return "?";
}

}  // namespace

RedundancyStatusSm::RedundancyStatusSm(Hardware::CellInfo::Ptr cellInfo,
                                       Lldp::RedundancyStatus::Ptr status, Options options,
                                       std::function<void()> handleStandbyMode)
    : cellInfo_(std::move(cellInfo)),
      status_(std::move(status)),
      options_(std::move(options)),
      handleStandbyMode_(std::move(handleStandbyMode)),
      standby_(options_.standby),
      probeClock_([this] { handleProbeClock(); }) {}

RedundancyStatusSm::~RedundancyStatusSm() = default;

void RedundancyStatusSm::handleInitialized() {
   VEL_TRACE(traceLldpAgent, 4,
             "RedundancyStatusSm::handleInitialized(): " << (standby_ ? "standby" : "active")
                                                         << ", cell " << cellInfo_->cellId());
   status_->roleIs(standby_ ? Lldp::RedundancyRoleNames::roleStandby
                            : Lldp::RedundancyRoleNames::roleActive);
   status_->cellIdIs(cellInfo_->cellId());
   handleStandbyMode_();
}

void RedundancyStatusSm::doClose() {
   probeClock_.timeMinIs(Vel::never);
   takeoverHandler_ = nullptr;
   exitHandler_ = nullptr;
   mirrorServer_ = {};
}

void RedundancyStatusSm::handlePeerCellId(uint32_t activeCellId) {
   if (!standby_) return;
   // The pair is cells 1 and 2: this standby is the one the active agent is not.
   const uint32_t mine = activeCellId == 1 ? 2 : 1;
   VEL_TRACE(traceLldpAgent, 6,
             "RedundancyStatusSm::handlePeerCellId( " << activeCellId << " ): this cell " << mine);
   status_->peerCellIdIs(activeCellId);
   if (cellInfo_->cellId() != mine) cellInfo_->cellIdIs(mine);
   status_->cellIdIs(mine);
}

void RedundancyStatusSm::handlePeerConnectionLost(PeerLoss why) {
   if (!standby_) return;
   VEL_TRACE(traceLldpAgent, 4,
             "RedundancyStatusSm::handlePeerConnectionLost(): " << lossName(why)
                                                                << "; checking the active agent");
   // What the active agent said is the better reason: a later broken connection (the
   // same agent closing) does not hide it, and a handover stays a handover.
   if (lastLoss_ != PeerLoss::handedOver &&
       (why != PeerLoss::connectionBroken || probeClock_.timeMin() == Vel::never)) {
      lastLoss_ = why;
   }
   handleProbeClock();
}

void RedundancyStatusSm::handlePeerConnected() {
   if (!standby_) return;
   VEL_TRACE(traceLldpAgent, 6, "RedundancyStatusSm::handlePeerConnected()");
   probeClock_.timeMinIs(Vel::never);
   lastLoss_ = PeerLoss::connectionBroken;
}

void RedundancyStatusSm::handleProbeClock() {
   if (!standby_) return;
   if (options_.activeGone && options_.activeGone()) {
      Lldp::SwitchoverReason reason = Lldp::SwitchoverReasonNames::switchoverPeerDied;
      if (lastLoss_ == PeerLoss::peerStopping) {
         reason = Lldp::SwitchoverReasonNames::switchoverPeerStopped;
      } else if (lastLoss_ == PeerLoss::handedOver) {
         reason = Lldp::SwitchoverReasonNames::switchoverOperatorRequest;
      }
      doTakeover(reason);
      return;
   }
   // Still alive (or still exiting): look again soon.
   probeClock_.timeMinIs(Vel::EventLoop::instance().now() + options_.probeInterval);
}

void RedundancyStatusSm::doTakeover(Lldp::SwitchoverReason reason) {
   if (!standby_) return;
   probeClock_.timeMinIs(Vel::never);
   VEL_TRACE(traceLldpAgent, 2, "RedundancyStatusSm::doTakeover(): taking over, " << reason);
   LLDP_SUPERVISOR_TAKEOVER.log(reason.stringValue());
   standby_ = false;
   status_->roleIs(Lldp::RedundancyRoleNames::roleActive);
   status_->lastSwitchoverReasonIs(reason);
   status_->lastSwitchoverTimeIs(Vel::EventLoop::instance().now());
   status_->mirrorStateIs(Lldp::MirrorStateNames::mirrorNotMirroring);
   status_->mirrorLagChangesIs(0);
   if (takeoverHandler_) takeoverHandler_(reason);
   handleStandbyMode_();
}

void RedundancyStatusSm::switchoverRequest(const std::string& who,
                                           std::function<void(const std::string&)> reply) {
   if (standby_) return reply("this agent is the standby; ask the active agent");
   if (handingOver_) return reply("a switchover is already under way");
   if (!mirrorServer_.standbyInSync || !mirrorServer_.handOver) {
      return reply("no standby agent is mirroring this one");
   }
   if (!mirrorServer_.standbyInSync()) return reply("no standby agent in sync");
   LLDP_SWITCHOVER_REQUESTED.log(who);
   VEL_TRACE(traceLldpAgent, 2, "RedundancyStatusSm::switchoverRequest() by " << who);
   handingOver_ = true;
   Vel::Ptr<RedundancyStatusSm> self(this);
   mirrorServer_.handOver([self, reply](bool ok, const std::string& why) {
      self->handingOver_ = false;
      if (!ok) {
         VEL_TRACE(traceLldpAgent, 0, "Switchover failed: " << why);
         return reply("switchover failed: " + why);
      }
      self->status_->lastSwitchoverReasonIs(Lldp::SwitchoverReasonNames::switchoverOperatorRequest);
      self->status_->lastSwitchoverTimeIs(Vel::EventLoop::instance().now());
      reply("");
      if (self->exitHandler_) self->exitHandler_();
   });
}

void RedundancyStatusSm::doActiveStopping() {
   if (standby_) return;
   VEL_TRACE(traceLldpAgent, 4, "RedundancyStatusSm::doActiveStopping()");
   if (mirrorServer_.stopping) mirrorServer_.stopping();
}

}  // namespace Lldp::Agent

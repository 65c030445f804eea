// The supervisor's redundancy role: whether this agent is the active one or the standby
// of another agent on the same host, and the move from standby to active (takeover).
//
// A standby keeps, through its mirror, a live copy of the active agent's status in the
// peer cells' status directory. When the mirror's connection to the active agent ends,
// the mirror tells this machine (handlePeerConnectionLost). A broken connection alone
// proves nothing: the machine takes over only once the active agent is proven gone (the
// probe it was given, on Linux the lock the active agent holds for its whole life, which
// the kernel releases however the process ends). Until then it keeps probing, and the
// mirror keeps reconnecting; a mirror that gets back in tells it so (handlePeerConnected).
//
// On the active agent, `lldp switchover` asks this machine to hand over: the mirror
// server says whether a standby is in sync and sends it the handover; the agent then
// exits at once, without shutdown LLDPDUs, and the standby takes over.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/Ptr.h"
#include "Records/LldpRedundancy.h"
#include "Records/SystemStatus.h"

namespace Lldp::Agent {

// How the standby's stream from the active agent ended, as far as the mirror can tell.
enum class PeerLoss : uint8_t {
   connectionBroken,  // closed or cut without a word: the active may or may not be gone
   peerStopping,      // the active agent said it is stopping (a clean stop)
   handedOver,        // the active agent handed over (`lldp switchover`) and is exiting
};

// What the mirror server of an active agent offers for a switchover and a clean stop.
struct MirrorServerHooks {
   // A standby is connected and has applied every change made so far.
   std::function<bool()> standbyInSync;
   // Sends the standby every change still queued, then the handover; calls `done` with
   // true once all of it is written to the standby's connection, false (and why) when it
   // could not be.
   std::function<void(std::function<void(bool ok, const std::string& why)> done)> handOver;
   // The active agent stops: tell the standby so and stream nothing more (what the
   // clean-up removes must not reach the standby's mirror).
   std::function<void()> stopping;
};

class RedundancyStatusSm : public Vel::RefCounted {
public:
   // True once the active agent is gone for good. Cheap; called from the event loop.
   using ActiveGoneProbe = std::function<bool()>;
   // Runs at takeover, before the agent's active machines start (the daemon binds the
   // active agent's socket path there, the mirror stops for good).
   using TakeoverHandler = std::function<void(Lldp::SwitchoverReason)>;

   struct Options {
      bool standby = false;
      ActiveGoneProbe activeGone = nullptr;
      // How often a standby that lost its peer checks whether the active agent is gone.
      Vel::Seconds probeInterval = 0.02;
   };

   // `handleStandbyMode` is the agent's reactor to the role: called once at creation and
   // again when this machine leaves standby.
   RedundancyStatusSm(Hardware::CellInfo::Ptr cellInfo, Lldp::RedundancyStatus::Ptr status,
                      Options options, std::function<void()> handleStandbyMode);
   ~RedundancyStatusSm() override;
   void handleInitialized();
   void doClose();

   bool standby() const { return standby_; }
   const Lldp::RedundancyStatus::Ptr& status() const { return status_; }
   void takeoverHandlerIs(TakeoverHandler h) { takeoverHandler_ = std::move(h); }

   // Standby side, called by the mirror client.
   // The active agent's cell, from the mirror's handshake: this agent is the other cell of
   // the pair (1 and 2).
   void handlePeerCellId(uint32_t activeCellId);
   // The mirror's connection to the active agent, having passed the handshake, ended.
   void handlePeerConnectionLost(PeerLoss why);
   // The mirror is back in with the active agent: it is alive, stop probing.
   void handlePeerConnected();

   // Active side.
   void mirrorServerIs(MirrorServerHooks hooks) { mirrorServer_ = std::move(hooks); }
   // `lldp switchover`, asked by `who`: refused (reply with the reason) unless a standby
   // is in sync; otherwise hands over and replies with an empty reason, then calls the
   // exit handler.
   void switchoverRequest(const std::string& who, std::function<void(const std::string&)> reply);
   void exitHandlerIs(std::function<void()> h) { exitHandler_ = std::move(h); }
   // The active agent stops cleanly: the mirror server tells the standby first.
   void doActiveStopping();

   // Leaves standby now for `reason` (also what a proven loss of the active leads to).
   void doTakeover(Lldp::SwitchoverReason reason);

private:
   void handleProbeClock();

   Hardware::CellInfo::Ptr cellInfo_;
   Lldp::RedundancyStatus::Ptr status_;
   Options options_;
   std::function<void()> handleStandbyMode_;
   TakeoverHandler takeoverHandler_;
   MirrorServerHooks mirrorServer_;
   std::function<void()> exitHandler_;
   bool standby_ = false;
   bool handingOver_ = false;
   PeerLoss lastLoss_ = PeerLoss::connectionBroken;
   Vel::Clock probeClock_;
};

}  // namespace Lldp::Agent

// The standby agent's side of the mirror: connects to the active agent's control socket
// (--peer-socket), asks for its stream (Daemon/MirrorService.h) and applies it, through
// the standby's status-directory machine, into the copy of the active agent's cell.
//
// It never gives up while it is a standby: a peer that is not there, refuses, is not an
// agent or answers something unreadable is logged (rate limited) with the reason, shown in
// the redundancy status (`lldp show redundancy`), and tried again after a back-off that
// doubles up to `retryMax`. A stream cut mid-message, or one that breaks its own rules (a
// sequence gap, a record that does not decode), is dropped and asked for afresh: the new
// snapshot brings the copy back in line without emptying it first.
//
// When a connection that had passed the handshake ends, the redundancy machine hears of
// it with what the active agent last said (handing over, stopping, or nothing); whether
// the active agent is really gone is for that machine to find out.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/Json.h"
#include "Lldp/LldpRedundancyStatusSm.h"
#include "Lldp/LldpStandbyLldpStatusDirSm.h"
#include "Records/LldpRedundancy.h"

namespace Daemon {

class MirrorClient {
public:
   struct Options {
      std::string peerSocket = "/run/lldp-agent.sock";
      Vel::Seconds retryMin = 0.1;
      Vel::Seconds retryMax = 5;
      // How long the peer may take to answer the request.
      Vel::Seconds answerTimeout = 5;
   };
   // `redundancySm` may be null (then nobody is told of a lost peer).
   MirrorClient(Options options, Vel::Ptr<Lldp::Agent::StandbyLldpStatusDirSm> dirSm,
                Lldp::RedundancyStatus::Ptr redundancy,
                Vel::Ptr<Lldp::Agent::RedundancyStatusSm> redundancySm);
   ~MirrorClient();
   MirrorClient(const MirrorClient&) = delete;
   MirrorClient& operator=(const MirrorClient&) = delete;

   // Connects now and keeps the mirror going until stop().
   void start();
   // For good: the standby took over (its copy stays where it is).
   void stop();

   bool connected() const { return fd_ >= 0; }
   // The active agent's listening socket named `name` ("control"), handed over with its
   // last answer and kept unused until now: the caller owns it. -1 when there is none (an
   // agent that does not hand it over).
   int takeListener(const std::string& name);
   uint32_t activeCellId() const { return activeCell_; }

private:
   enum class Stage : uint8_t { idle, answer, stream };
   void doConnect();
   void doRetry(Lldp::MirrorState state, const std::string& why);
   void doClose();
   void handleReadable();
   // One line from the peer; false when the connection has to go (the state says why).
   bool handleLine(std::string_view line);
   bool handleAnswer(const Vel::Json& j, std::string_view line);
   bool handleMessage(const Vel::Json& j);
   void doAck();
   void doWrite(const std::string& line);

   Options options_;
   Vel::Ptr<Lldp::Agent::StandbyLldpStatusDirSm> dirSm_;
   Lldp::RedundancyStatus::Ptr redundancy_;
   Vel::Ptr<Lldp::Agent::RedundancyStatusSm> redundancySm_;
   Vel::Ptr<Lldp::Agent::StandbyCellDirSm> cellSm_;
   bool running_ = false;
   int fd_ = -1;
   std::unique_ptr<Vel::FdReactor> reactor_;
   Stage stage_ = Stage::idle;
   std::string in_;
   std::string out_;  // an acknowledgement the socket did not take at once
   std::string bytes_;
   uint32_t activeCell_ = 0;
   uint64_t seq_ = 0;
   uint64_t ackedSeq_ = 0;
   bool everInSync_ = false;
   Lldp::Agent::PeerLoss lastWord_ = Lldp::Agent::PeerLoss::connectionBroken;
   Vel::Seconds retryDelay_ = 0;
   Vel::Clock retryClock_;
   Vel::Clock answerClock_;
   std::vector<int> received_;             // descriptors that came with the answer
   std::map<std::string, int> listeners_;  // the active agent's, by name
};

}  // namespace Daemon

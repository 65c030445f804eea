// The active agent's side of the mirror: the control-socket request `mirror`, by which a
// standby agent gets the whole published LLDP status and then every change to it, in
// order, to keep as its copy of this agent's cell.
//
//    {"op":"mirror","cell":C,"layout":L}
//        -> {"ok":true,"data":{"cell":ours,"layout":L}}, then the stream, one JSON line a
//           message, each with the next sequence number ("seq", from 1 without a gap):
//       {"m":"begin"}                        a snapshot follows (also after "resync")
//       {"m":"port","intf":I,"d":HEX}        a port's status (no neighbours)
//       {"m":"portDel","intf":I}
//       {"m":"remote","intf":I,"d":HEX}      one neighbour, every attribute
//       {"m":"remoteDel","intf":I,"index":N}
//       {"m":"global","d":HEX}               the global remote-table counters
//       {"m":"end"}                          the snapshot is complete
//       {"m":"resync","reason":R}            the standby fell behind: a fresh snapshot
//       {"m":"handover"} / {"m":"stopping"}  this agent hands over / stops; nothing follows
//    A standby that asks with "listeners":true also gets this agent's listening control
//    socket with the answer (SCM_RIGHTS), named in its "listeners":["control"]: it keeps
//    it unused, and serves it if it takes over.
//    {"op":"mirror-ack","seq":N}  -> {"ok":true}: the standby has applied up to N
//
// HEX is a record in the mirror's compact form (Lldp/LldpMirrorCodec.h); the layout L
// must match. A snapshot is sent as fast as the standby acknowledges it, interleaved with
// the changes to what it has already sent: the snapshot reads the live tables, so what
// it reaches later goes out as it is then, and nothing changed meanwhile is lost.
//
// Bounded buffering: at most `windowBytes` of the stream may wait for the standby's
// acknowledgement while a snapshot is sent; a standby more than `maxLagBytes` behind gets
// nothing more until it has caught up, then "resync" and a fresh snapshot, so a slow
// standby costs a bounded amount of memory however fast the tables change. Both stay
// within half the control socket's limit on a client's unread replies (and the window
// within half the lag), so a standby is resynchronised rather than dropped.
//
// One standby per active agent: a second one is refused, and so is `mirror` on an agent
// that is itself a standby.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "Daemon/ControlSocket.h"
#include "Lldp/LldpRedundancyStatusSm.h"
#include "Records/LldpRedundancy.h"
#include "Records/LldpStatus.h"

namespace Daemon {

class MirrorService {
public:
   struct Options {
      uint64_t windowBytes = uint64_t(2) << 20;
      uint64_t maxLagBytes = uint64_t(8) << 20;
      // How long a handover waits for the standby to confirm it.
      Vel::Seconds handOverTimeout = 2;
   };
   MirrorService(ControlSocket& socket, Lldp::AllStatus::PtrConst status,
                 Lldp::RedundancyStatus::Ptr redundancy, Options options);
   MirrorService(ControlSocket& socket, Lldp::AllStatus::PtrConst status,
                 Lldp::RedundancyStatus::Ptr redundancy)
       : MirrorService(socket, std::move(status), std::move(redundancy), Options()) {}
   ~MirrorService();
   MirrorService(const MirrorService&) = delete;
   MirrorService& operator=(const MirrorService&) = delete;

   // What the redundancy machine needs of the mirror for a switchover and a clean stop.
   Lldp::Agent::MirrorServerHooks hooks();

   bool standbyConnected() const;
   // A standby was given this agent's listening socket: the socket file is the standby's
   // to serve (and to remove) once this agent is gone. Left in place when that standby is
   // gone too, the file is stale and the next agent on the path replaces it.
   bool listenersHandedOver() const { return listenersHanded_; }
   bool standbyInSync() const;
   uint64_t sequence() const { return seq_; }
   uint64_t resyncs() const { return resyncs_; }

private:
   class Watch;
   enum class Phase : uint8_t { snapshot, live, behind, done };
   struct Key {
      Wire::IntfId intf;
      int index;  // -1: the port's own attributes
      auto operator<=>(const Key&) const = default;
   };

   Vel::Json handleMirror(const Vel::Json& req, const Vel::Ptr<ControlConnection>& c);
   Vel::Json handleAck(const Vel::Json& req, const Vel::Ptr<ControlConnection>& c);
   void doStart(const Vel::Ptr<ControlConnection>& c);
   void doStop();
   void doBeginSnapshot();
   void doPump();
   void doFlush();
   bool doSendItem(const Key& key);
   void doSend(Vel::Json message, size_t estimate);
   bool alive();
   bool sentAlready(const Key& key) const;
   uint64_t unacked() const;
   uint64_t maxLag() const;
   uint64_t window() const;
   // Called by the watch as the tables change.
   void changed(const Key& key);
   void globalChanged();

   ControlSocket& socket_;
   Lldp::AllStatus::PtrConst status_;
   Lldp::RedundancyStatus::Ptr redundancy_;
   Options options_;
   Vel::Ptr<ControlConnection> client_;
   std::unique_ptr<Watch> watch_;
   Phase phase_ = Phase::done;
   uint64_t seq_ = 0;
   uint64_t ackedSeq_ = 0;
   uint64_t bytesSent_ = 0;
   uint64_t resyncs_ = 0;
   bool listenersHanded_ = false;  // to a standby, ever
   // (sequence number, bytes sent up to and including it) of the messages not acknowledged.
   std::deque<std::pair<uint64_t, uint64_t>> inFlight_;
   // The snapshot's position: everything before it has been sent.
   Key cursor_;
   bool cursorSet_ = false;  // nothing sent yet while false
   std::set<Key> dirty_;
   bool globalDirty_ = false;
   bool flushPosted_ = false;
   std::string scratch_;
   std::string hex_;
   uint64_t handOverSeq_ = 0;
   std::function<void(bool, const std::string&)> handOverDone_;
   Vel::Clock handOverClock_;
   Vel::Clock livenessClock_;
   std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace Daemon

#include "Daemon/MirrorService.h"

#include <algorithm>

#include "Framework/Trace.h"
#include "Framework/Vel/EventLoop.h"
#include "Lldp/LldpMirrorCodec.h"

namespace {

// A key's index for the port's own attributes, and for the port removed (or replaced).
constexpr int portAttrs = -1;
constexpr int portGone = -2;

}  // namespace

namespace Daemon {

namespace {

Vel::Trace::Handle traceMirror("Mirror");

}  // namespace

// Hears of every change to the published status: one reactor on the status, one per port
// and one per neighbour, each overriding every attribute's reactor (they are generated
// from the records' attribute lists, so a new attribute is mirrored without a word here).
#define MIRROR_W_NONE2(a, b)
#define MIRROR_W_NONE3(a, b, c)
#define MIRROR_W_NONE4(a, b, c, d)
#define MIRROR_W_ATTR(T, n, d)  \
   void n##Changed() override { \
      on();                     \
   }
#define MIRROR_W_COUNTER(T, n)  \
   void n##Changed() override { \
      on();                     \
   }
#define MIRROR_W_COLL(K, V, n)          \
   void n##Changed(const K&) override { \
      on();                             \
   }

}  // namespace Daemon

// In the records' namespace: the attribute lists name their types as the records do.
namespace Lldp::Mirror {

struct ChangeSink {
   virtual ~ChangeSink() = default;
   virtual void changed(const Wire::IntfId& intf, int index) = 0;
   virtual void globalChanged() = 0;
};

class RemoteW : public RemoteSystem::Notifiee {
public:
   RemoteW(ChangeSink* s, const Wire::IntfId* intf, const RemoteSystem::PtrConst& r)
       : s_(s), intf_(intf), index_(r->index()) {
      notifierIs(r);
   }
   LLDP_REMOTE_SYSTEM_ATTRS(MIRROR_W_NONE2, MIRROR_W_ATTR, MIRROR_W_COUNTER, MIRROR_W_COLL,
                            MIRROR_W_COLL, MIRROR_W_NONE3, MIRROR_W_NONE4)
private:
   void on() { s_->changed(*intf_, index_); }
   ChangeSink* s_;
   const Wire::IntfId* intf_;  // the port watcher's, which outlives this one
   int index_;
};

class PortW : public PortStatus::Notifiee {
public:
   PortW(ChangeSink* s, const PortStatus::PtrConst& p) : s_(s), intf_(p->intfId()) {
      notifierIs(p);
      for (const auto& [index, r] : p->remoteSystem()) {
         remotes_.emplace(index, std::make_unique<RemoteW>(s_, &intf_, r));
      }
   }
   PortStatus::PtrConst port() const { return notifier(); }
   void remoteSystemChanged(const int& index) override {
      remotes_.erase(index);
      if (auto r = notifier()->remoteSystem(index)) {
         remotes_.emplace(index, std::make_unique<RemoteW>(s_, &intf_, r));
      }
      s_->changed(intf_, index);
   }
   LLDP_PORT_STATUS_ATTRS(MIRROR_W_NONE2, MIRROR_W_ATTR, MIRROR_W_COUNTER, MIRROR_W_COLL,
                          MIRROR_W_COLL, MIRROR_W_NONE3, MIRROR_W_NONE4)
private:
   void on() { s_->changed(intf_, portAttrs); }
   ChangeSink* s_;
   Wire::IntfId intf_;
   std::map<int, std::unique_ptr<RemoteW>> remotes_;
};

class StatusW : public AllStatus::Notifiee {
public:
   StatusW(ChangeSink* s, const AllStatus::PtrConst& st) : s_(s) {
      notifierIs(st);
      for (const auto& [intf, p] : st->portStatus()) {
         if (p) ports_.emplace(intf, std::make_unique<PortW>(s_, p));
      }
   }
   void portStatusChanged(const Wire::IntfId& intf) override {
      const Vel::Ptr<const PortStatus>* now = notifier()->portStatus(intf);
      auto it = ports_.find(intf);
      if (it != ports_.end() && now && *now == it->second->port()) return;
      if (it != ports_.end()) {
         ports_.erase(it);
         s_->changed(intf, portGone);
      }
      if (now && *now) {
         auto& w = ports_[intf] = std::make_unique<PortW>(s_, *now);
         s_->changed(intf, portAttrs);
         for (const auto& [index, r] : w->port()->remoteSystem()) s_->changed(intf, index);
      }
   }
   LLDP_STATUS_BASE_ATTRS(MIRROR_W_NONE2, MIRROR_W_ATTR, MIRROR_W_COUNTER, MIRROR_W_COLL,
                          MIRROR_W_COLL, MIRROR_W_NONE3, MIRROR_W_NONE4)
private:
   void on() { s_->globalChanged(); }
   ChangeSink* s_;
   std::map<Wire::IntfId, std::unique_ptr<PortW>> ports_;
};

}  // namespace Lldp::Mirror

namespace Daemon {

class MirrorService::Watch final : public Lldp::Mirror::ChangeSink {
public:
   Watch(MirrorService* s, const Lldp::AllStatus::PtrConst& st) : service_(s), status_(this, st) {}
   void changed(const Wire::IntfId& intf, int index) override {
      service_->changed(Key{intf, index});
   }
   void globalChanged() override { service_->globalChanged(); }

private:
   MirrorService* service_;
   Lldp::Mirror::StatusW status_;
};

MirrorService::MirrorService(ControlSocket& socket, Lldp::AllStatus::PtrConst status,
                             Lldp::RedundancyStatus::Ptr redundancy, Options options)
    : socket_(socket),
      status_(std::move(status)),
      redundancy_(std::move(redundancy)),
      options_(options) {
   using Vel::Json;
   socket_.opIs("mirror", [this](const Json& req, const Vel::Ptr<ControlConnection>& c) {
      return handleMirror(req, c);
   });
   socket_.opIs("mirror-ack", [this](const Json& req, const Vel::Ptr<ControlConnection>& c) {
      return handleAck(req, c);
   });
   // A standby that hangs up is noticed within a second even when nothing changes.
   livenessClock_.handlerIs([this] {
      if (alive()) livenessClock_.timeMinIs(Vel::EventLoop::instance().now() + 1);
   });
   handOverClock_.handlerIs([this] {
      if (!handOverDone_) return;
      auto done = std::move(handOverDone_);
      handOverDone_ = nullptr;
      done(false, "the standby did not confirm the handover in time");
   });
}

MirrorService::~MirrorService() {
   *alive_ = false;
   watch_.reset();
}

bool MirrorService::alive() {
   if (client_ && client_->closed()) {
      VEL_TRACE(traceMirror, 4, "the standby disconnected");
      doStop();
      client_ = nullptr;
      redundancy_->mirrorStandbysIs(0);
   }
   return client_ != nullptr;
}

bool MirrorService::standbyConnected() const {
   return client_ && !client_->closed();
}

bool MirrorService::standbyInSync() const {
   return standbyConnected() && phase_ == Phase::live && ackedSeq_ == seq_ && dirty_.empty() &&
          !globalDirty_;
}

Vel::Json MirrorService::handleMirror(const Vel::Json& req, const Vel::Ptr<ControlConnection>& c) {
   if (redundancy_->role() == Lldp::RedundancyRoleNames::roleStandby) {
      return ControlSocket::errorReply(
          "mirror: this agent is a standby and cannot be mirrored; give --peer-socket the "
          "active agent's socket");
   }
   if (alive() && client_ != c) {
      return ControlSocket::errorReply("mirror: this agent already has a standby (pid " +
                                       std::to_string(client_->peer().pid) +
                                       "); only one standby may mirror an agent");
   }
   std::string layout;
   if (!stringArg(req, "layout", &layout, "") || layout != Lldp::Mirror::recordLayout()) {
      return ControlSocket::errorReply("mirror: the standby's records (layout '" + layout +
                                       "') differ from this agent's ('" +
                                       Lldp::Mirror::recordLayout() + "')");
   }
   VEL_TRACE(traceMirror, 4, "standby connected: pid " << c->peer().pid);
   doStop();
   client_ = c;
   redundancy_->mirrorStandbysIs(1);
   livenessClock_.timeMinIs(Vel::EventLoop::instance().now() + 1);
   // The reply goes out first, then the stream.
   Vel::EventLoop::instance().post([this, c, a = std::weak_ptr<bool>(alive_)] {
      if (a.lock() && client_ == c && !c->closed()) doStart(c);
   });
   Vel::Json data{{"cell", redundancy_->cellId()}, {"layout", Lldp::Mirror::recordLayout()}};
   // The listening socket rides on the reply, so the standby can serve this agent's
   // path when it takes over without making a socket file of its own.
   if (auto l = req.find("listeners"); l != req.end() && l->is_boolean() && l->get<bool>() &&
                                       socket_.listenerFd() >= 0 &&
                                       c->attachFds({socket_.listenerFd()})) {
      listenersHanded_ = true;
      data["listeners"] = Vel::Json::array({"control"});
   }
   return ControlSocket::okReply(std::move(data));
}

Vel::Json MirrorService::handleAck(const Vel::Json& req, const Vel::Ptr<ControlConnection>& c) {
   if (!client_ || client_ != c) {
      return ControlSocket::errorReply("mirror-ack: this connection is not mirroring");
   }
   auto s = req.find("seq");
   if (s == req.end() || !s->is_number_unsigned() || s->get<uint64_t>() > seq_) {
      return ControlSocket::errorReply("mirror-ack: \"seq\" must be a sequence number sent");
   }
   ackedSeq_ = std::max(ackedSeq_, s->get<uint64_t>());
   while (!inFlight_.empty() && inFlight_.front().first <= ackedSeq_) inFlight_.pop_front();
   redundancy_->mirrorLagChangesIs(seq_ - ackedSeq_);
   if (handOverDone_ && ackedSeq_ >= handOverSeq_) {
      handOverClock_.timeMinIs(Vel::never);
      auto done = std::move(handOverDone_);
      handOverDone_ = nullptr;
      done(true, "");
   } else if (phase_ == Phase::behind && unacked() <= window() / 4) {
      ++resyncs_;
      VEL_TRACE(traceMirror, 2, "the standby fell behind, resynchronising it");
      doSend(Vel::Json{{"m", "resync"}, {"reason", "the standby fell behind"}}, 64);
      doBeginSnapshot();
   } else {
      doPump();
   }
   // Tells the standby how many messages it has still to apply.
   return ControlSocket::okReply(Vel::Json{{"lag", seq_ - ackedSeq_}});
}

void MirrorService::doStart(const Vel::Ptr<ControlConnection>& c) {
   client_ = c;
   seq_ = ackedSeq_ = bytesSent_ = 0;
   inFlight_.clear();
   watch_ = std::make_unique<Watch>(this, status_);
   doBeginSnapshot();
}

void MirrorService::doStop() {
   watch_.reset();
   phase_ = Phase::done;
   dirty_.clear();
   globalDirty_ = false;
   inFlight_.clear();
}

void MirrorService::doBeginSnapshot() {
   phase_ = Phase::snapshot;
   cursorSet_ = false;
   dirty_.clear();
   globalDirty_ = false;
   doSend(Vel::Json{{"m", "begin"}}, 32);
   doPump();
}

uint64_t MirrorService::unacked() const {
   return inFlight_.empty() ? 0 : bytesSent_ - inFlight_.front().second;
}

// Within what the control socket lets one client fall behind by, whatever its limit: a
// standby is resynchronised, never dropped for not reading.
uint64_t MirrorService::maxLag() const {
   return std::min(options_.maxLagBytes, socket_.limits()->maxReplyBacklogBytes() / 2);
}

uint64_t MirrorService::window() const {
   return std::min(options_.windowBytes, maxLag() / 2);
}

bool MirrorService::sentAlready(const Key& key) const {
   return phase_ == Phase::live || (phase_ == Phase::snapshot && cursorSet_ && key <= cursor_);
}

void MirrorService::doSend(Vel::Json message, size_t estimate) {
   message["seq"] = ++seq_;
   bytesSent_ += estimate;
   inFlight_.emplace_back(seq_, bytesSent_ - estimate);
   client_->send(message);
}

bool MirrorService::doSendItem(const Key& key) {
   const Vel::Ptr<const Lldp::PortStatus>* p = status_->portStatus(key.intf);
   const Lldp::PortStatus* port = p && *p ? p->ptr() : nullptr;
   const std::string intf(key.intf.name());
   scratch_.clear();
   hex_.clear();
   if (key.index == portGone) {
      doSend(Vel::Json{{"m", "portDel"}, {"intf", intf}}, 48 + intf.size());
      return true;
   }
   if (key.index == portAttrs) {
      if (!port) return false;  // its removal went as portGone
      Lldp::Mirror::encode(*port, scratch_);
      Lldp::Mirror::appendHex(scratch_, hex_);
      doSend(Vel::Json{{"m", "port"}, {"intf", intf}, {"d", hex_}}, 48 + intf.size() + hex_.size());
      return true;
   }
   auto r = port ? port->remoteSystem(key.index) : nullptr;
   if (!r) {
      if (!port) return false;  // gone with its port
      doSend(Vel::Json{{"m", "remoteDel"}, {"intf", intf}, {"index", key.index}}, 64 + intf.size());
      return true;
   }
   Lldp::Mirror::encode(*r, scratch_);
   Lldp::Mirror::appendHex(scratch_, hex_);
   doSend(Vel::Json{{"m", "remote"}, {"intf", intf}, {"d", hex_}}, 48 + intf.size() + hex_.size());
   return true;
}

void MirrorService::doPump() {
   if (phase_ != Phase::snapshot || !alive()) return;
   const auto& ports = status_->portStatus();
   auto byIntf = [](const auto& item, const Wire::IntfId& k) { return item.first < k; };
   while (unacked() < window()) {
      Key next;
      bool found = false;
      // The next neighbour on the port at the cursor, else the next port.
      const Vel::Ptr<const Lldp::PortStatus>* p = cursorSet_ ? ports.find(cursor_.intf) : nullptr;
      if (p && *p && cursor_.index >= portAttrs) {
         const auto& rs = (*p)->remoteSystem();
         auto r = rs.upper_bound(cursor_.index);
         if (r != rs.end()) {
            next = Key{cursor_.intf, r->first};
            found = true;
         }
      }
      if (!found) {
         auto it = ports.begin();
         if (cursorSet_) {
            it = std::lower_bound(ports.begin(), ports.end(), cursor_.intf, byIntf);
            if (it != ports.end() && it->first == cursor_.intf) ++it;
         }
         while (it != ports.end() && !it->second) ++it;
         if (it == ports.end()) {
            // Everything is sent: the global counters close the snapshot.
            scratch_.clear();
            hex_.clear();
            Lldp::Mirror::encode(static_cast<const Lldp::StatusBase&>(*status_), scratch_);
            Lldp::Mirror::appendHex(scratch_, hex_);
            doSend(Vel::Json{{"m", "global"}, {"d", hex_}}, 32 + hex_.size());
            doSend(Vel::Json{{"m", "end"}}, 32);
            phase_ = Phase::live;
            VEL_TRACE(traceMirror, 4, "snapshot sent, " << seq_ << " messages");
            return;
         }
         next = Key{it->first, portAttrs};
      }
      cursor_ = next;
      cursorSet_ = true;
      doSendItem(next);
      if (!alive()) return;
   }
}

void MirrorService::changed(const Key& key) {
   if (phase_ != Phase::snapshot && phase_ != Phase::live) return;
   dirty_.insert(key);
   if (flushPosted_) return;
   flushPosted_ = true;
   Vel::EventLoop::instance().post([this, a = std::weak_ptr<bool>(alive_)] {
      if (a.lock()) doFlush();
   });
}

void MirrorService::globalChanged() {
   if (phase_ != Phase::live) return;  // the snapshot ends with them
   globalDirty_ = true;
   changed(Key{Wire::IntfId(), INT32_MIN});
}

void MirrorService::doFlush() {
   flushPosted_ = false;
   if (!alive() || (phase_ != Phase::snapshot && phase_ != Phase::live)) return;
   std::set<Key> dirty;
   dirty.swap(dirty_);
   for (const Key& key : dirty) {
      if (key.index == INT32_MIN) continue;  // the global counters' mark
      // What the snapshot has not reached yet goes out as it is when it gets there.
      if (sentAlready(key)) doSendItem(key);
      if (!alive()) return;
   }
   if (globalDirty_ && phase_ == Phase::live) {
      globalDirty_ = false;
      scratch_.clear();
      hex_.clear();
      Lldp::Mirror::encode(static_cast<const Lldp::StatusBase&>(*status_), scratch_);
      Lldp::Mirror::appendHex(scratch_, hex_);
      doSend(Vel::Json{{"m", "global"}, {"d", hex_}}, 32 + hex_.size());
   }
   if (unacked() > maxLag()) {
      // Too far behind to queue more: nothing more until it catches up, then a snapshot.
      VEL_TRACE(traceMirror, 2,
                "the standby is " << unacked() << " bytes behind; it will be resynchronised");
      phase_ = Phase::behind;
      dirty_.clear();
      globalDirty_ = false;
      return;
   }
   doPump();
}

Lldp::Agent::MirrorServerHooks MirrorService::hooks() {
   Lldp::Agent::MirrorServerHooks h;
   h.standbyInSync = [this] {
      alive();
      return standbyInSync();
   };
   h.handOver = [this](std::function<void(bool, const std::string&)> done) {
      if (!alive() || phase_ != Phase::live) {
         done(false, "no standby is in sync");
         return;
      }
      doFlush();
      if (!alive()) {
         done(false, "the standby went away");
         return;
      }
      doSend(Vel::Json{{"m", "handover"}}, 32);
      phase_ = Phase::done;
      watch_.reset();
      handOverSeq_ = seq_;
      handOverDone_ = std::move(done);
      handOverClock_.timeMinIs(Vel::EventLoop::instance().now() + options_.handOverTimeout);
   };
   h.stopping = [this] {
      if (!alive()) return;
      if (phase_ == Phase::snapshot || phase_ == Phase::live) doFlush();
      if (alive()) doSend(Vel::Json{{"m", "stopping"}}, 32);
      doStop();
   };
   return h;
}

}  // namespace Daemon

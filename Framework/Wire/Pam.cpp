#include "Framework/Wire/Pam.h"

#include <cstring>

#include "Framework/Trace.h"
#include "Framework/Vel/EventLoop.h"
#include "Framework/Wire/ByteOrder.h"

namespace Wire {

namespace {
Vel::Trace::Handle trace("WirePam");
}

void Pam::notifieeIs(Notifiee* n) {
   if (n == notifiee_) return;
   notifiee_ = n;
   notifieeChanged();
   if (notifiee_ && readableCount() > 0) readableNotifyLater();
}

void Pam::readableNotifyLater() {
   if (notifyPending_) return;
   notifyPending_ = true;
   // Captures only the pointer, so the call fits in the function object without an
   // allocation; the reference given up here keeps the Pam alive until it runs.
   Vel::Ptr<Pam>(this).detach();
   Vel::EventLoop::instance().post([this] {
      const Vel::Ptr<Pam> self = Vel::Ptr<Pam>::adopt(this);
      notifyPending_ = false;
      notifyStep();
   });
}

void Pam::readableNotifyNow() {
   if (notifyPending_) return;
   notifyStep();
}

void Pam::notifyStep() {
   const uint32_t before = notifiee_ ? readableCount() : 0;
   if (before == 0) return;
   notifiee_->handleReadableCount();
   // A notifiee that took nothing is not asked again at once: the loop would go round
   // this call forever. It hears again when more frames arrive.
   const uint32_t after = readableCount();
   if (after > 0 && after < before) readableNotifyLater();
}

Vel::Ptr<Pkt> Pam::rxPktFromBytes(const char* frame, size_t len, bool separateTag) {
   const bool tagged =
       separateTag && len >= ethHdrLen + dot1qHdrLen && Be::get16(frame + 12) == ethTypeDot1Q;
   const size_t outLen = tagged ? len - dot1qHdrLen : len;
   PktMan& man = PktMan::instance();
   if (outLen > rxFrameLimit || outLen > man.dataSize()) {
      ++rxDropsOversize_;
      VEL_TRACE(trace, 2, intfId() << ": dropped a frame of " << len << " bytes: too long");
      return nullptr;
   }
   Vel::Ptr<Pkt> pkt = man.newPkt();
   if (!pkt) {
      ++rxDropsNoPkt_;
      VEL_TRACE(trace, 2, intfId() << ": dropped a frame: no packet free");
      return nullptr;
   }
   char* out = pkt->dataAppend(outLen);
   if (tagged) {
      std::memcpy(out, frame, 12);
      std::memcpy(out + 12, frame + 16, len - 16);
      pkt->dot1qHdrIs(ethTypeDot1Q, Be::get16(frame + 14));
   } else {
      std::memcpy(out, frame, len);
   }
   return pkt;
}

size_t Pam::txFrameBytes(const Pkt& pkt, char* out) {
   const char* in = pkt.data();
   const size_t len = pkt.bytes();
   if (!pkt.dot1qHdrValid() || len < 12) {
      std::memcpy(out, in, len);
      return len;
   }
   std::memcpy(out, in, 12);
   Be::put16(out + 12, pkt.dot1qTpid());
   Be::put16(out + 14, pkt.dot1qTci());
   std::memcpy(out + 16, in + 12, len - 12);
   return len + dot1qHdrLen;
}

std::pair<Vel::Ptr<InMemoryPam>, Vel::Ptr<InMemoryPam>> InMemoryPam::pair(const IntfId& a,
                                                                          const IntfId& b) {
   Vel::Ptr<InMemoryPam> pa(new InMemoryPam(a));
   Vel::Ptr<InMemoryPam> pb(new InMemoryPam(b));
   pa->peer_ = pb.ptr();
   pb->peer_ = pa.ptr();
   return {pa, pb};
}

InMemoryPam::~InMemoryPam() {
   if (peer_) peer_->peer_ = nullptr;
}

Vel::Ptr<Pkt> InMemoryPam::rxPkt() {
   if (queue_.empty()) return nullptr;
   Vel::Ptr<Pkt> pkt = std::move(queue_.front());
   queue_.pop_front();
   ++rxFrames_;
   return pkt;
}

void InMemoryPam::txPktIs(const Vel::Ptr<Pkt>& pkt) {
   if (!pkt || !peer_ || pkt->bytes() < ethHdrLen) {
      ++txErrors_;
      txErrorReason_ = !peer_ ? "the other end is gone" : "no Ethernet frame";
      return;
   }
   ++txFrames_;
   // Through a frame-sized staging buffer, so the tag goes in line as it would on a wire.
   static thread_local char wire[PktMan::defaultDataSize + 2 * dot1qHdrLen];
   if (pkt->bytes() + dot1qHdrLen > sizeof(wire)) {
      peer_->rxDropsOversize_++;
      return;
   }
   const size_t len = txFrameBytes(*pkt, wire);
   peer_->rxFrameIs(wire, len);
}

void InMemoryPam::rxFrameIs(const char* frame, size_t len) {
   if (queue_.size() >= queueLimit) {
      ++rxDropsNoPkt_;
      return;
   }
   Vel::Ptr<Pkt> pkt = rxPktFromBytes(frame, len, separateDot1QHdr_);
   if (!pkt) return;
   queue_.push_back(std::move(pkt));
   readableNotifyLater();
}

}  // namespace Wire

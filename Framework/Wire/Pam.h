// Packet access: one per interface, it receives and sends whole Ethernet frames.
//
// Receiving is driven by the event loop. When frames wait, the Pam calls its notifiee's
// handleReadableCount() from the loop (never from inside txPktIs()); the notifiee takes
// one frame with rxPkt() per call, and the Pam calls again, through the loop, while
// frames still wait. Taking one frame per turn lets timers and other interfaces run
// between frames of a busy one. A notifiee that takes nothing is asked again only when
// the Pam becomes readable again (more frames arrive; on Linux, the next turn of the loop
// while the ring holds frames), never in a tight loop.
//
// A received frame is the full Ethernet frame. Where the Pam separates 802.1Q tags (the
// Linux one always does, the kernel usually having taken the tag out already), the tag's
// four bytes are gone from the frame and travel in the packet's dot1qHdr.
//
// The in-memory pair joins two Pams back to back within the process, for tests that need
// frames to flow without a kernel.
#pragma once

#include <cstdint>
#include <deque>
#include <utility>

#include "Framework/Vel/Ptr.h"
#include "Framework/Wire/IntfId.h"
#include "Framework/Wire/Pkt.h"

namespace Wire {

inline constexpr uint16_t ethTypeDot1Q = 0x8100;
inline constexpr uint16_t ethTypeLldp = 0x88cc;
inline constexpr size_t ethHdrLen = 14;
inline constexpr size_t dot1qHdrLen = 4;

class Pam : public Vel::RefCounted {
public:
   // Longest frame handed to a reader (Ethernet header included, separated tag not);
   // longer ones are dropped and counted, never cut short.
   static constexpr size_t rxFrameLimit = 10236;

   class Notifiee {
   public:
      virtual void handleReadableCount() = 0;

   protected:
      ~Notifiee() = default;
   };

   const IntfId& intfId() const { return intfId_; }

   // The next received frame, or null when none waits.
   virtual Vel::Ptr<Pkt> rxPkt() = 0;
   // Sends a full Ethernet frame. A tag held in the packet's dot1qHdr goes out in line.
   virtual void txPktIs(const Vel::Ptr<Pkt>& pkt) = 0;
   // Frames waiting to be taken with rxPkt(). Some may still be dropped on the way (too
   // long, no packet free), so rxPkt() can return null while this is not 0.
   virtual uint32_t readableCount() const = 0;

   Notifiee* notifiee() const { return notifiee_; }
   void notifieeIs(Notifiee* n);

   uint64_t rxFrames() const { return rxFrames_; }
   uint64_t rxDropsOversize() const { return rxDropsOversize_; }
   // Frames lost because the packet manager had no packet to give.
   uint64_t rxDropsNoPkt() const { return rxDropsNoPkt_; }
   uint64_t txFrames() const { return txFrames_; }
   // Frames refused on the way out (txPktIs() returns nothing: a sender that needs to know
   // compares this count before and after), and why the last one was refused.
   uint64_t txErrors() const { return txErrors_; }
   const char* txErrorReason() const { return txErrorReason_; }

protected:
   explicit Pam(const IntfId& intfId) : intfId_(intfId) {}
   ~Pam() override = default;

   // Frames may be waiting: notifies the notifiee from the loop soon, unless that is
   // already arranged.
   void readableNotifyLater();
   // Called from the loop when frames may be waiting: notifies now (and keeps going
   // through the loop), unless a notification is already on its way.
   void readableNotifyNow();
   // The notifiee changed (a hook for implementations that watch a descriptor only
   // while someone reads).
   virtual void notifieeChanged() {}

   // Copies `len` bytes of a frame into a fresh packet, taking an in-line 802.1Q tag out
   // into the packet's dot1qHdr when `separateTag`. Counts and drops frames over the
   // limit and frames for which no packet is free; returns null for those.
   Vel::Ptr<Pkt> rxPktFromBytes(const char* frame, size_t len, bool separateTag);
   // Writes the frame of `pkt` to `out` (at least bytes() + 4 long) with its separated tag
   // back in line; returns the frame's length.
   static size_t txFrameBytes(const Pkt& pkt, char* out);

   uint64_t rxFrames_ = 0;
   uint64_t rxDropsOversize_ = 0;
   uint64_t rxDropsNoPkt_ = 0;
   uint64_t txFrames_ = 0;
   uint64_t txErrors_ = 0;
   const char* txErrorReason_ = "";

private:
   void notifyStep();
   IntfId intfId_;
   Notifiee* notifiee_ = nullptr;
   // A notification waits in the loop; it holds a reference to the Pam until it runs.
   bool notifyPending_ = false;  // last: a derived class's first members fill the padding
};

// Two Pams joined back to back in memory. What one sends the other receives, copied into
// a packet of its own; its notifiee hears of it through the event loop.
class InMemoryPam : public Pam {
public:
   static std::pair<Vel::Ptr<InMemoryPam>, Vel::Ptr<InMemoryPam>> pair(const IntfId& a,
                                                                       const IntfId& b);
   // Frames held for the reader at most; more are dropped as if no packet were free.
   static constexpr size_t queueLimit = 1024;

   Vel::Ptr<Pkt> rxPkt() override;
   void txPktIs(const Vel::Ptr<Pkt>& pkt) override;
   uint32_t readableCount() const override { return uint32_t(queue_.size()); }

   // Whether frames received with an in-line 802.1Q tag have it separated (on by
   // default, as on Linux).
   bool separateDot1QHdr() const { return separateDot1QHdr_; }
   void separateDot1QHdrIs(bool on) { separateDot1QHdr_ = on; }
   // The other end; null once it is gone.
   InMemoryPam* peer() const { return peer_; }

private:
   explicit InMemoryPam(const IntfId& intfId) : Pam(intfId) {}
   ~InMemoryPam() override;
   void rxFrameIs(const char* frame, size_t len);

   InMemoryPam* peer_ = nullptr;
   bool separateDot1QHdr_ = true;
   std::deque<Vel::Ptr<Pkt>> queue_;
};

}  // namespace Wire

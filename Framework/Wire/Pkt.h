// Packets: one buffer per frame with room at its head, and the manager that hands them
// out. A received frame is copied once, from the kernel's ring into a Pkt, and then read
// in place; a frame to send is built in place and can grow at its head (an Ethernet
// header in front of an LLDPDU) without moving its bytes.
//
// Packets are recycled: the manager keeps the memory of released packets on a free list,
// so in the steady state neither receiving nor sending allocates. Everything runs on the
// event loop's thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Framework/Assert.h"
#include "Framework/Vel/Ptr.h"

namespace Wire {

class PktMan;

class Pkt : public Vel::RefCounted {
public:
   // Room in front of the data of a fresh packet: an Ethernet header and an 802.1Q tag,
   // rounded up so the data of a fresh packet starts aligned.
   static constexpr size_t headRoom = 32;

   char* data() { return buf() + start_; }
   const char* data() const { return buf() + start_; }
   // Bytes of data now held.
   size_t bytes() const { return bytes_; }
   // How many bytes of data fit from the current start of the data.
   size_t maxSharedData() const { return capacity_ - start_; }

   // Reserves `n` more bytes at the tail and returns their start.
   char* dataAppend(size_t n) {
      VEL_ASSERT(n <= maxSharedData() - bytes_, "Wire::Pkt::dataAppend beyond capacity");
      char* p = data() + bytes_;
      bytes_ += n;
      return p;
   }
   // Gives up the last `n` bytes.
   void trimTail(size_t n) {
      VEL_ASSERT(n <= bytes_, "Wire::Pkt::trimTail beyond data");
      bytes_ -= n;
   }
   // Grows the data by `n` bytes at its head, into the head room; returns the new start.
   char* prepend(size_t n) {
      VEL_ASSERT(n <= start_, "Wire::Pkt::prepend beyond head room");
      start_ -= n;
      bytes_ += n;
      return data();
   }
   // Gives up the first `n` bytes (they become head room).
   void trimHead(size_t n) {
      VEL_ASSERT(n <= bytes_, "Wire::Pkt::trimHead beyond data");
      start_ += n;
      bytes_ -= n;
   }
   // Empty, with the full head room, and no 802.1Q header.
   void reset() {
      start_ = headRoom;
      bytes_ = 0;
      dot1qValid_ = false;
   }

   // The 802.1Q header of the frame when it travels apart from the bytes: the kernel (or
   // the packet access) took it out of the frame, which then reads as untagged.
   bool dot1qHdrValid() const { return dot1qValid_; }
   uint16_t dot1qTpid() const { return dot1qTpid_; }
   uint16_t dot1qTci() const { return dot1qTci_; }
   void dot1qHdrIs(uint16_t tpid, uint16_t tci) {
      dot1qValid_ = true;
      dot1qTpid_ = tpid;
      dot1qTci_ = tci;
   }
   void dot1qHdrDel() { dot1qValid_ = false; }

   // The memory goes back to the manager rather than to the heap.
   static void operator delete(void* p);

private:
   friend class PktMan;
   explicit Pkt(size_t capacity) : capacity_(capacity) {}
   ~Pkt() override = default;
   // The buffer follows the object in the same block.
   char* buf() { return reinterpret_cast<char*>(this + 1); }
   const char* buf() const { return reinterpret_cast<const char*>(this + 1); }

   size_t capacity_;  // head room + data size
   size_t start_ = headRoom;
   size_t bytes_ = 0;
   bool dot1qValid_ = false;
   uint16_t dot1qTpid_ = 0;
   uint16_t dot1qTci_ = 0;
};

// Hands out packets and takes their memory back. One per process.
class PktMan {
public:
   // A jumbo frame's data plus an Ethernet header.
   static constexpr size_t defaultDataSize = 10236 + 14;
   static constexpr size_t defaultMaxPkts = 8192;

   static PktMan& instance();

   // A fresh, empty packet; null when `maxPkts()` packets are in use.
   Vel::Ptr<Pkt> newPkt();

   // Data capacity of packets handed out from now on (packets in use keep theirs).
   void dataSizeIs(size_t n);
   size_t dataSize() const { return dataSize_; }
   // How many packets may be in use at once.
   void maxPktsIs(size_t n) { maxPkts_ = n; }
   size_t maxPkts() const { return maxPkts_; }

   size_t pktsInUse() const { return inUse_; }
   // Released packets whose memory waits for reuse.
   size_t pktsFree() const { return freeCount_; }
   // Blocks taken from the heap since the start: flat in the steady state.
   uint64_t heapAllocs() const { return heapAllocs_; }
   uint64_t newPktFailures() const { return newPktFailures_; }

   // Returns the memory of every free packet to the heap.
   void freeListDelAll();

   PktMan(const PktMan&) = delete;
   PktMan& operator=(const PktMan&) = delete;

private:
   friend class Pkt;
   struct Block;
   PktMan() = default;
   void blockIs(void* pktMemory);

   size_t dataSize_ = defaultDataSize;
   size_t maxPkts_ = defaultMaxPkts;
   size_t inUse_ = 0;
   size_t freeCount_ = 0;
   uint64_t heapAllocs_ = 0;
   uint64_t newPktFailures_ = 0;
   Block* free_ = nullptr;
};

}  // namespace Wire

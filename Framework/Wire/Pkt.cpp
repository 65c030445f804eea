#include "Framework/Wire/Pkt.h"

#include <new>

namespace Wire {

// What precedes every Pkt in its block: the data size it was made for, and the link of
// the free list while the block waits for reuse.
struct PktMan::Block {
   size_t dataSize;
   Block* next;
};

PktMan& PktMan::instance() {
   // Never destroyed, so packets released during static destruction still find it.
   static PktMan* const man = new PktMan;
   return *man;
}

Vel::Ptr<Pkt> PktMan::newPkt() {
   if (inUse_ >= maxPkts_) {
      ++newPktFailures_;
      return nullptr;
   }
   Block* b = free_;
   if (b) {
      free_ = b->next;
      --freeCount_;
   } else {
      b = static_cast<Block*>(
          ::operator new(sizeof(Block) + sizeof(Pkt) + Pkt::headRoom + dataSize_));
      b->dataSize = dataSize_;
      ++heapAllocs_;
   }
   static_assert(sizeof(Block) % alignof(Pkt) == 0, "the Pkt follows its block header");
   b->next = nullptr;
   ++inUse_;
   return Vel::Ptr<Pkt>(::new (b + 1) Pkt(Pkt::headRoom + b->dataSize));
}

void Pkt::operator delete(void* p) {
   PktMan::instance().blockIs(p);
}

void PktMan::blockIs(void* pktMemory) {
   Block* b = static_cast<Block*>(pktMemory) - 1;
   VEL_ASSERT(inUse_ > 0, "Wire::PktMan released more packets than it handed out");
   --inUse_;
   if (b->dataSize != dataSize_) {
      ::operator delete(b);
      return;
   }
   b->next = free_;
   free_ = b;
   ++freeCount_;
}

void PktMan::dataSizeIs(size_t n) {
   VEL_ASSERT(n >= 1514, "Wire::PktMan::dataSize below an Ethernet frame");
   if (n == dataSize_) return;
   dataSize_ = n;
   freeListDelAll();
}

void PktMan::freeListDelAll() {
   while (free_) {
      Block* b = free_;
      free_ = b->next;
      ::operator delete(b);
   }
   freeCount_ = 0;
}

}  // namespace Wire

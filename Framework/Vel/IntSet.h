// A set of integers (record indexes and the like): open addressing with linear probing
// over one flat array, kept at most three quarters full, so a member costs 5 to 11 bytes
// where a node-based set pays a heap block per member (the members are spread by a
// multiplicative hash, so probe runs stay short even when indexes come in sequence). An
// empty set is one null word; an insert allocates only when the array doubles; erasure shifts the
// rest of a probe run back, so no tombstones build up.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>

namespace Vel {

class IntSet {
public:
   // The one value that cannot be a member: it marks an empty slot.
   static constexpr int none = std::numeric_limits<int>::min();

   IntSet() = default;
   IntSet(const IntSet&) = delete;
   IntSet& operator=(const IntSet&) = delete;
   ~IntSet() { ::operator delete(h_); }

   size_t size() const { return h_ ? h_->size : 0; }
   bool empty() const { return size() == 0; }
   bool contains(int k) const { return h_ && h_->size != 0 && slots()[slotOf(k)] == k; }
   // False when k was a member already.
   bool insert(int k) {
      if (!h_ || (size_t(h_->size) + 1) * 4 > (size_t(h_->mask) + 1) * 3) grow();
      const size_t i = slotOf(k);
      if (slots()[i] == k) return false;
      slots()[i] = k;
      ++h_->size;
      return true;
   }
   bool erase(int k) {
      if (empty()) return false;
      int* s = slots();
      size_t hole = slotOf(k);
      if (s[hole] != k) return false;
      for (size_t j = next(hole); s[j] != none; j = next(j)) {
         const size_t home = homeOf(s[j]);
         const bool movable = hole <= j ? (home <= hole || home > j) : (home <= hole && home > j);
         if (movable) {
            s[hole] = s[j];
            hole = j;
         }
      }
      s[hole] = none;
      --h_->size;
      return true;
   }
   void clear() {
      if (!h_) return;
      std::fill(slots(), slots() + h_->mask + 1, none);
      h_->size = 0;
   }

private:
   // The slots follow their count and mask in one block: an empty set is one null word.
   struct Head {
      uint32_t size;
      uint32_t mask;
   };
   int* slots() const { return reinterpret_cast<int*>(h_ + 1); }
   size_t next(size_t i) const { return (i + 1) & h_->mask; }
   size_t homeOf(int k) const { return (uint32_t(k) * 0x9e3779b1u) & h_->mask; }
   // Where k is, or the empty slot where it would go.
   size_t slotOf(int k) const {
      const int* s = slots();
      size_t i = homeOf(k);
      while (s[i] != none && s[i] != k) i = next(i);
      return i;
   }
   void grow() {
      Head* old = h_;
      const size_t count = old ? (size_t(old->mask) + 1) * 2 : 8;
      h_ = static_cast<Head*>(::operator new(sizeof(Head) + count * sizeof(int)));
      h_->size = 0;
      h_->mask = uint32_t(count - 1);
      std::fill(slots(), slots() + count, none);
      if (!old) return;
      const int* from = reinterpret_cast<const int*>(old + 1);
      for (size_t i = 0; i <= old->mask; ++i) {
         if (from[i] != none) slots()[slotOf(from[i])] = from[i];
      }
      h_->size = old->size;
      ::operator delete(old);
   }
   Head* h_ = nullptr;
};

}  // namespace Vel

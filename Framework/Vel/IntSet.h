// A set of integers (record indexes and the like): open addressing with linear probing
// over one flat array, kept at most three quarters full, so a member costs 5 to 11 bytes
// where a node-based set pays a heap block per member (the members are spread by a
// multiplicative hash, so probe runs stay short even when indexes come in sequence). An
// insert allocates only when the array doubles; erasure shifts the rest of a probe run
// back, so no tombstones build up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace Vel {

class IntSet {
public:
   // The one value that cannot be a member: it marks an empty slot.
   static constexpr int none = std::numeric_limits<int>::min();

   size_t size() const { return size_; }
   bool empty() const { return size_ == 0; }
   bool contains(int k) const { return size_ != 0 && slots_[slotOf(k)] == k; }
   // False when k was a member already.
   bool insert(int k) {
      if ((size_ + 1) * 4 > slots_.size() * 3) grow();
      const size_t i = slotOf(k);
      if (slots_[i] == k) return false;
      slots_[i] = k;
      ++size_;
      return true;
   }
   bool erase(int k) {
      if (size_ == 0) return false;
      size_t hole = slotOf(k);
      if (slots_[hole] != k) return false;
      for (size_t j = next(hole); slots_[j] != none; j = next(j)) {
         const size_t home = homeOf(slots_[j]);
         const bool movable = hole <= j ? (home <= hole || home > j) : (home <= hole && home > j);
         if (movable) {
            slots_[hole] = slots_[j];
            hole = j;
         }
      }
      slots_[hole] = none;
      --size_;
      return true;
   }
   void clear() {
      slots_.assign(slots_.size(), none);
      size_ = 0;
   }

private:
   size_t mask() const { return slots_.size() - 1; }
   size_t next(size_t i) const { return (i + 1) & mask(); }
   size_t homeOf(int k) const { return (uint32_t(k) * 0x9e3779b1u) & mask(); }
   // Where k is, or the empty slot where it would go.
   size_t slotOf(int k) const {
      size_t i = homeOf(k);
      while (slots_[i] != none && slots_[i] != k) i = next(i);
      return i;
   }
   void grow() {
      std::vector<int> old(slots_.empty() ? 8 : slots_.size() * 2, none);
      old.swap(slots_);
      for (int k : old) {
         if (k != none) slots_[slotOf(k)] = k;
      }
   }

   std::vector<int> slots_;
   size_t size_ = 0;
};

}  // namespace Vel

// A hashed index of entities by one of their own key attributes. Open addressing with
// linear probing over one flat array of words, filled to three quarters before it doubles.
// A slot holds an entity's address and, in the bits an address leaves unused, the top 19
// bits of its key's hash, which are also what places it in a table of up to half a
// million slots. So a probe reads an entity only when its hash bits match the key's, and
// growing or closing a gap after a removal never reads the entities at all: the key (read
// inside the entity, where it sits at the same offset in every entity, so it is neither
// copied nor pointed at) is touched only to confirm a match. An insert allocates only when
// the array doubles. The entity's key must not change while it is indexed; entity keys
// are fixed at construction, so that holds.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "Framework/Vel/Ptr.h"
#include "Framework/Vel/Types.h"

namespace Vel {

template <class K, class E>
class RefIndex {
public:
   RefIndex() = default;
   RefIndex(const RefIndex&) = delete;
   RefIndex& operator=(const RefIndex&) = delete;
   ~RefIndex() { clear(); }

   size_t size() const { return size_; }
   bool empty() const { return size_ == 0; }

   Ptr<E> find(const K& k) const {
      if (size_ == 0) return nullptr;
      const uint64_t h = hashOf(k), tag = tagOfHash(h);
      for (size_t i = home(h); slots_[i]; i = next(i)) {
         if (tagOf(slots_[i]) == tag && keyOf(slots_[i]) == k) return entity(slots_[i]);
      }
      return nullptr;
   }
   // `key` must be the entity's own key attribute. An entity indexed under the same key
   // is replaced.
   void insert(const K& key, const Ptr<E>& e) {
      // Records are far smaller than 32 KB: the key's offset fits in 16 bits.
      keyOffset_ =
          int16_t(reinterpret_cast<const char*>(&key) - reinterpret_cast<const char*>(e.ptr()));
      if ((size_t(size_) + 1) * 4 > capacity() * 3) grow();
      const uint64_t h = hashOf(key), tag = tagOfHash(h);
      size_t i = home(h);
      for (; slots_[i]; i = next(i)) {
         if (tagOf(slots_[i]) == tag && keyOf(slots_[i]) == key) break;
      }
      if (slots_[i]) {
         Ptr<E>::adopt(address(slots_[i]));  // the replaced entity's reference, let go
      } else {
         ++size_;
      }
      slots_[i] = slot(Ptr<E>(e).detach(), h);
   }
   bool erase(const K& k) {
      if (size_ == 0) return false;
      const uint64_t h = hashOf(k), tag = tagOfHash(h);
      size_t i = home(h);
      for (; slots_[i]; i = next(i)) {
         if (tagOf(slots_[i]) == tag && keyOf(slots_[i]) == k) break;
      }
      if (!slots_[i]) return false;
      const Ptr<E> gone = Ptr<E>::adopt(address(slots_[i]));
      // Backward-shift deletion: later members of the probe run move up into the hole
      // when their home slot allows it, so no tombstones accumulate.
      size_t hole = i;
      for (size_t j = next(i); slots_[j]; j = next(j)) {
         const size_t at = homeOf(slots_[j]);
         const bool movable = hole <= j ? (at <= hole || at > j) : (at <= hole && at > j);
         if (movable) {
            slots_[hole] = slots_[j];
            hole = j;
         }
      }
      slots_[hole] = 0;
      --size_;
      return true;
   }
   void clear() {
      for (size_t i = 0, n = capacity(); i < n && size_ > 0; ++i) {
         if (slots_[i]) {
            Ptr<E>::adopt(address(slots_[i]));
            slots_[i] = 0;
            --size_;
         }
      }
   }

private:
   // A user-space address fits in 48 bits and an entity's is a multiple of 8: the top 16
   // bits and the low 3 are free for the hash's top 19.
   static constexpr uint64_t kAddressMask = ((uint64_t(1) << 48) - 1) & ~uint64_t(7);
   static constexpr int kHashBits = 19;

   static uint64_t hashOf(const K& k) {
      // Spread over the top bits, which place and tell apart the slots.
      return uint64_t(Hash<K>()(k)) * 0x9e3779b97f4a7c15ULL;
   }
   // A slot without its address: the hash bits it keeps, where it keeps them.
   static uint64_t tagOf(uint64_t s) { return s & ~kAddressMask; }
   static uint64_t tagOfHash(uint64_t h) {
      const uint64_t top = h >> (64 - kHashBits);  // 19 bits: 16 on top, 3 at the bottom
      return (top >> 3) << 48 | (top & 7);
   }
   static uint64_t slot(E* e, uint64_t h) { return tagOfHash(h) | reinterpret_cast<uintptr_t>(e); }
   // The hash bits a slot keeps, back in the top of a word.
   static uint64_t kept(uint64_t s) { return ((s >> 48) << 3 | (s & 7)) << (64 - kHashBits); }
   static E* address(uint64_t s) { return reinterpret_cast<E*>(s & kAddressMask); }
   static Ptr<E> entity(uint64_t s) { return Ptr<E>(address(s)); }
   const K& keyOf(uint64_t s) const {
      return *reinterpret_cast<const K*>(reinterpret_cast<const char*>(address(s)) + keyOffset_);
   }
   size_t home(uint64_t h) const { return size_t(h >> shift_); }
   size_t homeOf(uint64_t s) const {
      if (64 - shift_ <= kHashBits) return home(kept(s));
      return home(hashOf(keyOf(s)));  // a table beyond half a million slots
   }
   // A power of two, 16 or more, once the first entity came (the shift is 64 before).
   size_t capacity() const { return shift_ == 64 ? 0 : size_t(1) << (64 - shift_); }
   size_t next(size_t i) const { return (i + 1) & (~size_t(0) >> shift_); }
   void grow() {
      const size_t oldCapacity = capacity();
      std::unique_ptr<uint64_t[]> old = std::move(slots_);
      const size_t grown = oldCapacity ? oldCapacity * 2 : 16;
      shift_ = uint8_t(64 - std::countr_zero(grown));
      slots_ = std::make_unique<uint64_t[]>(grown);
      for (size_t i = 0; i < oldCapacity; ++i) {
         if (!old[i]) continue;
         size_t j = homeOf(old[i]);
         while (slots_[j]) j = next(j);
         slots_[j] = old[i];
      }
   }

   // Two words in all: a port's index of its neighbours is in every port status.
   std::unique_ptr<uint64_t[]> slots_;
   uint32_t size_ = 0;
   int16_t keyOffset_ = 0;
   uint8_t shift_ = 64;
};

}  // namespace Vel

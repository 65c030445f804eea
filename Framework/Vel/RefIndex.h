// A hashed index of entities by one of their own key attributes. Open addressing with
// linear probing over one flat array of {hash, key pointer, entity}: a lookup costs one
// cache line in the common case and an insert allocates only when the array doubles.
// Each slot points at the key inside the entity it holds instead of copying it, so a large
// key (an MSAP is two 256-byte identifiers) is stored once. The entity's key must not
// change while it is indexed; entity keys are fixed at construction, so that holds.
#pragma once

#include <cstddef>
#include <vector>

#include "Framework/Vel/Ptr.h"
#include "Framework/Vel/Types.h"

namespace Vel {

template <class K, class E>
class RefIndex {
public:
   size_t size() const { return size_; }
   bool empty() const { return size_ == 0; }

   Ptr<E> find(const K& k) const {
      if (size_ == 0) return nullptr;
      const size_t h = Hash<K>()(k);
      for (size_t i = h & mask(); slots_[i].entity; i = (i + 1) & mask()) {
         if (slots_[i].hash == h && *slots_[i].key == k) return slots_[i].entity;
      }
      return nullptr;
   }
   // `key` must be the entity's own key attribute.
   void insert(const K& key, const Ptr<E>& entity) {
      if ((size_ + 1) * 2 > slots_.size()) grow();
      const size_t h = Hash<K>()(key);
      size_t i = h & mask();
      for (; slots_[i].entity; i = (i + 1) & mask()) {
         if (slots_[i].hash == h && *slots_[i].key == key) break;
      }
      if (!slots_[i].entity) ++size_;
      // A replaced entity may go away, so the slot takes the new entity's key too.
      slots_[i] = Slot{h, &key, entity};
   }
   bool erase(const K& k) {
      if (size_ == 0) return false;
      const size_t h = Hash<K>()(k);
      size_t i = h & mask();
      for (; slots_[i].entity; i = (i + 1) & mask()) {
         if (slots_[i].hash == h && *slots_[i].key == k) break;
      }
      if (!slots_[i].entity) return false;
      // Backward-shift deletion: later members of the probe run move up into the hole
      // when their home slot allows it, so no tombstones accumulate.
      size_t hole = i;
      for (size_t j = (i + 1) & mask(); slots_[j].entity; j = (j + 1) & mask()) {
         const size_t home = slots_[j].hash & mask();
         const bool movable = hole <= j ? (home <= hole || home > j) : (home <= hole && home > j);
         if (movable) {
            slots_[hole] = std::move(slots_[j]);
            hole = j;
         }
      }
      slots_[hole] = Slot{};
      --size_;
      return true;
   }
   void clear() {
      for (auto& s : slots_) s = Slot{};
      size_ = 0;
   }

private:
   struct Slot {
      size_t hash = 0;
      const K* key = nullptr;
      Ptr<E> entity;
   };
   size_t mask() const { return slots_.size() - 1; }
   void grow() {
      std::vector<Slot> old(slots_.empty() ? 16 : slots_.size() * 2);
      old.swap(slots_);
      for (auto& s : old) {
         if (!s.entity) continue;
         size_t i = s.hash & mask();
         while (slots_[i].entity) i = (i + 1) & mask();
         slots_[i] = std::move(s);
      }
   }

   std::vector<Slot> slots_;
   size_t size_ = 0;
};

}  // namespace Vel

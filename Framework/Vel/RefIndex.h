// A hashed index of entities by one of their own key attributes. Open addressing with
// linear probing over one flat array of entity pointers: a slot costs one word, the key
// is read inside the entity it holds (where it sits at the same offset in every entity,
// so it is neither copied nor pointed at), and an insert allocates only when the array
// doubles. The entity's key must not change while it is indexed; entity keys are fixed
// at construction, so that holds.
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
      for (size_t i = Hash<K>()(k) & mask(); slots_[i]; i = (i + 1) & mask()) {
         if (keyOf(slots_[i]) == k) return slots_[i];
      }
      return nullptr;
   }
   // `key` must be the entity's own key attribute.
   void insert(const K& key, const Ptr<E>& entity) {
      keyOffset_ =
          reinterpret_cast<const char*>(&key) - reinterpret_cast<const char*>(entity.ptr());
      if ((size_ + 1) * 2 > slots_.size()) grow();
      size_t i = Hash<K>()(key) & mask();
      for (; slots_[i]; i = (i + 1) & mask()) {
         if (keyOf(slots_[i]) == key) break;
      }
      if (!slots_[i]) ++size_;
      slots_[i] = entity;
   }
   bool erase(const K& k) {
      if (size_ == 0) return false;
      size_t i = Hash<K>()(k) & mask();
      for (; slots_[i]; i = (i + 1) & mask()) {
         if (keyOf(slots_[i]) == k) break;
      }
      if (!slots_[i]) return false;
      // Backward-shift deletion: later members of the probe run move up into the hole
      // when their home slot allows it, so no tombstones accumulate.
      size_t hole = i;
      for (size_t j = (i + 1) & mask(); slots_[j]; j = (j + 1) & mask()) {
         const size_t home = Hash<K>()(keyOf(slots_[j])) & mask();
         const bool movable = hole <= j ? (home <= hole || home > j) : (home <= hole && home > j);
         if (movable) {
            slots_[hole] = std::move(slots_[j]);
            hole = j;
         }
      }
      slots_[hole] = nullptr;
      --size_;
      return true;
   }
   void clear() {
      for (auto& s : slots_) s = nullptr;
      size_ = 0;
   }

private:
   // Every key sits at the same place inside its entity, so a slot is just the entity.
   const K& keyOf(const Ptr<E>& e) const {
      return *reinterpret_cast<const K*>(reinterpret_cast<const char*>(e.ptr()) + keyOffset_);
   }
   size_t mask() const { return slots_.size() - 1; }
   void grow() {
      std::vector<Ptr<E>> old(slots_.empty() ? 16 : slots_.size() * 2);
      old.swap(slots_);
      for (auto& s : old) {
         if (!s) continue;
         size_t i = Hash<K>()(keyOf(s)) & mask();
         while (slots_[i]) i = (i + 1) & mask();
         slots_[i] = std::move(s);
      }
   }

   std::vector<Ptr<E>> slots_;
   size_t size_ = 0;
   std::ptrdiff_t keyOffset_ = 0;
};

}  // namespace Vel

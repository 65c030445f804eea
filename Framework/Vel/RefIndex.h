// A hashed index of entities by one of their own key attributes: a flat hash set of entity
// pointers. A slot costs one word and a control byte, the table fills to seven eighths
// before it doubles, and the key is read inside the entity a slot holds (where it sits at
// the same offset in every entity, so it is neither copied nor pointed at). A lookup
// compares seven bits of the hash for a group of slots at once and reads an entity only
// when they match, so a full table costs no more reads than an empty one. The entity's key
// must not change while it is indexed; entity keys are fixed at construction, so that
// holds.
#pragma once

#include <absl/container/flat_hash_set.h>

#include <cstddef>
#include <cstdint>

#include "Framework/Vel/Ptr.h"
#include "Framework/Vel/Types.h"

namespace Vel {

template <class K, class E>
class RefIndex {
   // Where the key sits inside an entity, the same for every entity of the index.
   struct KeyAt {
      std::ptrdiff_t offset = 0;
      const K& operator()(const Ptr<E>& e) const {
         return *reinterpret_cast<const K*>(reinterpret_cast<const char*>(e.ptr()) + offset);
      }
   };
   // The table takes the low bits of a hash for the place in a group and the high ones for
   // the group: a hash of the key's own making is spread over both first.
   static size_t spread(size_t h) {
      const unsigned __int128 m = static_cast<unsigned __int128>(h) * 0x9e3779b97f4a7c15ULL;
      return static_cast<size_t>(m) ^ static_cast<size_t>(m >> 64);
   }
   struct Hasher {
      using is_transparent = void;
      KeyAt keyAt;
      size_t operator()(const K& k) const { return spread(Hash<K>()(k)); }
      size_t operator()(const Ptr<E>& e) const { return (*this)(keyAt(e)); }
   };
   struct Equal {
      using is_transparent = void;
      KeyAt keyAt;
      bool operator()(const Ptr<E>& a, const Ptr<E>& b) const { return keyAt(a) == keyAt(b); }
      bool operator()(const K& a, const Ptr<E>& b) const { return a == keyAt(b); }
      bool operator()(const Ptr<E>& a, const K& b) const { return keyAt(a) == b; }
   };
   using Set = absl::flat_hash_set<Ptr<E>, Hasher, Equal>;

public:
   size_t size() const { return set_.size(); }
   bool empty() const { return set_.empty(); }

   Ptr<E> find(const K& k) const {
      auto it = set_.find(k);
      return it == set_.end() ? nullptr : *it;
   }
   // `key` must be the entity's own key attribute. An entity indexed under the same key
   // is replaced.
   void insert(const K& key, const Ptr<E>& entity) {
      if (set_.empty()) {
         const KeyAt keyAt{reinterpret_cast<const char*>(&key) -
                           reinterpret_cast<const char*>(entity.ptr())};
         if (keyAt.offset != set_.hash_function().keyAt.offset) {
            set_ = Set(0, Hasher{keyAt}, Equal{keyAt});
         }
      }
      auto [it, added] = set_.insert(entity);
      if (!added && *it != entity) {
         set_.erase(it);
         set_.insert(entity);
      }
   }
   bool erase(const K& k) { return set_.erase(k) != 0; }
   void clear() { set_.clear(); }

private:
   Set set_;
};

}  // namespace Vel

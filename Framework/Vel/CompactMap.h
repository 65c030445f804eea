// Ordered maps for the collections that hold one member per neighbour or per interface: a
// B-tree keeps its members side by side in nodes of about 256 bytes (dozens of small keys,
// four or five large ones), where a red-black tree allocates a node with four words of
// links for each.
//
//    VEL_COMPACT_ENTITY_MAP(int, Lldp::RemoteSystem)
//
// after the record's class makes every ECOLL(int, RemoteSystem, ...) a B-tree. Positions
// move when members are added or removed: nothing keeps an iterator across a change.
//
//    VEL_COMPACT_ENTITY_SET(Wire::IntfId, Lldp::PortStatus, intfId)
//
// keeps only the members' pointers in the B-tree and reads each member's key from the
// member itself (its key attribute, named last): a word an entry whatever the key's size.
// A comparison then reads the member, so this suits collections of hundreds or thousands
// of members looked up off the receive path (the interface directories), not the neighbour
// tables. Its iteration survives changes to the collection made while it runs (see
// EntitySet).
#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>

#include "Framework/Vel/Entity.h"

#define VEL_COMPACT_ENTITY_MAP(K, E)                \
   template <>                                      \
   struct Vel::EntityMap<K, E> {                    \
      using type = absl::btree_map<K, Vel::Ptr<E>>; \
   };

#define VEL_COMPACT_ENTITY_SET(K, E, keyAttr)    \
   template <>                                   \
   struct Vel::EntityMap<K, E> {                 \
      struct KeyOf {                             \
         template <class T>                      \
         const K& operator()(const T& e) const { \
            return e.keyAttr();                  \
         }                                       \
      };                                         \
      using type = Vel::EntitySet<K, E, KeyOf>;  \
   };

namespace Vel {

// An ordered map from each member's key to the member, holding the members' pointers only.
// It reads like a map: find, count, contains, bounds, and iteration over items whose
// `first` is the key (a reference into the member) and `second` the member's pointer.
//
// An item holds its member, so the key it names stays readable while the loop's body
// runs, even if the body removes the member. An iterator that sees the collection changed
// since its last step resumes after the key it stands on, as a red-black tree's would:
// a loop whose body adds or removes members (a handler that creates or closes ports) goes
// on with the members after the current one, those added included.
template <class K, class E, class KeyOf>
class EntitySet {
   static const K& keyOf(const Ptr<E>& p) { return KeyOf()(*p); }
   struct Less {
      using is_transparent = void;
      bool operator()(const Ptr<E>& a, const Ptr<E>& b) const { return keyOf(a) < keyOf(b); }
      bool operator()(const K& a, const Ptr<E>& b) const { return a < keyOf(b); }
      bool operator()(const Ptr<E>& a, const K& b) const { return keyOf(a) < b; }
   };
   using Set = absl::btree_set<Ptr<E>, Less>;

public:
   using key_type = K;
   using mapped_type = Ptr<E>;
   using size_type = size_t;

   struct Item {
      const K& first;
      Ptr<E> second;
   };

   class const_iterator : public ProxyIterator<Item, const_iterator> {
   public:
      using ProxyIterator<Item, const_iterator>::operator++;
      using ProxyIterator<Item, const_iterator>::operator--;
      const_iterator() = default;
      Item operator*() const { return Item{keyOf(cur_), cur_}; }
      const_iterator& operator++() {
         if (set_->version_ != version_) {
            it_ = set_->set_.upper_bound(keyOf(cur_));
         } else {
            ++it_;
         }
         settle();
         return *this;
      }
      const_iterator& operator--() {
         if (!cur_) {
            it_ = set_->set_.end();
         } else if (set_->version_ != version_) {
            it_ = set_->set_.lower_bound(keyOf(cur_));
         }
         --it_;
         settle();
         return *this;
      }
      // The end is the iterator on no member, however the collection changed.
      bool operator==(const const_iterator& o) const { return cur_.ptr() == o.cur_.ptr(); }

   private:
      friend class EntitySet;
      const_iterator(const EntitySet* s, typename Set::const_iterator it) : set_(s), it_(it) {
         settle();
      }
      void settle() {
         version_ = set_->version_;
         cur_ = it_ == set_->set_.end() ? Ptr<E>() : *it_;
      }

      const EntitySet* set_ = nullptr;
      typename Set::const_iterator it_;
      Ptr<E> cur_;
      uint64_t version_ = 0;
   };
   using iterator = const_iterator;

   const_iterator begin() const { return const_iterator(this, set_.begin()); }
   const_iterator end() const { return const_iterator(this, set_.end()); }
   size_t size() const { return set_.size(); }
   bool empty() const { return set_.empty(); }
   const_iterator find(const K& k) const { return const_iterator(this, set_.find(k)); }
   size_t count(const K& k) const { return set_.contains(k) ? 1 : 0; }
   bool contains(const K& k) const { return set_.contains(k); }
   const_iterator lower_bound(const K& k) const {
      return const_iterator(this, set_.lower_bound(k));
   }
   const_iterator upper_bound(const K& k) const {
      return const_iterator(this, set_.upper_bound(k));
   }
   // The member of key k, or null: one descent, no iterator.
   Ptr<E> member(const K& k) const {
      auto it = set_.find(k);
      return it == set_.end() ? Ptr<E>() : *it;
   }
   // The same without taking a reference, for a caller that uses the member at once.
   E* get(const K& k) const {
      auto it = set_.find(k);
      return it == set_.end() ? nullptr : it->ptr();
   }

   // Adds the member make() returns, whose key is k, unless k is taken: the member held,
   // and whether it was added.
   template <class Make>
   std::pair<Ptr<E>, bool> add(const K& k, Make&& make) {
      if (Ptr<E> held = member(k)) return {held, false};
      Ptr<E> e = make();
      add(e);
      return {e, true};
   }
   // Adds e under its own key unless the key is taken; returns the member held.
   Ptr<E> add(const Ptr<E>& e) {
      auto [it, added] = set_.insert(e);
      if (added) ++version_;
      return *it;
   }
   bool erase(const K& k) {
      if (!set_.erase(k)) return false;
      ++version_;
      return true;
   }
   void erase(const const_iterator& it) { erase(K(keyOf(it.cur_))); }
   void clear() {
      set_.clear();
      ++version_;
   }

private:
   Set set_;
   uint64_t version_ = 0;
};

}  // namespace Vel

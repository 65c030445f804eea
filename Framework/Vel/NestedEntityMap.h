// An ordered map for collections keyed by a pair whose first half few members share (an
// interface and a MAC address: a port's stations). It keeps one B-tree of the second half
// per value of the first, so an entry costs the second half and a pointer instead of the
// whole key and a pointer, and a lookup compares the long first half once per port, not at
// every step down the tree.
//
//    VEL_NESTED_ENTITY_MAP(Identity::NbrClassification::EntryKey,
//                          Identity::NbrClassification::Entry, intfId, ethAddr)
//
// after the record's class makes every ECOLL(EntryKey, Entry, ...) one. Iteration is in
// key order, as a map's; its items are made as they are read (`first` is the key, by
// value), and nothing keeps an iterator across a change, as with a B-tree.
#pragma once

#include <absl/container/btree_map.h>

#include <cstddef>
#include <iterator>
#include <type_traits>
#include <utility>

#include "Framework/Vel/Entity.h"
#include "Framework/Vel/Types.h"

#define VEL_NESTED_ENTITY_MAP(K, E, outerAttr, innerAttr)               \
   template <>                                                          \
   struct Vel::EntityMap<K, E> {                                        \
      struct Split {                                                    \
         static const auto& outer(const K& k) { return k.outerAttr(); } \
         static const auto& inner(const K& k) { return k.innerAttr(); } \
         template <class O, class I>                                    \
         static K join(const O& o, const I& i) {                        \
            return K({.outerAttr = o, .innerAttr = i});                 \
         }                                                              \
      };                                                                \
      using type = Vel::NestedEntityMap<K, E, Split>;                   \
   };

namespace Vel {

template <class K, class E, class Split>
class NestedEntityMap {
   using O = std::decay_t<decltype(Split::outer(std::declval<const K&>()))>;
   using I = std::decay_t<decltype(Split::inner(std::declval<const K&>()))>;
   using Inner = absl::btree_map<I, Ptr<E>>;
   using Outer = absl::btree_map<O, Inner>;

public:
   using key_type = K;
   using mapped_type = Ptr<E>;
   using size_type = size_t;

   struct Item {
      K first;
      Ptr<E> second;
   };

   class const_iterator : public ProxyIterator<Item, const_iterator> {
   public:
      using ProxyIterator<Item, const_iterator>::operator++;
      using ProxyIterator<Item, const_iterator>::operator--;
      const_iterator() = default;
      Item operator*() const { return Item{Split::join(out_->first, in_->first), in_->second}; }
      const_iterator& operator++() {
         if (++in_ == out_->second.end()) {
            ++out_;
            settleForward();
         }
         return *this;
      }
      const_iterator& operator--() {
         if (out_ == outer_->end() || in_ == out_->second.begin()) {
            --out_;
            in_ = out_->second.end();
         }
         --in_;
         return *this;
      }
      bool operator==(const const_iterator& o) const {
         return out_ == o.out_ && (out_ == outer_->end() || in_ == o.in_);
      }

   private:
      friend class NestedEntityMap;
      const_iterator(const Outer* outer, typename Outer::const_iterator out,
                     typename Inner::const_iterator in)
          : outer_(outer), out_(out), in_(in) {}
      // On the first member of out_, or the end: inner maps are never empty.
      void settleForward() {
         if (out_ != outer_->end()) in_ = out_->second.begin();
      }

      const Outer* outer_ = nullptr;
      typename Outer::const_iterator out_;
      typename Inner::const_iterator in_;
   };
   using iterator = const_iterator;

   const_iterator begin() const { return at(outer_.begin()); }
   const_iterator end() const { return const_iterator(&outer_, outer_.end(), {}); }
   size_t size() const { return size_; }
   bool empty() const { return size_ == 0; }
   const_iterator find(const K& k) const {
      auto out = outer_.find(Split::outer(k));
      if (out == outer_.end()) return end();
      auto in = out->second.find(Split::inner(k));
      return in == out->second.end() ? end() : const_iterator(&outer_, out, in);
   }
   size_t count(const K& k) const { return member(k) ? 1 : 0; }
   bool contains(const K& k) const { return count(k) != 0; }
   const_iterator lower_bound(const K& k) const { return bound(k, false); }
   const_iterator upper_bound(const K& k) const { return bound(k, true); }
   // The member of key k, or null: no iterator.
   Ptr<E> member(const K& k) const {
      auto out = outer_.find(Split::outer(k));
      if (out == outer_.end()) return nullptr;
      auto in = out->second.find(Split::inner(k));
      return in == out->second.end() ? nullptr : in->second;
   }

   // Adds the member make() returns under k unless k is taken: the member held, and
   // whether it was added.
   template <class Make>
   std::pair<Ptr<E>, bool> add(const K& k, Make&& make) {
      auto [in, added] = outer_[Split::outer(k)].try_emplace(Split::inner(k));
      if (added) {
         in->second = make();
         ++size_;
      }
      return {in->second, added};
   }
   bool erase(const K& k) {
      auto out = outer_.find(Split::outer(k));
      if (out == outer_.end() || !out->second.erase(Split::inner(k))) return false;
      if (out->second.empty()) outer_.erase(out);
      --size_;
      return true;
   }
   void erase(const const_iterator& it) { erase(K(it->first)); }
   void clear() {
      outer_.clear();
      size_ = 0;
   }

private:
   const_iterator at(typename Outer::const_iterator out) const {
      const_iterator it(&outer_, out, {});
      it.settleForward();
      return it;
   }
   const_iterator bound(const K& k, bool after) const {
      auto out = outer_.lower_bound(Split::outer(k));
      if (out == outer_.end()) return end();
      if (out->first != Split::outer(k)) return at(out);
      auto in = after ? out->second.upper_bound(Split::inner(k))
                      : out->second.lower_bound(Split::inner(k));
      if (in != out->second.end()) return const_iterator(&outer_, out, in);
      return at(std::next(out));
   }

   Outer outer_;
   size_t size_ = 0;
};

}  // namespace Vel

// Basic value types of the framework: byte strings, time, bounded inline strings and
// small sorted maps. Records are built from these so that decoding a frame into a
// record needs no heap allocation once the record's collections have warmed up.
#pragma once

#include <algorithm>
#include <compare>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "Framework/Vel/SmallVector.h"

namespace Vel {

using String = std::string;  // an arbitrary byte string
using Seconds = double;      // seconds of the framework clock

// Thrown when a record's bound is violated. Decoders validate before they build records,
// so this only fires on a programming error and is deliberately not caught.
class RangeException : public std::range_error {
public:
   using std::range_error::range_error;
};

// Writes bytes as text: printable ASCII as is, everything else as \xNN.
void printBytes(std::ostream& os, std::string_view bytes);
std::string printableBytes(std::string_view bytes);
// The form byte strings take where people and scripts read them (JSON, identifiers): the
// text itself when every byte is printable ASCII, else the bytes in hexadecimal separated
// by colons ("00:1c:73:0a").
std::string textOrHex(std::string_view bytes);
std::string colonHex(std::string_view bytes);

[[noreturn]] void throwStringBound(size_t max);

// A byte string of at most N bytes. Short values live inline: all of them when N is up to
// 23, up to 23 bytes when N is below 32 (interface names, addresses), up to 15 bytes
// when N is 32 or more (the strings LLDP carries, which records hold by the dozen and
// which are mostly short or absent). A longer value lives in a heap buffer sized for it,
// which the string keeps when it is assigned a shorter value again, so a scratch string
// that is refilled frame after frame stops allocating once it has seen its longest value.
// The first byte is the inline length, or heapTag when the value is on the heap: then the
// inline bytes hold its length, its capacity and the buffer's pointer.
template <size_t N>
class FixedString {
   static constexpr size_t inlineBytes = N <= 23 ? N : N < 32 ? 23 : 15;
   static constexpr uint8_t heapTag = 0xff;
   static_assert(N <= 0xffff, "FixedString bound too large");
   static constexpr bool spills = N > inlineBytes;  // else every value fits inline
   // Where a heap value keeps its length, capacity and pointer among the inline bytes.
   static constexpr size_t lenAt = 0, capAt = 2, ptrAt = inlineBytes - sizeof(char*);
   static_assert(!spills || ptrAt >= capAt + sizeof(uint16_t));

public:
   static constexpr size_t maxBytes = N;
   FixedString() {}
   FixedString(std::string_view s) { assign(s.data(), s.size()); }
   FixedString(const char* s) : FixedString(std::string_view(s)) {}
   FixedString(const std::string& s) : FixedString(std::string_view(s)) {}
   FixedString(const FixedString& o) {
      if (!o.empty()) assign(o.data(), o.size());
   }
   FixedString(FixedString&& o) noexcept { take(o); }
   FixedString& operator=(const FixedString& o) {
      if (o.empty()) return clear();  // an empty one's bytes were never written
      if (this != &o) assign(o.data(), o.size());
      return *this;
   }
   FixedString& operator=(FixedString&& o) noexcept {
      if (this == &o) return *this;
      if (o.empty()) return clear();
      if (!o.onHeap() || (onHeap() && capacity() >= o.size())) {
         assign(o.data(), o.size());  // keeps this one's buffer
         return *this;
      }
      release();
      take(o);
      return *this;
   }
   ~FixedString() { release(); }
   static FixedString create(std::string_view s) { return FixedString(s); }
   // Empties the value, keeping any heap room.
   FixedString& clear() {
      sizeIs(0);
      return *this;
   }

   // Replaces the value; a failed assignment (too long) throws and keeps the old value.
   void assign(const char* p, size_t n) {
      if (n > N) throwStringBound(N);
      if (n > capacity()) {
         replaceBuffer(p, n);  // p may point into the old buffer
         return;
      }
      if (n != 0) std::memmove(buffer(), p, n);  // an empty view may have no data at all
      sizeIs(n);
   }
   std::string_view value() const { return {data(), size()}; }
   std::string stringValue() const { return std::string(value()); }
   const char* data() const { return onHeap() ? heapPtr() : buf_; }
   size_t size() const { return onHeap() ? load16(lenAt) : tag_; }
   bool empty() const { return size() == 0; }
   uint8_t operator[](size_t i) const { return static_cast<uint8_t>(data()[i]); }
   // Heap bytes held beyond the object itself (0 for an inline value).
   size_t heapBytes() const { return onHeap() ? capacity() : 0; }

   bool operator==(const FixedString& o) const { return value() == o.value(); }
   std::strong_ordering operator<=>(const FixedString& o) const { return value() <=> o.value(); }
   size_t hash() const { return std::hash<std::string_view>()(value()); }
   friend std::ostream& operator<<(std::ostream& os, const FixedString& s) {
      printBytes(os, s.value());
      return os;
   }

private:
   bool onHeap() const {
      if constexpr (spills) return tag_ == heapTag;
      return false;
   }
   size_t load16(size_t at) const {
      uint16_t v = 0;
      std::memcpy(&v, buf_ + at, sizeof(v));
      return v;
   }
   void store16(size_t at, size_t v) {
      const auto w = static_cast<uint16_t>(v);
      std::memcpy(buf_ + at, &w, sizeof(w));
   }
   void sizeIs(size_t n) {
      if (onHeap()) {
         store16(lenAt, n);
      } else {
         tag_ = static_cast<uint8_t>(n);
      }
   }
   char* heapPtr() const {
      char* p = nullptr;
      if constexpr (spills) std::memcpy(&p, buf_ + ptrAt, sizeof(p));
      return p;
   }
   size_t capacity() const { return onHeap() ? load16(capAt) : inlineBytes; }
   char* buffer() { return onHeap() ? heapPtr() : buf_; }
   void replaceBuffer(const char* src, size_t n) {
      if constexpr (spills) {  // else never called: every value fits inline
         // Rounded up to what the allocator hands out anyway (16-byte steps).
         const size_t cap = std::min(N, ((n + 8 + 15) & ~size_t(15)) - 8);
         char* p = new char[cap];
         std::memcpy(p, src, n);
         release();
         tag_ = heapTag;
         store16(lenAt, n);
         store16(capAt, cap);
         std::memcpy(buf_ + ptrAt, &p, sizeof(p));
      }
   }
   // Moves o's value here (this holds no buffer); o is left empty and inline.
   void take(FixedString& o) {
      tag_ = o.tag_;
      std::memcpy(buf_, o.buf_, onHeap() ? inlineBytes : size());
      o.tag_ = 0;
   }
   void release() {
      if (onHeap()) delete[] heapPtr();
   }

   uint8_t tag_ = 0;  // the inline length, or heapTag
   char buf_[inlineBytes];
};

// Hash functor for framework and record types: uses a member hash() when there is one.
template <class T>
struct Hash {
   size_t operator()(const T& v) const {
      if constexpr (requires { v.hash(); }) {
         return v.hash();
      } else {
         return std::hash<T>()(v);
      }
   }
};

inline size_t hashCombine(size_t seed, size_t h) {
   return seed ^ (h + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2));
}

// A map kept as a sorted vector. Record collections are small (a handful of addresses,
// policies or VLAN names), so this is faster than a node map, costs a pointer while empty,
// and clear() keeps the capacity: a scratch record that is refilled frame after frame
// stops allocating.
template <class K, class V>
class FlatMap {
public:
   using key_type = K;
   using value_type = std::pair<K, V>;
   using const_iterator = const value_type*;

   const V* find(const K& k) const {
      auto it = lower(k);
      return it != items_.end() && it->first == k ? &it->second : nullptr;
   }
   V* find(const K& k) {
      auto it = lower(k);
      return it != items_.end() && it->first == k ? &it->second : nullptr;
   }
   bool contains(const K& k) const { return find(k) != nullptr; }
   // Inserts or replaces; returns a reference to the stored value.
   V& set(const K& k, const V& v) {
      auto it = lower(k);
      if (it != items_.end() && it->first == k) {
         it->second = v;
         return it->second;
      }
      return items_.insert(it, value_type(k, v))->second;
   }
   // The value under k, inserted as V() when absent: lets a decoder fill a member in
   // place instead of building it aside and copying it in.
   V& slot(const K& k) {
      auto it = lower(k);
      if (it != items_.end() && it->first == k) return it->second;
      return items_
          .emplace(it, std::piecewise_construct, std::forward_as_tuple(k), std::forward_as_tuple())
          ->second;
   }
   bool erase(const K& k) {
      auto it = lower(k);
      if (it == items_.end() || !(it->first == k)) return false;
      items_.erase(it);
      return true;
   }
   void clear() { items_.clear(); }
   size_t size() const { return items_.size(); }
   bool empty() const { return items_.empty(); }
   const_iterator begin() const { return items_.begin(); }
   const_iterator end() const { return items_.end(); }
   bool operator==(const FlatMap& o) const { return items_ == o.items_; }
   auto operator<=>(const FlatMap& o) const { return items_ <=> o.items_; }

private:
   auto lower(const K& k) const {
      return std::lower_bound(items_.begin(), items_.end(), k,
                              [](const value_type& a, const K& b) { return a.first < b; });
   }
   auto lower(const K& k) {
      return std::lower_bound(items_.begin(), items_.end(), k,
                              [](const value_type& a, const K& b) { return a.first < b; });
   }
   SmallVector<value_type> items_;
};

// A FlatMap for values that carry their own key (`value.key()`): management addresses by
// subtype and address, TLVs by OUI and subtype, VLAN names by VLAN. Only the values are
// stored, so the key is not kept twice; iteration still gives (key, value) items, the key
// made from the value, so readers use it as they use a FlatMap.
// The member types of a bidirectional iterator whose items are made as it is read (a key
// and a reference to the value): what `->` returns holds the item it points to. Given the
// iterator's own class as `Self`, it also makes `->` from `*`, and the postfix steps from
// the prefix ones (which the iterator then brings into its scope with `using`).
template <class Item, class Self = void>
struct ProxyIterator {
   using iterator_category = std::bidirectional_iterator_tag;
   using value_type = Item;
   using difference_type = std::ptrdiff_t;
   using reference = Item;
   struct pointer {
      Item item;
      const Item* operator->() const { return &item; }
   };
   pointer operator->() const requires(!std::is_void_v<Self>) {
      return pointer{*static_cast<const Self&>(*this)};
   }
   Self operator++(int) requires(!std::is_void_v<Self>) {
      Self old = static_cast<Self&>(*this);
      ++static_cast<Self&>(*this);
      return old;
   }
   Self operator--(int) requires(!std::is_void_v<Self>) {
      Self old = static_cast<Self&>(*this);
      --static_cast<Self&>(*this);
      return old;
   }
   bool operator==(const ProxyIterator&) const = default;
};

template <class K, class V>
class FlatKeyedMap {
public:
   using key_type = K;
   struct Item {
      K first;
      const V& second;
   };
   class const_iterator : public ProxyIterator<Item> {
   public:
      using typename ProxyIterator<Item>::pointer;
      const_iterator() = default;
      explicit const_iterator(const V* p) : p_(p) {}
      Item operator*() const { return Item{K(p_->key()), *p_}; }
      pointer operator->() const { return pointer{**this}; }
      const_iterator& operator++() {
         ++p_;
         return *this;
      }
      const_iterator operator++(int) { return const_iterator(p_++); }
      const_iterator& operator--() {
         --p_;
         return *this;
      }
      const_iterator operator--(int) { return const_iterator(p_--); }
      const_iterator operator+(std::ptrdiff_t n) const { return const_iterator(p_ + n); }
      bool operator==(const const_iterator&) const = default;

   private:
      const V* p_ = nullptr;
   };

   const V* find(const K& k) const {
      auto it = lower(k);
      return it != items_.end() && K(it->key()) == k ? &*it : nullptr;
   }
   bool contains(const K& k) const { return find(k) != nullptr; }
   // Inserts or replaces v, which is filed under k (its own key); returns the stored value.
   const V& set(const K& k, const V& v) {
      auto it = lowerMut(k);
      if (it != items_.end() && K(it->key()) == k) {
         *it = v;
         return *it;
      }
      return *items_.insert(it, v);
   }
   bool erase(const K& k) {
      auto it = lowerMut(k);
      if (it == items_.end() || !(K(it->key()) == k)) return false;
      items_.erase(it);
      return true;
   }
   void clear() { items_.clear(); }
   size_t size() const { return items_.size(); }
   bool empty() const { return items_.empty(); }
   const_iterator begin() const { return const_iterator(items_.begin()); }
   const_iterator end() const { return const_iterator(items_.end()); }
   bool operator==(const FlatKeyedMap& o) const { return items_ == o.items_; }
   auto operator<=>(const FlatKeyedMap& o) const { return items_ <=> o.items_; }

private:
   static bool before(const V& a, const K& b) { return K(a.key()) < b; }
   const V* lower(const K& k) const {
      return std::lower_bound(items_.begin(), items_.end(), k, before);
   }
   V* lowerMut(const K& k) { return std::lower_bound(items_.begin(), items_.end(), k, before); }
   SmallVector<V> items_;
};

}  // namespace Vel

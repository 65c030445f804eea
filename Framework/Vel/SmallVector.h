// A vector for the small collections of records: one pointer in the record, to a heap
// block that holds the count, the room and the items. An empty one that never held
// anything costs the pointer alone (a std::vector costs three), and a copy is sized
// exactly to what it copies. clear() keeps the room, so a scratch collection refilled
// frame after frame stops allocating. Only what its users need is here.
#pragma once

#include <algorithm>
#include <compare>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

namespace Vel {

template <class T>
class SmallVector {
   struct alignas(8) Head {
      uint32_t size;
      uint32_t cap;
   };
   static_assert(alignof(T) <= alignof(Head));

public:
   using value_type = T;
   using iterator = T*;
   using const_iterator = const T*;

   SmallVector() = default;
   SmallVector(const SmallVector& o) { *this = o; }
   SmallVector(SmallVector&& o) noexcept : h_(std::exchange(o.h_, nullptr)) {}
   SmallVector& operator=(const SmallVector& o) {
      if (this == &o) return *this;
      clear();
      if (o.size() > capacity()) {
         release();
         h_ = allocate(o.size());
      }
      for (const T& v : o) {
         new (end()) T(v);
         ++h_->size;
      }
      return *this;
   }
   SmallVector& operator=(SmallVector&& o) noexcept {
      if (this != &o) {
         release();
         h_ = std::exchange(o.h_, nullptr);
      }
      return *this;
   }
   ~SmallVector() { release(); }

   size_t size() const { return h_ ? h_->size : 0; }
   size_t capacity() const { return h_ ? h_->cap : 0; }
   bool empty() const { return size() == 0; }
   T* begin() { return h_ ? items() : nullptr; }
   T* end() { return h_ ? items() + h_->size : nullptr; }
   const T* begin() const { return h_ ? items() : nullptr; }
   const T* end() const { return h_ ? items() + h_->size : nullptr; }

   void clear() {
      if (!h_) return;
      std::destroy(items(), items() + h_->size);
      h_->size = 0;
   }
   // Builds a T from args at pos, moving what follows one place on.
   template <class... A>
   T* emplace(const T* pos, A&&... args) {
      const size_t at = size_t(pos - begin());
      if (size() == capacity()) {
         Head* h = allocate(capacity() ? capacity() * 2 : 1);
         T* to = reinterpret_cast<T*>(h + 1);
         new (to + at) T(std::forward<A>(args)...);
         for (size_t i = 0; i < size(); ++i) new (to + i + (i >= at)) T(std::move(items()[i]));
         h->size = uint32_t(size() + 1);
         release();
         h_ = h;
         return to + at;
      }
      T* first = items();
      const size_t n = h_->size;
      if (at == n) {
         new (first + n) T(std::forward<A>(args)...);
      } else {
         T made(std::forward<A>(args)...);  // args may refer to an item that moves
         new (first + n) T(std::move(first[n - 1]));
         for (size_t i = n - 1; i > at; --i) first[i] = std::move(first[i - 1]);
         first[at] = std::move(made);
      }
      ++h_->size;
      return first + at;
   }
   T* insert(const T* pos, const T& v) { return emplace(pos, v); }
   T* erase(const T* pos) { return erase(pos, pos + 1); }
   T* erase(const T* from, const T* to) {
      if (from == to) return const_cast<T*>(from);
      T* first = items();
      const size_t at = size_t(from - first), n = size_t(to - from);
      std::move(first + at + n, first + h_->size, first + at);
      std::destroy(first + h_->size - n, first + h_->size);
      h_->size -= uint32_t(n);
      return first + at;
   }
   void push_back(const T& v) {
      if (h_ && h_->size < h_->cap) {  // room at the end: no move, no branch on position
         new (items() + h_->size) T(v);
         ++h_->size;
         return;
      }
      emplace(end(), v);
   }
   void pop_back() { erase(end() - 1); }
   // Room for n items in all, so that pushes up to n do not allocate.
   void reserve(size_t n) {
      if (n <= capacity()) return;
      Head* h = allocate(n);
      T* to = reinterpret_cast<T*>(h + 1);
      for (size_t i = 0; i < size(); ++i) new (to + i) T(std::move(items()[i]));
      h->size = uint32_t(size());
      release();
      h_ = h;
   }
   T& operator[](size_t i) { return items()[i]; }
   const T& operator[](size_t i) const { return items()[i]; }

   bool operator==(const SmallVector& o) const {
      return std::equal(begin(), end(), o.begin(), o.end());
   }
   auto operator<=>(const SmallVector& o) const {
      return std::lexicographical_compare_three_way(begin(), end(), o.begin(), o.end());
   }

private:
   T* items() const { return reinterpret_cast<T*>(h_ + 1); }
   static Head* allocate(size_t cap) {
      Head* h = static_cast<Head*>(::operator new(sizeof(Head) + cap * sizeof(T)));
      h->size = 0;
      h->cap = uint32_t(cap);
      return h;
   }
   void release() {
      if (!h_) return;
      clear();
      ::operator delete(h_);
      h_ = nullptr;
   }
   Head* h_ = nullptr;
};

}  // namespace Vel

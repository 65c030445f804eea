// An SNMP object identifier (at most 129 sub-identifiers, the most a Management Address
// TLV's OID string can carry). The sub-identifiers live on the heap, as many as it held
// at most: most management addresses carry none, and those then cost no more than the
// object itself. Assigning a shorter or equal one reuses the room it has.
#pragma once

#include <algorithm>
#include <compare>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <utility>

#include "Framework/Vel/Types.h"

namespace Snmp {

class ObjectIdentifier {
public:
   static constexpr size_t maxSubIds = 129;
   ObjectIdentifier() = default;
   ObjectIdentifier(const ObjectIdentifier& o) { *this = o; }
   ObjectIdentifier(ObjectIdentifier&& o) noexcept
       : ids_(std::exchange(o.ids_, nullptr)),
         len_(std::exchange(o.len_, 0)),
         cap_(std::exchange(o.cap_, 0)) {}
   ObjectIdentifier& operator=(const ObjectIdentifier& o) {
      if (this == &o) return *this;
      if (o.len_ > cap_) reserve(o.len_);
      len_ = o.len_;
      if (len_) std::memcpy(ids_, o.ids_, len_ * sizeof(uint32_t));
      return *this;
   }
   ObjectIdentifier& operator=(ObjectIdentifier&& o) noexcept {
      if (this != &o) {
         delete[] ids_;
         ids_ = std::exchange(o.ids_, nullptr);
         len_ = std::exchange(o.len_, 0);
         cap_ = std::exchange(o.cap_, 0);
      }
      return *this;
   }
   ~ObjectIdentifier() { delete[] ids_; }
   bool push(uint32_t id) {
      if (len_ >= maxSubIds) return false;
      if (len_ == cap_) reserve(std::min<size_t>(maxSubIds, cap_ ? cap_ * 2u : 8));
      ids_[len_++] = id;
      return true;
   }
   void clear() { len_ = 0; }
   // Decodes the contents octets of a BER OBJECT IDENTIFIER (X.690 8.19: base-128
   // sub-identifiers, the first two arcs folded into the first). Returns false, holding
   // nothing, when the octets end inside a sub-identifier, a sub-identifier needs more
   // than 32 bits, or there are more than fit. Empty contents decode to the single arc 0.
   bool berContentsIs(const uint8_t* p, size_t n);
   size_t size() const { return len_; }
   bool empty() const { return len_ == 0; }
   explicit operator bool() const { return len_ != 0; }
   uint32_t operator[](size_t i) const { return ids_[i]; }

   bool operator==(const ObjectIdentifier& o) const {
      return len_ == o.len_ && std::equal(ids_, ids_ + len_, o.ids_);
   }
   std::strong_ordering operator<=>(const ObjectIdentifier& o) const {
      for (size_t i = 0; i < len_ && i < o.len_; ++i) {
         if (auto c = ids_[i] <=> o.ids_[i]; c != 0) return c;
      }
      return len_ <=> o.len_;
   }
   size_t hash() const {
      size_t h = len_;
      for (size_t i = 0; i < len_; ++i) h = Vel::hashCombine(h, ids_[i]);
      return h;
   }
   std::string stringValue() const {
      std::string s;
      for (size_t i = 0; i < len_; ++i) {
         if (i) s += '.';
         s += std::to_string(ids_[i]);
      }
      return s;
   }
   friend std::ostream& operator<<(std::ostream& os, const ObjectIdentifier& o) {
      return os << o.stringValue();
   }

private:
   // Room for n sub-identifiers, keeping those held.
   void reserve(size_t n) {
      auto* ids = new uint32_t[n];
      if (len_) std::memcpy(ids, ids_, len_ * sizeof(uint32_t));
      delete[] ids_;
      ids_ = ids;
      cap_ = static_cast<uint8_t>(n);
   }

   uint32_t* ids_ = nullptr;
   uint8_t len_ = 0;
   uint8_t cap_ = 0;
};

}  // namespace Snmp

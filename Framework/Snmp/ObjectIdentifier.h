// An SNMP object identifier held inline (at most 129 sub-identifiers, the most a
// Management Address TLV's OID string can carry).
#pragma once

#include <compare>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>

#include "Framework/Vel/Types.h"

namespace Snmp {

class ObjectIdentifier {
public:
   static constexpr size_t maxSubIds = 129;
   // User-provided so that value-initialisation (`= {}`) does not clear 516 bytes that
   // nothing reads past len_.
   ObjectIdentifier() {}
   ObjectIdentifier(const ObjectIdentifier& o) : len_(o.len_) {
      std::memcpy(ids_, o.ids_, len_ * sizeof(uint32_t));
   }
   ObjectIdentifier& operator=(const ObjectIdentifier& o) {
      len_ = o.len_;
      std::memmove(ids_, o.ids_, len_ * sizeof(uint32_t));
      return *this;
   }
   bool push(uint32_t id) {
      if (len_ >= maxSubIds) return false;
      ids_[len_++] = id;
      return true;
   }
   void clear() { len_ = 0; }
   size_t size() const { return len_; }
   bool empty() const { return len_ == 0; }
   explicit operator bool() const { return len_ != 0; }
   uint32_t operator[](size_t i) const { return ids_[i]; }

   bool operator==(const ObjectIdentifier& o) const {
      return len_ == o.len_ && std::memcmp(ids_, o.ids_, len_ * sizeof(uint32_t)) == 0;
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
   uint8_t len_ = 0;
   uint32_t ids_[maxSubIds];
};

}  // namespace Snmp

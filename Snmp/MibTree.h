// The MIB objects this agent serves, as a tree of scalars and tables that answers GET and
// GETNEXT by itself, without net-snmp: the SNMP layer (AgentxSubagent) only translates.
//
// A table does not keep rows of its own. For each request it walks the records from the
// requested index onwards and offers candidate rows to a RowFinder, which keeps the
// smallest index that qualifies; tables whose rows come in index order (ports by ifindex,
// neighbours by index) stop at the first hit, so a GETNEXT costs a lookup, not a pass
// over the table.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Framework/Snmp/ObjectIdentifier.h"

namespace Snmp {

// An OID held inline; long enough for every instance we serve (the longest index is a
// neighbour's management address: 3 + 1 + 1 + 31 sub-identifiers).
struct Oid {
   static constexpr size_t maxLen = 128;
   uint32_t id[maxLen];
   size_t len = 0;

   Oid() {}
   Oid(std::initializer_list<uint32_t> ids) {
      for (uint32_t i : ids) push(i);
   }
   Oid(const Oid& o) : len(o.len) { std::memcpy(id, o.id, len * sizeof(uint32_t)); }
   Oid& operator=(const Oid& o) {
      len = o.len;
      std::memmove(id, o.id, len * sizeof(uint32_t));
      return *this;
   }
   bool push(uint32_t v) {
      if (len >= maxLen) return false;
      id[len++] = v;
      return true;
   }
   void append(const Oid& o) {
      for (size_t i = 0; i < o.len; ++i) push(o.id[i]);
   }
   // An OCTET STRING index: its length first unless the type has a fixed size.
   void appendBytes(std::string_view bytes, bool withLength) {
      if (withLength) push(static_cast<uint32_t>(bytes.size()));
      for (unsigned char c : bytes) push(c);
   }
   bool startsWith(const Oid& prefix) const {
      return len >= prefix.len && std::memcmp(id, prefix.id, prefix.len * sizeof(uint32_t)) == 0;
   }
   static int compare(const uint32_t* a, size_t an, const uint32_t* b, size_t bn) {
      for (size_t i = 0; i < an && i < bn; ++i) {
         if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
      }
      return an == bn ? 0 : (an < bn ? -1 : 1);
   }
   int compare(const Oid& o) const { return compare(id, len, o.id, o.len); }
   bool operator==(const Oid& o) const { return compare(o) == 0; }
   std::string str() const;
};

// ASN.1 tags of the value types served, as on the wire.
enum class Asn : uint8_t {
   integer = 0x02,
   octetString = 0x04,
   objectId = 0x06,
   counter32 = 0x41,
   gauge32 = 0x42,
   timeTicks = 0x43,
};

// One value: numbers by value, strings as views into the records (valid while the
// request is served) or, when computed (BITS, addresses), in a small inline buffer.
struct Value {
   Asn type = Asn::integer;
   int64_t num = 0;
   const Snmp::ObjectIdentifier* oid = nullptr;  // objectId; empty means 0.0

   std::string_view bytes() const {
      return inlined_ ? std::string_view(reinterpret_cast<const char*>(inl_), inlLen_) : view_;
   }

   static Value integer(int64_t v) { return number(Asn::integer, v); }
   static Value counter(uint32_t v) { return number(Asn::counter32, v); }
   static Value gauge(uint32_t v) { return number(Asn::gauge32, v); }
   static Value ticks(uint32_t v) { return number(Asn::timeTicks, v); }
   // TruthValue: true(1), false(2).
   static Value truth(bool b) { return integer(b ? 1 : 2); }
   static Value octets(std::string_view s) {
      Value v;
      v.type = Asn::octetString;
      v.view_ = s;
      return v;
   }
   static Value copied(const void* p, size_t n) {
      Value v;
      v.type = Asn::octetString;
      v.inlined_ = true;
      v.inlLen_ = static_cast<uint8_t>(n > sizeof(v.inl_) ? sizeof(v.inl_) : n);
      std::memcpy(v.inl_, p, v.inlLen_);
      return v;
   }
   // BITS from a mask whose bit i (value 1 << i) is the named bit i: SNMP puts bit 0 in
   // the top bit of the first octet. `octets` is how many octets the type has.
   static Value bits(uint32_t mask, size_t octets) {
      uint8_t b[4] = {};
      for (size_t i = 0; i < octets * 8 && i < 32; ++i) {
         if (mask & (1u << i)) b[i / 8] |= uint8_t(0x80 >> (i % 8));
      }
      return copied(b, octets);
   }
   static Value objectId(const Snmp::ObjectIdentifier* o) {
      Value v;
      v.type = Asn::objectId;
      v.oid = o;
      return v;
   }

private:
   static Value number(Asn t, int64_t n) {
      Value v;
      v.type = t;
      v.num = n;
      return v;
   }
   std::string_view view_;
   uint8_t inl_[24];
   uint8_t inlLen_ = 0;
   bool inlined_ = false;
};

// Keeps the smallest row index after (or, for GET, at) a bound.
class RowFinder {
public:
   RowFinder(const uint32_t* bound, size_t boundLen, bool strict)
       : bound_(bound), boundLen_(boundLen), strict_(strict) {}
   bool wants(const Oid& index) const {
      const int c = Oid::compare(index.id, index.len, bound_, boundLen_);
      if (c < 0 || (c == 0 && strict_)) return false;
      return !found || index.compare(best) < 0;
   }
   void offer(const Oid& index, const Value& v) {
      if (!wants(index)) return;
      best = index;
      value = v;
      found = true;
   }
   const uint32_t* bound() const { return bound_; }
   size_t boundLen() const { return boundLen_; }

   bool found = false;
   Oid best;
   Value value;

private:
   const uint32_t* bound_;
   size_t boundLen_;
   bool strict_;
};

class LldpMibSource;

// A scalar answers for its `.0` instance; a table for columns firstCol..lastCol of its
// entry. `rows` offers the rows of one column to the finder.
struct MibObject {
   Oid oid;  // the scalar, or the table's entry
   bool (*scalar)(const LldpMibSource&, Value&) = nullptr;
   void (*rows)(const LldpMibSource&, uint32_t col, RowFinder&) = nullptr;
   uint32_t firstCol = 0, lastCol = 0;
};

inline MibObject scalar(Oid oid, bool (*fn)(const LldpMibSource&, Value&)) {
   return MibObject{.oid = std::move(oid), .scalar = fn};
}
// A table's entry whose columns `first` to `last` are read by `rows`.
inline MibObject table(Oid entry, uint32_t first, uint32_t last,
                       void (*rows)(const LldpMibSource&, uint32_t, RowFinder&)) {
   return MibObject{.oid = std::move(entry), .rows = rows, .firstCol = first, .lastCol = last};
}

class MibTree {
public:
   explicit MibTree(const LldpMibSource& src);
   // The registration root: 1.0.8802.1.1.2.
   static const Oid& root();
   // Exact instance; false for no such object or instance.
   bool get(const Oid& name, Value& out) const;
   // The first instance after `name` in this tree; false past the end.
   bool getNext(const Oid& name, Oid& outName, Value& out) const;
   size_t objectCount() const { return objects_.size(); }

private:
   const LldpMibSource& src_;
   std::vector<MibObject> objects_;  // in OID order
};

// The object lists, one per MIB module (LldpMibBase.cpp, LldpMibExt.cpp).
void addLldpMibObjects(std::vector<MibObject>& out);
void addLldpExtMibObjects(std::vector<MibObject>& out);

}  // namespace Snmp

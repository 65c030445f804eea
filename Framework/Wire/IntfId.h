// Interface identifiers. An IntfId names a switch interface by kind and number
// ("Ethernet3/1", "Management1", "Port-Channel10", "Vlan100", "Loopback0") and can also
// carry a Linux interface name ("eth0", "veth-lab1"), which the Linux platform uses for
// ports that have no switch-style name.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Framework/Vel/Types.h"

namespace Wire {

enum class IntfKind : uint8_t {
   intfKindEthernet,
   intfKindManagement,
   intfKindPortChannel,
   intfKindVlan,
   intfKindLoopback,
   intfKindOther,  // a Linux name that follows none of the switch conventions
};

class IntfId {
public:
   static constexpr size_t maxNameLen = 31;
   IntfId() = default;
   // Parses a switch-style name; any other name is kept as it is, with kind Other.
   explicit IntfId(std::string_view name);
   IntfId(const char* name) : IntfId(std::string_view(name)) {}
   // A Linux interface that the platform treats as an interface of the given kind.
   static IntfId linux(std::string_view name, IntfKind kind);
   IntfId(const IntfId& o) { copyFrom(o); }
   IntfId(IntfId&& o) noexcept {
      std::memcpy(bytes_, o.bytes_, sizeof(bytes_));
      meta_ = o.meta_;
      o.meta_ = o.meta_ & kindMask;  // empty, inline: the heap bytes are this one's now
   }
   IntfId& operator=(const IntfId& o) {
      if (this != &o) {
         release();
         copyFrom(o);
      }
      return *this;
   }
   IntfId& operator=(IntfId&& o) noexcept {
      if (this != &o) {
         release();
         std::memcpy(bytes_, o.bytes_, sizeof(bytes_));
         meta_ = o.meta_;
         o.meta_ = o.meta_ & kindMask;
      }
      return *this;
   }
   ~IntfId() { release(); }

   IntfKind kind() const { return IntfKind(meta_ >> kindShift); }
   bool isEthernet() const { return kind() == IntfKind::intfKindEthernet; }
   bool isManagement() const { return kind() == IntfKind::intfKindManagement; }
   // Whether the name itself is switch-style ("Ethernet1/2"), not just the kind.
   bool switchStyleName() const;
   // Numeric components of the name in order (module/port/lane); unused ones are 0.
   uint32_t number(size_t i) const;
   size_t numberCount() const;
   std::string_view name() const {
      if (!onHeap()) return {bytes_, size_t(meta_ & lenMask)};
      return {heapPtr(), size_t(uint8_t(bytes_[heapLenAt]))};
   }
   std::string stringValue() const { return std::string(name()); }
   bool empty() const { return name().empty(); }

   // One name, one interface: equality and order depend on the name alone, so an IntfId
   // made from a bare name finds an entry keyed by the platform's IntfId::linux().
   bool operator==(const IntfId& o) const { return name() == o.name(); }
   // Ordered by the kind the name spells (switch-style names by kind, then the rest),
   // then numerically ("Ethernet2" before "Ethernet10"), then by name.
   std::strong_ordering operator<=>(const IntfId& o) const;
   size_t hash() const { return std::hash<std::string_view>()(name()); }
   friend std::ostream& operator<<(std::ostream& os, const IntfId& i);

private:
   // Identifiers are map keys and record keys on every port and neighbour, so they are
   // kept to 16 bytes: the name with up to 15 bytes inline (every Linux interface name)
   // and the kind in the byte after it. A longer name (a switch-style one such as
   // "Port-Channel1000") is on the heap, its pointer in the first bytes and its length
   // after that. What the name alone says (its kind and numbers) is read from the name
   // when it is asked for: ordering and the platform's naming ask, all control plane.
   static constexpr size_t inlineBytes = 15;
   static constexpr uint8_t lenMask = 0x1f, heapLen = 0x1f, kindShift = 5;
   static constexpr uint8_t kindMask = uint8_t(~lenMask);
   static constexpr size_t heapLenAt = sizeof(char*);
   bool onHeap() const { return (meta_ & lenMask) == heapLen; }
   char* heapPtr() const {
      char* p;
      std::memcpy(&p, bytes_, sizeof(p));
      return p;
   }
   void nameIs(std::string_view name);
   void copyFrom(const IntfId& o) {
      meta_ = o.meta_ & kindMask;
      nameIs(o.name());
   }
   void release() {
      if (onHeap()) delete[] heapPtr();
   }

   char bytes_[inlineBytes];
   uint8_t meta_ = uint8_t(IntfKind::intfKindOther) << kindShift;  // length, kind
};
static_assert(sizeof(IntfId) == 16);

}  // namespace Wire

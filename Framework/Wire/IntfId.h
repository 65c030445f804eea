// Interface identifiers. An IntfId names a switch interface by kind and number
// ("Ethernet3/1", "Management1", "Port-Channel10", "Vlan100", "Loopback0") and can also
// carry a Linux interface name ("eth0", "veth-lab1"), which the Linux platform uses for
// ports that have no switch-style name.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
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

   IntfKind kind() const { return kind_; }
   bool isEthernet() const { return kind_ == IntfKind::intfKindEthernet; }
   bool isManagement() const { return kind_ == IntfKind::intfKindManagement; }
   // Whether the name itself is switch-style ("Ethernet1/2"), not just the kind.
   bool switchStyleName() const { return nameKind_ != uint8_t(IntfKind::intfKindOther); }
   // Numeric components of the name in order (module/port/lane); unused ones are 0.
   uint32_t number(size_t i) const {
      if (i >= numbers_.size()) return 0;
      return numbers_[i] != saturated ? numbers_[i] : exactNumbers()[i];
   }
   size_t numberCount() const { return numberCount_; }
   std::string_view name() const { return name_.value(); }
   std::string stringValue() const { return name_.stringValue(); }
   bool empty() const { return name_.empty(); }

   // One name, one interface: equality and order depend on the name alone, so an IntfId
   // made from a bare name finds an entry keyed by the platform's IntfId::linux().
   bool operator==(const IntfId& o) const { return name_ == o.name_; }
   // Ordered by the kind the name spells (switch-style names by kind, then the rest),
   // then numerically ("Ethernet2" before "Ethernet10"), then by name.
   std::strong_ordering operator<=>(const IntfId& o) const;
   size_t hash() const { return name_.hash(); }
   friend std::ostream& operator<<(std::ostream& os, const IntfId& i);

private:
   // Identifiers are map keys and record keys on every port and neighbour, so they are
   // kept to 24 bytes: the name with 15 bytes inline (every Linux interface name; longer
   // switch-style names go to the heap), the kinds, and the numbers in 16 bits each. A
   // number that does not fit is kept as `saturated` and read from the name again when
   // it is needed, which only names with numbers of 65,535 or more pay for.
   static constexpr uint16_t saturated = 0xffff;
   std::array<uint32_t, 3> exactNumbers() const;

   Vel::FixedString<maxNameLen + 1> name_;  // a bound of 32 is the 16-byte form
   IntfKind kind_ = IntfKind::intfKindOther;
   uint8_t nameKind_ : 4 = uint8_t(IntfKind::intfKindOther);  // what the name alone says
   uint8_t numberCount_ : 4 = 0;
   std::array<uint16_t, 3> numbers_{};
};
static_assert(sizeof(IntfId) == 24);

}  // namespace Wire

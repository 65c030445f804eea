// VLAN identifiers: VlanId is 1..4094; VlanIdOrNone adds 0 for "no VLAN".
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>

#include "Framework/Vel/Types.h"

namespace Bridging {

template <uint16_t Min>
class VlanIdBase {
public:
   static constexpr uint16_t min = Min;
   static constexpr uint16_t max = 4094;
   constexpr VlanIdBase() : value_(Min) {}
   // Implicit from an integer so records read naturally; out of range is a range error.
   constexpr VlanIdBase(uint16_t v) : value_(v) {
      if (v < Min || v > max) throwRange();
   }
   constexpr uint16_t value() const { return value_; }
   constexpr operator uint16_t() const { return value_; }
   // Compared as numbers, through the conversion above.
   size_t hash() const { return value_; }
   friend std::ostream& operator<<(std::ostream& os, const VlanIdBase& v) { return os << v.value_; }
   unsigned toJson() const { return value_; }

private:
   [[noreturn]] static void throwRange() {
      throw Vel::RangeException(Min == 0 ? "Bridging::VlanIdOrNone > 4094 not allowed"
                                         : "Bridging::VlanId < 1 or > 4094 not allowed");
   }
   uint16_t value_;
};

using VlanId = VlanIdBase<1>;
using VlanIdOrNone = VlanIdBase<0>;

}  // namespace Bridging

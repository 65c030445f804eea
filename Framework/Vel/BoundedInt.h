// An integer that refuses values outside [Min, Max] with a fixed range error text.
#pragma once

#include <algorithm>
#include <compare>
#include <ostream>

#include "Framework/Vel/Types.h"

namespace Vel {

template <size_t N>
struct Literal {
   constexpr Literal(const char (&s)[N]) { std::copy_n(s, N, text); }
   char text[N];
};

template <class T, T Min, T Max, Literal Msg>
class BoundedInt {
public:
   constexpr BoundedInt() : v_(Min) {}
   constexpr BoundedInt(T v) : v_(v) {
      if (v < Min || v > Max) throw RangeException(Msg.text);
   }
   constexpr T value() const { return v_; }
   constexpr operator T() const { return v_; }
   bool operator==(const BoundedInt&) const = default;
   auto operator<=>(const BoundedInt&) const = default;
   size_t hash() const { return static_cast<size_t>(v_); }
   long long toJson() const { return v_; }
   friend std::ostream& operator<<(std::ostream& os, const BoundedInt& b) { return os << +b.v_; }

private:
   T v_;
};

}  // namespace Vel

// Value types declared once. A value type lists its fields in an X-macro
//    #define MY_FIELDS(F) F(uint16_t, vlanId, 0) F(bool, tagged, false)
// and VEL_VALUE(MyType, MY_FIELDS) generates, from that single list: the members with
// their defaults, a getter per field (`vlanId()`), a setter per field (`vlanIdIs(v)`), a
// designated-initializer constructor (`MyType({.vlanId = 5})`), equality, ordering,
// hash, printing on a trace stream and field visitation (used for JSON export).
// Bit sets use VEL_BITSET, which gives each bit a named getter and setter.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <tuple>

#include "Framework/Vel/Types.h"

namespace Vel {

// Prints one field value on a trace stream; small integers print as numbers.
template <class T>
void printValue(std::ostream& os, const T& v) {
   if constexpr (std::is_same_v<T, uint8_t> || std::is_same_v<T, int8_t>) {
      os << static_cast<int>(v);
   } else if constexpr (requires {
                           std::tuple_size<T>::value;
                           v.data();
                        }) {
      static const char hex[] = "0123456789abcdef";
      for (uint8_t b : v) os << hex[b >> 4] << hex[b & 15];
   } else if constexpr (requires { v.ptr(); }) {
      if (v) {
         os << '<' << std::remove_cvref_t<decltype(*v)>::typeName() << '>';
      } else {
         os << "null";
      }
   } else if constexpr (std::is_same_v<T, bool>) {
      os << (v ? "true" : "false");
   } else if constexpr (requires {
                           v.begin();
                           v.size();
                           v.find(v.begin()->first);
                        }) {
      os << '[';
      bool first = true;
      for (const auto& [k, m] : v) {
         os << (first ? "" : ", ");
         printValue(os, m);
         first = false;
      }
      os << ']';
   } else {
      os << v;
   }
}

// Prints the fields of a reflected value as `Type(a=1, b=2)`.
template <class T>
std::ostream& printFields(std::ostream& os, const T& v) {
   os << T::typeName() << '(';
   bool first = true;
   v.visitFields([&](const char* name, const auto& f) {
      os << (first ? "" : ", ") << name << '=';
      printValue(os, f);
      first = false;
   });
   return os << ')';
}

template <class T>
size_t hashFields(const T& v) {
   size_t h = 0;
   v.visitFields([&](const char*, const auto& f) {
      h = hashCombine(h, Hash<std::decay_t<decltype(f)>>()(f));
   });
   return h;
}

}  // namespace Vel

#define VEL_V_MEMBER(Type, name, def) Type name##_ = def;
#define VEL_V_INIT(Type, name, def) Type name = def;
#define VEL_V_FROM_INIT(Type, name, def) name##_ = i.name;
#define VEL_V_ACCESS(Type, name, def) \
   const Type& name() const {         \
      return name##_;                 \
   }                                  \
   void name##Is(const Type& v) {     \
      name##_ = v;                    \
   }
#define VEL_V_VISIT(Type, name, def) fn(#name, name##_);

#define VEL_VALUE(Class, FIELDS)                                          \
public:                                                                   \
   struct Init {                                                          \
      FIELDS(VEL_V_INIT)                                                  \
   };                                                                     \
   /* User-provided: value-initialisation must not clear whole records */ \
   /* (inline strings are hundreds of bytes); fields have defaults. */    \
   Class() {}                                                             \
   Class(const Init& i) {                                                 \
      FIELDS(VEL_V_FROM_INIT)                                             \
   }                                                                      \
   static constexpr const char* typeName() {                              \
      return #Class;                                                      \
   }                                                                      \
   FIELDS(VEL_V_ACCESS)                                                   \
   template <class Fn>                                                    \
   void visitFields(Fn&& fn) const {                                      \
      FIELDS(VEL_V_VISIT)                                                 \
   }                                                                      \
   bool operator==(const Class&) const = default;                         \
   auto operator<=>(const Class&) const = default;                        \
   template <class Self = Class>                                          \
   size_t hash() const {                                                  \
      return Vel::hashFields(static_cast<const Self&>(*this));            \
   }                                                                      \
   friend std::ostream& operator<<(std::ostream& os, const Class& v) {    \
      return Vel::printFields(os, v);                                     \
   }                                                                      \
                                                                          \
private:                                                                  \
   FIELDS(VEL_V_MEMBER)                                                   \
public:

#define VEL_B_ACCESS(name, mask)                               \
   constexpr bool name() const {                               \
      return (value_ & (mask)) != 0;                           \
   }                                                           \
   void name##Is(bool on) {                                    \
      value_ = on ? static_cast<Underlying>(value_ | (mask))   \
                  : static_cast<Underlying>(value_ & ~(mask)); \
   }
#define VEL_B_VISIT(name, mask) fn(#name, static_cast<Underlying>(mask));

// A bit set over an unsigned integer with one named accessor pair per bit.
#define VEL_BITSET(Class, Under, BITS)                                              \
public:                                                                             \
   using Underlying = Under;                                                        \
   constexpr Class() = default;                                                     \
   constexpr explicit Class(Underlying v) : value_(v) {}                            \
   static constexpr const char* typeName() {                                        \
      return #Class;                                                                \
   }                                                                                \
   constexpr Underlying value() const {                                             \
      return value_;                                                                \
   }                                                                                \
   void valueIs(Underlying v) {                                                     \
      value_ = v;                                                                   \
   }                                                                                \
   BITS(VEL_B_ACCESS)                                                               \
   template <class Fn>                                                              \
   static void visitBits(Fn&& fn) {                                                 \
      BITS(VEL_B_VISIT)                                                             \
   }                                                                                \
   bool operator==(const Class&) const = default;                                   \
   auto operator<=>(const Class&) const = default;                                  \
   size_t hash() const {                                                            \
      return value_;                                                                \
   }                                                                                \
   friend std::ostream& operator<<(std::ostream& os, const Class& v) {              \
      return os << "0x" << std::hex << static_cast<unsigned>(v.value_) << std::dec; \
   }                                                                                \
                                                                                    \
private:                                                                            \
   Underlying value_ = 0;                                                           \
                                                                                    \
public:

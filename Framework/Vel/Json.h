// JSON export of values and entities, with attribute names as keys. This is the shape
// the command line shows, so every record type gets it from its one declaration.
#pragma once

#include <array>
#include <nlohmann/json.hpp>

#include "Framework/Vel/Ptr.h"
#include "Framework/Vel/Types.h"

namespace Vel {

using Json = nlohmann::json;

std::string hexBytes(const uint8_t* p, size_t n);

template <class T>
struct IsByteArray : std::false_type {};
template <size_t N>
struct IsByteArray<std::array<uint8_t, N>> : std::true_type {};

template <class T>
Json toJson(const T& v) {
   if constexpr (requires { v.toJson(); }) {
      return v.toJson();
   } else if constexpr (requires { v.ptr(); }) {
      return v ? toJson(*v) : Json(nullptr);
   } else if constexpr (requires { v.visitAttrs([](const char*, const auto&) {}); }) {
      Json j = Json::object();
      v.visitAttrs([&](const char* name, const auto& f) { j[name] = toJson(f); });
      return j;
   } else if constexpr (requires { v.visitFields([](const char*, const auto&) {}); }) {
      Json j = Json::object();
      v.visitFields([&](const char* name, const auto& f) { j[name] = toJson(f); });
      return j;
   } else if constexpr (requires { T::visitBits([](const char*, auto) {}); }) {
      // Bit sets export the names of the bits that are set; bits without a name as bitN.
      Json j = Json::array();
      auto rest = v.value();
      T::visitBits([&](const char* name, auto mask) {
         if (v.value() & mask) j.push_back(name);
         rest = static_cast<decltype(rest)>(rest & ~mask);
      });
      for (unsigned b = 0; b < sizeof(rest) * 8; ++b) {
         if (rest & (1ull << b)) j.push_back("bit" + std::to_string(b));
      }
      return j;
   } else if constexpr (requires { T::maxBytes; }) {
      return textOrHex(v.value());
   } else if constexpr (requires { v.stringValue(); }) {
      return v.stringValue();
   } else if constexpr (requires { v.begin()->second; }) {
      // Collections export as arrays of their members. Members that carry their own key
      // are shown alone; the others as {key, value}.
      Json j = Json::array();
      using M = std::remove_cvref_t<decltype(v.begin()->second)>;
      constexpr bool carriesKey = requires(const M& m) {
         m.key();
      }
      || requires(const M& m) {
         m.ptr();
      };
      for (const auto& item : v) {
         if constexpr (carriesKey) {
            j.push_back(toJson(item.second));
         } else {
            j.push_back(Json{{"key", toJson(item.first)}, {"value", toJson(item.second)}});
         }
      }
      return j;
   } else if constexpr (IsByteArray<T>::value) {
      return colonHex(std::string_view(reinterpret_cast<const char*>(v.data()), v.size()));
   } else if constexpr (std::is_same_v<T, std::string>) {
      return textOrHex(v);
   } else {
      return Json(v);
   }
}

}  // namespace Vel

// A record's whole content as bytes, for telling whether it changed: the same walk over
// attributes, fields and collections as its JSON export, but written into one string
// instead of a document of nodes (several times cheaper, and the fuzz harnesses compare
// records around every request that may write). Every variable part is written so that
// no two different records give the same bytes: numbers as their bytes, strings and
// collections after their length, absent members as a mark of their own.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

#include "Framework/Vel/Json.h"

namespace Fuzz {

template <class T>
void appendRecordBytes(std::string& out, const T& v);

inline void appendSized(std::string& out, const char* data, size_t size) {
   const uint32_t n = uint32_t(size);
   out.append(reinterpret_cast<const char*>(&n), sizeof n);
   out.append(data, size);
}

// A JSON value, strings as their raw bytes (they need not be valid UTF-8 here).
inline void appendJson(std::string& out, const Vel::Json& j) {
   if (j.is_string()) {
      const auto& s = j.get_ref<const std::string&>();
      out += '"';
      appendSized(out, s.data(), s.size());
   } else if (j.is_object()) {
      out += '{';
      appendRecordBytes(out, uint32_t(j.size()));
      for (const auto& [key, value] : j.items()) {
         appendSized(out, key.data(), key.size());
         appendJson(out, value);
      }
   } else if (j.is_array()) {
      out += '[';
      appendRecordBytes(out, uint32_t(j.size()));
      for (const auto& value : j) appendJson(out, value);
   } else {
      const std::string text = j.dump();  // a number, a boolean or null: plain ASCII
      appendSized(out, text.data(), text.size());
   }
}

template <class T>
void appendRecordBytes(std::string& out, const T& v) {
   if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>) {
      out.append(reinterpret_cast<const char*>(&v), sizeof v);
   } else if constexpr (std::is_same_v<T, std::string>) {
      appendSized(out, v.data(), v.size());
   } else if constexpr (requires { v.toJson(); }) {
      appendJson(out, Vel::Json(v.toJson()));
   } else if constexpr (requires { v.ptr(); }) {
      if (!v) {
         out += '~';
      } else {
         out += '*';
         appendRecordBytes(out, *v);
      }
   } else if constexpr (requires { v.visitAttrs([](const char*, const auto&) {}); }) {
      out += '{';
      v.visitAttrs([&](const char*, const auto& f) { appendRecordBytes(out, f); });
      out += '}';
   } else if constexpr (requires { v.visitFields([](const char*, const auto&) {}); }) {
      out += '(';
      v.visitFields([&](const char*, const auto& f) { appendRecordBytes(out, f); });
      out += ')';
   } else if constexpr (requires { v.begin()->second; }) {
      const uint32_t n = uint32_t(v.size());
      out.append(reinterpret_cast<const char*>(&n), sizeof n);
      for (const auto& item : v) {
         appendRecordBytes(out, item.first);
         appendRecordBytes(out, item.second);
      }
   } else {
      // Whatever else the JSON export writes as a value of its own (identifiers, bounded
      // strings, bit sets, addresses): that text.
      appendJson(out, Vel::toJson(v));
   }
}

}  // namespace Fuzz

#include "Framework/Vel/Types.h"

#include <ostream>
#include <sstream>
#include <string>

#include "Framework/Vel/Json.h"

namespace Vel {

std::string printableBytes(std::string_view bytes) {
   static const char hex[] = "0123456789abcdef";
   std::string s;
   s.reserve(bytes.size());
   for (unsigned char c : bytes) {
      if (c >= 0x20 && c < 0x7f && c != '\\') {
         s.push_back(static_cast<char>(c));
      } else {
         const char escaped[] = {'\\', 'x', hex[c >> 4], hex[c & 15]};
         s.append(escaped, sizeof(escaped));
      }
   }
   return s;
}

std::string colonHex(std::string_view bytes) {
   static const char hex[] = "0123456789abcdef";
   std::string s;
   s.reserve(bytes.size() * 3);
   for (unsigned char c : bytes) {
      if (!s.empty()) s.push_back(':');
      s.push_back(hex[c >> 4]);
      s.push_back(hex[c & 15]);
   }
   return s;
}

std::string textOrHex(std::string_view bytes) {
   for (unsigned char c : bytes) {
      if (c < 0x20 || c >= 0x7f) return colonHex(bytes);
   }
   return std::string(bytes);
}

void printBytes(std::ostream& os, std::string_view bytes) {
   os << printableBytes(bytes);
}

void throwStringBound(size_t max) {
   throw RangeException("Vel::String::bytes > " + std::to_string(max) + " not allowed");
}

std::string hexBytes(const uint8_t* p, size_t n) {
   static const char hex[] = "0123456789abcdef";
   std::string s;
   s.reserve(n * 2);
   for (size_t i = 0; i < n; ++i) {
      s.push_back(hex[p[i] >> 4]);
      s.push_back(hex[p[i] & 15]);
   }
   return s;
}

}  // namespace Vel

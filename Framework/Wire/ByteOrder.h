// Big-endian reads and writes of wire fields (every multi-byte LLDP field is big-endian).
#pragma once

#include <cstdint>

namespace Wire::Be {

inline uint16_t get16(const char* p) {
   return static_cast<uint16_t>((uint8_t(p[0]) << 8) | uint8_t(p[1]));
}
inline uint32_t get24(const char* p) {
   return (uint32_t(uint8_t(p[0])) << 16) | (uint32_t(uint8_t(p[1])) << 8) | uint8_t(p[2]);
}
inline uint32_t get32(const char* p) {
   return (uint32_t(get16(p)) << 16) | get16(p + 2);
}
inline void put16(char* p, uint16_t v) {
   p[0] = static_cast<char>(v >> 8);
   p[1] = static_cast<char>(v);
}
inline void put24(char* p, uint32_t v) {
   p[0] = static_cast<char>(v >> 16);
   p[1] = static_cast<char>(v >> 8);
   p[2] = static_cast<char>(v);
}
inline void put32(char* p, uint32_t v) {
   put16(p, static_cast<uint16_t>(v >> 16));
   put16(p + 2, static_cast<uint16_t>(v));
}

}  // namespace Wire::Be

// LLDPDU framing: writing and cutting out TLVs in a caller-owned buffer. These functions
// keep no state apart from `infoBuf` and never allocate.
#pragma once

#include "Framework/Trace.h"
#include "Records/Lldp.h"
#include "Records/TlvParseResult.h"

namespace Lldp {

// TLV types.
inline constexpr int tlvTypeEnd = 0;
inline constexpr int tlvTypeChassisId = 1;
inline constexpr int tlvTypePortId = 2;
inline constexpr int tlvTypeTtl = 3;
inline constexpr int tlvTypePortDesc = 4;
inline constexpr int tlvTypeSysName = 5;
inline constexpr int tlvTypeSysDesc = 6;
inline constexpr int tlvTypeSysCap = 7;
inline constexpr int tlvTypeManagementAddress = 8;
inline constexpr int tlvTypeOrgSpecific = 127;

inline constexpr int maxTlvInfoLen = 511;
inline constexpr int orgDefHeaderLen = 4;  // OUI and subtype
inline constexpr int maxOrgDefInfoLen = maxTlvInfoLen - orgDefHeaderLen;

}  // namespace Lldp

// The transmit builder's scratch area for information strings while it runs, null
// otherwise. Organizationally specific content is composed at infoBuf + 4 so that
// putOrgDefTlv can prefix the OUI and subtype in place.
extern char* infoBuf;

// Appends one TLV. Fails softly (false, nothing written) when it does not fit.
bool putTlv(char** pos, char* end, int type, int infoLen, const char* info);
// Appends an organizationally specific TLV whose content is at info == infoBuf + 4.
bool putOrgDefTlv(char** pos, char* end, Lldp::Oui oui, int subtype, int orgDefInfoLen,
                  const char* info);
// Cuts the next TLV out of [*pos, end); on success *info points at its information string
// and *pos is past the TLV. Never reads outside [*pos, end).
bool extractTlv(const char** pos, const char* end, int* type, int* infoLen, const char** info);
// As extractTlv, and the TLV must be of the expected type with 2..maxInfoLen bytes.
bool extractMandatoryTlv(const char** pos, const char* end, int expectedType, int maxInfoLen,
                         int* infoLen, const char** info);

namespace Lldp {
// Trace handle of the framing, builder and receive processor.
extern Vel::Trace::Handle traceLldpProtocol;
}  // namespace Lldp

// Big-endian helpers used by every codec module.
namespace Lldp::Be {
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
}  // namespace Lldp::Be

#include "Lldp/LldpProtocol.h"

#include <cstring>

#include "Framework/Assert.h"

char* infoBuf = nullptr;

namespace Lldp {
Vel::Trace::Handle traceLldpProtocol("LldpProtocol");
}  // namespace Lldp

using Lldp::traceLldpProtocol;

bool putTlv(char** pos, char* end, int type, int infoLen, const char* info) {
   // Room first: an oversized TLV that would not fit anyway is a soft failure.
   if (end - *pos < infoLen + 2) {
      VEL_TRACE(traceLldpProtocol, 2,
                "No room for TLV (type=" << type << ", infoLen=" << infoLen << "); remaining space"
                                         << (end - *pos) << " bytes");
      return false;
   }
   VEL_ASSERT(!(infoLen & ~0x1ff), "!( infoLen & ~0x1ff )");
   char* p = *pos;
   Lldp::Be::put16(p, static_cast<uint16_t>((type << 9) | infoLen));
   if (infoLen) std::memcpy(p + 2, info, static_cast<size_t>(infoLen));
   *pos = p + 2 + infoLen;
   VEL_TRACE(traceLldpProtocol, 8,
             "Added TLV (type=" << type << ", infoLen=" << infoLen << "); remaining space"
                                << (end - *pos) << " bytes");
   return true;
}

bool putOrgDefTlv(char** pos, char* end, Lldp::Oui oui, int subtype, int orgDefInfoLen,
                  const char* info) {
   VEL_ASSERT(info - Lldp::orgDefHeaderLen == infoBuf, "info == infoBuf");
   char* hdr = infoBuf;
   Lldp::Be::put24(hdr, oui.value());
   hdr[3] = static_cast<char>(subtype & 0xff);
   return putTlv(pos, end, Lldp::tlvTypeOrgSpecific, orgDefInfoLen + Lldp::orgDefHeaderLen, hdr);
}

bool extractTlv(const char** pos, const char* end, int* type, int* infoLen, const char** info) {
   if (end - *pos < 2) {
      VEL_TRACE(traceLldpProtocol, 0, "Error: frame ended during (or before) TLV header");
      return false;
   }
   uint16_t hdr = Lldp::Be::get16(*pos);
   *type = hdr >> 9;
   *infoLen = hdr & 0x1ff;
   VEL_TRACE(traceLldpProtocol, 8, "TLV: type=" << *type << ", infoLen=" << *infoLen);
   // Compare lengths rather than form a pointer past the buffer.
   if (end - *pos - 2 < *infoLen) {
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: frame ended during TLV information string (type=" << *type << ", infoLen="
                                                                          << *infoLen << ")");
      *pos = end;
      return false;
   }
   *info = *pos + 2;
   *pos += 2 + *infoLen;
   return true;
}

bool extractMandatoryTlv(const char** pos, const char* end, int expectedType, int maxInfoLen,
                         int* infoLen, const char** info) {
   int type = 0;
   if (!extractTlv(pos, end, &type, infoLen, info)) {
      VEL_TRACE(traceLldpProtocol, 0, "Error: frame ended during mandatory TLV");
      return false;
   }
   if (type != expectedType) {
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: TLV was not of the expected type (type=" << type << ")");
      return false;
   }
   if (*infoLen > maxInfoLen || *infoLen < 2) {
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: size of TLV out of range (infoLen=" << *infoLen << ")");
      return false;
   }
   return true;
}

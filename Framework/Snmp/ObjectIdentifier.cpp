#include "Framework/Snmp/ObjectIdentifier.h"

namespace Snmp {

bool ObjectIdentifier::berContentsIs(const uint8_t* p, size_t n) {
   clear();
   // Each sub-identifier is big-endian base 128, the high bit set on every octet but its
   // last. The value is gathered in 64 bits as the octets come, so an over-long encoding
   // wraps there before it is checked against 32 bits.
   uint64_t arcs[maxSubIds];
   size_t count = 0;
   size_t i = 0;
   while (i < n) {
      // The first encoded value stands for two arcs.
      if (count == maxSubIds - 1) return false;
      uint64_t value = 0;
      uint8_t octet;
      do {
         octet = p[i++];
         value = (value << 7) + (octet & 0x7f);
      } while ((octet & 0x80) && i < n);
      if (octet & 0x80) return false;
      if (value > 0xffffffffu) return false;
      arcs[count++] = value;
   }
   // The first value is 40 * first arc + second arc, the first arc 0, 1 or 2 (only arc 2
   // may have a second arc of 40 or more).
   const uint64_t first = count ? arcs[0] : 0;
   uint32_t top, second;
   if (first < 40) {
      top = 0;
      second = uint32_t(first);
   } else if (first < 80) {
      top = 1;
      second = uint32_t(first - 40);
   } else {
      top = 2;
      second = uint32_t(first - 80);
   }
   if (count + 1 > cap_) reserve(count + 1);
   ids_[len_++] = top;
   if (count == 0) return true;
   ids_[len_++] = second;
   for (size_t k = 1; k < count; ++k) ids_[len_++] = uint32_t(arcs[k]);
   return true;
}

}  // namespace Snmp

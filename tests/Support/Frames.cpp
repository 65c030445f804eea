#include "tests/Support/Frames.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

namespace TestSupport {

Bytes lldpFrame(const std::string& chassis, uint16_t ttl, uint16_t ethType, bool tagged) {
   Bytes f = bytes({0x01, 0x80, 0xc2, 0, 0, 0x0e, 0x02, 0, 0, 0, 0, 0x09});
   if (tagged) f.insert(f.end(), {char(0x81), 0, 0, 0x0a});
   f.insert(f.end(), {char(ethType >> 8), char(ethType & 0xff)});
   f.insert(f.end(), {0x02, char(1 + chassis.size()), 7});
   f.insert(f.end(), chassis.begin(), chassis.end());
   f.insert(f.end(), {0x04, 0x02, 0x07, 'p', 0x06, 0x02, char(ttl >> 8), char(ttl & 0xff), 0, 0});
   return f;
}

Bytes readPcapFrame(const std::string& path) {
   std::ifstream in(path, std::ios::binary);
   Bytes all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
   // 24-byte global header, then a 16-byte record header whose third word is the
   // captured length (little-endian magic 0xa1b2c3d4 is all the captures use).
   if (all.size() < 40) return {};
   uint32_t caplen;
   std::memcpy(&caplen, all.data() + 24 + 8, 4);
   if (all.size() < 40 + size_t(caplen)) return {};
   return Bytes(all.begin() + 40, all.begin() + 40 + caplen);
}

Bytes lldpduOf(const Bytes& frame) {
   size_t off = 12;
   if (frame.size() >= 16 && uint8_t(frame[12]) == 0x81 && uint8_t(frame[13]) == 0x00) off = 16;
   if (frame.size() < off + 2) return {};
   return Bytes(frame.begin() + long(off) + 2, frame.end());
}

std::string interopDir() {
   if (const char* env = std::getenv("LLDP_INTEROP_DIR")) return env;
   return std::string(LLDP_SOURCE_DIR) + "/../shared/interop-captures";
}

}  // namespace TestSupport

#include "tests/Support/Frames.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

namespace TestSupport {

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

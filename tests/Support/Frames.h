// Helpers for tests that work on LLDPDU bytes.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace TestSupport {

using Bytes = std::vector<char>;

inline Bytes bytes(std::initializer_list<int> b) {
   Bytes out;
   for (int v : b) out.push_back(static_cast<char>(v));
   return out;
}

// Reads the single frame of a classic pcap file; empty when it cannot.
Bytes readPcapFrame(const std::string& path);
// The LLDPDU of an Ethernet frame: what follows the EtherType (and any 802.1Q tag).
Bytes lldpduOf(const Bytes& frame);
// Where the shared interop captures are (from LLDP_INTEROP_DIR or next to the checkout).
std::string interopDir();

}  // namespace TestSupport

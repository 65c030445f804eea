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

// A minimal LLDP frame from 02-00-00-00-00-09: chassis ID (locally assigned) `chassis`,
// port ID "p", the TTL, optionally behind an 802.1Q tag, with the EtherType given.
Bytes lldpFrame(const std::string& chassis, uint16_t ttl, uint16_t ethType = 0x88cc,
                bool tagged = false);

// Reads the single frame of a classic pcap file; empty when it cannot.
Bytes readPcapFrame(const std::string& path);
// The LLDPDU of an Ethernet frame: what follows the EtherType (and any 802.1Q tag).
Bytes lldpduOf(const Bytes& frame);
// Where the shared interop captures are (from LLDP_INTEROP_DIR or next to the checkout).
std::string interopDir();

}  // namespace TestSupport

// The daemon's gNMI options, parsed without gRPC (a build without gRPC still names them in
// its refusal). See docs/gnmi.md.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Gnmi {

struct Options {
   std::string address;  // HOST:PORT; empty = no gNMI server
   std::string tlsCert, tlsKey, tlsCa;
   std::vector<std::string> writeCns;  // client certificate common names allowed to Set
   bool allowInsecureSet = false;      // Set for clients without a verified certificate
   uint32_t maxSubscribers = 64;       // Subscribe calls at once
   uint32_t maxQueue = 4096;           // notifications waiting for one slow subscriber
   uint32_t maxRequestBytes = 4u << 20;

   // Takes argv[i] (and its value, advancing i) when it is one of ours; false when it is
   // not; sets `error` when it is ours but wrong.
   bool parse(int argc, char** argv, int& i, std::string* error);
   // The combination, after parsing: TLS files come together, plaintext only on loopback.
   bool check(std::string* error) const;
   static const char* usage();
};

// Whether HOST of "HOST:PORT" is a loopback address (127.0.0.0/8, [::1], localhost).
bool isLoopback(const std::string& address);
// Splits "HOST:PORT" ("[v6]:PORT" too); false when malformed.
bool splitHostPort(const std::string& address, std::string* host, uint16_t* port);

}  // namespace Gnmi

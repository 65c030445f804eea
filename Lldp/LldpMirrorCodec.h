// The records of the LLDP status in the compact form the mirror stream carries: every
// attribute of a neighbour, a port's status or the global counters, in declaration order,
// each as its bytes (strings with their length, collections with their count). The two
// ends of a stream run on one host; `recordLayout()` names the layout so that a standby
// built with other records refuses the stream instead of misreading it.
//
// Decoding never trusts the bytes: a length past the end, a string over its bound, a
// bounded number out of range or bytes left over make it fail, leaving the record it was
// decoding into half written (decode into a scratch record, then copy what decoded).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Records/LldpStatus.h"

namespace Lldp::Mirror {

// A name for the layout of the three records below: equal on both ends or no stream.
const std::string& recordLayout();

void encode(const RemoteSystem& r, std::string& out);
void encode(const PortStatus& p, std::string& out);  // its neighbours are not part of it
void encode(const StatusBase& s, std::string& out);

bool decode(std::string_view in, RemoteSystem& r);
bool decode(std::string_view in, PortStatus& p);
bool decode(std::string_view in, StatusBase& s);

// Copies every attribute of `from` into `to` through the writers, so that those who watch
// `to` hear of exactly what changed. Keys and child entities are left alone.
void copyAttrs(const RemoteSystem& from, RemoteSystem& to);
void copyAttrs(const PortStatus& from, PortStatus& to);
void copyAttrs(const StatusBase& from, StatusBase& to);

// Bytes as lowercase hexadecimal and back (false on an odd length or another character).
void appendHex(std::string_view bytes, std::string& out);
bool fromHex(std::string_view hex, std::string& out);

}  // namespace Lldp::Mirror

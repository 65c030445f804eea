// The names people know the numbers of the received TLVs by: IEEE 802.3 MAU types and
// autonegotiation modes, PoE power types, sources, priorities and classes, and the
// LLDP-MED device classes, applications and location formats. Each lookup returns
// nullptr for a value that has no name (reserved or newer than this table); nameOr()
// then gives the number in decimal, which is how such a value is shown.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Lldp {

// "name", or the value in decimal when `name` is null.
std::string nameOr(const char* name, unsigned value);

// IEEE 802.3: the operational MAU type of the MAC/PHY Configuration/Status TLV, numbered
// as the last arc of the dot3MauType object identifiers (IANA-MAU-MIB): 36 "10GBASE-SR".
const char* mauTypeName(unsigned mauType);
// The autonegotiation advertised capability field of the same TLV: the modes whose bits
// are set, in bit order. Bit 0 (other) is the most significant bit of the field as it
// travels: 0x8000 is "other", 0x0001 "1000BASE-T full duplex".
std::vector<std::string> autonegModeNames(uint16_t advertised);

// IEEE 802.3 Power via MDI: the power class field (1..5 for classes 0..4), the PSE power
// pair (1 signal, 2 spare), the IEEE 802.3at type (bits 7..6 of type/source/priority),
// source (bits 5..4, read by whether the sender is a PD) and priority (bits 1..0).
const char* powerClassName(unsigned powerClass);
const char* psePowerPairName(unsigned pair);
const char* powerTypeName(unsigned powerType);
const char* powerSourceName(unsigned source, bool fromPd);
const char* powerPriorityName(unsigned priority);
// IEEE 802.3bt additions: the power class ext (bits 3..0 of the power status field) and
// the power type ext (bits 3..1 of the system setup field).
const char* powerClassExtName(unsigned classExt);
const char* powerTypeExtName(unsigned typeExt);

// LLDP-MED (ANSI/TIA-1057): device class, network policy application type, location
// data format and civic address element (CA) type.
const char* medDeviceTypeName(unsigned deviceType);
const char* medApplicationName(unsigned appType);
const char* locationFormatName(unsigned format);
const char* civicCaTypeName(unsigned caType);

}  // namespace Lldp

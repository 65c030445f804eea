// IEEE 802.1 organizationally specific TLVs (OUI 00-80-C2): Port VLAN ID and VLAN Name
// on transmit; every 802.1 subtype on receive.
#pragma once

#include "Framework/Trace.h"
#include "Records/Lldp.h"
#include "Records/TlvParseResult.h"

namespace Lldp {
extern Vel::Trace::Handle traceLldpExtDot1;
}

// Adds the Port VLAN ID TLV when the port sends it. `info` is infoBuf + 4.
bool addExtDot1Tlvs(char** pos, char* end, Vel::Ptr<const Lldp::LocalPort> localPort,
                    Vel::Ptr<const Lldp::PortConfig> portConfig, char* info);
// Adds the port's VLAN Name TLVs in VLAN order until one does not fit, and records on the
// port status which names went out and whether the list was cut short.
bool addVlanNameTlvs(char** pos, char* end, Vel::Ptr<Lldp::PortStatus> portStatus,
                     Vel::Ptr<const Lldp::PortConfig> portConfig, char* info);
// Decodes one received 802.1 TLV (the bytes after OUI and subtype) into `remote`.
TlvParseResult parseExtDot1Tlv(int subtype, int orgDefInfoLen, const char* orgDefInfo,
                               const Vel::Ptr<Lldp::RemoteSystem>& remote);

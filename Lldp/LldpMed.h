// LLDP-MED (ANSI/TIA-1057) organizationally specific TLVs (OUI 00-12-BB): Capabilities and
// Network Policy on transmit; Capabilities, Network Policy, Location Identification and
// the seven inventory TLVs on receive.
#pragma once

#include <functional>

#include "Framework/Trace.h"
#include "Records/Lldp.h"
#include "Records/TlvParseResult.h"

namespace Lldp {
extern Vel::Trace::Handle traceLldpMed;
}

namespace LldpMed {

bool addTlvs(char** pos, char* end, Lldp::LocalPort::PtrConst localPort,
             Lldp::PortConfig::PtrConst portConfig, char* info, Lldp::PortStatus::Ptr portStatus);
TlvParseResult parseTlv(int subtype, int infoLen, const char* info,
                        const Vel::Ptr<Lldp::RemoteSystem>& remote);

}  // namespace LldpMed

namespace Inventory {

TlvParseResult parseTlv(int infoLen, const char* info, const char* name,
                        std::function<void(const Lldp::BoundedString32Tlv&)> store);
TlvParseResult parseHardwareRevisionTlv(int infoLen, const char* info,
                                        const Vel::Ptr<Lldp::RemoteSystem>& remote);
TlvParseResult parseFirmwareRevisionTlv(int infoLen, const char* info,
                                        const Vel::Ptr<Lldp::RemoteSystem>& remote);
TlvParseResult parseSoftwareRevisionTlv(int infoLen, const char* info,
                                        const Vel::Ptr<Lldp::RemoteSystem>& remote);
TlvParseResult parseSerialNumberTlv(int infoLen, const char* info,
                                    const Vel::Ptr<Lldp::RemoteSystem>& remote);
TlvParseResult parseManufacturerNameTlv(int infoLen, const char* info,
                                        const Vel::Ptr<Lldp::RemoteSystem>& remote);
TlvParseResult parseModelNameTlv(int infoLen, const char* info,
                                 const Vel::Ptr<Lldp::RemoteSystem>& remote);
TlvParseResult parseAssetIDTlv(int infoLen, const char* info,
                               const Vel::Ptr<Lldp::RemoteSystem>& remote);

}  // namespace Inventory

// LLDPDU framing: writing and cutting out TLVs in a caller-owned buffer. These functions
// keep no state apart from `infoBuf` and never allocate.
#pragma once

#include "Framework/Trace.h"
#include "Framework/Wire/ByteOrder.h"
#include "Records/Lldp.h"
#include "Records/TlvParseResult.h"

namespace Lldp {

// TLV types.
inline constexpr int tlvTypeEnd = 0;
inline constexpr int tlvTypeChassisId = 1;
inline constexpr int tlvTypePortId = 2;
inline constexpr int tlvTypeTtl = 3;
inline constexpr int tlvTypePortDesc = 4;
inline constexpr int tlvTypeSysName = 5;
inline constexpr int tlvTypeSysDesc = 6;
inline constexpr int tlvTypeSysCap = 7;
inline constexpr int tlvTypeManagementAddress = 8;
inline constexpr int tlvTypeOrgSpecific = 127;

inline constexpr int maxTlvInfoLen = 511;
inline constexpr int orgDefHeaderLen = 4;  // OUI and subtype
inline constexpr int maxOrgDefInfoLen = maxTlvInfoLen - orgDefHeaderLen;

}  // namespace Lldp

// The transmit builder's scratch area for information strings while it runs, null
// otherwise. Organizationally specific content is composed at infoBuf + 4 so that
// putOrgDefTlv can prefix the OUI and subtype in place.
extern char* infoBuf;

// Appends one TLV. Fails softly (false, nothing written) when it does not fit.
bool putTlv(char** pos, char* end, int type, int infoLen, const char* info);
// Appends an organizationally specific TLV whose content is at info == infoBuf + 4.
bool putOrgDefTlv(char** pos, char* end, Lldp::Oui oui, int subtype, int orgDefInfoLen,
                  const char* info);
// Cuts the next TLV out of [*pos, end): *type and *infoLen from its header, *info at its
// information string, *pos past it. Fails when the header is cut short (nothing is
// written) or when the information string runs past end (everything is written, *pos
// then lies beyond end). Never reads outside [*pos, end).
bool extractTlv(const char** pos, const char* end, int* type, int* infoLen, const char** info);
// As extractTlv, and the TLV must be of the expected type with 2..maxInfoLen bytes.
bool extractMandatoryTlv(const char** pos, const char* end, int expectedType, int maxInfoLen,
                         int* infoLen, const char** info);

namespace Lldp {
// Trace handle of the framing, builder and receive processor.
extern Vel::Trace::Handle traceLldpProtocol;
}  // namespace Lldp

namespace Lldp {
namespace Be = Wire::Be;
}  // namespace Lldp

// ---------------------------------------------------------------------------------------
// Transmit.

namespace Lldp::Agent::Protocol {
class Root;
}

// Writes one complete LLDPDU for a port into [start, end) and returns the position just
// past its End of LLDPDU TLV. TLVs that do not fit are left out (and counted); End of
// LLDPDU always fits.
char* buildTxLldpdu(char* start, char* end, Vel::Ptr<const Lldp::Agent::Protocol::Root> root,
                    Vel::Ptr<const Lldp::LocalPort> localPort,
                    Vel::Ptr<const Lldp::PortConfig> portConfig,
                    Vel::Ptr<Lldp::PortStatus> portStatus);
bool putManagementAddress(char** pos, char* end, const Lldp::ManagementAddress& addr);
// The BER encoding of an OID for a Management Address TLV. Only the empty OID is sent.
std::string_view encodeOid(const Snmp::ObjectIdentifier& oid);
bool addExternalTlvs(char** pos, char* end, Vel::Ptr<const Lldp::LocalPort> localPort, char* info,
                     Vel::Ptr<Lldp::PortStatus> portStatus);
bool addZtpBootVlanTlv(char** pos, char* end, Vel::Ptr<const Lldp::LocalPort> localPort,
                       Vel::Ptr<const Lldp::PortConfig> portConfig, char* info);

namespace Lldp {
// The clock the codec stamps records with (seconds); tests and the event loop set it.
Vel::Seconds now();
void clockIs(Vel::Seconds (*clock)());
}  // namespace Lldp

// ---------------------------------------------------------------------------------------
// Receive.

namespace Lldp::Agent::Protocol {
class LldpPamSm;
}

// Turns one received LLDPDU [start, end) into the port's remote-system table: creates,
// updates or (on a time to live of 0) deletes the neighbour. Returns the created or
// updated record; null when the frame was discarded, was a shutdown LLDPDU or the port's
// neighbour limit was reached. A discarded frame changes nothing but the port's counters.
Lldp::RemoteSystem::PtrConst processRxLldpdu(
    char* start, char* end, Lldp::PortConfig::PtrConst portConfig, Lldp::Status::Ptr status,
    Lldp::PortStatus::Ptr portStatus, Lldp::LocalPort::PtrConst localPort,
    Vel::Ptr<Lldp::Agent::Protocol::LldpPamSm> pamSm, const Wire::EthAddr& srcMac);
// Decodes our own ZTP boot VLAN TLV (OUI 02-7E-51).
TlvParseResult parseZtpBootVlanTlv(int subtype, int infoLen, const char* info,
                                   const Vel::Ptr<Lldp::RemoteSystem>& remote);

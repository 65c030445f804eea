#include "Lldp/LldpExtDot1.h"

#include <cstring>
#include <string_view>
#include <type_traits>
#include <utility>

#include "Lldp/LldpProtocol.h"
#include "Lldp/LldpToggles.h"

namespace Lldp {
Vel::Trace::Handle traceLldpExtDot1("LldpExtDot1");
}  // namespace Lldp

using Lldp::traceLldpExtDot1;

namespace {

// Subtypes of the IEEE 802.1 organizationally specific TLVs.
constexpr int dot1SubtypePortVlanId = 1;
constexpr int dot1SubtypePortAndProtocolVlanId = 2;
constexpr int dot1SubtypeVlanName = 3;
constexpr int dot1SubtypeProtocolIdentity = 4;
constexpr int dot1SubtypeVidUsageDigest = 5;
constexpr int dot1SubtypeManagementVid = 6;
constexpr int dot1SubtypeLinkAggregation = 7;

constexpr uint8_t ppvidFlagSupported = 0x02;
constexpr uint8_t ppvidFlagEnabled = 0x04;

constexpr uint16_t maxVlanId = Bridging::VlanId::max;
using VlanNameString = std::remove_cvref_t<decltype(std::declval<Lldp::VlanName>().name())>;
using ProtocolIdentityString =
    std::remove_cvref_t<decltype(std::declval<Lldp::ProtocolIdentityInfo>().identity())>;
// Any identity whose one-byte length fits the TLV fits the record.
static_assert(ProtocolIdentityString::maxBytes >= 255);
constexpr int maxVlanNameLen = static_cast<int>(VlanNameString::maxBytes);

uint8_t byteAt(const char* p) {
   return static_cast<uint8_t>(*p);
}

TlvParseResult parsePortVlanId(int len, const char* p, Lldp::RemoteSystem& remote) {
   if (len < 2) {
      VEL_TRACE(traceLldpExtDot1, 0,
                "Error: Port VLAN ID TLV is too short (orgDefInfoLen=" << len << ")");
      return TlvParseResultFatalError;
   }
   uint16_t pvid = Lldp::Be::get16(p);
   if (pvid > maxVlanId) {
      VEL_TRACE(traceLldpExtDot1, 0, "Error: Port VLAN ID is out-of-range (pvid=" << pvid << ")");
      return TlvParseResultError;
   }
   VEL_TRACE(traceLldpExtDot1, 6, "Port VLAN ID: " << pvid);
   remote.portVlanIdIs(Bridging::VlanIdOrNone(pvid));
   remote.portVlanIdTlvReceivedIs(true);
   return TlvParseResultOk;
}

TlvParseResult parsePortAndProtocolVlanId(int len, const char* p, Lldp::RemoteSystem& remote) {
   if (len < 3) {
      VEL_TRACE(traceLldpExtDot1, 0,
                "Error: Port And Protocol VLAN ID TLV is too short (orgDefInfoLen=" << len << ")");
      return TlvParseResultFatalError;
   }
   uint8_t flags = byteAt(p);
   uint16_t ppvid = Lldp::Be::get16(p + 1);
   bool supported = flags & ppvidFlagSupported;
   bool enabled = flags & ppvidFlagEnabled;
   // Enabled without support is a contradiction in the sender's own report, so the TLV
   // tells us nothing we can trust, whatever the PPVID.
   if (enabled && !supported) {
      VEL_TRACE(traceLldpExtDot1, 0,
                "Error: Port And Protocol VLAN ID is enabled but not supported (ppvid="
                    << ppvid << ", flags=0x" << std::hex << unsigned(flags) << std::dec << ")");
      return TlvParseResultError;
   }
   if (ppvid > maxVlanId) {
      VEL_TRACE(traceLldpExtDot1, 0,
                "Error: Port And Protocol VLAN ID is out-of-range (ppvid=" << ppvid << ")");
      return TlvParseResultError;
   }
   Lldp::PortAndProtocolVlan value(
       {.ppvid = Bridging::VlanIdOrNone(ppvid), .supported = supported, .enabled = enabled});
   VEL_TRACE(traceLldpExtDot1, 6, "Port And Protocol VLAN ID: " << value);
   remote.portAndProtocolVlanIs(value);
   return TlvParseResultOk;
}

TlvParseResult parseVlanName(int len, const char* p, Lldp::RemoteSystem& remote) {
   if (len < 4) {
      VEL_TRACE(traceLldpExtDot1, 0,
                "Error: VLAN Name TLV is too short (orgDefInfoLen=" << len << ")");
      return TlvParseResultFatalError;
   }
   uint16_t vlanId = Lldp::Be::get16(p);
   int nameLen = byteAt(p + 2);
   if (nameLen < 1 || nameLen > maxVlanNameLen) {
      VEL_TRACE(traceLldpExtDot1, 0,
                "Error: VLAN Name length is out-of-range (vlanNameLen=" << nameLen << ")");
      return TlvParseResultError;
   }
   if (vlanId < Bridging::VlanId::min || vlanId > maxVlanId) {
      VEL_TRACE(traceLldpExtDot1, 0,
                "Error: VLAN Name VLAN ID is out-of-range (vlanId=" << vlanId << ")");
      return TlvParseResultError;
   }
   // A name that claims more bytes than the TLV holds means the framing itself is off.
   if (nameLen + 3 > len) {
      VEL_TRACE(traceLldpExtDot1, 0,
                "Error: VLAN Name TLV is too short (orgDefInfoLen=" << len << ", vlanNameLen="
                                                                    << nameLen << ")");
      return TlvParseResultFatalError;
   }
   Lldp::VlanName value(
       {.vlanId = Bridging::VlanId(vlanId),
        .name = VlanNameString(std::string_view(p + 3, static_cast<size_t>(nameLen)))});
   VEL_TRACE(traceLldpExtDot1, 6, "VLAN Name: " << value);
   remote.vlanNameIs(value);
   return TlvParseResultOk;
}

TlvParseResult parseProtocolIdentity(int len, const char* p, Lldp::RemoteSystem& remote) {
   // The length byte itself must be there before it can be read.
   if (len < 1) {
      VEL_TRACE(traceLldpExtDot1, 0,
                "Error: Protocol Identity TLV is too short (orgDefInfoLen=" << len << ")");
      return TlvParseResultFatalError;
   }
   int idLen = byteAt(p);
   if (idLen == 0) {
      VEL_TRACE(traceLldpExtDot1, 0,
                "Error: Protocol Identity length is out-of-range (protoIdLen=" << idLen << ")");
      return TlvParseResultError;
   }
   if (idLen + 1 > len) {
      VEL_TRACE(traceLldpExtDot1, 0,
                "Error: Protocol Identity TLV is too short (orgDefInfoLen="
                    << len << ", protoIdLen=" << idLen << ")");
      return TlvParseResultFatalError;
   }
   // Identities carry no key of their own; they are numbered in order of arrival.
   int index = static_cast<int>(remote.protocolIdentityInfo().size()) + 1;
   Lldp::ProtocolIdentityInfo value(
       {.index = Lldp::ProtocolIdentityIndex(index),
        .identity = ProtocolIdentityString(std::string_view(p + 1, static_cast<size_t>(idLen)))});
   VEL_TRACE(traceLldpExtDot1, 6, "Protocol Identity: " << value);
   remote.protocolIdentityInfoIs(value);
   return TlvParseResultOk;
}

TlvParseResult parseVidUsageDigest(int len, const char* p, Lldp::RemoteSystem& remote) {
   if (len < 4) {
      VEL_TRACE(traceLldpExtDot1, 0,
                "Error: VID Usage Digest TLV is too short (orgDefInfoLen=" << len << ")");
      return TlvParseResultFatalError;
   }
   uint32_t digest = Lldp::Be::get32(p);
   VEL_TRACE(traceLldpExtDot1, 6, "VID Usage Digest: 0x" << std::hex << digest << std::dec);
   remote.vidUsageDigestIs(digest);
   remote.vidUsageDigestTlvReceivedIs(true);
   return TlvParseResultOk;
}

TlvParseResult parseManagementVid(int len, const char* p, Lldp::RemoteSystem& remote) {
   if (len < 2) {
      VEL_TRACE(traceLldpExtDot1, 0,
                "Error: Management VID TLV is too short (orgDefInfoLen=" << len << ")");
      return TlvParseResultFatalError;
   }
   uint16_t mvid = Lldp::Be::get16(p);
   if (mvid > maxVlanId) {
      VEL_TRACE(traceLldpExtDot1, 0, "Error: Management VID is out-of-range (mvid=" << mvid << ")");
      return TlvParseResultError;
   }
   VEL_TRACE(traceLldpExtDot1, 6, "Management VID: " << mvid);
   remote.managementVidIs(Bridging::VlanIdOrNone(mvid));
   remote.managementVidTlvReceivedIs(true);
   return TlvParseResultOk;
}

TlvParseResult parseLinkAggregation(int len, const char* p, Lldp::RemoteSystem& remote) {
   if (len < 5) {
      VEL_TRACE(traceLldpExtDot1, 0,
                "Error: Link Aggregation TLV is too short (orgDefInfoLen=" << len << ")");
      return TlvParseResultFatalError;
   }
   Lldp::LinkAggregationInfo value(
       {.status = Lldp::LinkAggStatusMap(byteAt(p)), .aggregatedPortId = Lldp::Be::get32(p + 1)});
   VEL_TRACE(traceLldpExtDot1, 6, "Link Aggregation: " << value);
   remote.linkAggregationInfoIs(value);
   remote.linkAggregationTlvReceivedIs(true);
   return TlvParseResultOk;
}

}  // namespace

bool addExtDot1Tlvs(char** pos, char* end, Vel::Ptr<const Lldp::LocalPort> localPort,
                    Vel::Ptr<const Lldp::PortConfig> portConfig, char* info) {
   // Without the records there is nothing to advertise; that is not a lack of room.
   if (!localPort || !portConfig) return true;
   if (!portConfig->portVlanTxEnable()) return true;
   // Sent exactly as stored: 0 tells the neighbour that the port has no PVID.
   uint16_t pvid = localPort->portVlanId().value();
   Lldp::Be::put16(info, pvid);
   bool ok = putOrgDefTlv(pos, end, Lldp::ouiIeee8021, dot1SubtypePortVlanId, 2, info);
   if (ok) {
      VEL_TRACE(traceLldpExtDot1, 6, "Added Port VLAN ID: pvid=" << pvid);
   } else {
      VEL_TRACE(traceLldpExtDot1, 2, "Not enough space to add Port VLAN ID");
   }
   return ok;
}

bool addVlanNameTlvs(char** pos, char* end, Vel::Ptr<Lldp::PortStatus> portStatus,
                     Vel::Ptr<const Lldp::PortConfig> portConfig, char* info) {
   if (!portStatus || !portConfig) return true;
   // When names are not sent at all, nothing went out and nothing is missing, so only
   // the record of sent names changes; the flags keep describing the last real attempt.
   if (!Lldp::toggleTxVlanNames()) {
      portStatus->sentVlanNameDelAll();
      return true;
   }
   if (!portConfig->vlanNameTxEnable()) {
      portStatus->sentVlanNameDelAll();
      return true;
   }
   portStatus->sentVlanNameDelAll();
   portStatus->vlanNamesChangedIs(false);
   // The collection is ordered by VLAN ID, so a frame that runs out of room always
   // carries the lowest VLANs.
   for (const auto& [vlanId, vlanName] : portStatus->vlanName()) {
      const auto& name = vlanName.name();
      int nameLen = static_cast<int>(name.size());
      Lldp::Be::put16(info, vlanId.value());
      info[2] = static_cast<char>(nameLen & 0xff);
      if (nameLen) std::memcpy(info + 3, name.data(), static_cast<size_t>(nameLen));
      if (!putOrgDefTlv(pos, end, Lldp::ouiIeee8021, dot1SubtypeVlanName, nameLen + 3, info)) {
         VEL_TRACE(traceLldpExtDot1, 2, "Not enough space to add Vlan Name TLV");
         portStatus->vlanNamesIncompleteIs(true);
         return false;
      }
      portStatus->sentVlanNameIs(vlanName);
      VEL_TRACE(traceLldpExtDot1, 6,
                "Added Vlan Name TLV: vlanId: " << vlanId << ", name: " << name);
   }
   portStatus->vlanNamesIncompleteIs(false);
   return true;
}

TlvParseResult parseExtDot1Tlv(int subtype, int orgDefInfoLen, const char* orgDefInfo,
                               const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   Lldp::RemoteSystem& r = *remote;
   switch (subtype) {
      case dot1SubtypePortVlanId:
         return parsePortVlanId(orgDefInfoLen, orgDefInfo, r);
      case dot1SubtypePortAndProtocolVlanId:
         return parsePortAndProtocolVlanId(orgDefInfoLen, orgDefInfo, r);
      case dot1SubtypeVlanName:
         return parseVlanName(orgDefInfoLen, orgDefInfo, r);
      case dot1SubtypeProtocolIdentity:
         return parseProtocolIdentity(orgDefInfoLen, orgDefInfo, r);
      case dot1SubtypeVidUsageDigest:
         return parseVidUsageDigest(orgDefInfoLen, orgDefInfo, r);
      case dot1SubtypeManagementVid:
         return parseManagementVid(orgDefInfoLen, orgDefInfo, r);
      case dot1SubtypeLinkAggregation:
         return parseLinkAggregation(orgDefInfoLen, orgDefInfo, r);
      default:
         VEL_TRACE(traceLldpExtDot1, 8,
                   "Unrecognized 802.1 Organizationally Specific TLV (subtype=" << subtype << ")");
         return TlvParseResultUnrecognized;
   }
}

#include "Records/LldpExtDot3Parse.h"

#include <cstdint>

#include "Framework/Wire/ByteOrder.h"

namespace Lldp {
Vel::Trace::Handle traceLldpExtDot3("LldpExtDot3");
}  // namespace Lldp

using Lldp::traceLldpExtDot3;

// Length policy for every subtype:
//  - fewer bytes than the smallest layout of the subtype: FatalError. A TLV that claims to
//    be shorter than any valid layout has a length we cannot trust, so the whole LLDPDU is
//    discarded, as for truncated TLVs of the other families;
//  - at least that many, but not exactly one of the layouts of the subtype: Error. The
//    TLV is dropped and counted, the rest of the LLDPDU is still used;
//  - an exact layout: decoded and stored, Ok.
// Nothing is written to the record until the length has been accepted, so a rejected TLV
// leaves the record as it was.

namespace {

using Wire::Be::get16;
using Wire::Be::get24;
using Wire::Be::get32;

constexpr int subtypeMacPhyConfigStatus = 1;
constexpr int subtypePowerViaMdi = 2;
constexpr int subtypeLinkAggregation = 3;
constexpr int subtypeMaxFrameSize = 4;

constexpr int macPhyConfigStatusLen = 5;
constexpr int linkAggregationLen = 5;
constexpr int maxFrameSizeLen = 2;

// Checks a subtype with a single layout of `expected` bytes.
TlvParseResult checkFixedLength(const char* name, int infoLen, int expected) {
   if (infoLen < expected) {
      VEL_TRACE(traceLldpExtDot3, 0,
                "Error: " << name << " TLV is too short (orgDefInfoLen=" << infoLen << ")");
      return TlvParseResultFatalError;
   }
   if (infoLen != expected) {
      VEL_TRACE(traceLldpExtDot3, 0,
                "Error: " << name << " TLV has invalid length (orgDefInfoLen=" << infoLen << ")");
      return TlvParseResultError;
   }
   return TlvParseResultOk;
}

TlvParseResult parseMacPhyConfigStatus(int infoLen, const char* info,
                                       const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   TlvParseResult r =
       checkFixedLength("MAC/PHY Configuration/Status", infoLen, macPhyConfigStatusLen);
   if (r != TlvParseResultOk) return r;
   const uint8_t autoneg = static_cast<uint8_t>(info[0]);
   Lldp::MacPhyConfigStatusInfo v;
   v.autonegSupportedIs((autoneg & 0x01) != 0);
   v.autonegEnabledIs((autoneg & 0x02) != 0);
   v.pmdAutonegAdvertisedCapabilityIs(get16(info + 1));
   v.operationalMauTypeIs(get16(info + 3));
   remote->macPhyConfigStatusInfoIs(v);
   remote->macPhyConfigStatusTlvReceivedIs(true);
   VEL_TRACE(traceLldpExtDot3, 6, "Parsed MAC/PHY Configuration/Status: " << v);
   return TlvParseResultOk;
}

TlvParseResult parsePowerViaMdi(int infoLen, const char* info,
                                const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   using Info = Lldp::PowerViaMdiInfo;
   if (infoLen < static_cast<int>(Info::dot3afLen)) {
      VEL_TRACE(traceLldpExtDot3, 0,
                "Error: Power Via MDI TLV is too short (orgDefInfoLen=" << infoLen << ")");
      return TlvParseResultFatalError;
   }
   uint8_t form;
   switch (infoLen) {
      case Info::dot3afLen:
         form = Info::formDot3af;
         break;
      case Info::dot3atLen:
         form = Info::formDot3at;
         break;
      case Info::dot3btLen:
         form = Info::formDot3bt;
         break;
      default:
         VEL_TRACE(traceLldpExtDot3, 0,
                   "Error: Power Via MDI TLV has invalid length (orgDefInfoLen=" << infoLen << ")");
         return TlvParseResultError;
   }
   Info v;
   v.formIs(form);
   v.mdiPowerSupportIs(static_cast<uint8_t>(info[0]));
   v.psePowerPairIs(static_cast<uint8_t>(info[1]));
   v.powerClassIs(static_cast<uint8_t>(info[2]));
   if (form >= Info::formDot3at) {
      v.typeSourcePriorityIs(static_cast<uint8_t>(info[3]));
      v.pdRequestedPowerIs(get16(info + 4));
      v.pseAllocatedPowerIs(get16(info + 6));
   }
   if (form == Info::formDot3bt) {
      v.pdRequestedPowerAIs(get16(info + 8));
      v.pdRequestedPowerBIs(get16(info + 10));
      v.pseAllocatedPowerAIs(get16(info + 12));
      v.pseAllocatedPowerBIs(get16(info + 14));
      v.powerStatusIs(get16(info + 16));
      v.systemSetupIs(static_cast<uint8_t>(info[18]));
      v.pseMaxAvailablePowerIs(get16(info + 19));
      v.autoclassIs(static_cast<uint8_t>(info[21]));
      v.powerDownIs(get24(info + 22));
   }
   remote->powerViaMdiInfoIs(v);
   remote->powerViaMdiTlvReceivedIs(true);
   VEL_TRACE(traceLldpExtDot3, 6, "Parsed Power Via MDI: " << v);
   return TlvParseResultOk;
}

TlvParseResult parseLinkAggregation(int infoLen, const char* info,
                                    const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   TlvParseResult r = checkFixedLength("Link Aggregation", infoLen, linkAggregationLen);
   if (r != TlvParseResultOk) return r;
   Lldp::LinkAggregationInfo v({.status = Lldp::LinkAggStatusMap(static_cast<uint8_t>(info[0])),
                                .aggregatedPortId = get32(info + 1)});
   remote->linkAggregationInfoIs(v);
   remote->linkAggregationTlvReceivedIs(true);
   VEL_TRACE(
       traceLldpExtDot3, 6,
       "Parsed Link Aggregation: status=" << v.status() << ", portId=" << v.aggregatedPortId());
   return TlvParseResultOk;
}

TlvParseResult parseMaxFrameSize(int infoLen, const char* info,
                                 const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   TlvParseResult r = checkFixedLength("Maximum Frame Size", infoLen, maxFrameSizeLen);
   if (r != TlvParseResultOk) return r;
   Lldp::MaximumFrameSizeInfo v({.maxFrameSize = get16(info)});
   remote->maximumFrameSizeInfoIs(v);
   remote->maximumFrameSizeTlvReceivedIs(true);
   VEL_TRACE(traceLldpExtDot3, 6, "Parsed Maximum Frame Size: maxFrameSize=" << v.maxFrameSize());
   return TlvParseResultOk;
}

}  // namespace

TlvParseResult parseExtDot3Tlv(int subtype, int infoLen, const char* info,
                               const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   switch (subtype) {
      case subtypeMacPhyConfigStatus:
         return parseMacPhyConfigStatus(infoLen, info, remote);
      case subtypePowerViaMdi:
         return parsePowerViaMdi(infoLen, info, remote);
      case subtypeLinkAggregation:
         return parseLinkAggregation(infoLen, info, remote);
      case subtypeMaxFrameSize:
         return parseMaxFrameSize(infoLen, info, remote);
      default:
         VEL_TRACE(traceLldpExtDot3, 8,
                   "Unrecognized IEEE 802.3 TLV subtype " << subtype
                                                          << " (orgDefInfoLen=" << infoLen << ")");
         return TlvParseResultUnrecognized;
   }
}

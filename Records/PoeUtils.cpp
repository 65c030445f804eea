// What a PoE port of this switch says in its Power via MDI TLV. The switch is always the
// power sourcing equipment (PSE); the neighbour, when it asks for power, is a powered
// device (PD). Powers are in units of 0.1 W throughout, as on the wire.
//
// buildPowerViaMdiTlv: the power agent has reported on the port.
//  - Base (IEEE 802.3af) part, always sent:
//     MDI power support: PSE (0x01) | PSE MDI power supported (0x02), plus
//       enabled (0x04) while the port is delivering power, and pair control (0x08) for a
//       type 3 or 4 PSE, which can choose the pairs it powers;
//     PSE power pair: the power agent's pair (1 signal, 2 spare), 1 when it gave none;
//     power class: the wire numbering, IEEE class + 1, so class 0 is 1 and class 4 is 5.
//       Classes above 4 (IEEE 802.3bt) are reported as 5 here; the full class only fits
//       in the 802.3bt power status.
//  - IEEE 802.3at part, when the port has heard a Power via MDI TLV from a neighbour (so
//    the neighbour can negotiate) or the PSE is type 2 or above:
//     type/source/priority: power type in bits 7..6 (0b00 type 2 or higher PSE, 0b10 type 1
//       PSE), power source in bits 5..4 (from the power agent: 1 primary, 2 backup),
//       priority in bits 1..0 (1 critical, 2 high, 3 low, 0 unknown);
//     PD requested power: echoed from the neighbour the port answers (the local port PoE
//       record's remote system), so that the PD sees its request acknowledged; 0 when
//       there is no such neighbour;
//     PSE allocated power: what the power agent allocated.
//  - IEEE 802.3bt part, when that neighbour itself sent the 802.3bt form and the PSE is
//    type 3 or 4:
//     PD requested power mode A and B: echoed;
//     PSE allocated power alternative A and B: the requested per-pair values when the
//       port is delivering and the allocation covers both, otherwise 0 (we do not learn a
//       per-pair split from the power agent, so we only confirm a request we can meet);
//     power status: the PD's own fields (PD powered status, bits 13..12, and the class
//       fields, bits 9..0) are echoed; the PSE fields are ours. While delivering, the
//       powering status (bits 15..14) is 4-pair dual-signature for a dual-signature PD,
//       4-pair single-signature when more than 30 W are allocated (beyond what two pairs
//       carry), otherwise 2-pair; the power pairs (bits 11..10) are both alternatives for
//       4-pair powering, else alternative A or B by the PSE power pair. Not delivering:
//       both PSE fields are 0;
//     PSE maximum available power: from the power agent;
//     system setup, autoclass, power down: 0 (no autoclass, no power-down request).
//  The length returned is 3, 8 or 25.
//
// maybeBuildFallbackPowerViaMdiTlv: the power agent has not reported yet, but the port
// is configured with a fallback allocation (poeAllocatedPowerFallback, milliwatts, 0 for
// none). A PD that asks for power over LLDP may otherwise wait indefinitely for an
// answer, so when one of the port's neighbours has sent a request (IEEE 802.3at or bt
// form, from a PD) we reply in the 802.3at form: PSE, supported and enabled; pair 1
// (signal); the PD's own power class echoed (class 0 if it sent none that is valid); type
// 2 PSE with primary source and unknown priority; the PD's requested power echoed; and an
// allocation of min(requested, fallback). The neighbour answered is the one the port's
// PoE record names when it qualifies, otherwise the first qualifying neighbour by index.
// A request in the 802.3af form carries no requested power, so it gets no reply. Without
// a configuration, a fallback or a request there is nothing to send: 0.

#include "Records/PoeUtils.h"

#include <algorithm>
#include <cstdint>

#include "Framework/Wire/ByteOrder.h"
#include "Records/LldpExtDot3Parse.h"

using Lldp::traceLldpExtDot3;

namespace {

using PoeStatus = Environment::Power::PoePortStatus::PortStatus;
using Lldp::PowerViaMdiInfo;

constexpr uint8_t mdiPortClassPse = 0x01;
constexpr uint8_t mdiPowerSupported = 0x02;
constexpr uint8_t mdiPowerEnabled = 0x04;
constexpr uint8_t mdiPairControl = 0x08;

constexpr uint8_t powerTypeType2Pse = 0x0 << 6;
constexpr uint8_t powerTypeType1Pse = 0x2 << 6;
constexpr uint8_t powerSourcePrimary = 0x1 << 4;

constexpr uint8_t powerClassMax = 5;  // wire value of IEEE class 4

// Power status (IEEE 802.3bt) fields.
constexpr uint16_t psePowering2Pair = 0x1 << 14;
constexpr uint16_t psePowering4PairSingle = 0x2 << 14;
constexpr uint16_t psePowering4PairDual = 0x3 << 14;
constexpr uint16_t pdPoweredStatusMask = 0x3 << 12;
constexpr uint16_t pdPoweredDual2Pair = 0x2 << 12;
constexpr uint16_t pdPoweredDual4Pair = 0x3 << 12;
constexpr uint16_t psePairsAltA = 0x1 << 10;
constexpr uint16_t psePairsAltB = 0x2 << 10;
constexpr uint16_t psePairsBoth = 0x3 << 10;
constexpr uint16_t pdClassFieldsMask = 0x03ff;

constexpr uint16_t twoPairMaxPower = 300;  // 30 W in units of 0.1 W

using Wire::Be::put16;
using Wire::Be::put24;

// The PSE side of the 802.3bt power status for a port in `status` answering a PD that
// reported `pdStatus`.
uint16_t psePowerStatus(const PoeStatus& status, uint16_t pdStatus) {
   uint16_t out = pdStatus & (pdPoweredStatusMask | pdClassFieldsMask);
   if (status.state() != PoeStatus::stateDelivering) return out;
   const uint16_t pdPowered = pdStatus & pdPoweredStatusMask;
   if (pdPowered == pdPoweredDual2Pair || pdPowered == pdPoweredDual4Pair) {
      out |= psePowering4PairDual | psePairsBoth;
   } else if (status.allocatedPower() > twoPairMaxPower) {
      out |= psePowering4PairSingle | psePairsBoth;
   } else {
      out |= psePowering2Pair | (status.psePowerPair() == 2 ? psePairsAltB : psePairsAltA);
   }
   return out;
}

// A neighbour whose Power via MDI TLV is a PD's request we can answer.
bool isPdPowerRequest(const Lldp::RemoteSystem& r) {
   const PowerViaMdiInfo& p = r.powerViaMdiInfo();
   return r.powerViaMdiTlvReceived() && p.form() >= PowerViaMdiInfo::formDot3at && !p.fromPse();
}

}  // namespace

namespace PoeUtils {

int buildPowerViaMdiTlv(char* info, const Lldp::LocalPortPoeInfo& poeInfo,
                        bool powerViaMdiTlvReceived) {
   const PoeStatus& status = poeInfo.poePortStatus();
   const bool delivering = status.state() == PoeStatus::stateDelivering;

   uint8_t support = mdiPortClassPse | mdiPowerSupported;
   if (delivering) support |= mdiPowerEnabled;
   if (status.pseType() >= 3) support |= mdiPairControl;
   info[0] = static_cast<char>(support);
   info[1] = static_cast<char>(status.psePowerPair() ? status.psePowerPair() : 1);
   info[2] = static_cast<char>(std::min<int>(status.powerClass() + 1, powerClassMax));
   if (!powerViaMdiTlvReceived && status.pseType() < 2) {
      VEL_TRACE(traceLldpExtDot3, 8, "Power Via MDI (IEEE Std 802.3af) from " << status);
      return PowerViaMdiInfo::dot3afLen;
   }

   const Lldp::RemoteSystem* remote = poeInfo.remoteSystem().ptr();
   const PowerViaMdiInfo* request = remote ? &remote->powerViaMdiInfo() : nullptr;
   const uint8_t type = status.pseType() >= 2 ? powerTypeType2Pse : powerTypeType1Pse;
   info[3] =
       static_cast<char>(type | ((status.powerSource() & 0x3) << 4) | (status.priority() & 0x3));
   put16(info + 4, request ? request->pdRequestedPower() : 0);
   put16(info + 6, status.allocatedPower());
   if (!request || request->form() != PowerViaMdiInfo::formDot3bt || status.pseType() < 3) {
      VEL_TRACE(traceLldpExtDot3, 8, "Power Via MDI (IEEE Std 802.3at) from " << status);
      return PowerViaMdiInfo::dot3atLen;
   }

   const uint16_t reqA = request->pdRequestedPowerA();
   const uint16_t reqB = request->pdRequestedPowerB();
   const bool meetPerPair =
       delivering && (reqA || reqB) && uint32_t(reqA) + reqB <= uint32_t(status.allocatedPower());
   put16(info + 8, reqA);
   put16(info + 10, reqB);
   put16(info + 12, meetPerPair ? reqA : 0);
   put16(info + 14, meetPerPair ? reqB : 0);
   put16(info + 16, psePowerStatus(status, request->powerStatus()));
   info[18] = 0;  // system setup
   put16(info + 19, status.maxAvailablePower());
   info[21] = 0;         // autoclass
   put24(info + 22, 0);  // power down
   VEL_TRACE(traceLldpExtDot3, 8, "Power Via MDI (IEEE Std 802.3bt) from " << status);
   return PowerViaMdiInfo::dot3btLen;
}

int maybeBuildFallbackPowerViaMdiTlv(char* info, const Lldp::LocalPortPoeInfo& poeInfo,
                                     bool powerViaMdiTlvReceived,
                                     Lldp::PortConfig::PtrConst portConfig,
                                     Lldp::PortStatus::Ptr portStatus) {
   if (!portConfig || portConfig->poeAllocatedPowerFallback() == 0) return 0;
   // The flag is the port's own summary of its neighbours: without it nobody asked.
   if (!powerViaMdiTlvReceived || !portStatus) return 0;

   const Lldp::RemoteSystem* remote = poeInfo.remoteSystem().ptr();
   if (!remote || !isPdPowerRequest(*remote)) {
      remote = nullptr;
      for (const auto& [index, r] : portStatus->remoteSystem()) {
         if (isPdPowerRequest(*r)) {
            remote = r.ptr();
            break;
         }
      }
   }
   if (!remote) {
      VEL_TRACE(
          traceLldpExtDot3, 8,
          "No power request from a PD on " << portStatus->intfId() << " for the fallback reply");
      return 0;
   }

   const PowerViaMdiInfo& request = remote->powerViaMdiInfo();
   const uint32_t fallback =
       std::min<uint32_t>(portConfig->poeAllocatedPowerFallback() / 100, UINT16_MAX);
   const uint16_t requested = request.pdRequestedPower();
   const uint16_t allocated = static_cast<uint16_t>(std::min<uint32_t>(requested, fallback));
   const uint8_t pdClass = request.powerClass();

   info[0] = static_cast<char>(mdiPortClassPse | mdiPowerSupported | mdiPowerEnabled);
   info[1] = 1;
   info[2] = static_cast<char>(pdClass >= 1 && pdClass <= powerClassMax ? pdClass : 1);
   info[3] = static_cast<char>(powerTypeType2Pse | powerSourcePrimary);
   put16(info + 4, requested);
   put16(info + 6, allocated);
   VEL_TRACE(traceLldpExtDot3, 6,
             "Fallback Power Via MDI on " << portStatus->intfId() << ": requested=" << requested
                                          << ", allocated=" << allocated);
   return PowerViaMdiInfo::dot3atLen;
}

}  // namespace PoeUtils

#include "Lldp/LldpExtDot3.h"

#include "Framework/Assert.h"
#include "Lldp/LldpProtocol.h"

using Lldp::traceLldpExtDot3;

namespace {

constexpr int subtypePowerViaMdi = 2;
constexpr int subtypeLinkAggregation = 3;
constexpr int subtypeMaxFrameSize = 4;

constexpr int linkAggregationLen = 5;
constexpr int maxFrameSizeLen = 2;

}  // namespace

// Each TLV that does not fit is skipped and the next is still tried: putTlv leaves the
// position where it was, so a smaller TLV may still fit after a larger one did not.
bool addExtDot3Tlvs(char** pos, char* end, Lldp::LocalPort::PtrConst localPort,
                    Lldp::PortConfig::PtrConst portConfig, char* info,
                    Lldp::PortStatus::Ptr portStatus) {
   // We never advertise MAC/PHY Configuration/Status; the configuration must not ask.
   VEL_ASSERT(!portConfig->dot3EnabledTlvs().macPhyConfigStatus(),
              "!portConfig->dot3EnabledTlvs().macPhyConfigStatus()");
   const Lldp::Dot3EnabledTlvs enabled = portConfig->dot3EnabledTlvs();
   bool failed = false;

   if (enabled.powerViaMdi()) {
      const Lldp::LocalPortPoeInfo* poeInfo = localPort->localPortPoeInfo().ptr();
      if (!poeInfo) {
         VEL_TRACE(traceLldpExtDot3, 8,
                   "No PoE information on " << localPort->intfId() << ", no Power Via MDI");
      } else {
         const bool received = portStatus && portStatus->powerViaMdiTlvReceived();
         const int len = poeInfo->readyToSendTlv()
                             ? PoeUtils::buildPowerViaMdiTlv(info, *poeInfo, received)
                             : PoeUtils::maybeBuildFallbackPowerViaMdiTlv(info, *poeInfo, received,
                                                                          portConfig, portStatus);
         if (len >= 1) {
            if (putOrgDefTlv(pos, end, Lldp::ouiIeee8023, subtypePowerViaMdi, len, info)) {
               VEL_TRACE(traceLldpExtDot3, 6, "Added Power Via MDI: length=" << len);
            } else {
               failed = true;
               VEL_TRACE(traceLldpExtDot3, 2,
                         "Not enough space to Power Via MDI TLV (IEEE Std 802.3at)");
            }
         }
      }
   }

   if (enabled.linkAggregation()) {
      const Lldp::LinkAggregationInfo& agg = localPort->linkAggregationInfo();
      info[0] = static_cast<char>(agg.status().value());
      Lldp::Be::put32(info + 1, agg.aggregatedPortId());
      if (putOrgDefTlv(pos, end, Lldp::ouiIeee8023, subtypeLinkAggregation, linkAggregationLen,
                       info)) {
         VEL_TRACE(traceLldpExtDot3, 6,
                   "Added Link Aggregation: status=0x" << std::hex << unsigned(agg.status().value())
                                                       << std::dec
                                                       << ", portId=" << agg.aggregatedPortId());
      } else {
         failed = true;
         VEL_TRACE(traceLldpExtDot3, 2, "Not enough space to add Link Aggregation");
      }
   }

   if (enabled.maxFrameSize()) {
      const uint16_t maxFrameSize = localPort->maximumFrameSizeInfo().maxFrameSize();
      Lldp::Be::put16(info, maxFrameSize);
      if (putOrgDefTlv(pos, end, Lldp::ouiIeee8023, subtypeMaxFrameSize, maxFrameSizeLen, info)) {
         VEL_TRACE(traceLldpExtDot3, 6, "Added Maximum Frame Size: maxFrameSize=" << maxFrameSize);
      } else {
         VEL_TRACE(traceLldpExtDot3, 2, "Not enough space to add Maximum Frame Size");
         return false;
      }
   }

   return !failed;
}

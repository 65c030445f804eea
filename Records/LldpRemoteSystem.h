// A neighbour as learnt from its LLDPDUs: one record per MSAP (chassis ID + port ID) on
// a port. Every optional TLV's decoded content lives here; an attribute whose TLV the
// neighbour stopped sending returns to its default on the next update.
#pragma once

#include <string>
#include <string_view>

#include "Framework/Vel/CompactMap.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Vel/SharedBytes.h"
#include "Records/LldpValues.h"

namespace Lldp {

// MAC service access point identifier: what tells one neighbour from another on a port.
// clang-format off
#define LLDP_MSAP_FIELDS(F) \
   F(ChassisIdentifier, chassisIdentifier, {}) F(PortIdentifier, portIdentifier, {})
// clang-format on
class Msap {
   VEL_VALUE(Msap, LLDP_MSAP_FIELDS)
};

// clang-format off
#define LLDP_REMOTE_SYSTEM_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(int, index)                                                              \
   KEY(Msap, msap)                                                              \
   ATTR(Wire::EthAddr, ethAddr, {})                                             \
   ATTR(uint16_t, ttl, 0)                                                       \
   ATTR(Vel::Seconds, creationTime, 0)                                          \
   ATTR(Vel::Seconds, lastRefreshTime, 0)                                       \
   ATTR(Vel::Seconds, lastChangeTime, 0)                                        \
   ATTR(Vel::Seconds, expiryTime, 0)                                            \
   ATTR(BoundedString255Tlv, portDesc, {})                                      \
   ATTR(BoundedString255Tlv, sysName, {})                                       \
   ATTR(BoundedString255Tlv, sysDesc, {})                                       \
   ATTR(SystemCapabilitiesTlv, systemCapabilities, {})                          \
   COLL(ManagementAddress::Key, ManagementAddress, managementAddress)           \
   COLL(uint8_t, UnknownTlv, unknownTlv)                                        \
   COLL(UnknownOrgDefTlv::Key, UnknownOrgDefTlv, unknownOrgDefTlv)              \
   ATTR(Bridging::VlanIdOrNone, portVlanId, {})                                 \
   ATTR(bool, portVlanIdTlvReceived, false)                                     \
   COLL(Bridging::VlanIdOrNone, PortAndProtocolVlan, portAndProtocolVlan)       \
   COLL(Bridging::VlanId, VlanName, vlanName)                                   \
   COLL(int, ProtocolIdentityInfo, protocolIdentityInfo)                        \
   ATTR(uint32_t, vidUsageDigest, 0)                                            \
   ATTR(bool, vidUsageDigestTlvReceived, false)                                 \
   ATTR(Bridging::VlanIdOrNone, managementVid, {})                              \
   ATTR(bool, managementVidTlvReceived, false)                                  \
   ATTR(LinkAggregationInfo, linkAggregationInfo, {})                           \
   ATTR(bool, linkAggregationTlvReceived, false)                                \
   ATTR(MacPhyConfigStatusInfo, macPhyConfigStatusInfo, {})                     \
   ATTR(bool, macPhyConfigStatusTlvReceived, false)                             \
   ATTR(PowerViaMdiInfo, powerViaMdiInfo, {})                                   \
   ATTR(bool, powerViaMdiTlvReceived, false)                                    \
   ATTR(MaximumFrameSizeInfo, maximumFrameSizeInfo, {})                         \
   ATTR(bool, maximumFrameSizeTlvReceived, false)                               \
   ATTR(MedCapabilitiesInfo, medCapabilitiesInfo, {})                           \
   ATTR(bool, medCapabilitiesTlvReceived, false)                                \
   COLL(uint8_t, NetworkPolicyTlv, networkPolicyTlv)                            \
   ATTR(LocationId, locationId, {})                                             \
   ATTR(BoundedString32Tlv, hardwareRevisionTlvInfo, {})                        \
   ATTR(BoundedString32Tlv, firmwareRevisionTlvInfo, {})                        \
   ATTR(BoundedString32Tlv, softwareRevisionTlvInfo, {})                        \
   ATTR(BoundedString32Tlv, serialNumberTlvInfo, {})                            \
   ATTR(BoundedString32Tlv, manufacturerNameTlvInfo, {})                        \
   ATTR(BoundedString32Tlv, modelNameTlvInfo, {})                               \
   ATTR(BoundedString32Tlv, assetIDTlvInfo, {})                                 \
   ATTR(Bridging::VlanIdOrNone, ztpBootVlan, {})
// clang-format on

class RemoteSystem : public Vel::Entity {
public:
   using Msap = Lldp::Msap;
   VEL_ENTITY(RemoteSystem, LLDP_REMOTE_SYSTEM_ATTRS)
   RemoteSystem(int index, const Msap& msap) : index_(index), msap_(msap) {}

   // Whether this neighbour sent any LLDP-MED TLV in its last LLDPDU.
   bool anyLldpMedReceived() const;

   // The receive path's memory of the optional TLVs (every byte after the TTL TLV) of the
   // LLDPDU this record was last brought up to date from, kept only when that LLDPDU
   // decoded without error, with the number of unrecognised TLVs it held and the decoder
   // settings it was decoded under. A neighbour that sends the same bytes again changes
   // nothing here, so the receive path then skips decoding altogether. Not an attribute:
   // it is never exported, printed or notified, and only the receive path writes it. The
   // bytes are shared with every other neighbour that last sent the same ones.
   struct RxCache {
      const Vel::SharedBytes& optionalTlvs;
      uint32_t unrecognizedTlvs;
      uint8_t decoderSettings;
      bool valid;
   };
   RxCache rxCache() const {
      return {rxOptionalTlvs_, rxUnrecognizedTlvs_, rxDecoderSettings_, rxCacheValid_};
   }
   void rxCacheIs(std::string_view optionalTlvs, uint32_t unrecognizedTlvs,
                  uint8_t decoderSettings) {
      rxOptionalTlvs_.assign(optionalTlvs);  // no copy when they did not change
      rxUnrecognizedTlvs_ = unrecognizedTlvs;
      rxDecoderSettings_ = decoderSettings;
      rxCacheValid_ = true;
   }
   void rxCacheDel() {
      rxOptionalTlvs_.clear();
      rxCacheValid_ = false;
   }

private:
   // The small members first, where they fill the attributes' last padding.
   uint8_t rxDecoderSettings_ = 0;
   bool rxCacheValid_ = false;
   uint32_t rxUnrecognizedTlvs_ = 0;
   Vel::SharedBytes rxOptionalTlvs_;
};

}  // namespace Lldp

// A port holds a record per neighbour.
VEL_COMPACT_ENTITY_MAP(int, Lldp::RemoteSystem)

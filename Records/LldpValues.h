// Value types of the LLDP records: identifiers, addresses, bounded strings, bit sets and
// the decoded contents of the optional TLVs. Each is declared once through VEL_VALUE or
// VEL_BITSET, which supplies accessors, comparison, hashing, printing and JSON export.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <string>

#include "Framework/Bridging/VlanId.h"
#include "Framework/Snmp/ObjectIdentifier.h"
#include "Framework/Vel/BoundedInt.h"
#include "Framework/Vel/Json.h"
#include "Framework/Vel/Types.h"
#include "Framework/Vel/Value.h"
#include "Framework/Wire/Addr.h"
#include "Framework/Wire/IntfId.h"

namespace Lldp {

// ---------------------------------------------------------------------------------------
// Organizationally unique identifiers.

class Oui {
public:
   constexpr Oui() = default;
   constexpr explicit Oui(uint32_t v) : value_(v & 0xffffff) {}
   constexpr uint32_t value() const { return value_; }
   bool operator==(const Oui&) const = default;
   auto operator<=>(const Oui&) const = default;
   size_t hash() const { return value_; }
   std::string stringValue() const;
   friend std::ostream& operator<<(std::ostream& os, const Oui& o);

private:
   uint32_t value_ = 0;
};

inline constexpr Oui ouiIeee8021{0x0080c2};  // IEEE 802.1
inline constexpr Oui ouiIeee8023{0x00120f};  // IEEE 802.3
inline constexpr Oui ouiTia{0x0012bb};       // TIA, LLDP-MED
inline constexpr Oui ouiZorven{0x027e51};    // our own TLVs (subtype 1: ZTP boot VLAN)

// ---------------------------------------------------------------------------------------
// Basic values.

using BoundedString255 = Vel::FixedString<255>;
using BoundedString255Tlv = BoundedString255;  // as received; made by create(string)
using BoundedString32 = Vel::FixedString<32>;
using BoundedString32Tlv = BoundedString32;

// Per-port transmit/receive switch, numbered as in the LLDP MIB.
enum AdminStatus : uint8_t {
   adminStatusTxOnly = 1,
   adminStatusRxOnly = 2,
   adminStatusTxAndRx = 3,
   adminStatusDisabled = 4,
};
std::ostream& operator<<(std::ostream& os, AdminStatus s);

// Chassis ID subtypes (IEEE 802.1AB); 8 stands for any subtype above 7 that was received.
enum ChassisIdSubtype : uint8_t {
   chassisIdSubtypeChassisComponent = 1,
   chassisIdSubtypeInterfaceAlias = 2,
   chassisIdSubtypePortComponent = 3,
   chassisIdSubtypeMacAddress = 4,
   chassisIdSubtypeNetworkAddress = 5,
   chassisIdSubtypeInterfaceName = 6,
   chassisIdSubtypeLocal = 7,
};
enum PortIdSubtype : uint8_t {
   portIdSubtypeInterfaceAlias = 1,
   portIdSubtypePortComponent = 2,
   portIdSubtypeMacAddress = 3,
   portIdSubtypeNetworkAddress = 4,
   portIdSubtypeInterfaceName = 5,
   portIdSubtypeAgentCircuitId = 6,
   portIdSubtypeLocal = 7,
};

// Identifier values: the standard bounds them at 255 bytes.
using IdentifierValue = Vel::FixedString<255>;

#define LLDP_CHASSIS_ID_FIELDS(F) F(uint8_t, subtype, 0) F(IdentifierValue, value, {})
class ChassisIdentifier {
   VEL_VALUE(ChassisIdentifier, LLDP_CHASSIS_ID_FIELDS)
   // Display form: MAC and network addresses as addresses, other subtypes as text (or
   // hexadecimal when not printable).
   std::string stringValue() const;
   // {"subtype": "macAddress", "value": "00:1c:73:01:02:03"}; unnamed subtypes as numbers.
   Vel::Json toJson() const;
};

#define LLDP_PORT_ID_FIELDS(F) F(uint8_t, subtype, 0) F(IdentifierValue, value, {})
class PortIdentifier {
   VEL_VALUE(PortIdentifier, LLDP_PORT_ID_FIELDS)
   std::string stringValue() const;
   Vel::Json toJson() const;
};

// clang-format off
#define LLDP_SYS_CAP_BITS(B)                                                                      \
   B(other, 0x0001)                                                                               \
   B(repeater, 0x0002)                                                                            \
   B(bridge, 0x0004)                                                                              \
   B(wlanAccessPoint, 0x0008) B(router, 0x0010) B(telephone, 0x0020) B(docsisCableDevice, 0x0040) \
       B(stationOnly, 0x0080) B(cVlanComponent, 0x0100) B(sVlanComponent, 0x0200)                 \
           B(twoPortMacRelay, 0x0400)
// clang-format on
class SystemCapabilitiesMap {
   VEL_BITSET(SystemCapabilitiesMap, uint16_t, LLDP_SYS_CAP_BITS)
};

// clang-format off
#define LLDP_SYS_CAP_TLV_FIELDS(F) \
   F(SystemCapabilitiesMap, supported, {}) F(SystemCapabilitiesMap, enabled, {})
// clang-format on
class SystemCapabilitiesTlv {
   VEL_VALUE(SystemCapabilitiesTlv, LLDP_SYS_CAP_TLV_FIELDS)
   static SystemCapabilitiesTlv create(SystemCapabilitiesMap s, SystemCapabilitiesMap e) {
      return SystemCapabilitiesTlv({.supported = s, .enabled = e});
   }
};

// ---------------------------------------------------------------------------------------
// Management addresses.

// IANA address family numbers used as management address subtypes.
inline constexpr uint8_t addrFamilyIpv4 = 1;
inline constexpr uint8_t addrFamilyIpv6 = 2;
inline constexpr uint8_t addrFamilyMac = 6;  // IEEE 802 (the fallback bridge MAC address)

using ManagementAddressBytes = Vel::FixedString<31>;

#define LLDP_MGMT_ADDR_KEY_FIELDS(F) F(uint8_t, subtype, 0) F(ManagementAddressBytes, address, {})
class ManagementAddressKey {
   VEL_VALUE(ManagementAddressKey, LLDP_MGMT_ADDR_KEY_FIELDS)
   std::string stringValue() const;  // 10.0.0.1, 2001:db8::1, aa:bb:cc:dd:ee:ff or hex
   // {"subtype": "ipv4" | "ipv6" | "mac" | number, "address": stringValue()}
   Vel::Json toJson() const;
};

// clang-format off
#define LLDP_MGMT_ADDR_FIELDS(F)    \
   F(ManagementAddressKey, key, {}) \
   F(uint8_t, ifNumberingSubtype, 0) F(uint32_t, ifNumber, 0) F(Snmp::ObjectIdentifier, oid, {})
// clang-format on
class ManagementAddress {
   VEL_VALUE(ManagementAddress, LLDP_MGMT_ADDR_FIELDS)
   using Key = ManagementAddressKey;
   // The management address string length: the subtype byte plus the address.
   uint8_t manAddrLen() const { return static_cast<uint8_t>(1 + key_.address().size()); }
};

inline constexpr uint8_t ifNumberingUnknown = 1;
inline constexpr uint8_t ifNumberingIfIndex = 2;
inline constexpr uint8_t ifNumberingSystemPort = 3;

// Ordering of advertised management addresses; lower sorts first.
// clang-format off
#define LLDP_MAN_ADDR_PRIO_FIELDS(F) \
   F(uint8_t, flag, 0)               \
   F(uint32_t, primaryPriority, 0) F(uint32_t, secondaryPriority, 0) F(Wire::IntfId, intf, {})
// clang-format on
class ManAddrPriority {
   VEL_VALUE(ManAddrPriority, LLDP_MAN_ADDR_PRIO_FIELDS)
};

// ---------------------------------------------------------------------------------------
// Unknown TLVs.

using UnknownTlvType =
    Vel::BoundedInt<uint8_t, 9, 126, "Lldp::UnknownTlv::type < 9 or > 126 not allowed">;

#define LLDP_UNKNOWN_TLV_FIELDS(F) F(UnknownTlvType, type, {}) F(Vel::FixedString<511>, value, {})
class UnknownTlv {
   VEL_VALUE(UnknownTlv, LLDP_UNKNOWN_TLV_FIELDS)
   uint8_t key() const { return type_; }
};

#define LLDP_UNKNOWN_ORG_KEY_FIELDS(F) F(Oui, oui, {}) F(uint8_t, subtype, 0) F(int, index, 0)
class UnknownOrgDefTlvKey {
   VEL_VALUE(UnknownOrgDefTlvKey, LLDP_UNKNOWN_ORG_KEY_FIELDS)
};

// clang-format off
#define LLDP_UNKNOWN_ORG_FIELDS(F) \
   F(UnknownOrgDefTlvKey, key, {}) F(Vel::FixedString<507>, value, {})
// clang-format on
class UnknownOrgDefTlv {
   VEL_VALUE(UnknownOrgDefTlv, LLDP_UNKNOWN_ORG_FIELDS)
   using Key = UnknownOrgDefTlvKey;
};

#define LLDP_UNKNOWN_ORG_COUNTER_KEY_FIELDS(F) F(Oui, oui, {}) F(uint8_t, subtype, 0)
class UnknownOrgDefTlvCounterKey {
   VEL_VALUE(UnknownOrgDefTlvCounterKey, LLDP_UNKNOWN_ORG_COUNTER_KEY_FIELDS)
};

// clang-format off
#define LLDP_UNKNOWN_ORG_COUNTER_FIELDS(F) \
   F(UnknownOrgDefTlvCounterKey, key, {}) F(uint32_t, count, 0)
// clang-format on
class UnknownOrgDefTlvCounter {
   VEL_VALUE(UnknownOrgDefTlvCounter, LLDP_UNKNOWN_ORG_COUNTER_FIELDS)
   using Key = UnknownOrgDefTlvCounterKey;
   void countInc(uint32_t n = 1) { count_ += n; }
};

// Numbers repeated unknown organizationally specific TLVs of one (OUI, subtype) within
// one received LLDPDU: the first gets index 1, the second 2, and so on.
class UnknownOrgDefTlvParseContext {
public:
   UnknownOrgDefTlvCounter& counterIs(const UnknownOrgDefTlvCounter::Key& k) {
      if (auto* c = counter_.find(k)) return *c;
      return counter_.set(k, UnknownOrgDefTlvCounter({.key = k}));
   }
   void clear() { counter_.clear(); }

private:
   Vel::FlatMap<UnknownOrgDefTlvCounter::Key, UnknownOrgDefTlvCounter> counter_;
};

// ---------------------------------------------------------------------------------------
// IEEE 802.1.

#define LLDP_VLAN_NAME_FIELDS(F) F(Bridging::VlanId, vlanId, {}) F(Vel::FixedString<32>, name, {})
class VlanName {
   VEL_VALUE(VlanName, LLDP_VLAN_NAME_FIELDS)
   Bridging::VlanId key() const { return vlanId_; }
};

// clang-format off
#define LLDP_PPVID_FIELDS(F) \
   F(Bridging::VlanIdOrNone, ppvid, {}) F(bool, supported, false) F(bool, enabled, false)
// clang-format on
class PortAndProtocolVlan {
   VEL_VALUE(PortAndProtocolVlan, LLDP_PPVID_FIELDS)
   Bridging::VlanIdOrNone key() const { return ppvid_; }
};

using ProtocolIdentityIndex =
    Vel::BoundedInt<int, 1, 0x7fffffff, "Lldp::ProtocolIdentityInfo::index < 1 not allowed">;

// clang-format off
#define LLDP_PROTO_ID_FIELDS(F) \
   F(ProtocolIdentityIndex, index, {}) F(Vel::FixedString<255>, identity, {})
// clang-format on
class ProtocolIdentityInfo {
   VEL_VALUE(ProtocolIdentityInfo, LLDP_PROTO_ID_FIELDS)
   int key() const { return index_; }
};

// IEEE 802.1AX aggregation status bits.
// clang-format off
#define LLDP_LINK_AGG_BITS(B) \
   B(capable, 0x01) B(enabled, 0x02) B(portTypeBit0, 0x04) B(portTypeBit1, 0x08)
// clang-format on
class LinkAggStatusMap {
   VEL_BITSET(LinkAggStatusMap, uint8_t, LLDP_LINK_AGG_BITS)
};

#define LLDP_LINK_AGG_FIELDS(F) F(LinkAggStatusMap, status, {}) F(uint32_t, aggregatedPortId, 0)
class LinkAggregationInfo {
   VEL_VALUE(LinkAggregationInfo, LLDP_LINK_AGG_FIELDS)
};

// ---------------------------------------------------------------------------------------
// IEEE 802.3.

#define LLDP_MAX_FRAME_FIELDS(F) F(uint16_t, maxFrameSize, 0)
class MaximumFrameSizeInfo {
   VEL_VALUE(MaximumFrameSizeInfo, LLDP_MAX_FRAME_FIELDS)
};

// clang-format off
#define LLDP_MAC_PHY_FIELDS(F)      \
   F(bool, autonegSupported, false) \
   F(bool, autonegEnabled, false)   \
   F(uint16_t, pmdAutonegAdvertisedCapability, 0) F(uint16_t, operationalMauType, 0)
// clang-format on
class MacPhyConfigStatusInfo {
   VEL_VALUE(MacPhyConfigStatusInfo, LLDP_MAC_PHY_FIELDS)
};

// The Power via MDI TLV in whichever of its three forms arrived: the 3-byte IEEE 802.3af
// form, the 8-byte IEEE 802.3at form (type/source/priority and the requested and
// allocated power, in units of 0.1 W) or the 25-byte IEEE 802.3bt form (per-pair powers,
// power status, system setup, maximum available power, autoclass and power down).
// clang-format off
#define LLDP_POWER_VIA_MDI_FIELDS(F)                                                            \
   F(uint8_t, form, 0)                                                                          \
   F(uint8_t, mdiPowerSupport, 0)                                                               \
   F(uint8_t, psePowerPair, 0)                                                                  \
   F(uint8_t, powerClass, 0) F(uint8_t, typeSourcePriority, 0) F(uint16_t, pdRequestedPower, 0) \
       F(uint16_t, pseAllocatedPower, 0) F(uint16_t, pdRequestedPowerA, 0)                      \
           F(uint16_t, pdRequestedPowerB, 0) F(uint16_t, pseAllocatedPowerA, 0)                 \
               F(uint16_t, pseAllocatedPowerB, 0) F(uint16_t, powerStatus, 0)                   \
                   F(uint8_t, systemSetup, 0) F(uint16_t, pseMaxAvailablePower, 0)              \
                       F(uint8_t, autoclass, 0) F(uint32_t, powerDown, 0)
// clang-format on
class PowerViaMdiInfo {
   VEL_VALUE(PowerViaMdiInfo, LLDP_POWER_VIA_MDI_FIELDS)
   enum Form : uint8_t { formNone = 0, formDot3af = 1, formDot3at = 2, formDot3bt = 3 };
   static constexpr size_t dot3afLen = 3;
   static constexpr size_t dot3atLen = 8;
   static constexpr size_t dot3btLen = 25;

   bool portClassPse() const { return mdiPowerSupport_ & 0x01; }
   bool pseMdiPowerSupported() const { return mdiPowerSupport_ & 0x02; }
   bool pseMdiPowerEnabled() const { return mdiPowerSupport_ & 0x04; }
   bool psePairsControlAbility() const { return mdiPowerSupport_ & 0x08; }
   // IEEE 802.3at power type field (bits 7..6): 0 type 2 PSE, 1 type 2 PD, 2 type 1 PSE,
   // 3 type 1 PD. Bit 6 tells a PD from a PSE.
   uint8_t powerType() const { return typeSourcePriority_ >> 6; }
   bool powerTypePd() const { return typeSourcePriority_ & 0x40; }
   uint8_t powerSource() const { return (typeSourcePriority_ >> 4) & 0x3; }
   uint8_t powerPriority() const { return typeSourcePriority_ & 0x3; }
   // Whether the sender is a power sourcing equipment, by whichever field the form has.
   bool fromPse() const { return form_ >= formDot3at ? !powerTypePd() : portClassPse(); }
};

// ---------------------------------------------------------------------------------------
// LLDP-MED.

// clang-format off
#define LLDP_MED_CAP_BITS(B)       \
   B(lldpMedCapabilities, 0x01)    \
   B(networkPolicy, 0x02)          \
   B(locationIdentification, 0x04) \
   B(extendedPowerViaMdiPse, 0x08) B(extendedPowerViaMdiPd, 0x10) B(inventory, 0x20)
// clang-format on
class MedCapability {
   VEL_BITSET(MedCapability, uint8_t, LLDP_MED_CAP_BITS)
};

// Device type: 0 not defined, 1..3 endpoint class I..III, 4 network connectivity; 5 is
// where any larger received value is kept.
#define LLDP_MED_CAPS_FIELDS(F) F(MedCapability, capabilities, {}) F(uint8_t, deviceType, 0)
class MedCapabilitiesInfo {
   VEL_VALUE(MedCapabilitiesInfo, LLDP_MED_CAPS_FIELDS)
   using Capability = MedCapability;
};

// clang-format off
#define LLDP_NET_POLICY_FIELDS(F) \
   F(uint8_t, appType, 0)         \
   F(bool, unknown, false)        \
   F(bool, tagged, false) F(uint16_t, vlanId, 0) F(uint8_t, priority, 0) F(uint8_t, dscp, 0)
// clang-format on
class NetworkPolicyTlv {
   VEL_VALUE(NetworkPolicyTlv, LLDP_NET_POLICY_FIELDS)
   uint8_t key() const { return appType_; }
};

// A configured network policy for one LLDP-MED application.
// clang-format off
#define LLDP_NET_POLICY_CONFIG_FIELDS(F) \
   F(uint8_t, appType, 0)                \
   F(bool, tagged, false) F(uint16_t, vlanId, 0) F(uint8_t, priority, 0) F(uint8_t, dscp, 0)
// clang-format on
class NetworkPolicyConfig {
   VEL_VALUE(NetworkPolicyConfig, LLDP_NET_POLICY_CONFIG_FIELDS)
   uint8_t key() const { return appType_; }
   void copyFrom(const NetworkPolicyConfig& o) { *this = o; }
   // Same policy, whatever the application.
   bool equivalent(const NetworkPolicyConfig& o) const { return equivalent(*this, o); }
   static bool equivalent(const NetworkPolicyConfig& a, const NetworkPolicyConfig& b);
   NetworkPolicyTlv toNetworkPolicyTlv() const;
};

#define LLDP_CA_ELEMENT_FIELDS(F) F(uint8_t, caType, 0) F(Vel::FixedString<255>, caValue, {})
class CivicCaElement {
   VEL_VALUE(CivicCaElement, LLDP_CA_ELEMENT_FIELDS)
   uint8_t key() const { return caType_; }
};

using CaElementMap = Vel::FlatMap<uint8_t, CivicCaElement>;

// clang-format off
#define LLDP_CIVIC_FIELDS(F) \
   F(uint8_t, what, 0) F(Vel::FixedString<2>, countryCode, {}) F(CaElementMap, caElements, {})
// clang-format on
class CivicAddress {
   VEL_VALUE(CivicAddress, LLDP_CIVIC_FIELDS)
   using CaElement = CivicCaElement;
   void caElementsIs(uint8_t type, const CaElement& e) { caElements_.set(type, e); }
   // Writes one element in place (a later element of the same type replaces it).
   void caElementIs(uint8_t type, std::string_view value) {
      CaElement& e = caElements_.slot(type);
      e.caTypeIs(type);
      e.caValueIs(Vel::FixedString<255>(value));
   }
   void caElementsDelAll() { caElements_.clear(); }
};

using CoordinateLci = std::array<uint8_t, 16>;

// Location identification: one of three data formats with its payload.
// clang-format off
#define LLDP_LOCATION_FIELDS(F)     \
   F(uint8_t, format, 0)            \
   F(CoordinateLci, coordinate, {}) \
   F(CivicAddress, civicAddress, {}) F(Vel::FixedString<25>, elin, {})
// clang-format on
class LocationId {
   VEL_VALUE(LocationId, LLDP_LOCATION_FIELDS)
   using CivicAddressLCI = CivicAddress;
   // For decoders that fill the civic address in place.
   CivicAddress& civicAddressMut() { return civicAddress_; }
   enum Format : uint8_t { formatNone = 0, formatCoordinate = 1, formatCivic = 2, formatElin = 3 };
};

}  // namespace Lldp

#include "Lldp/LldpMed.h"

#include <algorithm>
#include <cstring>
#include <ostream>

#include "Lldp/LldpProtocol.h"

namespace Lldp {
Vel::Trace::Handle traceLldpMed("LldpMed");
}  // namespace Lldp

using Lldp::traceLldpMed;

namespace {

// LLDP-MED subtypes under the TIA OUI.
constexpr int medSubtypeCapabilities = 1;
constexpr int medSubtypeNetworkPolicy = 2;
constexpr int medSubtypeLocationId = 3;
constexpr int medSubtypeHardwareRevision = 5;
constexpr int medSubtypeFirmwareRevision = 6;
constexpr int medSubtypeSoftwareRevision = 7;
constexpr int medSubtypeSerialNumber = 8;
constexpr int medSubtypeManufacturerName = 9;
constexpr int medSubtypeModelName = 10;
constexpr int medSubtypeAssetId = 11;

constexpr int capabilitiesInfoLen = 3;
constexpr int networkPolicyInfoLen = 4;
constexpr uint8_t capabilityBitsMask = 0x3f;
constexpr uint8_t maxDeviceType = 5;

// Network Policy word layout.
constexpr uint32_t policyUnknownBit = 1u << 23;
constexpr uint32_t policyTaggedBit = 1u << 22;
constexpr int policyVlanShift = 9;
constexpr int policyPriorityShift = 6;
constexpr uint32_t policyVlanMask = 0xfff;
constexpr uint32_t policyPriorityMask = 0x7;
constexpr uint32_t policyDscpMask = 0x3f;

constexpr int coordinateLciLen = 16;
constexpr int civicMinLen = 4;  // both for the LCI as received and for its length byte
constexpr uint8_t civicWhatExpected = 2;
constexpr int civicCountryCodeLen = 2;
constexpr int elinMinLen = 10;
constexpr int elinMaxLen = 25;

constexpr int inventoryMaxLen = 32;

// Prints raw bytes as hex on a trace stream without building a string.
struct HexBytes {
   explicit HexBytes(const Lldp::CoordinateLci& b) : bytes(b) {}
   const Lldp::CoordinateLci& bytes;
   friend std::ostream& operator<<(std::ostream& os, const HexBytes& h) {
      static const char digits[] = "0123456789abcdef";
      for (uint8_t b : h.bytes) os << digits[b >> 4] << digits[b & 15];
      return os;
   }
};

uint8_t byteAt(const char* p) {
   return static_cast<uint8_t>(*p);
}

uint32_t networkPolicyWord(const Lldp::NetworkPolicyTlv& policy) {
   uint32_t word = (uint32_t(policy.appType()) << 24) | (policy.dscp() & policyDscpMask);
   // VLAN and priority only mean something on a tagged policy; an untagged one sends
   // zeros there whatever the record holds. The unknown-policy flag is a receive-side
   // notion and is never advertised.
   if (policy.tagged()) {
      word |= policyTaggedBit;
      word |= (policy.vlanId() & policyVlanMask) << policyVlanShift;
      word |= (policy.priority() & policyPriorityMask) << policyPriorityShift;
   }
   return word;
}

TlvParseResult parseCapabilitiesTlv(int infoLen, const char* info,
                                    const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   if (infoLen < capabilitiesInfoLen) {
      VEL_TRACE(traceLldpMed, 0,
                "Error: LLDP-MED Capabilities TLV is too short (orgDefInfoLen=" << infoLen << ")");
      return TlvParseResultFatalError;
   }
   // The high byte of the 16-bit capabilities field carries nothing defined yet.
   uint8_t caps = byteAt(info + 1);
   uint8_t deviceType = std::min(byteAt(info + 2), maxDeviceType);
   Lldp::MedCapabilitiesInfo value(
       {.capabilities = Lldp::MedCapability(uint8_t(caps & capabilityBitsMask)),
        .deviceType = deviceType});
   remote->medCapabilitiesTlvReceivedIs(true);
   remote->medCapabilitiesInfoIs(value);
   VEL_TRACE(traceLldpMed, 6, "LLDP-Med Capabilities: " << value);
   return TlvParseResultOk;
}

TlvParseResult parseNetworkPolicyTlv(int infoLen, const char* info,
                                     const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   if (infoLen < networkPolicyInfoLen) {
      VEL_TRACE(traceLldpMed, 0,
                "Error: LLDP-MED NetworkPolicy TLV is too short (orgDefInfoLen=" << infoLen << ")");
      return TlvParseResultFatalError;
   }
   uint32_t word = Lldp::Be::get32(info);
   // Bit 21 is reserved and ignored.
   Lldp::NetworkPolicyTlv policy({
       .appType = static_cast<uint8_t>(word >> 24),
       .unknown = (word & policyUnknownBit) != 0,
       .tagged = (word & policyTaggedBit) != 0,
       .vlanId = static_cast<uint16_t>((word >> policyVlanShift) & policyVlanMask),
       .priority = static_cast<uint8_t>((word >> policyPriorityShift) & policyPriorityMask),
       .dscp = static_cast<uint8_t>(word & policyDscpMask),
   });
   remote->networkPolicyTlvIs(policy);
   VEL_TRACE(traceLldpMed, 6, "Received LLDP-MED Network Policy: " << policy);
   return TlvParseResultOk;
}

TlvParseResult parseCoordinateLci(int lciLen, const char* lci, Lldp::LocationId* loc) {
   if (lciLen < coordinateLciLen) {
      VEL_TRACE(
          traceLldpMed, 0,
          "Error: LLDP-MED Location ID Coordinate Based TLV size is invalid ( coordinateDataLen = "
              << lciLen << " )");
      return TlvParseResultFatalError;
   }
   Lldp::CoordinateLci coordinate;
   std::memcpy(coordinate.data(), lci, coordinate.size());
   loc->formatIs(Lldp::LocationId::formatCoordinate);
   loc->coordinateIs(coordinate);
   VEL_TRACE(traceLldpMed, 6, "Received LLDP-MED Coordinate-based LCI: " << HexBytes(coordinate));
   return TlvParseResultOk;
}

// The civic address LCI: a length byte counting the bytes after it, the `what` byte, the
// country code and then type-length-value CA elements.
TlvParseResult parseCivicAddressLci(int lciLen, const char* lci, Lldp::LocationId* loc) {
   if (lciLen < civicMinLen) {
      VEL_TRACE(
          traceLldpMed, 0,
          "Error: LLDP-MED Civic Adreess LCI size is invalid (addressDataLen: " << lciLen << ")");
      return TlvParseResultFatalError;
   }
   int lciLength = byteAt(lci);
   if (lciLength < civicMinLen || lciLength > lciLen) {
      VEL_TRACE(traceLldpMed, 0,
                "Error: LLDP-MED Civic Adreess LCI length is invalid (lciLength: "
                    << lciLength << ", addressDataLen: " << lciLen << ")");
      return TlvParseResultFatalError;
   }
   // A length byte equal to the whole LCI claims one byte more than follows it; walk only
   // the bytes that are really there.
   const char* p = lci + 1;
   const char* end = p + std::min(lciLength, lciLen - 1);

   Lldp::LocationId::CivicAddressLCI& civic = loc->civicAddressMut();
   uint8_t what = byteAt(p);
   if (what != civicWhatExpected) {
      VEL_TRACE(
          traceLldpMed, 2,
          "Warning: LLDP-MED Civic Adreess LCI What field value is unexpected: " << int(what));
   }
   civic.whatIs(what);
   civic.countryCodeIs(Vel::FixedString<2>(std::string_view(p + 1, civicCountryCodeLen)));
   p += 1 + civicCountryCodeLen;

   while (end - p >= 2) {
      uint8_t caType = byteAt(p);
      uint8_t caLen = byteAt(p + 1);
      if (caLen > end - p - 2) {
         VEL_TRACE(traceLldpMed, 2,
                   "Warning: LLDP-MED Civic Adreess LCI not completely processed.Remaining size: "
                       << (end - p));
         break;
      }
      civic.caElementIs(caType, std::string_view(p + 2, caLen));
      p += 2 + caLen;
   }
   // Neither warning makes the address useless: a surprising `what` is kept as received,
   // and a truncated element list keeps the elements that were complete. Both are stored
   // so that the operator sees as much of the neighbour's location as it sent.
   loc->formatIs(Lldp::LocationId::formatCivic);
   VEL_TRACE(traceLldpMed, 6, "Received LLDP-MED Civic Address LCI: " << civic);
   return TlvParseResultOk;
}

TlvParseResult parseElin(int lciLen, const char* lci, Lldp::LocationId* loc) {
   // Malformed ELINs are reported as warnings but still discard the LLDPDU: an emergency
   // location number that is not exactly what the neighbour meant must never be shown.
   if (lciLen < elinMinLen || lciLen > elinMaxLen) {
      VEL_TRACE(traceLldpMed, 2, "Warning: LLDP-MED ECS ELIN size is invalid: " << lciLen);
      return TlvParseResultFatalError;
   }
   for (int i = 0; i < lciLen; ++i) {
      if (lci[i] < '0' || lci[i] > '9') {
         VEL_TRACE(traceLldpMed, 2, "Warning: LLDP-MED ECS ELIN Number has non digit chars");
         return TlvParseResultFatalError;
      }
   }
   loc->formatIs(Lldp::LocationId::formatElin);
   loc->elinIs(Vel::FixedString<25>(std::string_view(lci, static_cast<size_t>(lciLen))));
   VEL_TRACE(traceLldpMed, 6, "Received LLDP-MED ECS ELIN Number: " << loc->elin());
   return TlvParseResultOk;
}

TlvParseResult parseLocationIdTlv(int infoLen, const char* info,
                                  const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   if (infoLen < 1) {
      VEL_TRACE(traceLldpMed, 0,
                "Error: LLDP-MED Location ID TLV is too short (orgDefInfoLen=" << infoLen << ")");
      return TlvParseResultFatalError;
   }
   uint8_t format = byteAt(info);
   const char* lci = info + 1;
   int lciLen = infoLen - 1;

   // Decoded aside and stored whole, so that a rejected TLV leaves the record as it was.
   // The aside record is reused (and reset field by field) so that a civic address's
   // element list keeps its capacity: refreshing a neighbour does not allocate.
   static Lldp::LocationId loc;
   static const Lldp::LocationId empty;
   loc = empty;
   TlvParseResult result;
   switch (format) {
      case Lldp::LocationId::formatCoordinate:
         result = parseCoordinateLci(lciLen, lci, &loc);
         break;
      case Lldp::LocationId::formatCivic:
         result = parseCivicAddressLci(lciLen, lci, &loc);
         break;
      case Lldp::LocationId::formatElin:
         result = parseElin(lciLen, lci, &loc);
         break;
      default:
         VEL_TRACE(traceLldpMed, 8, "Unrecognized LLDP-MED Location Data Format: " << int(format));
         return TlvParseResultUnrecognized;
   }
   if (result == TlvParseResultOk) remote->locationIdIs(loc);
   return result;
}

}  // namespace

namespace LldpMed {

bool addTlvs(char** pos, char* end, Lldp::LocalPort::PtrConst localPort,
             Lldp::PortConfig::PtrConst portConfig, char* info, Lldp::PortStatus::Ptr portStatus) {
   // Endpoints that do not speak LLDP-MED gain nothing from these TLVs, so they wait until
   // a neighbour has shown that it does. A configured fallback PoE allocation means the
   // port serves powered devices and advertises from the start.
   if (!portStatus->anyLldpMedReceived() && portConfig->poeAllocatedPowerFallback() == 0) {
      VEL_TRACE(traceLldpMed, 6, "Not adding LLDP-MED TLVs - as we have not received any ");
      return true;
   }

   bool ok = true;
   if (portConfig->tiaEnabledTlvs().value() == 0) {
      VEL_TRACE(traceLldpMed, 6,
                "Not adding LLDP-MED Capabilities TLV - as none of LLDP-MED TLV is enabled in CLI");
   } else {
      const Lldp::MedCapabilitiesInfo& caps = localPort->medCapabilities();
      info[0] = 0;
      info[1] = static_cast<char>(caps.capabilities().value());
      info[2] = static_cast<char>(caps.deviceType());
      if (putOrgDefTlv(pos, end, Lldp::ouiTia, medSubtypeCapabilities, capabilitiesInfoLen, info)) {
         VEL_TRACE(traceLldpMed, 2, "Added LLDP-MED Capabilities TLV:  " << caps);
      } else {
         VEL_TRACE(traceLldpMed, 2, "Not enough space to add LLDP-MED Capabilities TLV");
         ok = false;
      }
   }

   for (const auto& [appType, policy] : localPort->localNetworkPolicyTlv()) {
      VEL_TRACE(
          traceLldpMed, 6,
          "building LLDP-MED Network Policy for app " << int(appType) << " with tlv " << policy);
      Lldp::Be::put32(info, networkPolicyWord(policy));
      if (!putOrgDefTlv(pos, end, Lldp::ouiTia, medSubtypeNetworkPolicy, networkPolicyInfoLen,
                        info)) {
         // Every policy TLV has the same size, so the rest would not fit either.
         VEL_TRACE(traceLldpMed, 2,
                   "Not enough space to add LLDP-MED Network Policy TLV for app " << int(appType));
         ok = false;
         break;
      }
      VEL_TRACE(traceLldpMed, 2, "Added LLDP-MED Network Policy TLV for app " << int(appType));
   }
   return ok;
}

TlvParseResult parseTlv(int subtype, int infoLen, const char* info,
                        const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   switch (subtype) {
      case medSubtypeCapabilities:
         return parseCapabilitiesTlv(infoLen, info, remote);
      case medSubtypeNetworkPolicy:
         return parseNetworkPolicyTlv(infoLen, info, remote);
      case medSubtypeLocationId:
         return parseLocationIdTlv(infoLen, info, remote);
      case medSubtypeHardwareRevision:
         return Inventory::parseHardwareRevisionTlv(infoLen, info, remote);
      case medSubtypeFirmwareRevision:
         return Inventory::parseFirmwareRevisionTlv(infoLen, info, remote);
      case medSubtypeSoftwareRevision:
         return Inventory::parseSoftwareRevisionTlv(infoLen, info, remote);
      case medSubtypeSerialNumber:
         return Inventory::parseSerialNumberTlv(infoLen, info, remote);
      case medSubtypeManufacturerName:
         return Inventory::parseManufacturerNameTlv(infoLen, info, remote);
      case medSubtypeModelName:
         return Inventory::parseModelNameTlv(infoLen, info, remote);
      case medSubtypeAssetId:
         return Inventory::parseAssetIDTlv(infoLen, info, remote);
      default:
         // Extended Power via MDI is decoded with the IEEE 802.3 power TLV elsewhere.
         VEL_TRACE(
             traceLldpMed, 8,
             "Unrecognized LLDP-MED Organizationally Specific TLV (subtype=" << subtype << ")");
         return TlvParseResultUnrecognized;
   }
}

}  // namespace LldpMed

namespace Inventory {

TlvParseResult parseTlv(int infoLen, const char* info, const char* name,
                        std::function<void(const Lldp::BoundedString32Tlv&)> store) {
   if (infoLen > inventoryMaxLen) {
      VEL_TRACE(traceLldpMed, 0,
                "Error: LLDP-MED " << name << " TLV is too big (orgDefInfoLen=" << infoLen << ")");
      return TlvParseResultFatalError;
   }
   if (infoLen <= 0) {
      VEL_TRACE(
          traceLldpMed, 0,
          "Error: LLDP-MED " << name << " TLV is too short (orgDefInfoLen=" << infoLen << ")");
      return TlvParseResultFatalError;
   }
   // Kept from TLV to TLV, so a value too long to sit inline reuses its heap room.
   static Lldp::BoundedString32Tlv value;
   value.assign(info, static_cast<size_t>(infoLen));
   store(value);
   VEL_TRACE(traceLldpMed, 6, "LLDP-MED " << name << " TLV has value: " << value);
   return TlvParseResultOk;
}

// The store actions capture only the record pointer by reference, which std::function
// keeps inline: no allocation per TLV.
TlvParseResult parseHardwareRevisionTlv(int infoLen, const char* info,
                                        const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   return parseTlv(infoLen, info, "Hardware Revision",
                   [&remote](const auto& v) { remote->hardwareRevisionTlvInfoIs(v); });
}

TlvParseResult parseFirmwareRevisionTlv(int infoLen, const char* info,
                                        const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   return parseTlv(infoLen, info, "Firmware Revision",
                   [&remote](const auto& v) { remote->firmwareRevisionTlvInfoIs(v); });
}

TlvParseResult parseSoftwareRevisionTlv(int infoLen, const char* info,
                                        const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   return parseTlv(infoLen, info, "Software Revision",
                   [&remote](const auto& v) { remote->softwareRevisionTlvInfoIs(v); });
}

TlvParseResult parseSerialNumberTlv(int infoLen, const char* info,
                                    const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   return parseTlv(infoLen, info, "Serial Number",
                   [&remote](const auto& v) { remote->serialNumberTlvInfoIs(v); });
}

TlvParseResult parseManufacturerNameTlv(int infoLen, const char* info,
                                        const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   return parseTlv(infoLen, info, "Manufacturer Name",
                   [&remote](const auto& v) { remote->manufacturerNameTlvInfoIs(v); });
}

TlvParseResult parseModelNameTlv(int infoLen, const char* info,
                                 const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   return parseTlv(infoLen, info, "Model Name",
                   [&remote](const auto& v) { remote->modelNameTlvInfoIs(v); });
}

TlvParseResult parseAssetIDTlv(int infoLen, const char* info,
                               const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   return parseTlv(infoLen, info, "Asset ID",
                   [&remote](const auto& v) { remote->assetIDTlvInfoIs(v); });
}

}  // namespace Inventory

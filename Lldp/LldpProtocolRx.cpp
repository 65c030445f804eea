// Receive side of the LLDPDU codec: validates one received LLDPDU, decodes its optional
// TLVs into a scratch record and brings the port's remote-system table up to date.

#include <algorithm>
#include <cstring>
#include <string_view>

#include "Framework/Assert.h"
#include "Lldp/LldpEvents.h"
#include "Lldp/LldpExtDot1.h"
#include "Lldp/LldpMed.h"
#include "Lldp/LldpProtocol.h"
#include "Lldp/LldpProtocolSm.h"
#include "Lldp/LldpToggles.h"
#include "Records/LldpExtDot3Parse.h"

using Lldp::traceLldpProtocol;

namespace {

// Every attribute and collection a received LLDPDU carries, in the order an update
// compares and logs them. The same list empties the scratch record before each frame,
// so nothing a decoder can write survives into the next frame.
#define LLDP_RX_RECORD(ATTR, COLL)     \
   ATTR(portDesc)                      \
   ATTR(sysName)                       \
   ATTR(sysDesc)                       \
   ATTR(systemCapabilities)            \
   COLL(managementAddress)             \
   COLL(unknownTlv)                    \
   COLL(unknownOrgDefTlv)              \
   ATTR(portVlanId)                    \
   ATTR(portVlanIdTlvReceived)         \
   COLL(portAndProtocolVlan)           \
   COLL(vlanName)                      \
   COLL(protocolIdentityInfo)          \
   ATTR(vidUsageDigest)                \
   ATTR(vidUsageDigestTlvReceived)     \
   ATTR(managementVid)                 \
   ATTR(managementVidTlvReceived)      \
   ATTR(linkAggregationInfo)           \
   ATTR(linkAggregationTlvReceived)    \
   ATTR(macPhyConfigStatusInfo)        \
   ATTR(macPhyConfigStatusTlvReceived) \
   ATTR(powerViaMdiInfo)               \
   ATTR(powerViaMdiTlvReceived)        \
   ATTR(medCapabilitiesTlvReceived)    \
   ATTR(medCapabilitiesInfo)           \
   COLL(networkPolicyTlv)              \
   ATTR(locationId)                    \
   ATTR(hardwareRevisionTlvInfo)       \
   ATTR(firmwareRevisionTlvInfo)       \
   ATTR(softwareRevisionTlvInfo)       \
   ATTR(serialNumberTlvInfo)           \
   ATTR(manufacturerNameTlvInfo)       \
   ATTR(modelNameTlvInfo)              \
   ATTR(assetIDTlvInfo)                \
   ATTR(ztpBootVlan)                   \
   ATTR(maximumFrameSizeInfo)          \
   ATTR(maximumFrameSizeTlvReceived)

// Streams a record value the way records print their fields (small integers as numbers,
// booleans as words), for the change log.
template <class T>
struct Printed {
   const T& v;
   friend std::ostream& operator<<(std::ostream& os, const Printed& p) {
      Vel::printValue(os, p.v);
      return os;
   }
};
template <class T>
Printed<T> printed(const T& v) {
   return Printed<T>{v};
}

// The decoders write into one process-wide scratch record, reused frame after frame so
// that its collections keep their capacity: a refresh then allocates nothing. The frame's
// MSAP is kept by the caller; the scratch record's own key attributes are never read.
const Vel::Ptr<Lldp::RemoteSystem>& scratchRecord() {
   static const Vel::Ptr<Lldp::RemoteSystem> scratch =
       Vel::make<Lldp::RemoteSystem>(1, Lldp::Msap());
   return scratch;
}

// Returns the scratch record to its defaults. Attributes are copied from a pristine
// record rather than reset in place so that values holding a collection of their own
// (a civic location's elements) keep their capacity too.
void resetScratch(Lldp::RemoteSystem& scratch) {
   static const Vel::Ptr<const Lldp::RemoteSystem> pristine =
       Vel::make<Lldp::RemoteSystem>(1, Lldp::Msap());
   const Lldp::RemoteSystem& d = *pristine;
#define LLDP_RX_RESET_ATTR(n) scratch.n##Is(d.n());
#define LLDP_RX_RESET_COLL(n) scratch.n##DelAll();
   LLDP_RX_RECORD(LLDP_RX_RESET_ATTR, LLDP_RX_RESET_COLL)
#undef LLDP_RX_RESET_ATTR
#undef LLDP_RX_RESET_COLL
}

// What a decode depended on besides the bytes: whether it asked for the boot VLAN
// toggle (bit 0) and what the toggle said (bit 1). Recorded per frame so that an unchanged
// frame is decoded again, rather than skipped, when the toggle has since changed.
uint8_t decoderSettings = 0;

bool bootVlanToggleConsulted(bool on) {
   decoderSettings = static_cast<uint8_t>(1u | (on ? 2u : 0u));
   return on;
}

bool decoderSettingsHold(uint8_t settings) {
   if (!(settings & 1u)) return true;
   return Lldp::toggleBootVlanTlv() == bool(settings & 2u);
}

// Whether any trace of the decoders is on. A frame is then always decoded in full, so
// that its trace reads as for any other frame.
bool decoderTraceOn() {
   return (traceLldpProtocol.mask() | Lldp::traceLldpMed.mask() | Lldp::traceLldpExtDot1.mask() |
           Lldp::traceLldpExtDot3.mask()) != 0;
}

Lldp::UnknownOrgDefTlvParseContext& parseContext() {
   static Lldp::UnknownOrgDefTlvParseContext context;
   return context;
}

// Writes one attribute of the stored record when the frame's value differs.
template <class T, class Set>
void syncAttr(const char* name, const T& was, const T& now, Set&& set, bool& changed) {
   if (was == now) return;
   VEL_TRACE(traceLldpProtocol, 8,
             "Attribute " << name << " changed (was: " << printed(was) << ", now: " << printed(now)
                          << ")");
   set(now);
   changed = true;
}

// Brings one collection of the stored record in line with the frame's: members the frame
// no longer carries go first, then new or different members are written.
template <class K, class V, class Del, class Set>
void syncColl(const char* name, const Vel::FlatKeyedMap<K, V>& was,
              const Vel::FlatKeyedMap<K, V>& now, Del&& del, Set&& set, bool& changed) {
   for (size_t i = 0; i < was.size();) {
      const K key = (was.begin() + static_cast<long>(i))->first;
      if (now.contains(key)) {
         ++i;
         continue;
      }
      VEL_TRACE(traceLldpProtocol, 8,
                "Member " << printed(key) << " of collection " << name << " deleted");
      if (!del(key)) ++i;  // cannot happen: the key was just read from the stored map
      changed = true;
   }
   for (const auto& [key, value] : now) {
      const V* current = was.find(key);
      if (current && *current == value) continue;
      VEL_TRACE(traceLldpProtocol, 8,
                "Member " << printed(key) << " of collection " << name << " added/updated");
      set(value);
      changed = true;
   }
}

// Copies what the frame carried into the stored record; returns whether anything changed.
bool reconcile(const Lldp::RemoteSystem& scratch, Lldp::RemoteSystem& stored) {
   bool changed = false;
#define LLDP_RX_SYNC_ATTR(n) \
   syncAttr(                 \
       #n, stored.n(), scratch.n(), [&](const auto& v) { stored.n##Is(v); }, changed);
#define LLDP_RX_SYNC_COLL(n)                                                         \
   syncColl(                                                                         \
       #n, stored.n(), scratch.n(), [&](const auto& k) { return stored.n##Del(k); }, \
       [&](const auto& v) { stored.n##Is(v); }, changed);
   LLDP_RX_RECORD(LLDP_RX_SYNC_ATTR, LLDP_RX_SYNC_COLL)
#undef LLDP_RX_SYNC_ATTR
#undef LLDP_RX_SYNC_COLL
   return changed;
}

// Decodes the OID string of a Management Address TLV: the contents of a BER OBJECT
// IDENTIFIER, all of them: the decoder takes the string as one identifier, so nothing is
// left over after it. An undecodable OID leaves `oid` empty.
void decodeOid(const char* bytes, int len, Snmp::ObjectIdentifier* oid) {
   if (!oid->berContentsIs(reinterpret_cast<const uint8_t*>(bytes), size_t(len))) {
      VEL_TRACE(traceLldpProtocol, 0, "Invalid OID string");
      return;
   }
   VEL_TRACE(traceLldpProtocol, 8, "Valid OID string");
}

// A string of the frame in a buffer kept from frame to frame: a long one is copied into the
// record without allocating once its like has been seen.
template <class S>
const S& keptString(const char* p, size_t n) {
   static S s;
   s.assign(p, n);
   return s;
}

TlvParseResult parseBoundedString(int infoLen, const char* info, const char* what,
                                  void (Lldp::RemoteSystem::*set)(const Lldp::BoundedString255Tlv&),
                                  Lldp::RemoteSystem& remote) {
   // Longer strings than the record holds are cut, never refused.
   const size_t len = std::min<size_t>(static_cast<size_t>(infoLen), 255);
   const auto& value = keptString<Lldp::BoundedString255Tlv>(info, len);
   (remote.*set)(value);
   VEL_TRACE(traceLldpProtocol, 6, what << ": " << value);
   return TlvParseResultOk;
}

TlvParseResult parseSystemCapabilities(int infoLen, const char* info, Lldp::RemoteSystem& remote) {
   if (infoLen < 4) {
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: System Capabilities TLV is too short (infoLen=" << infoLen << ")");
      return TlvParseResultFatalError;
   }
   const uint16_t supported = Lldp::Be::get16(info);
   const uint16_t enabled = Lldp::Be::get16(info + 2);
   if (enabled & ~supported) {
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: Supported and enabled capabilities are inconsistent "
                    << "(supported=0x" << std::hex << supported << ", enabled=0x" << enabled
                    << std::dec << ")");
      return TlvParseResultError;
   }
   const auto caps = Lldp::SystemCapabilitiesTlv::create(Lldp::SystemCapabilitiesMap(supported),
                                                         Lldp::SystemCapabilitiesMap(enabled));
   remote.systemCapabilitiesIs(caps);
   VEL_TRACE(traceLldpProtocol, 6, "System Capabilities: " << caps);
   return TlvParseResultOk;
}

TlvParseResult parseManagementAddress(int infoLen, const char* info, Lldp::RemoteSystem& remote) {
   if (infoLen < 9) {
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: Management Address TLV is too short (infoLen=" << infoLen << ")");
      return TlvParseResultFatalError;
   }
   const int addrStringLen = uint8_t(info[0]);
   if (addrStringLen < 2 || addrStringLen > 32) {
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: Value of management address string length field is out of range "
                "(manAddrStringLen="
                    << addrStringLen << ")");
      return TlvParseResultError;
   }
   if (infoLen < addrStringLen + 7) {
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: Management Address TLV is too short (infoLen="
                    << infoLen << ", manAddrStringLen=" << addrStringLen << ")");
      return TlvParseResultFatalError;
   }
   const char* p = info + 1;
   const uint8_t subtype = uint8_t(*p++);
   const Lldp::ManagementAddressBytes address(std::string_view(p, size_t(addrStringLen - 1)));
   p += addrStringLen - 1;
   const uint8_t ifSubtype = uint8_t(*p++);
   const uint32_t ifNumber = Lldp::Be::get32(p);
   p += 4;
   const int oidLen = uint8_t(*p++);
   if (oidLen > 128) {
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: Value of OID string length field is out of range (oidStringLen=" << oidLen
                                                                                         << ")");
      return TlvParseResultError;
   }
   if (infoLen < addrStringLen + 7 + oidLen) {
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: Management Address TLV is too short (infoLen="
                    << infoLen << ", manAddrStringLen=" << addrStringLen
                    << ", oidStringLen=" << oidLen << ")");
      return TlvParseResultFatalError;
   }
   // The ones decoded here are kept and overwritten field by field, so they keep the room
   // their strings and OID grew to and decoding the next one does not allocate.
   static Lldp::ManagementAddress addr;
   addr.keyIs(Lldp::ManagementAddress::Key({.subtype = subtype, .address = address}));
   addr.ifNumberingSubtypeIs(ifSubtype);
   addr.ifNumberIs(ifNumber);
   static Snmp::ObjectIdentifier oid;
   oid.clear();
   if (oidLen == 0) {
      VEL_TRACE(traceLldpProtocol, 8, "Empty OID string");
   } else {
      decodeOid(p, oidLen, &oid);
   }
   addr.oidIs(oid);
   remote.managementAddressIs(addr);
   VEL_TRACE(traceLldpProtocol, 6, "Management Address: " << addr);
   return TlvParseResultOk;
}

TlvParseResult parseUnknownOrgDefTlv(Lldp::Oui oui, int subtype, int len, const char* value,
                                     Lldp::RemoteSystem& remote) {
   VEL_TRACE(traceLldpProtocol, 8, "Unknown OUI");
   auto& counter = parseContext().counterIs(
       Lldp::UnknownOrgDefTlvCounter::Key({.oui = oui, .subtype = static_cast<uint8_t>(subtype)}));
   counter.countInc();
   static Lldp::UnknownOrgDefTlv tlv;
   tlv.keyIs(Lldp::UnknownOrgDefTlv::Key({.oui = oui,
                                          .subtype = static_cast<uint8_t>(subtype),
                                          .index = static_cast<int>(counter.count())}));
   // At most 511 - 4 bytes follow the subtype, which is what the record holds.
   tlv.valueIs(keptString<Vel::FixedString<507>>(value, size_t(len)));
   remote.unknownOrgDefTlvIs(tlv);
   VEL_TRACE(traceLldpProtocol, 6, "Unknown Organizationally Specific TLV: " << tlv);
   return TlvParseResultUnrecognized;
}

TlvParseResult parseOrgDefTlv(int infoLen, const char* info,
                              const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   if (infoLen < Lldp::orgDefHeaderLen) {
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: Organizationally Specific TLV is too short (infoLen=" << infoLen << ")");
      return TlvParseResultFatalError;
   }
   const Lldp::Oui oui(Lldp::Be::get24(info));
   const int subtype = uint8_t(info[3]);
   VEL_TRACE(traceLldpProtocol, 8,
             "Organizationally Specific TLV: oui=" << oui << ", subtype=" << subtype);
   if (subtype == 0) {
      VEL_TRACE(
          traceLldpProtocol, 0,
          "Error: Organizationally Specific TLV has invalid subtype of 0 (oui=" << oui << ")");
      return TlvParseResultError;
   }
   const int len = infoLen - Lldp::orgDefHeaderLen;
   const char* content = info + Lldp::orgDefHeaderLen;
   if (oui == Lldp::ouiIeee8021) {
      VEL_TRACE(traceLldpProtocol, 8, "802.1 TLV");
      return parseExtDot1Tlv(subtype, len, content, remote);
   }
   if (oui == Lldp::ouiIeee8023) {
      VEL_TRACE(traceLldpProtocol, 8, "802.3 TLV");
      return parseExtDot3Tlv(subtype, len, content, remote);
   }
   if (oui == Lldp::ouiTia) {
      VEL_TRACE(traceLldpProtocol, 8, "TIA TLV");
      return LldpMed::parseTlv(subtype, len, content, remote);
   }
   if (oui == Lldp::ouiZorven && bootVlanToggleConsulted(Lldp::toggleBootVlanTlv())) {
      VEL_TRACE(traceLldpProtocol, 8, "ZTP Boot Vlan TLV");
      return parseZtpBootVlanTlv(subtype, len, content, remote);
   }
   return parseUnknownOrgDefTlv(oui, subtype, len, content, *remote);
}

// Decodes one optional TLV into the scratch record.
TlvParseResult parseOptionalTlv(int type, int infoLen, const char* info,
                                const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   switch (type) {
      case Lldp::tlvTypeEnd:
         VEL_TRACE(traceLldpProtocol, 6, "End of LLDPDU");
         return TlvParseResultEnd;
      case Lldp::tlvTypeChassisId:
      case Lldp::tlvTypePortId:
      case Lldp::tlvTypeTtl:
         VEL_TRACE(traceLldpProtocol, 0, "Error: frame contains duplicate TLV of type " << type);
         return TlvParseResultFatalError;
      case Lldp::tlvTypePortDesc:
         return parseBoundedString(infoLen, info, "Port Description",
                                   &Lldp::RemoteSystem::portDescIs, *remote);
      case Lldp::tlvTypeSysName:
         return parseBoundedString(infoLen, info, "System Name", &Lldp::RemoteSystem::sysNameIs,
                                   *remote);
      case Lldp::tlvTypeSysDesc:
         return parseBoundedString(infoLen, info, "System Description",
                                   &Lldp::RemoteSystem::sysDescIs, *remote);
      case Lldp::tlvTypeSysCap:
         return parseSystemCapabilities(infoLen, info, *remote);
      case Lldp::tlvTypeManagementAddress:
         return parseManagementAddress(infoLen, info, *remote);
      case Lldp::tlvTypeOrgSpecific:
         return parseOrgDefTlv(infoLen, info, remote);
      default: {
         // Reserved types 9..126: kept as they came, one per type.
         static Lldp::UnknownTlv tlv;
         tlv.typeIs(Lldp::UnknownTlvType(static_cast<uint8_t>(type)));
         tlv.valueIs(keptString<Vel::FixedString<511>>(info, size_t(infoLen)));
         remote->unknownTlvIs(tlv);
         VEL_TRACE(traceLldpProtocol, 6, "Unrecognized TLV: " << tlv);
         return TlvParseResultUnrecognized;
      }
   }
}

// Reads the subtype and value of a Chassis ID or Port ID TLV. Subtypes beyond the
// standard ones are kept as 8 rather than refused.
template <class Identifier>
const Identifier& readIdentifier(int infoLen, const char* info, const char* unknownText) {
   static Identifier id;
   uint8_t subtype = uint8_t(info[0]);
   if (subtype > 7) {
      VEL_TRACE(traceLldpProtocol, 2, unknownText << int(subtype));
      subtype = 8;
   }
   id.subtypeIs(subtype);
   id.valueIs(keptString<Lldp::IdentifierValue>(info + 1, size_t(infoLen - 1)));
   return id;
}

Lldp::RemoteSystem::PtrConst discardFrame(Lldp::PortStatus& portStatus) {
   VEL_TRACE(traceLldpProtocol, 8, "Frame had a fatal error -- discarding");
   portStatus.rxFramesDiscardedTotalInc();
   VEL_TRACE(traceLldpProtocol, 8, "Frame had an error");
   portStatus.rxFramesErrorsInc();
   return nullptr;
}

// A shutdown LLDPDU: the neighbour is leaving, so its record goes at once.
void removeRemoteSystem(const Lldp::Msap& msap, Vel::Seconds now, Lldp::Status& status,
                        Lldp::PortStatus& portStatus) {
   VEL_TRACE(traceLldpProtocol, 4, "Received shutdown frame from " << msap);
   const Vel::Ptr<Lldp::RemoteSystem> remote = portStatus.remoteSystemByMsap(msap);
   if (!remote) {
      VEL_TRACE(traceLldpProtocol, 2, "Received shutdown frame from unknown MSAP: " << msap);
      return;
   }
   VEL_TRACE(traceLldpProtocol, 4, "Deleting RemoteSystem");
   portStatus.remoteSystemByMsapDel(msap);
   portStatus.remoteSystemDel(remote->index());
   status.remTablesDeletesInc();
   Lldp::LLDP_NEIGHBOR_GONE.log(msap.chassisIdentifier().stringValue(),
                                msap.portIdentifier().stringValue(), portStatus.intfId());
   status.remTablesLastChangeTimeIs(now);
}

// Whether a remote system holds this index. Until the index counter wraps every index in
// use lies below the next one, which the comparison with the highest settles at once.
bool indexInUse(const Lldp::PortStatus& portStatus, int index) {
   const auto& table = portStatus.remoteSystem();
   return !table.empty() && index <= table.rbegin()->first && table.count(index);
}

// Hands out the index of a new neighbour: the one after the last handed out, starting
// again at 1 once the counter passes its signed maximum, and never one still in use.
int takeRemoteSystemIndex(Lldp::PortStatus& portStatus) {
   for (;;) {
      portStatus.nextRemoteSystemIndexInc();
      int index = static_cast<int>(portStatus.nextRemoteSystemIndex());
      if (index < 0) {
         VEL_TRACE(traceLldpProtocol, 2, "Index for RemoteSystem tables has wrapped");
         portStatus.nextRemoteSystemIndexIs(0);
         portStatus.nextRemoteSystemIndexInc();
         index = static_cast<int>(portStatus.nextRemoteSystemIndex());
      }
      if (!indexInUse(portStatus, index)) return index;
      VEL_TRACE(traceLldpProtocol, 8, "Index " << index << " still in use: skipped");
   }
}

// Makes the record of a new neighbour, or returns null when the port, or all ports
// together, are full. The record is not in the port's table yet: it is filled first and
// then published.
Vel::Ptr<Lldp::RemoteSystem> newRemoteSystem(const Lldp::Msap& msap, Vel::Seconds now,
                                             const Lldp::PortConfig& portConfig,
                                             Lldp::Status& status, Lldp::PortStatus& portStatus) {
   if (portStatus.remoteSystem().size() >= portConfig.remoteSystemLimit()) {
      VEL_TRACE(traceLldpProtocol, 2,
                "Not creating RemoteSystem for " << msap << " because limit reached");
      portStatus.rxFramesDiscardedTotalInc();
      portStatus.rxNeighborsRefusedInc();
      Lldp::LLDP_NEIGHBOR_LIMIT.log(portStatus.intfId(), portConfig.remoteSystemLimit());
      return nullptr;
   }
   // Against the neighbours of all ports together as well: the same for the frame, a
   // counter of its own.
   const uint64_t total =
       status.remoteSystemTally().count(Vel::Ptr<const Lldp::PortStatus>(&portStatus));
   if (total >= portConfig.remoteSystemLimitTotal()) {
      VEL_TRACE(
          traceLldpProtocol, 2,
          "Not creating RemoteSystem for " << msap << " because the limit across ports is reached");
      portStatus.rxFramesDiscardedTotalInc();
      portStatus.rxNeighborsRefusedTotalLimitInc();
      Lldp::LLDP_NEIGHBOR_LIMIT_TOTAL.log(portConfig.remoteSystemLimitTotal(), portStatus.intfId());
      return nullptr;
   }
   VEL_TRACE(traceLldpProtocol, 4, "Creating RemoteSystem");
   auto remote = Vel::make<Lldp::RemoteSystem>(takeRemoteSystemIndex(portStatus), msap);
   remote->creationTimeIs(now);
   return remote;
}

// Puts a new neighbour's record, complete, into the port's table. The machines that watch
// the table (the early LLDPDU, PoE, network policy, the published views) react while it is
// added, so they see every attribute and find it by MSAP as well as by index.
void publishRemoteSystem(const Vel::Ptr<Lldp::RemoteSystem>& remote, Lldp::Status& status,
                         Lldp::PortStatus& portStatus) {
   portStatus.remoteSystemByMsapIs(remote);
   portStatus.remoteSystemIs(remote->index(), remote);
   status.remTablesInsertsInc();
   const Lldp::Msap& msap = remote->msap();
   Lldp::LLDP_NEIGHBOR_NEW.log(msap.chassisIdentifier().stringValue(),
                               msap.portIdentifier().stringValue(), portStatus.intfId());
}

}  // namespace

TlvParseResult parseZtpBootVlanTlv(int subtype, int infoLen, const char* info,
                                   const Vel::Ptr<Lldp::RemoteSystem>& remote) {
   if (subtype != 1) {
      VEL_TRACE(traceLldpProtocol, 8, "Unrecognized ZORVEN OUI TLV (subtype=" << subtype << ")");
      return TlvParseResultUnrecognized;
   }
   if (infoLen < 2) {
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: ZTP boot vlan TLV is too short (orgDefInfoLen=)" << infoLen << ")");
      return TlvParseResultFatalError;
   }
   const uint16_t vlan = Lldp::Be::get16(info) & 0x0fff;
   if (vlan < 1 || vlan > 4094) {
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: ZTP boot VLAN is invalid (ztpBootVlan=" << vlan << ")");
      return TlvParseResultError;
   }
   remote->ztpBootVlanIs(Bridging::VlanIdOrNone(vlan));
   VEL_TRACE(traceLldpProtocol, 6, "ZTP Boot VLAN: " << vlan);
   return TlvParseResultOk;
}

Lldp::RemoteSystem::PtrConst processRxLldpdu(
    char* start, char* end, Lldp::PortConfig::PtrConst portConfig, Lldp::Status::Ptr status,
    Lldp::PortStatus::Ptr portStatus, Lldp::LocalPort::PtrConst localPort,
    Vel::Ptr<Lldp::Agent::Protocol::LldpPamSm> pamSm, const Wire::EthAddr& srcMac) {
   const Vel::Seconds now = Lldp::now();
   portStatus->rxFramesTotalInc();

   // The three mandatory TLVs, in their fixed order.
   const char* pos = start;
   int infoLen = 0;
   const char* info = nullptr;
   if (!extractMandatoryTlv(&pos, end, Lldp::tlvTypeChassisId, 256, &infoLen, &info)) {
      VEL_TRACE(traceLldpProtocol, 0, "Error in first mandatory TLV");
      return discardFrame(*portStatus);
   }
   // The frame's MSAP, the key for the lookup and for a new record. It is rebuilt in place
   // frame after frame, so long identifiers reuse its buffers instead of allocating.
   static Lldp::Msap msap;
   msap.chassisIdentifierIs(
       readIdentifier<Lldp::ChassisIdentifier>(infoLen, info, "Unknown chassid ID subtype "));
   if (!extractMandatoryTlv(&pos, end, Lldp::tlvTypePortId, 256, &infoLen, &info)) {
      VEL_TRACE(traceLldpProtocol, 0, "Error in second mandatory TLV");
      return discardFrame(*portStatus);
   }
   msap.portIdentifierIs(
       readIdentifier<Lldp::PortIdentifier>(infoLen, info, "Unknown port ID subtype "));
   if (!extractMandatoryTlv(&pos, end, Lldp::tlvTypeTtl, 2147483647, &infoLen, &info)) {
      VEL_TRACE(traceLldpProtocol, 0, "Error in third mandatory TLV");
      return discardFrame(*portStatus);
   }
   const uint16_t ttl = Lldp::Be::get16(info);  // any bytes after the first two are ignored
   VEL_TRACE(traceLldpProtocol, 6, "Chassis ID: " << msap.chassisIdentifier());
   VEL_TRACE(traceLldpProtocol, 6, "Port ID: " << msap.portIdentifier());
   VEL_TRACE(traceLldpProtocol, 6, "TTL: " << ttl);

   if (ttl == 0) {
      removeRemoteSystem(msap, now, *status, *portStatus);
      return nullptr;
   }

   VEL_TRACE(traceLldpProtocol, 4,
             "Received info frame from " << msap << " valid for " << ttl << " seconds");
   Vel::Ptr<Lldp::RemoteSystem> stored = portStatus->remoteSystemByMsap(msap);

   // The usual frame: a known neighbour repeating what it last said. Decoding it would
   // find every attribute equal, so only what a refresh always writes is written, and the
   // counters move as the decode would have moved them.
   const std::string_view optionalTlvs(pos, size_t(end - pos));
   if (stored) {
      const Lldp::RemoteSystem::RxCache cache = stored->rxCache();
      if (cache.valid && cache.optionalTlvs == optionalTlvs &&
          decoderSettingsHold(cache.decoderSettings) && !decoderTraceOn()) {
         for (uint32_t i = 0; i < cache.unrecognizedTlvs; ++i) {
            portStatus->rxTLVsUnrecognizedTotalInc();
         }
         stored->ttlIs(ttl);
         stored->ethAddrIs(srcMac);
         stored->lastRefreshTimeIs(now);
         stored->expiryTimeIs(now + ttl);
         status->lastPacketParsedTimeIs(now);
         return stored;
      }
   }

   const Vel::Ptr<Lldp::RemoteSystem>& scratch = scratchRecord();
   resetScratch(*scratch);
   parseContext().clear();
   decoderSettings = 0;

   // Optional TLVs up to End of LLDPDU or the end of the frame, whichever comes first.
   bool frameError = false;
   uint32_t unrecognizedTlvs = 0;
   while (pos < end) {
      int type = 0;
      if (!extractTlv(&pos, end, &type, &infoLen, &info)) {
         VEL_TRACE(traceLldpProtocol, 0, "Error: frame ended during optional TLV");
         portStatus->rxTLVsDiscardedTotalInc();
         frameError = true;
         break;
      }
      const TlvParseResult result = parseOptionalTlv(type, infoLen, info, scratch);
      VEL_TRACE(traceLldpProtocol, 8, "Parsed TLV: result=" << int(result));
      if (result == TlvParseResultEnd) break;
      if (result == TlvParseResultOk) continue;
      if (result == TlvParseResultUnrecognized) {
         ++unrecognizedTlvs;
         portStatus->rxTLVsUnrecognizedTotalInc();
      } else if (result == TlvParseResultError) {
         portStatus->rxTLVsDiscardedTotalInc();
         frameError = true;
      } else {
         VEL_ASSERT(result == TlvParseResultFatalError, "result == TlvParseResultFatalError");
         return discardFrame(*portStatus);
      }
   }

   bool changed = false;
   Vel::Ptr<Lldp::RemoteSystem> created;
   if (stored) {
      VEL_TRACE(traceLldpProtocol, 4, "Updating RemoteSystem");
   } else {
      created = newRemoteSystem(msap, now, *portConfig, *status, *portStatus);
      if (!created) return nullptr;
      stored = created;
      changed = true;
   }

   // Taken before the update: a changed power request is answered without waiting for
   // the next regular transmission.
   const uint16_t previousPower = stored->powerViaMdiInfo().pdRequestedPower();
   stored->ttlIs(ttl);
   if (reconcile(*scratch, *stored)) changed = true;

   stored->ethAddrIs(srcMac);
   stored->lastRefreshTimeIs(now);
   stored->expiryTimeIs(now + ttl);
   if (changed) {
      VEL_TRACE(traceLldpProtocol, 6, "Something changed -- updating lastChangeTime to " << now);
      stored->lastChangeTimeIs(now);
   }
   if (created) publishRemoteSystem(created, *status, *portStatus);
   if (changed) {
      status->remTablesLastChangeTimeIs(now);
      // A new record was announced as it was added; an updated one is announced here,
      // once, after all its attributes are in.
      if (!created) portStatus->remoteSystemTouched(stored->index());
   }
   status->lastPacketParsedTimeIs(now);

   const Lldp::LocalPortPoeInfo* poeInfo =
       localPort ? localPort->localPortPoeInfo().ptr() : nullptr;
   if (poeInfo && poeInfo->state() != 4 && portConfig->poeAllocatedPowerFallback() != 0 &&
       previousPower != scratch->powerViaMdiInfo().pdRequestedPower() && pamSm) {
      pamSm->txFsmStateIs(Lldp::Agent::Protocol::txFsmTxDelay);
   }

   if (frameError) {
      VEL_TRACE(traceLldpProtocol, 8, "Frame had an error");
      portStatus->rxFramesErrorsInc();
   }
   // Remembered for the next refresh, unless the frame had errors (those are decoded every
   // time, so that each one is counted and traced as it comes). The copy allocates only
   // when the record is new or the neighbour's LLDPDU grows.
   if (!frameError) {
      stored->rxCacheIs(optionalTlvs, unrecognizedTlvs, decoderSettings);
   } else {
      stored->rxCacheDel();
   }
   return stored;
}

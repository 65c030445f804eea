#include "Lldp/LldpProtocol.h"

#include <cstdint>
#include <cstring>

#include "Framework/Assert.h"
#include "Framework/Vel/EventLoop.h"

char* infoBuf = nullptr;

namespace Lldp {
Vel::Trace::Handle traceLldpProtocol("LldpProtocol");
}  // namespace Lldp

using Lldp::traceLldpProtocol;

bool putTlv(char** pos, char* end, int type, int infoLen, const char* info) {
   // Room first: an oversized TLV that would not fit anyway is a soft failure.
   if (end - *pos < infoLen + 2) {
      VEL_TRACE(traceLldpProtocol, 2,
                "No room for TLV (type=" << type << ", infoLen=" << infoLen << "); remaining space"
                                         << (end - *pos) << " bytes");
      return false;
   }
   VEL_ASSERT(!(infoLen & ~0x1ff), "!( infoLen & ~0x1ff )");
   char* p = *pos;
   Lldp::Be::put16(p, static_cast<uint16_t>((type << 9) | infoLen));
   if (infoLen) std::memcpy(p + 2, info, static_cast<size_t>(infoLen));
   *pos = p + 2 + infoLen;
   VEL_TRACE(traceLldpProtocol, 8,
             "Added TLV (type=" << type << ", infoLen=" << infoLen << "); remaining space"
                                << (end - *pos) << " bytes");
   return true;
}

bool putOrgDefTlv(char** pos, char* end, Lldp::Oui oui, int subtype, int orgDefInfoLen,
                  const char* info) {
   VEL_ASSERT(info - Lldp::orgDefHeaderLen == infoBuf, "info == infoBuf");
   char* hdr = infoBuf;
   Lldp::Be::put24(hdr, oui.value());
   hdr[3] = static_cast<char>(subtype & 0xff);
   return putTlv(pos, end, Lldp::tlvTypeOrgSpecific, orgDefInfoLen + Lldp::orgDefHeaderLen, hdr);
}

bool extractTlv(const char** pos, const char* end, int* type, int* infoLen, const char** info) {
   if (end - *pos < 2) {
      VEL_TRACE(traceLldpProtocol, 0, "Error: frame ended during (or before) TLV header");
      return false;
   }
   uint16_t hdr = Lldp::Be::get16(*pos);
   *type = hdr >> 9;
   *infoLen = hdr & 0x1ff;
   VEL_TRACE(traceLldpProtocol, 8, "TLV: type=" << *type << ", infoLen=" << *infoLen);
   *info = *pos + 2;
   if (end - *info < *infoLen) {
      // The position still moves to where the TLV claims to end, so the caller sees how
      // far it reached. That lies past the buffer: it is reckoned on the address, as
      // pointer arithmetic may not leave the buffer.
      *pos = reinterpret_cast<const char*>(reinterpret_cast<uintptr_t>(*info) +
                                           static_cast<uintptr_t>(*infoLen));
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: frame ended during TLV information string (type=" << *type << ", infoLen="
                                                                          << *infoLen << ")");
      return false;
   }
   *pos = *info + *infoLen;
   return true;
}

bool extractMandatoryTlv(const char** pos, const char* end, int expectedType, int maxInfoLen,
                         int* infoLen, const char** info) {
   int type = 0;
   if (!extractTlv(pos, end, &type, infoLen, info)) {
      VEL_TRACE(traceLldpProtocol, 0, "Error: frame ended during mandatory TLV");
      return false;
   }
   if (type != expectedType) {
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: TLV was not of the expected type (type=" << type << ")");
      return false;
   }
   if (*infoLen > maxInfoLen || *infoLen < 2) {
      VEL_TRACE(traceLldpProtocol, 0,
                "Error: size of TLV out of range (infoLen=" << *infoLen << ")");
      return false;
   }
   return true;
}

// ---------------------------------------------------------------------------------------
// Transmit.

#include <time.h>

#include <iomanip>

#include "Lldp/LldpExtDot1.h"
#include "Lldp/LldpExtDot3.h"
#include "Lldp/LldpMed.h"
#include "Lldp/LldpProtocolSm.h"

namespace Lldp {

namespace {

// The event loop's activity clock (virtual in engine tests), unless a test sets another.
Vel::Seconds loopNow() {
   return Vel::EventLoop::instance().now();
}

Vel::Seconds (*clockFn)() = loopNow;

// The builder's scratch area for information strings. It is process-wide and reused
// frame after frame: bytes a TLV leaves unwritten hold what our own earlier TLVs put
// there, never anything else.
char txScratch[maxTlvInfoLen + 1];

}  // namespace

Vel::Seconds now() {
   return clockFn();
}
void clockIs(Vel::Seconds (*clock)()) {
   clockFn = clock ? clock : loopNow;
}

}  // namespace Lldp

namespace {

// Puts a basic TLV whose information string is an identifier: subtype, then value.
template <class Identifier>
bool putIdentifier(char** pos, char* end, int type, const Identifier& id) {
   size_t len = id.value().size();
   VEL_ASSERT(len <= 510, "len <= 510");
   Lldp::txScratch[0] = static_cast<char>(id.subtype());
   std::memcpy(Lldp::txScratch + 1, id.value().data(), len);
   return putTlv(pos, end, type, static_cast<int>(len + 1), Lldp::txScratch);
}

bool putString(char** pos, char* end, int type, const Lldp::BoundedString255& s) {
   return putTlv(pos, end, type, static_cast<int>(s.size()), s.data());
}

}  // namespace

std::string_view encodeOid(const Snmp::ObjectIdentifier& oid) {
   // Sending an OID is not supported: nothing we advertise has one.
   VEL_ASSERT(oid.empty(), "!oid");
   return {};
}

bool putManagementAddress(char** pos, char* end, const Lldp::ManagementAddress& addr) {
   if (addr == Lldp::ManagementAddress()) return true;
   std::string_view oid = encodeOid(addr.oid());
   const int infoLen = addr.manAddrLen() + static_cast<int>(oid.size()) + 7;
   constexpr int maxInfoLen = 167;  // 1 + 32 + 1 + 4 + 1 + 128
   if (infoLen > maxInfoLen) return false;
   char info[maxInfoLen];
   char* tail = info;
   *tail++ = static_cast<char>(addr.manAddrLen());
   *tail++ = static_cast<char>(addr.key().subtype());
   const auto& bytes = addr.key().address();
   std::memcpy(tail, bytes.data(), bytes.size());
   tail += bytes.size();
   *tail++ = static_cast<char>(addr.ifNumberingSubtype());
   Lldp::Be::put32(tail, addr.ifNumber());
   tail += 4;
   *tail++ = static_cast<char>(oid.size());
   size_t oidBytes = oid.size();
   VEL_ASSERT(oidBytes == oid.size(), "oidBytes == len");
   // An empty OID may have no storage at all, and memcpy from null is undefined.
   if (oidBytes) std::memcpy(tail, oid.data(), oidBytes);
   tail += oidBytes;
   VEL_ASSERT(tail - info == infoLen, "tail - info == infoLen");
   if (putTlv(pos, end, Lldp::tlvTypeManagementAddress, infoLen, info)) {
      VEL_TRACE(Lldp::traceLldpProtocol, 6,
                "Added Management Address: " << addr.key().stringValue());
      return true;
   }
   VEL_TRACE(Lldp::traceLldpProtocol, 4,
             "Not enough space to add Management Address: " << addr.key().stringValue());
   return false;
}

bool addZtpBootVlanTlv(char** pos, char* end, Vel::Ptr<const Lldp::LocalPort> localPort,
                       Vel::Ptr<const Lldp::PortConfig> portConfig, char* info) {
   if (portConfig->ztpBootVlan() == 0) return true;
   // Eight bytes of content; receivers read only the VLAN in the first two.
   Lldp::Be::put16(info, static_cast<uint16_t>(localPort->ztpBootVlan() & 0xfff));
   bool ok = putOrgDefTlv(pos, end, Lldp::ouiZorven, 1, 8, info);
   if (ok) {
      VEL_TRACE(Lldp::traceLldpProtocol, 6, "Added ZTP boot vlan: " << localPort->ztpBootVlan());
   } else {
      VEL_TRACE(Lldp::traceLldpProtocol, 2, "Not enough space to add ZTP boot vlan");
   }
   return ok;
}

bool addExternalTlvs(char** pos, char* end, Vel::Ptr<const Lldp::LocalPort> localPort, char* info,
                     Vel::Ptr<Lldp::PortStatus>) {
   VEL_TRACE(Lldp::traceLldpProtocol, 2, "Look to add external TLV ");
   bool allFitted = true;
   for (const auto& [key, tlv] : localPort->unknownOrgDefTlv()) {
      VEL_TRACE(Lldp::traceLldpProtocol, 2, "add external TLV " << tlv);
      const auto& value = tlv.value();
      std::memcpy(info, value.data(), value.size());
      // A TLV that does not fit is skipped; a smaller one after it may still go in.
      if (!putOrgDefTlv(pos, end, key.oui(), key.subtype(), static_cast<int>(value.size()), info)) {
         VEL_TRACE(Lldp::traceLldpProtocol, 2, "Not enough space to add external TLV " << tlv);
         allFitted = false;
      }
   }
   return allFitted;
}

char* buildTxLldpdu(char* start, char* end, Vel::Ptr<const Lldp::Agent::Protocol::Root> root,
                    Vel::Ptr<const Lldp::LocalPort> localPort,
                    Vel::Ptr<const Lldp::PortConfig> portConfig,
                    Vel::Ptr<Lldp::PortStatus> portStatus) {
   using Lldp::traceLldpProtocol;
   const Lldp::Config& config = *root->config();
   const Lldp::LocalSystem& localSystem = *root->localSystem();
   const auto& intf = localPort->intfId();
   VEL_TRACE(traceLldpProtocol, 4, "Building LLDPDU for port " << intf);
   if (localSystem.chassisIdentifier().value().empty() ||
       localPort->portIdentifier().value().empty()) {
      VEL_TRACE(traceLldpProtocol, 0, "Chassis ID or Port ID has not been set for " << intf);
      VEL_ASSERT(false, "false");
   }
   // Everything but End of LLDPDU is put against tlvEnd, so End of LLDPDU always fits.
   char* const tlvEnd = end - 2;
   char* pos = start;
   bool insufficientSpace = false;
   bool success;

   success = putIdentifier(&pos, tlvEnd, Lldp::tlvTypeChassisId, localSystem.chassisIdentifier());
   VEL_ASSERT(success, "success");
   VEL_TRACE(traceLldpProtocol, 6, "Added Chassis ID: " << localSystem.chassisIdentifier());

   success = putIdentifier(&pos, tlvEnd, Lldp::tlvTypePortId, localPort->portIdentifier());
   VEL_ASSERT(success, "success");
   VEL_TRACE(traceLldpProtocol, 6, "Added Port ID: " << localPort->portIdentifier());

   char ttl[2];
   Lldp::Be::put16(ttl, static_cast<uint16_t>(config.messageTxHoldTime() & 0xffff));
   success = putTlv(&pos, tlvEnd, Lldp::tlvTypeTtl, 2, ttl);
   VEL_ASSERT(success, "success");
   VEL_TRACE(traceLldpProtocol, 6, "Added TTL: " << config.messageTxHoldTime());

   const auto enabled = portConfig->enabledTlvs();
   if (enabled.portDescription() && !localPort->portDesc().empty()) {
      success = putString(&pos, tlvEnd, Lldp::tlvTypePortDesc, localPort->portDesc());
      VEL_ASSERT(success, "success");
      VEL_TRACE(traceLldpProtocol, 6, "Added Port Description: " << localPort->portDesc());
   }
   if (enabled.systemName() && !localSystem.sysName().empty()) {
      success = putString(&pos, tlvEnd, Lldp::tlvTypeSysName, localSystem.sysName());
      VEL_ASSERT(success, "success");
      VEL_TRACE(traceLldpProtocol, 6, "Added System Name: " << localSystem.sysName());
   }
   if (enabled.systemDescription() && !localSystem.sysDesc().empty()) {
      success = putString(&pos, tlvEnd, Lldp::tlvTypeSysDesc, localSystem.sysDesc());
      VEL_ASSERT(success, "success");
      VEL_TRACE(traceLldpProtocol, 6, "Added System Description: " << localSystem.sysDesc());
   }
   if (enabled.systemCapabilities()) {
      char caps[4];
      Lldp::Be::put16(caps, localSystem.sysCapSupported().value());
      Lldp::Be::put16(caps + 2, localSystem.sysCapEnabled().value());
      success = putTlv(&pos, tlvEnd, Lldp::tlvTypeSysCap, 4, caps);
      VEL_ASSERT(success, "success");
      VEL_TRACE(traceLldpProtocol, 6,
                "Added System Capabilities: " << localSystem.sysCapSupported() << ", enabled=0x"
                                              << std::hex << localSystem.sysCapEnabled().value()
                                              << std::dec);
   }

   if (portConfig->mgmtAddrTxEnable()) {
      // The IPv6 address is extra: it does not count against maxTxMgmtAddrs.
      bool ok = putManagementAddress(&pos, tlvEnd, localSystem.ip6ManagementAddress());
      if (ok) {
         uint32_t sent = 0;
         for (const auto& [prio, key] : localSystem.managementAddressPrio()) {
            if (sent >= config.maxTxMgmtAddrs()) break;
            const Lldp::ManagementAddress* found = localSystem.managementAddress(key);
            ok = found ? putManagementAddress(&pos, tlvEnd, *found)
                       : putManagementAddress(
                             &pos, tlvEnd,
                             Lldp::ManagementAddress(
                                 {.key = key, .ifNumberingSubtype = Lldp::ifNumberingUnknown}));
            if (!ok) break;
            ++sent;
         }
      }
      if (!ok) insufficientSpace = true;
   }

   infoBuf = Lldp::txScratch;
   char* const info = infoBuf + Lldp::orgDefHeaderLen;
   auto attempt = [&](bool fitted, const char* message) {
      if (!fitted) {
         VEL_TRACE(traceLldpProtocol, 8, message);
         insufficientSpace = true;
      }
   };
   attempt(addExtDot1Tlvs(&pos, tlvEnd, localPort, portConfig, info),
           "Not enough space for one or more IEEE 802.1 TLVs");
   attempt(addExtDot3Tlvs(&pos, tlvEnd, localPort, portConfig, info, portStatus),
           "Not enough space for one or more IEEE 802.3 TLVs");
   attempt(LldpMed::addTlvs(&pos, tlvEnd, localPort, portConfig, info, portStatus),
           "Not enough space for one or more TIA TLVs");
   attempt(addExternalTlvs(&pos, tlvEnd, localPort, info, portStatus),
           "Not enough space for one or more external TLVs");
   attempt(addZtpBootVlanTlv(&pos, tlvEnd, localPort, portConfig, info),
           "Not enough space for ZTP boot vlan TLV");
   // VLAN names go last: they get whatever room the others leave.
   attempt(addVlanNameTlvs(&pos, tlvEnd, portStatus, portConfig, info),
           "Not enough space for one or more VlanName TLVs");
   infoBuf = nullptr;

   success = putTlv(&pos, end, Lldp::tlvTypeEnd, 0, nullptr);
   VEL_ASSERT(success, "success");
   VEL_TRACE(traceLldpProtocol, 6, "Added End of LLDPDU");

   portStatus->txFramesTotalInc();
   portStatus->lastTxTimeIs(Lldp::now());
   if (insufficientSpace) {
      VEL_TRACE(traceLldpProtocol, 8, "Frame had insufficient space");
      portStatus->txFramesLengthExceededInc();
   }
   return pos;
}

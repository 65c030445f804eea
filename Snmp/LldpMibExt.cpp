// The LLDP-MIB's extension modules (under lldpExtensions, 1.0.8802.1.1.2.1.5, each named
// by its OUI): IEEE 802.1 (LLDP-EXT-DOT1-MIB), IEEE 802.3 (LLDP-EXT-DOT3-MIB) and
// LLDP-MED (LLDP-EXT-MED-MIB), local and remote, read from the records.
#include <string>

#include "Snmp/LldpMibSource.h"
#include "Snmp/MibTree.h"

namespace Snmp {

namespace {

using Src = LldpMibSource;
using Port = LldpMibSource::Port;
using Rs = Lldp::RemoteSystem;

constexpr uint32_t dot1 = 32962;  // 00-80-C2
constexpr uint32_t dot3 = 4623;   // 00-12-0F
constexpr uint32_t med = 4795;    // 00-12-BB

// lldpExtensions.<module>.1 (the module's objects) followed by `tail`.
Oid ext(uint32_t module, std::initializer_list<uint32_t> tail) {
   Oid o{1, 0, 8802, 1, 1, 2, 1, 5, module, 1};
   for (uint32_t i : tail) o.push(i);
   return o;
}

// PolicyAppType: the application type N (1..8) is bit N of a two-octet BITS.
Value appTypeBits(uint8_t appType) {
   return Value::bits(appType < 16 ? 1u << appType : 0, 2);
}
void appTypeIndex(Oid& index, uint8_t appType) {
   const Value v = appTypeBits(appType);
   index.appendBytes(v.bytes(), true);
}

// Our TLV selection bits onto LldpXMedCapabilities (capabilities, networkPolicy,
// location, extendedPSE, extendedPD, inventory).
uint32_t medTxBits(uint8_t tia) {
   return (tia & 0x0f) | ((tia & 0x10) ? 0x20 : 0);
}

void policyRows(const Lldp::NetworkPolicyTlv& p, uint32_t col, Oid& index, RowFinder& f) {
   switch (col) {
      case 2:
         f.offer(index, Value::integer(p.vlanId()));
         break;
      case 3:
         f.offer(index, Value::integer(p.priority()));
         break;
      case 4:
         f.offer(index, Value::integer(p.dscp()));
         break;
      case 5:
         f.offer(index, Value::truth(p.unknown()));
         break;
      case 6:
         f.offer(index, Value::truth(p.tagged()));
         break;
   }
}

// ----- IEEE 802.1

void dot1ConfigPortVlan(const Src& s, const Port& p, uint32_t, Oid& index, RowFinder& f) {
   if (const auto* pc = s.portConfig(p.intf)) f.offer(index, Value::truth(pc->portVlanTxEnable()));
}

// Augments lldpXdot1LocVlanNameTable, so it has exactly that table's rows: a port with
// VLAN names but no configuration of ours sends none of them.
void dot1ConfigVlanName(const Src& s, const Port& p, uint32_t, Oid& index, RowFinder& f) {
   const auto* ps = s.portStatus(p.intf);
   if (!ps) return;
   const auto* pc = s.portConfig(p.intf);
   for (const auto& [vid, name] : ps->vlanName()) {
      index.len = 1;
      index.push(vid);
      f.offer(index, Value::truth(pc && pc->vlanNameTxEnable()));
   }
}

void dot1LocPort(const Src& s, const Port& p, uint32_t, Oid& index, RowFinder& f) {
   if (const auto* lp = s.localPort(p.intf)) f.offer(index, Value::integer(lp->portVlanId()));
}

void dot1LocVlanName(const Src& s, const Port& p, uint32_t, Oid& index, RowFinder& f) {
   const auto* ps = s.portStatus(p.intf);
   if (!ps) return;
   for (const auto& [vid, name] : ps->vlanName()) {
      index.len = 1;
      index.push(vid);
      f.offer(index, Value::octets(name.name().value()));
   }
}

// Every neighbour has its row here, whatever it sent: a port VLAN the neighbour did not
// tell us reads 0, the MIB's value for "not known".
void dot1Rem(const Rs& rs, uint32_t, Oid& index, RowFinder& f) {
   f.offer(index, Value::integer(rs.portVlanIdTlvReceived() ? rs.portVlanId().value() : 0));
}

void dot1RemProtoVlan(const Rs& rs, uint32_t col, Oid& index, RowFinder& f) {
   const size_t base = index.len;
   for (const auto& [ppvid, v] : rs.portAndProtocolVlan()) {
      index.len = base;
      index.push(ppvid);
      f.offer(index, Value::truth(col == 2 ? v.supported() : v.enabled()));
   }
}

void dot1RemVlanName(const Rs& rs, uint32_t, Oid& index, RowFinder& f) {
   const size_t base = index.len;
   for (const auto& [vid, v] : rs.vlanName()) {
      index.len = base;
      index.push(vid);
      f.offer(index, Value::octets(v.name().value()));
   }
}

void dot1RemProtocol(const Rs& rs, uint32_t, Oid& index, RowFinder& f) {
   const size_t base = index.len;
   for (const auto& [i, v] : rs.protocolIdentityInfo()) {
      index.len = base;
      index.push(static_cast<uint32_t>(i));
      f.offer(index, Value::octets(v.identity().value()));
   }
}

// ----- IEEE 802.3

void dot3Config(const Src& s, const Port& p, uint32_t, Oid& index, RowFinder& f) {
   if (const auto* pc = s.portConfig(p.intf)) {
      f.offer(index, Value::bits(pc->dot3EnabledTlvs().value(), 1));
   }
}

void dot3LocLinkAgg(const Src& s, const Port& p, uint32_t col, Oid& index, RowFinder& f) {
   const auto* lp = s.localPort(p.intf);
   if (!lp) return;
   const Lldp::LinkAggregationInfo& la = lp->linkAggregationInfo();
   if (col == 1) f.offer(index, Value::bits(la.status().value() & 0x03, 1));
   if (col == 2) f.offer(index, Value::integer(la.aggregatedPortId()));
}

void dot3LocMaxFrame(const Src& s, const Port& p, uint32_t, Oid& index, RowFinder& f) {
   if (const auto* lp = s.localPort(p.intf)) {
      f.offer(index, Value::integer(lp->maximumFrameSizeInfo().maxFrameSize()));
   }
}

// The IEEE 802.3 remote tables have a row only for a neighbour that sent the TLV: none
// of their columns has a value that stands for "not known".
void dot3RemPort(const Rs& rs, uint32_t col, Oid& index, RowFinder& f) {
   if (!rs.macPhyConfigStatusTlvReceived()) return;
   const Lldp::MacPhyConfigStatusInfo& m = rs.macPhyConfigStatusInfo();
   const uint16_t cap = m.pmdAutonegAdvertisedCapability();
   const uint8_t capBytes[2] = {uint8_t(cap >> 8), uint8_t(cap)};
   switch (col) {
      case 1:
         f.offer(index, Value::truth(m.autonegSupported()));
         break;
      case 2:
         f.offer(index, Value::truth(m.autonegEnabled()));
         break;
      case 3:
         f.offer(index, Value::copied(capBytes, 2));
         break;
      case 4:
         f.offer(index, Value::integer(m.operationalMauType()));
         break;
   }
}

void dot3RemPower(const Rs& rs, uint32_t col, Oid& index, RowFinder& f) {
   if (!rs.powerViaMdiTlvReceived()) return;
   const Lldp::PowerViaMdiInfo& p = rs.powerViaMdiInfo();
   switch (col) {
      case 1:
         f.offer(index, Value::integer(p.portClassPse() ? 1 : 2));
         break;
      case 2:
         f.offer(index, Value::truth(p.pseMdiPowerSupported()));
         break;
      case 3:
         f.offer(index, Value::truth(p.pseMdiPowerEnabled()));
         break;
      case 4:
         f.offer(index, Value::truth(p.psePairsControlAbility()));
         break;
      case 5:
         f.offer(index, Value::integer(p.psePowerPair()));
         break;
      case 6:
         f.offer(index, Value::integer(p.powerClass()));
         break;
   }
}

void dot3RemLinkAgg(const Rs& rs, uint32_t col, Oid& index, RowFinder& f) {
   if (!rs.linkAggregationTlvReceived()) return;
   const Lldp::LinkAggregationInfo& la = rs.linkAggregationInfo();
   if (col == 1) f.offer(index, Value::bits(la.status().value() & 0x03, 1));
   if (col == 2) f.offer(index, Value::integer(la.aggregatedPortId()));
}

void dot3RemMaxFrame(const Rs& rs, uint32_t, Oid& index, RowFinder& f) {
   if (rs.maximumFrameSizeTlvReceived()) {
      f.offer(index, Value::integer(rs.maximumFrameSizeInfo().maxFrameSize()));
   }
}

// ----- LLDP-MED

void medPortConfig(const Src& s, const Port& p, uint32_t col, Oid& index, RowFinder& f) {
   const auto* pc = s.portConfig(p.intf);
   if (!pc) return;
   const auto* lp = s.localPort(p.intf);
   switch (col) {
      case 1:
         f.offer(index,
                 Value::bits(lp ? lp->medCapabilities().capabilities().value() & 0x3f : 0, 1));
         break;
      case 2:
         f.offer(index, Value::bits(medTxBits(pc->tiaEnabledTlvs().value()), 1));
         break;
      case 3:
         f.offer(index, Value::truth(false));
         break;
   }
}

void medLocPolicy(const Src& s, const Port& p, uint32_t col, Oid& index, RowFinder& f) {
   const auto* lp = s.localPort(p.intf);
   if (!lp) return;
   for (const auto& [app, pol] : lp->localNetworkPolicyTlv()) {
      index.len = 1;
      appTypeIndex(index, app);
      policyRows(pol, col, index, f);
   }
}

uint32_t medCurrentBits(const Rs& rs) {
   uint32_t b = 0;
   if (rs.medCapabilitiesTlvReceived()) b |= 0x01;
   if (!rs.networkPolicyTlv().empty()) b |= 0x02;
   if (rs.locationId().format() != 0) b |= 0x04;
   if (!rs.hardwareRevisionTlvInfo().empty() || !rs.firmwareRevisionTlvInfo().empty() ||
       !rs.softwareRevisionTlvInfo().empty() || !rs.serialNumberTlvInfo().empty() ||
       !rs.manufacturerNameTlvInfo().empty() || !rs.modelNameTlvInfo().empty() ||
       !rs.assetIDTlvInfo().empty()) {
      b |= 0x20;
   }
   return b;
}

// The one LLDP-MED table that is not sparse: a row for every neighbour that speaks
// LLDP-MED at all (sent any of its TLVs), since the rows of the other remote LLDP-MED
// tables are read against it. Without the Capabilities TLV we know no supported set and
// no device class: the empty set and notDefined(0).
void medRemCaps(const Rs& rs, uint32_t col, Oid& index, RowFinder& f) {
   if (!rs.anyLldpMedReceived()) return;
   const bool known = rs.medCapabilitiesTlvReceived();
   const Lldp::MedCapabilitiesInfo& m = rs.medCapabilitiesInfo();
   switch (col) {
      case 1:
         f.offer(index, Value::bits(known ? m.capabilities().value() & 0x3f : 0, 1));
         break;
      case 2:
         f.offer(index, Value::bits(medCurrentBits(rs), 1));
         break;
      case 3:
         f.offer(index, Value::integer(!known || m.deviceType() > 4 ? 0 : m.deviceType()));
         break;
   }
}

void medRemPolicy(const Rs& rs, uint32_t col, Oid& index, RowFinder& f) {
   const size_t base = index.len;
   for (const auto& [app, pol] : rs.networkPolicyTlv()) {
      index.len = base;
      appTypeIndex(index, app);
      policyRows(pol, col, index, f);
   }
}

void medRemInventory(const Rs& rs, uint32_t col, Oid& index, RowFinder& f) {
   if (!(medCurrentBits(rs) & 0x20)) return;
   const Lldp::BoundedString32Tlv* s[] = {
       &rs.hardwareRevisionTlvInfo(), &rs.firmwareRevisionTlvInfo(), &rs.softwareRevisionTlvInfo(),
       &rs.serialNumberTlvInfo(),     &rs.manufacturerNameTlvInfo(), &rs.modelNameTlvInfo(),
       &rs.assetIDTlvInfo()};
   if (col >= 1 && col <= 7) f.offer(index, Value::octets(s[col - 1]->value()));
}

// The location as the TLV carries it after its format byte. Only one row of one
// neighbour is ever offered from here per request, so one buffer will do.
void medRemLocation(const Rs& rs, uint32_t, Oid& index, RowFinder& f) {
   const Lldp::LocationId& loc = rs.locationId();
   if (loc.format() == 0) return;
   index.push(loc.format() + 1u);  // LocationSubtype: coordinateBased(2), civic(3), elin(4)
   if (loc.format() == Lldp::LocationId::formatCoordinate) {
      f.offer(index, Value::copied(loc.coordinate().data(), loc.coordinate().size()));
   } else if (loc.format() == Lldp::LocationId::formatElin) {
      f.offer(index, Value::octets(loc.elin().value()));
   } else {
      static std::string civic;
      const Lldp::CivicAddress& c = loc.civicAddress();
      civic.assign(1, '\0');
      civic += char(c.what());
      civic += c.countryCode().value();
      for (const auto& [type, e] : c.caElements()) {
         civic += char(type);
         civic += char(e.caValue().size());
         civic += e.caValue().value();
      }
      civic[0] = char(civic.size() - 1);
      f.offer(index, Value::octets(civic));
   }
}

template <Src::PortRows R>
void ports(const Src& s, uint32_t c, RowFinder& f) {
   s.seekPorts(c, f, R);
}
template <Src::RemoteRows R>
void remote(const Src& s, uint32_t c, RowFinder& f) {
   s.seekRemote(c, f, R);
}

}  // namespace

void addLldpExtMibObjects(std::vector<MibObject>& out) {
   // LLDP-EXT-DOT1-MIB
   out.push_back(table(ext(dot1, {1, 1, 1}), 1, 1, ports<dot1ConfigPortVlan>));
   out.push_back(table(ext(dot1, {1, 2, 1}), 1, 1, ports<dot1ConfigVlanName>));
   out.push_back(table(ext(dot1, {2, 1, 1}), 1, 1, ports<dot1LocPort>));
   out.push_back(table(ext(dot1, {2, 3, 1}), 2, 2, ports<dot1LocVlanName>));
   out.push_back(table(ext(dot1, {3, 1, 1}), 1, 1, remote<dot1Rem>));
   out.push_back(table(ext(dot1, {3, 2, 1}), 2, 3, remote<dot1RemProtoVlan>));
   out.push_back(table(ext(dot1, {3, 3, 1}), 2, 2, remote<dot1RemVlanName>));
   out.push_back(table(ext(dot1, {3, 4, 1}), 2, 2, remote<dot1RemProtocol>));

   // LLDP-EXT-DOT3-MIB
   out.push_back(table(ext(dot3, {1, 1, 1}), 1, 1, ports<dot3Config>));
   out.push_back(table(ext(dot3, {2, 3, 1}), 1, 2, ports<dot3LocLinkAgg>));
   out.push_back(table(ext(dot3, {2, 4, 1}), 1, 1, ports<dot3LocMaxFrame>));
   out.push_back(table(ext(dot3, {3, 1, 1}), 1, 4, remote<dot3RemPort>));
   out.push_back(table(ext(dot3, {3, 2, 1}), 1, 6, remote<dot3RemPower>));
   out.push_back(table(ext(dot3, {3, 3, 1}), 1, 2, remote<dot3RemLinkAgg>));
   out.push_back(table(ext(dot3, {3, 4, 1}), 1, 1, remote<dot3RemMaxFrame>));

   // LLDP-EXT-MED-MIB: we are a network connectivity device.
   MibObject deviceClass;
   deviceClass.oid = ext(med, {1, 1});
   deviceClass.scalar = [](const Src&, Value& v) {
      v = Value::integer(4);
      return true;
   };
   out.push_back(deviceClass);
   out.push_back(table(ext(med, {1, 2, 1}), 1, 3, ports<medPortConfig>));
   out.push_back(table(ext(med, {2, 1, 1}), 2, 6, ports<medLocPolicy>));
   out.push_back(table(ext(med, {3, 1, 1}), 1, 3, remote<medRemCaps>));
   out.push_back(table(ext(med, {3, 2, 1}), 2, 6, remote<medRemPolicy>));
   out.push_back(table(ext(med, {3, 3, 1}), 1, 7, remote<medRemInventory>));
   out.push_back(table(ext(med, {3, 4, 1}), 2, 2, remote<medRemLocation>));
}

}  // namespace Snmp

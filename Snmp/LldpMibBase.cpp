// LLDP-MIB (IEEE 802.1AB, 1.0.8802.1.1.2): configuration, statistics, the local system
// and the remote systems, read from the records as each request comes.
#include <algorithm>

#include "Snmp/LldpMibSource.h"
#include "Snmp/MibTree.h"

namespace Snmp {

namespace {

using Src = LldpMibSource;
using Port = LldpMibSource::Port;

// lldpObjects: 1.0.8802.1.1.2.1
Oid at(std::initializer_list<uint32_t> tail) {
   Oid o{1, 0, 8802, 1, 1, 2, 1};
   for (uint32_t i : tail) o.push(i);
   return o;
}

std::string_view view(const auto& fixedString) {
   return fixedString.value();
}

// The multiplier that, times the transmit interval, gives at least our time to live: we
// keep the time to live itself (in seconds), the MIB keeps a multiplier of 2..10.
uint32_t holdMultiplier(const Lldp::Config& c) {
   const uint32_t interval = std::max<uint32_t>(c.messageTxInterval(), 1);
   const uint32_t m = (c.messageTxHoldTime() + interval - 1) / interval;
   return std::clamp<uint32_t>(m, 2, 10);
}

// LldpSystemCapabilitiesMap: one octet while only the first eight bits are defined or
// set, two once any later bit is.
Value sysCaps(const Lldp::SystemCapabilitiesMap& m) {
   return Value::bits(m.value(), m.value() > 0xff ? 2 : 1);
}

// One management address row: subtype, then the address with its length.
void manAddrIndex(Oid& index, const Lldp::ManagementAddress& a) {
   index.push(a.key().subtype());
   index.appendBytes(a.key().address().value(), true);
}

// ----- lldpConfiguration

void portConfigRows(const Src& src, const Port& p, uint32_t col, Oid& index, RowFinder& f) {
   const Lldp::PortConfig* pc = src.portConfig(p.intf);
   if (!pc) return;
   switch (col) {
      case 2:
         f.offer(index, Value::integer(pc->adminStatus()));
         break;
      case 3:
         f.offer(index, Value::truth(src.notificationEnabled(p.intf)));
         break;
      case 4:
         f.offer(index, Value::bits(pc->enabledTlvs().value(), 1));
         break;
   }
}

// ----- lldpStatistics

void txStatsRows(const Src& src, const Port& p, uint32_t, Oid& index, RowFinder& f) {
   if (const Lldp::PortStatus* ps = src.portStatus(p.intf)) {
      f.offer(index, Value::counter(ps->txFramesTotal()));
   }
}

void rxStatsRows(const Src& src, const Port& p, uint32_t col, Oid& index, RowFinder& f) {
   const Lldp::PortStatus* ps = src.portStatus(p.intf);
   if (!ps) return;
   switch (col) {
      // Frames dropped by the rate limit are discarded frames too.
      case 2:
         f.offer(index, Value::counter(ps->rxFramesDiscardedTotal() + ps->rxLldpdusRateLimited()));
         break;
      case 3:
         f.offer(index, Value::counter(ps->rxFramesErrors()));
         break;
      case 4:
         f.offer(index, Value::counter(ps->rxFramesTotal()));
         break;
      case 5:
         f.offer(index, Value::counter(ps->rxTLVsDiscardedTotal()));
         break;
      case 6:
         f.offer(index, Value::counter(ps->rxTLVsUnrecognizedTotal()));
         break;
      case 7:
         f.offer(index, Value::gauge(ps->rxAgeoutsTotal()));
         break;
   }
}

// ----- lldpLocalSystemData

void locPortRows(const Src& src, const Port& p, uint32_t col, Oid& index, RowFinder& f) {
   const Lldp::LocalPort* lp = src.localPort(p.intf);
   if (!lp) return;
   switch (col) {
      case 2:
         f.offer(index, Value::integer(lp->portIdentifier().subtype()));
         break;
      case 3:
         f.offer(index, Value::octets(view(lp->portIdentifier().value())));
         break;
      case 4:
         f.offer(index, Value::octets(view(lp->portDesc())));
         break;
   }
}

void locManAddrRows(const Src& src, uint32_t col, RowFinder& f) {
   const Lldp::LocalSystem& ls = src.localSystem();
   Oid index;
   auto offer = [&](const Lldp::ManagementAddress& a) {
      index.len = 0;
      manAddrIndex(index, a);
      switch (col) {
         case 3:
            f.offer(index, Value::integer(a.manAddrLen()));
            break;
         case 4:
            f.offer(index, Value::integer(a.ifNumberingSubtype()));
            break;
         case 5:
            f.offer(index, Value::integer(a.ifNumber()));
            break;
         case 6:
            f.offer(index, Value::objectId(&a.oid()));
            break;
      }
   };
   for (const auto& [key, a] : ls.managementAddress()) offer(a);
   if (!(ls.ip6ManagementAddress() == Lldp::ManagementAddress())) offer(ls.ip6ManagementAddress());
}

// ----- lldpRemoteSystemsData

void remRows(const Lldp::RemoteSystem& rs, uint32_t col, Oid& index, RowFinder& f) {
   const Lldp::Msap& msap = rs.msap();
   switch (col) {
      case 4:
         f.offer(index, Value::integer(msap.chassisIdentifier().subtype()));
         break;
      case 5:
         f.offer(index, Value::octets(view(msap.chassisIdentifier().value())));
         break;
      case 6:
         f.offer(index, Value::integer(msap.portIdentifier().subtype()));
         break;
      case 7:
         f.offer(index, Value::octets(view(msap.portIdentifier().value())));
         break;
      case 8:
         f.offer(index, Value::octets(view(rs.portDesc())));
         break;
      case 9:
         f.offer(index, Value::octets(view(rs.sysName())));
         break;
      case 10:
         f.offer(index, Value::octets(view(rs.sysDesc())));
         break;
      case 11:
         f.offer(index, sysCaps(rs.systemCapabilities().supported()));
         break;
      case 12:
         f.offer(index, sysCaps(rs.systemCapabilities().enabled()));
         break;
   }
}

void remManAddrRows(const Lldp::RemoteSystem& rs, uint32_t col, Oid& index, RowFinder& f) {
   const size_t base = index.len;
   for (const auto& [key, a] : rs.managementAddress()) {
      index.len = base;
      manAddrIndex(index, a);
      switch (col) {
         case 3:
            f.offer(index, Value::integer(a.ifNumberingSubtype()));
            break;
         case 4:
            f.offer(index, Value::integer(a.ifNumber()));
            break;
         case 5:
            f.offer(index, Value::objectId(&a.oid()));
            break;
      }
   }
}

void remUnknownRows(const Lldp::RemoteSystem& rs, uint32_t, Oid& index, RowFinder& f) {
   const size_t base = index.len;
   for (const auto& [type, tlv] : rs.unknownTlv()) {
      index.len = base;
      index.push(type);
      f.offer(index, Value::octets(tlv.value().value()));
   }
}

void remOrgDefRows(const Lldp::RemoteSystem& rs, uint32_t, Oid& index, RowFinder& f) {
   const size_t base = index.len;
   for (const auto& [key, tlv] : rs.unknownOrgDefTlv()) {
      if (key.index() < 1) continue;
      index.len = base;
      const uint32_t oui = key.oui().value();
      index.push(oui >> 16);  // OCTET STRING (SIZE(3)): fixed size, no length
      index.push((oui >> 8) & 0xff);
      index.push(oui & 0xff);
      index.push(key.subtype());
      index.push(static_cast<uint32_t>(key.index()));
      f.offer(index, Value::octets(tlv.value().value()));
   }
}

}  // namespace

void addLldpMibObjects(std::vector<MibObject>& out) {
   // lldpConfiguration
   out.push_back(scalar(at({1, 1}), [](const Src& s, Value& v) {
      v = Value::integer(s.config().messageTxInterval());
      return true;
   }));
   out.push_back(scalar(at({1, 2}), [](const Src& s, Value& v) {
      v = Value::integer(holdMultiplier(s.config()));
      return true;
   }));
   out.push_back(scalar(at({1, 3}), [](const Src& s, Value& v) {
      v = Value::integer(s.config().reinitDelay());
      return true;
   }));
   out.push_back(scalar(at({1, 4}), [](const Src& s, Value& v) {
      v = Value::integer(s.config().txDelay());
      return true;
   }));
   out.push_back(scalar(at({1, 5}), [](const Src& s, Value& v) {
      v = Value::integer(s.settings().notificationInterval);
      return true;
   }));
   out.push_back(table(at({1, 6, 1}), 2, 4, [](const Src& s, uint32_t c, RowFinder& f) {
      s.seekPorts(c, f, portConfigRows);
   }));

   // lldpStatistics
   out.push_back(scalar(at({2, 1}), [](const Src& s, Value& v) {
      v = Value::ticks(s.ticks(s.status().remTablesLastChangeTime()));
      return true;
   }));
   out.push_back(scalar(at({2, 2}), [](const Src& s, Value& v) {
      v = Value::gauge(s.status().remTablesInserts());
      return true;
   }));
   out.push_back(scalar(at({2, 3}), [](const Src& s, Value& v) {
      v = Value::gauge(s.status().remTablesDeletes());
      return true;
   }));
   out.push_back(scalar(at({2, 4}), [](const Src& s, Value& v) {
      v = Value::gauge(s.status().remTablesDrops());
      return true;
   }));
   out.push_back(scalar(at({2, 5}), [](const Src& s, Value& v) {
      v = Value::gauge(s.status().remTablesAgeouts());
      return true;
   }));
   out.push_back(table(at({2, 6, 1}), 2, 2, [](const Src& s, uint32_t c, RowFinder& f) {
      s.seekPorts(c, f, txStatsRows);
   }));
   out.push_back(table(at({2, 7, 1}), 2, 7, [](const Src& s, uint32_t c, RowFinder& f) {
      s.seekPorts(c, f, rxStatsRows);
   }));

   // lldpLocalSystemData
   out.push_back(scalar(at({3, 1}), [](const Src& s, Value& v) {
      v = Value::integer(s.localSystem().chassisIdentifier().subtype());
      return true;
   }));
   out.push_back(scalar(at({3, 2}), [](const Src& s, Value& v) {
      v = Value::octets(view(s.localSystem().chassisIdentifier().value()));
      return true;
   }));
   out.push_back(scalar(at({3, 3}), [](const Src& s, Value& v) {
      v = Value::octets(view(s.localSystem().sysName()));
      return true;
   }));
   out.push_back(scalar(at({3, 4}), [](const Src& s, Value& v) {
      v = Value::octets(view(s.localSystem().sysDesc()));
      return true;
   }));
   out.push_back(scalar(at({3, 5}), [](const Src& s, Value& v) {
      v = sysCaps(s.localSystem().sysCapSupported());
      return true;
   }));
   out.push_back(scalar(at({3, 6}), [](const Src& s, Value& v) {
      v = sysCaps(s.localSystem().sysCapEnabled());
      return true;
   }));
   out.push_back(table(at({3, 7, 1}), 2, 4, [](const Src& s, uint32_t c, RowFinder& f) {
      s.seekPorts(c, f, locPortRows);
   }));
   out.push_back(table(at({3, 8, 1}), 3, 6, locManAddrRows));

   // lldpRemoteSystemsData
   out.push_back(table(at({4, 1, 1}), 4, 12, [](const Src& s, uint32_t c, RowFinder& f) {
      s.seekRemote(c, f, remRows);
   }));
   out.push_back(table(at({4, 2, 1}), 3, 5, [](const Src& s, uint32_t c, RowFinder& f) {
      s.seekRemote(c, f, remManAddrRows);
   }));
   out.push_back(table(at({4, 3, 1}), 2, 2, [](const Src& s, uint32_t c, RowFinder& f) {
      s.seekRemote(c, f, remUnknownRows);
   }));
   out.push_back(table(at({4, 4, 1}), 4, 4, [](const Src& s, uint32_t c, RowFinder& f) {
      s.seekRemote(c, f, remOrgDefRows);
   }));
}

}  // namespace Snmp

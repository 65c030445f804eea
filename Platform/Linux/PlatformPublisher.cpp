#include "Platform/Linux/PlatformPublisher.h"

#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "Framework/Wire/IntfMap.h"

namespace Platform::Linux {

namespace {

constexpr size_t maxTextBytes = 255;
constexpr uint32_t ethOverhead = 18;  // header and frame check sequence

std::string cut(std::string s) {
   if (s.size() > maxTextBytes) s.resize(maxTextBytes);
   return s;
}

// What one publication placed, by interface: the kinds of record each got. One map where
// a set per kind would hold every name again: publishing a thousand ports at start-up is
// the daemon's largest moment.
enum PublishedKind : uint8_t {
   publishedAny = 1,
   publishedPort = 2,
   publishedFramePort = 4,
   publishedSwitchport = 8,
   publishedLag = 16,
   publishedIp = 32,
   publishedIp6 = 64,
};

class Published {
public:
   void add(const Wire::IntfId& id, PublishedKind kind) {
      uint8_t& kinds = kinds_[id];
      if (!(kinds & kind)) ++counts_[size_t(std::countr_zero(unsigned(kind)))];
      kinds |= kind;
   }
   size_t count(PublishedKind kind) const {
      return counts_[size_t(std::countr_zero(unsigned(kind)))];
   }
   // The interfaces of one kind, as dropExcept asks for them.
   struct Of {
      const Published& published;
      PublishedKind kind;
      size_t count(const Wire::IntfId& id) const {
         const auto it = published.kinds_.find(id);
         return it != published.kinds_.end() && (it->second & kind) ? 1 : 0;
      }
   };
   Of of(PublishedKind kind) const { return Of{*this, kind}; }

private:
   Wire::IntfMap<uint8_t> kinds_;
   std::array<size_t, 7> counts_{};
};

// Deletes every member of `current` whose key is not in `keep`.
template <class Map, class Keep, class Del>
void dropExcept(const Map& current, const Keep& keep, Del&& del) {
   std::vector<typename Map::key_type> gone;
   for (const auto& entry : current) {
      if (!keep.count(entry.first)) gone.push_back(entry.first);
   }
   for (const auto& k : gone) del(k);
}

// The kernel's operational state, with the administrative and carrier flags for
// drivers that leave it unknown.
uint8_t linkStatusOf(const LinkInfo& l) {
   switch (l.operstate) {
      case IF_OPER_UP:
         return Interface::linkStatusUp;
      case IF_OPER_DOWN:
      case IF_OPER_LOWERLAYERDOWN:
         return Interface::linkStatusDown;
      case IF_OPER_UNKNOWN:
         if (!(l.flags & IFF_UP)) return Interface::linkStatusDown;
         if (l.flags & IFF_LOWER_UP) return Interface::linkStatusUp;
         return Interface::linkStatusUnknown;
      default:
         return Interface::linkStatusUnknown;
   }
}

// A port's view of the bridge it belongs to, directly or through its bond.
struct Switchport {
   bool bridged = false;
   uint16_t pvid = 0;
   bool access = true;
   std::bitset<4096> vlans;
};

class Derivation {
public:
   Derivation(const NetModel& m, const PlatformOptions& o) : m_(m), o_(o), held_(m.lockedPorts) {
      for (const auto& [_, upper] : m.links) {
         if (upper.kind == "macsec" && upper.operstate != IF_OPER_UP) held_.insert(upper.link);
      }
   }

   Wire::IntfId idOf(const LinkInfo& l) const {
      return intfIdOf(l.name.value(), l.kind.value(), o_);
   }
   // Interfaces whose numbers lie outside their kind's range are not published at all:
   // readers rank interfaces by those numbers and treat one outside as a fault.
   bool publishable(const LinkInfo& l) const {
      if (Interface::intfNumbersInRange(idOf(l))) return true;
      VEL_TRACE(platformTrace, 0, l.name << ": interface number out of range, not published");
      return false;
   }

   // Port authentication holds a port: 802.1X while the bridge port is locked, MACsec
   // while a MACsec device over it is not up (its secure channel is not established, so
   // nothing but link-local frames passes).
   bool heldByAuthentication(int index) const { return held_.count(index) != 0; }
   bool isKind(int index, const char* kind) const {
      const LinkInfo* l = m_.link(index);
      return l && l->kind == kind;
   }

   std::string vrfOf(const LinkInfo& l) const {
      const LinkInfo* master = m_.link(l.master);
      return master && master->kind == "vrf" ? master->name.stringValue() : std::string();
   }

   Switchport switchportOf(const LinkInfo& l) const {
      Switchport sp;
      const LinkInfo* port = &l;
      if (isKind(port->master, "bond")) port = m_.link(port->master);
      const LinkInfo* bridge = m_.link(port->master);
      if (!bridge || bridge->kind != "bridge") return sp;
      sp.bridged = true;
      if (!bridge->vlanFiltering) {
         // Without VLAN filtering a bridge forwards everything untagged, as VLAN 1.
         sp.pvid = 1;
         sp.vlans.set(1);
         return sp;
      }
      auto it = m_.portVlans.find(port->index);
      if (it == m_.portVlans.end()) return sp;
      const PortVlans& v = it->second;
      sp.pvid = v.pvid;
      sp.vlans = v.member;
      const size_t n = v.member.count();
      sp.access = n == 0 || (n == 1 && v.pvid && v.member.test(v.pvid) && v.untagged.test(v.pvid));
      return sp;
   }

private:
   const NetModel& m_;
   const PlatformOptions& o_;
   std::set<int> held_;
};

std::string vlanName(uint16_t vid, const PlatformOptions& o) {
   if (auto it = o.vlanNames.find(vid); it != o.vlanNames.end()) return it->second;
   char buf[16];
   std::snprintf(buf, sizeof(buf), "VLAN%04u", unsigned(vid));
   return buf;
}

std::string osPrettyName() {
   for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
      std::ifstream in(path);
      std::string line;
      while (std::getline(in, line)) {
         if (!line.starts_with("PRETTY_NAME=")) continue;
         std::string v = line.substr(12);
         if (v.size() >= 2 && (v.front() == '"' || v.front() == '\'') && v.back() == v.front()) {
            v = v.substr(1, v.size() - 2);
         }
         return v;
      }
   }
   return {};
}

}  // namespace

bool isCandidateAddr(const AddrInfo& a) {
   // 127.0.0.0/8 and ::1 reach only this host, whatever interface holds them.
   if (a.scope == RT_SCOPE_HOST) return false;
   // IPv6 addresses that may not be used yet (duplicate detection), no longer (deprecated)
   // or that change by design (privacy addresses) are no way to reach the switch.
   constexpr uint32_t unusable =
       IFA_F_TENTATIVE | IFA_F_DADFAILED | IFA_F_DEPRECATED | IFA_F_TEMPORARY;
   if (a.family != AF_INET6) return true;
   // Nor does a link-local one from beyond the link; every IPv6 interface has one, so an
   // idle port publishes nothing for it.
   const bool linkLocal = a.bytes[0] == 0xfe && (a.bytes[1] & 0xc0) == 0x80;
   return !linkLocal && !(a.flags & unusable);
}

PlatformPublisher::PlatformPublisher(Vel::StateDb& db)
    : ethStatus(db.mount<Interface::EthPhyIntfStatusDir>("interface/status/eth/phy/all")),
      ethConfig(db.mount<Interface::EthPhyIntfConfigDir>("interface/config/eth/phy/all")),
      allStatus(db.mount<Interface::AllIntfStatusDir>("interface/status/all")),
      lagStatus(db.mount<Interface::EthLagIntfStatusDir>("interface/status/eth/lag")),
      bridging(db.mount<Bridging::Config>("bridging/config")),
      ipStatus(db.mount<Ip::Status>("ip/status")),
      ip6Status(db.mount<Ip6::Status>("ip6/status")),
      routing(db.mount<Routing::Config>("routing/config")),
      netStatus(db.mount<System::NetStatus>("sys/net/status")),
      sysDescr(db.mount<EntityMib::Status>("hardware/entmib")->sysDescr()) {}

void PlatformPublisher::publish(const NetModel& m, const PlatformOptions& o) {
   const Derivation d(m, o);
   Published published;
   std::map<uint16_t, Wire::IntfSet> vlanMembers;
   std::vector<const LinkInfo*> bridges;
   std::optional<Wire::EthAddr> lowestEthMac, lowestMgmtMac;
   uint32_t maxMtu = 0;

   auto publishSwitchport = [&](const LinkInfo& l, const Wire::IntfId& id) {
      const Switchport sp = d.switchportOf(l);
      Bridging::SwitchIntfConfig::Ptr sw = bridging->switchIntfConfigIs(id);
      if (sp.bridged) {
         sw->switchportModeIs(sp.access ? Bridging::switchportModeAccess
                                        : Bridging::switchportModeTrunk);
         sw->nativeVlanIs(Bridging::VlanIdOrNone(sp.pvid));
         for (uint16_t vid = 1; vid <= Bridging::VlanId::max; ++vid) {
            if (sp.vlans.test(vid)) vlanMembers[vid].insert(id);
         }
      } else {
         sw->switchportModeIs(Bridging::switchportModeRouted);
         sw->nativeVlanIs(Bridging::VlanIdOrNone(0));
      }
      published.add(id, publishedSwitchport);
      return sp.bridged;
   };

   bool anyBridged = false;
   for (const auto& [index, l] : m.links) {
      if (!d.publishable(l)) continue;
      const Wire::IntfId id = d.idOf(l);
      auto st = allStatus->intfStatusIs(id);
      const std::string vrf = d.vrfOf(l);
      if (st->ifIndex() != uint32_t(index) || st->vrf() != vrf) {
         st->ifIndexIs(uint32_t(index));
         st->vrfIs(vrf);
         // Readers of the directory learn that an interface they know changed inside.
         allStatus->intfStatusTouched(id);
      }
      published.add(id, publishedAny);

      if (l.kind == "bridge") bridges.push_back(&l);
      if (l.kind == "bond") {
         auto lag = lagStatus->intfStatusIs(id);
         Wire::IntfSet members;
         for (const auto& [_, member] : m.links) {
            if (member.master == index && d.publishable(member)) members.insert(d.idOf(member));
         }
         for (const auto& member : members) lag->memberIs(member, true);
         dropExcept(lag->member(), members, [&](const Wire::IntfId& k) { lag->memberDel(k); });
         published.add(id, publishedLag);
         anyBridged |= publishSwitchport(l, id);
      }
      if (!isPortLink(l)) continue;
      if (!l.mac.isZero()) {
         auto& lowest = id.isManagement() ? lowestMgmtMac : lowestEthMac;
         if (!lowest || l.mac < *lowest) lowest = l.mac;
      }
      if (!nameMatches(o.intfPattern, l.name.value())) continue;

      auto eth = ethStatus->intfStatusIs(id);
      eth->linkStatusIs(linkStatusOf(l));
      eth->addrIs(l.mac);
      eth->mtuIs(l.mtu);
      const uint32_t portMaxMtu = l.maxMtu ? l.maxMtu : l.mtu;
      eth->maxMtuIs(portMaxMtu);
      if (id.isEthernet()) {
         // The largest frame this port takes, at most what the frame size TLV carries.
         bridging->intfMaxFrameSizeIs(
             id, std::min<uint32_t>(portMaxMtu, 0xffff - ethOverhead) + ethOverhead);
         published.add(id, publishedFramePort);
      }
      const bool bridged = publishSwitchport(l, id);
      anyBridged |= bridged;
      eth->forwardingModelIs(d.heldByAuthentication(index) ? Interface::forwardingModelDataLink
                             : bridged                     ? Interface::forwardingModelBridged
                                                           : Interface::forwardingModelRouted);
      ethConfig->intfConfigIs(id)->descriptionIs(cut(l.alias.stringValue()));
      published.add(id, publishedPort);
      if (id.isEthernet()) maxMtu = std::max(maxMtu, l.mtu);
   }
   dropExcept(ethStatus->intfStatus(), published.of(publishedPort),
              [&](const Wire::IntfId& k) { ethStatus->intfStatusDel(k); });
   dropExcept(ethConfig->intfConfig(), published.of(publishedPort),
              [&](const Wire::IntfId& k) { ethConfig->intfConfigDel(k); });
   dropExcept(allStatus->intfStatus(), published.of(publishedAny),
              [&](const Wire::IntfId& k) { allStatus->intfStatusDel(k); });
   dropExcept(lagStatus->intfStatus(), published.of(publishedLag),
              [&](const Wire::IntfId& k) { lagStatus->intfStatusDel(k); });
   dropExcept(bridging->intfMaxFrameSize(), published.of(publishedFramePort),
              [&](const Wire::IntfId& k) { bridging->intfMaxFrameSizeDel(k); });
   dropExcept(bridging->switchIntfConfig(), published.of(publishedSwitchport),
              [&](const Wire::IntfId& k) { bridging->switchIntfConfigDel(k); });
   anyBridgePort = anyBridged;

   // The system MAC: configured, else the one bridge's, else the lowest port MAC (over
   // all Ethernet ports, whatever the port pattern, so it does not move with it).
   Wire::EthAddr systemMac;
   if (o.systemMac) {
      systemMac = *o.systemMac;
   } else if (bridges.size() == 1 && !bridges.front()->mac.isZero()) {
      systemMac = bridges.front()->mac;
   } else if (lowestEthMac) {
      systemMac = *lowestEthMac;
   } else if (lowestMgmtMac) {
      systemMac = *lowestMgmtMac;
   }
   bridging->bridgeMacAddrIs(systemMac);
   bridging->maxFrameSizeIs(maxMtu ? maxMtu + ethOverhead : 1518);

   std::set<Bridging::VlanId> vlans;
   for (const auto& [vid, members] : vlanMembers) {
      auto vc = bridging->vlanConfigIs(Bridging::VlanId(vid));
      vc->nameIs(vlanName(vid, o));
      for (const auto& member : members) vc->memberIs(member, true);
      dropExcept(vc->member(), members, [&](const Wire::IntfId& k) { vc->memberDel(k); });
      vlans.insert(Bridging::VlanId(vid));
   }
   dropExcept(bridging->vlanConfig(), vlans,
              [&](const Bridging::VlanId& k) { bridging->vlanConfigDel(k); });

   for (const auto& [index, list] : m.addrs) {
      const LinkInfo* l = m.link(index);
      if (!l) continue;  // the link's own message is still on its way
      if (!d.publishable(*l)) continue;
      const Wire::IntfId id = d.idOf(*l);
      std::optional<Wire::IpAddrWithMask> primary;
      std::set<Wire::IpAddrWithMask> secondaries;
      std::map<Wire::Ip6Addr, uint8_t> v6;
      for (const AddrInfo& a : list) {
         if (!isCandidateAddr(a)) continue;
         if (a.family == AF_INET) {
            const Wire::IpAddrWithMask addr(
                Wire::IpAddr({a.bytes[0], a.bytes[1], a.bytes[2], a.bytes[3]}), a.prefixLen);
            if (!primary && !(a.flags & IFA_F_SECONDARY)) {
               primary = addr;
            } else {
               secondaries.insert(addr);
            }
         } else {
            v6[Wire::Ip6Addr(a.bytes)] = a.prefixLen;
         }
      }
      if (primary || !secondaries.empty()) {
         auto ip = ipStatus->ipIntfStatusIs(id);
         ip->activeAddrWithMaskIs(primary.value_or(Wire::IpAddrWithMask()));
         for (const auto& s : secondaries) ip->secondaryWithMaskIs(s, true);
         dropExcept(ip->secondaryWithMask(), secondaries,
                    [&](const Wire::IpAddrWithMask& k) { ip->secondaryWithMaskDel(k); });
         ip->vrfIs(d.vrfOf(*l));
         published.add(id, publishedIp);
      }
      if (!v6.empty()) {
         auto ip6 = ip6Status->intfIs(id);
         for (const auto& [addr, len] : v6) ip6->addrIs(addr, len);
         dropExcept(ip6->addr(), v6, [&](const Wire::Ip6Addr& k) { ip6->addrDel(k); });
         published.add(id, publishedIp6);
      }
   }
   dropExcept(ipStatus->ipIntfStatus(), published.of(publishedIp),
              [&](const Wire::IntfId& k) { ipStatus->ipIntfStatusDel(k); });
   dropExcept(ip6Status->intf(), published.of(publishedIp6),
              [&](const Wire::IntfId& k) { ip6Status->intfDel(k); });

   if (m.ipForwarding) routing->ipRoutingIs(*m.ipForwarding);
   VEL_TRACE(platformTrace, 4,
             "published " << published.count(publishedAny) << " interfaces, "
                          << published.count(publishedPort) << " ports, " << vlans.size()
                          << " VLANs, system MAC " << systemMac);
}

std::string PlatformPublisher::systemDescription() {
   std::string text = osPrettyName();
   utsname u{};
   if (::uname(&u) == 0) {
      for (const char* part : {u.sysname, u.release, u.version, u.machine}) {
         if (!*part) continue;
         if (!text.empty()) text += ' ';
         text += part;
      }
   }
   return cut(text);
}

void PlatformPublisher::publishSystem() {
   char host[256] = {};
   if (::gethostname(host, sizeof(host) - 1) != 0) host[0] = '\0';
   const std::string full(host);
   const size_t dot = full.find('.');
   netStatus->hostnameIs(full.substr(0, dot));
   std::string domain;
   if (dot != std::string::npos) {
      domain = full.substr(dot + 1);
   } else {
      char dom[256] = {};
      if (::getdomainname(dom, sizeof(dom) - 1) == 0 && std::string_view(dom) != "(none)") {
         domain = dom;
      }
   }
   netStatus->domainNameIs(domain);
   sysDescr->descriptionIs(systemDescription());
   VEL_TRACE(platformTrace, 4, "host " << netStatus->hostname() << " domain '" << domain << "'");
}

}  // namespace Platform::Linux

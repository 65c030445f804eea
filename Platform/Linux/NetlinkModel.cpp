#include "Platform/Linux/NetlinkModel.h"

#include <fnmatch.h>
#include <linux/if_addr.h>
#include <linux/if_arp.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <sys/socket.h>

#include <cstring>

namespace Platform::Linux {

Vel::Trace::Handle platformTrace("LinuxPlatform");

namespace {

nlmsghdr* mutableHdr(const nlmsghdr* msg) {
   // libnl's parsers take a non-const header but only read it.
   return const_cast<nlmsghdr*>(msg);
}

std::string_view stringAttr(nlattr* a) {
   // The policy made sure the string is terminated within the attribute.
   return a ? std::string_view(static_cast<const char*>(nla_data(a))) : std::string_view();
}

// A string attribute cut to what the field holds.
template <size_t N>
Vel::FixedString<N> boundedAttr(nlattr* a) {
   return Vel::FixedString<N>(stringAttr(a).substr(0, N));
}

// Attribute sizes are checked against these before anything is read, so a short or
// odd attribute makes the message malformed instead of being read past its end.
const std::array<nla_policy, IFLA_MAX + 1> linkPolicy = [] {
   std::array<nla_policy, IFLA_MAX + 1> p{};
   p[IFLA_IFNAME].type = NLA_STRING;
   p[IFLA_MTU].type = NLA_U32;
   p[IFLA_MAX_MTU].type = NLA_U32;
   p[IFLA_OPERSTATE].type = NLA_U8;
   p[IFLA_MASTER].type = NLA_U32;
   p[IFLA_LINK].type = NLA_U32;
   p[IFLA_IFALIAS].type = NLA_STRING;
   p[IFLA_LINKINFO].type = NLA_NESTED;
   p[IFLA_AF_SPEC].type = NLA_NESTED;
   return p;
}();

}  // namespace

bool nameMatches(const std::string& pattern, std::string_view name) {
   return ::fnmatch(pattern.c_str(), std::string(name).c_str(), 0) == 0;
}

bool isPortLink(const LinkInfo& link) {
   if (link.flags & IFF_LOOPBACK) return false;
   if (link.type != ARPHRD_ETHER) return false;
   return link.kind.empty() || link.kind == "veth";
}

Wire::IntfId intfIdOf(std::string_view name, std::string_view linkKind,
                      const PlatformOptions& options) {
   using Wire::IntfKind;
   IntfKind kind = IntfKind::intfKindEthernet;
   if (linkKind == "loopback" || linkKind == "dummy") {
      kind = IntfKind::intfKindLoopback;
   } else if (linkKind == "bond") {
      kind = IntfKind::intfKindPortChannel;
   } else if (linkKind == "vlan" || linkKind == "bridge") {
      kind = IntfKind::intfKindVlan;
   } else if (nameMatches(options.mgmtPattern, name)) {
      kind = IntfKind::intfKindManagement;
   }
   return Wire::IntfId::linux(name, kind);
}

void NetModel::clear() {
   links.clear();
   portVlans.clear();
   lockedPorts.clear();
   addrs.clear();
   ipForwarding.reset();
}

bool NetModel::apply(const nlmsghdr* msg) {
   switch (msg->nlmsg_type) {
      case RTM_NEWLINK:
      case RTM_DELLINK: {
         if (!nlmsg_valid_hdr(msg, sizeof(ifinfomsg))) break;
         const auto* ifi = static_cast<const ifinfomsg*>(nlmsg_data(msg));
         return ifi->ifi_family == AF_BRIDGE ? applyBridgeLink(msg) : applyLink(msg);
      }
      case RTM_NEWADDR:
      case RTM_DELADDR:
         return applyAddr(msg);
      case RTM_NEWNETCONF:
         return applyNetconf(msg);
      default:
         return false;
   }
   ++malformed;
   VEL_TRACE(platformTrace, 0, "netlink message type " << msg->nlmsg_type << " too short");
   return false;
}

bool NetModel::applyLink(const nlmsghdr* msg) {
   const auto* ifi = static_cast<const ifinfomsg*>(nlmsg_data(msg));
   const int index = ifi->ifi_index;
   if (msg->nlmsg_type == RTM_DELLINK) {
      VEL_TRACE(platformTrace, 4, "link " << index << " gone");
      links.erase(index);
      portVlans.erase(index);
      lockedPorts.erase(index);
      addrs.erase(index);
      return true;
   }
   nlattr* tb[IFLA_MAX + 1] = {};
   if (int err = nlmsg_parse(mutableHdr(msg), sizeof(ifinfomsg), tb, IFLA_MAX, linkPolicy.data());
       err < 0 || !tb[IFLA_IFNAME]) {
      ++malformed;
      VEL_TRACE(platformTrace, 0,
                "link " << index << ": malformed message: " << (err < 0 ? -err : 0) << " no name");
      return false;
   }
   LinkInfo l;
   l.index = index;
   l.name = boundedAttr<LinkInfo::nameBytes>(tb[IFLA_IFNAME]);
   l.type = ifi->ifi_type;
   l.flags = ifi->ifi_flags;
   if (tb[IFLA_OPERSTATE]) l.operstate = nla_get_u8(tb[IFLA_OPERSTATE]);
   if (tb[IFLA_MTU]) l.mtu = nla_get_u32(tb[IFLA_MTU]);
   if (tb[IFLA_MAX_MTU]) l.maxMtu = nla_get_u32(tb[IFLA_MAX_MTU]);
   if (tb[IFLA_MASTER]) l.master = int(nla_get_u32(tb[IFLA_MASTER]));
   if (tb[IFLA_LINK]) l.link = int(nla_get_u32(tb[IFLA_LINK]));
   if (tb[IFLA_IFALIAS]) l.alias = boundedAttr<LinkInfo::aliasBytes>(tb[IFLA_IFALIAS]);
   if (tb[IFLA_ADDRESS] && nla_len(tb[IFLA_ADDRESS]) == 6) {
      l.mac = Wire::EthAddr::fromBytes(nla_data(tb[IFLA_ADDRESS]));
   }
   if (tb[IFLA_LINKINFO]) {
      nlattr* info[IFLA_INFO_MAX + 1] = {};
      nla_policy infoPolicy[IFLA_INFO_MAX + 1] = {};
      infoPolicy[IFLA_INFO_KIND].type = NLA_STRING;
      infoPolicy[IFLA_INFO_DATA].type = NLA_NESTED;
      if (nla_parse_nested(info, IFLA_INFO_MAX, tb[IFLA_LINKINFO], infoPolicy) == 0) {
         l.kind = boundedAttr<LinkInfo::nameBytes>(info[IFLA_INFO_KIND]);
         if (l.kind == "bridge" && info[IFLA_INFO_DATA]) {
            nlattr* br[IFLA_BR_MAX + 1] = {};
            nla_policy brPolicy[IFLA_BR_MAX + 1] = {};
            brPolicy[IFLA_BR_VLAN_FILTERING].type = NLA_U8;
            if (nla_parse_nested(br, IFLA_BR_MAX, info[IFLA_INFO_DATA], brPolicy) == 0 &&
                br[IFLA_BR_VLAN_FILTERING]) {
               l.vlanFiltering = nla_get_u8(br[IFLA_BR_VLAN_FILTERING]) != 0;
            }
         }
      } else {
         ++malformed;
         VEL_TRACE(platformTrace, 0, l.name.value() << ": malformed link info, kind unknown");
      }
   }
   if (l.kind.empty() && (l.flags & IFF_LOOPBACK)) l.kind = "loopback";
   VEL_TRACE(platformTrace, 6,
             "link " << index << " " << l.name.value() << " kind '" << l.kind.value() << "' oper "
                     << unsigned(l.operstate) << " mtu " << l.mtu << " master " << l.master);
   links[index] = std::move(l);
   return true;
}

bool NetModel::applyBridgeLink(const nlmsghdr* msg) {
   const auto* ifi = static_cast<const ifinfomsg*>(nlmsg_data(msg));
   const int index = ifi->ifi_index;
   if (msg->nlmsg_type == RTM_DELLINK) {
      portVlans.erase(index);
      lockedPorts.erase(index);
      return true;
   }
   nlattr* tb[IFLA_MAX + 1] = {};
   if (nlmsg_parse(mutableHdr(msg), sizeof(ifinfomsg), tb, IFLA_MAX, linkPolicy.data()) < 0) {
      ++malformed;
      VEL_TRACE(platformTrace, 0, "bridge port " << index << ": malformed message");
      return false;
   }
   PortVlans v;
   if (tb[IFLA_AF_SPEC]) {
      // Single VLANs, or ranges given as a begin entry and an end entry (notifications
      // compress runs of VLANs with the same flags that way).
      uint16_t rangeBegin = 0;
      nlattr* a;
      int rem;
      nla_for_each_nested(a, tb[IFLA_AF_SPEC], rem) {
         if (nla_type(a) != IFLA_BRIDGE_VLAN_INFO) continue;
         if (size_t(nla_len(a)) < sizeof(bridge_vlan_info)) {
            ++malformed;
            continue;
         }
         bridge_vlan_info info;
         std::memcpy(&info, nla_data(a), sizeof(info));
         if (info.vid < 1 || info.vid > 4094) continue;
         if (info.flags & BRIDGE_VLAN_INFO_RANGE_BEGIN) {
            rangeBegin = info.vid;
            continue;
         }
         uint16_t first = info.vid;
         if ((info.flags & BRIDGE_VLAN_INFO_RANGE_END) && rangeBegin && rangeBegin < info.vid) {
            first = rangeBegin;
         }
         rangeBegin = 0;
         for (uint16_t vid = first; vid <= info.vid; ++vid) {
            v.member.set(vid);
            if (info.flags & BRIDGE_VLAN_INFO_UNTAGGED) v.untagged.set(vid);
         }
         if (info.flags & BRIDGE_VLAN_INFO_PVID) v.pvid = info.vid;
      }
   }
   // The port's own settings come with notifications of a change to them and with dumps;
   // a message without them (a VLAN change) leaves the lock as it was.
   if (tb[IFLA_PROTINFO]) {
      nlattr* port[IFLA_BRPORT_MAX + 1] = {};
      nla_policy portPolicy[IFLA_BRPORT_MAX + 1] = {};
      portPolicy[IFLA_BRPORT_LOCKED].type = NLA_U8;
      if (nla_parse_nested(port, IFLA_BRPORT_MAX, tb[IFLA_PROTINFO], portPolicy) < 0) {
         ++malformed;
         VEL_TRACE(platformTrace, 0, "bridge port " << index << ": malformed port settings");
      } else if (port[IFLA_BRPORT_LOCKED] && nla_get_u8(port[IFLA_BRPORT_LOCKED])) {
         lockedPorts.insert(index);
      } else {
         lockedPorts.erase(index);
      }
   }
   VEL_TRACE(platformTrace, 6,
             "bridge port " << index << " pvid " << v.pvid << " vlans " << v.member.count()
                            << (lockedPorts.count(index) ? " locked" : ""));
   portVlans[index] = v;
   return true;
}

bool NetModel::applyAddr(const nlmsghdr* msg) {
   if (!nlmsg_valid_hdr(msg, sizeof(ifaddrmsg))) {
      ++malformed;
      return false;
   }
   const auto* ifa = static_cast<const ifaddrmsg*>(nlmsg_data(msg));
   if (ifa->ifa_family != AF_INET && ifa->ifa_family != AF_INET6) return false;
   nlattr* tb[IFA_MAX + 1] = {};
   nla_policy policy[IFA_MAX + 1] = {};
   policy[IFA_FLAGS].type = NLA_U32;
   if (nlmsg_parse(mutableHdr(msg), sizeof(ifaddrmsg), tb, IFA_MAX, policy) < 0) {
      ++malformed;
      VEL_TRACE(platformTrace, 0, "address on link " << ifa->ifa_index << ": malformed message");
      return false;
   }
   AddrInfo a;
   a.family = ifa->ifa_family;
   a.prefixLen = ifa->ifa_prefixlen;
   a.flags = tb[IFA_FLAGS] ? nla_get_u32(tb[IFA_FLAGS]) : ifa->ifa_flags;
   a.scope = ifa->ifa_scope;
   // IFA_LOCAL is the interface's own address; IFA_ADDRESS is the peer's on
   // point-to-point links and the same as IFA_LOCAL (or alone) otherwise.
   nlattr* addr = tb[IFA_LOCAL] ? tb[IFA_LOCAL] : tb[IFA_ADDRESS];
   const size_t len = a.family == AF_INET ? 4 : 16;
   if (!addr || size_t(nla_len(addr)) != len || a.prefixLen > len * 8) {
      ++malformed;
      VEL_TRACE(platformTrace, 0, "address on link " << ifa->ifa_index << ": no address");
      return false;
   }
   std::memcpy(a.bytes.data(), nla_data(addr), len);
   const int index = int(ifa->ifa_index);
   AddrList& list = addrs[index];
   auto it = list.begin();
   while (it != list.end() && !it->sameAddr(a)) ++it;
   if (msg->nlmsg_type == RTM_DELADDR) {
      if (it != list.end()) list.erase(it);
      if (list.empty()) addrs.erase(index);
   } else if (it != list.end()) {
      it->flags = a.flags;
      it->scope = a.scope;
   } else {
      list.push_back(a);
   }
   return true;
}

bool NetModel::applyNetconf(const nlmsghdr* msg) {
   if (!nlmsg_valid_hdr(msg, sizeof(netconfmsg))) {
      ++malformed;
      return false;
   }
   const auto* ncm = static_cast<const netconfmsg*>(nlmsg_data(msg));
   if (ncm->ncm_family != AF_INET) return false;
   nlattr* tb[NETCONFA_MAX + 1] = {};
   nla_policy policy[NETCONFA_MAX + 1] = {};
   policy[NETCONFA_IFINDEX].type = NLA_U32;
   policy[NETCONFA_FORWARDING].type = NLA_U32;
   if (nlmsg_parse(mutableHdr(msg), sizeof(netconfmsg), tb, NETCONFA_MAX, policy) < 0) {
      ++malformed;
      return false;
   }
   if (!tb[NETCONFA_IFINDEX] || !tb[NETCONFA_FORWARDING]) return false;
   if (int32_t(nla_get_u32(tb[NETCONFA_IFINDEX])) != NETCONFA_IFINDEX_ALL) return false;
   ipForwarding = nla_get_u32(tb[NETCONFA_FORWARDING]) != 0;
   VEL_TRACE(platformTrace, 4, "IPv4 forwarding " << (*ipForwarding ? "on" : "off"));
   return true;
}

}  // namespace Platform::Linux

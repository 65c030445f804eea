// What the Linux platform knows about the kernel's network state, as rtnetlink reports
// it: every link with the attributes we publish, each bridge port's VLANs, every
// interface address and whether IPv4 forwarding is on. The model is filled by applying
// netlink messages one by one, dump replies and change notifications alike, so one
// parser serves the start, live changes and a resynchronisation after lost events.
//
// Applying a message is idempotent: link and netconf messages carry the whole state of
// their object, addresses are keyed by family, address and prefix length. Replaying
// notifications that were queued while a dump ran therefore converges on the kernel's
// state. Malformed messages (short headers, attributes of the wrong size) are counted
// and skipped; they never reach the entities.
#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/inlined_vector.h>

#include <array>
#include <bitset>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Framework/Trace.h"
#include "Framework/Wire/Addr.h"
#include "Framework/Wire/IntfId.h"

struct nlmsghdr;

namespace Platform::Linux {

// The platform's trace handle, "LinuxPlatform": 0 errors and malformed kernel messages,
// 2 lost notifications and full re-reads, 4 publishes and forwarding changes, 6 each
// link and bridge port as the kernel reports it.
extern Vel::Trace::Handle platformTrace;

// What the daemon configures about the platform.
struct PlatformOptions {
   // Interfaces whose name matches (shell-style, fnmatch) are management ports.
   std::string mgmtPattern = "mgmt*";
   // Only ports whose name matches go into the Ethernet and management port directories.
   std::string intfPattern = "*";
   // Replaces the derived system MAC address (the bridge's or the lowest port MAC).
   std::optional<Wire::EthAddr> systemMac;
   // VLAN names; the kernel has none, so unnamed VLANs are called VLANxxxx.
   std::map<uint16_t, std::string> vlanNames;
};

// One per interface of the host, so its strings are 16 bytes each: names and kinds are
// at most 15 bytes (the kernel's bound, and every kind it has), and an alias longer than
// that goes to the heap. Longer values are cut to their bound.
struct LinkInfo {
   static constexpr size_t nameBytes = 15, aliasBytes = 255;
   int index = 0;
   uint32_t flags = 0;  // IFF_*
   Vel::FixedString<nameBytes> name;
   // IFLA_INFO_KIND ("veth", "bridge", "bond", "vlan", "vrf", ...); empty for physical
   // NICs; "loopback" for the loopback device, which has no kind of its own.
   Vel::FixedString<nameBytes> kind;
   uint16_t type = 0;           // ARPHRD_*
   uint8_t operstate = 0;       // IF_OPER_*
   bool vlanFiltering = false;  // bridges only
   Wire::EthAddr mac;
   uint32_t mtu = 0;
   uint32_t maxMtu = 0;  // 0 when the kernel does not say
   int master = 0;
   int link = 0;  // IFLA_LINK: the device under a VLAN or MACsec device, 0 for none
   Vel::FixedString<aliasBytes> alias;
};

// A bridge port's VLANs as the bridge reports them (also kept when filtering is off).
struct PortVlans {
   uint16_t pvid = 0;  // 0: none
   std::bitset<4096> member;
   std::bitset<4096> untagged;
};

struct AddrInfo {
   uint8_t family = 0;  // AF_INET or AF_INET6
   uint8_t prefixLen = 0;
   uint8_t scope = 0;                // RT_SCOPE_* (host scope: 127.0.0.0/8, ::1)
   uint32_t flags = 0;               // IFA_F_*
   std::array<uint8_t, 16> bytes{};  // IPv4 in the first four
   bool sameAddr(const AddrInfo& o) const {
      return family == o.family && prefixLen == o.prefixLen && bytes == o.bytes;
   }
};

// An interface's addresses: most have one (a host port's IPv6 link-local address), kept
// in place.
using AddrList = absl::InlinedVector<AddrInfo, 1>;

struct NetModel {
   std::map<int, LinkInfo> links;
   std::map<int, PortVlans> portVlans;
   // Bridge ports with `locked on`: the bridge learns and forwards nothing from them until
   // port authentication admits a station, so they count as held by 802.1X.
   std::set<int> lockedPorts;
   // Per interface index, in the kernel's order (the first IPv4 address that is not
   // secondary is the primary). A B-tree: its nodes hold the lists side by side.
   absl::btree_map<int, AddrList> addrs;
   // net.ipv4.conf.all.forwarding (alias ip_forward); unset until the kernel said.
   std::optional<bool> ipForwarding;
   uint64_t malformed = 0;

   void clear();
   // Applies one rtnetlink message (RTM_NEW/DELLINK of AF_UNSPEC or AF_BRIDGE,
   // RTM_NEW/DELADDR, RTM_NEWNETCONF); others are ignored. True when it was one of ours.
   bool apply(const nlmsghdr* msg);

   const LinkInfo* link(int index) const {
      auto it = links.find(index);
      return it == links.end() ? nullptr : &it->second;
   }

private:
   bool applyLink(const nlmsghdr* msg);
   bool applyBridgeLink(const nlmsghdr* msg);
   bool applyAddr(const nlmsghdr* msg);
   bool applyNetconf(const nlmsghdr* msg);
};

// Whether a link is an Ethernet or management port: a physical NIC (no link kind,
// Ethernet hardware type) or a veth. Bonds, bridges, VLAN, VRF, dummy, tunnel and
// loopback devices are not.
bool isPortLink(const LinkInfo& link);

// The interface ID of a Linux interface, carrying its Linux name. The kind follows the
// link kind first, then the name:
//    loopback, dummy                       -> Loopback
//    bond                                  -> Port-Channel
//    vlan, bridge                          -> Vlan (a bridge's own address is the
//                                             switch's VLAN interface)
//    name matches options.mgmtPattern      -> Management
//    anything else (NICs, veth, bridges, VRF, tunnels, unknown kinds) -> Ethernet
// Only NICs and veths become ports (isPortLink); the kind of the others tells readers
// what sort of interface an address or a VRF belongs to.
Wire::IntfId intfIdOf(std::string_view name, std::string_view linkKind,
                      const PlatformOptions& options);

// Shell-style match of a whole name, as the options use it.
bool nameMatches(const std::string& pattern, std::string_view name);

}  // namespace Platform::Linux

// Interface state the platform publishes and the agent reads, filled from the kernel on
// Linux: every interface's index and name, each Ethernet or management port's link,
// address, MTU and forwarding model and its configured description, and each link
// aggregation group's members.
#pragma once

#include <string>

#include "Framework/Vel/CompactMap.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Wire/Addr.h"
#include "Framework/Wire/IntfId.h"

// The directories hold a record per interface, in B-trees (Framework/Vel/CompactMap.h).
namespace Interface {
class EthPhyIntfStatus;
class EthPhyIntfConfig;
class IntfStatus;
class EthLagIntfStatus;
}  // namespace Interface
VEL_COMPACT_ENTITY_SET(Wire::IntfId, Interface::EthPhyIntfStatus, intfId)
VEL_COMPACT_ENTITY_SET(Wire::IntfId, Interface::EthPhyIntfConfig, intfId)
VEL_COMPACT_ENTITY_SET(Wire::IntfId, Interface::IntfStatus, intfId)
VEL_COMPACT_ENTITY_SET(Wire::IntfId, Interface::EthLagIntfStatus, intfId)

namespace Interface {

// Link status numbering: 0 unknown, 1 down, 2 up (anything else counts as unknown).
enum LinkStatus : uint8_t { linkStatusUnknown = 0, linkStatusDown = 1, linkStatusUp = 2 };

// Where an interface stands within its kind: module, port and lane of an Ethernet or
// management port, the one number (in `port`) of a loopback, port-channel or VLAN
// interface. Management addresses are ranked by it.
struct IntfNumbers {
   uint32_t module = 0;
   uint32_t port = 0;
   uint32_t lane = 0;
};

// The numbering's limits.
inline constexpr uint32_t maxLoopbackNumber = 2100;
inline constexpr uint32_t maxModuleNumber = 128;
inline constexpr uint32_t maxMgmtPortNumber = 10;
inline constexpr uint32_t maxEthPortNumber = 128;
inline constexpr uint32_t maxEthPortSlot = 528384;  // 32 slots per port, lanes included
inline constexpr uint32_t maxPortChannelNumber = 999999;

// The numbers of an interface. A switch-style name spells them: Loopback0, Management1
// (module 0, port 1), Management1/2 (module 1, port 2), Ethernet5 (port 5), Ethernet5/2
// (port 5, lane 2), Ethernet3/5/2 (module 3), Port-Channel5, Vlan10; a number beyond its
// kind's range is left as it is (intfNumbersInRange says so). A Linux name has the kind
// the platform gave it and the number n it ends in (0 when none), laid out in the same
// numbering and always inside it: loopback n; management port n % 10 + 1 of module n / 10;
// Ethernet port n % 128 + 1 of module n / 128; port-channel n + 1; VLAN n (a bridge
// without a number is VLAN 1). Numbers past a kind's last one start over from its first
// (a USB NIC named after its MAC address ends in a large number); equal numbers are told
// apart by the interface's name.
inline IntfNumbers intfNumbers(const Wire::IntfId& intf) {
   IntfNumbers r;
   const size_t count = intf.numberCount();
   if (intf.switchStyleName()) {
      if (intf.kind() == Wire::IntfKind::intfKindManagement && count == 2) {
         r.module = intf.number(0);
         r.port = intf.number(1);
      } else if (intf.kind() == Wire::IntfKind::intfKindEthernet && count >= 2) {
         r.module = count == 3 ? intf.number(0) : 0;
         r.port = intf.number(count - 2);
         r.lane = intf.number(count - 1);
      } else {
         r.port = intf.number(0);
      }
      return r;
   }
   const uint32_t n = count ? intf.number(count - 1) : 0;
   switch (intf.kind()) {
      case Wire::IntfKind::intfKindLoopback:
         r.port = n % (maxLoopbackNumber + 1);
         break;
      case Wire::IntfKind::intfKindManagement: {
         // Module 128 has no room for ports beyond 10 below the Ethernet base.
         const uint32_t k = n % (maxModuleNumber * maxMgmtPortNumber + maxMgmtPortNumber);
         r.module = k / maxMgmtPortNumber;
         r.port = k % maxMgmtPortNumber + 1;
         break;
      }
      case Wire::IntfKind::intfKindEthernet: {
         const uint32_t k = n % ((maxModuleNumber + 1) * maxEthPortNumber);
         r.module = k / maxEthPortNumber;
         r.port = k % maxEthPortNumber + 1;
         break;
      }
      case Wire::IntfKind::intfKindPortChannel:
         r.port = n % maxPortChannelNumber + 1;
         break;
      case Wire::IntfKind::intfKindVlan:
         r.port = n == 0 ? 1 : (n - 1) % 4094 + 1;
         break;
      default:
         r.port = n;
         break;
   }
   return r;
}

// Whether an interface's numbers lie inside its kind's limits (other kinds have none).
// The platform publishes no interface outside them.
inline bool intfNumbersInRange(const Wire::IntfId& intf) {
   if (intf.switchStyleName()) {
      const size_t count = intf.numberCount();
      const bool countOk = intf.kind() == Wire::IntfKind::intfKindEthernet     ? count <= 3
                           : intf.kind() == Wire::IntfKind::intfKindManagement ? count <= 2
                                                                               : count == 1;
      if (!countOk) return false;
   }
   const IntfNumbers n = intfNumbers(intf);
   switch (intf.kind()) {
      case Wire::IntfKind::intfKindLoopback:
         return n.port <= maxLoopbackNumber;
      case Wire::IntfKind::intfKindManagement:
         return n.module <= maxModuleNumber && n.port <= maxMgmtPortNumber &&
                10 * n.module + n.port <= 1290;
      case Wire::IntfKind::intfKindEthernet:
         return n.module <= maxModuleNumber && n.port >= 1 && n.port <= maxEthPortNumber &&
                n.lane < 32 && 32 * (128 * n.module + n.port - 1) + n.lane <= maxEthPortSlot;
      case Wire::IntfKind::intfKindPortChannel:
         return n.port <= maxPortChannelNumber;
      case Wire::IntfKind::intfKindVlan:
         return n.port >= 1 && n.port <= 4094;
      default:
         return true;
   }
}

// How a port forwards frames. LLDP runs on ports at forwardingModelBridged or above; a
// port held at forwardingModelDataLink (by 802.1X, say) only when LLDP may bypass it.
enum ForwardingModel : uint8_t {
   forwardingModelUnknown = 0,
   forwardingModelDiscarded = 1,
   forwardingModelDataLink = 2,
   forwardingModelBridged = 3,
   forwardingModelRouted = 4,
};

// clang-format off
#define ETH_PHY_INTF_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                                     \
   ATTR(uint8_t, linkStatus, linkStatusUnknown)                                  \
   ATTR(uint8_t, forwardingModel, forwardingModelRouted)                         \
   ATTR(Wire::EthAddr, addr, {})                                                 \
   ATTR(uint32_t, mtu, 0)                                                        \
   ATTR(uint32_t, maxMtu, 0)
// clang-format on

class EthPhyIntfStatus : public Vel::Entity {
   VEL_ENTITY(EthPhyIntfStatus, ETH_PHY_INTF_STATUS_ATTRS)
   explicit EthPhyIntfStatus(const Wire::IntfId& intf) : intfId_(intf) {}
};

// The Ethernet ports' status records, by interface.
// clang-format off
#define ETH_PHY_INTF_STATUS_DIR_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ECOLL(Wire::IntfId, EthPhyIntfStatus, intfStatus)
// clang-format on

class EthPhyIntfStatusDir : public Vel::Entity {
   VEL_ENTITY(EthPhyIntfStatusDir, ETH_PHY_INTF_STATUS_DIR_ATTRS)
};

// What is configured on a port: its description (on Linux, the interface alias).
// clang-format off
#define ETH_PHY_INTF_CONFIG_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                                     \
   ATTR(Vel::FixedString<255>, description, {})
#define ETH_PHY_INTF_CONFIG_DIR_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ECOLL(Wire::IntfId, EthPhyIntfConfig, intfConfig)
// clang-format on

class EthPhyIntfConfig : public Vel::Entity {
   VEL_ENTITY(EthPhyIntfConfig, ETH_PHY_INTF_CONFIG_ATTRS)
   explicit EthPhyIntfConfig(const Wire::IntfId& intf) : intfId_(intf) {}
};

class EthPhyIntfConfigDir : public Vel::Entity {
   VEL_ENTITY(EthPhyIntfConfigDir, ETH_PHY_INTF_CONFIG_DIR_ATTRS)
};

// Any interface (ports, aggregates, VLAN interfaces, loopbacks): its index and the VRF
// it belongs to (empty: the default VRF). Names are kept in 16 bytes: a VRF's (on Linux,
// its device's) is 15 at most, and a longer one goes to the heap.
// clang-format off
#define INTF_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                             \
   ATTR(uint32_t, ifIndex, 0)                                            \
   ATTR(Vel::FixedString<64>, vrf, {})
#define ALL_INTF_STATUS_DIR_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ECOLL(Wire::IntfId, IntfStatus, intfStatus)
// clang-format on

class IntfStatus : public Vel::Entity {
   VEL_ENTITY(IntfStatus, INTF_STATUS_ATTRS)
   explicit IntfStatus(const Wire::IntfId& intf) : intfId_(intf) {}
};

class AllIntfStatusDir : public Vel::Entity {
   VEL_ENTITY(AllIntfStatusDir, ALL_INTF_STATUS_DIR_ATTRS)
};

// The interfaces of this supervisor alone, in the same shape.
class AllIntfStatusLocalDir : public Vel::Entity {
   VEL_ENTITY(AllIntfStatusLocalDir, ALL_INTF_STATUS_DIR_ATTRS)
};

// A link aggregation group and its member ports.
// clang-format off
#define ETH_LAG_INTF_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                                     \
   MAP(Wire::IntfId, bool, member)
#define ETH_LAG_INTF_STATUS_DIR_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ECOLL(Wire::IntfId, EthLagIntfStatus, intfStatus)
// clang-format on

class EthLagIntfStatus : public Vel::Entity {
   VEL_ENTITY(EthLagIntfStatus, ETH_LAG_INTF_STATUS_ATTRS)
   explicit EthLagIntfStatus(const Wire::IntfId& intf) : intfId_(intf) {}
};

class EthLagIntfStatusDir : public Vel::Entity {
   VEL_ENTITY(EthLagIntfStatusDir, ETH_LAG_INTF_STATUS_DIR_ATTRS)
};

}  // namespace Interface

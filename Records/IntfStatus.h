// Interface state the platform publishes and the agent reads, filled from the kernel on
// Linux: every interface's index and name, each Ethernet or management port's link,
// address, MTU and forwarding model and its configured description, and each link
// aggregation group's members.
#pragma once

#include <string>

#include "Framework/Vel/Entity.h"
#include "Framework/Wire/Addr.h"
#include "Framework/Wire/IntfId.h"

namespace Interface {

// Link status numbering: 0 unknown, 1 down, 2 up (anything else counts as unknown).
enum LinkStatus : uint8_t { linkStatusUnknown = 0, linkStatusDown = 1, linkStatusUp = 2 };

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
   ATTR(Wire::EthAddr, addr, {})                                                 \
   ATTR(uint32_t, mtu, 0)                                                        \
   ATTR(uint32_t, maxMtu, 0)                                                     \
   ATTR(uint8_t, forwardingModel, forwardingModelRouted)
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
   ATTR(std::string, description, {})
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
// it belongs to (empty: the default VRF).
// clang-format off
#define INTF_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                             \
   ATTR(uint32_t, ifIndex, 0)                                            \
   ATTR(std::string, vrf, {})
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

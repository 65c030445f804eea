// Bridging state the platform publishes: the bridge's MAC address (the chassis ID), the
// largest frame it forwards (for the whole bridge, and for each port whose own limit the
// platform knows), each port's switchport mode and native VLAN, and the VLANs with their
// names and member ports.
#pragma once

#include <string>

#include "Framework/Bridging/VlanId.h"
#include "Framework/Vel/CompactMap.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Wire/Addr.h"
#include "Framework/Wire/IntfId.h"

// A switch interface's configuration per interface, in a B-tree
// (Framework/Vel/CompactMap.h).
namespace Bridging {
class SwitchIntfConfig;
}  // namespace Bridging
VEL_COMPACT_ENTITY_SET(Wire::IntfId, Bridging::SwitchIntfConfig, intfId)

namespace Bridging {

// Switchport modes. Tunnel, tap and tool ports carry other traffic transparently or only
// watch it, so they must not send LLDP of their own; a routed port has no VLAN.
enum SwitchportMode : uint8_t {
   switchportModeUnknown = 0,
   switchportModeAccess = 1,
   switchportModeTrunk = 2,
   switchportModeDot1qTunnel = 3,
   switchportModeTap = 4,
   switchportModeTool = 5,
   switchportModeRouted = 6,
};

// clang-format off
#define BRIDGING_SWITCH_INTF_CONFIG_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                                             \
   ATTR(uint8_t, switchportMode, switchportModeAccess)                                   \
   ATTR(Bridging::VlanIdOrNone, nativeVlan, {})
#define BRIDGING_VLAN_CONFIG_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Bridging::VlanId, vlanId)                                                  \
   ATTR(std::string, name, {})                                                    \
   MAP(Wire::IntfId, bool, member)                                                \
   MAP(Wire::IntfId, bool, promotedPort)
#define BRIDGING_CONFIG_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(Wire::EthAddr, bridgeMacAddr, {})                                     \
   ATTR(uint32_t, maxFrameSize, 1518)                                         \
   MAP(Wire::IntfId, uint32_t, intfMaxFrameSize)                              \
   ECOLL(Wire::IntfId, SwitchIntfConfig, switchIntfConfig)                    \
   ECOLL(Bridging::VlanId, VlanConfig, vlanConfig)
// clang-format on

class SwitchIntfConfig : public Vel::Entity {
   VEL_ENTITY(SwitchIntfConfig, BRIDGING_SWITCH_INTF_CONFIG_ATTRS)
   explicit SwitchIntfConfig(const Wire::IntfId& intf) : intfId_(intf) {}
};

// A VLAN's member ports. A promoted port carries the VLAN only because the bridge put it
// there on its own (it was not configured into the VLAN); it does not advertise the
// VLAN's name.
class VlanConfig : public Vel::Entity {
   VEL_ENTITY(VlanConfig, BRIDGING_VLAN_CONFIG_ATTRS)
   explicit VlanConfig(const Bridging::VlanId& vlan) : vlanId_(vlan) {}
};

// maxFrameSize is the largest frame the bridge forwards; intfMaxFrameSize holds a port's
// own largest frame where the platform knows it (ports differ on hosts), and then rules
// for that port.
class Config : public Vel::Entity {
   VEL_ENTITY(Config, BRIDGING_CONFIG_ATTRS)
};

// What the bridging hardware can do. The agent mounts it with the bridging configuration;
// nothing in it decides anything LLDP does yet.
// clang-format off
#define BRIDGING_HW_CAPABILITIES_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL)
// clang-format on

class HwCapabilities : public Vel::Entity {
   VEL_ENTITY(HwCapabilities, BRIDGING_HW_CAPABILITIES_ATTRS)
};

}  // namespace Bridging

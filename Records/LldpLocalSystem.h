// What the agent advertises: the local system (chassis, names, capabilities, management
// addresses) and one local port record per interface.
#pragma once

#include "Framework/Vel/CompactMap.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Wire/IntfId.h"
#include "Records/LldpRemoteSystem.h"
#include "Records/LldpValues.h"

// Per-port records are kept by pointer in B-trees (Framework/Vel/CompactMap.h).
namespace Lldp {
class LocalPort;
}  // namespace Lldp
VEL_COMPACT_ENTITY_SET(Wire::IntfId, Lldp::LocalPort, intfId)

namespace Environment::Power {

// What one power agent (a program that drives a PoE controller) reports: the status of
// each of its ports, keyed by interface. Each agent publishes one of these under a name
// of its own in the power agents' directory.
class PoePortStatus : public Vel::Entity {
public:
   // A power agent's view of one PoE port. `state`: 0 unknown (no report yet), 1 disabled,
   // 2 searching, 3 delivering power, 4 fault. Powers are in units of 0.1 W, as on the
   // wire. `pseType` is the IEEE PSE type 1..4; `powerClass` the IEEE class 0..8;
   // `psePowerPair` 1 signal, 2 spare; `powerSource` 1 primary, 2 backup; `priority`
   // 1 critical, 2 high, 3 low.
// clang-format off
#define POE_PORT_STATUS_FIELDS(F)                                                   \
   F(uint8_t, state, 0)                                                             \
   F(uint8_t, pseType, 0)                                                           \
   F(uint8_t, powerClass, 0) F(uint8_t, psePowerPair, 1) F(uint8_t, powerSource, 1) \
       F(uint8_t, priority, 0) F(uint16_t, allocatedPower, 0) F(uint16_t, maxAvailablePower, 0)
   // clang-format on
   class PortStatus {
      VEL_VALUE(PortStatus, POE_PORT_STATUS_FIELDS)
      enum State : uint8_t {
         stateUnknown = 0,
         stateDisabled = 1,
         stateSearching = 2,
         stateDelivering = 3,
         stateFault = 4,
      };
   };
// clang-format off
#define POE_AGENT_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(std::string, name)                                              \
   MAP(Wire::IntfId, PortStatus, portStatus)
   // clang-format on
   VEL_ENTITY(PoePortStatus, POE_AGENT_ATTRS)
   explicit PoePortStatus(std::string name = {}) : name_(std::move(name)) {}
};

}  // namespace Environment::Power

namespace Lldp {

// PoE state of one local port: the power agent's report and the neighbour whose power
// request it answers.
// clang-format off
#define LLDP_LOCAL_PORT_POE_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(Environment::Power::PoePortStatus::PortStatus, poePortStatus, {})        \
   ATTR(Vel::Ptr<const RemoteSystem>, remoteSystem, nullptr)
// clang-format on

class LocalPortPoeInfo : public Vel::Entity {
   VEL_ENTITY(LocalPortPoeInfo, LLDP_LOCAL_PORT_POE_ATTRS)
   LocalPortPoeInfo() = default;
   // The power agent has reported on this port, so there is real PoE data to advertise.
   bool readyToSendTlv() const {
      return poePortStatus_.state() != Environment::Power::PoePortStatus::PortStatus::stateUnknown;
   }
   // The state byte the receive side checks before it hurries a reply to a new request.
   uint8_t state() const { return poePortStatus_.state(); }
};

// clang-format off
#define LLDP_LOCAL_PORT_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                                 \
   ATTR(PortIdentifier, portIdentifier, {})                                  \
   ATTR(BoundedString255, portDesc, {})                                      \
   ATTR(Bridging::VlanIdOrNone, portVlanId, {})                              \
   ATTR(LinkAggregationInfo, linkAggregationInfo, {})                        \
   ATTR(MaximumFrameSizeInfo, maximumFrameSizeInfo, {})                      \
   ATTR(MedCapabilitiesInfo, medCapabilities, {})                            \
   COLL(uint8_t, NetworkPolicyTlv, localNetworkPolicyTlv)                    \
   COLL(UnknownOrgDefTlv::Key, UnknownOrgDefTlv, unknownOrgDefTlv)           \
   ATTR(Bridging::VlanIdOrNone, ztpBootVlan, {})                             \
   ATTR(Vel::Ptr<LocalPortPoeInfo>, localPortPoeInfo, nullptr)
// clang-format on

class LocalPort : public Vel::Entity {
   VEL_ENTITY(LocalPort, LLDP_LOCAL_PORT_ATTRS)
   explicit LocalPort(const Wire::IntfId& intf) : intfId_(intf) {}
   // Gives the port its PoE record (the name is spelt as the schema spells it).
   const Vel::Ptr<LocalPortPoeInfo>& initilizeLocalPortPoeInfo() {
      if (!localPortPoeInfo_) localPortPoeInfoIs(Vel::make<LocalPortPoeInfo>());
      return localPortPoeInfo_;
   }
};

// clang-format off
#define LLDP_LOCAL_SYSTEM_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(ChassisIdentifier, chassisIdentifier, {})                              \
   ATTR(BoundedString255, sysName, {})                                         \
   ATTR(BoundedString255, sysDesc, {})                                         \
   ATTR(SystemCapabilitiesMap, sysCapSupported, {})                            \
   ATTR(SystemCapabilitiesMap, sysCapEnabled, {})                              \
   COLL(ManagementAddress::Key, ManagementAddress, managementAddress)          \
   ATTR(ManagementAddress, ip6ManagementAddress, {})                           \
   MAP(ManAddrPriority, ManagementAddress::Key, managementAddressPrio)         \
   ECOLL(Wire::IntfId, LocalPort, localPort)
// clang-format on

class LocalSystem : public Vel::Entity {
   VEL_ENTITY(LocalSystem, LLDP_LOCAL_SYSTEM_ATTRS)
};

// The neighbour power request each port answers, as the power agents read it: the
// neighbour (its index on the port, source MAC and chassis) and its Power via MDI TLV.
// clang-format off
#define LLDP_POWER_REQUEST_FIELDS(F)                                            \
   F(Wire::IntfId, intfId, {})                                                  \
   F(int, remoteIndex, 0)                                                       \
   F(Wire::EthAddr, source, {}) F(ChassisIdentifier, chassisIdentifier, {})     \
       F(PowerViaMdiInfo, powerViaMdiInfo, {})
// clang-format on
class PowerRequest {
   VEL_VALUE(PowerRequest, LLDP_POWER_REQUEST_FIELDS)
   const Wire::IntfId& key() const { return intfId_; }
};

// clang-format off
#define LLDP_POWER_REQUEST_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   COLL(Wire::IntfId, PowerRequest, request)
// clang-format on

class PowerRequestStatus : public Vel::Entity {
   VEL_ENTITY(PowerRequestStatus, LLDP_POWER_REQUEST_STATUS_ATTRS)
};

}  // namespace Lldp

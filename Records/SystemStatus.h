// System-wide state the platform publishes: host and domain name, the system
// description, whether the system routes IP, and the IPv4 and IPv6 addresses of every
// interface.
#pragma once

#include <string>

#include "Framework/Vel/CompactMap.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Wire/Addr.h"
#include "Framework/Wire/IntfId.h"

namespace System {

// clang-format off
#define SYSTEM_NET_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(std::string, hostname, {})                                             \
   ATTR(std::string, domainName, {})
// clang-format on

class NetStatus : public Vel::Entity {
   VEL_ENTITY(NetStatus, SYSTEM_NET_STATUS_ATTRS)
};

}  // namespace System

namespace Hardware {

// Which supervisor (cell) this is; a system with one supervisor is cell 1.
// clang-format off
#define HARDWARE_CELL_INFO_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(uint32_t, cellId, 1)
// clang-format on

class CellInfo : public Vel::Entity {
   VEL_ENTITY(CellInfo, HARDWARE_CELL_INFO_ATTRS)
};

}  // namespace Hardware

namespace EntityMib {

// clang-format off
#define ENTITY_MIB_SYS_DESCR_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(std::string, description, {})
// clang-format on

class SysDescr : public Vel::Entity {
   VEL_ENTITY(SysDescr, ENTITY_MIB_SYS_DESCR_ATTRS)
};

// The hardware inventory's status; the system description is its part LLDP reads.
// clang-format off
#define ENTITY_MIB_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(EntityMib::SysDescr::Ptr, sysDescr)
// clang-format on

class Status : public Vel::Entity {
   VEL_ENTITY(Status, ENTITY_MIB_STATUS_ATTRS)
   Status() : sysDescr_(Vel::make<SysDescr>()) {}
};

}  // namespace EntityMib

namespace Routing {

// clang-format off
#define ROUTING_CONFIG_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(bool, ipRouting, false)
// clang-format on

class Config : public Vel::Entity {
   VEL_ENTITY(Config, ROUTING_CONFIG_ATTRS)
};

}  // namespace Routing

// A record per IP interface, in B-trees (Framework/Vel/CompactMap.h).
namespace Ip {
class IpIntfStatus;
}  // namespace Ip
namespace Ip6 {
class IntfStatus;
}  // namespace Ip6
VEL_COMPACT_ENTITY_SET(Wire::IntfId, Ip::IpIntfStatus, intfId)
VEL_COMPACT_ENTITY_SET(Wire::IntfId, Ip6::IntfStatus, intfId)

namespace Ip {

// An interface's IPv4 addresses: the primary and the secondaries.
// clang-format off
#define IP_INTF_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                                \
   ATTR(Wire::IpAddrWithMask, activeAddrWithMask, {})                       \
   MAP(Wire::IpAddrWithMask, bool, secondaryWithMask)                       \
   ATTR(std::string, vrf, {})
#define IP_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ECOLL(Wire::IntfId, IpIntfStatus, ipIntfStatus)
// clang-format on

class IpIntfStatus : public Vel::Entity {
   VEL_ENTITY(IpIntfStatus, IP_INTF_STATUS_ATTRS)
   explicit IpIntfStatus(const Wire::IntfId& intf) : intfId_(intf) {}
};

class Status : public Vel::Entity {
   VEL_ENTITY(Status, IP_STATUS_ATTRS)
};

}  // namespace Ip

namespace Ip6 {

// clang-format off
#define IP6_INTF_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                                 \
   MAP(Wire::Ip6Addr, uint8_t, addr)
#define IP6_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ECOLL(Wire::IntfId, IntfStatus, intf)
// clang-format on

// An interface's IPv6 addresses, each with its prefix length.
class IntfStatus : public Vel::Entity {
   VEL_ENTITY(IntfStatus, IP6_INTF_STATUS_ATTRS)
   explicit IntfStatus(const Wire::IntfId& intf) : intfId_(intf) {}
};

class Status : public Vel::Entity {
   VEL_ENTITY(Status, IP6_STATUS_ATTRS)
};

}  // namespace Ip6

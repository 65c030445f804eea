// Interface state the platform publishes and the agent reads: one record per Ethernet
// (or management) port, filled from the kernel on Linux.
#pragma once

#include "Framework/Vel/Entity.h"
#include "Framework/Wire/Addr.h"
#include "Framework/Wire/IntfId.h"

namespace Interface {

// Link status numbering: 0 unknown, 1 down, 2 up (anything else counts as unknown).
enum LinkStatus : uint8_t { linkStatusUnknown = 0, linkStatusDown = 1, linkStatusUp = 2 };

// clang-format off
#define ETH_PHY_INTF_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                                     \
   ATTR(uint8_t, linkStatus, linkStatusUnknown)                                  \
   ATTR(Wire::EthAddr, addr, {})
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

}  // namespace Interface

// What port authentication tells the LLDP agent: whether LLDP may run on ports that
// 802.1X has not opened yet (one switch-wide flag), and on which ports it may run before
// their MACsec secure channel is up (per port).
#pragma once

#include "Framework/Vel/Entity.h"
#include "Framework/Wire/IntfId.h"
// Neighbour classification (telephones and other devices) has a file of its own.
#include "Records/NbrClassification.h"

namespace Identity::Dot1x {

// clang-format off
#define IDENTITY_DOT1X_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(bool, lldpBypass, false)
// clang-format on

class Status : public Vel::Entity {
   VEL_ENTITY(Status, IDENTITY_DOT1X_STATUS_ATTRS)
};

}  // namespace Identity::Dot1x

namespace Identity::Macsec {

// clang-format off
#define IDENTITY_MACSEC_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   MAP(Wire::IntfId, bool, bypassLldp)
// clang-format on

class Status : public Vel::Entity {
   VEL_ENTITY(Status, IDENTITY_MACSEC_STATUS_ATTRS)
};

}  // namespace Identity::Macsec

// The protocol engine's root. For now it carries what the transmit builder reads: the
// global configuration and the local system record.
#pragma once

#include "Framework/Vel/Entity.h"
#include "Records/Lldp.h"

namespace Lldp::Agent::Protocol {

// clang-format off
#define LLDP_PROTOCOL_ROOT_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(Vel::Ptr<const Lldp::Config>, config, nullptr)                          \
   ATTR(Vel::Ptr<const Lldp::LocalSystem>, localSystem, nullptr)
// clang-format on

class Root : public Vel::Entity {
   VEL_ENTITY(Root, LLDP_PROTOCOL_ROOT_ATTRS)
   Root(Vel::Ptr<const Lldp::Config> config, Vel::Ptr<const Lldp::LocalSystem> localSystem)
       : config_(std::move(config)), localSystem_(std::move(localSystem)) {}
};

}  // namespace Lldp::Agent::Protocol

namespace Lldp::Agent::Protocol {

// States of the per-port transmit machine.
enum TxFsmState : uint8_t {
   txFsmUninitialized = 0,
   txFsmDisabled = 1,
   txFsmTxWait = 2,
   txFsmTxDelay = 3,
   txFsmIdle = 4,
   txFsmReinitializing = 5,
};
std::ostream& operator<<(std::ostream& os, TxFsmState s);

// The per-port protocol machine. So far it holds what the receive processor touches:
// the transmit state, which a changed power request moves to txFsmTxDelay.
// clang-format off
#define LLDP_PAM_SM_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                             \
   ATTR(TxFsmState, txFsmState, txFsmUninitialized)
// clang-format on

class LldpPamSm : public Vel::Entity {
   VEL_ENTITY(LldpPamSm, LLDP_PAM_SM_ATTRS)
   explicit LldpPamSm(const Wire::IntfId& intf) : intfId_(intf) {}
};

}  // namespace Lldp::Agent::Protocol

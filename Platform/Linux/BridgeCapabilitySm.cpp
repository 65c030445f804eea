#include "Platform/Linux/BridgeCapabilitySm.h"

namespace Platform::Linux {

BridgeCapabilitySm::BridgeCapabilitySm(Vel::StateDb& db)
    : localSystem_(db.mount<Lldp::LocalSystem>("l2discovery/lldp/localSystem")) {
   notifierIs(localSystem_);
}

BridgeCapabilitySm::~BridgeCapabilitySm() {
   notifierIs(nullptr);
}

void BridgeCapabilitySm::bridgingIs(bool bridging) {
   bridging_ = bridging;
   doSync();
}

void BridgeCapabilitySm::doSync() {
   Lldp::SystemCapabilitiesMap enabled = localSystem_->sysCapEnabled();
   if (enabled.bridge() == bridging_) return;
   enabled.bridgeIs(bridging_);
   localSystem_->sysCapEnabledIs(enabled);
}

}  // namespace Platform::Linux

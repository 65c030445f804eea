// The bridge bit of the system capabilities the agent advertises is the platform's to
// say: a Linux host acts as a bridge while any of its ports (or bonds) is a bridge port.
// The agent writes the router bit, and clears both bits when it takes up the active role
// so that they are computed afresh; this machine puts the bridge bit back whenever the
// agent's record disagrees with the platform.
#pragma once

#include "Framework/Vel/StateDb.h"
#include "Records/LldpLocalSystem.h"

namespace Platform::Linux {

class BridgeCapabilitySm : private Lldp::LocalSystem::Notifiee {
public:
   explicit BridgeCapabilitySm(Vel::StateDb& db);
   ~BridgeCapabilitySm();
   void bridgingIs(bool bridging);

private:
   void sysCapEnabledChanged() override { doSync(); }
   void doSync();

   Lldp::LocalSystem::Ptr localSystem_;
   bool bridging_ = false;
};

}  // namespace Platform::Linux

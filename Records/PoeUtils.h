// Builders of the Power via MDI information string that a PoE switch port advertises.
#pragma once

#include "Records/LldpConfig.h"
#include "Records/LldpLocalSystem.h"
#include "Records/LldpStatus.h"

namespace PoeUtils {

// Writes the Power via MDI information string (after OUI and subtype) for a port whose
// power agent has reported, and returns its length; 0 or less means nothing to send.
int buildPowerViaMdiTlv(char* info, const Lldp::LocalPortPoeInfo& poeInfo,
                        bool powerViaMdiTlvReceived);
// Writes the reply to a neighbour's power request from the port's configured fallback
// allocation when the power agent has not reported; 0 or less means nothing to send.
int maybeBuildFallbackPowerViaMdiTlv(char* info, const Lldp::LocalPortPoeInfo& poeInfo,
                                     bool powerViaMdiTlvReceived,
                                     Lldp::PortConfig::PtrConst portConfig,
                                     Lldp::PortStatus::Ptr portStatus);

}  // namespace PoeUtils

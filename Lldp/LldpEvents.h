// The neighbour event log handles, created once for the process.
#pragma once

#include "Framework/Log.h"

namespace Lldp {

extern const Vel::Log::Handle LLDP_NEIGHBOR_NEW;
extern const Vel::Log::Handle LLDP_NEIGHBOR_TIMEOUT;
extern const Vel::Log::Handle LLDP_NEIGHBOR_GONE;
extern const Vel::Log::Handle LLDP_RX_RATELIMIT;
extern const Vel::Log::Handle LLDP_REMOTE_TABLES_CLEARED;
extern const Vel::Log::Handle LLDP_NEIGHBOR_LIMIT;
extern const Vel::Log::Handle LLDP_NEIGHBOR_LIMIT_TOTAL;

}  // namespace Lldp

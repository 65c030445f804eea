// How much the daemon keeps for the programs that talk to it through the control socket,
// and how often a limit was hit. One record, published at "daemon/clientLimits" (read it
// with the control socket's `get`): the daemon sets the limits from its command line
// before it serves anyone, and the control socket and the services on it count what
// they refuse.
//
//    maxClients                  connections open at once; one more gets an error reply
//                                and is closed (clientsRefused)
//    maxRequestBytes             one request line; a longer one gets an error reply and
//                                the connection is closed (requestsTooLong)
//    maxReplyBacklogBytes        replies written but not yet read by one client; a client
//                                further behind is disconnected (clientsDroppedUnread)
//    maxExternalTlvsPerClient    TLVs one external-TLV client publishes (all ports)
//    maxExternalTlvs             TLVs of all external-TLV clients together; each client
//                                counts at least one, so this bounds the clients too
//                                (a refused set: externalTlvSetsRefused)
//    maxPowerPortsPerAgent       ports one power agent publishes
//    maxPowerPorts               ports of all power agents together; each agent counts at
//                                least one (a refused request: powerRequestsRefused)
#pragma once

#include <cstdint>

#include "Framework/Vel/Entity.h"

namespace Daemon {

// clang-format off
#define DAEMON_CLIENT_LIMITS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(uint32_t, maxClients, 256)                                                \
   ATTR(uint64_t, maxRequestBytes, uint64_t(1) << 20)                             \
   ATTR(uint64_t, maxReplyBacklogBytes, uint64_t(16) << 20)                       \
   ATTR(uint32_t, maxExternalTlvsPerClient, 1024)                                 \
   ATTR(uint32_t, maxExternalTlvs, 8192)                                          \
   ATTR(uint32_t, maxPowerPortsPerAgent, 1024)                                    \
   ATTR(uint32_t, maxPowerPorts, 4096)                                            \
   COUNTER(uint64_t, clientsRefused)                                              \
   COUNTER(uint64_t, requestsTooLong)                                             \
   COUNTER(uint64_t, clientsDroppedUnread)                                        \
   COUNTER(uint64_t, externalTlvSetsRefused)                                      \
   COUNTER(uint64_t, powerRequestsRefused)
// clang-format on

class ClientLimits : public Vel::Entity {
   VEL_ENTITY(ClientLimits, DAEMON_CLIENT_LIMITS_ATTRS)

public:
   static constexpr const char* path = "daemon/clientLimits";
};

}  // namespace Daemon

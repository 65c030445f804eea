// What the gNMI server is doing and what it refused, published at "daemon/gnmi" (read it
// with the control socket's `get`; the metrics exporter shows it too). Written on the loop.
//
//    subscribers            Subscribe calls open now
//    subscribersRefused     Subscribe calls refused: --gnmi-max-subscribers were open
//    subscribersDropped     subscribers ended with RESOURCE_EXHAUSTED: more than
//                           --gnmi-max-queue notifications waited for them
//    notifications          notifications queued for subscribers
//    notificationsCoalesced notifications merged into one already waiting for the same
//                           neighbour (or container)
//    getRequests, setRequests, setsRefused (an error status: bad path, bad value, not
//                           allowed), requestsRefused (any RPC answered with an error)
#pragma once

#include <cstdint>

#include "Framework/Vel/Entity.h"

namespace Gnmi {

// clang-format off
#define GNMI_SERVER_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(uint32_t, subscribers, 0)                                                \
   COUNTER(uint64_t, subscribersRefused)                                         \
   COUNTER(uint64_t, subscribersDropped)                                         \
   COUNTER(uint64_t, notifications)                                              \
   COUNTER(uint64_t, notificationsCoalesced)                                     \
   COUNTER(uint64_t, getRequests)                                                \
   COUNTER(uint64_t, setRequests)                                                \
   COUNTER(uint64_t, setsRefused)                                                \
   COUNTER(uint64_t, requestsRefused)
// clang-format on

class GnmiServerStatus : public Vel::Entity {
   VEL_ENTITY(GnmiServerStatus, GNMI_SERVER_STATUS_ATTRS)

public:
   static constexpr const char* path = "daemon/gnmi";
};

}  // namespace Gnmi

// The neighbour event log handles. They are constant-initialized, so they are usable from
// any code, including other objects' static initialization.
#include "Lldp/LldpEvents.h"

namespace Lldp {

namespace {

constexpr int severityWarning = 4;
constexpr int severityNotice = 5;
constexpr const char* noActionRequired = "no action required";

}  // namespace

constinit const Vel::Log::Handle LLDP_NEIGHBOR_NEW(
    "LLDP_NEIGHBOR_NEW", severityNotice,
    "LLDP neighbor with chassisId %s and portId %s added on interface %s",
    "A new LLDP neighbor was added to the neighbor table.", noActionRequired, 0);

constinit const Vel::Log::Handle LLDP_NEIGHBOR_TIMEOUT(
    "LLDP_NEIGHBOR_TIMEOUT", severityNotice,
    "LLDP neighbor with chassisId %s and portId %s timed out on interface %s",
    "An LLDP neighbor was deleted from the neighbor table since it timed out.", noActionRequired,
    0);

constinit const Vel::Log::Handle LLDP_NEIGHBOR_GONE(
    "LLDP_NEIGHBOR_GONE", severityNotice,
    "Received a shutdown frame from LLDP neighbor with chassisId %s and portId %s on interface %s",
    "An LLDP neighbor was deleted from the neighbor table since an LLDPDU with a TTL of 0 was "
    "received from that neighbor.",
    noActionRequired, 0);

// Arguments: interface, the number of LLDPDUs allowed per interval (a uint64_t), and the
// interval (Vel::Seconds). The count may be passed as it is: log arguments are typed, and
// "%d" given an unsigned 64-bit value prints the whole value.
constinit const Vel::Log::Handle LLDP_RX_RATELIMIT(
    "LLDP_RX_RATELIMIT", severityWarning,
    "Exceeded Rx LLDPDU rate limit on %s (more than %d LLDPDUs in %f seconds)",
    "The switch received too many LLDPDUs on a port in too short a period of time, so we "
    "dropped the most recent received LLDPDU.",
    "This could indicate a mis-configured neighbor, or a network loop.  Check the configuration "
    "of the neighbor connected to the interface and configure the LLDPDUs to be sent at a "
    "reasonable rate and ensure there are no network loops.",
    60);

// Arguments: who cleared the table and where.
constinit const Vel::Log::Handle LLDP_REMOTE_TABLES_CLEARED(
    "LLDP_REMOTE_TABLES_CLEARED", severityNotice, "LLDP neighbor table cleared by %s on %s",
    "The LLDP neighbor table was cleared by a CLI command.", noActionRequired, 0);

// Arguments: interface and the port's limit (a uint32_t). Logged for the first neighbour
// refused, then at most once a minute (for any port: the suppressed count says how many
// more refusals there were, and each port's count is in its statistics), so a flood of
// forged neighbours cannot flood the log.
constinit const Vel::Log::Handle LLDP_NEIGHBOR_LIMIT(
    "LLDP_NEIGHBOR_LIMIT", severityWarning,
    "LLDP neighbor table full on interface %s (limit %d neighbors): new neighbor refused",
    "A new LLDP neighbor was not added to the neighbor table because the interface already "
    "has as many neighbors as its limit allows.",
    "Check what is attached to the interface; if it legitimately has this many neighbors, "
    "raise the limit with 'lldp neighbor-limit'.",
    60);

// Arguments: interface and the limit on all ports together (a uint32_t). Logged as
// LLDP_NEIGHBOR_LIMIT is, at most once a minute.
constinit const Vel::Log::Handle LLDP_NEIGHBOR_LIMIT_TOTAL(
    "LLDP_NEIGHBOR_LIMIT_TOTAL", severityWarning,
    "LLDP neighbor tables full (limit %d neighbors on all interfaces): new neighbor on "
    "interface %s refused",
    "A new LLDP neighbor was not added to the neighbor table because all interfaces together "
    "already have as many neighbors as the limit across interfaces allows.",
    "Check what is attached to the interfaces; if they legitimately have this many neighbors, "
    "raise the limit with 'lldp neighbor-limit total'.",
    60);

}  // namespace Lldp

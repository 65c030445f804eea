// Supervisor redundancy as LLDP sees it: which role this agent plays, which peer it
// mirrors or serves, how far the mirror of the active agent's status has got, and the
// last switchover. The status of the peer cells lives beside the local status, one
// `Lldp::Status` per cell, named by the cell's number.
#pragma once

#include <cstdint>
#include <iterator>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "Framework/Vel/Entity.h"
#include "Framework/Vel/Types.h"

namespace Lldp {

// Where the records live in the state database.
inline constexpr const char* redundancyStatusPath = "l2discovery/lldp/redundancy/status";
inline constexpr const char* lldpStatusDirPath = "l2discovery/lldp/status/cell";
// The name of a cell's entry in the peer status directory.
std::string lldpStatusDirName(uint32_t cellId);

// A small enumeration shown by name ("standby") in JSON, traces and the command line.
// `Names` supplies the names, indexed by value.
template <class Names>
class NamedEnum {
public:
   using Value = typename Names::Value;
   constexpr NamedEnum() = default;
   constexpr NamedEnum(Value v) : value_(v) {}
   constexpr Value value() const { return value_; }
   std::string stringValue() const {
      const size_t i = value_;
      return i < std::size(Names::names) ? Names::names[i] : "unknown" + std::to_string(i);
   }
   static std::optional<NamedEnum> parse(std::string_view s) {
      for (size_t i = 0; i < std::size(Names::names); ++i) {
         if (s == Names::names[i]) return NamedEnum(static_cast<Value>(i));
      }
      return std::nullopt;
   }
   bool operator==(const NamedEnum&) const = default;
   auto operator<=>(const NamedEnum&) const = default;
   size_t hash() const { return value_; }
   friend std::ostream& operator<<(std::ostream& os, const NamedEnum& e) {
      return os << e.stringValue();
   }

private:
   Value value_{};
};

struct RedundancyRoleNames {
   enum Value : uint8_t { roleActive = 0, roleStandby = 1 };
   static constexpr const char* names[] = {"active", "standby"};
};
using RedundancyRole = NamedEnum<RedundancyRoleNames>;

// How the standby's mirror of the active agent stands:
//   disconnected  no connection to the active agent (not yet, or lost)
//   connecting    connected, waiting for the active agent's answer
//   snapshot      receiving the active agent's complete status
//   inSync        the snapshot is in; every change is applied as it comes
//   resync        fell behind or lost part of the stream; a fresh snapshot follows
//   badPeer       the peer socket is not an agent, or answered something unreadable
//   refused       the active agent refused to be mirrored (see mirrorError)
//   notMirroring  this agent mirrors nobody (it is the active one)
struct MirrorStateNames {
   enum Value : uint8_t {
      mirrorDisconnected = 0,
      mirrorConnecting = 1,
      mirrorSnapshot = 2,
      mirrorInSync = 3,
      mirrorResync = 4,
      mirrorBadPeer = 5,
      mirrorRefused = 6,
      mirrorNotMirroring = 7,
   };
   static constexpr const char* names[] = {"disconnected", "connecting",  "snapshot",
                                           "inSync",       "resync",      "badPeer",
                                           "refused",      "notMirroring"};
};
using MirrorState = NamedEnum<MirrorStateNames>;

struct SwitchoverReasonNames {
   enum Value : uint8_t {
      switchoverNone = 0,
      switchoverPeerStopped = 1,  // the active agent stopped cleanly
      switchoverPeerDied = 2,     // the active agent went without stopping (crash, kill -9)
      switchoverOperatorRequest = 3,
   };
   static constexpr const char* names[] = {"none", "peerStopped", "peerDied", "operatorRequest"};
};
using SwitchoverReason = NamedEnum<SwitchoverReasonNames>;

// `role`, `cellId`, `peerCellId`, `peerSocket` and the switchover fields are kept by the
// redundancy machine; the mirror fields by the mirror: on a standby, its client of the
// active agent's stream; on the active agent, `mirrorStandbys` counts the standbys it
// serves (at most one). `mirrorLagChanges` is how many changes the active agent had made
// that the standby had not applied when it last heard from it; `mirrorSequence` the
// sequence number of the last change applied; `mirrorError` says why the mirror is not
// in sync when something went wrong (empty otherwise).
// clang-format off
#define LLDP_REDUNDANCY_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(Lldp::RedundancyRole, role, {})                                            \
   ATTR(uint32_t, cellId, 1)                                                       \
   ATTR(uint32_t, peerCellId, 0)                                                   \
   ATTR(std::string, peerSocket, {})                                               \
   ATTR(Lldp::MirrorState, mirrorState, Lldp::MirrorStateNames::mirrorNotMirroring) \
   ATTR(uint64_t, mirrorLagChanges, 0)                                             \
   COUNTER(uint64_t, mirrorChangesApplied)                                         \
   COUNTER(uint32_t, mirrorResyncs)                                                \
   ATTR(uint64_t, mirrorSequence, 0)                                               \
   ATTR(std::string, mirrorError, {})                                              \
   ATTR(uint32_t, mirrorStandbys, 0)                                               \
   ATTR(Vel::Seconds, lastSwitchoverTime, 0)                                       \
   ATTR(Lldp::SwitchoverReason, lastSwitchoverReason, {})
// clang-format on

class RedundancyStatus : public Vel::Entity {
   VEL_ENTITY(RedundancyStatus, LLDP_REDUNDANCY_STATUS_ATTRS)
};

}  // namespace Lldp

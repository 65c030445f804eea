// Operational state the agent publishes: global remote-table statistics and, per port,
// the counters, the neighbour table and the VLAN names advertised.
#pragma once

#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Framework/Vel/CompactMap.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Vel/IntSet.h"
#include "Framework/Wire/IntfId.h"
#include "Records/LldpRemoteSystem.h"
#include "Records/LldpValues.h"

// Per-port records are kept by pointer in B-trees (Framework/Vel/CompactMap.h).
namespace Lldp {
class PortStatus;
}  // namespace Lldp
VEL_COMPACT_ENTITY_SET(Wire::IntfId, Lldp::PortStatus, intfId)

namespace L3 {
using VrfName = Vel::FixedString<64>;
}

namespace Lldp {

// `rxNeighborsRefused` counts the LLDPDUs of new neighbours that found the port's
// neighbour table full (each such LLDPDU counts, as the table keeps no record of them);
// `rxNeighborsRefusedTotalLimit` those that found the neighbours of all ports together at
// their limit (`remoteSystemLimitTotal`).
// clang-format off
#define LLDP_PORT_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                                  \
   ATTR(Vel::Seconds, creationTime, 0)                                        \
   COUNTER(uint32_t, txFramesTotal)                                           \
   COUNTER(uint32_t, txFramesLengthExceeded)                                  \
   COUNTER(uint32_t, txFramesNoMemErrors)                                     \
   COUNTER(uint32_t, txFramesErrors)                                          \
   COUNTER(uint32_t, rxFramesTotal)                                           \
   COUNTER(uint32_t, rxFramesDiscardedTotal)                                  \
   COUNTER(uint32_t, rxFramesErrors)                                          \
   COUNTER(uint32_t, rxTLVsDiscardedTotal)                                    \
   COUNTER(uint32_t, rxTLVsUnrecognizedTotal)                                 \
   COUNTER(uint32_t, rxAgeoutsTotal)                                          \
   COUNTER(uint32_t, rxLldpdusRateLimited)                                    \
   COUNTER(uint32_t, rxNeighborsRefused)                                      \
   COUNTER(uint32_t, rxNeighborsRefusedTotalLimit)                            \
   ATTR(bool, vlanNamesChanged, false)                                        \
   ATTR(bool, vlanNamesIncomplete, false)                                     \
   ATTR(Vel::Seconds, lastTxTime, 0)                                          \
   COUNTER(uint32_t, nextRemoteSystemIndex)                                   \
   ECOLL(int, RemoteSystem, remoteSystem)                                     \
   REFCOLL(Msap, RemoteSystem, remoteSystemByMsap, msap)                      \
   COLL(Bridging::VlanId, VlanName, vlanName)                                 \
   COLL(Bridging::VlanId, VlanName, sentVlanName)
// clang-format on

class PortStatus : public Vel::Entity {
   VEL_ENTITY(PortStatus, LLDP_PORT_STATUS_ATTRS)
   PortStatus(const Wire::IntfId& intf, Vel::Seconds created) : intfId_(intf) {
      creationTime_ = created;
   }
   ~PortStatus() override;
   // Questions about the neighbours on this port, asked by the transmit side.
   bool anyLldpMedReceived() const;
   bool networkPolicyTlvReceived() const;
   bool powerViaMdiTlvReceived() const;
   // While tracked, the neighbours that sent LLDP-MED or Power via MDI TLVs are kept as
   // they change (the port's protocol machine re-examines each neighbour added, changed or
   // removed), so that the two questions above cost the same on a port of a hundred
   // thousand neighbours as on an empty one; untracked, they look at every neighbour.
   void senderTrackingIs(bool on);
   void remoteSystemSenderIs(int index);
   // The neighbour with this index, or null. The newest (highest index, the one just
   // added) is found at once; the machines that watch the table ask for it at every new
   // neighbour, and a search from the top of a table of 100,000 would cost each of them.
   const RemoteSystem* remoteSystemAt(int index) const;

private:
   struct Senders {
      Vel::IntSet med;
      Vel::IntSet power;
   };
   // The senders of a tracked port: made with the first such neighbour (most ports never
   // have one), `noSenders` until then; null while untracked. One word, so that the two
   // flags above sit in padding and an idle port's record stays in its allocator size.
   static Senders noSenders;
   Senders* senders_ = nullptr;
};

// clang-format off
#define LLDP_STATUS_BASE_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   COUNTER(uint32_t, remTablesInserts)                                        \
   COUNTER(uint32_t, remTablesDeletes)                                        \
   COUNTER(uint32_t, remTablesDrops)                                          \
   COUNTER(uint32_t, remTablesAgeouts)                                        \
   COUNTER(uint32_t, rxFramesDroppedByKernel)                                 \
   ATTR(Vel::Seconds, remTablesLastChangeTime, 0)                             \
   ATTR(Vel::Seconds, lastPacketParsedTime, 0)                                \
   ATTR(L3::VrfName, mgmtAddrVrf, {})
// clang-format on

class StatusBase : public Vel::Entity {
   VEL_ENTITY(StatusBase, LLDP_STATUS_BASE_ATTRS)
};

// The number of neighbours on a set of ports together, kept up to date as each port's
// table changes (whoever adds or removes them), so that reading it costs the same with a
// hundred thousand neighbours as with none. A port is counted from the first time it is
// asked about; a port nobody else holds any more is let go once its table is empty.
class RemoteSystemTally {
public:
   RemoteSystemTally() = default;
   RemoteSystemTally(const RemoteSystemTally&) = delete;
   RemoteSystemTally& operator=(const RemoteSystemTally&) = delete;
   // The neighbours of every port counted so far, `port` included.
   uint64_t count(const Vel::Ptr<const PortStatus>& port);
   size_t ports() const { return watches_.size(); }

private:
   struct Watch : PortStatus::Notifiee {
      RemoteSystemTally* tally = nullptr;
      const PortStatus* port = nullptr;
      size_t counted = 0;
      void remoteSystemChanged(const int&) override;
   };
   void pruneOne();
   std::vector<std::unique_ptr<Watch>> watches_;
   std::unordered_map<const PortStatus*, size_t> slot_;  // port -> its watch in watches_
   size_t next_ = 0;                                     // the next watch pruneOne() checks
   uint64_t total_ = 0;
};

// clang-format off
#define LLDP_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ECOLL(Wire::IntfId, PortStatus, portStatus)
// clang-format on

class Status : public StatusBase {
   VEL_ENTITY_DERIVED(Status, StatusBase, LLDP_STATUS_ATTRS)
   // The neighbours of all ports together, for the limit across ports (the receive
   // processor counts the ports it stores neighbours on).
   RemoteSystemTally& remoteSystemTally() { return remoteSystemTally_; }

private:
   RemoteSystemTally remoteSystemTally_;
};

// The status the command line reads: the remote-table counters of every supervisor added
// up, and each port's status.
// clang-format off
#define LLDP_ALL_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   MAP(Wire::IntfId, Vel::Ptr<const PortStatus>, portStatus)
// clang-format on

class AllStatus : public StatusBase {
   VEL_ENTITY_DERIVED(AllStatus, StatusBase, LLDP_ALL_STATUS_ATTRS)
};

// clang-format off
#define LLDP_REM_TABLES_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(Vel::Seconds, remTablesLastClearTime, 0)
// clang-format on

class RemTablesStatus : public Vel::Entity {
   VEL_ENTITY(RemTablesStatus, LLDP_REM_TABLES_STATUS_ATTRS)
};

}  // namespace Lldp

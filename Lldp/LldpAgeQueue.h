// The neighbours of one port in the order they expire, for the port's age timer: finding
// the neighbours that have expired and the next expiry costs the same with a hundred
// thousand neighbours on the port as with ten.
#pragma once

#include <cstdint>
#include <vector>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/SmallVector.h"
#include "Framework/Vel/Types.h"
#include "Records/LldpRemoteSystem.h"

namespace Lldp::Agent::Protocol {

// A min-heap of (time, neighbour index) entries. Every neighbour in the table has an entry
// whose time is no later than its expiry; the record, not the entry, says when it expires.
// An entry is checked against the record only when it comes to the front: one that is
// early (the neighbour was refreshed since) is queued again at the record's expiry, one
// whose neighbour is gone is dropped. So a refresh that moves an expiry later, the usual
// frame, costs the queue nothing.
//
// What must be queued (queueIs) is a neighbour new to the table, and one whose expiry may
// have moved earlier than its entry: any expiry before latestQueued() may have. Such
// copies leave old entries behind; when they outnumber half the table the queue is rebuilt
// from the table, a cost paid for by the queueing that made them.
class LldpAgeQueue {
public:
   using Table = Vel::EntityMapOf<int, Lldp::RemoteSystem>;

   // Adds an entry at the neighbour's expiry as it is now.
   void queueIs(const Lldp::RemoteSystem& remote, const Table& table);
   // One entry per neighbour of the table, and nothing else.
   void rebuildFrom(const Table& table);
   void clear();
   // Takes the neighbours of `table` whose expiry is not later than `now` into `expired`,
   // each once and in index order (the table's order). Afterwards front() is the earliest
   // expiry of those left.
   void expiredAt(Vel::Seconds now, const Table& table,
                  std::vector<Vel::Ptr<Lldp::RemoteSystem>>& expired);
   // The earliest time queued: after expiredAt(), the earliest expiry on the port; never
   // when the queue is empty.
   Vel::Seconds front() const;
   // The latest time ever queued since the last rebuild: no entry is later.
   Vel::Seconds latestQueued() const { return latestQueued_; }
   size_t entries() const { return heap_.size(); }

private:
   // 12 bytes: a neighbour costs the queue one and a half words.
#pragma pack(push, 4)
   struct Entry {
      Vel::Seconds time;
      int index;
   };
#pragma pack(pop)
   static bool later(const Entry& a, const Entry& b) {
      return a.time > b.time;
   }
   void push(Vel::Seconds time, int index);
   void popFront();

   Vel::SmallVector<Entry> heap_;  // a word while the port has no neighbours
   Vel::Seconds latestQueued_ = 0;
};

}  // namespace Lldp::Agent::Protocol

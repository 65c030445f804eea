// What waits to be written to one subscriber, shared by the loop (which queues) and gRPC's
// threads (which write, one message at a time, as the client reads). Everything behind one
// mutex; the loop never waits for the client: it queues and returns.
//
// Changes to the same neighbour (the same prefix) merge while they wait: the newer value of
// a leaf replaces the older, a delete of the neighbour replaces everything queued for it.
// The queue holds at most `maxQueue` messages beyond the initial state; past that the
// subscriber is ended with RESOURCE_EXHAUSTED and what waited is dropped.
//
// The reactor is used only while the call is not finished, under the mutex: once Finish
// is called nothing else is started, so the reactor outlives every use (gRPC destroys it
// only after Finish and the operations in flight complete).
#pragma once

#include <grpcpp/support/server_callback.h>
#include <grpcpp/support/status.h>

#include <cstddef>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Gnmi/GnmiModel.h"
#include "Gnmi/gnmi.pb.h"

namespace Gnmi {

class GnmiSubscribeOutbox {
public:
   using Reactor = grpc::ServerBidiReactor<gnmi::SubscribeRequest, gnmi::SubscribeResponse>;
   GnmiSubscribeOutbox(Reactor* reactor, size_t maxQueue);

   enum class Pushed { queued, coalesced, overflow, finished };
   // Loop. `coalesce`: merge with a change waiting for the same prefix.
   Pushed push(Change&& change, bool coalesce);
   // Loop: a sync_response after what is queued; the bound then counts from here.
   void pushSync();
   // Loop or gRPC: ends the call now, dropping what waits (no-op once finished).
   void finish(const grpc::Status& status);
   // Loop: ends the call once everything queued has been written.
   void finishWhenWritten(const grpc::Status& status);
   // Loop: reads the client's next request (after the loop handled this one).
   void readNext(gnmi::SubscribeRequest* into);

   // gRPC side.
   void onWriteDone(bool ok);
   void onDone();

   bool finished() const;
   size_t queued() const;
   // What waits, oldest first (a sync_response as an empty change; for tests).
   std::vector<Change> waiting() const;

private:
   struct Item {
      std::string key;  // the prefix as text; empty: never merged
      bool sync = false;
      Change change;
   };
   static void merge(Change& into, Change&& newer);
   void startWriteLocked();

   mutable std::recursive_mutex mutex_;  // recursive: gRPC may run a reaction inline
   Reactor* reactor_;
   const size_t maxQueue_;
   size_t limit_;
   std::list<Item> items_;
   std::unordered_map<std::string, std::list<Item>::iterator> byKey_;
   gnmi::SubscribeResponse writing_;
   bool inFlight_ = false;
   bool finished_ = false;
   std::optional<grpc::Status> finishWhenWritten_;
};

}  // namespace Gnmi

// One subscriber on the loop: the subscription list it asked for, its watches and sample
// clocks, and what it sends.
//
//    ONCE    every leaf under each path, sync_response, end of the call
//    POLL    the same without the end, and again on each Poll
//    STREAM  the current state (unless updates_only), sync_response, then per path:
//            ON_CHANGE       one notification per neighbour (or container) change, a
//                            delete when a neighbour goes; heartbeat_interval re-sends the
//                            whole state of the path
//            SAMPLE          every leaf each sample_interval (suppress_redundant: only
//                            leaves whose value changed, the whole state each
//                            heartbeat_interval)
//            TARGET_DEFINED  ON_CHANGE for what changes by events, SAMPLE (every
//                            sample_interval, default 10 s) for counters and ages
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Framework/Vel/EventLoop.h"
#include "Gnmi/GnmiSubscribeOutbox.h"

namespace Gnmi {

class GnmiServer;

class GnmiSubscribeSession {
public:
   static constexpr uint64_t defaultSampleNs = 10'000'000'000;
   static constexpr uint64_t minIntervalNs = 100'000'000;

   GnmiSubscribeSession(GnmiServer& server, uint64_t id,
                        std::shared_ptr<GnmiSubscribeOutbox> outbox);
   ~GnmiSubscribeSession();

   // The first request. An error status ends the call (nothing was sent).
   std::optional<grpc::Status> start(const gnmi::SubscriptionList& list);
   // A Poll (POLL mode only).
   std::optional<grpc::Status> poll();
   // Ends the call now with `status`.
   void end(const grpc::Status& status) { outbox_->finish(status); }
   // False once the subscriber has been ended (by us or by the client).
   bool live() const { return !outbox_->finished(); }

private:
   enum class Kind { onChange, sample, targetDefined };
   struct Entry {
      Path path;
      Kind kind = Kind::targetDefined;
      uint64_t sampleNs = 0, heartbeatNs = 0;
      bool suppressRedundant = false;
      std::unique_ptr<Model::Watch> watch;
      std::unique_ptr<Vel::Clock> sampleClock, heartbeatClock;
      std::map<std::string, Value> lastSent;  // suppress_redundant: by leaf path text
   };

   // Every leaf of `which` under the entry's path, one notification per neighbour (or
   // container); with `onlyChanged`, leaves whose value differs from what was last sent.
   std::optional<Error> sendLeaves(Entry& e, LeafSet which, bool onlyChanged);
   void sendChange(Change&& c, bool coalesce);
   void onSample(Entry& e);
   void onHeartbeat(Entry& e);
   void overflow();

   GnmiServer& server_;
   const uint64_t id_;
   std::shared_ptr<GnmiSubscribeOutbox> outbox_;
   gnmi::SubscriptionList::Mode mode_ = gnmi::SubscriptionList::STREAM;
   std::vector<std::unique_ptr<Entry>> entries_;
   bool overflowed_ = false;
};

}  // namespace Gnmi

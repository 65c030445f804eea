#include "Gnmi/GnmiSubscribeSession.h"

#include <time.h>

#include "Gnmi/GnmiProto.h"
#include "Gnmi/GnmiServer.h"
#include "Gnmi/GnmiServerStatus.h"

namespace Gnmi {

namespace {

uint64_t wallNs() {
   timespec ts;
   ::clock_gettime(CLOCK_REALTIME, &ts);
   return uint64_t(ts.tv_sec) * 1'000'000'000u + uint64_t(ts.tv_nsec);
}

// How many leading elements of a leaf's path make its notification's prefix: through the
// neighbour when there is one, else through the interface, else the top container.
size_t prefixLength(const Path& p) {
   size_t n = p.elems.empty() ? 0 : 1;
   for (size_t i = 0; i < p.elems.size(); ++i) {
      if (p.elems[i].keys.empty()) continue;
      if (p.elems[i].name == "neighbor") return i + 1;
      if (p.elems[i].name == "interface") n = i + 1;
   }
   return n;
}

grpc::Status toStatus(const Error& e) {
   return grpc::Status(grpc::StatusCode(e.code), e.message);
}

}  // namespace

GnmiSubscribeSession::GnmiSubscribeSession(GnmiServer& server, uint64_t id,
                                           std::shared_ptr<GnmiSubscribeOutbox> outbox)
    : server_(server), id_(id), outbox_(std::move(outbox)) {}

GnmiSubscribeSession::~GnmiSubscribeSession() = default;

std::optional<grpc::Status> GnmiSubscribeSession::start(const gnmi::SubscriptionList& list) {
   using grpc::Status;
   using grpc::StatusCode;
   mode_ = list.mode();
   if (!gnmi::SubscriptionList::Mode_IsValid(mode_)) {
      return Status(StatusCode::INVALID_ARGUMENT,
                    "unknown subscription list mode " + std::to_string(int(mode_)));
   }
   if (list.subscription_size() == 0) {
      return Status(StatusCode::INVALID_ARGUMENT, "the subscription list has no subscription");
   }
   if (list.encoding() != gnmi::JSON && list.encoding() != gnmi::JSON_IETF &&
       list.encoding() != gnmi::PROTO) {
      return Status(StatusCode::UNIMPLEMENTED, "encoding " + gnmi::Encoding_Name(list.encoding()) +
                                                   " is not served (JSON, JSON_IETF, PROTO)");
   }
   Path prefix;
   std::string error;
   if (list.has_prefix() && !fromProto(list.prefix(), prefix, error)) {
      return Status(StatusCode::INVALID_ARGUMENT, "prefix: " + error);
   }
   Model& model = server_.model();
   for (const gnmi::Subscription& s : list.subscription()) {
      auto e = std::make_unique<Entry>();
      Path rel;
      if (!fromProto(s.path(), rel, error)) return Status(StatusCode::INVALID_ARGUMENT, error);
      e->path = join(prefix, rel);
      if (auto err = model.check(e->path)) return toStatus(*err);
      if (!gnmi::SubscriptionMode_IsValid(s.mode())) {
         return Status(StatusCode::INVALID_ARGUMENT,
                       toString(e->path) + ": unknown mode " + std::to_string(int(s.mode())));
      }
      e->kind = s.mode() == gnmi::ON_CHANGE ? Kind::onChange
                : s.mode() == gnmi::SAMPLE  ? Kind::sample
                                            : Kind::targetDefined;
      for (uint64_t ns : {s.sample_interval(), s.heartbeat_interval()}) {
         if (ns != 0 && ns < minIntervalNs) {
            return Status(StatusCode::INVALID_ARGUMENT, toString(e->path) + ": interval " +
                                                            std::to_string(ns) +
                                                            " ns is below the minimum of 100 ms");
         }
      }
      e->sampleNs = s.sample_interval() ? s.sample_interval() : defaultSampleNs;
      e->heartbeatNs = s.heartbeat_interval();
      e->suppressRedundant = s.suppress_redundant();
      entries_.push_back(std::move(e));
   }

   // The current state and the watches in one turn of the loop: nothing falls between.
   for (auto& e : entries_) {
      if (mode_ != gnmi::SubscriptionList::STREAM || !list.updates_only()) {
         if (auto err = sendLeaves(*e, LeafSet::All, e->suppressRedundant)) {
            if (err->code != codeNotFound) return toStatus(*err);
         }
      }
      if (mode_ != gnmi::SubscriptionList::STREAM) continue;
      Entry* entry = e.get();
      auto& loop = Vel::EventLoop::instance();
      if (e->kind != Kind::sample) {
         if (auto err = model.watch(
                 e->path, [this](const Change& c) { sendChange(Change(c), true); }, e->watch)) {
            return toStatus(*err);
         }
      }
      if (e->kind != Kind::onChange) {
         e->sampleClock = std::make_unique<Vel::Clock>([this, entry] { onSample(*entry); });
         e->sampleClock->timeMinIs(loop.now() + double(e->sampleNs) / 1e9);
      }
      if (e->heartbeatNs) {
         e->heartbeatClock = std::make_unique<Vel::Clock>([this, entry] { onHeartbeat(*entry); });
         e->heartbeatClock->timeMinIs(loop.now() + double(e->heartbeatNs) / 1e9);
      }
   }
   outbox_->pushSync();
   if (mode_ == gnmi::SubscriptionList::ONCE) outbox_->finishWhenWritten(grpc::Status::OK);
   return std::nullopt;
}

std::optional<grpc::Status> GnmiSubscribeSession::poll() {
   if (mode_ != gnmi::SubscriptionList::POLL) {
      return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT,
                          "a Poll is only for a subscription in POLL mode");
   }
   for (auto& e : entries_) {
      if (auto err = sendLeaves(*e, LeafSet::All, false); err && err->code != codeNotFound) {
         return toStatus(*err);
      }
   }
   outbox_->pushSync();
   return std::nullopt;
}

std::optional<Error> GnmiSubscribeSession::sendLeaves(Entry& e, LeafSet which, bool onlyChanged) {
   Change change;
   size_t prefixLen = 0;
   const uint64_t now = wallNs();
   auto flush = [&] {
      if (!change.updates.empty()) sendChange(std::move(change), false);
      change = Change();
   };
   auto err = server_.model().leaves(
       e.path,
       [&](const Leaf& leaf) {
          if (overflowed_) return;
          if (onlyChanged || e.suppressRedundant) {
             std::string key = toString(leaf.path);
             auto it = e.lastSent.find(key);
             const bool same = it != e.lastSent.end() && it->second == leaf.value;
             if (it == e.lastSent.end()) {
                e.lastSent.emplace(std::move(key), leaf.value);
             } else {
                it->second = leaf.value;
             }
             if (same && onlyChanged) return;
          }
          const size_t n = prefixLength(leaf.path);
          const bool samePrefix = !change.updates.empty() && n == prefixLen &&
                                  std::equal(change.prefix.elems.begin(), change.prefix.elems.end(),
                                             leaf.path.elems.begin());
          if (!samePrefix) {
             flush();
             prefixLen = n;
             change.timestampNs = now;
             change.prefix.elems.assign(leaf.path.elems.begin(), leaf.path.elems.begin() + n);
          }
          Leaf rel;
          rel.path.elems.assign(leaf.path.elems.begin() + n, leaf.path.elems.end());
          rel.value = leaf.value;
          change.updates.push_back(std::move(rel));
       },
       which);
   flush();
   return err;
}

void GnmiSubscribeSession::sendChange(Change&& c, bool coalesce) {
   if (overflowed_) return;
   auto& status = server_.status();
   switch (outbox_->push(std::move(c), coalesce)) {
      case GnmiSubscribeOutbox::Pushed::queued:
         status.notificationsInc();
         break;
      case GnmiSubscribeOutbox::Pushed::coalesced:
         status.notificationsCoalescedInc();
         break;
      case GnmiSubscribeOutbox::Pushed::overflow:
         overflow();
         break;
      case GnmiSubscribeOutbox::Pushed::finished:
         break;
   }
}

void GnmiSubscribeSession::overflow() {
   overflowed_ = true;
   server_.status().subscribersDroppedInc();
   outbox_->finish(grpc::Status(grpc::StatusCode::RESOURCE_EXHAUSTED,
                                "the subscriber fell more than " +
                                    std::to_string(server_.options().maxQueue) +
                                    " notifications behind"));
   // The watches, the clocks and the subscriber's place go now, after the handler that
   // found the overflow (it may be the model's watch calling us); a client that never
   // reads keeps only its connection.
   GnmiServer* server = &server_;
   const uint64_t id = id_;
   Vel::EventLoop::instance().post([server, id] { server->subscribeEnded(id); });
}

void GnmiSubscribeSession::onSample(Entry& e) {
   if (!live()) return;
   const LeafSet which = e.kind == Kind::targetDefined ? LeafSet::Sampled : LeafSet::All;
   sendLeaves(e, which, e.suppressRedundant);
   e.sampleClock->timeMinIs(Vel::EventLoop::instance().now() + double(e.sampleNs) / 1e9);
}

void GnmiSubscribeSession::onHeartbeat(Entry& e) {
   if (!live()) return;
   const LeafSet which = e.kind == Kind::onChange ? LeafSet::OnChange : LeafSet::All;
   sendLeaves(e, which, false);
   e.heartbeatClock->timeMinIs(Vel::EventLoop::instance().now() + double(e.heartbeatNs) / 1e9);
}

}  // namespace Gnmi

#include "Gnmi/GnmiSubscribeOutbox.h"

#include <algorithm>

#include "Gnmi/GnmiProto.h"

namespace Gnmi {

GnmiSubscribeOutbox::GnmiSubscribeOutbox(Reactor* reactor, size_t maxQueue)
    : reactor_(reactor), maxQueue_(maxQueue), limit_(maxQueue) {}

void GnmiSubscribeOutbox::merge(Change& into, Change&& newer) {
   into.timestampNs = newer.timestampNs;
   for (Path& d : newer.deletes) {
      std::erase_if(into.updates, [&](const Leaf& l) { return l.path == d; });
      if (std::find(into.deletes.begin(), into.deletes.end(), d) == into.deletes.end()) {
         into.deletes.push_back(std::move(d));
      }
   }
   for (Leaf& l : newer.updates) {
      std::erase_if(into.deletes, [&](const Path& d) { return d == l.path; });
      auto same = std::find_if(into.updates.begin(), into.updates.end(),
                               [&](const Leaf& o) { return o.path == l.path; });
      if (same != into.updates.end()) {
         same->value = std::move(l.value);
      } else {
         into.updates.push_back(std::move(l));
      }
   }
}

GnmiSubscribeOutbox::Pushed GnmiSubscribeOutbox::push(Change&& change, bool coalesce) {
   std::lock_guard<std::recursive_mutex> lock(mutex_);
   if (finished_ || finishWhenWritten_) return Pushed::finished;
   const auto gone = [](const Change& c) {
      return std::any_of(c.deletes.begin(), c.deletes.end(),
                         [](const Path& d) { return d.elems.empty(); });
   };
   std::string key;
   if (coalesce) {
      key = toString(change.prefix);
      if (auto it = byKey_.find(key); it != byKey_.end()) {
         Change& queued = it->second->change;
         if (gone(change)) {
            queued = std::move(change);
            return Pushed::coalesced;
         }
         if (!gone(queued)) {
            merge(queued, std::move(change));
            return Pushed::coalesced;
         }
         // The neighbour went and came back: both are told, in order.
      }
   }
   if (items_.size() >= limit_) return Pushed::overflow;
   items_.push_back(Item{key, false, std::move(change)});
   if (!key.empty()) byKey_[key] = std::prev(items_.end());
   startWriteLocked();
   return Pushed::queued;
}

void GnmiSubscribeOutbox::pushSync() {
   std::lock_guard<std::recursive_mutex> lock(mutex_);
   if (finished_) return;
   items_.push_back(Item{{}, true, {}});
   limit_ = items_.size() + maxQueue_;
   startWriteLocked();
}

void GnmiSubscribeOutbox::startWriteLocked() {
   if (inFlight_ || finished_) return;
   if (items_.empty()) {
      if (finishWhenWritten_) {
         finished_ = true;
         reactor_->Finish(*finishWhenWritten_);
      }
      return;
   }
   Item& item = items_.front();
   writing_.Clear();
   if (item.sync) {
      writing_.set_sync_response(true);
   } else {
      toProto(item.change, writing_.mutable_update());
   }
   if (!item.key.empty()) byKey_.erase(item.key);
   items_.pop_front();
   inFlight_ = true;
   reactor_->StartWrite(&writing_);
}

void GnmiSubscribeOutbox::onWriteDone(bool ok) {
   std::lock_guard<std::recursive_mutex> lock(mutex_);
   inFlight_ = false;
   if (!ok) {
      // The client went: nothing more can be written.
      if (!finished_) {
         finished_ = true;
         reactor_->Finish(grpc::Status(grpc::StatusCode::CANCELLED, "the client went away"));
      }
      return;
   }
   startWriteLocked();
}

void GnmiSubscribeOutbox::finish(const grpc::Status& status) {
   std::lock_guard<std::recursive_mutex> lock(mutex_);
   if (finished_) return;
   finished_ = true;
   items_.clear();
   byKey_.clear();
   reactor_->Finish(status);
}

void GnmiSubscribeOutbox::finishWhenWritten(const grpc::Status& status) {
   std::lock_guard<std::recursive_mutex> lock(mutex_);
   if (finished_) return;
   finishWhenWritten_ = status;
   startWriteLocked();
}

void GnmiSubscribeOutbox::readNext(gnmi::SubscribeRequest* into) {
   std::lock_guard<std::recursive_mutex> lock(mutex_);
   if (!finished_) reactor_->StartRead(into);
}

void GnmiSubscribeOutbox::onDone() {
   std::lock_guard<std::recursive_mutex> lock(mutex_);
   finished_ = true;
   reactor_ = nullptr;
   items_.clear();
   byKey_.clear();
}

bool GnmiSubscribeOutbox::finished() const {
   std::lock_guard<std::recursive_mutex> lock(mutex_);
   return finished_;
}

size_t GnmiSubscribeOutbox::queued() const {
   std::lock_guard<std::recursive_mutex> lock(mutex_);
   return items_.size();
}

}  // namespace Gnmi

namespace Gnmi {

std::vector<Change> GnmiSubscribeOutbox::waiting() const {
   std::lock_guard<std::recursive_mutex> lock(mutex_);
   std::vector<Change> out;
   for (const Item& i : items_) out.push_back(i.change);
   return out;
}

}  // namespace Gnmi

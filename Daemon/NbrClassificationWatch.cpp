#include "Daemon/NbrClassificationWatch.h"

#include "Framework/Vel/EventLoop.h"

namespace Cli {

NbrClassificationWatch::NbrClassificationWatch(Identity::NbrClassification::Status::PtrConst status,
                                               Sink sink)
    : status_(std::move(status)), sink_(std::move(sink)) {
   for (const auto& [key, e] : status_->entry()) known_[key] = true;
   notifierIs(status_);
}

NbrClassificationWatch::~NbrClassificationWatch() {
   notifierIs(nullptr);
}

void NbrClassificationWatch::entryChanged(const EntryKey& key) {
   pending_.try_emplace(key, known_.count(key) != 0);
   if (flushPosted_) return;
   flushPosted_ = true;
   Vel::EventLoop::instance().post([this, alive = std::weak_ptr<bool>(alive_)] {
      if (alive.lock()) flush();
   });
}

void NbrClassificationWatch::flush() {
   flushPosted_ = false;
   auto pending = std::move(pending_);
   pending_.clear();
   for (const auto& [key, was] : pending) {
      auto e = status_->entry(key);
      if (e) {
         known_[key] = true;
         sink_(
             {{"event", was ? "reclassified" : "classified"}, {"classification", Vel::toJson(*e)}});
      } else if (was) {
         known_.erase(key);
         sink_({{"event", "unclassified"},
                {"interface", key.intfId().stringValue()},
                {"classification", Vel::toJson(key)}});
      }
   }
}

}  // namespace Cli

// Follows the neighbour classification status and reports each station classified,
// reclassified or no longer classified, for `lldp watch classification`. Changes are gathered
// during a loop turn and reported after it, one event per station:
//    {"event": "classified" | "reclassified" | "unclassified", "interface": "eth1",
//     "classification": {"intfId", "ethAddr", "nbrClass", "source", "since", "neighbor"}}
// An unclassified station is reported with its port and address only.
#pragma once

#include <functional>
#include <map>
#include <memory>

#include "Framework/Vel/Json.h"
#include "Records/Identity.h"

namespace Cli {

class NbrClassificationWatch : private Identity::NbrClassification::Status::Notifiee {
public:
   using Sink = std::function<void(const Vel::Json& event)>;
   // Stations already classified are known but not reported.
   NbrClassificationWatch(Identity::NbrClassification::Status::PtrConst status, Sink sink);
   ~NbrClassificationWatch() override;
   NbrClassificationWatch(const NbrClassificationWatch&) = delete;
   NbrClassificationWatch& operator=(const NbrClassificationWatch&) = delete;

private:
   using EntryKey = Identity::NbrClassification::EntryKey;
   void entryChanged(const EntryKey& key) override;
   void flush();

   Identity::NbrClassification::Status::PtrConst status_;
   Sink sink_;
   // Whether each pending station was classified when its turn began.
   std::map<EntryKey, bool> pending_;
   std::map<EntryKey, bool> known_;
   bool flushPosted_ = false;
   std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace Cli

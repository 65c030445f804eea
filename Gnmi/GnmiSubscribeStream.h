// One Subscribe call on gRPC's side: reads the client's requests and hands each to the loop
// (the next is read only once the loop has handled this one, so a client cannot pile up
// requests), writes what the loop queued in the outbox, and tells the loop when the call
// is over. It never touches the records.
#pragma once

#include <cstdint>
#include <memory>

#include "Gnmi/GnmiSubscribeOutbox.h"

namespace Gnmi {

class GnmiServer;

class GnmiSubscribeStream final : public GnmiSubscribeOutbox::Reactor {
public:
   GnmiSubscribeStream(GnmiServer& server, uint64_t id);

   void OnReadDone(bool ok) override;
   void OnWriteDone(bool ok) override;
   void OnCancel() override;
   void OnDone() override;

private:
   GnmiServer& server_;
   const uint64_t id_;
   std::shared_ptr<GnmiSubscribeOutbox> outbox_;
   gnmi::SubscribeRequest request_;
   bool started_ = false;  // a request reached the loop (only gRPC's reactions touch it)
};

}  // namespace Gnmi

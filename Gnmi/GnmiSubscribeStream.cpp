#include "Gnmi/GnmiSubscribeStream.h"

#include "Gnmi/CrossThreadQueue.h"
#include "Gnmi/GnmiServer.h"

namespace Gnmi {

GnmiSubscribeStream::GnmiSubscribeStream(GnmiServer& server, uint64_t id)
    : server_(server),
      id_(id),
      outbox_(std::make_shared<GnmiSubscribeOutbox>(this, server.options().maxQueue)) {
   StartRead(&request_);
}

// Each reaction keeps the outbox alive for its own duration, whatever gRPC does with the
// stream meanwhile.
void GnmiSubscribeStream::OnReadDone(bool ok) {
   const std::shared_ptr<GnmiSubscribeOutbox> keep = outbox_;
   if (!ok) {
      // The client closed its side (or went). Before any request there is nothing to do;
      // after one the stream goes on until we finish it or the client cancels.
      if (!started_) {
         outbox_->finish(grpc::Status(grpc::StatusCode::INVALID_ARGUMENT,
                                      "the stream ended before a SubscribeRequest"));
      }
      return;
   }
   started_ = true;
   auto request = std::make_shared<gnmi::SubscribeRequest>(std::move(request_));
   request_.Clear();
   GnmiServer* server = &server_;
   const uint64_t id = id_;
   std::shared_ptr<GnmiSubscribeOutbox> outbox = outbox_;
   gnmi::SubscribeRequest* next = &request_;
   const bool posted = server_.queue().post([server, id, outbox, request, next](bool run) {
      if (!run) {
         outbox->finish(grpc::Status(grpc::StatusCode::UNAVAILABLE, "the agent is stopping"));
         return;
      }
      if (server->subscribeRequest(id, outbox, *request)) outbox->readNext(next);
   });
   if (!posted) {
      outbox_->finish(grpc::Status(grpc::StatusCode::UNAVAILABLE, "the agent is stopping"));
   }
}

void GnmiSubscribeStream::OnWriteDone(bool ok) {
   outbox_->onWriteDone(ok);
}

void GnmiSubscribeStream::OnCancel() {
   const std::shared_ptr<GnmiSubscribeOutbox> keep = outbox_;
   keep->finish(grpc::Status(grpc::StatusCode::CANCELLED, "cancelled by the client"));
}

void GnmiSubscribeStream::OnDone() {
   outbox_->onDone();
   if (started_) {
      GnmiServer* server = &server_;
      const uint64_t id = id_;
      server_.queue().post([server, id](bool run) {
         if (run) server->subscribeEnded(id);
      });
   }
   delete this;
}

}  // namespace Gnmi

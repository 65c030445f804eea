// The gNMI server of `lldp-agent --gnmi`: Capabilities, Get, Set and Subscribe over the
// OpenConfig LLDP model (Gnmi::Model), on gRPC's callback API.
//
// gRPC's threads never touch the records: each request is handed to the loop through a
// CrossThreadQueue, answered there from the model, and the answer handed back (a unary
// call's Finish, a subscriber's outbox). Neither side waits for the other. Counters and
// the number of subscribers are published at "daemon/gnmi" (GnmiServerStatus).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "Framework/Vel/ModuleObject.h"
#include "Gnmi/GnmiOptions.h"
#include "Gnmi/GnmiServerStatus.h"

namespace grpc {
class Server;
class Status;
}  // namespace grpc
namespace gnmi {
class SubscribeRequest;
class GetRequest;
class GetResponse;
class SetRequest;
class SetResponse;
}  // namespace gnmi
namespace Vel {
class StateDb;
}

namespace Gnmi {

class CrossThreadQueue;
class GnmiSubscribeOutbox;
class GnmiSubscribeSession;
class Model;

class GnmiServer : public Vel::ModuleObject {
public:
   // Listens at options.address; null with the reason (bad address, port in use, TLS files
   // unreadable). On the loop's thread, as is everything here but what the queue hands over.
   static std::unique_ptr<GnmiServer> start(const Options& options, Vel::StateDb& db,
                                            std::string* error);
   // Ends every call (UNAVAILABLE) and stops gRPC's threads.
   ~GnmiServer() override;
   GnmiServer(const GnmiServer&) = delete;
   GnmiServer& operator=(const GnmiServer&) = delete;

   const Options& options() const { return options_; }
   Model& model() { return *model_; }
   GnmiServerStatus& status() { return *status_; }
   CrossThreadQueue& queue() { return *queue_; }

   // From a subscriber's stream, on the loop: false when the call was ended (read no more).
   bool subscribeRequest(uint64_t id, const std::shared_ptr<GnmiSubscribeOutbox>& outbox,
                         const gnmi::SubscribeRequest& request);
   void subscribeEnded(uint64_t id);

   // Unary calls, on the loop.
   grpc::Status doGet(const gnmi::GetRequest& req, gnmi::GetResponse& resp);
   grpc::Status doSet(const gnmi::SetRequest& req, gnmi::SetResponse& resp);

private:
   class Service;
   GnmiServer(const Options& options, Vel::StateDb& db);

   Options options_;
   std::unique_ptr<Model> model_;
   Vel::Ptr<GnmiServerStatus> status_;
   std::unique_ptr<CrossThreadQueue> queue_;
   std::unique_ptr<Service> service_;
   std::unique_ptr<grpc::Server> server_;
   std::unordered_map<uint64_t, std::unique_ptr<GnmiSubscribeSession>> sessions_;
};

}  // namespace Gnmi

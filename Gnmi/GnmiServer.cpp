#include "Gnmi/GnmiServer.h"

#include <grpcpp/resource_quota.h>
#include <grpcpp/server.h>
#include <grpcpp/server_builder.h>
#include <time.h>

#include <atomic>
#include <chrono>

#include "Framework/Vel/StateDb.h"
#include "Gnmi/CrossThreadQueue.h"
#include "Gnmi/GnmiModel.h"
#include "Gnmi/GnmiProto.h"
#include "Gnmi/GnmiSubscribeSession.h"
#include "Gnmi/GnmiSubscribeStream.h"
#include "Gnmi/GnmiTls.h"
#include "Gnmi/gnmi.grpc.pb.h"

namespace Gnmi {

namespace {

constexpr const char* gnmiVersion = "0.8.0";

int64_t wallNs() {
   timespec ts;
   ::clock_gettime(CLOCK_REALTIME, &ts);
   return int64_t(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

grpc::Status stopping() {
   return grpc::Status(grpc::StatusCode::UNAVAILABLE, "the agent is stopping");
}

grpc::Status toStatus(const Error& e) {
   return grpc::Status(grpc::StatusCode(e.code), e.message);
}

}  // namespace

class GnmiServer::Service final : public gnmi::gNMI::CallbackService {
public:
   explicit Service(GnmiServer& server) : server_(server) {}

   grpc::ServerUnaryReactor* Capabilities(grpc::CallbackServerContext* ctx,
                                          const gnmi::CapabilityRequest*,
                                          gnmi::CapabilityResponse* resp) override {
      return onLoop(ctx, [this, resp] {
         for (const ModelInfo& m : server_.model().supportedModels()) {
            gnmi::ModelData* d = resp->add_supported_models();
            d->set_name(m.name);
            d->set_organization(m.organization);
            d->set_version(m.version);
         }
         resp->add_supported_encodings(gnmi::JSON);
         resp->add_supported_encodings(gnmi::JSON_IETF);
         resp->add_supported_encodings(gnmi::PROTO);
         resp->set_gnmi_version(gnmiVersion);
         return grpc::Status::OK;
      });
   }

   grpc::ServerUnaryReactor* Get(grpc::CallbackServerContext* ctx, const gnmi::GetRequest* req,
                                 gnmi::GetResponse* resp) override {
      return onLoop(ctx, [this, req, resp] { return server_.doGet(*req, *resp); });
   }

   grpc::ServerUnaryReactor* Set(grpc::CallbackServerContext* ctx, const gnmi::SetRequest* req,
                                 gnmi::SetResponse* resp) override {
      auto who = std::make_shared<std::string>();
      const bool allowed = mayWrite(server_.options(), *ctx, who.get());
      return onLoop(ctx, [this, req, resp, allowed, who] {
         server_.status().setRequestsInc();
         if (!allowed) {
            server_.status().setsRefusedInc();
            return grpc::Status(grpc::StatusCode::PERMISSION_DENIED,
                                "Set is not allowed for " + *who +
                                    " (see --gnmi-write-cn and --gnmi-allow-insecure-set)");
         }
         grpc::Status s = server_.doSet(*req, *resp);
         if (!s.ok()) server_.status().setsRefusedInc();
         return s;
      });
   }

   GnmiSubscribeOutbox::Reactor* Subscribe(grpc::CallbackServerContext*) override {
      return new GnmiSubscribeStream(server_, nextId_.fetch_add(1) + 1);
   }

private:
   // Hands `work` to the loop and finishes the call with its status there; when the loop
   // no longer takes work, finishes it at once.
   template <class Work>
   grpc::ServerUnaryReactor* onLoop(grpc::CallbackServerContext* ctx, Work work) {
      grpc::ServerUnaryReactor* reactor = ctx->DefaultReactor();
      GnmiServer* server = &server_;
      const bool posted = server_.queue().post([server, reactor, work](bool run) mutable {
         if (!run) {
            reactor->Finish(stopping());
            return;
         }
         grpc::Status s = work();
         if (!s.ok()) server->status().requestsRefusedInc();
         reactor->Finish(s);
      });
      if (!posted) reactor->Finish(stopping());
      return reactor;
   }

   GnmiServer& server_;
   std::atomic<uint64_t> nextId_{0};
};

GnmiServer::GnmiServer(const Options& options, Vel::StateDb& db)
    : options_(options),
      model_(std::make_unique<Model>(Sources{&db})),
      status_(db.mount<GnmiServerStatus>(GnmiServerStatus::path)),
      queue_(std::make_unique<CrossThreadQueue>()),
      service_(std::make_unique<Service>(*this)) {}

std::unique_ptr<GnmiServer> GnmiServer::start(const Options& options, Vel::StateDb& db,
                                              std::string* error) {
   std::unique_ptr<GnmiServer> s(new GnmiServer(options, db));
   if (!s->queue_->ok(error)) return nullptr;
   auto creds = serverCredentials(options, error);
   if (!creds) return nullptr;
   grpc::ServerBuilder builder;
   int port = 0;
   builder.AddListeningPort(options.address, creds, &port);
   builder.RegisterService(s->service_.get());
   builder.SetMaxReceiveMessageSize(int(options.maxRequestBytes));
   // What gRPC itself may hold for all calls together, so that many connections or
   // requests that never end cannot grow the agent without bound.
   grpc::ResourceQuota quota("gnmi");
   quota.Resize(size_t(256) << 20);
   quota.SetMaxThreads(16);
   builder.SetResourceQuota(quota);
   builder.AddChannelArgument(GRPC_ARG_MAX_CONCURRENT_STREAMS, int(options.maxSubscribers) + 16);
   s->server_ = builder.BuildAndStart();
   if (!s->server_ || port == 0) {
      *error = "--gnmi " + options.address + ": cannot listen there (address in use or not local)";
      return nullptr;
   }
   return s;
}

GnmiServer::~GnmiServer() {
   queue_->close();
   for (auto& [id, session] : sessions_) session->end(stopping());
   sessions_.clear();
   if (server_) {
      server_->Shutdown(std::chrono::system_clock::now() + std::chrono::seconds(1));
      server_->Wait();
   }
}

bool GnmiServer::subscribeRequest(uint64_t id, const std::shared_ptr<GnmiSubscribeOutbox>& outbox,
                                  const gnmi::SubscribeRequest& request) {
   auto it = sessions_.find(id);
   std::optional<grpc::Status> error;
   if (request.has_subscribe()) {
      if (it != sessions_.end()) {
         error = grpc::Status(grpc::StatusCode::INVALID_ARGUMENT,
                              "a second SubscriptionList on one stream");
      } else if (sessions_.size() >= options_.maxSubscribers) {
         status_->subscribersRefusedInc();
         error = grpc::Status(grpc::StatusCode::RESOURCE_EXHAUSTED,
                              "too many subscribers (" + std::to_string(options_.maxSubscribers) +
                                  ", --gnmi-max-subscribers)");
      } else {
         auto session = std::make_unique<GnmiSubscribeSession>(*this, id, outbox);
         error = session->start(request.subscribe());
         if (!error) {
            sessions_.emplace(id, std::move(session));
            status_->subscribersIs(uint32_t(sessions_.size()));
         }
      }
   } else if (request.has_poll()) {
      if (it == sessions_.end()) {
         error =
             grpc::Status(grpc::StatusCode::INVALID_ARGUMENT, "a Poll before the SubscriptionList");
      } else {
         error = it->second->poll();
      }
   } else {
      error = grpc::Status(grpc::StatusCode::INVALID_ARGUMENT,
                           "a SubscribeRequest with neither subscribe nor poll");
   }
   if (error) {
      status_->requestsRefusedInc();
      outbox->finish(*error);
      return false;
   }
   return outbox->finished() ? false : true;
}

void GnmiServer::subscribeEnded(uint64_t id) {
   sessions_.erase(id);
   status_->subscribersIs(uint32_t(sessions_.size()));
}

grpc::Status GnmiServer::doGet(const gnmi::GetRequest& req, gnmi::GetResponse& resp) {
   status_->getRequestsInc();
   if (req.type() != gnmi::GetRequest::ALL) {
      return grpc::Status(grpc::StatusCode::UNIMPLEMENTED,
                          "only Get of type ALL is served (the model's config and state "
                          "containers tell the two apart)");
   }
   const auto enc = req.encoding();
   if (enc != gnmi::JSON && enc != gnmi::JSON_IETF && enc != gnmi::PROTO) {
      return grpc::Status(
          grpc::StatusCode::UNIMPLEMENTED,
          "encoding " + gnmi::Encoding_Name(enc) + " is not served (JSON, JSON_IETF, PROTO)");
   }
   std::string error;
   Path prefix;
   if (req.has_prefix() && !fromProto(req.prefix(), prefix, error)) {
      return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT, "prefix: " + error);
   }
   std::vector<Path> paths;
   for (const gnmi::Path& p : req.path()) {
      Path rel;
      if (!fromProto(p, rel, error)) return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT, error);
      paths.push_back(join(prefix, rel));
   }
   if (paths.empty()) paths.push_back(prefix);
   const int64_t now = wallNs();
   for (const Path& p : paths) {
      if (auto err = model_->check(p)) return toStatus(*err);
   }
   for (const Path& p : paths) {
      std::optional<Error> err;
      if (enc == gnmi::PROTO) {
         gnmi::Notification* n = resp.add_notification();
         n->set_timestamp(now);
         err = model_->leaves(p, [&](const Leaf& l) {
            gnmi::Update* u = n->add_update();
            toProto(l.path, u->mutable_path());
            toProto(l.value, u->mutable_val());
         });
      } else {
         const Encoding e = enc == gnmi::JSON ? Encoding::Json : Encoding::JsonIetf;
         err = model_->json(p, e, [&](const Path& concrete, std::string&& json) {
            gnmi::Notification* n = resp.add_notification();
            n->set_timestamp(now);
            gnmi::Update* u = n->add_update();
            toProto(concrete, u->mutable_path());
            if (e == Encoding::Json) {
               u->mutable_val()->set_json_val(std::move(json));
            } else {
               u->mutable_val()->set_json_ietf_val(std::move(json));
            }
         });
      }
      if (err) {
         resp.Clear();
         return toStatus(*err);
      }
   }
   return grpc::Status::OK;
}

grpc::Status GnmiServer::doSet(const gnmi::SetRequest& req, gnmi::SetResponse& resp) {
   std::string error;
   Path prefix;
   if (req.has_prefix() && !fromProto(req.prefix(), prefix, error)) {
      return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT, "prefix: " + error);
   }
   std::vector<Path> deletes;
   std::vector<Update> replaces, updates;
   for (const gnmi::Path& p : req.delete_()) {
      Path rel;
      if (!fromProto(p, rel, error)) return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT, error);
      deletes.push_back(join(prefix, rel));
   }
   const auto convert = [&](const auto& in, std::vector<Update>& out) {
      for (const gnmi::Update& u : in) {
         Update x;
         Path rel;
         if (!fromProto(u.path(), rel, error)) return false;
         x.path = join(prefix, rel);
         if (!fromProto(u.val(), x, error)) {
            error = toString(x.path) + ": " + error;
            return false;
         }
         out.push_back(std::move(x));
      }
      return true;
   };
   if (!convert(req.replace(), replaces) || !convert(req.update(), updates)) {
      return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT, error);
   }
   if (auto err = model_->set(deletes, replaces, updates)) return toStatus(*err);
   resp.set_timestamp(wallNs());
   if (req.has_prefix()) *resp.mutable_prefix() = req.prefix();
   const auto result = [&](const gnmi::Path& p, gnmi::UpdateResult::Operation op) {
      gnmi::UpdateResult* r = resp.add_response();
      *r->mutable_path() = p;
      r->set_op(op);
   };
   for (const gnmi::Path& p : req.delete_()) result(p, gnmi::UpdateResult::DELETE);
   for (const gnmi::Update& u : req.replace()) result(u.path(), gnmi::UpdateResult::REPLACE);
   for (const gnmi::Update& u : req.update()) result(u.path(), gnmi::UpdateResult::UPDATE);
   return grpc::Status::OK;
}

}  // namespace Gnmi

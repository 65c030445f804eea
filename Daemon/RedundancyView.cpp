#include "Daemon/RedundancyView.h"

#include "Framework/Vel/EventLoop.h"

namespace Cli {

namespace {

// The status of the cell this agent mirrors (or, once it took over, mirrored).
Lldp::Status::Ptr peerStatus(const Lldp::RedundancyStatus& status, const Vel::Dir* dir) {
   if (!dir || !status.peerCellId()) return nullptr;
   return dir->entryAs<Lldp::Status>(Lldp::lldpStatusDirName(status.peerCellId()));
}

}  // namespace

Vel::Json redundancyView(const Lldp::RedundancyStatus& status, const Vel::Dir* lldpStatusDir,
                         const ViewTime& time) {
   Vel::Json j = Vel::toJson(status);
   size_t ports = 0, neighbors = 0;
   Vel::Json counters = nullptr;
   if (auto peer = peerStatus(status, lldpStatusDir)) {
      ports = peer->portStatus().size();
      for (const auto& [intf, p] : peer->portStatus()) neighbors += p->remoteSystem().size();
      counters = Vel::toJson(static_cast<const Lldp::StatusBase&>(*peer));
   }
   j["mirroredStatus"] = std::move(counters);
   j["mirroredPorts"] = ports;
   j["mirroredNeighbors"] = neighbors;
   j["lastSwitchoverTimestamp"] = time.timestamp(status.lastSwitchoverTime());
   j["currentTime"] = time.now;
   return j;
}

View mirroredNeighborsView(const Lldp::RedundancyStatus& status, const Vel::Dir* lldpStatusDir,
                           bool detail, const std::string& intf, const ViewTime& time) {
   auto peer = peerStatus(status, lldpStatusDir);
   if (!peer) return View{nullptr, "no mirrored status: this agent mirrors no active agent"};
   // The view reads ports through the published shape; the copy's ports are shared, not
   // copied.
   auto shown = Vel::make<Lldp::AllStatus>();
   for (const auto& [i, p] : peer->portStatus()) shown->portStatusIs(i, p);
   return neighborsView(*shown, detail, intf, time);
}

void serveRedundancyView(Daemon::ControlSocket& socket, Vel::StateDb& db) {
   using Daemon::ControlSocket;
   // Until an active agent serves its mirror (Daemon/MirrorService.h replaces this), a
   // standby asking for it hears why not: above all, that a standby mirrors no standby.
   socket.opIs("mirror", [&db](const Vel::Json&) {
      auto status = db.entityAs<Lldp::RedundancyStatus>(Lldp::redundancyStatusPath);
      if (status && status->role() == Lldp::RedundancyRoleNames::roleStandby) {
         return ControlSocket::errorReply(
             "mirror: this agent is a standby and cannot be mirrored; give --peer-socket the "
             "active agent's socket");
      }
      return ControlSocket::errorReply("mirror: this agent does not serve its mirror yet");
   });
   socket.opIs(
       "show-redundancy",
       [&db](const Vel::Json& req) {
          auto status = db.entityAs<Lldp::RedundancyStatus>(Lldp::redundancyStatusPath);
          if (!status) return ControlSocket::errorReply("the agent has not started yet");
          auto dir = db.entityAs<Vel::Dir>(Lldp::lldpStatusDirPath);
          const ViewTime now(Vel::EventLoop::instance().now());
          auto flag = [&req](const char* name, bool* out) {
             auto it = req.find(name);
             if (it == req.end() || it->is_null()) return true;
             if (!it->is_boolean()) return false;
             *out = it->get<bool>();
             return true;
          };
          bool neighbors = false, detail = false;
          std::string intf;
          if (!flag("neighbors", &neighbors) || !flag("detail", &detail) ||
              !Daemon::stringArg(req, "interface", &intf, "")) {
             return ControlSocket::errorReply(
                 "show-redundancy: \"neighbors\" and \"detail\" must be true or false, "
                 "\"interface\" a string");
          }
          if (!neighbors) return ControlSocket::okReply(redundancyView(*status, dir.ptr(), now));
          View v = mirroredNeighborsView(*status, dir.ptr(), detail, intf, now);
          if (!v.ok()) return ControlSocket::errorReply(v.error);
          return ControlSocket::okReply(std::move(v.json));
       },
       ControlSocket::Access::read);
}

}  // namespace Cli

#include "Daemon/CliService.h"

#include <algorithm>

#include "Daemon/CliViews.h"
#include "Daemon/NeighborWatch.h"
#include "Daemon/PowerView.h"
#include "Daemon/RedundancyView.h"
#include "Framework/Vel/EventLoop.h"
#include "Records/LldpConfig.h"
#include "Records/LldpLocalSystem.h"
#include "Records/LldpStatus.h"

namespace Cli {

namespace {

using Daemon::ControlSocket;
using Daemon::stringArg;

const char* const allStatusPath = "l2discovery/lldp/status/all";

}  // namespace

CliService::CliService(ControlSocket& socket, Vel::StateDb& db) : db_(db) {
   using Access = ControlSocket::Access;
   socket.opIs(
       "show", [this](const Vel::Json& req) { return show(req); }, Access::read);
   socket.opIs(
       "clear-neighbors",
       [this](const Vel::Json& req, const Vel::Ptr<Daemon::ControlConnection>& c) {
          return clearNeighbors(req, c->peer());
       },
       Access::write);
   socket.opIs(
       "watch",
       [this](const Vel::Json&, const Vel::Ptr<Daemon::ControlConnection>& c) { return watch(c); },
       Access::read);
   serveRedundancyView(socket, db);
}

CliService::~CliService() = default;

Vel::Json CliService::show(const Vel::Json& req) const {
   std::string view, intf;
   if (!stringArg(req, "view", &view, "") || !stringArg(req, "interface", &intf, "")) {
      return ControlSocket::errorReply("show: \"view\" and \"interface\" must be strings");
   }
   auto detail = req.find("detail");
   if (detail != req.end() && !detail->is_boolean()) {
      return ControlSocket::errorReply("show: \"detail\" must be true or false");
   }
   const bool wantDetail = detail != req.end() && detail->get<bool>();
   const Vel::Seconds now = Vel::EventLoop::instance().now();
   auto status = db_.entityAs<Lldp::AllStatus>(allStatusPath);
   if (!status) return ControlSocket::errorReply("the agent has not published its status yet");

   View v;
   if (view == "neighbors") {
      v = neighborsView(*status, wantDetail, intf, now);
   } else if (view == "statistics") {
      auto remTables = db_.entityAs<Lldp::RemTablesStatus>("l2discovery/lldp/remTablesStatus");
      auto limits = db_.entityAs<Daemon::ClientLimits>(Daemon::ClientLimits::path);
      v = statisticsView(*status, remTables.ptr(), intf, now, limits.ptr());
   } else if (view == "local") {
      auto local = db_.entityAs<Lldp::LocalSystem>("l2discovery/lldp/localSystem");
      auto config = db_.entityAs<Lldp::Config>("l2discovery/lldp/config");
      if (!local || !config) {
         return ControlSocket::errorReply("the agent has not published its local system yet");
      }
      auto interfaces = db_.entityAs<Interface::AllIntfStatusDir>("interface/status/all");
      auto externalTlvs = db_.entityAs<Vel::Dir>("l2discovery/lldp/externalTlvs");
      v = localView(*local, *config, *status, intf, now, interfaces.ptr(), externalTlvs.ptr());
   } else if (view == "power") {
      auto local = db_.entityAs<Lldp::LocalSystem>("l2discovery/lldp/localSystem");
      auto config = db_.entityAs<Lldp::Config>("l2discovery/lldp/config");
      auto lldpStatus = db_.entityAs<Lldp::Status>("l2discovery/lldp/status/local");
      if (!local || !config || !lldpStatus) {
         return ControlSocket::errorReply("the agent has not published its local system yet");
      }
      auto agents = db_.entityAs<Vel::Dir>("environment/power/status/poePort");
      v = powerView(*local, *config, *lldpStatus, agents.ptr(), intf, now);
   } else {
      return ControlSocket::errorReply("show: unknown view '" + view +
                                       "' (neighbors, statistics, local or power)");
   }
   if (!v.ok()) return ControlSocket::errorReply(v.error);
   return ControlSocket::okReply(std::move(v.json));
}

Vel::Json CliService::clearNeighbors(const Vel::Json& req, const Daemon::Peer& peer) {
   std::string claimed, terminal;
   if (!stringArg(req, "user", &claimed, "") ||
       !stringArg(req, "terminal", &terminal, "control socket")) {
      return ControlSocket::errorReply(
          "clear-neighbors: \"user\" and \"terminal\" must be strings");
   }
   // Who asked is who the kernel says is connected; what the client says of itself (the
   // user behind sudo, say) is kept beside it, as a detail that nothing vouches for.
   std::string user = peer.user;
   if (!claimed.empty() && claimed != peer.user) user += " (client says " + claimed + ")";
   if (user.size() > Lldp::BoundedString255::maxBytes)
      user.resize(Lldp::BoundedString255::maxBytes);
   if (terminal.size() > Lldp::BoundedString255::maxBytes) {
      terminal.resize(Lldp::BoundedString255::maxBytes);
   }
   size_t count = 0;
   if (auto status = db_.entityAs<Lldp::AllStatus>(allStatusPath)) {
      for (const auto& [intf, port] : status->portStatus()) {
         if (port) count += port->remoteSystem().size();
      }
   }
   auto request = db_.mount<Lldp::RemTablesCliConfig>("l2discovery/lldp/remTablesCliConfig");
   request->clearRequestedByIs(Lldp::BoundedString255(user));
   request->clearRequestedOnIs(Lldp::BoundedString255(terminal));
   // Strictly later than any earlier request, so that this one is served.
   request->clearRequestTimeIs(std::max(Vel::EventLoop::instance().now(),
                                        std::nextafter(request->clearRequestTime(), 1e300)));
   return ControlSocket::okReply({{"remoteSystemsCleared", count}});
}

Vel::Json CliService::watch(const Vel::Ptr<Daemon::ControlConnection>& connection) {
   if (!watch_.started()) {
      auto status = db_.entityAs<Lldp::AllStatus>(allStatusPath);
      if (!status) return ControlSocket::errorReply("the agent has not published its status yet");
      watch_.start(
          std::make_unique<NeighborWatch>(status, [this](const Vel::Json& e) { watch_.send(e); }));
   }
   watch_.add(connection);
   return ControlSocket::okReply();
}

}  // namespace Cli

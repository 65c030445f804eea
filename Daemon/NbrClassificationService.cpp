#include "Daemon/NbrClassificationService.h"

#include <algorithm>
#include <cmath>

#include "Daemon/NbrClassificationWatch.h"
#include "Framework/Vel/EventLoop.h"
#include "Records/LldpStatus.h"

namespace Daemon {

namespace {

const char* const statusPath = "identity/nbrClassification/status";

Lldp::BoundedString255 bounded(std::string s) {
   if (s.size() > Lldp::BoundedString255::maxBytes) s.resize(Lldp::BoundedString255::maxBytes);
   return Lldp::BoundedString255(s);
}

}  // namespace

NbrClassificationService::NbrClassificationService(ControlSocket& socket, Vel::StateDb& db,
                                                   Vel::Ptr<Lldp::CliConfig> config)
    : db_(db),
      config_(std::move(config)),
      classConfig_(db.mount<Identity::NbrClassification::CliConfig>(
          "identity/nbrClassification/cliConfig")) {
   socket.opIs(
       "show-classification", [this](const Vel::Json& req) { return show(req); },
       ControlSocket::Access::read);
   socket.opIs(
       "clear-classification",
       [this](const Vel::Json& req, const Vel::Ptr<ControlConnection>& c) {
          return clear(req, c->peer());
       },
       ControlSocket::Access::write);
   socket.opIs(
       "watch-classification",
       [this](const Vel::Json&, const Vel::Ptr<ControlConnection>& c) { return watch(c); },
       ControlSocket::Access::read);
   notifierIs(config_);
   // What an earlier configuration left goes; then the configuration in force.
   classConfig_->globalClassDelAll();
   classConfig_->intfClassDelAll();
   for (const auto& [mac, c] : config_->nbrClassification()) nbrClassificationChanged(mac);
   for (const auto& [intf, p] : config_->cliPortConfig()) cliPortConfigChanged(intf);
}

NbrClassificationService::~NbrClassificationService() {
   notifierIs(nullptr);
   ports_.clear();
}

Vel::Json NbrClassificationService::watch(const Vel::Ptr<ControlConnection>& connection) {
   if (!watch_.started()) {
      auto status = db_.entityAs<Identity::NbrClassification::Status>(statusPath);
      if (!status) return ControlSocket::errorReply("the agent has not published its status yet");
      watch_.start(std::make_unique<Cli::NbrClassificationWatch>(
          status, [this](const Vel::Json& e) { watch_.send(e); }));
   }
   watch_.add(connection);
   return ControlSocket::okReply();
}

void NbrClassificationService::nbrClassificationChanged(const Wire::EthAddr& mac) {
   if (const auto* c = config_->nbrClassification(mac)) {
      classConfig_->globalClassIs(mac, *c);
   } else {
      classConfig_->globalClassDel(mac);
   }
}

void NbrClassificationService::cliPortConfigChanged(const Wire::IntfId& intf) {
   auto port = config_->cliPortConfig(intf);
   // The port's entries as they are now: gone with the port, or as its lines say.
   std::vector<Wire::EthAddr> macs;
   for (const auto& [key, c] : classConfig_->intfClass()) {
      if (key.intfId() == intf) macs.push_back(key.ethAddr());
   }
   if (port) {
      for (const auto& [mac, c] : port->nbrClassification()) macs.push_back(mac);
      auto& w = ports_[intf];
      if (!w) {
         w = std::make_unique<PortWatch>();
         w->service = this;
         w->intf = intf;
      }
      w->notifierIs(port);
   } else {
      ports_.erase(intf);
   }
   for (const auto& mac : macs) syncPort(intf, mac);
}

void NbrClassificationService::syncPort(const Wire::IntfId& intf, const Wire::EthAddr& mac) {
   const EntryKey key({.intfId = intf, .ethAddr = mac});
   auto port = config_->cliPortConfig(intf);
   const auto* c = port ? port->nbrClassification(mac) : nullptr;
   if (c) {
      classConfig_->intfClassIs(key, *c);
   } else {
      classConfig_->intfClassDel(key);
   }
}

bool NbrClassificationService::knownInterface(const Wire::IntfId& intf) const {
   auto status = db_.entityAs<Lldp::AllStatus>("l2discovery/lldp/status/all");
   return status && status->portStatus(intf);
}

Vel::Json NbrClassificationService::show(const Vel::Json& req) const {
   std::string name;
   if (!stringArg(req, "interface", &name, "")) {
      return ControlSocket::errorReply("show-classification: \"interface\" must be a string");
   }
   const Wire::IntfId intf(name);
   if (!name.empty() && !knownInterface(intf)) {
      return ControlSocket::errorReply("unknown interface '" + name + "'");
   }
   auto status = db_.entityAs<Identity::NbrClassification::Status>(statusPath);
   if (!status) return ControlSocket::errorReply("the agent has not published its status yet");
   auto bypass = db_.entityAs<Identity::NbrClassification::BypassStatus>(
       "identity/nbrClassification/bypassStatus");
   const Vel::Seconds now = Vel::EventLoop::instance().now();
   Vel::Json list = Vel::Json::array();
   for (const auto& [key, e] : status->entry()) {
      if (!name.empty() && key.intfId() != intf) continue;
      Vel::Json j = Vel::toJson(*e);
      j["age"] = std::max(0.0, std::floor(now - e->since()));
      j["bypass"] = bypass && bypass->fdbEntry(key) != nullptr;
      list.push_back(std::move(j));
   }
   Vel::Json data = {{"classifications", std::move(list)},
                     {"fdbWrites", bypass ? bypass->fdbWrites() : 0},
                     {"fdbWritesRefused", bypass ? bypass->fdbWritesRefused() : 0}};
   return ControlSocket::okReply(std::move(data));
}

Vel::Json NbrClassificationService::clear(const Vel::Json& req, const Peer& peer) {
   std::string mac, name, claimed, terminal;
   if (!stringArg(req, "mac", &mac, "") || !stringArg(req, "interface", &name, "") ||
       !stringArg(req, "user", &claimed, "") ||
       !stringArg(req, "terminal", &terminal, "control socket")) {
      return ControlSocket::errorReply(
          "clear-classification: \"mac\", \"interface\", \"user\" and \"terminal\" must be "
          "strings");
   }
   Wire::EthAddr addr;
   if (!mac.empty()) {
      auto parsed = Wire::EthAddr::parse(mac);
      if (!parsed || parsed->isZero() || parsed->isMulticast()) {
         return ControlSocket::errorReply("clear classification: '" + mac +
                                          "' is not a station's MAC address");
      }
      addr = *parsed;
   }
   const Wire::IntfId intf(name);
   if (!name.empty() && !knownInterface(intf)) {
      return ControlSocket::errorReply("clear classification: unknown interface '" + name + "'");
   }
   size_t count = 0;
   if (auto status = db_.entityAs<Identity::NbrClassification::Status>(statusPath)) {
      for (const auto& [key, e] : status->entry()) {
         if (e->source() != Identity::NbrClassification::NbrClassSource::lldp) continue;
         if ((!addr.isZero() && key.ethAddr() != addr) || (!name.empty() && key.intfId() != intf)) {
            continue;
         }
         ++count;
      }
   }
   // Who asked is who the kernel says is connected, as for the neighbour tables.
   std::string user = peer.user;
   if (!claimed.empty() && claimed != peer.user) user += " (client says " + claimed + ")";
   classConfig_->clearRequestEthAddrIs(addr);
   classConfig_->clearRequestIntfIdIs(intf);
   classConfig_->clearRequestedByIs(bounded(user));
   classConfig_->clearRequestedOnIs(bounded(terminal));
   classConfig_->clearRequestTimeIs(std::max(
       Vel::EventLoop::instance().now(), std::nextafter(classConfig_->clearRequestTime(), 1e300)));
   return ControlSocket::okReply({{"classificationsCleared", count}});
}

}  // namespace Daemon

#include "Daemon/ExternalTlvService.h"

#include <algorithm>

namespace Daemon {

ExternalTlvService::ExternalTlvService(ControlSocket& socket, Vel::StateDb& db,
                                       Vel::Ptr<Lldp::CliConfig> config)
    : config_(std::move(config)),
      limits_(db.mount<ClientLimits>(ClientLimits::path)),
      dir_(db.mount<Vel::Dir>("l2discovery/lldp/externalTlvs")),
      dot1x_(db.mount<Identity::Dot1x::Status>("identity/dot1x/status")),
      macsec_(db.mount<Identity::Macsec::Status>("identity/macsec/status")) {
   socket.opIs("external-tlvs", [this](const Vel::Json& req) {
      auto c = req.find("client");
      auto t = req.find("tlvs");
      if (c == req.end() || !c->is_string()) {
         return ControlSocket::errorReply("external-tlvs: \"client\" must be a string");
      }
      if (t == req.end()) {
         return ControlSocket::errorReply(
             "external-tlvs: \"tlvs\" must be given (an object of interfaces, or null)");
      }
      const std::string client = c->get<std::string>();
      if (client == configClient) {
         return ControlSocket::errorReply(
             "external-tlvs: the client \"config\" is the configuration's own");
      }
      std::string error = clientIs(client, *t);
      return error.empty() ? ControlSocket::okReply()
                           : ControlSocket::errorReply("external-tlvs: " + error);
   });
   notifierIs(config_);
   dot1xLldpBypassChanged();
   for (const auto& [intf, p] : config_->cliPortConfig()) cliPortConfigChanged(intf);
}

ExternalTlvService::~ExternalTlvService() {
   notifierIs(nullptr);
   ports_.clear();
}

std::string ExternalTlvService::clientIs(const std::string& client, const Vel::Json& tlvs) {
   if (client.empty() || client.size() > maxClientName) {
      return "a client name is 1 to " + std::to_string(maxClientName) + " bytes";
   }
   auto cost = cost_.find(client);
   const size_t before = cost == cost_.end() ? 0 : cost->second;
   if (tlvs.is_null()) {
      dir_->entryDel(client);
      if (cost != cost_.end()) cost_.erase(cost);
      totalCost_ -= before;
      return {};
   }
   Lldp::ExternalTlvSet set;
   if (std::string error = Lldp::parseExternalTlvSet(tlvs, &set); !error.empty()) return error;
   size_t count = 0;
   for (const auto& [intf, list] : set) count += list.size();
   const size_t perClient = limits_->maxExternalTlvsPerClient();
   const size_t total = limits_->maxExternalTlvs();
   const size_t after = totalCost_ - before + std::max<size_t>(count, 1);
   if (count > perClient || after > total) {
      limits_->externalTlvSetsRefusedInc();
      return count > perClient ? std::to_string(count) + " TLVs, more than the " +
                                     std::to_string(perClient) + " a client may publish"
                               : "all clients together may publish " + std::to_string(total) +
                                     " TLVs (each client counts at least one); " +
                                     std::to_string(totalCost_ - before) + " are taken by others";
   }
   cost_[client] = std::max<size_t>(count, 1);
   totalCost_ = after;
   auto entry = dir_->entryAs<Lldp::ExternalTlvConfig>(client);
   if (entry) {
      Lldp::externalTlvConfigIs(*entry, set);
   } else {
      // Filled before it is published, so the agent reads the whole set at once.
      entry = Vel::make<Lldp::ExternalTlvConfig>(client);
      Lldp::externalTlvConfigIs(*entry, set);
      dir_->entryIs(client, entry);
   }
   return {};
}

void ExternalTlvService::cliPortConfigChanged(const Wire::IntfId& intf) {
   auto port = config_->cliPortConfig(intf);
   if (port) {
      if (!ports_.count(intf)) ports_[intf] = Vel::make<PortWatch>(this, port);
   } else {
      ports_.erase(intf);
   }
   syncConfigTlvs(intf);
   syncMacsecBypass(intf);
}

void ExternalTlvService::dot1xLldpBypassChanged() {
   dot1x_->lldpBypassIs(config_->dot1xLldpBypass());
}

void ExternalTlvService::syncConfigTlvs(const Wire::IntfId& intf) {
   auto port = config_->cliPortConfig(intf);
   auto entry = dir_->entryAs<Lldp::ExternalTlvConfig>(configClient);
   if (!port || port->externalTlv().empty()) {
      if (!entry) return;
      entry->portConfigDel(intf);
      if (entry->portConfig().empty()) dir_->entryDel(configClient);
      return;
   }
   const bool publish = !entry;
   if (publish) entry = Vel::make<Lldp::ExternalTlvConfig>(configClient);
   auto list = entry->portConfigIs(intf);
   std::vector<Lldp::UnknownOrgDefTlv::Key> gone;
   for (const auto& [key, tlv] : list->tlv()) {
      if (!port->externalTlv(key)) gone.push_back(key);
   }
   for (const auto& key : gone) list->tlvDel(key);
   for (const auto& [key, tlv] : port->externalTlv()) list->tlvIs(tlv);
   entry->portConfigTouched(intf);
   if (publish) dir_->entryIs(configClient, entry);
}

void ExternalTlvService::syncMacsecBypass(const Wire::IntfId& intf) {
   auto port = config_->cliPortConfig(intf);
   if (port && port->macsecLldpBypass()) {
      macsec_->bypassLldpIs(intf, true);
   } else {
      macsec_->bypassLldpDel(intf);
   }
}

ExternalTlvService::PortWatch::PortWatch(ExternalTlvService* service,
                                         Lldp::CliPortConfig::PtrConst port)
    : service_(service), port_(std::move(port)) {
   notifierIs(port_);
}

void ExternalTlvService::PortWatch::externalTlvChanged(const Lldp::UnknownOrgDefTlv::Key&) {
   service_->syncConfigTlvs(port_->intfId());
}

void ExternalTlvService::PortWatch::macsecLldpBypassChanged() {
   service_->syncMacsecBypass(port_->intfId());
}

}  // namespace Daemon

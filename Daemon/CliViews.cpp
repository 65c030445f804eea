#include "Daemon/CliViews.h"

#include <map>

namespace Cli {

namespace {

// The attributes a record exports, minus the ones named (collections shown elsewhere).
template <class Record>
Vel::Json attrsExcept(const Record& r, std::initializer_list<std::string_view> skip) {
   Vel::Json j = Vel::Json::object();
   r.visitAttrs([&](const char* name, const auto& value) {
      for (std::string_view s : skip) {
         if (s == name) return;
      }
      j[name] = Vel::toJson(value);
   });
   return j;
}

std::string noSuchInterface(const std::string& intf) {
   return std::string("interface ").append(intf).append(": no LLDP on this interface");
}

// A port's record in either kind of per-port collection.
template <class E>
const E* findPort(const std::map<Wire::IntfId, Vel::Ptr<E>>& ports, const Wire::IntfId& id) {
   auto it = ports.find(id);
   return it == ports.end() ? nullptr : it->second.ptr();
}
template <class E>
const E* findPort(const Vel::FlatMap<Wire::IntfId, Vel::Ptr<const E>>& ports,
                  const Wire::IntfId& id) {
   const Vel::Ptr<const E>* p = ports.find(id);
   return p ? p->ptr() : nullptr;
}

// Runs `fill(name, record)` for each port (or only `intf`) into {"interfaces": {...}}.
template <class Map, class Fill>
View perInterface(const Map& ports, const std::string& intf, Vel::Seconds now, Fill fill) {
   View v;
   v.json = Vel::Json::object();
   v.json["currentTime"] = now;
   Vel::Json& interfaces = v.json["interfaces"] = Vel::Json::object();
   if (!intf.empty()) {
      const auto* port = findPort(ports, Wire::IntfId(intf));
      if (!port) {
         v.error = noSuchInterface(intf);
         return v;
      }
      fill(interfaces[intf], *port);
      return v;
   }
   for (const auto& [id, port] : ports) {
      if (port) fill(interfaces[std::string(id.name())], *port);
   }
   return v;
}

}  // namespace

Vel::Json remoteSystemJson(const Lldp::RemoteSystem& r, bool detail) {
   Vel::Json j;
   if (detail) {
      j = attrsExcept(r, {"msap"});
   } else {
      j = Vel::Json::object();
      j["index"] = r.index();
      j["ethAddr"] = r.ethAddr().stringValue();
      j["sysName"] = Vel::toJson(r.sysName());
      j["ttl"] = r.ttl();
      j["creationTime"] = r.creationTime();
      j["lastRefreshTime"] = r.lastRefreshTime();
      j["lastChangeTime"] = r.lastChangeTime();
      j["expiryTime"] = r.expiryTime();
   }
   j["chassisIdentifier"] = r.msap().chassisIdentifier().toJson();
   j["portIdentifier"] = r.msap().portIdentifier().toJson();
   return j;
}

View neighborsView(const Lldp::AllStatus& status, bool detail, const std::string& intf,
                   Vel::Seconds now) {
   return perInterface(status.portStatus(), intf, now,
                       [&](Vel::Json& out, const Lldp::PortStatus& port) {
                          Vel::Json& list = out["remoteSystem"] = Vel::Json::array();
                          for (const auto& [index, remote] : port.remoteSystem()) {
                             list.push_back(remoteSystemJson(*remote, detail));
                          }
                       });
}

View statisticsView(const Lldp::AllStatus& status, const Lldp::RemTablesStatus* remTables,
                    const std::string& intf, Vel::Seconds now) {
   View v = perInterface(
       status.portStatus(), intf, now, [](Vel::Json& out, const Lldp::PortStatus& port) {
          out = attrsExcept(port, {"intfId", "remoteSystem", "vlanName", "sentVlanName",
                                   "vlanNamesChanged", "vlanNamesIncomplete"});
       });
   if (!v.ok()) return v;
   // The global counters: everything the status has besides its ports.
   Vel::Json global = attrsExcept(status, {"portStatus", "mgmtAddrVrf"});
   v.json.update(global);
   if (remTables) v.json["remTablesLastClearTime"] = remTables->remTablesLastClearTime();
   return v;
}

namespace {

// The management addresses as the transmit builder sends them: the IPv6 address, then
// the priority map's addresses up to the configured number.
Vel::Json advertisedManagementAddresses(const Lldp::LocalSystem& local, const Lldp::Config& config,
                                        const Interface::AllIntfStatusDir* interfaces) {
   std::map<uint32_t, std::string> names;
   if (interfaces) {
      for (const auto& [id, s] : interfaces->intfStatus()) names[s->ifIndex()] = id.stringValue();
   }
   Vel::Json list = Vel::Json::array();
   auto add = [&](const Lldp::ManagementAddress& a) {
      Vel::Json j = a.key().toJson();
      j["ifNumber"] = a.ifNumber();
      if (a.ifNumberingSubtype() == Lldp::ifNumberingIfIndex) {
         auto it = names.find(a.ifNumber());
         j["interface"] = it == names.end() ? std::string() : it->second;
      } else {
         j["interface"] = "";
      }
      list.push_back(std::move(j));
   };
   if (!(local.ip6ManagementAddress() == Lldp::ManagementAddress())) {
      add(local.ip6ManagementAddress());
   }
   uint32_t sent = 0;
   for (const auto& [prio, key] : local.managementAddressPrio()) {
      if (sent++ >= config.maxTxMgmtAddrs()) break;
      const Lldp::ManagementAddress* a = local.managementAddress(key);
      add(a ? *a : Lldp::ManagementAddress({.key = key}));
   }
   return list;
}

// The TLVs other programs and the operator give a port, each with the client that gave
// it and whether it is the one sent (two clients may give the same OUI and subtype; one
// of them is).
Vel::Json externalTlvs(const Lldp::LocalPort& port, const Vel::Dir* clients) {
   Vel::Json list = Vel::Json::array();
   if (!clients) return list;
   for (const auto& [client, entity] : clients->entry()) {
      auto config = clients->entryAs<Lldp::ExternalTlvConfig>(client);
      auto tlvs = config ? config->portConfig(port.intfId()) : nullptr;
      if (!tlvs) continue;
      for (const auto& [key, tlv] : tlvs->tlv()) {
         const Lldp::UnknownOrgDefTlv* sent = port.unknownOrgDefTlv(key);
         list.push_back({{"client", client},
                         {"oui", key.oui().stringValue()},
                         {"subtype", key.subtype()},
                         {"info", Lldp::hexText(tlv.value().value())},
                         {"advertised", sent && sent->value() == tlv.value()}});
      }
   }
   return list;
}

}  // namespace

View localView(const Lldp::LocalSystem& local, const Lldp::Config& config,
               const Lldp::AllStatus& status, const std::string& intf, Vel::Seconds now,
               const Interface::AllIntfStatusDir* interfaces, const Vel::Dir* externalTlvDir) {
   View v =
       perInterface(local.localPort(), intf, now, [&](Vel::Json& out, const Lldp::LocalPort& port) {
          out = attrsExcept(port, {"intfId", "localPortPoeInfo"});
          if (auto pc = config.portConfig(port.intfId())) {
             out["adminStatus"] = pc->adminStatus();
             out["networkPolicyConfig"] = Vel::toJson(pc->networkPolicyConfig());
          }
          auto ps = status.portStatus(port.intfId());
          out["vlanName"] = ps && *ps ? Vel::toJson((*ps)->vlanName()) : Vel::Json::array();
          out["externalTlv"] = externalTlvs(port, externalTlvDir);
       });
   if (!v.ok()) return v;
   Vel::Json global = attrsExcept(local, {"localPort", "managementAddressPrio"});
   v.json.update(global);
   v.json["messageTxInterval"] = config.messageTxInterval();
   v.json["messageTxHoldTime"] = config.messageTxHoldTime();
   v.json["advertisedManagementAddress"] = advertisedManagementAddresses(local, config, interfaces);
   return v;
}

}  // namespace Cli

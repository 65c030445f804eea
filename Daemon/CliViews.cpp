#include "Daemon/CliViews.h"

#include <chrono>
#include <cmath>
#include <map>

#include "Records/LldpNames.h"

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
template <class E, class KeyOf>
const E* findPort(const Vel::EntitySet<Wire::IntfId, E, KeyOf>& ports, const Wire::IntfId& id) {
   return ports.member(id).ptr();
}
template <class E>
const E* findPort(const Vel::FlatMap<Wire::IntfId, Vel::Ptr<const E>>& ports,
                  const Wire::IntfId& id) {
   const Vel::Ptr<const E>* p = ports.find(id);
   return p ? p->ptr() : nullptr;
}

// Beside each of the named agent-clock times of `j`, its wall-clock timestamp.
void addTimestamps(Vel::Json& j, const ViewTime& time,
                   std::initializer_list<std::string_view> keys) {
   for (std::string_view key : keys) {
      auto it = j.find(key);
      if (it == j.end() || !it->is_number()) continue;
      std::string name(key.substr(0, key.size() - 4));  // "...Time"
      j[name + "Timestamp"] = time.timestamp(it->get<double>());
   }
}

// `value` with its name beside it: j[key] is kept, j[key + "Name"] added.
void addName(Vel::Json& j, const std::string& key, const char* name) {
   auto it = j.find(key);
   if (it == j.end() || !it->is_number_unsigned()) return;
   j[key + "Name"] = Lldp::nameOr(name, it->get<unsigned>());
}

// Network policies (received, configured or advertised) with their application's name.
void addPolicyNames(Vel::Json& policies) {
   for (auto& p : policies) {
      if (p.is_object() && p.contains("appType")) {
         addName(p, "appType", Lldp::medApplicationName(p["appType"].get<unsigned>()));
      }
   }
}

// The names of a neighbour's numbers, beside them.
void addRemoteNames(Vel::Json& j, const Lldp::RemoteSystem& r) {
   if (auto it = j.find("macPhyConfigStatusInfo"); it != j.end()) {
      const Lldp::MacPhyConfigStatusInfo& m = r.macPhyConfigStatusInfo();
      addName(*it, "operationalMauType", Lldp::mauTypeName(m.operationalMauType()));
      (*it)["advertisedModes"] = Lldp::autonegModeNames(m.pmdAutonegAdvertisedCapability());
   }
   if (j.contains("powerViaMdiInfo")) j["powerViaMdiInfo"] = powerViaMdiJson(r.powerViaMdiInfo());
   if (auto it = j.find("medCapabilitiesInfo"); it != j.end()) {
      addName(*it, "deviceType", Lldp::medDeviceTypeName(r.medCapabilitiesInfo().deviceType()));
   }
   if (auto it = j.find("networkPolicyTlv"); it != j.end()) addPolicyNames(*it);
   if (auto it = j.find("locationId"); it != j.end() && r.locationId().format() != 0) {
      addName(*it, "format", Lldp::locationFormatName(r.locationId().format()));
      auto civic = it->find("civicAddress");
      auto elements = civic == it->end() ? civic : civic->find("caElements");
      if (civic != it->end() && elements != civic->end()) {
         for (auto& e : *elements) {
            if (e.contains("caType")) {
               addName(e, "caType", Lldp::civicCaTypeName(e["caType"].get<unsigned>()));
            }
         }
      }
   }
}

// Runs `fill(name, record)` for each port (or only `intf`) into {"interfaces": {...}}.
template <class Map, class Fill>
View perInterface(const Map& ports, const std::string& intf, const ViewTime& time, Fill fill) {
   View v;
   v.json = Vel::Json::object();
   v.json["currentTime"] = time.now;
   v.json["currentTimestamp"] = rfc3339(time.wallNow);
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

ViewTime::ViewTime(Vel::Seconds agentNow)
    : now(agentNow),
      wallNow(std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
                  .count()) {}

Vel::Json ViewTime::timestamp(Vel::Seconds t) const {
   if (t <= 0) return nullptr;
   return rfc3339(wallNow - (now - t));
}

std::string rfc3339(double unixSeconds) {
   // Whole milliseconds, rounded, so that 59.9996 s reads as the next second. Made by
   // hand: a view may hold hundreds of thousands of times, and gmtime_r with snprintf
   // costs more than the rest of a neighbour's view.
   const long long ms = std::llround(unixSeconds * 1000.0);
   constexpr long long msPerDay = 86400000;
   long long days = ms / msPerDay, msOfDay = ms % msPerDay;
   if (msOfDay < 0) {
      msOfDay += msPerDay;
      --days;
   }
   // The proleptic Gregorian date of a day count since 1970-01-01, by 400-year eras of
   // 146097 days, each counted from 1 March so that the leap day comes last.
   const long long z = days + 719468;
   const long long era = (z >= 0 ? z : z - 146096) / 146097;
   const long long dayOfEra = z - era * 146097;
   const long long yearOfEra =
       (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
   const long long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
   const long long monthFromMarch = (5 * dayOfYear + 2) / 153;
   const long long day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
   const long long month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
   const long long year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
   if (year < 0 || year > 9999)
      return year < 0 ? "0000-01-01T00:00:00.000Z" : "9999-12-31T23:59:59.999Z";
   char buf[] = "0000-00-00T00:00:00.000Z";
   auto put = [&buf](int at, long long value, int digits) {
      for (int i = digits - 1; i >= 0; --i, value /= 10) buf[at + i] = char('0' + value % 10);
   };
   put(0, year, 4);
   put(5, month, 2);
   put(8, day, 2);
   put(11, msOfDay / 3600000, 2);
   put(14, msOfDay / 60000 % 60, 2);
   put(17, msOfDay / 1000 % 60, 2);
   put(20, msOfDay % 1000, 3);
   return std::string(buf, sizeof buf - 1);
}

Vel::Json powerViaMdiJson(const Lldp::PowerViaMdiInfo& p) {
   Vel::Json j = Vel::toJson(p);
   if (p.form() == Lldp::PowerViaMdiInfo::formNone) return j;
   j["powerClassName"] = Lldp::nameOr(Lldp::powerClassName(p.powerClass()), p.powerClass());
   j["psePowerPairName"] = Lldp::nameOr(Lldp::psePowerPairName(p.psePowerPair()), p.psePowerPair());
   if (p.form() >= Lldp::PowerViaMdiInfo::formDot3at) {
      j["powerTypeName"] = Lldp::nameOr(Lldp::powerTypeName(p.powerType()), p.powerType());
      j["powerSourceName"] =
          Lldp::nameOr(Lldp::powerSourceName(p.powerSource(), p.powerTypePd()), p.powerSource());
      j["powerPriorityName"] =
          Lldp::nameOr(Lldp::powerPriorityName(p.powerPriority()), p.powerPriority());
   }
   if (p.form() >= Lldp::PowerViaMdiInfo::formDot3bt) {
      const unsigned classExt = p.powerStatus() & 0xf;
      const unsigned typeExt = (p.systemSetup() >> 1) & 0x7;
      j["powerClassExtName"] = Lldp::nameOr(Lldp::powerClassExtName(classExt), classExt);
      j["powerTypeExtName"] = Lldp::nameOr(Lldp::powerTypeExtName(typeExt), typeExt);
   }
   return j;
}

Vel::Json remoteSystemJson(const Lldp::RemoteSystem& r, bool detail, const ViewTime& time) {
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
   // Whole seconds, as the text shows them.
   j["age"] = static_cast<int64_t>(std::max(0.0, time.now - r.creationTime()));
   j["ttlRemaining"] = static_cast<int64_t>(std::max(0.0, r.expiryTime() - time.now));
   // Expiry is in ttlRemaining, and refreshes come every transmit interval: the two times
   // people ask "when" of are creation and last change.
   addTimestamps(j, time, {"creationTime", "lastChangeTime"});
   if (detail) addRemoteNames(j, r);
   return j;
}

View neighborsView(const Lldp::AllStatus& status, bool detail, const std::string& intf,
                   const ViewTime& time) {
   return perInterface(status.portStatus(), intf, time,
                       [&](Vel::Json& out, const Lldp::PortStatus& port) {
                          Vel::Json& list = out["remoteSystem"] = Vel::Json::array();
                          for (const auto& [index, remote] : port.remoteSystem()) {
                             list.push_back(remoteSystemJson(*remote, detail, time));
                          }
                       });
}

View statisticsView(const Lldp::AllStatus& status, const Lldp::RemTablesStatus* remTables,
                    const std::string& intf, const ViewTime& time,
                    const Daemon::ClientLimits* clientLimits) {
   View v = perInterface(
       status.portStatus(), intf, time, [&](Vel::Json& out, const Lldp::PortStatus& port) {
          out = attrsExcept(port, {"intfId", "remoteSystem", "vlanName", "sentVlanName",
                                   "vlanNamesChanged", "vlanNamesIncomplete"});
          addTimestamps(out, time, {"creationTime", "lastTxTime"});
       });
   if (!v.ok()) return v;
   // The global counters: everything the status has besides its ports.
   Vel::Json global = attrsExcept(status, {"portStatus", "mgmtAddrVrf"});
   v.json.update(global);
   if (remTables) v.json["remTablesLastClearTime"] = remTables->remTablesLastClearTime();
   if (clientLimits) v.json["clientLimits"] = attrsExcept(*clientLimits, {});
   addTimestamps(v.json, time,
                 {"remTablesLastChangeTime", "lastPacketParsedTime", "remTablesLastClearTime"});
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
               const Lldp::AllStatus& status, const std::string& intf, const ViewTime& time,
               const Interface::AllIntfStatusDir* interfaces, const Vel::Dir* externalTlvDir) {
   View v = perInterface(
       local.localPort(), intf, time, [&](Vel::Json& out, const Lldp::LocalPort& port) {
          out = attrsExcept(port, {"intfId", "localPortPoeInfo"});
          if (auto pc = config.portConfig(port.intfId())) {
             out["adminStatus"] = pc->adminStatus();
             out["networkPolicyConfig"] = Vel::toJson(pc->networkPolicyConfig());
             addPolicyNames(out["networkPolicyConfig"]);
          }
          if (auto it = out.find("localNetworkPolicyTlv"); it != out.end()) addPolicyNames(*it);
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

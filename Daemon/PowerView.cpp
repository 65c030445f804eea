#include "Daemon/PowerView.h"

#include "Records/LldpExtDot3Parse.h"
#include "Records/LldpNames.h"
#include "Records/PoeUtils.h"

namespace Cli {

namespace {

using Json = Vel::Json;
using AgentStatus = Environment::Power::PoePortStatus;

double watts(uint16_t tenths) {
   return tenths / 10.0;
}

const char* stateName(uint8_t state) {
   static const char* const names[] = {"unknown", "disabled", "searching", "delivering", "fault"};
   return state < 5 ? names[state] : "unknown";
}

Json agentJson(const std::string& name, const AgentStatus::PortStatus& s) {
   return {{"name", name},
           {"state", stateName(s.state())},
           {"pseType", s.pseType()},
           {"powerClass", s.powerClass()},
           {"psePowerPair", s.psePowerPair()},
           {"psePowerPairName",
            Lldp::nameOr(Lldp::psePowerPairName(s.psePowerPair()), s.psePowerPair())},
           {"powerSource", s.powerSource()},
           {"powerSourceName",
            Lldp::nameOr(Lldp::powerSourceName(s.powerSource(), false), s.powerSource())},
           {"priority", s.priority()},
           {"priorityName", Lldp::nameOr(Lldp::powerPriorityName(s.priority()), s.priority())},
           {"allocatedPower", watts(s.allocatedPower())},
           {"maxAvailablePower", watts(s.maxAvailablePower())}};
}

Json neighborJson(const Lldp::RemoteSystem& r) {
   Json j = powerRequestJson(Lldp::PowerRequest({.remoteIndex = r.index(),
                                                 .source = r.ethAddr(),
                                                 .chassisIdentifier = r.msap().chassisIdentifier(),
                                                 .powerViaMdiInfo = r.powerViaMdiInfo()}));
   j["sysName"] = Vel::toJson(r.sysName());
   return j;
}

// The Power via MDI TLV the port sends now, built as the transmit side builds it and
// decoded as a neighbour would decode it.
Json txJson(const Lldp::LocalPortPoeInfo& poe, const Lldp::PortConfig::PtrConst& pc,
            const Lldp::PortStatus::Ptr& ps) {
   if (!pc || !ps || !pc->dot3EnabledTlvs().powerViaMdi()) return nullptr;
   char info[64] = {};
   const bool received = ps->powerViaMdiTlvReceived();
   const bool fallback = !poe.readyToSendTlv();
   const int len = fallback
                       ? PoeUtils::maybeBuildFallbackPowerViaMdiTlv(info, poe, received, pc, ps)
                       : PoeUtils::buildPowerViaMdiTlv(info, poe, received);
   if (len < 1) return nullptr;
   auto scratch = Vel::make<Lldp::RemoteSystem>(0, Lldp::Msap());
   if (parseExtDot3Tlv(2, len, info, scratch) != TlvParseResultOk) return nullptr;
   const Lldp::PowerViaMdiInfo& p = scratch->powerViaMdiInfo();
   return {{"fallback", fallback},
           {"requestedPower", watts(p.pdRequestedPower())},
           {"allocatedPower", watts(p.pseAllocatedPower())},
           {"powerViaMdiInfo", powerViaMdiJson(p)}};
}

}  // namespace

Json powerRequestJson(const Lldp::PowerRequest& r) {
   const Lldp::PowerViaMdiInfo& p = r.powerViaMdiInfo();
   return {{"index", r.remoteIndex()},
           {"ethAddr", r.source().stringValue()},
           {"chassisIdentifier", r.chassisIdentifier().toJson()},
           {"requestedPower", watts(p.pdRequestedPower())},
           {"allocatedPower", watts(p.pseAllocatedPower())},
           {"powerType", Lldp::powerTypeName(p.powerType())},
           // Classes 0..4 travel as 1..5.
           {"powerClass", p.powerClass() >= 1 ? Json(p.powerClass() - 1) : Json(nullptr)},
           {"priority", Lldp::powerPriorityName(p.powerPriority())},
           {"powerSource", p.powerSource()},
           {"powerSourceName",
            Lldp::nameOr(Lldp::powerSourceName(p.powerSource(), p.powerTypePd()), p.powerSource())},
           {"powerViaMdiInfo", powerViaMdiJson(p)}};
}

View powerView(const Lldp::LocalSystem& local, const Lldp::Config& config, Lldp::Status& status,
               const Vel::Dir* powerAgents, const std::string& intf, const ViewTime& time) {
   View v;
   v.json = {{"currentTime", time.now},
             {"currentTimestamp", rfc3339(time.wallNow)},
             {"interfaces", Json::object()}};
   auto fill = [&](const Lldp::LocalPort& port) {
      const Wire::IntfId& id = port.intfId();
      Json out = Json::object();
      // The power agent the agent listens to: the first by name that reports the port.
      out["powerAgent"] = nullptr;
      if (powerAgents) {
         for (const auto& [name, e] : powerAgents->entry()) {
            auto agent = powerAgents->entryAs<AgentStatus>(name);
            if (const auto* s = agent ? agent->portStatus(id) : nullptr) {
               out["powerAgent"] = agentJson(name, *s);
               break;
            }
         }
      }
      const Lldp::LocalPortPoeInfo* poe = port.localPortPoeInfo().ptr();
      const Lldp::RemoteSystem* remote = poe ? poe->remoteSystem().ptr() : nullptr;
      out["neighbor"] = remote ? neighborJson(*remote) : Json(nullptr);
      Lldp::PortConfig::PtrConst pc = config.portConfig(id);
      Lldp::PortStatus::Ptr ps = status.portStatus(id);
      out["powerViaMdiTx"] = poe ? txJson(*poe, pc, ps) : Json(nullptr);
      out["poeAllocatedPowerFallback"] = pc ? pc->poeAllocatedPowerFallback() : 0;
      v.json["interfaces"][std::string(id.name())] = std::move(out);
   };
   if (!intf.empty()) {
      auto port = local.localPort(Wire::IntfId(intf));
      if (!port) {
         v.error = "interface " + intf + ": no LLDP on this interface";
         return v;
      }
      fill(*port);
      return v;
   }
   for (const auto& [id, port] : local.localPort()) fill(*port);
   return v;
}

}  // namespace Cli

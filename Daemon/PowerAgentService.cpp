#include "Daemon/PowerAgentService.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "Daemon/PowerView.h"

namespace Cli {

namespace {

using Daemon::ControlSocket;
using Json = Vel::Json;
using AgentStatus = Environment::Power::PoePortStatus;

constexpr size_t agentNameMax = 64;
constexpr size_t intfNameMax = 15;

std::string checkName(const char* what, const std::string& s, size_t max) {
   if (s.empty() || s.size() > max) {
      return std::string(what) + " must be 1.." + std::to_string(max) + " bytes";
   }
   for (char c : s) {
      auto u = static_cast<unsigned char>(c);
      if (u <= 0x20 || u == 0x7f || c == '/') {
         return std::string(what) + " '" + Vel::printableBytes(s) +
                "' has a space, control byte or '/'";
      }
   }
   return {};
}

// One of `names` (index = value + offset); an error text, empty if fine.
std::string choice(const Json& j, const char* key, std::initializer_list<const char*> names,
                   uint8_t first, uint8_t& out) {
   std::string all;
   uint8_t v = first;
   for (const char* n : names) {
      if (j.is_string() && j.get<std::string>() == n) {
         out = v;
         return {};
      }
      all += std::string(all.empty() ? "" : ", ") + n;
      ++v;
   }
   return std::string(key) + " must be one of " + all;
}

std::string integer(const Json& j, const char* key, unsigned lo, unsigned hi, uint8_t& out) {
   if (!j.is_number_unsigned() || j.get<uint64_t>() < lo || j.get<uint64_t>() > hi) {
      return std::string(key) + " must be an integer " + std::to_string(lo) + ".." +
             std::to_string(hi);
   }
   out = uint8_t(j.get<uint64_t>());
   return {};
}

std::string power(const Json& j, const char* key, uint16_t& out) {
   const double w = j.is_number() ? j.get<double>() : -1;
   if (!(w >= 0 && w <= 6553.5)) return std::string(key) + " must be 0..6553.5 watts";
   out = uint16_t(std::lround(w * 10));
   return {};
}

std::string parseStatus(const Json& j, AgentStatus::PortStatus& s) {
   if (!j.is_object()) return "a port's status must be an object or null";
   if (!j.contains("state")) return "state is required";
   for (auto it = j.begin(); it != j.end(); ++it) {
      const std::string& k = it.key();
      const Json& v = it.value();
      uint8_t u = 0;
      uint16_t p = 0;
      std::string e;
      if (k == "state") {
         if (e = choice(v, "state", {"disabled", "searching", "delivering", "fault"}, 1, u);
             e.empty())
            s.stateIs(u);
      } else if (k == "pseType") {
         if (e = integer(v, "pseType", 1, 4, u); e.empty()) s.pseTypeIs(u);
      } else if (k == "powerClass") {
         if (e = integer(v, "powerClass", 0, 8, u); e.empty()) s.powerClassIs(u);
      } else if (k == "powerPairs") {
         if (e = choice(v, "powerPairs", {"signal", "spare"}, 1, u); e.empty()) s.psePowerPairIs(u);
      } else if (k == "powerSource") {
         if (e = choice(v, "powerSource", {"primary", "backup"}, 1, u); e.empty())
            s.powerSourceIs(u);
      } else if (k == "priority") {
         if (e = choice(v, "priority", {"unknown", "critical", "high", "low"}, 0, u); e.empty())
            s.priorityIs(u);
      } else if (k == "allocatedPower") {
         if (e = power(v, "allocatedPower", p); e.empty()) s.allocatedPowerIs(p);
      } else if (k == "maxAvailablePower") {
         if (e = power(v, "maxAvailablePower", p); e.empty()) s.maxAvailablePowerIs(p);
      } else {
         e = "unknown member '" + k + "'";
      }
      if (!e.empty()) return e;
   }
   return {};
}

}  // namespace

PowerAgentService::PowerAgentService(ControlSocket& socket, Vel::StateDb& db)
    : limits_(db.mount<Daemon::ClientLimits>(Daemon::ClientLimits::path)),
      agents_(db.mount<Vel::Dir>("environment/power/status/poePort")),
      requests_(db.mount<Lldp::PowerRequestStatus>("l2discovery/lldp/status/powerRequest")) {
   requestReactor_.service = this;
   requestReactor_.notifierIs(requests_);
   socket.opIs(
       "power-agent", [this](const Json& req) { return powerAgent(req); },
       ControlSocket::Access::write);
   socket.opIs(
       "watch-power-requests",
       [this](const Json&, const Vel::Ptr<Daemon::ControlConnection>& c) { return watch(c); },
       ControlSocket::Access::read);
}

PowerAgentService::~PowerAgentService() = default;

Json PowerAgentService::powerAgent(const Json& req) {
   auto bad = [](const std::string& e) { return ControlSocket::errorReply("power-agent: " + e); };
   auto name = req.find("agent");
   if (name == req.end() || !name->is_string()) return bad("\"agent\" must be a string");
   const std::string agent = name->get<std::string>();
   if (auto e = checkName("agent name", agent, agentNameMax); !e.empty()) return bad(e);
   auto withdraw = req.find("withdraw");
   auto ports = req.find("ports");
   if (withdraw != req.end()) {
      if (!withdraw->is_boolean() || !withdraw->get<bool>() || ports != req.end()) {
         return bad("\"withdraw\" must be true, without \"ports\"");
      }
      agents_->entryDel(agent);
      if (auto c = cost_.find(agent); c != cost_.end()) {
         totalCost_ -= c->second;
         cost_.erase(c);
      }
      return ControlSocket::okReply();
   }
   if (ports == req.end() || !ports->is_object()) return bad("\"ports\" must be an object");
   // Every port is checked before anything changes.
   std::map<Wire::IntfId, std::optional<AgentStatus::PortStatus>> changes;
   for (auto it = ports->begin(); it != ports->end(); ++it) {
      if (auto e = checkName("interface name", it.key(), intfNameMax); !e.empty()) return bad(e);
      auto& change = changes[Wire::IntfId(it.key())];
      if (it.value().is_null()) continue;
      AgentStatus::PortStatus s;
      if (auto e = parseStatus(it.value(), s); !e.empty()) return bad(it.key() + ": " + e);
      change = s;
   }
   auto status = agents_->entryAs<AgentStatus>(agent);
   size_t count = status ? status->portStatus().size() : 0;
   for (const auto& [intf, s] : changes) {
      const bool had = status && status->portStatus(intf);
      if (s && !had) ++count;
      if (!s && had) --count;
   }
   auto c = cost_.find(agent);
   const size_t before = c == cost_.end() ? 0 : c->second;
   const size_t others = totalCost_ - before;
   const size_t perAgent = limits_->maxPowerPortsPerAgent();
   const size_t total = limits_->maxPowerPorts();
   if (count > perAgent) {
      limits_->powerRequestsRefusedInc();
      return bad(std::to_string(count) + " ports, more than the " + std::to_string(perAgent) +
                 " an agent may publish");
   }
   if (others + std::max<size_t>(count, 1) > total) {
      limits_->powerRequestsRefusedInc();
      return bad("all agents together may publish " + std::to_string(total) +
                 " ports (each agent counts at least one); " + std::to_string(others) +
                 " are taken by others");
   }
   cost_[agent] = std::max<size_t>(count, 1);
   totalCost_ = others + cost_[agent];
   if (!status) {
      status = Vel::make<AgentStatus>(agent);
      agents_->entryIs(agent, status);
   }
   for (const auto& [intf, s] : changes) {
      if (s) {
         status->portStatusIs(intf, *s);
      } else {
         status->portStatusDel(intf);
      }
   }
   return ControlSocket::okReply();
}

Json PowerAgentService::watch(const Vel::Ptr<Daemon::ControlConnection>& connection) {
   watchers_.push_back(connection);
   Json now = Json::object();
   for (const auto& [intf, r] : requests_->request()) {
      now[std::string(intf.name())] = powerRequestJson(r);
   }
   return ControlSocket::okReply(std::move(now));
}

void PowerAgentService::handleRequest(const Wire::IntfId& intf) {
   std::erase_if(watchers_, [](const auto& c) { return c->closed(); });
   if (watchers_.empty()) return;
   const Lldp::PowerRequest* r = requests_->request(intf);
   const Json event = {{"event", "powerRequest"},
                       {"interface", std::string(intf.name())},
                       {"request", r ? powerRequestJson(*r) : Json(nullptr)}};
   for (const auto& c : watchers_) c->send(event);
}

}  // namespace Cli

// `lldp topology`: the links between systems as a Graphviz graph, from what a Prometheus
// server scraped from every agent of a fleet, or from the local agent's own view.
//
// One node per system, keyed by its chassis ID and named by its system name (the chassis
// ID when it has none); systems that run an agent are boxes, neighbours that run none
// (phones, servers) are leaves drawn as ellipses. One edge per link with a port name at
// each end; a link that both of its agents report is drawn once.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "Framework/Vel/Json.h"

namespace Cli {

class Topology {
public:
   // A system that runs an agent.
   void agentIs(const std::string& chassisId, const std::string& sysName);
   // What the agent on `localChassis` hears on its port `localPort`.
   void neighborIs(const std::string& localChassis, const std::string& localPort,
                   const std::string& chassisId, const std::string& portId,
                   const std::string& sysName);

   // The graph in the DOT language, nodes and edges in a stable order.
   std::string dot() const;
   size_t links() const { return links_.size(); }

private:
   struct Node {
      std::string name;
      bool agent = false;
   };
   std::map<std::string, Node> nodes_;  // by chassis ID
   // (chassis, port) of each end, the smaller end first.
   std::set<std::tuple<std::string, std::string, std::string, std::string>> links_;
};

// The fleet from a Prometheus server's HTTP API at `url` (http://host:9090): every
// lldp_local_info and lldp_neighbor_info series it holds, tied together by the target
// (job and instance) that exposed them. False with the reason when the server cannot be
// asked or its answer is not what its API returns.
bool topologyFromPrometheus(const std::string& url, Topology* out, std::string* error);

// An instant query of a Prometheus server's HTTP API (GET URL/api/v1/query): the result
// vector, or false with the reason.
bool prometheusQuery(const std::string& url, const std::string& query, Vel::Json* result,
                     std::string* error);

// This system and its neighbours, from the agent's `show local` and `show neighbors`
// views.
Topology topologyFromViews(const Vel::Json& local, const Vel::Json& neighbors);

// `lldp topology [--format dot|svg|png] [--output FILE] [--prometheus URL]`. `call` sends
// a control-socket request and returns its reply's data (only used without
// --prometheus). Prints the DOT on standard output, or writes FILE (svg and png need
// --output, rendered by Graphviz's `dot`). Returns the reason when it fails.
std::string topologyCommand(const std::vector<std::string>& words,
                            const std::function<Vel::Json(const Vel::Json&)>& call);

}  // namespace Cli

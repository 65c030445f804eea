// The limit on the neighbours of all ports together: `lldp neighbor-limit total COUNT`,
// beside the per-port `lldp neighbor-limit COUNT`.
#include "Config/ConfigForms.h"

namespace Config::detail {

namespace {

// Neighbours of all ports: a few kilobytes each, so ten million bounds the agent at tens of
// gigabytes, which only a deliberate setting reaches.
constexpr uint64_t neighborLimitTotalMax = 10000000;

}  // namespace

void addNeighborLimitForms(std::vector<Form>& f) {
   f.push_back({Scope::global,
                {"lldp", "neighbor-limit", "total"},
                1,
                "lldp neighbor-limit total COUNT",
                [](const Args& a) {
                   uint64_t v;
                   if (auto e = parseNumber(a[0], 1, neighborLimitTotalMax, v); !e.empty()) {
                      return fail(e);
                   }
                   return global([v](CliConfig& c) { c.remoteSystemLimitTotalIs(uint32_t(v)); });
                },
                0,
                "no lldp neighbor-limit total",
                [](const Args&) {
                   return global([](CliConfig& c) {
                      c.remoteSystemLimitTotalIs(defaults().remoteSystemLimitTotal());
                   });
                }});
}

void renderNeighborLimit(const CliConfig& c, const LineOut& line) {
   if (c.remoteSystemLimitTotal() != defaults().remoteSystemLimitTotal()) {
      line("lldp neighbor-limit total " + std::to_string(c.remoteSystemLimitTotal()));
   }
}

}  // namespace Config::detail

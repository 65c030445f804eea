#include "Snmp/SubagentOptions.h"

#include <cstdlib>

namespace Snmp {

bool SubagentOptions::parse(int argc, char** argv, int& i, std::string* error) {
   const std::string opt = argv[i];
   if (opt == "--agentx") {
      enabled = true;
      if (i + 1 < argc && argv[i + 1][0] != '-') socket = argv[++i];
      return true;
   }
   if (opt != "--snmp-notify" && opt != "--snmp-notify-interval") return false;
   if (i + 1 >= argc) {
      *error = "option " + opt + " needs a value";
      return true;
   }
   const std::string value = argv[++i];
   if (opt == "--snmp-notify") {
      notifyPattern = value;
      return true;
   }
   char* end = nullptr;
   const long n = std::strtol(value.c_str(), &end, 10);
   if (value.empty() || *end || n < 5 || n > 3600) {
      *error = "--snmp-notify-interval: '" + value + "' is not a number of seconds (5..3600)";
      return true;
   }
   notifyInterval = static_cast<uint32_t>(n);
   return true;
}

const char* SubagentOptions::usage() {
   return R"(  --agentx [SOCKET]       serve the LLDP-MIB over SNMP as an AgentX subagent of the
                          master agent at SOCKET (default /var/agentx/master)
  --snmp-notify PATTERN   send lldpRemTablesChange for changes on ports whose names
                          match this shell pattern (default: no port)
  --snmp-notify-interval SECONDS
                          at most one lldpRemTablesChange per this many seconds
                          (5..3600, default 30)
)";
}

}  // namespace Snmp

// The daemon's SNMP options (`--agentx`, `--snmp-notify`, `--snmp-notify-interval`),
// parsed by the program itself; the subagent they configure is a module loaded only when
// `--agentx` is given (Daemon/ExporterModules.h).
#pragma once

#include <cstdint>
#include <string>

namespace Snmp {

struct SubagentOptions {
   bool enabled = false;
   std::string socket = "/var/agentx/master";
   // lldpPortConfigNotificationEnable is true on ports whose names match (shell pattern).
   std::string notifyPattern;
   uint32_t notifyInterval = 30;  // lldpNotificationInterval, 5..3600 s

   // Takes argv[i] (and its value, advancing i) when it is one of our options:
   //    --agentx [SOCKET]  --snmp-notify PATTERN  --snmp-notify-interval SECONDS
   // Returns false when it is not ours; sets `error` when it is ours but wrong.
   bool parse(int argc, char** argv, int& i, std::string* error);
   static const char* usage();
};

}  // namespace Snmp

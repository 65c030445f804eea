// The configuration language's LLDP-MED network policy lines (per port):
//    lldp med network-policy APPLICATION vlan 0..4094 [untagged] [priority 0..7] [dscp 0..63]
//    no lldp med network-policy APPLICATION
// APPLICATION names one of the ANSI/TIA-1057 application types 1 to 8: voice,
// voice-signaling, guest-voice, guest-voice-signaling, softphone-voice,
// video-conferencing, streaming-video, video-signaling. The policy is tagged unless
// `untagged` is given (the endpoint then sends untagged frames, and the VLAN and priority
// are not advertised); VLAN 0 asks for priority-tagged frames on the port's native VLAN.
// Priority and DSCP default to 0. The options come in any order, each at most once; a
// second line for the same application replaces the first.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Records/LldpValues.h"

namespace Config {

// The application type named `name`; 0 when there is none.
uint8_t networkPolicyAppType(std::string_view name);
// The name of an application type; empty for a type without one.
std::string networkPolicyAppName(uint8_t appType);
// Parses the words after `lldp med network-policy`; returns an error text, empty if none.
std::string parseNetworkPolicy(const std::vector<std::string>& words,
                               Lldp::NetworkPolicyConfig& out);
// The line that configures `policy`, without indentation.
std::string renderNetworkPolicy(const Lldp::NetworkPolicyConfig& policy);

}  // namespace Config

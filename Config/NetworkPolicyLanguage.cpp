#include "Config/NetworkPolicyLanguage.h"

#include <charconv>

namespace Config {

namespace {

const char* const appNames[] = {"",
                                "voice",
                                "voice-signaling",
                                "guest-voice",
                                "guest-voice-signaling",
                                "softphone-voice",
                                "video-conferencing",
                                "streaming-video",
                                "video-signaling"};
constexpr uint8_t appCount = sizeof(appNames) / sizeof(appNames[0]);

std::string number(const std::string& what, const std::string& s, unsigned hi, unsigned& out) {
   auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
   if (s.empty() || ec == std::errc::invalid_argument || end != s.data() + s.size()) {
      return what + " '" + s + "' is not a number";
   }
   if (ec == std::errc::result_out_of_range || out > hi) {
      return what + " " + s + " is out of range 0.." + std::to_string(hi);
   }
   return {};
}

}  // namespace

uint8_t networkPolicyAppType(std::string_view name) {
   for (uint8_t t = 1; t < appCount; ++t) {
      if (name == appNames[t]) return t;
   }
   return 0;
}

std::string networkPolicyAppName(uint8_t appType) {
   return appType < appCount ? appNames[appType] : "";
}

std::string parseNetworkPolicy(const std::vector<std::string>& w, Lldp::NetworkPolicyConfig& out) {
   const std::string usage =
       "expected 'APPLICATION vlan VLAN [untagged] [priority 0-7] [dscp 0-63]'";
   if (w.empty()) return usage;
   const uint8_t app = networkPolicyAppType(w[0]);
   if (app == 0) {
      std::string names;
      for (uint8_t t = 1; t < appCount; ++t) names += std::string(t > 1 ? ", " : "") + appNames[t];
      return "unknown application '" + w[0] + "' (one of " + names + ")";
   }
   Lldp::NetworkPolicyConfig p({.appType = app, .tagged = true});
   bool vlan = false, untagged = false, priority = false, dscp = false;
   for (size_t i = 1; i < w.size(); ++i) {
      const std::string& word = w[i];
      auto value = [&](bool& seen, unsigned hi, unsigned& v) -> std::string {
         if (seen) return "'" + word + "' given twice";
         seen = true;
         if (i + 1 >= w.size()) return "'" + word + "' needs a value";
         return number(word, w[++i], hi, v);
      };
      unsigned v = 0;
      std::string e;
      if (word == "vlan") {
         if (e = value(vlan, 4094, v); e.empty()) p.vlanIdIs(uint16_t(v));
      } else if (word == "priority") {
         if (e = value(priority, 7, v); e.empty()) p.priorityIs(uint8_t(v));
      } else if (word == "dscp") {
         if (e = value(dscp, 63, v); e.empty()) p.dscpIs(uint8_t(v));
      } else if (word == "untagged") {
         if (untagged) e = "'untagged' given twice";
         untagged = true;
         p.taggedIs(false);
      } else {
         e = "unexpected '" + word + "': " + usage;
      }
      if (!e.empty()) return e;
   }
   if (!vlan) return "a VLAN is required: " + usage;
   out = p;
   return {};
}

std::string renderNetworkPolicy(const Lldp::NetworkPolicyConfig& p) {
   std::string s = "lldp med network-policy " + networkPolicyAppName(p.appType()) + " vlan " +
                   std::to_string(p.vlanId());
   if (!p.tagged()) s += " untagged";
   if (p.priority()) s += " priority " + std::to_string(p.priority());
   if (p.dscp()) s += " dscp " + std::to_string(p.dscp());
   return s;
}

}  // namespace Config

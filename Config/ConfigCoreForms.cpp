// The core commands of the configuration language: timers, the TLVs to send, the system's
// name and description, management addresses, neighbour limits, and per port the
// administrative status, the receive rate limit, the ZTP VLAN, the PoE fallback and the
// LLDP-MED network policies; with the lines that render them.
#include <charconv>
#include <cmath>
#include <limits>

#include "Config/ConfigForms.h"
#include "Config/NetworkPolicyLanguage.h"

namespace Config::detail {

namespace {

// Bounds the language enforces. The hold time is the advertised time to live in seconds:
// below 10 s a neighbour would age the entry out between two refreshes of any sensible
// timer. The fallback power is in milliwatts; 100 W is above what any PSE type delivers.
constexpr uint64_t timerMax = 65535;
constexpr uint64_t holdTimeMin = 1;
constexpr uint64_t reinitMax = 20;
constexpr uint64_t rateLimitCountMax = std::numeric_limits<uint32_t>::max();
constexpr double rateLimitIntervalMin = 0.001;
constexpr double rateLimitIntervalMax = 3600;
constexpr uint64_t fallbackMax = 100000;
// Neighbours per port: each costs a few kilobytes, so a million bounds a port at a few
// gigabytes, which only a deliberate setting reaches.
constexpr uint64_t neighborLimitMax = 1000000;

std::string parseSeconds(const std::string& s, double& out) {
   auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
   if (s.empty() || ec == std::errc::invalid_argument || end != s.data() + s.size() ||
       !(s[0] >= '0' && s[0] <= '9') || (ec == std::errc() && !std::isfinite(out))) {
      return "'" + s + "' is not a number of seconds";
   }
   if (ec == std::errc::result_out_of_range || out < rateLimitIntervalMin ||
       out > rateLimitIntervalMax) {
      return s + " is out of range 0.001..3600";
   }
   return {};
}

// --- Command forms.

using BoolSetter = void (CliConfig::*)(const bool&);

using BoolGetter = const bool& (CliConfig::*)() const;

struct TlvName {
   const char* name;
   BoolSetter set;
   BoolGetter get;
};
const TlvName tlvNames[] = {
    {"port-description", &CliConfig::portDescriptionTxIs, &CliConfig::portDescriptionTx},
    {"system-name", &CliConfig::systemNameTxIs, &CliConfig::systemNameTx},
    {"system-description", &CliConfig::systemDescriptionTxIs, &CliConfig::systemDescriptionTx},
    {"system-capabilities", &CliConfig::systemCapabilitiesTxIs, &CliConfig::systemCapabilitiesTx},
    {"management-address", &CliConfig::managementAddressTxIs, &CliConfig::managementAddressTx},
    {"port-vlan", &CliConfig::portVlanTxIs, &CliConfig::portVlanTx},
    {"vlan-name", &CliConfig::vlanNameTxIs, &CliConfig::vlanNameTx},
    {"link-aggregation", &CliConfig::linkAggregationTxIs, &CliConfig::linkAggregationTx},
    {"max-frame-size", &CliConfig::maxFrameSizeTxIs, &CliConfig::maxFrameSizeTx},
    {"power-via-mdi", &CliConfig::powerViaMdiTxIs, &CliConfig::powerViaMdiTx},
    {"med-network-policy", &CliConfig::medNetworkPolicyTxIs, &CliConfig::medNetworkPolicyTx},
};

Built tlvSelect(const Args& a, bool on) {
   for (const auto& t : tlvNames) {
      if (a[0] == t.name) return global([set = t.set, on](CliConfig& c) { (c.*set)(on); });
   }
   std::string names;
   for (const auto& t : tlvNames) names += std::string(names.empty() ? "" : ", ") + t.name;
   return fail("unknown TLV '" + a[0] + "' (one of " + names + ")");
}

// adminStatus keeps transmit in bit 1 and receive in bit 2, except that neither is 4.
uint8_t adminBits(Lldp::AdminStatus s) {
   return s == Lldp::adminStatusDisabled ? 0 : uint8_t(s & 3);
}
Lldp::AdminStatus adminFromBits(uint8_t b) {
   return b == 0 ? Lldp::adminStatusDisabled : Lldp::AdminStatus(b);
}
PortOp adminBit(uint8_t bit, bool on) {
   return [bit, on](CliPortConfig& p) {
      uint8_t b = adminBits(p.adminStatus());
      p.adminStatusIs(adminFromBits(on ? uint8_t(b | bit) : uint8_t(b & ~bit)));
   };
}

// A global unsigned attribute: the plain form sets a number in lo..hi, `no` the default.
using U32Setter = void (CliConfig::*)(const uint32_t&);
std::function<Built(const Args&)> setNumber(U32Setter set, uint64_t lo, uint64_t hi) {
   return [=](const Args& a) {
      uint64_t v;
      if (auto e = parseNumber(a[0], lo, hi, v); !e.empty()) return fail(e);
      return global([=](CliConfig& c) { (c.*set)(uint32_t(v)); });
   };
}
std::function<Built(const Args&)> setDefault(U32Setter set, uint32_t (*get)()) {
   return [=](const Args&) { return global([=](CliConfig& c) { (c.*set)(get()); }); };
}

std::function<Built(const Args&)> setText(void (CliConfig::*set)(const Lldp::BoundedString255&)) {
   return [=](const Args& a) {
      std::string text;
      if (auto e = parseText(a, text); !e.empty()) return fail(e);
      return global([=](CliConfig& c) { (c.*set)(Lldp::BoundedString255(text)); });
   };
}

}  // namespace

void addCoreForms(std::vector<Form>& f) {
   auto clearText = [](void (CliConfig::*set)(const Lldp::BoundedString255&)) {
      return [=](const Args&) { return global([=](CliConfig& c) { (c.*set)({}); }); };
   };
   f.push_back({Scope::global,
                {"lldp", "run"},
                0,
                "lldp run",
                [](const Args&) { return global([](CliConfig& c) { c.enabledIs(true); }); },
                0,
                "no lldp run",
                [](const Args&) { return global([](CliConfig& c) { c.enabledIs(false); }); }});
   f.push_back({Scope::global,
                {"lldp", "timer"},
                1,
                "lldp timer SECONDS",
                setNumber(&CliConfig::messageTxIntervalIs, 1, timerMax),
                0,
                "no lldp timer",
                setDefault(&CliConfig::messageTxIntervalIs,
                           [] { return defaults().messageTxInterval(); })});
   f.push_back({Scope::global,
                {"lldp", "hold-time"},
                1,
                "lldp hold-time SECONDS",
                setNumber(&CliConfig::messageTxHoldTimeIs, holdTimeMin, timerMax),
                0,
                "no lldp hold-time",
                setDefault(&CliConfig::messageTxHoldTimeIs,
                           [] { return defaults().messageTxHoldTime(); })});
   f.push_back({Scope::global,
                {"lldp", "timer", "reinitialization"},
                1,
                "lldp timer reinitialization SECONDS",
                setNumber(&CliConfig::reinitDelayIs, 1, reinitMax),
                0,
                "no lldp timer reinitialization",
                setDefault(&CliConfig::reinitDelayIs, [] { return defaults().reinitDelay(); })});
   f.push_back({Scope::global,
                {"lldp", "tlv-select"},
                1,
                "lldp tlv-select NAME",
                [](const Args& a) { return tlvSelect(a, true); },
                1,
                "no lldp tlv-select NAME",
                [](const Args& a) { return tlvSelect(a, false); }});
   f.push_back({Scope::global,
                {"lldp", "system-name"},
                textArg,
                "lldp system-name TEXT",
                setText(&CliConfig::sysNameIs),
                0,
                "no lldp system-name",
                clearText(&CliConfig::sysNameIs)});
   f.push_back({Scope::global,
                {"lldp", "system-description"},
                textArg,
                "lldp system-description TEXT",
                setText(&CliConfig::sysDescIs),
                0,
                "no lldp system-description",
                clearText(&CliConfig::sysDescIs)});
   f.push_back(
       {Scope::global,
        {"lldp", "receive", "packet", "tagged", "drop"},
        0,
        "lldp receive packet tagged drop",
        [](const Args&) { return global([](CliConfig& c) { c.rxTaggedPacketsDropIs(true); }); },
        0,
        "no lldp receive packet tagged drop",
        [](const Args&) { return global([](CliConfig& c) { c.rxTaggedPacketsDropIs(false); }); }});
   f.push_back({Scope::global,
                {"lldp", "management-address"},
                0,
                "lldp management-address all | interface NAME | vrf NAME",
                nullptr,
                0,
                "no lldp management-address",
                [](const Args&) {
                   return global([](CliConfig& c) {
                      c.mgmtAddrTxModeIs(Lldp::mgmtAddrTxModeBest);
                      c.mgmtAddrTxIntfIs({});
                   });
                }});
   f.push_back({Scope::global,
                {"lldp", "management-address", "all"},
                0,
                "lldp management-address all",
                [](const Args&) {
                   return global([](CliConfig& c) {
                      c.mgmtAddrTxModeIs(Lldp::mgmtAddrTxModeAll);
                      c.mgmtAddrTxIntfIs({});
                   });
                },
                0,
                "",
                nullptr});
   f.push_back({Scope::global,
                {"lldp", "management-address", "interface"},
                1,
                "lldp management-address interface NAME",
                [](const Args& a) {
                   if (auto e = checkName("interface name", a[0]); !e.empty()) return fail(e);
                   Wire::IntfId intf(a[0]);
                   return global([intf](CliConfig& c) {
                      c.mgmtAddrTxModeIs(Lldp::mgmtAddrTxModeIntfName);
                      c.mgmtAddrTxIntfIs(intf);
                   });
                },
                0,
                "",
                nullptr});
   f.push_back({Scope::global,
                {"lldp", "management-address", "vrf"},
                1,
                "lldp management-address vrf NAME",
                [](const Args& a) {
                   if (auto e = checkName("vrf name", a[0]); !e.empty()) return fail(e);
                   // Interfaces in no VRF are in the default one, stored as no name.
                   std::string vrf = a[0] == "default" ? std::string() : a[0];
                   return global([vrf](CliConfig& c) { c.mgmtAddrVrfIs(vrf); });
                },
                0,
                "no lldp management-address vrf",
                [](const Args&) { return global([](CliConfig& c) { c.mgmtAddrVrfIs({}); }); }});

   f.push_back(
       {Scope::either,
        {"lldp", "neighbor-limit"},
        1,
        "lldp neighbor-limit COUNT",
        [](const Args& a) {
           uint64_t v;
           if (auto e = parseNumber(a[0], 1, neighborLimitMax, v); !e.empty()) {
              return fail(e);
           }
           return either([v](CliConfig& c) { c.remoteSystemLimitIs(uint32_t(v)); },
                         [v](CliPortConfig& p) { p.remoteSystemLimitIs(uint32_t(v)); });
        },
        0,
        "no lldp neighbor-limit",
        [](const Args&) {
           return either(
               [](CliConfig& c) { c.remoteSystemLimitIs(defaults().remoteSystemLimit()); },
               [](CliPortConfig& p) { p.remoteSystemLimitIs(portDefaults().remoteSystemLimit()); });
        }});

   f.push_back({Scope::port,
                {"lldp", "transmit"},
                0,
                "lldp transmit",
                [](const Args&) { return port(adminBit(1, true)); },
                0,
                "no lldp transmit",
                [](const Args&) { return port(adminBit(1, false)); }});
   f.push_back({Scope::port,
                {"lldp", "receive"},
                0,
                "lldp receive",
                [](const Args&) { return port(adminBit(2, true)); },
                0,
                "no lldp receive",
                [](const Args&) { return port(adminBit(2, false)); }});
   f.push_back(
       {Scope::port,
        {"lldp", "receive", "rate-limit"},
        3,
        "lldp receive rate-limit COUNT interval SECONDS",
        [](const Args& a) {
           if (a[1] != "interval") {
              return fail("expected 'interval' after the count, not '" + a[1] + "'");
           }
           uint64_t count;
           double interval;
           if (auto e = parseNumber(a[0], 1, rateLimitCountMax, count); !e.empty()) {
              return fail(e);
           }
           if (auto e = parseSeconds(a[2], interval); !e.empty()) return fail(e);
           return port([=](CliPortConfig& p) {
              p.rxRateLimitEnabledIs(true);
              p.rxRateLimitMaxLldpdusIs(count);
              p.rxRateLimitIntervalIs(interval);
           });
        },
        0,
        "no lldp receive rate-limit",
        [](const Args&) { return port([](CliPortConfig& p) { p.rxRateLimitEnabledIs(false); }); }});
   f.push_back({Scope::port,
                {"lldp", "ztp", "vlan"},
                1,
                "lldp ztp vlan VLAN",
                [](const Args& a) {
                   uint64_t v;
                   if (auto e = parseNumber(a[0], 1, Bridging::VlanIdOrNone::max, v); !e.empty()) {
                      return fail(e);
                   }
                   return port([v](CliPortConfig& p) { p.ztpBootVlanIs(uint16_t(v)); });
                },
                0,
                "no lldp ztp vlan",
                [](const Args&) { return port([](CliPortConfig& p) { p.ztpBootVlanIs({}); }); }});
   f.push_back({Scope::port,
                {"lldp", "power-via-mdi", "fallback"},
                1,
                "lldp power-via-mdi fallback MILLIWATTS",
                [](const Args& a) {
                   uint64_t mw;
                   if (auto e = parseNumber(a[0], 1, fallbackMax, mw); !e.empty()) {
                      return fail(e);
                   }
                   return port(
                       [mw](CliPortConfig& p) { p.poeAllocatedPowerFallbackIs(uint32_t(mw)); });
                },
                0,
                "no lldp power-via-mdi fallback",
                [](const Args&) {
                   return port([](CliPortConfig& p) {
                      p.poeAllocatedPowerFallbackIs(portDefaults().poeAllocatedPowerFallback());
                   });
                }});
   addTlvAndBypassForms(f);
}

// LLDP-MED network policies (Config/NetworkPolicyLanguage.h).
void addNetworkPolicyForms(std::vector<Form>& f) {
   f.push_back({Scope::port,
                {"lldp", "med", "network-policy"},
                textArg,
                "lldp med network-policy APPLICATION vlan VLAN [untagged] [priority 0-7] "
                "[dscp 0-63]",
                [](const Args& a) {
                   std::vector<std::string> words;
                   for (size_t i = 0; i < a.count; ++i) words.push_back(a[i]);
                   Lldp::NetworkPolicyConfig policy;
                   if (auto e = parseNetworkPolicy(words, policy); !e.empty()) return fail(e);
                   return port([policy](CliPortConfig& p) { p.networkPolicyConfigIs(policy); });
                },
                1,
                "no lldp med network-policy APPLICATION",
                [](const Args& a) {
                   const uint8_t app = networkPolicyAppType(a[0]);
                   if (app == 0) return fail("unknown application '" + a[0] + "'");
                   return port([app](CliPortConfig& p) { p.networkPolicyConfigDel(app); });
                }});
}

void renderCore(const CliConfig& c, const LineOut& line) {
   const CliConfig& d = defaults();
   auto flag = [&](bool v, bool dv, const std::string& cmd) {
      if (v != dv) line(std::string(v ? "" : "no ") + cmd);
   };
   flag(c.enabled(), d.enabled(), "lldp run");
   if (c.messageTxInterval() != d.messageTxInterval()) {
      line("lldp timer " + std::to_string(c.messageTxInterval()));
   }
   if (c.messageTxHoldTime() != d.messageTxHoldTime()) {
      line("lldp hold-time " + std::to_string(c.messageTxHoldTime()));
   }
   if (c.reinitDelay() != d.reinitDelay()) {
      line("lldp timer reinitialization " + std::to_string(c.reinitDelay()));
   }
   for (const auto& t : tlvNames) {
      flag((c.*t.get)(), (d.*t.get)(), std::string("lldp tlv-select ") + t.name);
   }
   if (!c.sysName().empty()) line("lldp system-name " + textArgument(c.sysName().value()));
   if (!c.sysDesc().empty()) {
      line("lldp system-description " + textArgument(c.sysDesc().value()));
   }
   flag(c.rxTaggedPacketsDrop(), d.rxTaggedPacketsDrop(), "lldp receive packet tagged drop");
   if (c.mgmtAddrTxMode() == Lldp::mgmtAddrTxModeAll) {
      line("lldp management-address all");
   } else if (c.mgmtAddrTxMode() == Lldp::mgmtAddrTxModeIntfName) {
      line("lldp management-address interface " + c.mgmtAddrTxIntf().stringValue());
   }
   if (!c.mgmtAddrVrf().empty()) line("lldp management-address vrf " + c.mgmtAddrVrf());
   if (c.remoteSystemLimit() != d.remoteSystemLimit()) {
      line("lldp neighbor-limit " + std::to_string(c.remoteSystemLimit()));
   }
}

void renderPortCore(const CliPortConfig& p, const LineOut& line) {
   const CliPortConfig& pd = portDefaults();
   auto flag = [&](bool v, bool dv, const std::string& cmd) {
      if (v != dv) line("   " + std::string(v ? "" : "no ") + cmd);
   };
   uint8_t bits = adminBits(p.adminStatus()), defaultBits = adminBits(pd.adminStatus());
   flag(bits & 1, defaultBits & 1, "lldp transmit");
   flag(bits & 2, defaultBits & 2, "lldp receive");
   // The plain form sets the numbers and switches the limit on; `no` only switches off.
   bool numbers = p.rxRateLimitMaxLldpdus() != pd.rxRateLimitMaxLldpdus() ||
                  p.rxRateLimitInterval() != pd.rxRateLimitInterval();
   if (numbers || (p.rxRateLimitEnabled() && !pd.rxRateLimitEnabled())) {
      line("   lldp receive rate-limit " + std::to_string(p.rxRateLimitMaxLldpdus()) +
           " interval " + shortest(p.rxRateLimitInterval()));
   }
   if (!p.rxRateLimitEnabled() && (numbers || pd.rxRateLimitEnabled())) {
      line("   no lldp receive rate-limit");
   }
   if (p.ztpBootVlan() != pd.ztpBootVlan()) {
      line("   lldp ztp vlan " + std::to_string(p.ztpBootVlan().value()));
   }
   if (p.poeAllocatedPowerFallback() != pd.poeAllocatedPowerFallback()) {
      line("   lldp power-via-mdi fallback " + std::to_string(p.poeAllocatedPowerFallback()));
   }
   if (p.remoteSystemLimit() != pd.remoteSystemLimit()) {
      line("   lldp neighbor-limit " + std::to_string(p.remoteSystemLimit()));
   }
}

void renderPortNetworkPolicies(const CliPortConfig& p, const LineOut& line) {
   for (const auto& [app, policy] : p.networkPolicyConfig()) {
      if (!networkPolicyAppName(app).empty()) line("   " + renderNetworkPolicy(policy));
   }
}

}  // namespace Config::detail

#include "Config/ConfigLanguage.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <string_view>

#include "Config/ConfigForms.h"
#include "Config/NetworkPolicyLanguage.h"

namespace Config {

namespace detail {

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
constexpr size_t intfNameMax = 15;  // a Linux interface name (IFNAMSIZ less the NUL)
constexpr size_t textMax = Lldp::BoundedString255::maxBytes;

// Records at their defaults, to read what a `no` form restores. Never destroyed.
const CliConfig& defaults() {
   static const CliConfig* d = new CliConfig();
   return *d;
}
const CliPortConfig& portDefaults() {
   static const CliPortConfig* d = new CliPortConfig(Wire::IntfId());
   return *d;
}

// --- Lines into words.

bool isSpace(char c) {
   return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

int hexDigit(char c) {
   if (c >= '0' && c <= '9') return c - '0';
   if (c >= 'a' && c <= 'f') return c - 'a' + 10;
   if (c >= 'A' && c <= 'F') return c - 'A' + 10;
   return -1;
}

// Splits a line into words, stopping at a comment. Returns an error text, empty if none.
std::string tokenize(std::string_view line, std::vector<Token>& out) {
   size_t i = 0;
   while (i < line.size()) {
      if (isSpace(line[i])) {
         ++i;
         continue;
      }
      if (line[i] == '!' || line[i] == '#') break;
      Token t;
      t.begin = i;
      if (line[i] != '"') {
         while (i < line.size() && !isSpace(line[i])) ++i;
         t.text = std::string(line.substr(t.begin, i - t.begin));
      } else {
         t.quoted = true;
         ++i;
         bool closed = false;
         while (i < line.size()) {
            char c = line[i++];
            if (c == '"') {
               closed = true;
               break;
            }
            if (c != '\\') {
               t.text.push_back(c);
               continue;
            }
            if (i >= line.size()) break;
            char e = line[i++];
            if (e == '"' || e == '\\') {
               t.text.push_back(e);
            } else if (e == 'x' && i + 1 < line.size() && hexDigit(line[i]) >= 0 &&
                       hexDigit(line[i + 1]) >= 0) {
               t.text.push_back(char(hexDigit(line[i]) * 16 + hexDigit(line[i + 1])));
               i += 2;
            } else {
               return std::string("unknown escape '\\") + e + "' in quoted text";
            }
         }
         if (!closed) return "unterminated quoted text";
         if (i < line.size() && !isSpace(line[i])) return "text after closing quote";
      }
      t.end = i;
      out.push_back(std::move(t));
   }
   return {};
}

std::string joinWords(const std::vector<std::string_view>& words) {
   std::string s;
   for (auto w : words) {
      if (!s.empty()) s += ' ';
      s += w;
   }
   return s;
}

// --- Arguments.

std::string rangeText(uint64_t lo, uint64_t hi) {
   return std::to_string(lo) + ".." + std::to_string(hi);
}

// Parses a decimal number in lo..hi into `out`; returns an error text, empty if none.
std::string parseNumber(const std::string& s, uint64_t lo, uint64_t hi, uint64_t& out) {
   if (s.empty() || s[0] < '0' || s[0] > '9') return "'" + s + "' is not a number";
   auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
   if (end != s.data() + s.size()) return "'" + s + "' is not a number";
   if (ec == std::errc::result_out_of_range || out < lo || out > hi) {
      return s + " is out of range " + rangeText(lo, hi);
   }
   return {};
}

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

// An interface (or VRF) name as Linux takes it.
std::string checkName(const char* what, const std::string& s) {
   if (s.empty()) return std::string(what) + " is empty";
   if (s.size() > intfNameMax) {
      return std::string(what) + " '" + Vel::printableBytes(s) + "' is longer than " +
             std::to_string(intfNameMax) + " bytes";
   }
   for (char c : s) {
      auto u = static_cast<unsigned char>(c);
      if (u <= 0x20 || u == 0x7f) {
         return std::string(what) + " '" + Vel::printableBytes(s) + "' has a space or control byte";
      }
   }
   if (s[0] == '!' || s[0] == '#' || s[0] == '"') {
      return std::string(what) + " '" + s + "' starts with '" + s[0] + "'";
   }
   return {};
}

// The rest of the line as text: one quoted word, or the words as written.
std::string parseText(const Args& a, std::string& out) {
   if (a.count == 1 && a.first[0].quoted) {
      out = a.first[0].text;
   } else {
      for (size_t i = 0; i < a.count; ++i) {
         if (a.first[i].quoted) return "quote the whole text or none of it";
      }
      size_t b = a.first[0].begin;
      out = std::string(a.line.substr(b, a.first[a.count - 1].end - b));
   }
   if (out.size() > textMax) {
      return "text is " + std::to_string(out.size()) + " bytes, at most " +
             std::to_string(textMax) + " allowed";
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

const std::vector<Form>& forms() {
   static const std::vector<Form> table = [] {
      std::vector<Form> f;
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
           [](const Args&) {
              return global([](CliConfig& c) { c.rxTaggedPacketsDropIs(false); });
           }});
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
                  [](CliPortConfig& p) {
                     p.remoteSystemLimitIs(portDefaults().remoteSystemLimit());
                  });
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
      f.push_back({Scope::port,
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
                   [](const Args&) {
                      return port([](CliPortConfig& p) { p.rxRateLimitEnabledIs(false); });
                   }});
      f.push_back(
          {Scope::port,
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
      addClassificationForms(f);
      // LLDP-MED network policies (Config/NetworkPolicyLanguage.h).
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
      return f;
   }();
   return table;
}

// The form whose keywords are the longest prefix of the words.
const Form* match(const std::vector<Token>& t, size_t from) {
   const Form* best = nullptr;
   for (const Form& f : forms()) {
      if (t.size() - from < f.words.size()) continue;
      if (best && best->words.size() >= f.words.size()) continue;
      bool all = true;
      for (size_t i = 0; i < f.words.size() && all; ++i) all = t[from + i].text == f.words[i];
      if (all) best = &f;
   }
   return best;
}

std::string commandText(std::string_view line, const std::vector<Token>& t) {
   return std::string(line.substr(t.front().begin, t.back().end - t.front().begin));
}

// Parses every line into operations on the whole configuration.
Result parse(const std::vector<std::string>& lines, std::vector<Op>& ops) {
   std::optional<Wire::IntfId> block;  // the port of the open interface block
   std::vector<Token> t;
   for (size_t n = 0; n < lines.size(); ++n) {
      const std::string& line = lines[n];
      auto bad = [&](std::string reason) { return Result{Error{int(n + 1), std::move(reason)}}; };
      t.clear();
      if (auto e = tokenize(line, t); !e.empty()) return bad(e);
      if (t.empty()) continue;
      const bool indented = isSpace(line[0]);

      // Block structure first: these work at any indentation.
      if (t[0].text == "exit" && t.size() == 1) {
         block.reset();
         continue;
      }
      bool no = t[0].text == "no";
      size_t from = no ? 1 : 0;
      if (t.size() > from && t[from].text == "interface") {
         if (t.size() != from + 2) {
            return bad(std::string(no ? "no " : "") + "interface: expected '" + (no ? "no " : "") +
                       "interface NAME'");
         }
         const std::string& name = t[from + 1].text;
         if (auto e = checkName("interface name", name); !e.empty()) {
            return bad(std::string(no ? "no " : "") + "interface: " + e);
         }
         Wire::IntfId intf(name);
         if (no) {
            block.reset();
            ops.push_back([intf](CliConfig& c) { c.cliPortConfigDel(intf); });
         } else {
            block = intf;
            ops.push_back([intf](CliConfig& c) { c.cliPortConfigIs(intf); });
         }
         continue;
      }

      const Form* f = match(t, from);
      if (!f || !(no ? f->no : f->yes)) {
         if (f && !no && !f->yes) {
            return bad(joinWords(f->words) + ": expected '" + f->yesUsage + "'");
         }
         return bad("unknown command '" + commandText(line, t) + "'");
      }
      std::string name = (no ? "no " : "") + joinWords(f->words);
      // As on a switch's command line, per-port commands after `interface NAME` apply to
      // that port whether indented or not (a command with both forms included); a global
      // command ends the block. An indented global command is refused: the indentation
      // says the operator meant the port.
      if (f->scope == Scope::global) {
         if (block && indented) {
            return bad("'" + name +
                       "' is not a per-port command: end the interface block (no indentation) "
                       "first");
         }
         block.reset();
      }
      if (f->scope == Scope::port && !block) {
         return bad("'" + name + "' is a per-port command: put it after 'interface NAME'");
      }
      size_t argc = t.size() - from - f->words.size();
      int want = no ? f->noArgs : f->yesArgs;
      if (want == textArg ? argc == 0 : argc != size_t(want)) {
         return bad(name + ": expected '" + (no ? f->noUsage : f->yesUsage) + "'");
      }
      Args args{line, argc ? &t[from + f->words.size()] : nullptr, argc};
      Built b = (no ? f->no : f->yes)(args);
      if (!b.error.empty()) return bad(name + ": " + b.error);
      if (b.portOp && (f->scope == Scope::port || block)) {
         ops.push_back([intf = *block, op = std::move(b.portOp)](CliConfig& c) {
            op(*c.cliPortConfigIs(intf));
         });
      } else {
         ops.push_back(std::move(b.op));
      }
   }
   return {};
}

// --- Bringing one record in line with another, attribute by attribute. A collection
// added to the records must be taught here; it does not compile until it is.

#define CONFIG_SYNC_NONE2(a, b)
#define CONFIG_SYNC_NONE3(a, b, c)
#define CONFIG_SYNC_NONE4(a, b, c, d)
#define CONFIG_SYNC_ATTR(T, n, d) to.n##Is(from.n());
#define CONFIG_SYNC_UNKNOWN(K, V, n) \
   static_assert(sizeof(K) == 0, "Config: teach syncing about collection " #n);
#define CONFIG_SYNC_VALUES(K, V, n)                         \
   syncValues(                                              \
       from.n(), to.n(), [&](const K& k) { to.n##Del(k); }, \
       [&](const K& k, const V& v) { to.n##Is(k, v); });

// A collection of values: what `from` lacks goes, the rest is written (unchanged values
// notify no one).
template <class Map, class Del, class Set>
void syncValues(const Map& from, const Map& to, Del del, Set set) {
   std::vector<typename Map::value_type::first_type> gone;
   for (const auto& [k, v] : to) {
      if (!from.find(k)) gone.push_back(k);
   }
   for (const auto& k : gone) del(k);
   for (const auto& [k, v] : from) set(k, v);
}

void syncPort(const CliPortConfig& from, CliPortConfig& to) {
   LLDP_CLI_PORT_CONFIG_ATTRS(CONFIG_SYNC_NONE2, CONFIG_SYNC_ATTR, CONFIG_SYNC_NONE2,
                              CONFIG_SYNC_VALUES, CONFIG_SYNC_VALUES, CONFIG_SYNC_UNKNOWN,
                              CONFIG_SYNC_NONE4)
}

void sync(const CliConfig& from, CliConfig& to) {
   LLDP_CLI_CONFIG_ATTRS(CONFIG_SYNC_NONE2, CONFIG_SYNC_ATTR, CONFIG_SYNC_NONE2,
                         CONFIG_SYNC_UNKNOWN, CONFIG_SYNC_VALUES, CONFIG_SYNC_NONE3,
                         CONFIG_SYNC_NONE4)
   std::vector<Wire::IntfId> gone;
   for (const auto& [intf, p] : to.cliPortConfig()) {
      if (!from.cliPortConfig(intf)) gone.push_back(intf);
   }
   for (const auto& intf : gone) to.cliPortConfigDel(intf);
   for (const auto& [intf, p] : from.cliPortConfig()) syncPort(*p, *to.cliPortConfigIs(intf));
}

// --- Rendering.

// Text that reads back as itself without quotes: printable, no surrounding space, no
// quote, and no word that would start a comment.
bool plainText(std::string_view s) {
   if (s.empty() || isSpace(s.front()) || isSpace(s.back())) return false;
   for (size_t i = 0; i < s.size(); ++i) {
      auto u = static_cast<unsigned char>(s[i]);
      if ((u < 0x20 && s[i] != '\t') || u == 0x7f || s[i] == '"') return false;
      if ((s[i] == '!' || s[i] == '#') && (i == 0 || isSpace(s[i - 1]))) return false;
   }
   return true;
}

std::string textArgument(std::string_view s) {
   if (plainText(s)) return std::string(s);
   std::string q = "\"";
   for (char c : s) {
      auto u = static_cast<unsigned char>(c);
      if (c == '"' || c == '\\') {
         q += '\\';
         q += c;
      } else if (u < 0x20 || u == 0x7f) {
         char hex[5];
         std::snprintf(hex, sizeof hex, "\\x%02x", u);
         q += hex;
      } else {
         q += c;
      }
   }
   return q + '"';
}

std::string shortest(double v) {
   char buf[64];
   auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
   return std::string(buf, ec == std::errc() ? end : buf);
}

}  // namespace detail

using namespace detail;

std::vector<std::string> splitLines(const std::string& text) {
   std::vector<std::string> lines;
   size_t start = 0;
   while (start < text.size()) {
      size_t nl = text.find('\n', start);
      size_t end = nl == std::string::npos ? text.size() : nl;
      size_t stop = end > start && text[end - 1] == '\r' ? end - 1 : end;
      lines.push_back(text.substr(start, stop - start));
      start = end + 1;
   }
   return lines;
}

Result apply(const std::vector<std::string>& lines, CliConfig& target) {
   std::vector<Op> ops;
   Result r = parse(lines, ops);
   if (!r) return r;
   for (const Op& op : ops) op(target);
   return r;
}

Result load(const std::string& text, CliConfig& target) {
   Vel::Ptr<CliConfig> scratch = Vel::make<CliConfig>();
   Result r = Config::apply(splitLines(text), *scratch);
   if (r) sync(*scratch, target);
   return r;
}

std::string render(const CliConfig& c) {
   const CliConfig& d = defaults();
   std::string out;
   auto line = [&](const std::string& s) { out += s + '\n'; };
   auto flag = [&](bool v, bool dv, const std::string& cmd, const char* indent = "") {
      if (v != dv) line(indent + std::string(v ? "" : "no ") + cmd);
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
   renderTlvAndBypass(c, line);
   renderClassification(c, line);

   const CliPortConfig& pd = portDefaults();
   for (const auto& [intf, p] : c.cliPortConfig()) {
      line("interface " + intf.stringValue());
      uint8_t bits = adminBits(p->adminStatus()), defaultBits = adminBits(pd.adminStatus());
      flag(bits & 1, defaultBits & 1, "lldp transmit", "   ");
      flag(bits & 2, defaultBits & 2, "lldp receive", "   ");
      // The plain form sets the numbers and switches the limit on; `no` only switches off.
      bool numbers = p->rxRateLimitMaxLldpdus() != pd.rxRateLimitMaxLldpdus() ||
                     p->rxRateLimitInterval() != pd.rxRateLimitInterval();
      if (numbers || (p->rxRateLimitEnabled() && !pd.rxRateLimitEnabled())) {
         line("   lldp receive rate-limit " + std::to_string(p->rxRateLimitMaxLldpdus()) +
              " interval " + shortest(p->rxRateLimitInterval()));
      }
      if (!p->rxRateLimitEnabled() && (numbers || pd.rxRateLimitEnabled())) {
         line("   no lldp receive rate-limit");
      }
      if (p->ztpBootVlan() != pd.ztpBootVlan()) {
         line("   lldp ztp vlan " + std::to_string(p->ztpBootVlan().value()));
      }
      if (p->poeAllocatedPowerFallback() != pd.poeAllocatedPowerFallback()) {
         line("   lldp power-via-mdi fallback " + std::to_string(p->poeAllocatedPowerFallback()));
      }
      if (p->remoteSystemLimit() != pd.remoteSystemLimit()) {
         line("   lldp neighbor-limit " + std::to_string(p->remoteSystemLimit()));
      }
      renderPortTlvAndBypass(*p, line);
      renderPortClassification(*p, line);
      for (const auto& [app, policy] : p->networkPolicyConfig()) {
         if (!networkPolicyAppName(app).empty()) line("   " + renderNetworkPolicy(policy));
      }
   }
   return out;
}

}  // namespace Config

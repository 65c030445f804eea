// Commands for the operator's own organizationally specific TLVs and for LLDP bypass.
#include "Config/ConfigForms.h"
#include "Records/LldpExternalTlv.h"

namespace Config::detail {

namespace {

constexpr uint64_t subtypeMax = 255;

// "OUI subtype N": the key of an operator TLV (one per OUI and subtype on a port).
std::string parseTlvKey(const Args& a, Lldp::UnknownOrgDefTlv::Key& key) {
   auto oui = Lldp::parseOui(a[0]);
   if (!oui) return "'" + a[0] + "' is not an OUI (three hex bytes, as 00-80-c2)";
   if (a[1] != "subtype") return "expected 'subtype' after the OUI, not '" + a[1] + "'";
   uint64_t subtype;
   if (auto e = parseNumber(a[2], 0, subtypeMax, subtype); !e.empty()) return e;
   key = Lldp::UnknownOrgDefTlv::Key({.oui = *oui, .subtype = uint8_t(subtype), .index = 0});
   return {};
}

Built tlvYes(const Args& a) {
   Lldp::UnknownOrgDefTlv::Key key;
   if (auto e = parseTlvKey(a, key); !e.empty()) return fail(e);
   if (a[3] != "info") return fail("expected 'info' after the subtype, not '" + a[3] + "'");
   auto info = Lldp::parseHexBytes(a[4]);
   if (!info) return fail("'" + a[4] + "' is not hex bytes (as 0a1b2c or 0a:1b:2c)");
   if (info->size() > Lldp::maxOrgDefInfo) {
      return fail("info is " + std::to_string(info->size()) + " bytes, at most " +
                  std::to_string(Lldp::maxOrgDefInfo) + " allowed");
   }
   Lldp::UnknownOrgDefTlv tlv({.key = key, .value = *info});
   return port([tlv](CliPortConfig& p) { p.externalTlvIs(tlv); });
}

Built tlvNo(const Args& a) {
   Lldp::UnknownOrgDefTlv::Key key;
   if (auto e = parseTlvKey(a, key); !e.empty()) return fail(e);
   return port([key](CliPortConfig& p) { p.externalTlvDel(key); });
}

// Hex digits, or "" for no information at all (a word of its own on the line).
std::string infoText(std::string_view info) {
   return info.empty() ? std::string("\"\"") : Lldp::hexText(info);
}

}  // namespace

void addTlvAndBypassForms(std::vector<Form>& f) {
   f.push_back({Scope::port,
                {"lldp", "tlv", "oui"},
                5,
                "lldp tlv oui OUI subtype 0..255 info HEX",
                tlvYes,
                3,
                "no lldp tlv oui OUI subtype 0..255",
                tlvNo});
   f.push_back(
       {Scope::global,
        {"dot1x", "lldp", "bypass"},
        0,
        "dot1x lldp bypass",
        [](const Args&) { return global([](CliConfig& c) { c.dot1xLldpBypassIs(true); }); },
        0,
        "no dot1x lldp bypass",
        [](const Args&) { return global([](CliConfig& c) { c.dot1xLldpBypassIs(false); }); }});
   f.push_back(
       {Scope::port,
        {"macsec", "lldp", "bypass"},
        0,
        "macsec lldp bypass",
        [](const Args&) { return port([](CliPortConfig& p) { p.macsecLldpBypassIs(true); }); },
        0,
        "no macsec lldp bypass",
        [](const Args&) { return port([](CliPortConfig& p) { p.macsecLldpBypassIs(false); }); }});
}

void renderTlvAndBypass(const CliConfig& c, const LineOut& line) {
   if (c.dot1xLldpBypass()) line("dot1x lldp bypass");
}

void renderPortTlvAndBypass(const CliPortConfig& p, const LineOut& line) {
   if (p.macsecLldpBypass()) line("   macsec lldp bypass");
   for (const auto& [key, tlv] : p.externalTlv()) {
      line("   lldp tlv oui " + key.oui().stringValue() + " subtype " +
           std::to_string(key.subtype()) + " info " + infoText(tlv.value().value()));
   }
}

}  // namespace Config::detail

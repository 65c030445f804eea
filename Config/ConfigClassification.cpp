// Commands for neighbour classification and for letting telephones through ports that
// 802.1X holds:
//    lldp classification mac MAC telephone|device      no lldp classification mac MAC
//        switch-wide outside an interface block, for that port alone inside one
//    dot1x telephone bypass                            no dot1x telephone bypass  (per port)
#include "Config/ConfigForms.h"

namespace Config::detail {

namespace {

using Identity::NbrClassification::NbrClass;

std::string parseStation(const std::string& text, Wire::EthAddr& out) {
   auto mac = Wire::EthAddr::parse(text);
   if (!mac) return "'" + text + "' is not a MAC address (as 00:1c:73:aa:bb:cc)";
   if (mac->isZero() || mac->isMulticast()) {
      return "'" + text + "' is not a station's address (zero or multicast)";
   }
   out = *mac;
   return {};
}

Built classificationYes(const Args& a) {
   Wire::EthAddr mac;
   if (auto e = parseStation(a[0], mac); !e.empty()) return fail(e);
   auto nbrClass = NbrClass::parse(a[1]);
   if (!nbrClass) return fail("'" + a[1] + "' is not a class (telephone or device)");
   const NbrClass c = *nbrClass;
   return either([mac, c](CliConfig& g) { g.nbrClassificationIs(mac, c); },
                 [mac, c](CliPortConfig& p) { p.nbrClassificationIs(mac, c); });
}

Built classificationNo(const Args& a) {
   Wire::EthAddr mac;
   if (auto e = parseStation(a[0], mac); !e.empty()) return fail(e);
   return either([mac](CliConfig& g) { g.nbrClassificationDel(mac); },
                 [mac](CliPortConfig& p) { p.nbrClassificationDel(mac); });
}

std::string classificationLine(const Wire::EthAddr& mac, NbrClass c) {
   return "lldp classification mac " + mac.stringValue() + " " + c.stringValue();
}

}  // namespace

void addClassificationForms(std::vector<Form>& f) {
   f.push_back({Scope::either,
                {"lldp", "classification", "mac"},
                2,
                "lldp classification mac MAC telephone|device",
                classificationYes,
                1,
                "no lldp classification mac MAC",
                classificationNo});
   f.push_back(
       {Scope::port,
        {"dot1x", "telephone", "bypass"},
        0,
        "dot1x telephone bypass",
        [](const Args&) { return port([](CliPortConfig& p) { p.dot1xTelephoneBypassIs(true); }); },
        0,
        "no dot1x telephone bypass",
        [](const Args&) {
           return port([](CliPortConfig& p) { p.dot1xTelephoneBypassIs(false); });
        }});
}

void renderClassification(const CliConfig& c, const LineOut& line) {
   for (const auto& [mac, nbrClass] : c.nbrClassification()) {
      line(classificationLine(mac, nbrClass));
   }
}

void renderPortClassification(const CliPortConfig& p, const LineOut& line) {
   if (p.dot1xTelephoneBypass()) line("   dot1x telephone bypass");
   for (const auto& [mac, nbrClass] : p.nbrClassification()) {
      line("   " + classificationLine(mac, nbrClass));
   }
}

}  // namespace Config::detail

#include "Records/LldpExternalTlv.h"

#include <map>

namespace Lldp {

namespace {

int hexValue(char c) {
   if (c >= '0' && c <= '9') return c - '0';
   if (c >= 'a' && c <= 'f') return c - 'a' + 10;
   if (c >= 'A' && c <= 'F') return c - 'A' + 10;
   return -1;
}

// A name the kernel would take for an interface.
std::string checkIntfName(const std::string& name) {
   constexpr size_t maxLinuxName = 15;
   if (name.empty()) return "an interface name is empty";
   bool valid = name.size() <= maxLinuxName && name != "." && name != "..";
   for (char c : name) {
      const auto u = static_cast<unsigned char>(c);
      valid = valid && u > 0x20 && u != 0x7f && c != '/' && c != ':';
   }
   if (valid) return {};
   // Appended piece by piece: g++ 12 at -O3 warns (falsely) about an overlapping copy in
   // the concatenation of a one-character literal and a string.
   std::string why = Vel::printableBytes(name);
   why.insert(why.begin(), '\'');
   why += "' is not an interface name";
   return why;
}

}  // namespace

std::optional<Oui> parseOui(std::string_view text) {
   auto bytes = parseHexBytes(text);
   if (!bytes || bytes->size() != 3 || text.size() != 8) return std::nullopt;
   const auto b = [&](size_t i) { return uint32_t(static_cast<unsigned char>((*bytes)[i])); };
   return Oui(b(0) << 16 | b(1) << 8 | b(2));
}

std::optional<std::string> parseHexBytes(std::string_view text) {
   std::string out;
   size_t i = 0;
   while (i < text.size()) {
      if (i + 1 >= text.size()) return std::nullopt;
      const int hi = hexValue(text[i]), lo = hexValue(text[i + 1]);
      if (hi < 0 || lo < 0) return std::nullopt;
      out.push_back(char(hi * 16 + lo));
      i += 2;
      // One separator between bytes, never at the end.
      if (i < text.size() && (text[i] == ':' || text[i] == '-')) {
         if (++i == text.size()) return std::nullopt;
      }
   }
   return out;
}

std::string hexText(std::string_view bytes) {
   static const char digits[] = "0123456789abcdef";
   std::string out;
   for (char c : bytes) {
      const auto u = static_cast<unsigned char>(c);
      out.push_back(digits[u >> 4]);
      out.push_back(digits[u & 0xf]);
   }
   return out;
}

std::string parseExternalTlvSet(const Vel::Json& tlvs, ExternalTlvSet* out) {
   if (!tlvs.is_object()) return "\"tlvs\" must be an object of interfaces, or null";
   ExternalTlvSet set;
   for (auto it = tlvs.begin(); it != tlvs.end(); ++it) {
      if (auto e = checkIntfName(it.key()); !e.empty()) return e;
      if (!it.value().is_array()) return "the TLVs of " + it.key() + " must be a list";
      std::vector<UnknownOrgDefTlv> list;
      std::map<std::pair<uint32_t, int>, int> count;  // (OUI, subtype) -> TLVs so far
      for (const Vel::Json& t : it.value()) {
         const std::string where = "a TLV of " + it.key();
         if (!t.is_object()) return where + " is not an object";
         for (auto f = t.begin(); f != t.end(); ++f) {
            if (f.key() != "oui" && f.key() != "subtype" && f.key() != "info") {
               return where + " has an unknown field '" + f.key() + "'";
            }
         }
         const Vel::Json* oui = t.contains("oui") ? &t["oui"] : nullptr;
         std::optional<Oui> o;
         if (oui && oui->is_string()) o = parseOui(oui->get<std::string>());
         if (!o) return where + ": \"oui\" must be three hex bytes like \"33-44-66\"";
         if (!t.contains("subtype") || !t["subtype"].is_number_unsigned() ||
             t["subtype"].get<uint64_t>() > 255) {
            return where + ": \"subtype\" must be a number from 0 to 255";
         }
         const int subtype = t["subtype"].get<int>();
         std::optional<std::string> info;
         if (t.contains("info") && t["info"].is_string())
            info = parseHexBytes(t["info"].get<std::string>());
         if (!info) return where + ": \"info\" must be hex bytes";
         if (info->size() > maxOrgDefInfo) {
            return where + ": \"info\" has " + std::to_string(info->size()) + " bytes, more than " +
                   std::to_string(maxOrgDefInfo);
         }
         const int index = count[{o->value(), subtype}]++;
         list.push_back(UnknownOrgDefTlv(
             {.key = UnknownOrgDefTlvKey({.oui = *o, .subtype = uint8_t(subtype), .index = index}),
              .value = *info}));
      }
      set.emplace_back(Wire::IntfId(it.key()), std::move(list));
   }
   *out = std::move(set);
   return {};
}

void externalTlvConfigIs(ExternalTlvConfig& config, const ExternalTlvSet& set) {
   std::map<Wire::IntfId, const std::vector<UnknownOrgDefTlv>*> wanted;
   for (const auto& [intf, list] : set) wanted[intf] = &list;
   std::vector<Wire::IntfId> gone;
   for (const auto& [intf, p] : config.portConfig()) {
      if (!wanted.count(intf)) gone.push_back(intf);
   }
   for (const auto& intf : gone) config.portConfigDel(intf);
   for (const auto& [intf, list] : wanted) {
      auto port = config.portConfigIs(intf);
      std::map<UnknownOrgDefTlv::Key, const UnknownOrgDefTlv*> keep;
      for (const auto& t : *list) keep[t.key()] = &t;
      std::vector<UnknownOrgDefTlv::Key> stale;
      for (const auto& [key, t] : port->tlv()) {
         if (!keep.count(key)) stale.push_back(key);
      }
      for (const auto& key : stale) port->tlvDel(key);
      for (const auto& [key, t] : keep) port->tlvIs(*t);
      config.portConfigTouched(intf);
   }
}

}  // namespace Lldp

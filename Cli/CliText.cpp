#include "Cli/CliText.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <vector>

namespace Cli {

namespace {

using Json = Vel::Json;

// A value as text: strings as they are, numbers without trailing zeros, arrays joined.
std::string text(const Json& j) {
   if (j.is_string()) return j.get<std::string>();
   if (j.is_null()) return "";
   if (j.is_array()) {
      std::string s;
      for (const auto& e : j) s.append(s.empty() ? "" : ", ").append(text(e));
      return s;
   }
   return j.dump();
}

std::string str(const Json& j, const char* key) {
   auto it = j.find(key);
   return it == j.end() ? std::string() : text(*it);
}

double num(const Json& j, const char* key) {
   auto it = j.find(key);
   return it != j.end() && it->is_number() ? it->get<double>() : 0;
}

bool flag(const Json& j, const char* key) {
   auto it = j.find(key);
   return it != j.end() && it->is_boolean() && it->get<bool>();
}

const Json& member(const Json& j, const char* key) {
   static const Json empty;
   auto it = j.find(key);
   return it == j.end() ? empty : *it;
}

std::string fmt(const char* format, double v) {
   char buf[64];
   std::snprintf(buf, sizeof buf, format, v);
   return buf;
}

// "00:1c:73:00:00:01 (macAddress)", "10.0.0.1 (ipv4)"
std::string identifierText(const Json& id) {
   return str(id, id.contains("address") ? "address" : "value") + " (" + str(id, "subtype") + ")";
}

std::string integer(const char* format, double v) {
   char buf[64];
   std::snprintf(buf, sizeof buf, format, static_cast<long long>(v));
   return buf;
}

// Rows of cells printed under a header, each column as wide as its widest cell.
class Table {
public:
   explicit Table(std::vector<std::string> header) { rows_.push_back(std::move(header)); }
   void row(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
   std::string str() const {
      std::vector<size_t> width;
      for (const auto& r : rows_) {
         width.resize(std::max(width.size(), r.size()));
         for (size_t i = 0; i < r.size(); ++i) width[i] = std::max(width[i], r[i].size());
      }
      std::string out;
      for (const auto& r : rows_) {
         std::string line;
         for (size_t i = 0; i < r.size(); ++i) {
            line += r[i];
            if (i + 1 < r.size()) line.append(width[i] - r[i].size() + 2, ' ');
         }
         out += line + "\n";
      }
      return out;
   }

private:
   std::vector<std::vector<std::string>> rows_;
};

// "  Label               : value" lines of a block; empty values are left out.
class Block {
public:
   void line(const std::string& label, const std::string& value) {
      if (value.empty()) return;
      out_ += "  " + label;
      out_.append(label.size() < 20 ? 20 - label.size() : 0, ' ');
      out_ += ": " + value + "\n";
   }
   const std::string& str() const { return out_; }

private:
   std::string out_;
};

// A number by the name the view gives it beside (key + "Name"), or as the number.
std::string named(const Json& j, const std::string& key) {
   auto it = j.find(key + "Name");
   return it != j.end() && it->is_string() ? it->get<std::string>() : str(j, key.c_str());
}

// "10GBASE-T (54)": the name with the number, or the number alone when it has no name.
std::string namedWithNumber(const Json& j, const std::string& key) {
   const std::string name = named(j, key), number = str(j, key.c_str());
   return name == number ? number : name + " (" + number + ")";
}

std::string watts(double tenths) {
   return fmt("%.1f W", tenths / 10.0);
}

// The Power via MDI TLV in whichever form it came.
std::string powerViaMdiText(const Json& p) {
   const int support = int(num(p, "mdiPowerSupport"));
   std::string s = (support & 0x01) ? "PSE" : "PD";
   s += (support & 0x02) ? ", supported" : ", not supported";
   s += (support & 0x04) ? ", enabled" : ", disabled";
   s += ", power pair " + named(p, "psePowerPair");
   // Classes 0..4 travel as 1..5.
   if (num(p, "powerClass") >= 1) s += ", " + named(p, "powerClass");
   if (num(p, "form") >= 2) {
      s += ", " + str(p, "powerTypeName");
      s += ", source " + str(p, "powerSourceName");
      s += ", priority " + str(p, "powerPriorityName");
      s += ", requested " + watts(num(p, "pdRequestedPower"));
      s += ", allocated " + watts(num(p, "pseAllocatedPower"));
   }
   if (num(p, "form") >= 3) {
      s += ", requested A/B " + watts(num(p, "pdRequestedPowerA")) + "/" +
           watts(num(p, "pdRequestedPowerB"));
      s += ", allocated A/B " + watts(num(p, "pseAllocatedPowerA")) + "/" +
           watts(num(p, "pseAllocatedPowerB"));
      s += ", maximum available " + watts(num(p, "pseMaxAvailablePower"));
      s += ", 802.3bt " + str(p, "powerTypeExtName") + ", " + str(p, "powerClassExtName");
   }
   return s;
}

std::string policyText(const Json& p) {
   std::string s = named(p, "appType") + ": ";
   if (flag(p, "unknown")) return s + "unknown policy";
   s += flag(p, "tagged") ? fmt("VLAN %.0f tagged", num(p, "vlanId")) : "untagged";
   s += fmt(", priority %.0f", num(p, "priority"));
   s += fmt(", DSCP %.0f", num(p, "dscp"));
   return s;
}

std::string locationText(const Json& l) {
   switch (int(num(l, "format"))) {
      case 1:
         return named(l, "format") + " " + str(l, "coordinate");
      case 2: {
         const Json& c = member(l, "civicAddress");
         std::string s = named(l, "format") + ", country " + str(c, "countryCode");
         for (const auto& e : member(c, "caElements")) {
            s += ", " + namedWithNumber(e, "caType") + ": " + str(e, "caValue");
         }
         return s;
      }
      case 3:
         return named(l, "format") + " " + str(l, "elin");
      default:
         return "";
   }
}

std::string neighborDetail(const std::string& intf, const Json& r, double now) {
   std::string out = "Interface " + intf + fmt(", neighbor %.0f", num(r, "index")) + "\n";
   Block b;
   b.line("Chassis ID", identifierText(member(r, "chassisIdentifier")));
   b.line("Port ID", identifierText(member(r, "portIdentifier")));
   b.line("Source MAC", str(r, "ethAddr"));
   b.line("TTL", fmt("%.0f s", num(r, "ttl")) + ", expires in " +
                     durationText(num(r, "expiryTime") - now));
   b.line("Age", durationText(now - num(r, "creationTime")) + ", last change " +
                     durationText(now - num(r, "lastChangeTime")) + " ago");
   b.line("Port description", str(r, "portDesc"));
   b.line("System name", str(r, "sysName"));
   b.line("System description", str(r, "sysDesc"));
   const Json& caps = member(r, "systemCapabilities");
   if (!member(caps, "supported").empty()) {
      b.line("Capabilities", str(caps, "supported") + "; enabled: " +
                                 (member(caps, "enabled").empty() ? "none" : str(caps, "enabled")));
   }
   for (const auto& m : member(r, "managementAddress")) {
      std::string s = identifierText(member(m, "key"));
      static const char* const numbering[] = {"", "unknown", "ifIndex", "system port"};
      const int n = int(num(m, "ifNumberingSubtype"));
      if (n >= 1 && n <= 3)
         s += std::string(", interface ") + numbering[n] + fmt(" %.0f", num(m, "ifNumber"));
      if (!str(m, "oid").empty()) s += ", OID " + str(m, "oid");
      b.line("Management address", s);
   }
   if (flag(r, "portVlanIdTlvReceived")) b.line("Port VLAN ID", str(r, "portVlanId"));
   for (const auto& p : member(r, "portAndProtocolVlan")) {
      b.line("Protocol VLAN", str(p, "ppvid") + (flag(p, "supported") ? ", supported" : "") +
                                  (flag(p, "enabled") ? ", enabled" : ""));
   }
   std::string names;
   for (const auto& v : member(r, "vlanName")) {
      names += (names.empty() ? "" : ", ") + str(v, "vlanId") + " " + str(v, "name");
   }
   b.line("VLAN names", names);
   for (const auto& p : member(r, "protocolIdentityInfo"))
      b.line("Protocol identity", str(p, "identity"));
   if (flag(r, "vidUsageDigestTlvReceived")) b.line("VID usage digest", str(r, "vidUsageDigest"));
   if (flag(r, "managementVidTlvReceived")) b.line("Management VID", str(r, "managementVid"));
   if (flag(r, "linkAggregationTlvReceived")) {
      const Json& la = member(r, "linkAggregationInfo");
      b.line("Link aggregation",
             (member(la, "status").empty() ? "not capable" : str(la, "status")) +
                 fmt(", aggregated port %.0f", num(la, "aggregatedPortId")));
   }
   if (flag(r, "macPhyConfigStatusTlvReceived")) {
      const Json& m = member(r, "macPhyConfigStatusInfo");
      const std::string modes = text(member(m, "advertisedModes"));
      b.line("MAC/PHY", std::string("autonegotiation ") +
                            (flag(m, "autonegSupported") ? "supported" : "not supported") +
                            (flag(m, "autonegEnabled") ? " and enabled" : "") + ", advertised " +
                            (modes.empty() ? "nothing" : modes) +
                            integer(" (0x%04llx)", num(m, "pmdAutonegAdvertisedCapability")) +
                            ", MAU type " + namedWithNumber(m, "operationalMauType"));
   }
   if (flag(r, "powerViaMdiTlvReceived"))
      b.line("Power via MDI", powerViaMdiText(member(r, "powerViaMdiInfo")));
   if (flag(r, "maximumFrameSizeTlvReceived")) {
      b.line("Maximum frame size", str(member(r, "maximumFrameSizeInfo"), "maxFrameSize"));
   }
   if (flag(r, "medCapabilitiesTlvReceived")) {
      const Json& m = member(r, "medCapabilitiesInfo");
      b.line("LLDP-MED", str(m, "capabilities") + "; device type " + named(m, "deviceType"));
   }
   for (const auto& p : member(r, "networkPolicyTlv")) b.line("Network policy", policyText(p));
   b.line("Location", locationText(member(r, "locationId")));
   static const std::pair<const char*, const char*> inventory[] = {
       {"hardwareRevisionTlvInfo", "Hardware revision"},
       {"firmwareRevisionTlvInfo", "Firmware revision"},
       {"softwareRevisionTlvInfo", "Software revision"},
       {"serialNumberTlvInfo", "Serial number"},
       {"manufacturerNameTlvInfo", "Manufacturer"},
       {"modelNameTlvInfo", "Model"},
       {"assetIDTlvInfo", "Asset ID"}};
   for (const auto& [key, label] : inventory) b.line(label, str(r, key));
   if (num(r, "ztpBootVlan") != 0) b.line("ZTP boot VLAN", str(r, "ztpBootVlan"));
   for (const auto& t : member(r, "unknownTlv")) {
      b.line("Unknown TLV", "type " + str(t, "type") + ": " + str(t, "value"));
   }
   for (const auto& t : member(r, "unknownOrgDefTlv")) {
      const Json& k = member(t, "key");
      b.line("Organizational TLV",
             str(k, "oui") + " subtype " + str(k, "subtype") + ": " + str(t, "value"));
   }
   return out + b.str();
}

}  // namespace

std::string durationText(double s) {
   if (s < 0) return "-";
   const long long t = static_cast<long long>(s);
   char buf[32];
   if (t < 60) {
      std::snprintf(buf, sizeof buf, "%llds", t);
   } else if (t < 3600) {
      std::snprintf(buf, sizeof buf, "%lldm%02llds", t / 60, t % 60);
   } else if (t < 86400) {
      std::snprintf(buf, sizeof buf, "%lldh%02lldm", t / 3600, t % 3600 / 60);
   } else {
      std::snprintf(buf, sizeof buf, "%lldd%02lldh", t / 86400, t % 86400 / 3600);
   }
   return buf;
}

std::string neighborsText(const Json& view, bool detail) {
   const double now = num(view, "currentTime");
   if (detail) {
      std::string out;
      for (const auto& [intf, port] : member(view, "interfaces").items()) {
         for (const auto& r : member(port, "remoteSystem")) {
            if (!out.empty()) out += '\n';
            out += neighborDetail(intf, r, now);
         }
      }
      return out.empty() ? "No neighbors.\n" : out;
   }
   Table t({"Interface", "Chassis ID", "Port ID", "System name", "TTL", "Age"});
   size_t count = 0;
   for (const auto& [intf, port] : member(view, "interfaces").items()) {
      for (const auto& r : member(port, "remoteSystem")) {
         t.row({intf, str(member(r, "chassisIdentifier"), "value"),
                str(member(r, "portIdentifier"), "value"), str(r, "sysName"), str(r, "ttl"),
                durationText(now - num(r, "creationTime"))});
         ++count;
      }
   }
   return t.str() + "Total neighbors: " + std::to_string(count) + "\n";
}

std::string statisticsText(const Json& view) {
   const double now = num(view, "currentTime");
   auto ago = [&](const char* key) {
      const double t = num(view, key);
      return t > 0 ? durationText(now - t) + " ago" : std::string("never");
   };
   std::string out = "Neighbor tables: " + str(view, "remTablesInserts") + " inserts, " +
                     str(view, "remTablesDeletes") + " deletes, " + str(view, "remTablesDrops") +
                     " drops, " + str(view, "remTablesAgeouts") + " age-outs\n";
   out += "Last change " + ago("remTablesLastChangeTime") + ", last cleared " +
          ago("remTablesLastClearTime") + "\n";
   out += "Frames the kernel dropped before the agent read them: " +
          str(view, "rxFramesDroppedByKernel") + "\n";
   if (view.contains("clientLimits")) {
      const Json& l = view["clientLimits"];
      out += "Control clients refused for a limit: " + str(l, "clientsRefused") + " connections, " +
             str(l, "requestsTooLong") + " requests too long, " + str(l, "clientsDroppedUnread") +
             " dropped unread, " + str(l, "externalTlvSetsRefused") + " external TLV sets, " +
             str(l, "powerRequestsRefused") + " power requests\n";
   }
   out += "\n";
   Table t({"Interface", "TxFrames", "RxFrames", "RxDiscarded", "RxErrors", "TLVsDiscarded",
            "TLVsUnknown", "Ageouts", "RateLimited", "NbrRefused", "NbrRefusedTotal", "TxTooLong",
            "TxNoMem", "TxErrors"});
   for (const auto& [intf, p] : member(view, "interfaces").items()) {
      t.row({intf, str(p, "txFramesTotal"), str(p, "rxFramesTotal"),
             str(p, "rxFramesDiscardedTotal"), str(p, "rxFramesErrors"),
             str(p, "rxTLVsDiscardedTotal"), str(p, "rxTLVsUnrecognizedTotal"),
             str(p, "rxAgeoutsTotal"), str(p, "rxLldpdusRateLimited"), str(p, "rxNeighborsRefused"),
             str(p, "rxNeighborsRefusedTotalLimit"), str(p, "txFramesLengthExceeded"),
             str(p, "txFramesNoMemErrors"), str(p, "txFramesErrors")});
   }
   return out + t.str();
}

std::string localText(const Json& view) {
   Block b;
   b.line("Chassis ID", identifierText(member(view, "chassisIdentifier")));
   b.line("System name", str(view, "sysName"));
   b.line("System description", str(view, "sysDesc"));
   b.line("Capabilities",
          str(view, "sysCapSupported") + "; enabled: " +
              (member(view, "sysCapEnabled").empty() ? "none" : str(view, "sysCapEnabled")));
   // In the order they go on the wire, with the interface each comes from.
   for (const auto& m : member(view, "advertisedManagementAddress")) {
      const std::string from = str(m, "interface");
      b.line("Management address",
             identifierText(m) + (from.empty() ? std::string() : " (" + from + ")"));
   }
   b.line("Transmit interval", str(view, "messageTxInterval") + " s");
   b.line("Hold time (TTL)", str(view, "messageTxHoldTime") + " s");
   static const char* const admin[] = {"disabled", "tx only", "rx only", "tx and rx", "disabled"};
   Table t({"Interface", "Port ID", "Description", "PVID", "Max frame", "Admin", "VLAN names"});
   for (const auto& [intf, p] : member(view, "interfaces").items()) {
      std::string names;
      for (const auto& v : member(p, "vlanName")) {
         names += (names.empty() ? "" : ", ") + str(v, "vlanId") + " " + str(v, "name");
      }
      const int a = int(num(p, "adminStatus"));
      t.row({intf, identifierText(member(p, "portIdentifier")), str(p, "portDesc"),
             num(p, "portVlanId") ? str(p, "portVlanId") : "-",
             str(member(p, "maximumFrameSizeInfo"), "maxFrameSize"),
             admin[a >= 1 && a <= 3 ? a : 0], names});
   }
   std::string out = std::string("Local system\n").append(b.str()).append("\n").append(t.str());
   // Other programs' and the operator's TLVs, with who gave them.
   Table ext({"Interface", "OUI", "Subtype", "Info", "Client", "Sent"});
   bool any = false;
   for (const auto& [intf, p] : member(view, "interfaces").items()) {
      for (const auto& x : member(p, "externalTlv")) {
         ext.row({intf, str(x, "oui"), str(x, "subtype"), str(x, "info"), str(x, "client"),
                  x.value("advertised", false) ? "yes" : "no"});
         any = true;
      }
   }
   if (any) out.append("\nExternal TLVs\n").append(ext.str());
   // Network policies: what each port is configured with, and what it advertises now
   // (nothing until a neighbour has asked).
   Block policies;
   for (const auto& [intf, p] : member(view, "interfaces").items()) {
      for (const auto& c : member(p, "networkPolicyConfig")) {
         policies.line(intf + " configured", policyText(c));
      }
      for (const auto& a : member(p, "localNetworkPolicyTlv")) {
         policies.line(intf + " advertised", policyText(a));
      }
   }
   if (!policies.str().empty()) out.append("\nNetwork policies\n").append(policies.str());
   return out;
}

std::string powerText(const Json& view) {
   std::string out;
   for (const auto& [intf, p] : member(view, "interfaces").items()) {
      Block b;
      const Json& agent = member(p, "powerAgent");
      if (agent.is_object()) {
         b.line("Power agent",
                str(agent, "name") + ": " + str(agent, "state") +
                    integer(", PSE type %lld", num(agent, "pseType")) +
                    integer(", class %lld", num(agent, "powerClass")) + ", " +
                    named(agent, "psePowerPair") + " pairs, " + named(agent, "powerSource") +
                    " source, priority " + named(agent, "priority") + ", allocated " +
                    watts(num(agent, "allocatedPower") * 10) + ", maximum available " +
                    watts(num(agent, "maxAvailablePower") * 10));
      } else {
         b.line("Power agent", "none");
      }
      const Json& n = member(p, "neighbor");
      if (n.is_object()) {
         b.line("Neighbor",
                str(n, "ethAddr") + " " + str(n, "sysName") + " (index " + str(n, "index") + ")");
         b.line("Request", powerViaMdiText(member(n, "powerViaMdiInfo")));
      } else {
         b.line("Neighbor", "no power request");
      }
      const Json& tx = member(p, "powerViaMdiTx");
      if (tx.is_object()) {
         b.line("Power via MDI sent", std::string(flag(tx, "fallback") ? "(fallback) " : "") +
                                          powerViaMdiText(member(tx, "powerViaMdiInfo")));
      } else {
         b.line("Power via MDI sent", "none");
      }
      if (num(p, "poeAllocatedPowerFallback") > 0) {
         b.line("Fallback", integer("%lld mW", num(p, "poeAllocatedPowerFallback")));
      }
      out.append(out.empty() ? "" : "\n").append("Interface ").append(intf).append("\n");
      out.append(b.str());
   }
   return out;
}

std::string classificationText(const Json& view) {
   Table t(
       {"Interface", "MAC address", "Class", "Source", "Since", "Bypass", "Chassis ID", "Port ID"});
   for (const Json& c : member(view, "classifications")) {
      const Json& n = member(c, "neighbor");
      t.row({str(c, "intfId"), str(c, "ethAddr"), str(c, "nbrClass"), str(c, "source"),
             durationText(num(c, "age")), c.value("bypass", false) ? "yes" : "no",
             str(member(n, "chassisIdentifier"), "value"),
             str(member(n, "portIdentifier"), "value")});
   }
   std::string out = t.str();
   const double refused = num(view, "fdbWritesRefused");
   if (refused > 0) {
      out += "Forwarding entries the kernel refused: " + str(view, "fdbWritesRefused") + "\n";
   }
   return out;
}

std::string watchEventText(const Json& event) {
   if (event.contains("classification")) {
      const Json& c = member(event, "classification");
      std::string s = str(event, "event") + "  " + str(c, "intfId") + "  " + str(c, "ethAddr");
      if (c.contains("nbrClass")) s += "  " + str(c, "nbrClass") + " (" + str(c, "source") + ")";
      return s;
   }
   const Json& r = member(event, "remoteSystem");
   std::string s = str(event, "event");
   s.append(s.size() < 8 ? 8 - s.size() : 0, ' ');
   s += str(event, "interface") + "  chassis " + str(member(r, "chassisIdentifier"), "value") +
        "  port " + str(member(r, "portIdentifier"), "value");
   if (!str(r, "sysName").empty()) s += "  name " + str(r, "sysName");
   return s;
}

}  // namespace Cli

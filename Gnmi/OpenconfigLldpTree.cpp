// The records written out as the openconfig-lldp tree (with our extension containers
// under each neighbour), depth first, into a TreeSink.
#include <time.h>

#include <charconv>
#include <string>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/StateDb.h"
#include "Gnmi/GnmiPath.h"
#include "Gnmi/OpenconfigLldp.h"

namespace Gnmi::Oc {

const char* moduleName(Module m) {
   return m == moduleExt ? "lldp-agent-ext" : "openconfig-lldp";
}

Records Records::from(const Vel::StateDb& db) {
   Records r;
   r.cliConfig = db.entityAs<Lldp::CliConfig>(cliConfigPath);
   r.config = db.entityAs<Lldp::Config>(configPath);
   r.localSystem = db.entityAs<Lldp::LocalSystem>(localSystemPath);
   r.status = db.entityAs<Lldp::AllStatus>(allStatusPath);
   r.now = Vel::EventLoop::instance().now();
   timespec ts;
   clock_gettime(CLOCK_REALTIME, &ts);
   r.wallMinusAgent = static_cast<double>(ts.tv_sec) + ts.tv_nsec * 1e-9 - r.now;
   return r;
}

const SuppressibleTlv suppressibleTlvs[5] = {
    {"PORT_DESCRIPTION", "port-description", &Lldp::CliConfig::portDescriptionTx},
    {"SYSTEM_NAME", "system-name", &Lldp::CliConfig::systemNameTx},
    {"SYSTEM_DESCRIPTION", "system-description", &Lldp::CliConfig::systemDescriptionTx},
    {"SYSTEM_CAPABILITIES", "system-capabilities", &Lldp::CliConfig::systemCapabilitiesTx},
    {"MANAGEMENT_ADDRESS", "management-address", &Lldp::CliConfig::managementAddressTx},
};

std::vector<std::string> suppressedTlvs(const Lldp::CliConfig& c) {
   std::vector<std::string> out;
   for (const SuppressibleTlv& t : suppressibleTlvs) {
      if (!(c.*t.selected)()) out.push_back(std::string(typesModule) + ":" + t.identity);
   }
   return out;
}

const char* chassisIdTypeName(uint8_t subtype) {
   static const char* const names[] = {"",
                                       "CHASSIS_COMPONENT",
                                       "INTERFACE_ALIAS",
                                       "PORT_COMPONENT",
                                       "MAC_ADDRESS",
                                       "NETWORK_ADDRESS",
                                       "INTERFACE_NAME",
                                       "LOCAL"};
   return subtype < 8 ? names[subtype] : "";
}

const char* portIdTypeName(uint8_t subtype) {
   static const char* const names[] = {"",
                                       "INTERFACE_ALIAS",
                                       "PORT_COMPONENT",
                                       "MAC_ADDRESS",
                                       "NETWORK_ADDRESS",
                                       "INTERFACE_NAME",
                                       "AGENT_CIRCUIT_ID",
                                       "LOCAL"};
   return subtype < 8 ? names[subtype] : "";
}

namespace {

std::string typesIdentity(const char* name) {
   return std::string(typesModule) + ":" + name;
}

// Capability bits in the order of the system capabilities field, as LLDP_SYSTEM_CAPABILITY
// identities.
const char* const capabilityNames[] = {
    "OTHER",  "REPEATER",  "MAC_BRIDGE",          "WLAN_ACCESS_POINT",
    "ROUTER", "TELEPHONE", "DOCSIS_CABLE_DEVICE", "STATION_ONLY",
    "C_VLAN", "S_VLAN",    "TWO_PORT_MAC_RELAY"};

void counterLeaf(TreeSink& s, std::string_view name, uint64_t v) {
   s.leaf(name, Value(v), true);
}

void writeCounters(TreeSink& s, const Lldp::PortStatus* const* ports, size_t n, bool global,
                   uint64_t agedOut) {
   uint64_t in = 0, out = 0, errIn = 0, discard = 0, tlvDiscard = 0, tlvUnknown = 0, errOut = 0;
   for (size_t i = 0; i < n; ++i) {
      const Lldp::PortStatus& p = *ports[i];
      in += p.rxFramesTotal();
      out += p.txFramesTotal();
      errIn += p.rxFramesErrors();
      discard += p.rxFramesDiscardedTotal();
      tlvDiscard += p.rxTLVsDiscardedTotal();
      tlvUnknown += p.rxTLVsUnrecognizedTotal();
      errOut += p.txFramesErrors();
   }
   if (!s.enter("counters")) return;
   counterLeaf(s, "frame-in", in);
   counterLeaf(s, "frame-out", out);
   counterLeaf(s, "frame-error-in", errIn);
   counterLeaf(s, "frame-discard", discard);
   counterLeaf(s, "tlv-discard", tlvDiscard);
   counterLeaf(s, "tlv-unknown", tlvUnknown);
   if (global) {
      counterLeaf(s, "entries-aged-out", agedOut);
   } else {
      counterLeaf(s, "frame-error-out", errOut);
   }
   s.leave();
}

// The interfaces: those the agent has a configuration or a status for, in order.
template <class Fn>
void forEachInterface(const Records& r, Fn&& fn) {
   static const Lldp::Config noConfig;
   static const Lldp::AllStatus noStatus;
   const auto& a = (r.config ? *r.config : noConfig).portConfig();
   const auto& b = (r.status ? *r.status : noStatus).portStatus();
   auto i = a.begin();
   auto j = b.begin();
   while (i != a.end() || j != b.end()) {
      if (j == b.end() || (i != a.end() && i->first < j->first)) {
         fn((i++)->first);
      } else if (i == a.end() || j->first < i->first) {
         fn((j++)->first);
      } else {
         fn(i->first);
         ++i;
         ++j;
      }
   }
}

bool interfaceKnown(const Records& r, const Wire::IntfId& intf) {
   return (r.config && r.config->portConfig(intf)) || (r.status && r.status->portStatus(intf));
}

void writeTextLeaf(TreeSink& s, std::string_view name, std::string_view text,
                   Module m = moduleLldp) {
   if (!text.empty()) s.leaf(name, Value(std::string(text)), false, m);
}

void writeNeighborState(const Records& r, const Lldp::RemoteSystem& n, const std::string& id,
                        TreeSink& s) {
   if (!s.enter("state")) return;
   s.leaf("id", Value(id));
   s.leaf("age", Value(static_cast<uint64_t>(std::max(0.0, r.now - n.creationTime()))), true);
   s.leaf("last-update", Value(static_cast<int64_t>(std::max(0.0, r.now - n.lastRefreshTime()))),
          true);
   s.leaf("ttl", Value(static_cast<uint64_t>(n.ttl())));
   writeTextLeaf(s, "system-name", n.sysName().value());
   writeTextLeaf(s, "system-description", n.sysDesc().value());
   const Lldp::Msap& msap = n.msap();
   s.leaf("chassis-id", Value(msap.chassisIdentifier().stringValue()));
   writeTextLeaf(s, "chassis-id-type", chassisIdTypeName(msap.chassisIdentifier().subtype()));
   s.leaf("port-id", Value(msap.portIdentifier().stringValue()));
   writeTextLeaf(s, "port-id-type", portIdTypeName(msap.portIdentifier().subtype()));
   writeTextLeaf(s, "port-description", n.portDesc().value());
   // The first IP management address (our records keep them in address order).
   for (const auto& [key, addr] : n.managementAddress()) {
      if (key.subtype() != Lldp::addrFamilyIpv4 && key.subtype() != Lldp::addrFamilyIpv6) continue;
      s.leaf("management-address", Value(key.stringValue()));
      s.leaf("management-address-type",
             Value(std::string(key.subtype() == Lldp::addrFamilyIpv4 ? "ipv4" : "ipv6")));
      break;
   }
   s.leave();
}

void writeCapabilities(const Lldp::RemoteSystem& n, TreeSink& s) {
   const uint16_t supported = n.systemCapabilities().supported().value();
   if (!supported || !s.enter("capabilities")) return;
   const uint16_t enabled = n.systemCapabilities().enabled().value();
   for (int bit = 0; bit < 11; ++bit) {
      if (!(supported & (1u << bit))) continue;
      const char* name = capabilityNames[bit];
      if (!s.enter("capability", {{"name", name}})) continue;
      s.leaf("name", Value(typesIdentity(name)));
      if (s.enter("state")) {
         s.leaf("name", Value(typesIdentity(name)));
         s.leaf("enabled", Value(bool(enabled & (1u << bit))));
         s.leave();
      }
      s.leave();
   }
   s.leave();
}

void writeCustomTlv(TreeSink& s, int type, const std::string& oui, const std::string& subtype,
                    std::string_view value) {
   const std::string typeText = std::to_string(type);
   if (!s.enter("tlv", {{"type", typeText}, {"oui", oui}, {"oui-subtype", subtype}})) return;
   s.leaf("type", Value(int64_t{type}));
   s.leaf("oui", Value(oui));
   s.leaf("oui-subtype", Value(subtype));
   if (s.enter("state")) {
      s.leaf("type", Value(int64_t{type}));
      s.leaf("oui", Value(oui));
      s.leaf("oui-subtype", Value(subtype));
      s.leaf("value", Value(base64(value)));
      s.leave();
   }
   s.leave();
}

void writeCustomTlvs(const Lldp::RemoteSystem& n, TreeSink& s) {
   if (n.unknownTlv().empty() && n.unknownOrgDefTlv().empty()) return;
   if (!s.enter("custom-tlvs")) return;
   for (const auto& [type, tlv] : n.unknownTlv()) {
      writeCustomTlv(s, type, "", "", tlv.value().value());
   }
   for (const auto& [key, tlv] : n.unknownOrgDefTlv()) {
      // The list is keyed by type, OUI and subtype: of repeated TLVs the first stands.
      if (key.index() > 1) continue;
      writeCustomTlv(s, 127, key.oui().stringValue(), std::to_string(key.subtype()),
                     tlv.value().value());
   }
   s.leave();
}

void writeDot1(const Lldp::RemoteSystem& n, TreeSink& s) {
   const bool any = n.portVlanIdTlvReceived() || n.managementVidTlvReceived() ||
                    n.vidUsageDigestTlvReceived() || !n.vlanName().empty() ||
                    !n.portAndProtocolVlan().empty() || !n.protocolIdentityInfo().empty();
   if (!any || !s.enter("dot1", {}, moduleExt)) return;
   if (s.enter("state")) {
      if (n.portVlanIdTlvReceived()) {
         s.leaf("port-vlan-id", Value(uint64_t{n.portVlanId().value()}), false, moduleExt);
      }
      if (n.managementVidTlvReceived()) {
         s.leaf("management-vid", Value(uint64_t{n.managementVid().value()}), false, moduleExt);
      }
      if (n.vidUsageDigestTlvReceived()) {
         s.leaf("vid-usage-digest", Value(uint64_t{n.vidUsageDigest()}), false, moduleExt);
      }
      std::vector<std::string> protocols;
      for (const auto& [index, info] : n.protocolIdentityInfo()) {
         protocols.push_back(base64(info.identity().value()));
      }
      if (!protocols.empty())
         s.leaf("protocol-identity", Value(std::move(protocols)), false, moduleExt);
      s.leave();
   }
   for (const auto& [vid, vlan] : n.vlanName()) {
      const std::string id = std::to_string(vid.value());
      if (!s.enter("vlan", {{"vlan-id", id}})) continue;
      s.leaf("vlan-id", Value(uint64_t{vid.value()}), false, moduleExt);
      s.leaf("name", Value(std::string(vlan.name().value())), false, moduleExt);
      s.leave();
   }
   for (const auto& [ppvid, info] : n.portAndProtocolVlan()) {
      const std::string id = std::to_string(ppvid.value());
      if (!s.enter("ppvid", {{"ppvid", id}})) continue;
      s.leaf("ppvid", Value(uint64_t{ppvid.value()}), false, moduleExt);
      s.leaf("supported", Value(info.supported()), false, moduleExt);
      s.leaf("enabled", Value(info.enabled()), false, moduleExt);
      s.leave();
   }
   s.leave();
}

void writeDot3(const Lldp::RemoteSystem& n, TreeSink& s) {
   const bool any = n.macPhyConfigStatusTlvReceived() || n.linkAggregationTlvReceived() ||
                    n.maximumFrameSizeTlvReceived() || n.powerViaMdiTlvReceived();
   if (!any || !s.enter("dot3", {}, moduleExt)) return;
   if (s.enter("state")) {
      auto u = [&](std::string_view name, uint64_t v) { s.leaf(name, Value(v), false, moduleExt); };
      auto b = [&](std::string_view name, bool v) { s.leaf(name, Value(v), false, moduleExt); };
      if (n.macPhyConfigStatusTlvReceived()) {
         const auto& m = n.macPhyConfigStatusInfo();
         b("autoneg-supported", m.autonegSupported());
         b("autoneg-enabled", m.autonegEnabled());
         u("autoneg-advertised-capability", m.pmdAutonegAdvertisedCapability());
         u("operational-mau-type", m.operationalMauType());
      }
      if (n.linkAggregationTlvReceived()) {
         const auto& l = n.linkAggregationInfo();
         b("aggregation-capable", l.status().capable());
         b("aggregation-enabled", l.status().enabled());
         u("aggregated-port-id", l.aggregatedPortId());
      }
      if (n.maximumFrameSizeTlvReceived())
         u("max-frame-size", n.maximumFrameSizeInfo().maxFrameSize());
      if (n.powerViaMdiTlvReceived()) {
         const auto& p = n.powerViaMdiInfo();
         b("power-source-equipment", p.fromPse());
         b("power-supported", p.pseMdiPowerSupported());
         b("power-enabled", p.pseMdiPowerEnabled());
         u("power-pair", p.psePowerPair());
         u("power-class", p.powerClass());
         if (p.form() >= Lldp::PowerViaMdiInfo::formDot3at) {
            u("power-type", p.powerType());
            u("power-source", p.powerSource());
            u("power-priority", p.powerPriority());
            u("requested-power", p.pdRequestedPower());
            u("allocated-power", p.pseAllocatedPower());
         }
      }
      s.leave();
   }
   s.leave();
}

void writeMed(const Lldp::RemoteSystem& n, TreeSink& s) {
   if (!n.anyLldpMedReceived() || !s.enter("med", {}, moduleExt)) return;
   if (s.enter("state")) {
      if (n.medCapabilitiesTlvReceived()) {
         const auto& c = n.medCapabilitiesInfo();
         s.leaf("device-type", Value(uint64_t{c.deviceType()}), false, moduleExt);
         static const char* const capNames[] = {"CAPABILITIES",      "NETWORK_POLICY",
                                                "LOCATION",          "EXTENDED_POWER_PSE",
                                                "EXTENDED_POWER_PD", "INVENTORY"};
         std::vector<std::string> caps;
         for (int bit = 0; bit < 6; ++bit) {
            if (c.capabilities().value() & (1u << bit)) caps.emplace_back(capNames[bit]);
         }
         s.leaf("capabilities", Value(std::move(caps)), false, moduleExt);
      }
      writeTextLeaf(s, "hardware-revision", n.hardwareRevisionTlvInfo().value(), moduleExt);
      writeTextLeaf(s, "firmware-revision", n.firmwareRevisionTlvInfo().value(), moduleExt);
      writeTextLeaf(s, "software-revision", n.softwareRevisionTlvInfo().value(), moduleExt);
      writeTextLeaf(s, "serial-number", n.serialNumberTlvInfo().value(), moduleExt);
      writeTextLeaf(s, "manufacturer-name", n.manufacturerNameTlvInfo().value(), moduleExt);
      writeTextLeaf(s, "model-name", n.modelNameTlvInfo().value(), moduleExt);
      writeTextLeaf(s, "asset-id", n.assetIDTlvInfo().value(), moduleExt);
      s.leave();
   }
   for (const auto& [app, p] : n.networkPolicyTlv()) {
      const std::string id = std::to_string(app);
      if (!s.enter("network-policy", {{"application", id}})) continue;
      auto u = [&](std::string_view name, uint64_t v) { s.leaf(name, Value(v), false, moduleExt); };
      u("application", app);
      s.leaf("unknown", Value(p.unknown()), false, moduleExt);
      s.leaf("tagged", Value(p.tagged()), false, moduleExt);
      u("vlan-id", p.vlanId());
      u("priority", p.priority());
      u("dscp", p.dscp());
      s.leave();
   }
   s.leave();
}

}  // namespace

void writeNeighbor(const Records& r, const Lldp::RemoteSystem& n, TreeSink& s) {
   const std::string id = std::to_string(n.index());
   if (!s.enter("neighbor", {{"id", id}})) return;
   s.leaf("id", Value(id));
   writeNeighborState(r, n, id, s);
   writeCapabilities(n, s);
   writeCustomTlvs(n, s);
   writeDot1(n, s);
   writeDot3(n, s);
   writeMed(n, s);
   s.leave();
}

void writeInterface(const Records& r, const Wire::IntfId& intf, TreeSink& s) {
   const std::string name(intf.name());
   if (!s.enter("interface", {{"name", name}})) return;
   s.leaf("name", Value(name));
   if (s.enter("config")) {
      Lldp::AdminStatus admin = Lldp::adminStatusTxAndRx;
      if (r.cliConfig) {
         if (auto c = r.cliConfig->cliPortConfig(intf)) admin = c->adminStatus();
      }
      s.leaf("name", Value(name));
      s.leaf("enabled", Value(admin != Lldp::adminStatusDisabled));
      s.leave();
   }
   Vel::Ptr<const Lldp::PortStatus> port;
   if (r.status) {
      if (const auto* p = r.status->portStatus(intf)) port = *p;
   }
   if (s.enter("state")) {
      Lldp::AdminStatus admin = Lldp::adminStatusDisabled;
      if (r.config) {
         if (auto c = r.config->portConfig(intf)) admin = c->adminStatus();
      }
      s.leaf("name", Value(name));
      s.leaf("enabled", Value(admin != Lldp::adminStatusDisabled));
      if (port) {
         const Lldp::PortStatus* one = port.ptr();
         writeCounters(s, &one, 1, false, 0);
      }
      s.leave();
   }
   if (port && s.enter("neighbors")) {
      if (const std::string* id = s.wanted("neighbor", "id")) {
         int index = 0;
         auto [end, ec] = std::from_chars(id->data(), id->data() + id->size(), index);
         if (ec == std::errc() && end == id->data() + id->size()) {
            if (auto n = port->remoteSystem(index)) writeNeighbor(r, *n, s);
         }
      } else {
         for (const auto& [index, n] : port->remoteSystem()) writeNeighbor(r, *n, s);
      }
      s.leave();
   }
   s.leave();
}

void writeGlobal(const Records& r, TreeSink& s) {
   const Lldp::CliConfig* cli = r.cliConfig.ptr();
   if (cli && s.enter("config")) {
      s.leaf("enabled", Value(cli->enabled()));
      s.leaf("hello-timer", Value(uint64_t{cli->messageTxInterval()}));
      s.leaf("suppress-tlv-advertisement", Value(suppressedTlvs(*cli)));
      writeTextLeaf(s, "system-name", cli->sysName().value());
      writeTextLeaf(s, "system-description", cli->sysDesc().value());
      s.leaf("ttl", Value(uint64_t{cli->messageTxHoldTime()}), false, moduleExt);
      s.leave();
   }
   if (s.enter("state")) {
      if (cli) {
         s.leaf("enabled", Value(cli->enabled()));
         s.leaf("suppress-tlv-advertisement", Value(suppressedTlvs(*cli)));
      }
      if (r.config) s.leaf("hello-timer", Value(uint64_t{r.config->messageTxInterval()}));
      if (const Lldp::LocalSystem* l = r.localSystem.ptr()) {
         writeTextLeaf(s, "system-name", l->sysName().value());
         writeTextLeaf(s, "system-description", l->sysDesc().value());
         if (!l->chassisIdentifier().value().empty()) {
            s.leaf("chassis-id", Value(l->chassisIdentifier().stringValue()));
            writeTextLeaf(s, "chassis-id-type",
                          chassisIdTypeName(l->chassisIdentifier().subtype()));
         }
      }
      if (r.config) s.leaf("ttl", Value(uint64_t{r.config->messageTxHoldTime()}), false, moduleExt);
      if (r.status) {
         std::vector<const Lldp::PortStatus*> ports;
         ports.reserve(r.status->portStatus().size());
         for (const auto& [intf, p] : r.status->portStatus()) {
            if (p) ports.push_back(p.ptr());
         }
         writeCounters(s, ports.data(), ports.size(), true, r.status->remTablesAgeouts());
      }
      s.leave();
   }
}

std::vector<Wire::IntfId> interfaceNames(const Records& r) {
   std::vector<Wire::IntfId> out;
   forEachInterface(r, [&](const Wire::IntfId& intf) { out.push_back(intf); });
   return out;
}

void writeRoot(const Records& r, TreeSink& s) {
   if (!s.enter("lldp")) return;
   writeGlobal(r, s);
   if (s.enter("interfaces")) {
      if (const std::string* name = s.wanted("interface", "name")) {
         if (!name->empty() && name->size() <= Wire::IntfId::maxNameLen) {
            const Wire::IntfId intf(*name);
            if (interfaceKnown(r, intf)) writeInterface(r, intf, s);
         }
      } else {
         forEachInterface(r, [&](const Wire::IntfId& intf) { writeInterface(r, intf, s); });
      }
      s.leave();
   }
   s.leave();
}

}  // namespace Gnmi::Oc

// The names the tree may hold, for checking paths before anything is read or written.
#include "Gnmi/OpenconfigLldp.h"

namespace Gnmi::Oc {

namespace {

SchemaNode leaf(std::string name, Module m = moduleLldp, bool writable = false) {
   SchemaNode n;
   n.name = std::move(name);
   n.module = m;
   n.leaf = true;
   n.writable = writable;
   return n;
}

SchemaNode node(std::string name, std::vector<SchemaNode> children, Module m = moduleLldp,
                std::vector<std::string> keys = {}) {
   SchemaNode n;
   n.name = std::move(name);
   n.module = m;
   n.keys = std::move(keys);
   n.children = std::move(children);
   return n;
}

std::vector<SchemaNode> leaves(std::initializer_list<const char*> names, Module m = moduleLldp) {
   std::vector<SchemaNode> out;
   for (const char* n : names) out.push_back(leaf(n, m));
   return out;
}

std::vector<SchemaNode> plus(std::vector<SchemaNode> a, std::vector<SchemaNode> b) {
   for (auto& n : b) a.push_back(std::move(n));
   return a;
}

SchemaNode counters(bool global) {
   auto c = leaves(
       {"frame-in", "frame-out", "frame-error-in", "frame-discard", "tlv-discard", "tlv-unknown"});
   c.push_back(leaf(global ? "entries-aged-out" : "frame-error-out"));
   return node("counters", std::move(c));
}

SchemaNode globalConfig(bool state) {
   const bool w = !state;
   std::vector<SchemaNode> c = {leaf("enabled", moduleLldp, w),
                                leaf("hello-timer", moduleLldp, w),
                                leaf("suppress-tlv-advertisement", moduleLldp, w),
                                leaf("system-name", moduleLldp, w),
                                leaf("system-description", moduleLldp, w),
                                leaf("chassis-id"),
                                leaf("chassis-id-type"),
                                leaf("ttl", moduleExt, w)};
   if (state) c.push_back(counters(true));
   return node(state ? "state" : "config", std::move(c));
}

SchemaNode neighbor() {
   auto state = leaves({"id", "age", "last-update", "ttl", "system-name", "system-description",
                        "chassis-id", "chassis-id-type", "port-id", "port-id-type",
                        "port-description", "management-address", "management-address-type"});
   auto capability = node("capability", {leaf("name"), node("state", leaves({"name", "enabled"}))},
                          moduleLldp, {"name"});
   const auto tlvKeys = leaves({"type", "oui", "oui-subtype"});
   auto tlv = node("tlv", plus(tlvKeys, {node("state", plus(tlvKeys, {leaf("value")}))}),
                   moduleLldp, {"type", "oui", "oui-subtype"});
   auto dot1 = node(
       "dot1",
       {node("state",
             leaves({"port-vlan-id", "management-vid", "vid-usage-digest", "protocol-identity"},
                    moduleExt),
             moduleExt),
        node("vlan", leaves({"vlan-id", "name"}, moduleExt), moduleExt, {"vlan-id"}),
        node("ppvid", leaves({"ppvid", "supported", "enabled"}, moduleExt), moduleExt, {"ppvid"})},
       moduleExt);
   auto dot3 = node(
       "dot3",
       {node("state",
             leaves({"autoneg-supported", "autoneg-enabled", "autoneg-advertised-capability",
                     "operational-mau-type", "aggregation-capable", "aggregation-enabled",
                     "aggregated-port-id", "max-frame-size", "power-source-equipment",
                     "power-supported", "power-enabled", "power-pair", "power-class", "power-type",
                     "power-source", "power-priority", "requested-power", "allocated-power"},
                    moduleExt),
             moduleExt)},
       moduleExt);
   auto med = node(
       "med",
       {node("state",
             leaves({"device-type", "capabilities", "hardware-revision", "firmware-revision",
                     "software-revision", "serial-number", "manufacturer-name", "model-name",
                     "asset-id"},
                    moduleExt),
             moduleExt),
        node("network-policy",
             leaves({"application", "unknown", "tagged", "vlan-id", "priority", "dscp"}, moduleExt),
             moduleExt, {"application"})},
       moduleExt);
   return node(
       "neighbor",
       {leaf("id"), node("state", std::move(state)), node("capabilities", {std::move(capability)}),
        node("custom-tlvs", {std::move(tlv)}), std::move(dot1), std::move(dot3), std::move(med)},
       moduleLldp, {"id"});
}

SchemaNode build() {
   auto interfaceConfig =
       node("config", {leaf("name", moduleLldp, true), leaf("enabled", moduleLldp, true)});
   auto interfaceState = node("state", {leaf("name"), leaf("enabled"), counters(false)});
   auto interface = node("interface",
                         {leaf("name"), std::move(interfaceConfig), std::move(interfaceState),
                          node("neighbors", {neighbor()})},
                         moduleLldp, {"name"});
   auto lldp = node("lldp", {globalConfig(false), globalConfig(true),
                             node("interfaces", {std::move(interface)})});
   return node("", {std::move(lldp)});
}

}  // namespace

const SchemaNode* SchemaNode::child(std::string_view n) const {
   // A name may carry its module ("openconfig-lldp:lldp", "lldp-agent-ext:med").
   const size_t colon = n.find(':');
   std::string_view module;
   if (colon != std::string_view::npos) {
      module = n.substr(0, colon);
      n = n.substr(colon + 1);
   }
   for (const SchemaNode& c : children) {
      if (c.name == n && (module.empty() || module == moduleName(c.module))) return &c;
   }
   return nullptr;
}

const SchemaNode& schemaRoot() {
   static const SchemaNode root = build();
   return root;
}

std::optional<Error> resolve(const Path& p, const SchemaNode** out) {
   if (!p.origin.empty() && p.origin != "openconfig" && p.origin != "openconfig-lldp" &&
       p.origin != moduleName(moduleExt)) {
      return Error{codeInvalidArgument, "unknown origin \"" + p.origin + "\""};
   }
   const SchemaNode* n = &schemaRoot();
   std::string at;
   for (const PathElem& e : p.elems) {
      at += "/" + e.name;
      const SchemaNode* c = n->leaf ? nullptr : n->child(e.name);
      if (!c) {
         return Error{codeInvalidArgument,
                      n->leaf ? "no element below the leaf " + at.substr(0, at.rfind('/'))
                              : "unknown element \"" + e.name + "\" at " + at};
      }
      for (const auto& [k, v] : e.keys) {
         bool known = false;
         for (const std::string& key : c->keys) known |= key == k;
         if (!known) {
            return Error{codeInvalidArgument,
                         c->keys.empty() ? "\"" + e.name + "\" is not a list and takes no key (" +
                                               k + ") at " + at
                                         : "\"" + e.name + "\" has no key \"" + k + "\" at " + at};
         }
      }
      n = c;
   }
   if (out) *out = n;
   return std::nullopt;
}

}  // namespace Gnmi::Oc

#include "fuzz/GnmiPathHarness.h"

#include "Config/ConfigLanguage.h"
#include "Framework/Vel/Json.h"
#include "Records/LldpLocalSystem.h"
#include "Records/LldpStatus.h"

namespace Fuzz {

namespace {

// Two ports with neighbours that sent every kind of TLV the tree shows.
void populate(Vel::StateDb& db) {
   auto config = db.mount<Lldp::Config>("l2discovery/lldp/config");
   auto local = db.mount<Lldp::LocalSystem>("l2discovery/lldp/localSystem");
   auto all = db.mount<Lldp::AllStatus>("l2discovery/lldp/status/all");
   local->chassisIdentifierIs(
       Lldp::ChassisIdentifier({.subtype = 4, .value = "\x00\x1c\x73\x00\x00\x01"}));
   local->sysNameIs("switch");
   static Lldp::Status::Ptr status = Vel::make<Lldp::Status>();
   for (const char* name : {"Ethernet1", "Ethernet2/1"}) {
      const Wire::IntfId intf(name);
      config->portConfigIs(intf);
      auto port = status->portStatusIs(intf, 0.0);
      all->portStatusIs(intf, Vel::Ptr<const Lldp::PortStatus>(port));
      for (int i = 1; i <= 3; ++i) {
         Lldp::Msap msap;
         msap.chassisIdentifierIs(
             Lldp::ChassisIdentifier({.subtype = 7, .value = "c" + std::to_string(i)}));
         msap.portIdentifierIs(
             Lldp::PortIdentifier({.subtype = 5, .value = "p]" + std::to_string(i)}));
         auto r = port->remoteSystemIs(i, msap);
         r->ttlIs(120);
         r->sysNameIs("peer \"" + std::to_string(i) + "\"\x01");
         r->systemCapabilitiesIs(Lldp::SystemCapabilitiesTlv::create(
             Lldp::SystemCapabilitiesMap(0x14), Lldp::SystemCapabilitiesMap(0x10)));
         r->unknownOrgDefTlvIs(Lldp::UnknownOrgDefTlv(
             {.key =
                  Lldp::UnknownOrgDefTlvKey({.oui = Lldp::Oui(0x123456), .subtype = 9, .index = 1}),
              .value = "\xde\xad"}));
         r->vlanNameIs(Lldp::VlanName({.vlanId = 10, .name = "ten"}));
         r->maximumFrameSizeTlvReceivedIs(true);
         r->maximumFrameSizeInfoIs(Lldp::MaximumFrameSizeInfo({.maxFrameSize = 9216}));
         r->medCapabilitiesTlvReceivedIs(true);
         r->networkPolicyTlvIs(
             Lldp::NetworkPolicyTlv({.appType = 1, .tagged = true, .vlanId = 10}));
         r->modelNameTlvInfoIs("phone");
      }
   }
}

// Whether `leaf` lies at or under `pattern` (bare element names, "*" keys).
bool under(const Gnmi::Path& pattern, const Gnmi::Path& leaf) {
   if (leaf.elems.size() < pattern.elems.size()) return false;
   Gnmi::Path head = leaf;
   head.elems.resize(pattern.elems.size());
   head.origin.clear();
   Gnmi::Path bare = pattern;
   bare.origin.clear();
   for (auto& e : bare.elems) {
      if (size_t c = e.name.find(':'); c != std::string::npos) e.name.erase(0, c + 1);
   }
   return Gnmi::matches(bare, head);
}

}  // namespace

GnmiPathHarness::GnmiPathHarness()
    : config_(db_.mount<Lldp::CliConfig>("l2discovery/lldp/cliConfig")) {
   populate(db_);
   model_ = std::make_unique<Gnmi::Model>(Gnmi::Sources{&db_});
}

void GnmiPathHarness::feed(const uint8_t* data, size_t size) {
   if (size == 0) return;
   const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
   Gnmi::Path path;
   std::string error;
   if (!Gnmi::parsePath(text, path, error)) {
      if (error.empty()) wrong_ = "a refused path without a reason";
      return;
   }
   Gnmi::Path again;
   if (!Gnmi::parsePath(Gnmi::toString(path), again, error) || !(again == path)) {
      wrong_ = "path does not read back as itself: " + Gnmi::toString(path);
      return;
   }
   const bool checked = !model_->check(path);
   if (data[0] & 2) {
      const std::string before = Config::render(*config_);
      auto e = model_->set({path}, {}, {});
      if (e && Config::render(*config_) != before)
         wrong_ = "a refused Set changed the configuration";
      if (e && e->message.empty()) wrong_ = "a refused Set without a reason";
      if (!e && !checked) wrong_ = "a Set of a path the schema refuses was applied";
      if (config_->cliPortConfig().size() > 32) Config::load("", *config_);
      return;
   }
   auto e = model_->leaves(path, [&](const Gnmi::Leaf& leaf) {
      if (!under(path, leaf.path))
         wrong_ = "leaf " + Gnmi::toString(leaf.path) + " outside " + text;
      if (model_->check(leaf.path))
         wrong_ = "leaf " + Gnmi::toString(leaf.path) + " not in the schema";
   });
   if (checked && e && e->code == Gnmi::codeInvalidArgument) {
      wrong_ = "a path the schema accepts was refused: " + e->message;
   }
   if (!checked && !e) wrong_ = "a path the schema refuses was read: " + text;
   const auto encoding = data[0] & 1 ? Gnmi::Encoding::JsonIetf : Gnmi::Encoding::Json;
   model_->json(path, encoding, [&](const Gnmi::Path&, std::string&& json) {
      if (Vel::Json::parse(json, nullptr, false).is_discarded()) wrong_ = "invalid JSON: " + json;
   });
}

}  // namespace Fuzz

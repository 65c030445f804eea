// The model over real records: neighbours made by the receive processor from LLDPDUs,
// read as leaves and JSON, followed by a watch, and the configuration changed by Set
// through the configuration language.
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>

#include "Config/ConfigLanguage.h"
#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/StateDb.h"
#include "Gnmi/GnmiModel.h"
#include "tests/Lldp/LldpRxFixture.h"

namespace {

using Gnmi::Path;
using LldpRxTest::Pdu;

Path path(const std::string& text) {
   Path p;
   std::string error;
   EXPECT_TRUE(Gnmi::parsePath(text, p, error)) << text << ": " << error;
   return p;
}

std::string show(const Gnmi::Value& v) {
   return Gnmi::jsonValue(v, Gnmi::Encoding::Json);
}

const std::string nbr = "/lldp/interfaces/interface[name=Ethernet1]/neighbors/neighbor";

class OpenconfigLldpTest : public ::testing::Test {
protected:
   void SetUp() override {
      db.clear();
      cliConfig = db.mount<Lldp::CliConfig>("l2discovery/lldp/cliConfig");
      config = db.mount<Lldp::Config>("l2discovery/lldp/config");
      localSystem = db.mount<Lldp::LocalSystem>("l2discovery/lldp/localSystem");
      allStatus = db.mount<Lldp::AllStatus>("l2discovery/lldp/status/all");
      localSystem->chassisIdentifierIs(
          Lldp::ChassisIdentifier({.subtype = 4, .value = LldpRxTest::macId}));
      localSystem->sysNameIs("switch1");
      portConfig = config->portConfigIs(intf);
      status = Vel::make<Lldp::Status>();
      port = status->portStatusIs(intf, 0.0);
      allStatus->portStatusIs(intf, Vel::Ptr<const Lldp::PortStatus>(port));
      localPort = localSystem->localPortIs(intf);
      pamSm = Vel::make<Lldp::Agent::Protocol::LldpPamSm>(intf);
   }
   void TearDown() override { db.clear(); }

   void rx(Pdu pdu) {
      auto& b = pdu.end().data();
      processRxLldpdu(b.data(), b.data() + b.size(), portConfig, status, port, localPort, pamSm,
                      mac);
   }
   // Neighbour n with a system name, capabilities (bridge and router, router on), an IPv4
   // management address and a TLV of an OUI nobody decodes.
   static Pdu full(int n, const std::string& sysName) {
      return LldpRxTest::neighbour(n)
          .tlv(5, sysName)
          .tlv(7, TestSupport::bytes({0x00, 0x14, 0x00, 0x10}))
          .tlv(8, LldpRxTest::mgmtAddr({10, 0, 0, n}, 7, LldpRxTest::enterpriseOid))
          .org(0x123456, 9, TestSupport::bytes({0xde, 0xad}));
   }
   std::map<std::string, std::string> leaves(const std::string& p,
                                             Gnmi::LeafSet which = Gnmi::LeafSet::All) {
      std::map<std::string, std::string> out;
      auto e = model.leaves(
          path(p), [&](const Gnmi::Leaf& l) { out[Gnmi::toString(l.path)] = show(l.value); },
          which);
      EXPECT_FALSE(e) << e->message;
      return out;
   }
   void turn() { Vel::EventLoop::instance().runOnce(0); }

   Vel::StateDb& db = Vel::StateDb::instance();
   Wire::IntfId intf{"Ethernet1"};
   Lldp::CliConfig::Ptr cliConfig;
   Lldp::Config::Ptr config;
   Lldp::LocalSystem::Ptr localSystem;
   Lldp::AllStatus::Ptr allStatus;
   Lldp::PortConfig::Ptr portConfig;
   Lldp::Status::Ptr status;
   Lldp::PortStatus::Ptr port;
   Lldp::LocalPort::Ptr localPort;
   Vel::Ptr<Lldp::Agent::Protocol::LldpPamSm> pamSm;
   Wire::EthAddr mac = *Wire::EthAddr::parse("00:1c:73:aa:bb:cc");
   Gnmi::Model model{Gnmi::Sources{&db}};
};

TEST_F(OpenconfigLldpTest, NeighbourLeavesFromAnLldpduAndEveryLeafIsInTheSchema) {
   rx(full(1, "peer-one"));
   rx(full(2, "peer-two"));
   auto l = leaves(nbr + "[id=1]");
   const std::string n1 = nbr + "[id=1]";
   EXPECT_EQ(l[n1 + "/id"], "\"1\"");
   EXPECT_EQ(l[n1 + "/state/system-name"], "\"peer-one\"");
   EXPECT_EQ(l[n1 + "/state/chassis-id"], "\"chassis1\"");
   EXPECT_EQ(l[n1 + "/state/chassis-id-type"], "\"LOCAL\"");
   EXPECT_EQ(l[n1 + "/state/port-id"], "\"port1\"");
   EXPECT_EQ(l[n1 + "/state/ttl"], "120");
   EXPECT_EQ(l[n1 + "/state/management-address"], "\"10.0.0.1\"");
   EXPECT_EQ(l[n1 + "/capabilities/capability[name=ROUTER]/state/enabled"], "true");
   EXPECT_EQ(l[n1 + "/capabilities/capability[name=MAC_BRIDGE]/state/enabled"], "false");
   EXPECT_EQ(l[n1 + "/capabilities/capability[name=ROUTER]/state/name"],
             "\"openconfig-lldp-types:ROUTER\"");
   EXPECT_EQ(l[n1 + "/custom-tlvs/tlv[type=127][oui=12-34-56][oui-subtype=9]/state/value"],
             "\"3q0=\"");
   EXPECT_EQ(l.count(n1 + "/state/system-description"), 0u);  // never sent
   for (const auto& [p, v] : l) EXPECT_EQ(p.find("id=2"), std::string::npos) << p;

   // The whole tree: both neighbours, the global and interface containers, and every leaf a
   // path the model accepts.
   size_t count = 0;
   std::set<std::string> neighbours;
   auto e = model.leaves(path("/"), [&](const Gnmi::Leaf& leaf) {
      ++count;
      EXPECT_FALSE(model.check(leaf.path)) << Gnmi::toString(leaf.path);
      if (leaf.path.elems.size() > 4 && leaf.path.elems[4].name == "neighbor") {
         neighbours.insert(leaf.path.elems[4].keys[0].second);
      }
   });
   ASSERT_FALSE(e);
   EXPECT_EQ(neighbours, (std::set<std::string>{"1", "2"}));
   auto g = leaves("/lldp/state");
   EXPECT_EQ(g["/lldp/state/system-name"], "\"switch1\"");
   EXPECT_EQ(g["/lldp/state/chassis-id-type"], "\"MAC_ADDRESS\"");
   EXPECT_EQ(g["/lldp/state/counters/frame-in"], "2");
   EXPECT_EQ(leaves("/lldp/state", Gnmi::LeafSet::OnChange).count("/lldp/state/counters/frame-in"),
             0u);
   EXPECT_EQ(leaves(nbr + "[id=*]/state/system-name").size(), 2u);
}

TEST_F(OpenconfigLldpTest, JsonDocumentsInBothEncodings) {
   rx(full(1, "peer-one"));
   rx(full(2, "peer-two"));
   std::vector<std::pair<std::string, std::string>> docs;
   auto collect = [&](const Path& p, std::string&& json) {
      docs.emplace_back(Gnmi::toString(p), std::move(json));
   };
   ASSERT_FALSE(model.json(path(nbr + "[id=*]/state"), Gnmi::Encoding::JsonIetf, collect));
   ASSERT_EQ(docs.size(), 2u);
   EXPECT_EQ(docs[1].first, nbr + "[id=2]/state");
   auto state = nlohmann::json::parse(docs[1].second);
   EXPECT_EQ(state["openconfig-lldp:system-name"], "peer-two");
   EXPECT_EQ(state["openconfig-lldp:ttl"], "120");  // 64-bit: a string in JSON_IETF

   docs.clear();
   ASSERT_FALSE(model.json(path("/"), Gnmi::Encoding::JsonIetf, collect));
   ASSERT_EQ(docs.size(), 1u);
   auto root = nlohmann::json::parse(docs[0].second);
   auto& interface = root["openconfig-lldp:lldp"]["interfaces"]["interface"];
   ASSERT_TRUE(interface.is_array());
   ASSERT_EQ(interface.size(), 1u);
   auto& neighbours = interface[0]["neighbors"]["neighbor"];
   ASSERT_EQ(neighbours.size(), 2u);  // one list, both members
   EXPECT_EQ(neighbours[0]["state"]["system-name"], "peer-one");
   EXPECT_EQ(neighbours[0]["capabilities"]["capability"].size(), 2u);
   EXPECT_EQ(root["openconfig-lldp:lldp"]["config"]["lldp-agent-ext:ttl"], "120");

   docs.clear();
   ASSERT_FALSE(model.json(path(nbr + "[id=1]/state/ttl"), Gnmi::Encoding::Json, collect));
   ASSERT_EQ(docs.size(), 1u);
   EXPECT_EQ(docs[0].second, "120");
   docs.clear();
   ASSERT_FALSE(model.json(path("/lldp/config"), Gnmi::Encoding::Json, collect));
   auto cfg = nlohmann::json::parse(docs.at(0).second);
   EXPECT_EQ(cfg["hello-timer"], 30);
   EXPECT_EQ(cfg["ttl"], 120);
}

TEST_F(OpenconfigLldpTest, BadPathsAreRefusedAndAbsentDataIsNotFound) {
   rx(full(1, "peer-one"));
   const std::pair<std::string, const char*> bad[] = {
       {"/lldp/bogus", "unknown element \"bogus\""},
       {"/lldp/interfaces/interface[ifname=Ethernet1]", "has no key \"ifname\""},
       {"/lldp/config[name=x]", "takes no key"},
       {"/lldp/config/enabled/deeper", "below the leaf"},
       {"/lldp/*", "unknown element"},
       {"/openconfig-interfaces:lldp", "unknown element"},
   };
   for (const auto& [text, reason] : bad) {
      auto e = model.check(path(text));
      ASSERT_TRUE(e) << text;
      EXPECT_EQ(e->code, Gnmi::codeInvalidArgument);
      EXPECT_NE(e->message.find(reason), std::string::npos) << text << " -> " << e->message;
      EXPECT_TRUE(model.leaves(path(text), [](const Gnmi::Leaf&) {}));
   }
   for (const char* missing :
        {"/lldp/interfaces/interface[name=Ethernet9]",
         "/lldp/interfaces/interface[name=Ethernet1]/neighbors/neighbor[id=7]",
         "/lldp/interfaces/interface[name=Ethernet1]/neighbors/neighbor[id=x]"}) {
      auto e = model.leaves(path(missing), [](const Gnmi::Leaf&) {});
      ASSERT_TRUE(e) << missing;
      EXPECT_EQ(e->code, Gnmi::codeNotFound) << missing;
   }
   // A wildcard that matches nothing is no error, and module-qualified names are accepted.
   EXPECT_TRUE(leaves("/lldp/interfaces/interface[name=*]/neighbors/neighbor[id=*]/"
                      "lldp-agent-ext:med")
                   .empty());
   EXPECT_EQ(leaves("/openconfig-lldp:lldp/config/hello-timer").size(), 1u);
   db.clear();
   auto e = model.leaves(path("/lldp"), [](const Gnmi::Leaf&) {});
   ASSERT_TRUE(e);
   EXPECT_EQ(e->code, Gnmi::codeUnavailable);
}

TEST_F(OpenconfigLldpTest, WatchReportsEachNeighbourChangeOnceWithOnlyWhatChanged) {
   rx(full(1, "peer-one"));
   const size_t idle = port->remoteSystem(1)->notifieeCount();
   std::vector<Gnmi::Change> changes, configChanges, otherPort;
   std::unique_ptr<Gnmi::Model::Watch> w, wc, wo;
   ASSERT_FALSE(model.watch(
       path(nbr + "[id=*]"), [&](const Gnmi::Change& c) { changes.push_back(c); }, w));
   ASSERT_FALSE(model.watch(
       path("/lldp/config"), [&](const Gnmi::Change& c) { configChanges.push_back(c); }, wc));
   ASSERT_FALSE(model.watch(
       path("/lldp/interfaces/interface[name=Ethernet2]"),
       [&](const Gnmi::Change& c) { otherPort.push_back(c); }, wo));

   // A refresh with the same content reports nothing; a new name and a new neighbour in
   // one turn are two notifications, the first holding only the changed leaf.
   rx(full(1, "peer-one"));
   turn();
   EXPECT_TRUE(changes.empty());
   rx(full(1, "peer-renamed"));
   rx(full(1, "peer-renamed-again"));
   rx(full(2, "peer-two"));
   turn();
   ASSERT_EQ(changes.size(), 2u);
   EXPECT_EQ(Gnmi::toString(changes[0].prefix), nbr + "[id=1]");
   ASSERT_EQ(changes[0].updates.size(), 1u);
   EXPECT_EQ(Gnmi::toString(changes[0].updates[0].path), "/state/system-name");
   EXPECT_EQ(show(changes[0].updates[0].value), "\"peer-renamed-again\"");
   EXPECT_TRUE(changes[0].deletes.empty());
   EXPECT_GT(changes[0].timestampNs, 0u);
   EXPECT_EQ(Gnmi::toString(changes[1].prefix), nbr + "[id=2]");
   EXPECT_GT(changes[1].updates.size(), 10u);

   // A TLV no longer sent deletes its leaves; a shutdown LLDPDU deletes the neighbour.
   changes.clear();
   rx(LldpRxTest::neighbour(1)
          .tlv(5, "peer-renamed-again")
          .tlv(8, LldpRxTest::mgmtAddr({10, 0, 0, 1}, 7, LldpRxTest::enterpriseOid))
          .org(0x123456, 9, TestSupport::bytes({0xde, 0xad})));
   rx(LldpRxTest::neighbour(2, 0));
   turn();
   ASSERT_EQ(changes.size(), 2u);
   EXPECT_TRUE(changes[0].updates.empty());
   std::set<std::string> deleted;
   for (const Path& d : changes[0].deletes) deleted.insert(Gnmi::toString(d));
   EXPECT_TRUE(deleted.count("/capabilities/capability[name=ROUTER]/state/enabled"));
   EXPECT_EQ(deleted.count("/state/system-name"), 0u);
   EXPECT_EQ(Gnmi::toString(changes[1].prefix), nbr + "[id=2]");
   ASSERT_EQ(changes[1].deletes.size(), 1u);
   EXPECT_TRUE(changes[1].deletes[0].elems.empty());
   EXPECT_TRUE(configChanges.empty());
   EXPECT_TRUE(otherPort.empty());

   // Configuration: a changed timer reaches the config watch only.
   changes.clear();
   ASSERT_TRUE(Config::apply({"lldp timer 12"}, *cliConfig));
   turn();
   ASSERT_EQ(configChanges.size(), 1u);
   EXPECT_EQ(Gnmi::toString(configChanges[0].prefix), "/lldp");
   ASSERT_EQ(configChanges[0].updates.size(), 1u);
   EXPECT_EQ(Gnmi::toString(configChanges[0].updates[0].path), "/config/hello-timer");
   EXPECT_TRUE(changes.empty());

   // A port that goes takes its neighbours with it.
   allStatus->portStatusDel(intf);
   turn();
   ASSERT_EQ(changes.size(), 1u);
   EXPECT_EQ(Gnmi::toString(changes[0].prefix), nbr + "[id=1]");
   ASSERT_EQ(changes[0].deletes.size(), 1u);
   EXPECT_TRUE(changes[0].deletes[0].elems.empty());

   // With no watch left the records carry no notifiee of ours.
   w.reset();
   wc.reset();
   wo.reset();
   turn();
   EXPECT_EQ(model.watchCount(), 0u);
   EXPECT_EQ(port->remoteSystem(1)->notifieeCount(), idle);
   EXPECT_EQ(cliConfig->notifieeCount(), 0u);

   // A change in the turn the last watch ends does not silence the next watch.
   auto sink = [&](const Gnmi::Change& c) { configChanges.push_back(c); };
   ASSERT_FALSE(model.watch(path("/lldp/config"), sink, wc));
   wc.reset();
   ASSERT_TRUE(Config::apply({"lldp timer 13"}, *cliConfig));
   turn();
   configChanges.clear();
   ASSERT_FALSE(model.watch(path("/lldp/config"), sink, wc));
   ASSERT_TRUE(Config::apply({"lldp timer 14"}, *cliConfig));
   turn();
   ASSERT_EQ(configChanges.size(), 1u);
   EXPECT_EQ(show(configChanges[0].updates.at(0).value), "14");
}

TEST_F(OpenconfigLldpTest, SetAppliesConfigurationWholeOrNotAtAll) {
   using Gnmi::Update;
   using Gnmi::Value;
   // Leaves and containers, typed or JSON, all applied together.
   auto e = model.set(
       {path("/lldp/config/system-description")},
       {Update{path("/lldp/interfaces/interface[name=Ethernet1]/config"),
               Value(std::string("{\"openconfig-lldp:enabled\": false}")), true}},
       {Update{path("/lldp/config/hello-timer"), Value(uint64_t{10}), false},
        Update{path("/lldp/config/system-name"), Value(std::string("a \"b\"")), false},
        Update{path("/lldp/config/suppress-tlv-advertisement"),
               Value(std::vector<std::string>{"openconfig-lldp-types:SYSTEM_NAME"}), false},
        Update{path("/lldp/config/lldp-agent-ext:ttl"), Value(std::string("90")), true}});
   ASSERT_FALSE(e) << e->message;
   EXPECT_EQ(cliConfig->messageTxInterval(), 10u);
   EXPECT_EQ(cliConfig->messageTxHoldTime(), 90u);
   EXPECT_EQ(cliConfig->sysName().value(), "a \"b\"");
   EXPECT_FALSE(cliConfig->systemNameTx());
   EXPECT_TRUE(cliConfig->portDescriptionTx());
   ASSERT_TRUE(cliConfig->cliPortConfig(intf));
   EXPECT_EQ(cliConfig->cliPortConfig(intf)->adminStatus(), Lldp::adminStatusDisabled);

   // Each bad request names the path and the reason and changes nothing, even when the
   // good part of it comes first.
   const std::string before = Config::render(*cliConfig);
   const Update goodTimer{path("/lldp/config/hello-timer"), Value(uint64_t{20}), false};
   const std::pair<Update, const char*> bad[] = {
       {{path("/lldp/config/hello-timer"), Value(uint64_t{0}), false}, "out of range"},
       {{path("/lldp/config/hello-timer"), Value(true), false}, "whole number"},
       {{path("/lldp/config/enabled"), Value(std::string("{")), true}, "not valid JSON"},
       {{path("/lldp/state/hello-timer"), Value(uint64_t{5}), false}, "may be set"},
       {{path("/lldp/config/chassis-id"), Value(std::string("x")), false}, "not configurable"},
       {{path("/lldp/config/suppress-tlv-advertisement"), Value(std::string("PORT_ID")), false},
        "cannot be suppressed"},
       {{path("/lldp/interfaces/interface[name=*]/config/enabled"), Value(true), false},
        "no wildcard"},
       {{path("/lldp/interfaces/interface[name=bad name]/config/enabled"), Value(true), false},
        "interface"},
       {{path("/lldp/config"), Value(std::string("{\"hello-timer\": 5, \"bogus\": 1}")), true},
        "bogus"},
       {{path("/lldp/nothing"), Value(true), false}, "unknown element"},
   };
   for (const auto& [update, reason] : bad) {
      auto err = model.set({}, {}, {goodTimer, update});
      ASSERT_TRUE(err) << Gnmi::toString(update.path);
      EXPECT_EQ(err->code, Gnmi::codeInvalidArgument);
      EXPECT_NE(err->message.find(reason), std::string::npos) << err->message;
      EXPECT_EQ(Config::render(*cliConfig), before) << err->message;
   }

   // Replacing /lldp/config returns what it leaves out to its default; deleting a leaf too.
   ASSERT_FALSE(model.set(
       {path("/lldp/interfaces/interface[name=Ethernet1]/config/enabled")},
       {Update{path("/lldp/config"), Value(std::string("{\"enabled\": false}")), true}}, {}));
   EXPECT_FALSE(cliConfig->enabled());
   EXPECT_EQ(cliConfig->messageTxInterval(), 30u);
   EXPECT_TRUE(cliConfig->sysName().empty());
   EXPECT_TRUE(cliConfig->systemNameTx());
   EXPECT_EQ(cliConfig->cliPortConfig(intf)->adminStatus(), Lldp::adminStatusTxAndRx);
}

}  // namespace

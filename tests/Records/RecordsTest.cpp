// The records: bounds with their texts, collections, reset, printing and JSON export.
#include <gtest/gtest.h>

#include <sstream>

#include "Framework/Vel/Json.h"
#include "Records/Lldp.h"

namespace {

template <class F>
std::string rangeError(F f) {
   try {
      f();
   } catch (const Vel::RangeException& e) {
      return e.what();
   }
   return "no error";
}

TEST(RecordBounds, ThrowTheirFixedTexts) {
   EXPECT_EQ(rangeError([] { Lldp::UnknownTlv({.type = 8}); }),
             "Lldp::UnknownTlv::type < 9 or > 126 not allowed");
   EXPECT_EQ(rangeError([] { Lldp::UnknownTlv({.type = 127}); }),
             "Lldp::UnknownTlv::type < 9 or > 126 not allowed");
   EXPECT_EQ(rangeError([] { Lldp::UnknownTlv({.type = 9}); }), "no error");
   EXPECT_EQ(rangeError([] { Lldp::UnknownTlv({.value = std::string(512, 'x')}); }),
             "Vel::String::bytes > 511 not allowed");
   EXPECT_EQ(rangeError([] { Lldp::VlanName({.vlanId = 5, .name = std::string(33, 'x')}); }),
             "Vel::String::bytes > 32 not allowed");
   EXPECT_EQ(rangeError([] { Lldp::ProtocolIdentityInfo({.index = 0}); }),
             "Lldp::ProtocolIdentityInfo::index < 1 not allowed");
   EXPECT_EQ(rangeError([] { Lldp::BoundedString255Tlv::create(std::string(256, 'x')); }),
             "Vel::String::bytes > 255 not allowed");
   EXPECT_EQ(rangeError([] { Lldp::UnknownOrgDefTlv({.value = std::string(508, 'x')}); }),
             "Vel::String::bytes > 507 not allowed");
}

TEST(RemoteSystemTables, RecordsLiveInBothCollectionsOrNeither) {
   auto ps = Vel::make<Lldp::PortStatus>(Wire::IntfId("Ethernet1"), 5.0);
   Lldp::Msap msap({.chassisIdentifier = Lldp::ChassisIdentifier({.subtype = 4, .value = "abcdef"}),
                    .portIdentifier = Lldp::PortIdentifier({.subtype = 5, .value = "Gi0/1"})});
   auto rs = ps->remoteSystemIs(7, msap);
   ps->remoteSystemByMsapIs(rs);
   EXPECT_EQ(ps->remoteSystemIs(7, msap), rs);  // Is on an existing key returns it
   EXPECT_EQ(ps->remoteSystemByMsap(msap), rs);

   ps->remoteSystemByMsapDel(rs->msap());
   ps->remoteSystemDel(rs->index());
   EXPECT_TRUE(ps->remoteSystem().empty());
   EXPECT_TRUE(ps->remoteSystemByMsap().empty());
   EXPECT_EQ(rs->refCount(), 1u);  // only this test holds it now
}

TEST(RemoteSystemTables, DerivedQueriesLookAtEveryNeighbour) {
   auto ps = Vel::make<Lldp::PortStatus>(Wire::IntfId("Ethernet1"), 0.0);
   EXPECT_FALSE(ps->anyLldpMedReceived());
   ps->remoteSystemIs(1, Lldp::Msap());
   auto second = ps->remoteSystemIs(2, Lldp::Msap());
   EXPECT_FALSE(ps->powerViaMdiTlvReceived());
   second->powerViaMdiTlvReceivedIs(true);
   second->networkPolicyTlvIs(Lldp::NetworkPolicyTlv({.appType = 1}));
   EXPECT_TRUE(ps->powerViaMdiTlvReceived());
   EXPECT_TRUE(ps->networkPolicyTlvReceived());
   EXPECT_TRUE(ps->anyLldpMedReceived());

   // Tracked, the answers come from the neighbours as last re-examined: the same answers,
   // and they follow each neighbour that changes or goes.
   ps->senderTrackingIs(true);
   EXPECT_TRUE(ps->powerViaMdiTlvReceived());
   EXPECT_TRUE(ps->anyLldpMedReceived());
   second->powerViaMdiTlvReceivedIs(false);
   ps->remoteSystemSenderIs(2);
   EXPECT_FALSE(ps->powerViaMdiTlvReceived());
   EXPECT_TRUE(ps->anyLldpMedReceived());
   auto third = ps->remoteSystemIs(3, Lldp::Msap());
   third->medCapabilitiesTlvReceivedIs(true);
   ps->remoteSystemSenderIs(3);
   ps->remoteSystemDel(2);
   ps->remoteSystemSenderIs(2);
   EXPECT_TRUE(ps->anyLldpMedReceived());
   ps->remoteSystemDel(3);
   ps->remoteSystemSenderIs(3);
   EXPECT_FALSE(ps->anyLldpMedReceived());
   third->powerViaMdiTlvReceivedIs(true);  // no longer on the port: not asked about
   ps->remoteSystemSenderIs(3);
   EXPECT_FALSE(ps->powerViaMdiTlvReceived());
}

// The neighbours of several ports together, however they come and go, and a port that is
// gone everywhere else is let go once empty.
TEST(RemoteSystemTables, TallyCountsEveryPortsNeighbours) {
   Lldp::RemoteSystemTally tally;
   auto a = Vel::make<Lldp::PortStatus>(Wire::IntfId("Ethernet1"), 0.0);
   auto b = Vel::make<Lldp::PortStatus>(Wire::IntfId("Ethernet2"), 0.0);
   a->remoteSystemIs(1, Lldp::Msap());
   EXPECT_EQ(tally.count(a), 1u);  // what the port held already counts
   for (int i = 1; i <= 3; ++i) b->remoteSystemIs(i, Lldp::Msap());
   EXPECT_EQ(tally.count(b), 4u);
   a->remoteSystemIs(2, Lldp::Msap());
   b->remoteSystemDel(1);
   EXPECT_EQ(tally.count(a), 4u);
   b->remoteSystemDelAll();
   EXPECT_EQ(tally.count(a), 2u);
   EXPECT_EQ(tally.ports(), 2u);
   b = nullptr;  // nobody else holds it, and it is empty
   tally.count(a);
   tally.count(a);
   EXPECT_EQ(tally.ports(), 1u);
   EXPECT_EQ(tally.count(a), 2u);
}

TEST(Records, CountersCollectionsAndReset) {
   auto rs = Vel::make<Lldp::RemoteSystem>(3, Lldp::Msap());
   rs->sysNameIs(Lldp::BoundedString255Tlv::create("spine1"));
   rs->unknownTlvIs(Lldp::UnknownTlv({.type = 9, .value = "x"}));
   rs->unknownTlvIs(Lldp::UnknownTlv({.type = 9, .value = "y"}));  // same key replaces
   ASSERT_EQ(rs->unknownTlv().size(), 1u);
   EXPECT_EQ(rs->unknownTlv(9)->value().value(), "y");
   rs->resetAttrs();
   EXPECT_TRUE(rs->sysName().empty());
   EXPECT_TRUE(rs->unknownTlv().empty());
   EXPECT_EQ(rs->index(), 3);  // identity survives a reset

   Lldp::PortStatus ps(Wire::IntfId("Ethernet1"), 0);
   ps.rxFramesTotalIs(0xffffffff);
   ps.rxFramesTotalInc();
   EXPECT_EQ(ps.rxFramesTotal(), 0u);  // 32-bit counters wrap
   ps.txFramesTotalInc(3);
   EXPECT_EQ(ps.txFramesTotal(), 3u);
}

TEST(Records, IdentifiersHaveADisplayForm) {
   EXPECT_EQ(
       Lldp::ChassisIdentifier({.subtype = 4, .value = std::string("\x00\x1c\x73\x01\x02\x03", 6)})
           .stringValue(),
       "00:1c:73:01:02:03");
   EXPECT_EQ(Lldp::PortIdentifier({.subtype = 5, .value = "Ethernet1"}).stringValue(), "Ethernet1");
   EXPECT_EQ(
       Lldp::ChassisIdentifier({.subtype = 5, .value = std::string("\x01\x0a\x00\x00\x01", 5)})
           .stringValue(),
       "10.0.0.1");
   EXPECT_EQ(Lldp::PortIdentifier({.subtype = 7, .value = std::string("a\x01", 2)}).stringValue(),
             "61:01");
}

TEST(Records, PrintAndJsonUseAttributeNames) {
   auto ls = Vel::make<Lldp::LocalSystem>();
   ls->sysNameIs("leaf1");
   ls->sysCapSupportedIs(Lldp::SystemCapabilitiesMap(0x14));
   // 10.0.0.1 on interface index 12.
   Lldp::ManagementAddress addr(
       {Lldp::ManagementAddress::Key({Lldp::addrFamilyIpv4, std::string("\x0a\x00\x00\x01", 4)}),
        Lldp::ifNumberingIfIndex, 12});
   ls->managementAddressIs(addr);
   ls->managementAddressPrioIs(Lldp::ManAddrPriority({.primaryPriority = 5}), addr.key());
   ls->localPortIs(Wire::IntfId("Ethernet2"))->portDescIs("uplink");

   auto j = Vel::toJson(ls);
   EXPECT_EQ(j["sysName"], "leaf1");
   EXPECT_EQ(j["sysCapSupported"], Vel::Json::array({"bridge", "router"}));
   EXPECT_EQ(j["managementAddress"][0]["key"],
             Vel::Json({{"subtype", "ipv4"}, {"address", "10.0.0.1"}}));
   EXPECT_EQ(j["managementAddress"][0]["ifNumber"], 12);
   EXPECT_EQ(j["managementAddressPrio"][0]["key"]["primaryPriority"], 5);
   EXPECT_EQ(j["localPort"][0]["intfId"], "Ethernet2");
   EXPECT_EQ(j["localPort"][0]["portDesc"], "uplink");
   EXPECT_EQ(j["localPort"][0]["localPortPoeInfo"], nullptr);

   std::ostringstream os;
   os << Lldp::NetworkPolicyTlv({.appType = 1, .tagged = true, .vlanId = 10});
   EXPECT_EQ(
       os.str(),
       "NetworkPolicyTlv(appType=1, unknown=false, tagged=true, vlanId=10, priority=0, dscp=0)");
   // Hostile bytes export as escaped text, never as invalid UTF-8.
   auto rs = Vel::make<Lldp::RemoteSystem>(1, Lldp::Msap());
   rs->sysDescIs(std::string("\xff\xfe", 2));
   EXPECT_NO_THROW(Vel::toJson(rs).dump());
}

TEST(Records, KeysHashAndOrder) {
   Lldp::UnknownOrgDefTlv::Key a({.oui = Lldp::ouiTia, .subtype = 1, .index = 1});
   Lldp::UnknownOrgDefTlv::Key b({.oui = Lldp::ouiTia, .subtype = 1, .index = 2});
   EXPECT_LT(a, b);
   EXPECT_NE(a.hash(), b.hash());
   Lldp::Msap m1({.portIdentifier = Lldp::PortIdentifier({.subtype = 1, .value = "p"})});
   Lldp::Msap m2 = m1;
   EXPECT_EQ(m1, m2);
   EXPECT_EQ(m1.hash(), m2.hash());
}

}  // namespace

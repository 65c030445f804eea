// What the command line shows of a neighbour: the JSON view's names and value forms, and
// the text decoded for people, from one record that carries the organizationally
// specific TLVs.
#include <gtest/gtest.h>

#include "Cli/CliText.h"
#include "Cli/CliViews.h"

namespace {

Lldp::RemoteSystem::Ptr richNeighbour() {
   Lldp::Msap msap({.chassisIdentifier = Lldp::ChassisIdentifier(
                        {.subtype = Lldp::chassisIdSubtypeMacAddress,
                         .value = std::string("\x00\x1c\x73\x00\x00\x01", 6)}),
                    .portIdentifier = Lldp::PortIdentifier({.subtype = Lldp::portIdSubtypeLocal,
                                                            .value = std::string("\x01\x02", 2)})});
   auto r = Vel::make<Lldp::RemoteSystem>(7, msap);
   r->sysNameIs(Lldp::BoundedString255Tlv("phone-1"));
   r->ttlIs(120);
   r->creationTimeIs(100);
   r->expiryTimeIs(220);
   r->managementAddressIs(Lldp::ManagementAddress(
       {.key = Lldp::ManagementAddress::Key(
            {.subtype = Lldp::addrFamilyIpv4, .address = std::string("\xc0\x00\x02\x07", 4)}),
        .ifNumberingSubtype = Lldp::ifNumberingIfIndex,
        .ifNumber = 3}));
   r->vlanNameIs(Lldp::VlanName({.vlanId = Bridging::VlanId(10), .name = "voice"}));
   r->powerViaMdiTlvReceivedIs(true);
   r->powerViaMdiInfoIs(Lldp::PowerViaMdiInfo({.form = Lldp::PowerViaMdiInfo::formDot3at,
                                               .mdiPowerSupport = 0x07,
                                               .psePowerPair = 1,
                                               .powerClass = 5,
                                               .typeSourcePriority = 0x51,
                                               .pdRequestedPower = 255,
                                               .pseAllocatedPower = 130}));
   r->medCapabilitiesTlvReceivedIs(true);
   r->medCapabilitiesInfoIs(
       Lldp::MedCapabilitiesInfo({.capabilities = Lldp::MedCapability(0x03), .deviceType = 3}));
   r->networkPolicyTlvIs(Lldp::NetworkPolicyTlv(
       {.appType = 1, .tagged = true, .vlanId = 10, .priority = 5, .dscp = 46}));
   Lldp::LocationId location;
   location.formatIs(Lldp::LocationId::formatElin);
   location.elinIs(Vel::FixedString<25>("5551234567"));
   r->locationIdIs(location);
   r->modelNameTlvInfoIs(Lldp::BoundedString32Tlv("IP-7960"));
   return r;
}

TEST(CliViews, NeighbourJsonUsesAttributeNamesAndTextForms) {
   auto r = richNeighbour();
   const Vel::Json summary = Cli::remoteSystemJson(*r, false);
   EXPECT_EQ(summary["chassisIdentifier"],
             Vel::Json({{"subtype", "macAddress"}, {"value", "00:1c:73:00:00:01"}}));
   EXPECT_EQ(summary["portIdentifier"]["value"], "01:02");  // not printable: hex
   EXPECT_EQ(summary["sysName"], "phone-1");
   EXPECT_FALSE(summary.contains("vlanName"));

   const Vel::Json detail = Cli::remoteSystemJson(*r, true);
   EXPECT_FALSE(detail.contains("msap"));
   EXPECT_EQ(detail["managementAddress"][0]["key"],
             Vel::Json({{"subtype", "ipv4"}, {"address", "192.0.2.7"}}));
   EXPECT_EQ(detail["vlanName"][0], Vel::Json({{"vlanId", 10}, {"name", "voice"}}));
   EXPECT_EQ(detail["powerViaMdiInfo"]["pdRequestedPower"], 255);
   EXPECT_EQ(detail["medCapabilitiesInfo"]["capabilities"],
             Vel::Json({"lldpMedCapabilities", "networkPolicy"}));
}

TEST(CliViews, ViewsGroupPortsAndRefuseUnknownInterfaces) {
   auto status = Vel::make<Lldp::Status>();
   auto all = Vel::make<Lldp::AllStatus>();
   auto port = status->portStatusIs(Wire::IntfId("eth1"), 0.0);
   port->rxFramesTotalInc(4);
   port->rxNeighborsRefusedInc(3);
   port->rxNeighborsRefusedTotalLimitInc(5);
   all->portStatusIs(Wire::IntfId("eth1"), port);
   all->remTablesInsertsIs(2);
   Cli::View v = Cli::statisticsView(*all, nullptr, "", 5);
   ASSERT_TRUE(v.ok());
   EXPECT_EQ(v.json["interfaces"]["eth1"]["rxFramesTotal"], 4);
   EXPECT_EQ(v.json["interfaces"]["eth1"]["rxNeighborsRefused"], 3);
   const std::string text = Cli::statisticsText(v.json);
   EXPECT_EQ(v.json["interfaces"]["eth1"]["rxNeighborsRefusedTotalLimit"], 5);
   EXPECT_NE(text.find("RateLimited  NbrRefused  NbrRefusedTotal"), std::string::npos) << text;
   EXPECT_NE(text.find("0            3           5"), std::string::npos) << text;
   EXPECT_EQ(v.json["remTablesInserts"], 2);
   EXPECT_EQ(v.json["currentTime"], 5);
   EXPECT_FALSE(v.json["interfaces"]["eth1"].contains("remoteSystem"));
   Cli::View none = Cli::neighborsView(*all, false, "eth9", 5);
   EXPECT_FALSE(none.ok());
   EXPECT_EQ(none.error, "interface eth9: no LLDP on this interface");
}

TEST(CliText, DetailDecodesOrganizationalTlvsForPeople) {
   auto r = richNeighbour();
   const Vel::Json view = {
       {"currentTime", 130},
       {"interfaces", {{"eth1", {{"remoteSystem", {Cli::remoteSystemJson(*r, true)}}}}}}};
   const std::string text = Cli::neighborsText(view, true);
   for (const char* expected :
        {"Chassis ID          : 00:1c:73:00:00:01 (macAddress)",
         "TTL                 : 120 s, expires in 1m30s",
         "Management address  : 192.0.2.7 (ipv4), interface ifIndex 3",
         "VLAN names          : 10 voice", "requested 25.5 W, allocated 13.0 W", "class 4",
         "type 2 PD", "device type endpoint class III",
         "Network policy      : voice: VLAN 10 tagged, priority 5, DSCP 46",
         "Location            : ELIN 5551234567", "Model               : IP-7960"}) {
      EXPECT_NE(text.find(expected), std::string::npos) << expected << "\n" << text;
   }
   const std::string table = Cli::neighborsText(view, false);
   EXPECT_NE(table.find("eth1       00:1c:73:00:00:01  01:02    phone-1      120  30s"),
             std::string::npos)
       << table;
   EXPECT_EQ(Cli::durationText(3725), "1h02m");
   EXPECT_EQ(Cli::durationText(-1), "-");
}

}  // namespace

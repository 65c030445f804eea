// What the command line shows of a neighbour: the JSON view's names and value forms, and
// the text decoded for people, from one record that carries the organizationally
// specific TLVs; the names of the numbers, and the times as ages and wall-clock stamps.
#include <gtest/gtest.h>
#include <time.h>

#include <cmath>
#include <cstdio>

#include "Cli/CliText.h"
#include "Daemon/CliViews.h"
#include "Records/LldpNames.h"

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
   r->macPhyConfigStatusTlvReceivedIs(true);
   // 10BASE-T, 10BASE-T FD, 100BASE-TX, 100BASE-TX FD and 1000BASE-T FD; 10GBASE-T.
   r->macPhyConfigStatusInfoIs(
       Lldp::MacPhyConfigStatusInfo({.autonegSupported = true,
                                     .autonegEnabled = true,
                                     .pmdAutonegAdvertisedCapability = 0x6c01,
                                     .operationalMauType = 54}));
   return r;
}

// The agent clock at 130 is this wall-clock time (2023-11-14T22:13:20.500Z).
const Cli::ViewTime viewTime(130, 1700000000.5);

// Seconds since the epoch of an RFC 3339 UTC time with milliseconds, or -1.
double parseRfc3339(const std::string& s) {
   std::tm tm{};
   const char* rest = ::strptime(s.c_str(), "%Y-%m-%dT%H:%M:%S", &tm);
   int ms = 0, used = 0;
   if (!rest || std::sscanf(rest, ".%3dZ%n", &ms, &used) != 1 || rest[used] != 0) return -1;
   return double(::timegm(&tm)) + ms / 1000.0;
}

TEST(LldpNames, NumbersHaveTheirStandardNamesAndOthersStayNumbers) {
   struct Case {
      const char* (*lookup)(unsigned);
      unsigned value;
      const char* name;  // nullptr: no name
   };
   for (const Case& c :
        std::initializer_list<Case>{{Lldp::mauTypeName, 0, nullptr},
                                    {Lldp::mauTypeName, 1, "AUI"},
                                    {Lldp::mauTypeName, 16, "100BASE-TX full duplex"},
                                    {Lldp::mauTypeName, 30, "1000BASE-T full duplex"},
                                    {Lldp::mauTypeName, 36, "10GBASE-SR"},
                                    {Lldp::mauTypeName, 54, "10GBASE-T"},
                                    {Lldp::mauTypeName, 93, "25GBASE-SR"},
                                    {Lldp::mauTypeName, 104, "5GBASE-T"},
                                    {Lldp::mauTypeName, 105, nullptr},
                                    {Lldp::powerClassName, 0, nullptr},
                                    {Lldp::powerClassName, 1, "class 0"},
                                    {Lldp::powerClassName, 5, "class 4"},
                                    {Lldp::powerClassName, 6, nullptr},
                                    {Lldp::powerTypeName, 3, "type 1 PD"},
                                    {Lldp::powerPriorityName, 1, "critical"},
                                    {Lldp::psePowerPairName, 2, "spare"},
                                    {Lldp::powerClassExtName, 8, "class 8"},
                                    {Lldp::powerClassExtName, 15, "dual-signature PD"},
                                    {Lldp::powerClassExtName, 9, nullptr},
                                    {Lldp::powerTypeExtName, 5, "type 4 dual-signature PD"},
                                    {Lldp::powerTypeExtName, 6, nullptr},
                                    {Lldp::medDeviceTypeName, 4, "Network Connectivity"},
                                    {Lldp::medDeviceTypeName, 5, nullptr},
                                    {Lldp::medApplicationName, 0, nullptr},
                                    {Lldp::medApplicationName, 1, "Voice"},
                                    {Lldp::medApplicationName, 8, "Video Signaling"},
                                    {Lldp::medApplicationName, 9, nullptr},
                                    {Lldp::locationFormatName, 3, "ECS ELIN"},
                                    {Lldp::civicCaTypeName, 6, "street group"},
                                    {Lldp::civicCaTypeName, 7, nullptr},
                                    {Lldp::civicCaTypeName, 19, "house number"},
                                    {Lldp::civicCaTypeName, 39, "road post-modifier"},
                                    {Lldp::civicCaTypeName, 128, "script"}}) {
      const char* got = c.lookup(c.value);
      EXPECT_EQ(Lldp::nameOr(got, c.value), c.name ? c.name : std::to_string(c.value)) << c.value;
   }
   EXPECT_STREQ(Lldp::powerSourceName(1, false), "primary");
   EXPECT_STREQ(Lldp::powerSourceName(1, true), "PSE");
   EXPECT_EQ(Lldp::powerSourceName(3, false), nullptr);
   // Bit 0 of the capability bits is the most significant bit on the wire.
   EXPECT_EQ(Lldp::autonegModeNames(0x8000), std::vector<std::string>{"other"});
   EXPECT_EQ(Lldp::autonegModeNames(0x0001), std::vector<std::string>{"1000BASE-T full duplex"});
   EXPECT_EQ(Lldp::autonegModeNames(0x0018),
             (std::vector<std::string>{"asymmetric and symmetric PAUSE", "1000BASE-X"}));
   EXPECT_TRUE(Lldp::autonegModeNames(0).empty());
}

TEST(CliViews, NeighbourTimesAreAgesAndWallClockStamps) {
   auto r = richNeighbour();
   r->lastChangeTimeIs(125.25);
   for (bool detail : {false, true}) {
      const Vel::Json j = Cli::remoteSystemJson(*r, detail, viewTime);
      // The clock values stay; age and TTL left agree with them and with the text.
      EXPECT_EQ(j["creationTime"], 100);
      EXPECT_EQ(j["age"], 30);
      EXPECT_EQ(j["ttlRemaining"], 90);
      EXPECT_EQ(j["creationTimestamp"], "2023-11-14T22:12:50.500Z");
      EXPECT_EQ(j["lastChangeTimestamp"], "2023-11-14T22:13:15.750Z");
      for (const char* key : {"creationTimestamp", "lastChangeTimestamp"}) {
         const std::string ts = j[key].get<std::string>();
         const double clock = j[std::string(key, std::strlen(key) - 5)].get<double>();  // "...Time"
         EXPECT_DOUBLE_EQ(parseRfc3339(ts), viewTime.wallNow - (viewTime.now - clock)) << ts;
      }
   }
   // A view taken now reads the wall clock with the agent clock.
   const double wallNow = double(::time(nullptr));
   const Vel::Json stamp = Cli::ViewTime(1000).timestamp(990);
   ASSERT_TRUE(stamp.is_string());
   EXPECT_NEAR(parseRfc3339(stamp.get<std::string>()), wallNow - 10, 2);
   // Past its expiry (the age timer not yet run): no time left, never a negative one.
   EXPECT_EQ(Cli::remoteSystemJson(*r, false, Cli::ViewTime(300, 0))["ttlRemaining"], 0);
   // Dates across leap days, centuries and eras, against the C library's calendar.
   for (double t : {0.0, 59.9996, -0.0004, -1.5, 951782400.0 /* 2000-02-29 */, 4107542399.999,
                    1709164800.25 /* 2024-02-29 */, 1700000000.5, 253402300799.0}) {
      const std::time_t whole = static_cast<std::time_t>(std::floor(std::round(t * 1000) / 1000));
      std::tm tm{};
      ::gmtime_r(&whole, &tm);
      char expected[96];
      std::snprintf(expected, sizeof expected, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ",
                    tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                    int(std::llround(t * 1000) - whole * 1000LL));
      EXPECT_EQ(Cli::rfc3339(t), expected) << t;
   }
   EXPECT_EQ(Cli::rfc3339(59.9996), "1970-01-01T00:01:00.000Z");
}

TEST(CliViews, NeighbourJsonUsesAttributeNamesAndTextForms) {
   auto r = richNeighbour();
   const Vel::Json summary = Cli::remoteSystemJson(*r, false, viewTime);
   EXPECT_EQ(summary["chassisIdentifier"],
             Vel::Json({{"subtype", "macAddress"}, {"value", "00:1c:73:00:00:01"}}));
   EXPECT_EQ(summary["portIdentifier"]["value"], "01:02");  // not printable: hex
   EXPECT_EQ(summary["sysName"], "phone-1");
   EXPECT_FALSE(summary.contains("vlanName"));

   const Vel::Json detail = Cli::remoteSystemJson(*r, true, viewTime);
   EXPECT_FALSE(detail.contains("msap"));
   EXPECT_EQ(detail["managementAddress"][0]["key"],
             Vel::Json({{"subtype", "ipv4"}, {"address", "192.0.2.7"}}));
   EXPECT_EQ(detail["vlanName"][0], Vel::Json({{"vlanId", 10}, {"name", "voice"}}));
   EXPECT_EQ(detail["powerViaMdiInfo"]["pdRequestedPower"], 255);
   EXPECT_EQ(detail["medCapabilitiesInfo"]["capabilities"],
             Vel::Json({"lldpMedCapabilities", "networkPolicy"}));
   // Numbers keep their fields and gain their names beside them.
   const Vel::Json& macPhy = detail["macPhyConfigStatusInfo"];
   EXPECT_EQ(macPhy["operationalMauType"], 54);
   EXPECT_EQ(macPhy["operationalMauTypeName"], "10GBASE-T");
   EXPECT_EQ(macPhy["pmdAutonegAdvertisedCapability"], 0x6c01);
   EXPECT_EQ(macPhy["advertisedModes"],
             Vel::Json({"10BASE-T", "10BASE-T full duplex", "100BASE-TX", "100BASE-TX full duplex",
                        "1000BASE-T full duplex"}));
   const Vel::Json& power = detail["powerViaMdiInfo"];
   EXPECT_EQ(power["powerClass"], 5);
   EXPECT_EQ(power["powerClassName"], "class 4");
   EXPECT_EQ(power["typeSourcePriority"], 0x51);
   EXPECT_EQ(power["powerTypeName"], "type 2 PD");
   EXPECT_EQ(power["powerSourceName"], "PSE");  // a PD's source
   EXPECT_EQ(power["powerPriorityName"], "critical");
   // The IEEE 802.3bt form: power class ext (power status bits 3..0) and power type ext
   // (system setup bits 3..1).
   const Vel::Json bt = Cli::powerViaMdiJson(Lldp::PowerViaMdiInfo(
       {.form = Lldp::PowerViaMdiInfo::formDot3bt, .powerStatus = 0x0006, .systemSetup = 0x04}));
   EXPECT_EQ(bt["powerClassExtName"], "class 6");
   EXPECT_EQ(bt["powerTypeExtName"], "type 3 single-signature PD");
   EXPECT_EQ(bt["powerClassName"], "0") << "no class in the 802.3at field: its number";
   EXPECT_EQ(detail["medCapabilitiesInfo"]["deviceTypeName"], "Endpoint Class III");
   EXPECT_EQ(detail["networkPolicyTlv"][0]["appType"], 1);
   EXPECT_EQ(detail["networkPolicyTlv"][0]["appTypeName"], "Voice");
   EXPECT_EQ(detail["locationId"]["formatName"], "ECS ELIN");
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
   all->remTablesLastChangeTimeIs(129);
   auto limits = Vel::make<Daemon::ClientLimits>();
   limits->clientsRefusedInc(7);
   limits->powerRequestsRefusedInc(2);
   Cli::View v = Cli::statisticsView(*all, nullptr, "", viewTime, limits.ptr());
   ASSERT_TRUE(v.ok());
   EXPECT_EQ(v.json["clientLimits"]["clientsRefused"], 7);
   EXPECT_EQ(v.json["clientLimits"]["maxClients"], 256);
   EXPECT_EQ(v.json["interfaces"]["eth1"]["rxFramesTotal"], 4);
   EXPECT_EQ(v.json["interfaces"]["eth1"]["rxNeighborsRefused"], 3);
   const std::string text = Cli::statisticsText(v.json);
   EXPECT_EQ(v.json["interfaces"]["eth1"]["rxNeighborsRefusedTotalLimit"], 5);
   EXPECT_NE(text.find("RateLimited  NbrRefused  NbrRefusedTotal"), std::string::npos) << text;
   EXPECT_NE(text.find("0            3           5"), std::string::npos) << text;
   EXPECT_NE(text.find("refused for a limit: 7 connections, 0 requests too long, 0 dropped "
                       "unread, 0 external TLV sets, 2 power requests\n"),
             std::string::npos)
       << text;
   EXPECT_EQ(v.json["remTablesInserts"], 2);
   EXPECT_EQ(v.json["currentTime"], 130);
   EXPECT_EQ(v.json["currentTimestamp"], "2023-11-14T22:13:20.500Z");
   EXPECT_EQ(v.json["remTablesLastChangeTime"], 129);
   EXPECT_EQ(v.json["remTablesLastChangeTimestamp"], "2023-11-14T22:13:19.500Z");
   EXPECT_TRUE(v.json["lastPacketParsedTimestamp"].is_null()) << "never";
   EXPECT_TRUE(v.json["interfaces"]["eth1"]["lastTxTimestamp"].is_null()) << "never";
   EXPECT_FALSE(v.json["interfaces"]["eth1"].contains("remoteSystem"));
   Cli::View none = Cli::neighborsView(*all, false, "eth9", 5);
   EXPECT_FALSE(none.ok());
   EXPECT_EQ(none.error, "interface eth9: no LLDP on this interface");
}

TEST(CliText, DetailDecodesOrganizationalTlvsForPeople) {
   auto r = richNeighbour();
   Lldp::LocationId civic;
   civic.formatIs(Lldp::LocationId::formatCivic);
   civic.civicAddressMut().countryCodeIs(Vel::FixedString<2>("DE"));
   civic.civicAddressMut().caElementIs(3, "Berlin");
   civic.civicAddressMut().caElementIs(200, "x");
   auto unnamed = richNeighbour();
   unnamed->locationIdIs(civic);
   unnamed->macPhyConfigStatusInfoIs(Lldp::MacPhyConfigStatusInfo({.operationalMauType = 200}));
   unnamed->networkPolicyTlvIs(Lldp::NetworkPolicyTlv({.appType = 9, .vlanId = 1}));
   const Vel::Json view = {{"currentTime", 130},
                           {"interfaces",
                            {{"eth1",
                              {{"remoteSystem",
                                {Cli::remoteSystemJson(*r, true, viewTime),
                                 Cli::remoteSystemJson(*unnamed, true, viewTime)}}}}}}};
   const std::string text = Cli::neighborsText(view, true);
   for (const char* expected :
        {"Chassis ID          : 00:1c:73:00:00:01 (macAddress)",
         "TTL                 : 120 s, expires in 1m30s",
         "Management address  : 192.0.2.7 (ipv4), interface ifIndex 3",
         "VLAN names          : 10 voice",
         "Power via MDI       : PSE, supported, enabled, power pair signal, class 4, type 2 PD, "
         "source PSE, priority critical, requested 25.5 W, allocated 13.0 W",
         "LLDP-MED            : lldpMedCapabilities, networkPolicy; device type Endpoint Class III",
         "Network policy      : Voice: VLAN 10 tagged, priority 5, DSCP 46",
         "Location            : ECS ELIN 5551234567", "Model               : IP-7960",
         "MAC/PHY             : autonegotiation supported and enabled, advertised 10BASE-T, "
         "10BASE-T full duplex, 100BASE-TX, 100BASE-TX full duplex, 1000BASE-T full duplex "
         "(0x6c01), MAU type 10GBASE-T (54)",
         // Values without a name are shown as their numbers.
         "MAC/PHY             : autonegotiation not supported, advertised nothing (0x0000), "
         "MAU type 200",
         "Network policy      : 9: untagged, priority 0",
         "Location            : Civic Address LCI, country DE, city (3): Berlin, 200: x"}) {
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

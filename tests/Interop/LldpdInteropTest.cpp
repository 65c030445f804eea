// Our daemon against an independent LLDP implementation (Debian's lldpd, run as a black-box
// peer) and a packet analyser (tshark), over veths in network namespaces the tests create.
// Each side's view is read the way its users read it: ours through `lldp ... --json`,
// lldpd's through `lldpcli -f json`, and the two are compared field by field.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>
#include <regex>
#include <set>

#include "tests/Interop/LldpdInteropFixture.h"

namespace {

using namespace Interop;  // the peers and the JSON helpers

// ---- Reading both sides' JSON --------------------------------------------------------------

// Reading goes through non-const JSON values throughout: a missing member reads as null
// there instead of being undefined behaviour.

// A string member as a string, anything else (null, a number) as its JSON text, so that a
// wrong type shows up as a mismatch rather than an exception.
std::string text(Json j) {
   return j.is_string() ? j.get<std::string>() : j.dump();
}

std::set<std::string> strings(Json array) {
   std::set<std::string> out;
   for (Json s : Lldpd::list(array)) out.insert(text(s));
   return out;
}

// lldpd's word in ours, by a table ("?word" for one the table does not have). The LLDP-MED
// device classes and applications translate to our numbers.
using Words = std::map<std::string, std::string>;
std::string ourWord(const Words& words, Json lldpdWord) {
   auto it = words.find(text(lldpdWord));
   return it == words.end() ? std::string("?").append(text(lldpdWord)) : it->second;
}
const Words idSubtypes = {
    {"mac", "macAddress"},    {"ifname", "interfaceName"},   {"local", "local"},
    {"ip", "networkAddress"}, {"ifalias", "interfaceAlias"},
};
const Words capabilities = {
    {"Other", "other"},          {"Repeater", "repeater"},
    {"Bridge", "bridge"},        {"Router", "router"},
    {"Tel", "telephone"},        {"Station", "stationOnly"},
    {"Wlan", "wlanAccessPoint"}, {"Docsis", "docsisCableDevice"},
};
const Words medCapabilities = {
    {"Capabilities", "lldpMedCapabilities"}, {"Policy", "networkPolicy"},
    {"Location", "locationIdentification"},  {"MDI/PSE", "extendedPowerViaMdiPse"},
    {"MDI/PD", "extendedPowerViaMdiPd"},     {"Inventory", "inventory"},
};
const Words medDeviceTypes = {{"Generic Endpoint (Class I)", "1"},
                              {"Media Endpoint (Class II)", "2"},
                              {"Communication Device Endpoint (Class III)", "3"},
                              {"Network Connectivity Device", "4"}};
const Words medAppTypes = {
    {"Voice", "1"},           {"Voice Signaling", "2"},
    {"Guest Voice", "3"},     {"Guest Voice Signaling", "4"},
    {"Softphone Voice", "5"}, {"Video Conferencing", "6"},
    {"Streaming Video", "7"}, {"Video Signaling", "8"},
};

// A byte string as shown by either side: lldpd writes "01,02,fe"; we write printable
// bytes as text and any other as "01:02:fe".
std::string bytesOf(const std::string& shown, char separator) {
   const std::string sep(1, separator), hex = "[0-9a-fA-F]{2}";
   if (!std::regex_match(shown, std::regex(hex + "(" + sep + hex + ")*"))) return shown;
   std::string out;
   for (size_t i = 0; i < shown.size(); i += 3) {
      out.push_back(static_cast<char>(std::strtoul(shown.substr(i, 2).c_str(), nullptr, 16)));
   }
   return out;
}

// The coordinate location as 16 bytes: latitude and longitude each with a 6-bit
// resolution and 34-bit fixed point value (25 fraction bits), a 4-bit altitude type, 6-bit
// resolution and 30-bit value (8 fraction bits), then the datum.
struct Coordinate {
   double latitude, longitude, altitude;
   int altitudeType, datum;
};
Coordinate decodeCoordinate(const std::string& bytes) {
   unsigned __int128 all = 0;
   for (size_t i = 0; i < 16; ++i) all = all << 8 | static_cast<uint8_t>(bytes.at(i));
   // `count` bits from bit `from`, bit 0 being the first sent.
   auto bits = [&](int from, int count) {
      return static_cast<uint64_t>(all >> (128 - from - count)) & ((uint64_t(1) << count) - 1);
   };
   auto fixed = [&](int from, int count, int fraction) {
      int64_t v = static_cast<int64_t>(bits(from, count));
      if (v & (int64_t(1) << (count - 1))) v -= int64_t(1) << count;
      return static_cast<double>(v) / static_cast<double>(int64_t(1) << fraction);
   };
   return {fixed(6, 34, 25), fixed(46, 34, 25), fixed(90, 30, 8), int(bits(80, 4)),
           int(bits(120, 8))};
}

// "48.85666N" as +48.85666, "2.2013W" as -2.2013.
double signedDegrees(const std::string& s) {
   const double v = std::strtod(s.c_str(), nullptr);
   return (s.back() == 'S' || s.back() == 'W') ? -v : v;
}

// Our IP management addresses (the only kind lldpd shows): those we advertise, or a
// neighbour's, which hold theirs under "key".
std::set<std::string> ourIps(Json addresses) {
   std::set<std::string> out;
   for (Json m : Lldpd::list(addresses)) {
      Json key = m.contains("key") ? m["key"] : m;
      if (key["subtype"] == "ipv4" || key["subtype"] == "ipv6") out.insert(text(key["address"]));
   }
   return out;
}

// A chassis as lldpd shows it (its name and entry) against ours: identity, name,
// description, capabilities and management addresses (`supported`, `enabled` and
// `addresses` are our lists).
void expectSameChassis(const std::string& sysName, Json chassis, Json ours, Json supported,
                       Json enabled, Json addresses) {
   EXPECT_EQ(ourWord(idSubtypes, at(chassis, {"id", "type"})),
             ours["chassisIdentifier"]["subtype"]);
   EXPECT_EQ(at(chassis, {"id", "value"}), ours["chassisIdentifier"]["value"]);
   EXPECT_EQ(sysName, ours["sysName"]);
   EXPECT_EQ(chassis["descr"], ours["sysDesc"]);
   std::set<std::string> theirSupported, theirEnabled;
   for (Json cap : Lldpd::list(chassis["capability"])) {
      theirSupported.insert(ourWord(capabilities, cap["type"]));
      if (cap["enabled"] == true) theirEnabled.insert(ourWord(capabilities, cap["type"]));
   }
   EXPECT_EQ(theirSupported, strings(supported));
   EXPECT_EQ(theirEnabled, strings(enabled));
   EXPECT_EQ(strings(chassis["mgmt-ip"]), ourIps(addresses));
}

// A port as lldpd shows it against our identifier and description.
void expectSamePort(Json port, Json ourId, Json ourDesc) {
   EXPECT_EQ(ourWord(idSubtypes, at(port, {"id", "type"})), ourId["subtype"]);
   EXPECT_EQ(at(port, {"id", "value"}), ourId["value"]);
   EXPECT_EQ(port.value("descr", ""), ourDesc);
}

// lldpd's LLDP-MED view against ours: device type, capabilities and network policies.
void expectSameMed(Json med, Json ourCapabilities, Json ourPolicies) {
   EXPECT_EQ(ourWord(medDeviceTypes, med["device-type"]), text(ourCapabilities["deviceType"]));
   std::set<std::string> caps;
   for (Json c : Lldpd::list(med["capability"])) {
      if (c.value("available", false)) caps.insert(ourWord(medCapabilities, c["type"]));
   }
   EXPECT_EQ(caps, strings(ourCapabilities["capabilities"]));
   Json policies = Lldpd::list(med["policy"]);
   ourPolicies = Lldpd::list(ourPolicies);
   ASSERT_EQ(policies.size(), ourPolicies.size());
   for (size_t i = 0; i < policies.size(); ++i) {
      Json theirs = policies[i], ours = ourPolicies[i];
      EXPECT_EQ(ourWord(medAppTypes, theirs["apptype"]), text(ours["appType"]));
      EXPECT_EQ(theirs.value("defined", true), !ours["unknown"].get<bool>());
      // lldpd shows the VLAN of tagged policies only.
      EXPECT_EQ(at(theirs, {"vlan", "vid"}),
                ours["tagged"] == true ? Json(text(ours["vlanId"])) : Json());
      EXPECT_EQ(theirs.value("pcp", ""), text(ours["priority"]));
      EXPECT_EQ(theirs.value("dscp", ""), text(ours["dscp"]));
   }
}

// ---- lldpd and tshark see our agent exactly as we say we advertise --------------------------

TEST_F(LldpdInterop, LldpdAndTsharkSeeWhatWeAdvertise) {
   const auto link = addLink();
   const std::string ours = link.first, theirs = link.second, nsA = ns_->nsA();
   ASSERT_TRUE(TestSupport::ipIn(nsA, "link set " + ours + " alias 'uplink to peer'"));
   ASSERT_TRUE(bridge(ours));  // for the port VLAN ID and a VLAN name
   // Management addresses of both families, numbered by interface index.
   ASSERT_TRUE(TestSupport::ipIn(nsA, "addr add 192.0.2.1/24 dev " + ours));
   ASSERT_TRUE(TestSupport::ipIn(nsA, "addr add 2001:db8::1/64 nodad dev " + ours));
   std::string mac;
   ASSERT_TRUE(TestSupport::runIn(nsA, "cat /sys/class/net/" + ours + "/address", &mac));
   // Our frames only (lldpd's are not ours to judge), five of them or eight seconds.
   Tshark capture(nsA, ours, "a", 5, 8, "ether src " + mac.substr(0, mac.find('\n')));
   ASSERT_TRUE(capture.capturing()) << capture.log();

   // Every TLV our configuration language can switch on.
   std::string config = agentTimers;
   for (const char* tlv :
        {"port-description", "system-name", "system-description", "system-capabilities",
         "management-address", "port-vlan", "vlan-name", "link-aggregation", "max-frame-size",
         "power-via-mdi", "med-network-policy"}) {
      config += std::string("lldp tlv-select ") + tlv + "\n";
   }
   Agent agent(nsA, "a", ourPorts(),
               config +
                   "lldp management-address all\n"
                   "lldp system-name interop-agent\n"
                   "lldp system-description an agent under test\n"
                   "vlan 1 name default-lan\n"
                   "vlan 10 name voice\n"
                   "interface " +
                   ours + "\n   lldp power-via-mdi fallback 15400\n");
   ASSERT_TRUE(agent.running());
   // An LLDP-MED endpoint, so that our agent answers with its LLDP-MED TLVs, and a powered
   // device asking for power, which our fallback allocation answers.
   Lldpd lldpd(ns_->nsB(), "a", peerPorts(), 1);
   ASSERT_TRUE(lldpd.running()) << lldpd.log();
   ASSERT_TRUE(
       lldpd.cli("configure dot3 power pd supported enabled powerpairs signal class"
                 " class-3 type 2 source pse priority high requested 12000 allocated 0"));

   // Our MED TLVs go out once lldpd's have arrived: wait for lldpd to be our neighbour,
   // then for lldpd to hold our frame with everything in it (the local view re-read, as
   // it may move while the port comes up).
   ASSERT_GE(waitFor([&] { return agent.neighbours(ours).size() == 1; }, 5), 0)
       << "we never heard lldpd: " << lldpd.log();
   // To an LLDP-MED endpoint we answer as network connectivity equipment.
   Json local = agent.local(), seen;
   ASSERT_EQ(at(local, {"interfaces", ours.c_str(), "medCapabilities", "deviceType"}), 4)
       << local.dump(1);
   const auto showsUs = [&] {
      seen = lldpd.neighbour(theirs, text(at(local, {"chassisIdentifier", "value"})));
      return seen.contains("lldp-med");
   };
   ASSERT_GE(waitFor(showsUs, 5), 0)
       << "lldpd does not show us: " << lldpd.json("show neighbors details").dump(1);
   local = agent.local();
   Json port = local["interfaces"][ours];
   SCOPED_TRACE("we advertise: " + local.dump() + "\nlldpd sees: " + seen.dump());

   // Chassis: identity, name, description, capabilities, management addresses (the texts we
   // configured are looked for in the decoded frames below).
   const auto chassisList = Lldpd::members(seen["chassis"]);
   ASSERT_EQ(chassisList.size(), 1u);
   auto [sysName, chassis] = chassisList[0];
   expectSameChassis(sysName, chassis, local, local["sysCapSupported"], local["sysCapEnabled"],
                     local["advertisedManagementAddress"]);

   // Port: identity, description, TTL, maximum frame size.
   Json p = seen["port"];
   expectSamePort(p, port["portIdentifier"], port["portDesc"]);
   EXPECT_EQ(at(p, {"id", "value"}), ours);
   EXPECT_EQ(p.value("ttl", ""), text(local["messageTxHoldTime"]));
   EXPECT_EQ(p.value("mfs", ""), text(at(port, {"maximumFrameSizeInfo", "maxFrameSize"})));

   // Link aggregation: lldpd shows the aggregated port only while the port is aggregated.
   const bool aggregated = strings(at(port, {"linkAggregationInfo", "status"})).count("enabled");
   EXPECT_EQ(
       p.contains("aggregation") ? p["aggregation"] : seen["aggregation"],
       aggregated ? Json(text(at(port, {"linkAggregationInfo", "aggregatedPortId"}))) : Json());

   // Port VLAN ID and VLAN names: the bridge's one VLAN, as the configuration names it.
   std::map<std::string, std::string> ourVlans, theirVlans;
   std::string theirPvid;
   for (Json v : Lldpd::list(port["vlanName"])) ourVlans[text(v["vlanId"])] = v["name"];
   for (Json v : Lldpd::list(seen["vlan"])) {
      if (v.value("pvid", false)) theirPvid = v.value("vlan-id", "");
      if (v.contains("value")) theirVlans[v.value("vlan-id", "")] = v["value"];
   }
   EXPECT_EQ(port.value("portVlanId", 0), 1);
   EXPECT_EQ(theirPvid, "1");
   EXPECT_EQ(theirVlans, ourVlans);
   EXPECT_EQ(ourVlans, (std::map<std::string, std::string>{{"1", "default-lan"}}));

   // LLDP-MED: device type, capabilities and network policies, as we advertise them.
   expectSameMed(seen["lldp-med"], port["medCapabilities"], port["localNetworkPolicyTlv"]);

   // The frames decode without a fault in the analyser, and carry what we configured.
   std::string decoded, expert;
   ASSERT_TRUE(capture.decode(&decoded, &expert)) << decoded;
   SCOPED_TRACE(decoded + "\n" + expert);
   size_t frames = 0;
   for (size_t at = 0;
        (at = decoded.find("Link Layer Discovery Protocol\n", at)) != std::string::npos; ++at) {
      ++frames;
   }
   EXPECT_GE(frames, 4u);
   EXPECT_EQ(decoded.find("Malformed"), std::string::npos);
   EXPECT_EQ(decoded.find("Expert Info (Error"), std::string::npos);
   EXPECT_EQ(expert.find("Errors ("), std::string::npos);
   for (const char* tlv :
        {"Chassis Subtype = MAC address", "Port Subtype = Interface name", "Time To Live = 4 sec",
         "Port Description = uplink to peer", "System Name = interop-agent",
         "System Description = an agent under test", "Capabilities", "Management Address",
         "Maximum Frame Size", "Link Aggregation", "Media Capabilities", "MDI Power Support",
         "Port VLAN Identifier: 1 ", "VLAN Name: default-lan", "Management Address: 192.0.2.1",
         "Management Address: 2001:db8::1", "Interface Subtype: ifIndex", "End of LLDPDU"}) {
      EXPECT_NE(decoded.find(tlv), std::string::npos) << tlv;
   }
}

// ---- We see lldpd with every TLV it sends --------------------------------------------------

// What one of lldpd's ports advertises (lldpcli's `show interfaces details` entry) against
// what we hold for the neighbour on the other end of its link.
void expectSameNeighbour(Json theirs, Json ours) {
   SCOPED_TRACE("lldpd advertises: " + theirs.dump() + "\nwe hold: " + ours.dump());
   const auto chassisList = Lldpd::members(theirs["chassis"]);
   ASSERT_EQ(chassisList.size(), 1u);
   auto [sysName, chassis] = chassisList[0];
   expectSameChassis(sysName, chassis, ours, ours["systemCapabilities"]["supported"],
                     ours["systemCapabilities"]["enabled"], ours["managementAddress"]);
   // Management addresses with their interface numbers (numbered by ifIndex).
   EXPECT_EQ(Lldpd::list(ours["managementAddress"]).size(), 1u);
   for (Json m : Lldpd::list(ours["managementAddress"])) {
      EXPECT_EQ(m["ifNumberingSubtype"], 2);
      EXPECT_EQ(strings(chassis["mgmt-iface"]), std::set<std::string>{text(m["ifNumber"])});
   }

   // Port: identity, description, TTL, MAC/PHY.
   Json port = theirs["port"];
   expectSamePort(port, ours["portIdentifier"], ours["portDesc"]);
   EXPECT_EQ(text(ours["ttl"]), at(theirs, {"ttl", "ttl"}));
   if (port.contains("auto-negotiation")) {
      EXPECT_TRUE(ours["macPhyConfigStatusTlvReceived"].get<bool>());
      Json macPhy = ours["macPhyConfigStatusInfo"];
      EXPECT_EQ(macPhy["autonegSupported"], port["auto-negotiation"]["supported"]);
      EXPECT_EQ(macPhy["autonegEnabled"], port["auto-negotiation"]["enabled"]);
      EXPECT_NE(macPhy["operationalMauType"], 0);
      // Our name of the MAU type begins lldpd's description of it ("10GBASE-T" and
      // "10GbaseT - Four-pair Category 6A ..." on a veth link).
      auto squash = [](std::string s) {
         std::erase(s, '-');
         for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
         return s;
      };
      EXPECT_TRUE(squash(text(port["auto-negotiation"]["current"]))
                      .starts_with(squash(text(macPhy["operationalMauTypeName"]))));
   }

   // IEEE 802.3 Power via MDI: lldpd's words against our fields.
   ASSERT_TRUE(port.contains("power"));
   ASSERT_TRUE(ours["powerViaMdiTlvReceived"].get<bool>());
   Json power = port["power"], mdi = ours["powerViaMdiInfo"];
   const int support = mdi["mdiPowerSupport"];
   EXPECT_EQ((support & 1) != 0, power["device-type"] == "PSE");
   EXPECT_EQ((support & 2) != 0, power["supported"].get<bool>());
   EXPECT_EQ((support & 4) != 0, power["enabled"].get<bool>());
   EXPECT_EQ((support & 8) != 0, power["paircontrol"].get<bool>());
   EXPECT_EQ(mdi["psePowerPair"], power["pairs"] == "signal" ? 1 : 2);
   EXPECT_EQ("class " + std::to_string(mdi["powerClass"].get<int>() - 1), power["class"]);
   const int tsp = mdi["typeSourcePriority"];
   EXPECT_EQ((tsp & 0x40) ? "1" : "2", power["power-type"]);
   static const char* priorities[] = {"unknown", "critical", "high", "low"};
   EXPECT_EQ(priorities[tsp & 3], power["priority"]);
   // The names our views give those numbers are lldpd's words too.
   EXPECT_EQ(mdi["powerClassName"], power["class"]);
   EXPECT_EQ(mdi["powerPriorityName"], power["priority"]);
   EXPECT_EQ(mdi["psePowerPairName"], power["pairs"]);
   EXPECT_EQ(std::to_string(mdi["pdRequestedPower"].get<int>() * 100), power["requested"]);
   EXPECT_EQ(std::to_string(mdi["pseAllocatedPower"].get<int>() * 100), power["allocated"]);

   // LLDP-MED: class, capabilities, policy, location, inventory.
   Json med = theirs["lldp-med"];
   ASSERT_TRUE(ours["medCapabilitiesTlvReceived"].get<bool>());
   expectSameMed(med, ours["medCapabilitiesInfo"], ours["networkPolicyTlv"]);

   // One location per port (the peer advertises one format on each link).
   Json locations = Lldpd::list(med["location"]);
   ASSERT_EQ(locations.size(), 1u);
   Json where = locations[0], loc = ours["locationId"];
   if (where["type"] == "Coordinates") {
      ASSERT_EQ(loc["format"], 1);
      const Coordinate c = decodeCoordinate(bytesOf(loc["coordinate"], ':'));
      EXPECT_NEAR(c.latitude, signedDegrees(where["lat"]), 1e-4);
      EXPECT_NEAR(c.longitude, signedDegrees(where["lon"]), 1e-4);
      EXPECT_NEAR(c.altitude, std::strtod(text(at(where, {"altitude", "value"})).c_str(), nullptr),
                  0.01);
      EXPECT_EQ(c.altitudeType, at(where, {"altitude", "unit"}) == "m" ? 1 : 2);
      EXPECT_EQ(c.datum, where["geoid"] == "WGS84" ? 1 : where["geoid"] == "NAD83" ? 2 : 3);
   } else if (where["type"] == "Civic address") {
      ASSERT_EQ(loc["format"], 2);
      Json civic = loc["civicAddress"];
      EXPECT_EQ(civic["what"], 2);
      EXPECT_EQ(civic["countryCode"], where["country"]);
      std::multiset<std::string> theirParts, ourParts;
      for (auto it = where.begin(); it != where.end(); ++it) {
         if (it.key() != "type" && it.key() != "country") theirParts.insert(it.value());
      }
      for (Json e : Lldpd::list(civic["caElements"])) {
         ourParts.insert(e["caValue"]);
         // The city is element type 3, and no other element is.
         EXPECT_EQ(e["caValue"] == where.value("city", ""), e["caType"] == 3) << e;
      }
      EXPECT_EQ(ourParts, theirParts);
   } else {
      ASSERT_EQ(where["type"], "ELIN");
      EXPECT_EQ(loc["format"], 3);
      EXPECT_EQ(loc["elin"], where["ecs"]);
   }

   // Inventory, by (our field, lldpd's word).
   for (auto [field, word] :
        std::map<std::string, std::string>{{"hardwareRevisionTlvInfo", "hardware"},
                                           {"softwareRevisionTlvInfo", "software"},
                                           {"firmwareRevisionTlvInfo", "firmware"},
                                           {"serialNumberTlvInfo", "serial"},
                                           {"manufacturerNameTlvInfo", "manufacturer"},
                                           {"modelNameTlvInfo", "model"},
                                           {"assetIDTlvInfo", "asset"}}) {
      EXPECT_EQ(ours[field], med["inventory"][word]) << field;
   }

   // Operator-defined TLVs, in order, byte for byte.
   Json custom = Lldpd::list(at(theirs, {"unknown-tlvs", "unknown-tlv"}));
   Json ourCustom = Lldpd::list(ours["unknownOrgDefTlv"]);
   ASSERT_EQ(ourCustom.size(), custom.size());
   for (size_t i = 0; i < custom.size(); ++i) {
      std::string oui = custom[i]["oui"];
      std::replace(oui.begin(), oui.end(), ',', '-');
      EXPECT_EQ(ourCustom[i]["key"]["oui"], oui);
      EXPECT_EQ(text(ourCustom[i]["key"]["subtype"]), custom[i]["subtype"]);
      EXPECT_EQ(bytesOf(ourCustom[i]["value"], ':'), bytesOf(custom[i]["value"], ','));
   }
}
TEST_F(LldpdInterop, WeSeeEveryTlvLldpdSendsUntilItShutsDown) {
   // Three links: lldpd gives each a location of another format (a neighbour holds one).
   const auto l0 = addLink(), l1 = addLink(), l2 = addLink();
   ASSERT_TRUE(TestSupport::ipIn(ns_->nsB(), "addr add 192.0.2.2/24 dev " + l0.second));
   Agent agent(ns_->nsA(), "b", ourPorts(), agentTimers);
   ASSERT_TRUE(agent.running());
   Lldpd lldpd(ns_->nsB(), "b", peerPorts(), 3);
   ASSERT_TRUE(lldpd.running()) << lldpd.log();
   const std::vector<std::string> commands = {
       "configure system hostname interop-peer",
       "configure system description 'a black-box peer'",
       "configure system capabilities enabled router",
       "configure system ip management pattern 192.0.2.2",
       "configure ports " + l0.second + " lldp portdescription 'towards the agent'",
       "configure ports " + l0.second +
           " med location address country FR language French city Paris street"
           " 'Rue du Bac' number 12 building Annex floor 3 room R301",
       "configure ports " + l1.second +
           " med location coordinate latitude 48.85667N longitude 2.2014W altitude 117.47 m"
           " datum WGS84",
       "configure ports " + l2.second + " med location elin 1234567890",
       "configure med policy application voice tagged vlan 500 priority voice dscp 46",
       "configure med policy application video-conferencing vlan 20 priority video dscp 34",
       "configure dot3 power pd supported enabled powerpairs spare class class-3 type 1"
       " source pse priority low requested 10000 allocated 15000",
       "configure inventory hardware-revision hw-1.2",
       "configure inventory software-revision sw-3",
       "configure inventory firmware-revision fw-4",
       "configure inventory serial-number SN0042",
       "configure inventory manufacturer 'Interop Labs'",
       "configure inventory model Peer-5",
       "configure inventory asset asset-6",
       // Last: their arrival tells that everything before has arrived too.
       "configure lldp custom-tlv oui 33,44,55 subtype 44 oui-info 01,02,fe,41",
       "configure lldp custom-tlv oui 33,44,55 subtype 45 oui-info 41,42,43",
   };
   for (const std::string& c : commands) {
      std::string out;
      ASSERT_TRUE(lldpd.cli(c, &out)) << c << ": " << out;
   }

   // Everything has arrived once each of our ports holds lldpd with its custom TLVs and
   // the location of its format.
   const std::map<std::string, std::string> ourPortOf = {
       {l0.second, l0.first}, {l1.second, l1.first}, {l2.second, l2.first}};
   const std::map<std::string, int> formatOf = {{l0.first, 2}, {l1.first, 1}, {l2.first, 3}};
   const auto arrived = [&] {
      for (auto [mine, format] : formatOf) {
         Json n = agent.neighbours(mine);
         if (n.size() != 1 || n[0]["unknownOrgDefTlv"].size() != 2 ||
             at(n[0], {"locationId", "format"}) != format || n[0]["sysName"] != "interop-peer" ||
             n[0]["managementAddress"].size() != 1 || n[0]["networkPolicyTlv"].size() != 2) {
            return false;
         }
      }
      return true;
   };
   ASSERT_GE(waitFor(arrived, 8), 0) << "lldpd's configuration did not reach us: "
                                     << agent.cli({"show", "neighbors", "detail"}).dump(1);

   const auto theirs =
       Lldpd::members(at(lldpd.json("show interfaces details"), {"lldp", "interface"}));
   ASSERT_EQ(theirs.size(), 3u);
   for (auto [intf, advertised] : theirs) {
      SCOPED_TRACE("lldpd port " + intf);
      ASSERT_TRUE(ourPortOf.count(intf));
      Json n = agent.neighbours(ourPortOf.at(intf));
      ASSERT_EQ(n.size(), 1u);
      expectSameNeighbour(advertised, n[0]);
   }

   // SIGTERM: lldpd sends a shutdown LLDPDU (TTL 0) on each port on its way out; we drop
   // its neighbours on that frame, not when their TTL runs out (the log tells which).
   // lldpd's own exit status on SIGTERM varies (0 or 1, its two processes race on the way
   // out); what matters is that it left by itself rather than being killed.
   EXPECT_LT(lldpd.stop(SIGTERM), 128);
   for (const auto& link : ourPortOf) {
      const std::string mine = link.second;
      EXPECT_GE(waitFor([&] { return agent.neighbours(mine) == Json::array(); }, 2), 0) << mine;
   }
   EXPECT_GE(
       waitFor([&] { return agent.log().find("LLDP_NEIGHBOR_GONE") != std::string::npos; }, 2), 0);
   EXPECT_EQ(agent.log().find("LLDP_NEIGHBOR_TIMEOUT"), std::string::npos);
}

// ---- Leaving without a word: ageing ---------------------------------------------------------

TEST_F(LldpdInterop, SilenceAgesOutAfterTheTtl) {
   const std::string ours = addLink().first;
   Agent agent(ns_->nsA(), "c", ourPorts(), agentTimers);
   ASSERT_TRUE(agent.running());
   Lldpd lldpd(ns_->nsB(), "c", peerPorts());
   ASSERT_TRUE(lldpd.running()) << lldpd.log();
   // TTL = interval x hold = 2 s.
   ASSERT_TRUE(lldpd.cli("configure lldp tx-hold 2"));
   ASSERT_GE(waitFor([&] { return agent.neighbours(ours)[0]["ttl"] == 2; }, 5), 0)
       << agent.cli({"show", "neighbors", "detail"}).dump(1);
   // SIGKILL: no goodbye; the neighbour stays until its TTL has run out, counted (on the
   // agent's clock) from the last frame it had before the kill.
   const double lastRefresh = agent.neighbours(ours)[0].value("lastRefreshTime", 0.0);
   EXPECT_EQ(lldpd.stop(SIGKILL), 128 + SIGKILL);
   double removedAt = 0;
   const auto gone = [&] {
      Json all = agent.cli({"show", "neighbors", "detail"});
      if (!all.is_object()) return false;
      removedAt = all.value("currentTime", 0.0);
      return at(all, {"interfaces", ours.c_str(), "remoteSystem"}).empty();
   };
   EXPECT_GE(waitFor(gone, 5), 0);
   EXPECT_GE(removedAt - lastRefresh, 1.5) << "a TTL of 2 s";
   EXPECT_GE(
       waitFor([&] { return agent.log().find("LLDP_NEIGHBOR_TIMEOUT") != std::string::npos; }, 2),
       0);
   // And no shutdown frame came.
   EXPECT_EQ(agent.log().find("LLDP_NEIGHBOR_GONE"), std::string::npos);
}

// ---- Management addresses: which ones, in what order, in each mode ------------------------

TEST_F(LldpdInterop, LldpdSeesOurManagementAddressesInPriorityOrder) {
   const auto link = addLink();
   const std::string ours = link.first, theirs = link.second;
   const std::string other = addLink().first;  // a second port with an address of its own
   const std::string nsA = ns_->nsA();
   auto ip = [&](const std::string& cmd) { return TestSupport::ipIn(nsA, cmd); };
   ASSERT_TRUE(ip("link set lo up"));  // 127.0.0.1 and ::1 appear: never to be sent
   ASSERT_TRUE(ip("addr add 198.51.100.1/32 dev lo"));
   ASSERT_TRUE(ip("addr add 192.0.2.1/24 dev " + ours));
   ASSERT_TRUE(ip("addr add 192.0.2.2/24 dev " + ours));  // the kernel's secondary
   ASSERT_TRUE(ip("addr add 203.0.113.1/24 dev " + other));
   Agent agent(nsA, "m", ourPorts(), agentTimers);
   ASSERT_TRUE(agent.running());
   Lldpd lldpd(ns_->nsB(), "m", peerPorts());
   ASSERT_TRUE(lldpd.running()) << lldpd.log();

   Json local;
   ASSERT_GE(waitFor([&] { return (local = agent.local()).is_object(); }, 5), 0) << agent.log();
   const std::string chassisId = text(at(local, {"chassisIdentifier", "value"}));
   // lldpd's list of our addresses, as received (null until it has us).
   auto theirs_ = [&]() -> Json {
      Json seen = lldpd.neighbour(theirs, chassisId);
      if (!seen.is_object()) return nullptr;
      return Lldpd::list(Lldpd::members(seen["chassis"]).at(0).second["mgmt-ip"]);
   };
   // What we say we send, in order.
   auto ours_ = [&] {
      Json ips = Json::array();
      for (Json a : Lldpd::list(agent.local()["advertisedManagementAddress"])) {
         ips.push_back(text(a["address"]));
      }
      return ips;
   };
   auto expect = [&](const std::vector<std::string>& want, const char* what) {
      const Json w(want);
      EXPECT_GE(waitFor([&] { return theirs_() == w; }, 6), 0)
          << what << ": lldpd sees " << theirs_().dump() << ", we send " << ours_().dump();
      EXPECT_EQ(ours_(), w) << what;
   };

   expect({"198.51.100.1"}, "by default the best address alone: the loopback's");
   ASSERT_EQ(agent.run({"configure", "lldp management-address all"}).status, 0);
   expect({"198.51.100.1", "192.0.2.1", "192.0.2.2", "203.0.113.1"}, "all, in priority order");
   ASSERT_TRUE(ip("addr del 198.51.100.1/32 dev lo"));
   ASSERT_EQ(agent.run({"configure", "no lldp management-address"}).status, 0);
   expect({"192.0.2.1"}, "the next best once the loopback address goes");
   ASSERT_EQ(agent.run({"configure", "lldp management-address interface " + other}).status, 0);
   expect({"203.0.113.1"}, "the named interface's");
   ASSERT_EQ(agent.run({"configure", "no lldp management-address"}).status, 0);
   ASSERT_TRUE(ip("addr add 2001:db8::1/64 dev " + ours + " nodad"));
   // Back to the best address: the interface named last keeps its place.
   expect({"2001:db8::1", "203.0.113.1"}, "a global IPv6 address ahead of the IPv4 one");
   // The interface each address comes from, as `show local` names it.
   EXPECT_EQ(agent.local()["advertisedManagementAddress"][1]["interface"], other);
   ASSERT_TRUE(ip("addr flush dev " + ours));
   ASSERT_TRUE(ip("addr flush dev " + other));
   EXPECT_GE(waitFor([&] { return theirs_() == Json::array(); }, 6), 0) << theirs_().dump();
   const Json last = agent.local()["advertisedManagementAddress"];
   ASSERT_EQ(last.size(), 1u) << last.dump();
   EXPECT_EQ(last[0]["subtype"], "mac") << "our MAC when no IP is left";
}

}  // namespace

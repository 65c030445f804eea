// Frames captured from real devices (and one crafted malformed frame) through the receive
// processor.
#include "tests/Lldp/LldpRxFixture.h"

using namespace LldpRxTest;

namespace {

// ---------------------------------------------------------------------------------------
// Frames captured from real devices (and one crafted malformed frame): what the processor
// stores must be the values that a packet analyser shows for the same bytes. The expected
// values were read off the analyser's decode of each capture and checked against the wire
// bytes; they are constants here so the tests need nothing but the captures.

// An Ethernet trailer follows End of LLDPDU.
TEST_F(LldpProtocolRxTest, CaptureWithEthernetTrailer) {
   auto r = replay("connectx.pcap", 0);
   ASSERT_TRUE(r);
   EXPECT_EQ(r->msap().chassisIdentifier().stringValue(), "50:6b:4b:f6:1e:b3");
   EXPECT_EQ(r->ttl(), 48);
   EXPECT_EQ(r->portDesc().value(), "ConnectX-4 Lx, 25G/10G/1G SFP");
}

// Small-business switch: 802.3 MAC/PHY, LLDP-MED capabilities, a civic location padded
// with 217 zero bytes after its LCI, and all seven inventory TLVs, each NUL-padded to the
// 32-byte maximum.
TEST_F(LldpProtocolRxTest, CaptureSg200) {
   auto r = replay("sg200.pcap", 0);
   ASSERT_TRUE(r);
   EXPECT_EQ(r->msap().portIdentifier().value().value(), "g1");
   EXPECT_EQ(r->ttl(), 120);

   // Auto-negotiation 0x03, advertised 0x0001 (1000BASE-T full duplex), MAU other (0).
   EXPECT_TRUE(r->macPhyConfigStatusTlvReceived());
   EXPECT_EQ(r->macPhyConfigStatusInfo(), Lldp::MacPhyConfigStatusInfo({
                                              .autonegSupported = true,
                                              .autonegEnabled = true,
                                              .pmdAutonegAdvertisedCapability = 0x0001,
                                              .operationalMauType = 0,
                                          }));
   EXPECT_FALSE(r->powerViaMdiTlvReceived());
   EXPECT_FALSE(r->linkAggregationTlvReceived());

   // Capabilities 0x002f (all but extended power PD), class Network Connectivity (4).
   EXPECT_TRUE(r->medCapabilitiesTlvReceived());
   EXPECT_EQ(r->medCapabilitiesInfo().capabilities().value(), 0x2f);
   EXPECT_FALSE(r->medCapabilitiesInfo().capabilities().extendedPowerViaMdiPd());
   EXPECT_EQ(r->medCapabilitiesInfo().deviceType(), 4);
   EXPECT_TRUE(r->anyLldpMedReceived());

   // Civic LCI of length 39: what 2, "DE", three CA elements. The zero padding behind the
   // LCI lies outside it and must not turn into CA type 0 elements.
   ASSERT_EQ(r->locationId().format(), Lldp::LocationId::formatCivic);
   const auto& civic = r->locationId().civicAddress();
   EXPECT_EQ(civic.what(), 2);
   EXPECT_EQ(civic.countryCode().value(), "DE");
   EXPECT_EQ(civic.caElements().size(), 3u);
   EXPECT_EQ(caValue(civic, 3), "Berlin");
   EXPECT_EQ(caValue(civic, 6), "Karl-Liebknecht-Strase");
   EXPECT_EQ(caValue(civic, 25), "42");
   EXPECT_TRUE(r->networkPolicyTlv().empty());

   // The inventory strings are stored as sent, all 32 bytes of them; the analyser shows
   // each up to its first NUL. The manufacturer name really is the text "0xbc00",
   // followed by a NUL and left-over bytes "1BWT"; the asset ID carries stale bytes
   // after its "1".
   using namespace std::string_view_literals;
   struct Inventory {
      const char* name;
      std::string_view stored;
      std::string_view shown;
      std::string_view raw;
   };
   const Inventory inventory[] = {
       {"hardware revision", r->hardwareRevisionTlvInfo().value(), "V02", {}},
       {"firmware revision", r->firmwareRevisionTlvInfo().value(), "1.0.8.3", {}},
       {"software revision", r->softwareRevisionTlvInfo().value(), "1.0.8.3", {}},
       {"serial number", r->serialNumberTlvInfo().value(), "XXX11111ZZZ", {}},
       {"manufacturer name", r->manufacturerNameTlvInfo().value(), "0xbc00",
        "0xbc00\0"
        "1BWT\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"sv},
       {"model name", r->modelNameTlvInfo().value(), "SG 200-08P", {}},
       {"asset ID", r->assetIDTlvInfo().value(), "1",
        "1\0\0\x0a\0\0\0\x08\xff\xff\xff\xff\0\0\0\x06\0\0\0\x06\x80\x89\x57\xd8\0\0\0\0\0\0\0\x80"sv},
   };
   for (const auto& inv : inventory) {
      SCOPED_TRACE(inv.name);
      EXPECT_EQ(inv.stored.size(), 32u);
      EXPECT_EQ(displayed(inv.stored), inv.shown);
      if (!inv.raw.empty()) {
         EXPECT_EQ(inv.stored, inv.raw);
      } else {
         // Everything after the shown text is padding.
         EXPECT_EQ(inv.stored.find_first_not_of('\0', inv.shown.size()), std::string_view::npos);
      }
   }
}

// Campus switch with 802.3bt PoE: Port VLAN ID, MAC/PHY, the 25-byte Power via MDI form and
// a TLV under an OUI that none of our decoders owns (00-01-42).
TEST_F(LldpProtocolRxTest, CaptureDot3bt) {
   auto r = replay("8023bt.pcap", 1);
   ASSERT_TRUE(r);
   EXPECT_EQ(r->msap().portIdentifier().value().value(), "Gi1/0/2");
   EXPECT_EQ(r->sysName().value(), "cisco-bt-switch");
   EXPECT_TRUE(r->sysDesc().value().starts_with("Cisco IOS Software [Gibraltar]"));
   EXPECT_EQ(r->portDesc().value(), "GigabitEthernet1/0/2");
   EXPECT_EQ(r->systemCapabilities().supported().value(), 0x14);
   EXPECT_EQ(r->systemCapabilities().enabled().value(), 0x04);
   ASSERT_EQ(r->managementAddress().size(), 1u);
   EXPECT_EQ(r->managementAddress().begin()->first.stringValue(), "192.168.1.1");
   EXPECT_EQ(r->managementAddress().begin()->second.ifNumber(), 53u);
   ASSERT_EQ(r->unknownOrgDefTlv().size(), 1u);
   EXPECT_EQ(r->unknownOrgDefTlv().begin()->first.oui(), Lldp::Oui(0x000142));

   EXPECT_TRUE(r->portVlanIdTlvReceived());
   EXPECT_EQ(r->portVlanId().value(), 1);

   // Auto-negotiation 0x03, advertised 0x8000, MAU 1000BaseTFD (0x001e).
   EXPECT_TRUE(r->macPhyConfigStatusTlvReceived());
   EXPECT_EQ(r->macPhyConfigStatusInfo(), Lldp::MacPhyConfigStatusInfo({
                                              .autonegSupported = true,
                                              .autonegEnabled = true,
                                              .pmdAutonegAdvertisedCapability = 0x8000,
                                              .operationalMauType = 0x1e,
                                          }));

   // Power via MDI as the analyser shows it: support 0x0f, pair 1, class byte 5 ("4 (5)"),
   // type 2 PSE / primary source / low priority (0x13), requested 71.0 W and allocated
   // 51.0 W in 0.1 W units, mode A/B 355/355, alt A/B 255/255, status 0xce4f, system setup
   // 0, maximum available 510, autoclass 0, power down 0.
   ASSERT_TRUE(r->powerViaMdiTlvReceived());
   const auto& p = r->powerViaMdiInfo();
   EXPECT_EQ(p, Lldp::PowerViaMdiInfo({
                    .form = Lldp::PowerViaMdiInfo::formDot3bt,
                    .mdiPowerSupport = 0x0f,
                    .psePowerPair = 1,
                    .powerClass = 5,
                    .typeSourcePriority = 0x13,
                    .pdRequestedPower = 710,
                    .pseAllocatedPower = 510,
                    .pdRequestedPowerA = 355,
                    .pdRequestedPowerB = 355,
                    .pseAllocatedPowerA = 255,
                    .pseAllocatedPowerB = 255,
                    .powerStatus = 0xce4f,
                    .systemSetup = 0,
                    .pseMaxAvailablePower = 510,
                    .autoclass = 0,
                    .powerDown = 0,
                }));
   EXPECT_TRUE(p.portClassPse());
   EXPECT_TRUE(p.pseMdiPowerSupported());
   EXPECT_TRUE(p.pseMdiPowerEnabled());
   EXPECT_TRUE(p.psePairsControlAbility());
   EXPECT_EQ(p.powerType(), 0);      // Type 2 PSE
   EXPECT_EQ(p.powerSource(), 1);    // primary power source
   EXPECT_EQ(p.powerPriority(), 3);  // low
   EXPECT_TRUE(p.fromPse());

   EXPECT_FALSE(r->anyLldpMedReceived());
}

// Reference frame of a Linux daemon: 802.3 link aggregation, MAC/PHY and 802.3at power,
// LLDP-MED capabilities, software revision, two location TLVs (coordinate, then civic),
// network policy and an unknown OUI.
TEST_F(LldpProtocolRxTest, CaptureReferenceRich) {
   auto r = replay("reference-rich.pcap", 1);
   ASSERT_TRUE(r);
   EXPECT_EQ(r->sysName().value(), "vm");
   EXPECT_EQ(r->sysDesc().value(), "peer-one");
   EXPECT_EQ(r->portDesc().value(), "v1");
   ASSERT_EQ(r->managementAddress().size(), 1u);
   EXPECT_EQ(r->managementAddress().begin()->first.stringValue(), "fe80::e4b5:c7ff:fe60:ff37");
   ASSERT_EQ(r->unknownOrgDefTlv().size(), 1u);
   EXPECT_EQ(r->unknownOrgDefTlv().begin()->first.oui(), Lldp::Oui(0x334455));
   EXPECT_EQ(r->unknownOrgDefTlv().begin()->second.value().value(), "EEEEE");

   // Aggregation status 0x01: capable, not aggregated; port ID 0.
   EXPECT_TRUE(r->linkAggregationTlvReceived());
   EXPECT_EQ(r->linkAggregationInfo().status().value(), 0x01);
   EXPECT_TRUE(r->linkAggregationInfo().status().capable());
   EXPECT_FALSE(r->linkAggregationInfo().status().enabled());
   EXPECT_EQ(r->linkAggregationInfo().aggregatedPortId(), 0u);

   // Auto-negotiation 0x00, advertised 0x8000, MAU 0x0036.
   EXPECT_TRUE(r->macPhyConfigStatusTlvReceived());
   EXPECT_EQ(r->macPhyConfigStatusInfo(), Lldp::MacPhyConfigStatusInfo({
                                              .autonegSupported = false,
                                              .autonegEnabled = false,
                                              .pmdAutonegAdvertisedCapability = 0x8000,
                                              .operationalMauType = 0x36,
                                          }));

   // 802.3at form: support 0x0f, pair 2, class byte 4 ("3 (4)"), 0x13, 10.0 W / 15.0 W;
   // the 802.3bt-only fields stay at zero.
   ASSERT_TRUE(r->powerViaMdiTlvReceived());
   const auto& p = r->powerViaMdiInfo();
   EXPECT_EQ(p, Lldp::PowerViaMdiInfo({
                    .form = Lldp::PowerViaMdiInfo::formDot3at,
                    .mdiPowerSupport = 0x0f,
                    .psePowerPair = 2,
                    .powerClass = 4,
                    .typeSourcePriority = 0x13,
                    .pdRequestedPower = 100,
                    .pseAllocatedPower = 150,
                }));
   EXPECT_TRUE(p.fromPse());

   // Capabilities 0x003f, Network Connectivity.
   EXPECT_TRUE(r->medCapabilitiesTlvReceived());
   EXPECT_EQ(r->medCapabilitiesInfo().capabilities().value(), 0x3f);
   EXPECT_EQ(r->medCapabilitiesInfo().deviceType(), 4);

   EXPECT_EQ(r->softwareRevisionTlvInfo().value(), "6.18.44-fc-v470");
   EXPECT_TRUE(r->hardwareRevisionTlvInfo().empty());

   // Of the two location TLVs only the later, civic one is kept. Its LCI length (38) is
   // exactly what follows the length byte, so the last element ends on the TLV's last byte.
   ASSERT_EQ(r->locationId().format(), Lldp::LocationId::formatCivic);
   const auto& civic = r->locationId().civicAddress();
   EXPECT_EQ(civic.what(), 2);
   EXPECT_EQ(civic.countryCode().value(), "US");
   EXPECT_EQ(civic.caElements().size(), 3u);
   EXPECT_EQ(caValue(civic, 0), "en_US");
   EXPECT_EQ(caValue(civic, 3), "Roseville");
   EXPECT_EQ(caValue(civic, 6), "Commercial Road");

   // The coordinate LCI, sent again on its own. Its bytes hold latitude 0x0061B69D73 in the
   // 34 bits after the 6-bit resolution of bytes 0-4, longitude 0x0004671DE6 likewise in
   // bytes 5-9, and datum 1 in byte 15.
   const auto tlvs = orgTlvs(capture);
   ASSERT_EQ(tlvs.size(), 9u);
   auto coord = rx(neighbour(2).org(ouiTia, 3, tlvs[5].content));
   ASSERT_TRUE(coord);
   ASSERT_EQ(coord->locationId().format(), Lldp::LocationId::formatCoordinate);
   const Lldp::CoordinateLci expectedLci = {0x68, 0x61, 0xb6, 0x9d, 0x73, 0x5c, 0x04, 0x67,
                                            0x1d, 0xe6, 0x17, 0x40, 0x00, 0x75, 0x78, 0x01};
   EXPECT_EQ(coord->locationId().coordinate(), expectedLci);

   // Voice (1): defined, untagged, VLAN 500, L2 priority 5, DSCP 46. The VLAN and priority
   // bits are decoded as sent even though the policy is untagged.
   ASSERT_EQ(r->networkPolicyTlv().size(), 1u);
   const auto* policy = r->networkPolicyTlv(uint8_t(1));
   ASSERT_NE(policy, nullptr);
   EXPECT_EQ(*policy, Lldp::NetworkPolicyTlv({
                          .appType = 1,
                          .unknown = false,
                          .tagged = false,
                          .vlanId = 500,
                          .priority = 5,
                          .dscp = 46,
                      }));
}

// Crafted frame: a network policy, then a civic location TLV of 6 content bytes
// (format 2, LCI length 2, "AF5", 0) whose LCI is shorter than its fixed part. The
// analyser calls it malformed and stops there.
//
// Our rules: the address data is 5 bytes, so it passes the minimum of 4; the LCI length
// byte is 2, below the minimum LCI length of 4, so the TLV is a FatalError ("LCI length is
// invalid") and the whole LLDPDU is discarded. Nothing of it may reach locationId.
TEST_F(LldpProtocolRxTest, CaptureMedLocationMalformed) {
   Vel::Trace::configure("LldpProtocol/*,LldpMed/*");
   EXPECT_FALSE(replay("med-loc-malformed.pcap", 0));
   EXPECT_EQ(port->rxFramesDiscardedTotal(), 1u);
   EXPECT_TRUE(port->remoteSystem().empty());
   EXPECT_TRUE(
       traced("Error: LLDP-MED Civic Adreess LCI length is invalid (lciLength: 2, "
              "addressDataLen: 5)"));

   // Every shorter cut of the same TLV makes its frame (which it ends) fatal as well.
   const auto tlvs = orgTlvs(capture);
   ASSERT_GE(tlvs.size(), 2u);
   ASSERT_EQ(tlvs[1].subtype, 3);  // after the network policy
   const Bytes& whole = tlvs[1].content;
   ASSERT_EQ(whole.size(), 6u);
   for (size_t n = 0; n <= whole.size(); ++n) {
      SCOPED_TRACE("content bytes: " + std::to_string(n));
      EXPECT_FALSE(rx(neighbour(2).org(ouiTia, 3, Bytes(whole.begin(), whole.begin() + long(n)))));
   }
   EXPECT_EQ(port->rxFramesDiscardedTotal(), 1u + whole.size() + 1);
   EXPECT_TRUE(port->remoteSystem().empty());
}

}  // namespace

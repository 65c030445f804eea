// The transmit builder: TLV order, golden bytes, room rules and counters, and the round
// trip of a full frame through the receive processor.
#include <gtest/gtest.h>

#include <vector>

#include "Framework/Log.h"
#include "Lldp/LldpProtocol.h"
#include "Lldp/LldpProtocolSm.h"
#include "tests/Support/AllocCounter.h"
#include "tests/Support/Frames.h"
#include "tests/Support/FullPort.h"
#include "tests/Support/PortRecords.h"

namespace {

using TestSupport::bytes;
using TestSupport::Bytes;

struct Tlv {
   int type;
   int oui;  // organizationally specific TLVs only
   int subtype;
   Bytes info;
};

std::vector<Tlv> walk(const char* pos, const char* end) {
   std::vector<Tlv> out;
   while (pos < end) {
      int type, len;
      const char* info;
      if (!extractTlv(&pos, end, &type, &len, &info)) {
         ADD_FAILURE() << "malformed frame";
         break;
      }
      const bool org = type == 127;
      out.push_back({type, org ? int(Lldp::Be::get24(info)) : -1, org ? int(uint8_t(info[3])) : -1,
                     Bytes(info, info + len)});
   }
   return out;
}

// A management address of the address family with that parser (Wire::IpAddr or Ip6Addr).
template <class Addr = Wire::IpAddr>
Lldp::ManagementAddress address(const char* text, uint32_t ifIndex) {
   const auto a = Addr::parse(text)->bytes();
   return Lldp::ManagementAddress(
       {.key = Lldp::ManagementAddress::Key(
            {.subtype = a.size() == 4 ? Lldp::addrFamilyIpv4 : Lldp::addrFamilyIpv6,
             .address = std::string_view(reinterpret_cast<const char*>(a.data()), a.size())}),
        .ifNumberingSubtype = Lldp::ifNumberingIfIndex,
        .ifNumber = ifIndex});
}

struct Builder : ::testing::Test, TestSupport::PortRecords {
   Builder() : PortRecords("Ethernet1", std::string("\x00\x1c\x73\x00\x00\x01", 6), "sw1") {}
   void SetUp() override {
      Lldp::clockIs([] { return 1000.0; });
      localPort->portVlanIdIs(10);
      portConfig->enabledTlvsIs(Lldp::EnabledTlvs(0x02));
      portConfig->mgmtAddrTxEnableIs(false);
      portConfig->vlanNameTxEnableIs(false);
      portConfig->dot3EnabledTlvsIs(Lldp::Dot3EnabledTlvs(0));
   }
   void TearDown() override { Lldp::clockIs(nullptr); }

   std::vector<Tlv> build(size_t room = 1500) {
      frame.assign(room, 0);
      char* end =
          buildTxLldpdu(frame.data(), frame.data() + room, root, localPort, portConfig, portStatus);
      frame.resize(size_t(end - frame.data()));
      return walk(frame.data(), end);
   }

   Bytes frame;
};

TEST_F(Builder, GoldenBytes) {
   build();
   Bytes expected =
       bytes({0x02, 0x07, 0x04, 0x00, 0x1c, 0x73, 0x00, 0x00, 0x01,                 // chassis
              0x04, 0x0a, 0x05, 'E',  't',  'h',  'e',  'r',  'n',  'e', 't', '1',  // port
              0x06, 0x02, 0x00, 0x78,                                               // TTL
              0x0a, 0x03, 's',  'w',  '1',                                          // name
              0xfe, 0x06, 0x00, 0x80, 0xc2, 0x01, 0x00, 0x0a,                       // PVID
              0x00, 0x00});
   EXPECT_EQ(frame, expected);
   EXPECT_EQ(portStatus->txFramesTotal(), 1u);
   EXPECT_EQ(portStatus->txFramesLengthExceeded(), 0u);
   EXPECT_EQ(portStatus->lastTxTime(), 1000.0);
}

TEST_F(Builder, OptionalTlvsFollowTheirSwitchesAndContent) {
   portConfig->enabledTlvsIs(Lldp::EnabledTlvs(0x0f));
   // Port description switched on but empty: not sent.
   localSystem->sysDescIs("a switch");
   localSystem->sysCapSupportedIs(Lldp::SystemCapabilitiesMap(0x14));
   localSystem->sysCapEnabledIs(Lldp::SystemCapabilitiesMap(0x04));
   config->messageTxHoldTimeIs(65536 + 120);  // only the low 16 bits are advertised
   auto tlvs = build();
   ASSERT_EQ(tlvs.size(), 8u);
   EXPECT_EQ(tlvs[2].info, bytes({0x00, 0x78}));
   EXPECT_EQ(tlvs[3].type, 5);
   EXPECT_EQ(tlvs[4].type, 6);
   EXPECT_EQ(tlvs[5].type, 7);
   EXPECT_EQ(tlvs[5].info, bytes({0x00, 0x14, 0x00, 0x04}));
   localPort->portDescIs("uplink");
   tlvs = build();
   EXPECT_EQ(tlvs[3].type, 4);

   // ZTP boot VLAN on the local port: sent, after the Port VLAN ID, once it is configured.
   localPort->ztpBootVlanIs(100);
   for (auto& t : build()) EXPECT_NE(t.oui, 0x027e51);
   portConfig->ztpBootVlanIs(1);
   tlvs = build();
   ASSERT_EQ(tlvs.size(), 10u);
   ASSERT_EQ(tlvs[8].info.size(), 12u);
   EXPECT_EQ(Bytes(tlvs[8].info.begin(), tlvs[8].info.begin() + 6),
             bytes({0x02, 0x7e, 0x51, 0x01, 0x00, 0x64}));
}

TEST_F(Builder, ManagementAddresses) {
   portConfig->mgmtAddrTxEnableIs(true);
   localSystem->ip6ManagementAddressIs(address<Wire::Ip6Addr>("2001:db8::1", 2));
   localSystem->managementAddressIs(address("10.0.0.1", 5));
   localSystem->managementAddressPrioIs(Lldp::ManAddrPriority({.primaryPriority = 2}),
                                        address("10.0.0.1", 5).key());
   // A priority entry whose address record is missing.
   localSystem->managementAddressPrioIs(Lldp::ManAddrPriority({.primaryPriority = 1}),
                                        address("10.9.9.9", 0).key());

   // The IPv6 address does not count against the limit, by default one.
   auto tlvs = build();
   ASSERT_EQ(tlvs[4].type, 8);
   EXPECT_EQ(tlvs[4].info[1], Lldp::addrFamilyIpv6);
   EXPECT_EQ(tlvs[5].type, 8);
   EXPECT_NE(tlvs[6].type, 8);
   config->maxTxMgmtAddrsIs(0);
   EXPECT_NE(build()[5].type, 8);

   // Priority order; the missing record goes as interface numbering unknown, number 0.
   config->maxTxMgmtAddrsIs(2);
   tlvs = build();
   ASSERT_EQ(tlvs[5].type, 8);
   EXPECT_EQ(tlvs[5].info, bytes({0x05, 0x01, 10, 9, 9, 9, 0x01, 0, 0, 0, 0, 0x00}));
   EXPECT_EQ(tlvs[6].info, bytes({0x05, 0x01, 10, 0, 0, 1, 0x02, 0, 0, 0, 5, 0x00}));
   EXPECT_NE(tlvs[7].type, 8);

   // Sending an OID is a programming error.
   Lldp::ManagementAddress withOid = address("10.0.0.2", 1);
   Snmp::ObjectIdentifier oid;
   oid.push(1);
   withOid.oidIs(oid);
   EXPECT_DEATH(
       {
          char b[64];
          char* p = b;
          putManagementAddress(&p, b + sizeof(b), withOid);
       },
       "Assertion failed: !oid");
}

TEST_F(Builder, VlanNamesTakeWhatRoomIsLeftAndEndAlwaysFits) {
   portConfig->vlanNameTxEnableIs(true);
   portConfig->enabledTlvsIs(Lldp::EnabledTlvs(0x0f));
   localPort->portDescIs("uplink");
   for (int v = 1; v <= 10; ++v) {
      portStatus->vlanNameIs(
          Lldp::VlanName({.vlanId = uint16_t(v), .name = "vlan-name-0" + std::to_string(v)}));
   }
   auto full = build();
   ASSERT_EQ(full.size(), 6u + 1 + 10 + 1);
   size_t fullSize = frame.size();

   // Room for all but the last three names (VLAN Name TLVs take 21 bytes, the tenth 22).
   auto cut = build(fullSize - 50);
   ASSERT_EQ(cut.back().type, 0);
   EXPECT_EQ(cut.size(), full.size() - 3);
   for (size_t i = 0; i + 4 < cut.size(); ++i) EXPECT_EQ(cut[i].type, full[i].type);
   EXPECT_EQ(portStatus->sentVlanName().size(), 7u);
   EXPECT_TRUE(portStatus->vlanNamesIncomplete());
   EXPECT_EQ(portStatus->txFramesTotal(), 2u);
   EXPECT_EQ(portStatus->txFramesLengthExceeded(), 1u);
   EXPECT_LE(frame.size(), fullSize - 50);
}

TEST_F(Builder, ExternalTlvThatDoesNotFitLetsASmallerOneIn) {
   auto ext = [&](int subtype, size_t len) {
      localPort->unknownOrgDefTlvIs(Lldp::UnknownOrgDefTlv(
          {.key = Lldp::UnknownOrgDefTlv::Key(
               {.oui = Lldp::Oui(0x112233), .subtype = uint8_t(subtype), .index = 1}),
           .value = std::string(len, 'x')}));
   };
   ext(1, 400);
   ext(2, 10);
   auto base = build();
   size_t withBoth = frame.size();
   auto tlvs = build(withBoth - 100);
   ASSERT_EQ(tlvs.back().type, 0);
   std::vector<int> external;  // subtypes sent
   for (auto& t : tlvs) {
      if (t.oui == 0x112233) external.push_back(t.subtype);
   }
   EXPECT_EQ(external, std::vector<int>{2});
   EXPECT_EQ(portStatus->txFramesLengthExceeded(), 1u);
   EXPECT_EQ(base.size(), tlvs.size() + 1);
}

TEST_F(Builder, MissingIdentityIsAProgrammingError) {
   localPort->portIdentifierIs(Lldp::PortIdentifier());
   EXPECT_DEATH(build(), "Assertion failed: false");
}

// What the builder sends for a port that advertises everything, built again without
// allocating, the processor stores back as the same values.
TEST(BuilderFullPort, BuildsWithoutAllocatingWhatIsStoredBackUnchanged) {
   Lldp::clockIs([] { return 500.0; });
   Vel::Log::syslogIs(false);
   TestSupport::FullPort tx;
   char frame[1500];
   char* end = tx.build(frame, frame + sizeof(frame));
   EXPECT_EQ(tx.portStatus->txFramesLengthExceeded(), 0u) << "the full frame must fit";
   {
      TestSupport::AllocScope scope;
      for (int i = 0; i < 10; ++i) tx.build(frame, frame + sizeof(frame));
      EXPECT_EQ(scope.count(), 0u);
   }

   const Wire::IntfId intf("Ethernet2");
   auto rxConfig = Vel::make<Lldp::PortConfig>(intf);
   auto status = Vel::make<Lldp::Status>();
   auto rxPort = status->portStatusIs(intf, 0.0);
   auto remote = processRxLldpdu(frame, end, rxConfig, status, rxPort, nullptr, nullptr,
                                 *Wire::EthAddr::parse("00:1c:73:00:00:01"));
   Lldp::clockIs(nullptr);
   Vel::Log::syslogIs(true);
   ASSERT_TRUE(remote);
   EXPECT_EQ(rxPort->rxTLVsDiscardedTotal(), 0u);
   // Only the operator-defined TLV is foreign to the receiver: kept, and counted.
   EXPECT_EQ(rxPort->rxTLVsUnrecognizedTotal(), 1u);
   EXPECT_EQ(rxPort->rxFramesErrors(), 0u);

   const Lldp::LocalSystem& sys = *tx.localSystem;
   const Lldp::LocalPort& port = *tx.localPort;
   EXPECT_EQ(remote->msap().chassisIdentifier(), sys.chassisIdentifier());
   EXPECT_EQ(remote->msap().portIdentifier(), port.portIdentifier());
   EXPECT_EQ(remote->ttl(), tx.config->messageTxHoldTime());
   EXPECT_EQ(remote->portDesc().value(), port.portDesc().value());
   EXPECT_EQ(remote->sysName().value(), sys.sysName().value());
   EXPECT_EQ(remote->sysDesc().value(), sys.sysDesc().value());
   EXPECT_EQ(remote->systemCapabilities(),
             Lldp::SystemCapabilitiesTlv::create(sys.sysCapSupported(), sys.sysCapEnabled()));

   // Both management addresses, exactly as configured.
   ASSERT_EQ(remote->managementAddress().size(), 2u);
   const auto& v6 = sys.ip6ManagementAddress();
   ASSERT_TRUE(remote->managementAddress(v6.key()));
   EXPECT_EQ(*remote->managementAddress(v6.key()), v6);
   for (const auto& [key, addr] : sys.managementAddress()) {
      ASSERT_TRUE(remote->managementAddress(key));
      EXPECT_EQ(*remote->managementAddress(key), addr);
   }

   EXPECT_EQ(remote->portVlanId(), port.portVlanId());
   EXPECT_TRUE(remote->portVlanIdTlvReceived());
   EXPECT_EQ(remote->vlanName(), tx.portStatus->vlanName());
   EXPECT_EQ(remote->linkAggregationInfo(), port.linkAggregationInfo());
   EXPECT_EQ(remote->maximumFrameSizeInfo(), port.maximumFrameSizeInfo());
   EXPECT_TRUE(remote->powerViaMdiTlvReceived());
   EXPECT_TRUE(remote->powerViaMdiInfo().fromPse());
   EXPECT_EQ(remote->powerViaMdiInfo().pseAllocatedPower(),
             port.localPortPoeInfo()->poePortStatus().allocatedPower());
   EXPECT_EQ(remote->medCapabilitiesInfo(), port.medCapabilities());
   EXPECT_EQ(remote->networkPolicyTlv(), port.localNetworkPolicyTlv());
   EXPECT_EQ(remote->ztpBootVlan(), port.ztpBootVlan());

   // The operator-defined TLV comes back with its OUI, subtype and content.
   ASSERT_EQ(remote->unknownOrgDefTlv().size(), 1u);
   const auto& sent = port.unknownOrgDefTlv().begin()->second;
   const auto& got = remote->unknownOrgDefTlv().begin()->second;
   EXPECT_EQ(got.key().oui(), sent.key().oui());
   EXPECT_EQ(got.key().subtype(), sent.key().subtype());
   EXPECT_EQ(got.value(), sent.value());
}

}  // namespace

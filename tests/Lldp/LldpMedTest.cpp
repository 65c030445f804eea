#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "Lldp/LldpMed.h"
#include "Lldp/LldpProtocol.h"
#include "tests/Support/AllocCounter.h"
#include "tests/Support/ExtTlvChecks.h"
#include "tests/Support/Frames.h"

namespace {

using TestSupport::Bytes;
using TestSupport::bytes;
using TestSupport::snapshot;
using TestSupport::traced;

// A TLV the builder wrote: its subtype and its content.
using Sent = std::pair<int, Bytes>;

// A Location ID information string: the data format, then the LCI.
Bytes location(int format, std::string_view lci) {
   Bytes b = bytes({format});
   b.insert(b.end(), lci.begin(), lci.end());
   return b;
}

// One valid TLV of each kind the decoder stores (an inventory string of the largest
// size), the civic address last.
const std::pair<int, Bytes> valid[] = {
    {1, bytes({0x00, 0x23, 0x04})},
    {2, bytes({0x01, 0x40, 0xc9, 0x6e})},
    {3, bytes({1, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16})},
    {3, location(3, "12345678901")},
    {8, Bytes(32, 's')},
    {10, bytes({'M'})},
    {3, bytes({2, 18, 2, 'U', 'S', 1, 2, 'C', 'A', 3, 5, 'a', 'b', 'c', 'd', 'e', 1, 2, 'N', 'Y'})},
};

class LldpMedTest : public ::testing::Test {
protected:
   void SetUp() override { infoBuf = scratch_; }
   void TearDown() override { infoBuf = nullptr; }

   TlvParseResult parse(int subtype, const Bytes& b) {
      return LldpMed::parseTlv(subtype, int(b.size()), b.data(), remote_);
   }
   // Runs addTlvs into frame_ limited to `room` bytes, expecting `ok`; returns the TLVs
   // it wrote.
   std::vector<Sent> send(bool ok = true, size_t room = sizeof(frame_)) {
      char* pos = frame_;
      EXPECT_EQ(
          LldpMed::addTlvs(&pos, frame_ + room, localPort_, portConfig_, infoBuf + 4, portStatus_),
          ok);
      std::vector<Sent> out;
      TestSupport::forEachOrgTlv(frame_, pos, [&](const TestSupport::OrgTlv& t) {
         EXPECT_EQ(t.oui, Lldp::ouiTia.value());
         out.emplace_back(t.subtype, Bytes(t.info, t.info + t.infoLen));
      });
      return out;
   }
   void neighbourSentMed() {
      portStatus_->remoteSystemIs(1, Lldp::Msap())->medCapabilitiesTlvReceivedIs(true);
   }
   static Lldp::NetworkPolicyTlv policy(uint8_t app, bool tagged, uint16_t vlan, uint8_t prio,
                                        uint8_t dscp, bool unknown = false) {
      return Lldp::NetworkPolicyTlv({app, unknown, tagged, vlan, prio, dscp});
   }
   TestSupport::TraceCapture trace_{"LldpMed"};
   Wire::IntfId intf_{"Ethernet1"};
   Lldp::LocalPort::Ptr localPort_ = Vel::make<Lldp::LocalPort>(intf_);
   Lldp::PortConfig::Ptr portConfig_ = Vel::make<Lldp::PortConfig>(intf_);
   Lldp::PortStatus::Ptr portStatus_ = Vel::make<Lldp::PortStatus>(intf_, 0.0);
   Vel::Ptr<Lldp::RemoteSystem> remote_ = Vel::make<Lldp::RemoteSystem>(7, Lldp::Msap());
   char scratch_[Lldp::maxTlvInfoLen + 1] = {};
   char frame_[1500] = {};
};

// ---------------------------------------------------------------------------------------
// Transmit.

TEST_F(LldpMedTest, NothingSentUntilNeighbourSpeaksMedOrPowerFallbackIsSet) {
   portConfig_->tiaEnabledTlvsIs(Lldp::TiaEnabledTlvs(0x1f));
   localPort_->localNetworkPolicyTlvIs(policy(1, true, 100, 5, 46));
   EXPECT_TRUE(send().empty());
   EXPECT_TRUE(traced("Not adding LLDP-MED TLVs - as we have not received any ", 6));

   // A neighbour without MED does not count; a fallback PoE allocation does.
   portStatus_->remoteSystemIs(1, Lldp::Msap());
   EXPECT_TRUE(send().empty());
   portConfig_->poeAllocatedPowerFallbackIs(15400);
   EXPECT_EQ(send().size(), 2u);

   portConfig_->poeAllocatedPowerFallbackIs(0);
   neighbourSentMed();
   localPort_->medCapabilitiesIs(
       Lldp::MedCapabilitiesInfo({.capabilities = Lldp::MedCapability(0x23), .deviceType = 4}));
   auto tlvs = send();
   ASSERT_EQ(tlvs.size(), 2u);
   EXPECT_EQ(tlvs[0], Sent(1, bytes({0x00, 0x23, 0x04})));
   EXPECT_TRUE(traced("Added LLDP-MED Capabilities TLV:  MedCapabilitiesInfo(", 0, true));
   EXPECT_EQ(tlvs[1].first, 2);
}

TEST_F(LldpMedTest, NetworkPolicyLayoutAndOrder) {
   neighbourSentMed();
   portConfig_->tiaEnabledTlvsIs(Lldp::TiaEnabledTlvs(0));
   // Inserted out of order; sent by application type.
   localPort_->localNetworkPolicyTlvIs(policy(2, false, 100, 5, 46, true));
   localPort_->localNetworkPolicyTlvIs(policy(1, true, 100, 5, 46, true));
   localPort_->localNetworkPolicyTlvIs(policy(0xff, true, 4095, 7, 63));

   auto tlvs = send();
   // No capabilities TLV when no LLDP-MED TLV is enabled.
   ASSERT_EQ(tlvs.size(), 3u);
   EXPECT_TRUE(traced(
       "Not adding LLDP-MED Capabilities TLV - as none of LLDP-MED TLV is enabled in CLI", 6));
   // App 1, tagged bit 22, VLAN 100 in bits 20..9, priority 5 in 8..6, DSCP 46; the
   // unknown flag never goes out.
   EXPECT_EQ(tlvs[0].second, bytes({0x01, 0x40, 0xc9, 0x6e}));
   // Untagged: VLAN and priority are sent as zero.
   EXPECT_EQ(tlvs[1].second, bytes({0x02, 0x00, 0x00, 0x2e}));
   // All fields at their maximum stay inside their bits (reserved bit 21 clear).
   EXPECT_EQ(tlvs[2].second, bytes({0xff, 0x5f, 0xff, 0xff}));
}

TEST_F(LldpMedTest, WhatDoesNotFitIsLeftOutAndReported) {
   neighbourSentMed();
   EXPECT_TRUE(send(false, 8).empty());
   EXPECT_TRUE(traced("Not enough space to add LLDP-MED Capabilities TLV", 2));

   for (uint8_t app = 1; app <= 3; ++app)
      localPort_->localNetworkPolicyTlvIs(policy(app, true, 10, 1, 1));
   // Capabilities (9 bytes) and one policy (10 bytes) fit, then 9 bytes are left.
   auto tlvs = send(false, 9 + 10 + 9);
   ASSERT_EQ(tlvs.size(), 2u);
   EXPECT_EQ(tlvs[1].second[0], 1);
   EXPECT_TRUE(traced("Added LLDP-MED Network Policy TLV for app 1", 2));
   EXPECT_TRUE(traced("Not enough space to add LLDP-MED Network Policy TLV for app 2", 2));
   EXPECT_FALSE(traced("building LLDP-MED Network Policy for app 3", 0, true));
}

// ---------------------------------------------------------------------------------------
// Receive.

TEST_F(LldpMedTest, CapabilitiesAndPolicyReceive) {
   // Undefined capability bits and device types above 5 are cut back.
   EXPECT_EQ(parse(1, bytes({0xff, 0xff, 0x09})), TlvParseResultOk);
   EXPECT_EQ(remote_->medCapabilitiesInfo().capabilities().value(), 0x3f);
   EXPECT_EQ(remote_->medCapabilitiesInfo().deviceType(), 5);
   // A longer TLV is read by its layout.
   EXPECT_EQ(parse(1, bytes({0x00, 0x21, 0x03, 0x99})), TlvParseResultOk);
   EXPECT_EQ(remote_->medCapabilitiesInfo().capabilities().value(), 0x21);
   EXPECT_EQ(remote_->medCapabilitiesInfo().deviceType(), 3);

   // Reserved bit 21 makes no difference; a second TLV for the same application replaces
   // the first.
   EXPECT_EQ(parse(2, bytes({0x01, 0x60, 0xc9, 0x6e})), TlvParseResultOk);
   EXPECT_EQ(*remote_->networkPolicyTlv(1), policy(1, true, 100, 5, 46));
   EXPECT_EQ(parse(2, bytes({0x01, 0x80, 0x00, 0x00})), TlvParseResultOk);
   ASSERT_EQ(remote_->networkPolicyTlv().size(), 1u);
   EXPECT_EQ(*remote_->networkPolicyTlv(1), policy(1, false, 0, 0, 0, true));
}

TEST_F(LldpMedTest, LocationFormats) {
   // Coordinate: 16 bytes; anything after them is ignored.
   Bytes coord = bytes({1});
   for (int i = 0; i < 17; ++i) coord.push_back(char(0xa0 + i));
   EXPECT_EQ(parse(3, coord), TlvParseResultOk);
   EXPECT_EQ(remote_->locationId().format(), Lldp::LocationId::formatCoordinate);
   for (size_t i = 0; i < 16; ++i) EXPECT_EQ(remote_->locationId().coordinate()[i], 0xa0 + i);

   // ELIN: 10 to 25 digits.
   for (std::string_view digits : {"0123456789", "1234567890123456789012345"}) {
      EXPECT_EQ(parse(3, location(3, digits)), TlvParseResultOk);
      EXPECT_EQ(remote_->locationId().format(), Lldp::LocationId::formatElin);
      EXPECT_EQ(remote_->locationId().elin().value(), digits);
   }
}

// Civic addresses: a length byte, `what`, the country code, then type-length-value
// elements. Each buffer is exactly the TLV, so an overread shows under a sanitizer.
TEST_F(LldpMedTest, CivicAddress) {
   const struct {
      Bytes info;
      const char* address;  // what, country code, then type=value of each element
      const char* warning;
   } cases[] = {
       // CA 1 twice: the later one wins.
       {bytes({2, 18, 2, 'U', 'S', 1, 2, 'C', 'A', 3, 5, 'a', 'b', 'c', 'd', 'e', 1, 2, 'N', 'Y'}),
        "2 US 1=NY 3=abcde", nullptr},
       // The last element claims 10 bytes where 3 remain: the earlier ones are kept.
       {bytes({2, 12, 2, 'D', 'E', 1, 2, 'B', 'Y', 6, 10, 'x', 'y', 'z'}), "2 DE 1=BY",
        "Warning: LLDP-MED Civic Adreess LCI not completely processed.Remaining size: 5"},
       // The length byte claims one byte more than follows it; only what is there is read.
       // An unexpected `what` is kept as received.
       {bytes({2, 8, 1, 'F', 'R', 1, 2, 'I', 'F'}), "1 FR 1=IF",
        "Warning: LLDP-MED Civic Adreess LCI What field value is unexpected: 1"},
   };
   for (const auto& c : cases) {
      SCOPED_TRACE(c.address);
      Vel::Trace::ringClear();
      EXPECT_EQ(parse(3, c.info), TlvParseResultOk);
      EXPECT_EQ(remote_->locationId().format(), Lldp::LocationId::formatCivic);
      const auto& civic = remote_->locationId().civicAddress();
      std::string got = std::to_string(civic.what()) + " ";
      got += civic.countryCode().value();
      for (const auto& [type, e] : civic.caElements()) {
         got.append(" ").append(std::to_string(type)).append("=");
         got += e.caValue().value();
      }
      EXPECT_EQ(got, c.address);
      EXPECT_EQ(traced("Warning:", 0, true), c.warning != nullptr);
      EXPECT_TRUE(!c.warning || traced(c.warning, 2));
   }
}

// Each inventory subtype fills its own attribute and no other.
TEST_F(LldpMedTest, InventoryStoresEachSubtype) {
   using Getter = const Lldp::BoundedString32Tlv& (Lldp::RemoteSystem::*)() const;
   const Getter bySubtype[] = {
       &Lldp::RemoteSystem::hardwareRevisionTlvInfo, &Lldp::RemoteSystem::firmwareRevisionTlvInfo,
       &Lldp::RemoteSystem::softwareRevisionTlvInfo, &Lldp::RemoteSystem::serialNumberTlvInfo,
       &Lldp::RemoteSystem::manufacturerNameTlvInfo, &Lldp::RemoteSystem::modelNameTlvInfo,
       &Lldp::RemoteSystem::assetIDTlvInfo};
   auto value = [](int subtype) { return "value-" + std::to_string(subtype); };
   for (int subtype = 5; subtype <= 11; ++subtype) {
      const std::string text = value(subtype);
      EXPECT_EQ(parse(subtype, Bytes(text.begin(), text.end())), TlvParseResultOk);
      for (int other = 5; other <= 11; ++other) {
         EXPECT_EQ(((*remote_).*bySubtype[other - 5])().value(),
                   other <= subtype ? value(other) : "")
             << "after subtype " << subtype;
      }
   }
   EXPECT_TRUE(traced("LLDP-MED Asset ID TLV has value: value-11", 6));
}

// Every rejected TLV, and every cut-short one: its result, the trace that names the fault,
// and a record left as it was, whether it held LLDP-MED content before or not.
TEST_F(LldpMedTest, RejectedTlvsChangeNothing) {
   const TlvParseResult fatal = TlvParseResultFatalError, unknown = TlvParseResultUnrecognized;
   const struct {
      int subtype;
      Bytes info;
      TlvParseResult result;
      int level;
      const char* trace;
   } cases[] = {
       {1, bytes({0x00, 0x21}), fatal, 0,
        "Error: LLDP-MED Capabilities TLV is too short (orgDefInfoLen=2)"},
       {2, bytes({0x02, 0x40, 0xc9}), fatal, 0,
        "Error: LLDP-MED NetworkPolicy TLV is too short (orgDefInfoLen=3)"},
       {3, Bytes(), fatal, 0, "Error: LLDP-MED Location ID TLV is too short (orgDefInfoLen=0)"},
       {3, location(1, std::string(15, 'c')), fatal, 0,
        "Error: LLDP-MED Location ID Coordinate Based TLV size is invalid ( coordinateDataLen = "
        "15 )"},
       {3, bytes({2, 4, 2, 'U'}), fatal, 0,
        "Error: LLDP-MED Civic Adreess LCI size is invalid (addressDataLen: 3)"},
       {3, bytes({2, 3, 2, 'U', 'S', 0, 0, 0, 0}), fatal, 0,
        "Error: LLDP-MED Civic Adreess LCI length is invalid (lciLength: 3, addressDataLen: 8)"},
       {3, bytes({2, 20, 2, 'U', 'S'}), fatal, 0,
        "Error: LLDP-MED Civic Adreess LCI length is invalid (lciLength: 20, addressDataLen: 4)"},
       {3, location(3, "123456789"), fatal, 2, "Warning: LLDP-MED ECS ELIN size is invalid: 9"},
       {3, location(3, "12345678901234567890123456"), fatal, 2,
        "Warning: LLDP-MED ECS ELIN size is invalid: 26"},
       {3, location(3, "01234x6789"), fatal, 2,
        "Warning: LLDP-MED ECS ELIN Number has non digit chars"},
       {3, location(3, "0123456789/"), fatal, 2, nullptr},
       {3, bytes({4, 1, 2, 3}), unknown, 8, "Unrecognized LLDP-MED Location Data Format: 4"},
       {3, bytes({0}), unknown, 8, nullptr},
       {4, bytes({0x51, 0x00, 0x64}), unknown, 8,
        "Unrecognized LLDP-MED Organizationally Specific TLV (subtype=4)"},
       {12, bytes({'x'}), unknown, 8, nullptr},
       {8, Bytes(33, 's'), fatal, 0,
        "Error: LLDP-MED Serial Number TLV is too big (orgDefInfoLen=33)"},
       {10, Bytes(), fatal, 0, "Error: LLDP-MED Model Name TLV is too short (orgDefInfoLen=0)"},
   };
   const std::string blank = snapshot(*remote_);
   for (const auto& [subtype, info] : valid) ASSERT_EQ(parse(subtype, info), TlvParseResultOk);
   const std::string before = snapshot(*remote_);
   // Parses from a buffer of exactly the TLV's size (so that a sanitizer sees any
   // overread) into a fresh and into the filled record.
   auto untouchedIfRejected = [&](int subtype, const Bytes& info) {
      const Bytes exact(info.begin(), info.end());
      auto fresh = Vel::make<Lldp::RemoteSystem>(7, Lldp::Msap());
      const TlvParseResult r = LldpMed::parseTlv(subtype, int(exact.size()), exact.data(), fresh);
      if (r != TlvParseResultOk) {
         EXPECT_EQ(snapshot(*fresh), blank);
         EXPECT_EQ(parse(subtype, exact), r);
         EXPECT_EQ(snapshot(*remote_), before);
      }
      return r;
   };
   for (const auto& c : cases) {
      SCOPED_TRACE("subtype " + std::to_string(c.subtype) + ", " + std::to_string(c.info.size()) +
                   " bytes");
      EXPECT_EQ(untouchedIfRejected(c.subtype, c.info), c.result);
      EXPECT_TRUE(!c.trace || traced(c.trace, c.level));
   }
   // Every prefix of a valid TLV is valid or fatal.
   for (const auto& [subtype, full] : valid) {
      for (size_t len = 0; len < full.size(); ++len) {
         SCOPED_TRACE("subtype " + std::to_string(subtype) + " cut to " + std::to_string(len));
         const TlvParseResult r =
             untouchedIfRejected(subtype, Bytes(full.begin(), full.begin() + long(len)));
         EXPECT_TRUE(r == TlvParseResultOk || r == TlvParseResultFatalError);
      }
   }
}

// The byte path does not allocate once the records have warmed up.
TEST_F(LldpMedTest, NoAllocationAfterWarmUp) {
   Vel::Trace::configure("");
   const Bytes text = bytes({'r', 'e', 'v', ' ', '1', '.', '2'});
   const Bytes policy2 = bytes({0x02, 0x00, 0x00, 0x2e});
   neighbourSentMed();
   localPort_->localNetworkPolicyTlvIs(policy(1, true, 100, 5, 46));
   localPort_->localNetworkPolicyTlvIs(policy(2, false, 0, 0, 46));
   char* pos = frame_;
   auto round = [&] {
      remote_->resetAttrs();
      EXPECT_EQ(parse(2, policy2), TlvParseResultOk);
      // All but the civic address: a reset record's element list has no capacity left.
      for (size_t i = 0; i + 1 < std::size(valid); ++i)
         EXPECT_EQ(parse(valid[i].first, valid[i].second), TlvParseResultOk);
      for (int subtype = 5; subtype <= 11; ++subtype)
         EXPECT_EQ(parse(subtype, text), TlvParseResultOk);
      pos = frame_;
      EXPECT_TRUE(LldpMed::addTlvs(&pos, frame_ + sizeof(frame_), localPort_, portConfig_,
                                   infoBuf + 4, portStatus_));
   };
   round();
   TestSupport::AllocScope scope;
   round();
   EXPECT_EQ(scope.count(), 0u);
   EXPECT_EQ(pos - frame_, 9 + 10 + 10);
   EXPECT_EQ(remote_->networkPolicyTlv().size(), 2u);
}

}  // namespace

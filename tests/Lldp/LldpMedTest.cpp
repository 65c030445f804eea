#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "Lldp/LldpMed.h"
#include "Lldp/LldpProtocol.h"
#include "tests/Support/AllocCounter.h"
#include "tests/Support/Frames.h"

namespace {

using TestSupport::Bytes;
using TestSupport::bytes;

struct OrgTlv {
   uint32_t oui;
   int subtype;
   Bytes content;
};

// Cuts the TLVs written into [begin, end) back out.
std::vector<OrgTlv> orgTlvs(const char* begin, const char* end) {
   std::vector<OrgTlv> out;
   const char* pos = begin;
   while (pos < end) {
      int type = 0;
      int infoLen = 0;
      const char* info = nullptr;
      EXPECT_TRUE(extractTlv(&pos, end, &type, &infoLen, &info));
      EXPECT_EQ(type, Lldp::tlvTypeOrgSpecific);
      if (type != Lldp::tlvTypeOrgSpecific || infoLen < Lldp::orgDefHeaderLen) break;
      out.push_back(
          OrgTlv{Lldp::Be::get24(info), uint8_t(info[3]), Bytes(info + 4, info + infoLen)});
   }
   return out;
}

class LldpMedTest : public ::testing::Test {
protected:
   void SetUp() override {
      Vel::Trace::textTraceIs("-");
      Vel::Trace::configure("LldpMed/*");
      Vel::Trace::ringClear();
      infoBuf = scratch_;
   }
   void TearDown() override {
      Vel::Trace::configure("");
      infoBuf = nullptr;
   }

   // Whether LldpMed traced exactly this text at this level.
   static bool traced(std::string_view text, int level) {
      for (const auto& e : Vel::Trace::ringSnapshot()) {
         if (std::string_view(e.handle) == "LldpMed" && e.text == text && e.level == level) {
            return true;
         }
      }
      return false;
   }
   static bool tracedPrefix(std::string_view prefix) {
      for (const auto& e : Vel::Trace::ringSnapshot()) {
         if (std::string_view(e.handle) == "LldpMed" && e.text.starts_with(prefix)) return true;
      }
      return false;
   }

   TlvParseResult parse(int subtype, const Bytes& b) {
      return LldpMed::parseTlv(subtype, int(b.size()), b.data(), remote_);
   }

   // Runs addTlvs into frame_ limited to `room` bytes; returns what it wrote.
   std::vector<OrgTlv> send(size_t room = sizeof(frame_), bool* ok = nullptr) {
      char* pos = frame_;
      bool res =
          LldpMed::addTlvs(&pos, frame_ + room, localPort_, portConfig_, infoBuf + 4, portStatus_);
      if (ok) *ok = res;
      written_ = size_t(pos - frame_);
      return orgTlvs(frame_, pos);
   }

   void neighbourSentMed() {
      portStatus_->remoteSystemIs(1, Lldp::Msap())->medCapabilitiesTlvReceivedIs(true);
   }

   static Lldp::NetworkPolicyTlv policy(uint8_t app, bool tagged, uint16_t vlan, uint8_t prio,
                                        uint8_t dscp) {
      return Lldp::NetworkPolicyTlv(
          {.appType = app, .tagged = tagged, .vlanId = vlan, .priority = prio, .dscp = dscp});
   }

   Wire::IntfId intf_{"Ethernet1"};
   Lldp::LocalPort::Ptr localPort_ = Vel::make<Lldp::LocalPort>(intf_);
   Lldp::PortConfig::Ptr portConfig_ = Vel::make<Lldp::PortConfig>(intf_);
   Lldp::PortStatus::Ptr portStatus_ = Vel::make<Lldp::PortStatus>(intf_, 0.0);
   Vel::Ptr<Lldp::RemoteSystem> remote_ = Vel::make<Lldp::RemoteSystem>(7, Lldp::Msap());
   char scratch_[Lldp::maxTlvInfoLen + 1] = {};
   char frame_[1500] = {};
   size_t written_ = 0;
};

// ---------------------------------------------------------------------------------------
// Transmit.

TEST_F(LldpMedTest, NothingSentUntilNeighbourSpeaksMed) {
   portConfig_->tiaEnabledTlvsIs(Lldp::TiaEnabledTlvs(0x1f));
   localPort_->localNetworkPolicyTlvIs(policy(1, true, 100, 5, 46));
   bool ok = false;
   EXPECT_TRUE(send(sizeof(frame_), &ok).empty());
   EXPECT_TRUE(ok);
   EXPECT_EQ(written_, 0u);
   EXPECT_TRUE(traced("Not adding LLDP-MED TLVs - as we have not received any ", 6));

   // A neighbour without MED does not count.
   portStatus_->remoteSystemIs(1, Lldp::Msap());
   EXPECT_TRUE(send().empty());

   neighbourSentMed();
   auto tlvs = send();
   ASSERT_EQ(tlvs.size(), 2u);
   EXPECT_EQ(tlvs[0].oui, Lldp::ouiTia.value());
   EXPECT_EQ(tlvs[0].subtype, 1);
   EXPECT_EQ(tlvs[1].subtype, 2);
}

TEST_F(LldpMedTest, FallbackPowerSendsWithoutMedNeighbour) {
   portConfig_->poeAllocatedPowerFallbackIs(15400);
   auto tlvs = send();
   ASSERT_EQ(tlvs.size(), 1u);
   EXPECT_EQ(tlvs[0].subtype, 1);
}

TEST_F(LldpMedTest, CapabilitiesBytes) {
   neighbourSentMed();
   localPort_->medCapabilitiesIs(
       Lldp::MedCapabilitiesInfo({.capabilities = Lldp::MedCapability(0x23), .deviceType = 4}));
   auto tlvs = send();
   ASSERT_EQ(tlvs.size(), 1u);
   EXPECT_EQ(tlvs[0].content, bytes({0x00, 0x23, 0x04}));
   EXPECT_TRUE(tracedPrefix("Added LLDP-MED Capabilities TLV:  MedCapabilitiesInfo("));
}

TEST_F(LldpMedTest, CapabilitiesSkippedWhenNoMedTlvEnabled) {
   neighbourSentMed();
   portConfig_->tiaEnabledTlvsIs(Lldp::TiaEnabledTlvs(0));
   localPort_->localNetworkPolicyTlvIs(policy(1, true, 100, 5, 46));
   auto tlvs = send();
   ASSERT_EQ(tlvs.size(), 1u);
   EXPECT_EQ(tlvs[0].subtype, 2);
   EXPECT_TRUE(traced(
       "Not adding LLDP-MED Capabilities TLV - as none of LLDP-MED TLV is enabled in CLI", 6));
}

TEST_F(LldpMedTest, NetworkPolicyLayoutAndOrder) {
   neighbourSentMed();
   portConfig_->tiaEnabledTlvsIs(Lldp::TiaEnabledTlvs(0));
   // Inserted out of order; sent by application type.
   auto untagged = policy(2, false, 100, 5, 46);
   untagged.unknownIs(true);
   localPort_->localNetworkPolicyTlvIs(untagged);
   auto tagged = policy(1, true, 100, 5, 46);
   tagged.unknownIs(true);
   localPort_->localNetworkPolicyTlvIs(tagged);
   localPort_->localNetworkPolicyTlvIs(policy(0xff, true, 4095, 7, 63));

   auto tlvs = send();
   ASSERT_EQ(tlvs.size(), 3u);
   // App 1, tagged bit 22, VLAN 100 in bits 20..9, priority 5 in 8..6, DSCP 46; the
   // unknown flag never goes out.
   EXPECT_EQ(tlvs[0].content, bytes({0x01, 0x40, 0xc9, 0x6e}));
   // Untagged: VLAN and priority are sent as zero.
   EXPECT_EQ(tlvs[1].content, bytes({0x02, 0x00, 0x00, 0x2e}));
   // All fields at their maximum stay inside their bits (reserved bit 21 clear).
   EXPECT_EQ(tlvs[2].content, bytes({0xff, 0x5f, 0xff, 0xff}));
}

TEST_F(LldpMedTest, PolicyThatDoesNotFitEndsTheLoop) {
   neighbourSentMed();
   for (uint8_t app = 1; app <= 3; ++app)
      localPort_->localNetworkPolicyTlvIs(policy(app, true, 10, 1, 1));
   // Capabilities (9 bytes) and one policy (10 bytes) fit, then 9 bytes are left.
   bool ok = true;
   auto tlvs = send(9 + 10 + 9, &ok);
   EXPECT_FALSE(ok);
   ASSERT_EQ(tlvs.size(), 2u);
   EXPECT_EQ(tlvs[1].content[0], 1);
   EXPECT_EQ(written_, 19u);
   EXPECT_TRUE(traced("Added LLDP-MED Network Policy TLV for app 1", 2));
   EXPECT_TRUE(traced("Not enough space to add LLDP-MED Network Policy TLV for app 2", 2));
   EXPECT_FALSE(tracedPrefix("building LLDP-MED Network Policy for app 3"));
}

TEST_F(LldpMedTest, CapabilitiesThatDoNotFit) {
   neighbourSentMed();
   bool ok = true;
   EXPECT_TRUE(send(8, &ok).empty());
   EXPECT_FALSE(ok);
   EXPECT_EQ(written_, 0u);
   EXPECT_TRUE(traced("Not enough space to add LLDP-MED Capabilities TLV", 2));
}

TEST_F(LldpMedTest, RoundTrip) {
   neighbourSentMed();
   Lldp::MedCapabilitiesInfo caps({.capabilities = Lldp::MedCapability(0x23), .deviceType = 4});
   localPort_->medCapabilitiesIs(caps);
   localPort_->localNetworkPolicyTlvIs(policy(1, true, 100, 5, 46));
   localPort_->localNetworkPolicyTlvIs(policy(2, false, 200, 3, 10));

   auto tlvs = send();
   ASSERT_EQ(tlvs.size(), 3u);
   for (const auto& t : tlvs) {
      EXPECT_EQ(t.oui, Lldp::ouiTia.value());
      EXPECT_EQ(LldpMed::parseTlv(t.subtype, int(t.content.size()), t.content.data(), remote_),
                TlvParseResultOk);
   }
   EXPECT_TRUE(remote_->medCapabilitiesTlvReceived());
   EXPECT_EQ(remote_->medCapabilitiesInfo(), caps);
   ASSERT_EQ(remote_->networkPolicyTlv().size(), 2u);
   EXPECT_EQ(*remote_->networkPolicyTlv(1), policy(1, true, 100, 5, 46));
   EXPECT_EQ(*remote_->networkPolicyTlv(2), policy(2, false, 0, 0, 10));
}

// ---------------------------------------------------------------------------------------
// Receive: capabilities and network policy.

TEST_F(LldpMedTest, CapabilitiesReceive) {
   EXPECT_EQ(parse(1, bytes({0xff, 0xff, 0x09})), TlvParseResultOk);
   EXPECT_TRUE(remote_->medCapabilitiesTlvReceived());
   EXPECT_EQ(remote_->medCapabilitiesInfo().capabilities().value(), 0x3f);
   EXPECT_EQ(remote_->medCapabilitiesInfo().deviceType(), 5);

   EXPECT_EQ(parse(1, bytes({0x00, 0x21, 0x03, 0x99})), TlvParseResultOk);
   EXPECT_EQ(remote_->medCapabilitiesInfo().capabilities().value(), 0x21);
   EXPECT_EQ(remote_->medCapabilitiesInfo().deviceType(), 3);

   auto fresh = Vel::make<Lldp::RemoteSystem>(8, Lldp::Msap());
   Bytes shortCaps = bytes({0x00, 0x21});
   EXPECT_EQ(LldpMed::parseTlv(1, 2, shortCaps.data(), fresh), TlvParseResultFatalError);
   EXPECT_FALSE(fresh->medCapabilitiesTlvReceived());
   EXPECT_TRUE(traced("Error: LLDP-MED Capabilities TLV is too short (orgDefInfoLen=2)", 0));
}

TEST_F(LldpMedTest, NetworkPolicyReceive) {
   EXPECT_EQ(parse(2, bytes({0x01, 0x40, 0xc9, 0x6e})), TlvParseResultOk);
   Lldp::NetworkPolicyTlv expected = policy(1, true, 100, 5, 46);
   EXPECT_EQ(*remote_->networkPolicyTlv(1), expected);

   // Reserved bit 21 makes no difference.
   remote_->networkPolicyTlvDelAll();
   EXPECT_EQ(parse(2, bytes({0x01, 0x60, 0xc9, 0x6e})), TlvParseResultOk);
   EXPECT_EQ(*remote_->networkPolicyTlv(1), expected);

   // Unknown flag; a second TLV for the same application replaces the first.
   EXPECT_EQ(parse(2, bytes({0x01, 0x80, 0x00, 0x00})), TlvParseResultOk);
   ASSERT_EQ(remote_->networkPolicyTlv().size(), 1u);
   EXPECT_TRUE(remote_->networkPolicyTlv(1)->unknown());
   EXPECT_FALSE(remote_->networkPolicyTlv(1)->tagged());

   EXPECT_EQ(parse(2, bytes({0x02, 0x40, 0xc9})), TlvParseResultFatalError);
   EXPECT_EQ(remote_->networkPolicyTlv(2), nullptr);
   EXPECT_TRUE(traced("Error: LLDP-MED NetworkPolicy TLV is too short (orgDefInfoLen=3)", 0));
}

// ---------------------------------------------------------------------------------------
// Receive: location identification.

TEST_F(LldpMedTest, LocationEmptyAndCoordinate) {
   EXPECT_EQ(parse(3, Bytes()), TlvParseResultFatalError);
   EXPECT_TRUE(traced("Error: LLDP-MED Location ID TLV is too short (orgDefInfoLen=0)", 0));

   Bytes coord = bytes({1});
   for (int i = 0; i < 15; ++i) coord.push_back(char(0xa0 + i));
   EXPECT_EQ(parse(3, coord), TlvParseResultFatalError);
   EXPECT_TRUE(
       traced("Error: LLDP-MED Location ID Coordinate Based TLV size is invalid ( "
              "coordinateDataLen = 15 )",
              0));
   EXPECT_EQ(remote_->locationId(), Lldp::LocationId());

   coord.push_back(char(0xaf));
   coord.push_back(char(0x55));  // beyond the 16 bytes: ignored
   EXPECT_EQ(parse(3, coord), TlvParseResultOk);
   EXPECT_EQ(remote_->locationId().format(), Lldp::LocationId::formatCoordinate);
   for (size_t i = 0; i < 16; ++i) EXPECT_EQ(remote_->locationId().coordinate()[i], 0xa0 + i);
}

TEST_F(LldpMedTest, CivicAddress) {
   // Format 2; LCI length 18; what 2; "US"; CA 1 = "CA"; CA 3 = "abcde"; CA 1 again = "NY".
   Bytes civic =
       bytes({2, 18, 2, 'U', 'S', 1, 2, 'C', 'A', 3, 5, 'a', 'b', 'c', 'd', 'e', 1, 2, 'N', 'Y'});
   EXPECT_EQ(parse(3, civic), TlvParseResultOk);
   const auto& loc = remote_->locationId();
   EXPECT_EQ(loc.format(), Lldp::LocationId::formatCivic);
   EXPECT_EQ(loc.civicAddress().what(), 2);
   EXPECT_EQ(loc.civicAddress().countryCode().value(), "US");
   const auto& elements = loc.civicAddress().caElements();
   ASSERT_EQ(elements.size(), 2u);
   EXPECT_EQ(elements.find(1)->caValue().value(), "NY");
   EXPECT_EQ(elements.find(3)->caValue().value(), "abcde");
   EXPECT_FALSE(tracedPrefix("Warning:"));
}

TEST_F(LldpMedTest, CivicAddressOverrunKeepsEarlierElements) {
   // The last element claims 10 bytes where 3 remain.
   Bytes civic = bytes({2, 12, 1, 'D', 'E', 1, 2, 'B', 'Y', 6, 10, 'x', 'y', 'z'});
   EXPECT_EQ(parse(3, civic), TlvParseResultOk);
   const auto& address = remote_->locationId().civicAddress();
   EXPECT_EQ(remote_->locationId().format(), Lldp::LocationId::formatCivic);
   EXPECT_EQ(address.what(), 1);
   EXPECT_EQ(address.countryCode().value(), "DE");
   ASSERT_EQ(address.caElements().size(), 1u);
   EXPECT_EQ(address.caElements().find(1)->caValue().value(), "BY");
   EXPECT_TRUE(traced("Warning: LLDP-MED Civic Adreess LCI What field value is unexpected: 1", 2));
   EXPECT_TRUE(
       traced("Warning: LLDP-MED Civic Adreess LCI not completely processed.Remaining size: 5", 2));
}

TEST_F(LldpMedTest, CivicAddressLengthByteEqualToLci) {
   // The length byte claims one byte more than follows it; only what is there is read
   // (the buffer is exactly the TLV, so an overread shows under a sanitizer).
   Bytes civic = bytes({2, 8, 2, 'F', 'R', 1, 2, 'I', 'F'});
   EXPECT_EQ(parse(3, civic), TlvParseResultOk);
   ASSERT_EQ(remote_->locationId().civicAddress().caElements().size(), 1u);
   EXPECT_EQ(remote_->locationId().civicAddress().caElements().find(1)->caValue().value(), "IF");
}

TEST_F(LldpMedTest, CivicAddressSizeErrors) {
   EXPECT_EQ(parse(3, bytes({2, 4, 2, 'U'})), TlvParseResultFatalError);
   EXPECT_TRUE(traced("Error: LLDP-MED Civic Adreess LCI size is invalid (addressDataLen: 3)", 0));
   EXPECT_EQ(parse(3, bytes({2, 3, 2, 'U', 'S', 0, 0, 0, 0})), TlvParseResultFatalError);
   EXPECT_TRUE(traced(
       "Error: LLDP-MED Civic Adreess LCI length is invalid (lciLength: 3, addressDataLen: 8)", 0));
   EXPECT_EQ(parse(3, bytes({2, 20, 2, 'U', 'S'})), TlvParseResultFatalError);
   EXPECT_TRUE(traced(
       "Error: LLDP-MED Civic Adreess LCI length is invalid (lciLength: 20, addressDataLen: 4)",
       0));
   EXPECT_EQ(remote_->locationId(), Lldp::LocationId());
}

TEST_F(LldpMedTest, Elin) {
   auto elin = [](std::string_view digits) {
      Bytes b = bytes({3});
      b.insert(b.end(), digits.begin(), digits.end());
      return b;
   };
   EXPECT_EQ(parse(3, elin("0123456789")), TlvParseResultOk);
   EXPECT_EQ(remote_->locationId().format(), Lldp::LocationId::formatElin);
   EXPECT_EQ(remote_->locationId().elin().value(), "0123456789");
   EXPECT_EQ(parse(3, elin("1234567890123456789012345")), TlvParseResultOk);
   EXPECT_EQ(remote_->locationId().elin().value(), "1234567890123456789012345");

   // Every failure discards the frame and keeps the stored location.
   Lldp::LocationId before = remote_->locationId();
   EXPECT_EQ(parse(3, elin("123456789")), TlvParseResultFatalError);
   EXPECT_TRUE(traced("Warning: LLDP-MED ECS ELIN size is invalid: 9", 2));
   EXPECT_EQ(parse(3, elin("12345678901234567890123456")), TlvParseResultFatalError);
   EXPECT_TRUE(traced("Warning: LLDP-MED ECS ELIN size is invalid: 26", 2));
   EXPECT_EQ(parse(3, elin("01234x6789")), TlvParseResultFatalError);
   EXPECT_EQ(parse(3, elin("0123456789/")), TlvParseResultFatalError);
   EXPECT_TRUE(traced("Warning: LLDP-MED ECS ELIN Number has non digit chars", 2));
   EXPECT_EQ(remote_->locationId(), before);
}

TEST_F(LldpMedTest, UnrecognizedLocationFormatAndSubtypes) {
   EXPECT_EQ(parse(3, bytes({4, 1, 2, 3})), TlvParseResultUnrecognized);
   EXPECT_EQ(parse(3, bytes({0})), TlvParseResultUnrecognized);
   EXPECT_EQ(remote_->locationId(), Lldp::LocationId());
   EXPECT_TRUE(traced("Unrecognized LLDP-MED Location Data Format: 4", 8));

   // Extended Power via MDI and unknown subtypes.
   EXPECT_EQ(parse(4, bytes({0x51, 0x00, 0x64})), TlvParseResultUnrecognized);
   EXPECT_EQ(parse(12, bytes({'x'})), TlvParseResultUnrecognized);
   EXPECT_TRUE(traced("Unrecognized LLDP-MED Organizationally Specific TLV (subtype=4)", 8));
   EXPECT_FALSE(remote_->anyLldpMedReceived());
}

// ---------------------------------------------------------------------------------------
// Receive: inventory.

TEST_F(LldpMedTest, InventoryStoresEachSubtype) {
   using Getter = const Lldp::BoundedString32Tlv& (Lldp::RemoteSystem::*)() const;
   struct Case {
      int subtype;
      Getter get;
   };
   const Case cases[] = {
       {5, &Lldp::RemoteSystem::hardwareRevisionTlvInfo},
       {6, &Lldp::RemoteSystem::firmwareRevisionTlvInfo},
       {7, &Lldp::RemoteSystem::softwareRevisionTlvInfo},
       {8, &Lldp::RemoteSystem::serialNumberTlvInfo},
       {9, &Lldp::RemoteSystem::manufacturerNameTlvInfo},
       {10, &Lldp::RemoteSystem::modelNameTlvInfo},
       {11, &Lldp::RemoteSystem::assetIDTlvInfo},
   };
   for (const auto& c : cases) {
      std::string value = "value-" + std::to_string(c.subtype);
      EXPECT_EQ(parse(c.subtype, Bytes(value.begin(), value.end())), TlvParseResultOk);
      for (const auto& other : cases) {
         std::string_view got = ((*remote_).*(other.get))().value();
         if (other.subtype <= c.subtype) {
            EXPECT_EQ(got, "value-" + std::to_string(other.subtype));
         } else {
            EXPECT_TRUE(got.empty()) << "subtype " << c.subtype << " wrote " << other.subtype;
         }
      }
   }
   EXPECT_TRUE(traced("LLDP-MED Asset ID TLV has value: value-11", 6));
}

TEST_F(LldpMedTest, InventoryBounds) {
   Bytes max(32, 'm');
   EXPECT_EQ(parse(10, max), TlvParseResultOk);
   EXPECT_EQ(remote_->modelNameTlvInfo().size(), 32u);

   remote_->serialNumberTlvInfoIs(Lldp::BoundedString32Tlv("SN1"));
   EXPECT_EQ(parse(8, Bytes(33, 's')), TlvParseResultFatalError);
   EXPECT_TRUE(traced("Error: LLDP-MED Serial Number TLV is too big (orgDefInfoLen=33)", 0));
   EXPECT_EQ(remote_->serialNumberTlvInfo().value(), "SN1");

   EXPECT_EQ(parse(10, Bytes()), TlvParseResultFatalError);
   EXPECT_TRUE(traced("Error: LLDP-MED Model Name TLV is too short (orgDefInfoLen=0)", 0));
   EXPECT_EQ(remote_->modelNameTlvInfo().size(), 32u);
}

// Every prefix of a valid TLV, in a buffer of exactly that size (so that a sanitizer sees
// any overread): a rejected prefix leaves a fresh record without any LLDP-MED content.
TEST_F(LldpMedTest, EveryTruncationIsSafe) {
   Vel::Trace::configure("");
   const std::pair<int, Bytes> samples[] = {
       {1, bytes({0x00, 0x23, 0x04})},
       {2, bytes({0x01, 0x40, 0xc9, 0x6e})},
       {3, bytes({1, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16})},
       {3,
        bytes({2, 18, 2, 'U', 'S', 1, 2, 'C', 'A', 3, 5, 'a', 'b', 'c', 'd', 'e', 1, 2, 'N', 'Y'})},
       {3, bytes({3, '1', '2', '3', '4', '5', '6', '7', '8', '9', '0', '1'})},
       {8, Bytes(32, 's')},
   };
   for (const auto& [subtype, full] : samples) {
      for (size_t len = 0; len <= full.size(); ++len) {
         std::vector<char> exact(full.begin(), full.begin() + long(len));
         auto fresh = Vel::make<Lldp::RemoteSystem>(9, Lldp::Msap());
         TlvParseResult r =
             LldpMed::parseTlv(subtype, int(len), len ? exact.data() : nullptr, fresh);
         if (r != TlvParseResultOk) {
            EXPECT_EQ(r, TlvParseResultFatalError) << "subtype " << subtype << " len " << len;
            EXPECT_FALSE(fresh->anyLldpMedReceived()) << "subtype " << subtype << " len " << len;
         }
      }
   }
}

// ---------------------------------------------------------------------------------------
// The byte path does not allocate once the records have warmed up.

TEST_F(LldpMedTest, NoAllocationAfterWarmUp) {
   Vel::Trace::configure("");
   Bytes caps = bytes({0x00, 0x23, 0x01});
   Bytes policy1 = bytes({0x01, 0x40, 0xc9, 0x6e});
   Bytes policy2 = bytes({0x02, 0x00, 0x00, 0x2e});
   Bytes coord = bytes({1, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
   Bytes text = bytes({'r', 'e', 'v', ' ', '1', '.', '2'});
   auto parseAll = [&] {
      EXPECT_EQ(parse(1, caps), TlvParseResultOk);
      EXPECT_EQ(parse(2, policy1), TlvParseResultOk);
      EXPECT_EQ(parse(2, policy2), TlvParseResultOk);
      EXPECT_EQ(parse(3, coord), TlvParseResultOk);
      for (int subtype = 5; subtype <= 11; ++subtype) {
         EXPECT_EQ(parse(subtype, text), TlvParseResultOk);
      }
   };
   parseAll();
   neighbourSentMed();
   localPort_->localNetworkPolicyTlvIs(policy(1, true, 100, 5, 46));
   localPort_->localNetworkPolicyTlvIs(policy(2, false, 0, 0, 46));
   char* pos = frame_;
   ASSERT_TRUE(LldpMed::addTlvs(&pos, frame_ + sizeof(frame_), localPort_, portConfig_, infoBuf + 4,
                                portStatus_));

   size_t allocations = 0;
   {
      TestSupport::AllocScope scope;
      remote_->resetAttrs();
      parseAll();
      pos = frame_;
      bool ok = LldpMed::addTlvs(&pos, frame_ + sizeof(frame_), localPort_, portConfig_,
                                 infoBuf + 4, portStatus_);
      allocations = scope.count();
      EXPECT_TRUE(ok);
   }
   EXPECT_EQ(allocations, 0u);
   EXPECT_EQ(pos - frame_, 9 + 10 + 10);
   EXPECT_EQ(remote_->networkPolicyTlv().size(), 2u);
}

}  // namespace

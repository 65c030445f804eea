#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "Lldp/LldpExtDot1.h"
#include "Lldp/LldpProtocol.h"
#include "tests/Support/AllocCounter.h"
#include "tests/Support/ExtTlvChecks.h"
#include "tests/Support/Frames.h"
#include "tests/Support/ScopedToggle.h"

using TestSupport::bytes;
using TestSupport::Bytes;
using TestSupport::snapshot;
using TestSupport::traced;

namespace {

// One valid TLV of each subtype the decoder stores (the PVID at the top of its range).
const std::pair<int, Bytes> valid[] = {
    {1, bytes({0x0f, 0xfe})},         {2, bytes({0x06, 0x00, 0x0a})},
    {3, bytes({0, 10, 2, 'a', 'b'})}, {4, bytes({0x02, 0x88, 0x8e})},
    {5, bytes({1, 2, 3, 4})},         {6, bytes({0x00, 0x01})},
    {7, bytes({0x03, 0, 0, 0, 9})}};

class LldpExtDot1Test : public ::testing::Test {
protected:
   void SetUp() override { infoBuf = scratch_; }
   void TearDown() override { infoBuf = nullptr; }

   char* info() { return scratch_ + Lldp::orgDefHeaderLen; }
   size_t written() const { return static_cast<size_t>(pos_ - frame_); }
   bool addPvid(int room) {
      return addExtDot1Tlvs(&pos_, pos_ + room, localPort_, portConfig_, info());
   }
   bool addNames(int room) {
      return addVlanNameTlvs(&pos_, pos_ + room, portStatus_, portConfig_, info());
   }
   void addVlanNames(std::initializer_list<int> vlans) {
      for (int v : vlans) {
         char name[16];
         snprintf(name, sizeof(name), "VLAN%04d", v);
         portStatus_->vlanNameIs(
             Lldp::VlanName({.vlanId = Bridging::VlanId(static_cast<uint16_t>(v)), .name = name}));
      }
   }
   // Decodes every 802.1 TLV written so far into remote_ and returns how many were Ok
   // (without allocating).
   int parseWritten() {
      int ok = 0;
      TestSupport::forEachOrgTlv(frame_, pos_, [&](const TestSupport::OrgTlv& t) {
         EXPECT_EQ(t.oui, Lldp::ouiIeee8021.value());
         ok += parseExtDot1Tlv(t.subtype, t.infoLen, t.info, remote_) == TlvParseResultOk;
      });
      return ok;
   }
   TlvParseResult parse(int subtype, const Bytes& b) {
      return parseExtDot1Tlv(subtype, static_cast<int>(b.size()), b.data(), remote_);
   }

   TestSupport::TraceCapture trace_{"LldpExtDot1"};
   char frame_[1600] = {};
   char scratch_[Lldp::maxTlvInfoLen + 1] = {};
   char* pos_ = frame_;
   Wire::IntfId intf_{"Ethernet1"};
   Lldp::LocalPort::Ptr localPort_ = Vel::make<Lldp::LocalPort>(intf_);
   Lldp::PortConfig::Ptr portConfig_ = Vel::make<Lldp::PortConfig>(intf_);
   Lldp::PortStatus::Ptr portStatus_ = Vel::make<Lldp::PortStatus>(intf_, 0.0);
   Vel::Ptr<Lldp::RemoteSystem> remote_ = Vel::make<Lldp::RemoteSystem>(1, Lldp::Msap());
};

// --- Transmit -----------------------------------------------------------------------------

TEST_F(LldpExtDot1Test, PortVlanIdWireFormatAndSwitches) {
   localPort_->portVlanIdIs(0x0123);
   ASSERT_TRUE(addPvid(100));
   EXPECT_EQ(Bytes(frame_, pos_), bytes({0xfe, 0x06, 0x00, 0x80, 0xc2, 0x01, 0x01, 0x23}));
   EXPECT_TRUE(traced("Added Port VLAN ID: pvid=291", 6));

   // A port without a PVID still says so.
   pos_ = frame_;
   localPort_->portVlanIdIs(0);
   ASSERT_TRUE(addPvid(8));
   EXPECT_EQ(Bytes(frame_, pos_), bytes({0xfe, 0x06, 0x00, 0x80, 0xc2, 0x01, 0x00, 0x00}));

   // One byte short: nothing is written and the caller learns of it.
   pos_ = frame_;
   EXPECT_FALSE(addPvid(7));
   EXPECT_EQ(written(), 0u);
   EXPECT_TRUE(traced("Not enough space to add Port VLAN ID", 2));

   EXPECT_TRUE(addExtDot1Tlvs(&pos_, pos_ + 100, nullptr, portConfig_, info()));
   EXPECT_EQ(written(), 0u);

   portConfig_->portVlanTxEnableIs(false);
   EXPECT_TRUE(addPvid(100));
   EXPECT_EQ(written(), 0u);
}

TEST_F(LldpExtDot1Test, VlanNamesCutShortThenComplete) {
   TestSupport::ScopedToggle toggle("LldpTxVlanNames", true);
   // Inserted out of order: the frame must still carry the lowest VLANs first.
   addVlanNames({300, 2, 40, 1000, 7, 4094, 1, 500, 20, 3});
   // The longest name and one of arbitrary bytes, for the round trip at the end.
   const std::string longest(32, 'n');
   portStatus_->vlanNameIs(Lldp::VlanName({.vlanId = 4094, .name = longest.c_str()}));
   portStatus_->vlanNameIs(
       Lldp::VlanName({.vlanId = 500, .name = std::string_view("\x00\xff v", 4)}));
   portStatus_->vlanNamesChangedIs(true);
   const int tlv = 2 + 4 + 3 + 8;  // a VLAN Name TLV with an 8-byte name

   EXPECT_FALSE(addNames(4 * tlv + tlv - 1));
   EXPECT_EQ(written(), size_t(4 * tlv));
   std::vector<int> sent;
   for (const auto& [vlan, name] : portStatus_->sentVlanName()) sent.push_back(vlan);
   EXPECT_EQ(sent, (std::vector<int>{1, 2, 3, 7}));
   EXPECT_TRUE(portStatus_->vlanNamesIncomplete());
   EXPECT_FALSE(portStatus_->vlanNamesChanged());
   EXPECT_TRUE(traced("Not enough space to add Vlan Name TLV", 2));
   EXPECT_TRUE(traced("Added Vlan Name TLV: vlanId: 7, name: VLAN0007", 6));
   // The first TLV on the wire: VLAN 1, length 8, "VLAN0001".
   EXPECT_EQ(Bytes(frame_, frame_ + tlv), bytes({0xfe, 0x0f, 0x00, 0x80, 0xc2, 0x03, 0x00, 0x01,
                                                 0x08, 'V', 'L', 'A', 'N', '0', '0', '0', '1'}));

   // The next LLDPDU has exactly the room for all of them; they decode to what was sent.
   pos_ = frame_;
   EXPECT_TRUE(addNames(8 * tlv + (tlv + 24) + (tlv - 4)));
   EXPECT_EQ(portStatus_->sentVlanName(), portStatus_->vlanName());
   EXPECT_FALSE(portStatus_->vlanNamesIncomplete());
   EXPECT_EQ(parseWritten(), 10);
   EXPECT_EQ(remote_->vlanName(), portStatus_->vlanName());

   // No room at all: nothing recorded as sent.
   pos_ = frame_;
   EXPECT_FALSE(addNames(tlv - 1));
   EXPECT_TRUE(portStatus_->sentVlanName().empty());
   EXPECT_TRUE(portStatus_->vlanNamesIncomplete());

   // No names to send is a complete list.
   portStatus_->vlanNameDelAll();
   EXPECT_TRUE(addNames(0));
   EXPECT_FALSE(portStatus_->vlanNamesIncomplete());
}

// Switched off by the toggle or by the port's configuration: nothing goes out, only the
// list of sent names is emptied, and the flags still describe the last real attempt.
TEST_F(LldpExtDot1Test, VlanNamesSwitchedOff) {
   addVlanNames({10, 20});
   for (bool byToggle : {true, false}) {
      SCOPED_TRACE(byToggle ? "toggle" : "port configuration");
      {
         TestSupport::ScopedToggle on("LldpTxVlanNames", true);
         ASSERT_TRUE(addNames(1000));
         ASSERT_EQ(portStatus_->sentVlanName().size(), 2u);
      }
      portStatus_->vlanNamesIncompleteIs(true);
      portStatus_->vlanNamesChangedIs(true);
      TestSupport::ScopedToggle toggle("LldpTxVlanNames", !byToggle);
      portConfig_->vlanNameTxEnableIs(byToggle);
      pos_ = frame_;
      EXPECT_TRUE(addNames(1000));
      EXPECT_EQ(written(), 0u);
      EXPECT_TRUE(portStatus_->sentVlanName().empty());
      EXPECT_TRUE(portStatus_->vlanNamesIncomplete());
      EXPECT_TRUE(portStatus_->vlanNamesChanged());
      // Missing records are not a lack of room.
      EXPECT_TRUE(addVlanNameTlvs(&pos_, pos_ + 1000, nullptr, portConfig_, info()));
      EXPECT_TRUE(addVlanNameTlvs(&pos_, pos_ + 1000, portStatus_, nullptr, info()));
      EXPECT_EQ(written(), 0u);
   }
}

// --- Receive ------------------------------------------------------------------------------

TEST_F(LldpExtDot1Test, ParsesEverySubtype) {
   EXPECT_EQ(parse(2, bytes({0x06, 0x00, 0x0a})), TlvParseResultOk);
   EXPECT_EQ(parse(2, bytes({0x02, 0x00, 0x00})), TlvParseResultOk);
   ASSERT_EQ(remote_->portAndProtocolVlan().size(), 2u);
   // Each as PPVID, supported, enabled.
   EXPECT_EQ(*remote_->portAndProtocolVlan(10), Lldp::PortAndProtocolVlan({10, true, true}));
   EXPECT_EQ(*remote_->portAndProtocolVlan(0), Lldp::PortAndProtocolVlan({0, true, false}));

   // Identities are numbered in arrival order, from 1.
   EXPECT_EQ(parse(4, bytes({0x02, 0x88, 0x8e})), TlvParseResultOk);
   EXPECT_EQ(parse(4, bytes({0x03, 'a', 'b', 'c', 0xee})), TlvParseResultOk);
   ASSERT_EQ(remote_->protocolIdentityInfo().size(), 2u);
   EXPECT_EQ(remote_->protocolIdentityInfo(1)->identity().value(), std::string("\x88\x8e"));
   EXPECT_EQ(remote_->protocolIdentityInfo(2)->identity().value(), "abc");

   EXPECT_EQ(parse(5, bytes({0xde, 0xad, 0xbe, 0xef})), TlvParseResultOk);
   EXPECT_EQ(remote_->vidUsageDigest(), 0xdeadbeefu);
   EXPECT_TRUE(remote_->vidUsageDigestTlvReceived());

   EXPECT_EQ(parse(6, bytes({0x0f, 0xfe})), TlvParseResultOk);
   EXPECT_EQ(remote_->managementVid().value(), 4094);
   EXPECT_TRUE(remote_->managementVidTlvReceived());

   EXPECT_EQ(parse(7, bytes({0x03, 0x80, 0x00, 0x00, 0x2a})), TlvParseResultOk);
   // Capable and aggregated, port 0x8000002a.
   EXPECT_EQ(remote_->linkAggregationInfo(),
             Lldp::LinkAggregationInfo({Lldp::LinkAggStatusMap(0x03), 0x8000002a}));
   EXPECT_TRUE(remote_->linkAggregationTlvReceived());

   // A longer TLV than the layout needs is read by its layout.
   EXPECT_EQ(parse(1, bytes({0x00, 0x05, 0x99, 0x99})), TlvParseResultOk);
   EXPECT_EQ(remote_->portVlanId().value(), 5);
   EXPECT_TRUE(remote_->portVlanIdTlvReceived());

   for (int subtype : {0, 8, 127, 255}) {
      EXPECT_EQ(parse(subtype, bytes({})), TlvParseResultUnrecognized) << subtype;
   }
   EXPECT_TRUE(traced("Unrecognized 802.1 Organizationally Specific TLV (subtype=8)", 8));
}

// Range and framing edges of every subtype, and every cut-short valid TLV: the result, the
// level-0 trace where the decoder names the fault, and an untouched record.
TEST_F(LldpExtDot1Test, MalformedTlvsAreReportedAndChangeNothing) {
   Bytes name33 = bytes({0x00, 0x0a, 33});
   name33.insert(name33.end(), 33, 'x');
   const TlvParseResult fatal = TlvParseResultFatalError, error = TlvParseResultError;
   const struct {
      int subtype;
      Bytes info;
      TlvParseResult result;
      const char* trace;
   } cases[] = {
       {1, bytes({0x00}), fatal, "Error: Port VLAN ID TLV is too short (orgDefInfoLen=1)"},
       {1, bytes({0x0f, 0xff}), error, "Error: Port VLAN ID is out-of-range (pvid=4095)"},
       {1, bytes({0xff, 0xff}), error, nullptr},
       {2, bytes({0x02, 0x00}), fatal, nullptr},
       {2, bytes({0x04, 0x00, 0x0a}), error,
        "Error: Port And Protocol VLAN ID is enabled but not supported (ppvid=10, flags=0x4)"},
       {2, bytes({0x06, 0x0f, 0xff}), error, nullptr},
       {3, bytes({0x00, 0x0a, 0x01}), fatal, nullptr},
       {3, bytes({0x00, 0x0a, 0x00, 'x'}), error, nullptr},
       {3, name33, error, "Error: VLAN Name length is out-of-range (vlanNameLen=33)"},
       {3, bytes({0x00, 0x00, 0x01, 'x'}), error, nullptr},
       {3, bytes({0x0f, 0xff, 0x01, 'x'}), error, nullptr},
       {3, bytes({0x00, 0x0a, 0x03, 'x', 'y'}), fatal,
        "Error: VLAN Name TLV is too short (orgDefInfoLen=5, vlanNameLen=3)"},
       {4, bytes({}), fatal, nullptr},
       {4, bytes({0x00, 'x'}), error, nullptr},
       {4, bytes({0x05, 'x'}), fatal,
        "Error: Protocol Identity TLV is too short (orgDefInfoLen=2, protoIdLen=5)"},
       {5, bytes({0x01, 0x02, 0x03}), fatal, nullptr},
       {6, bytes({0x01}), fatal, nullptr},
       {6, bytes({0x0f, 0xff}), error, nullptr},
       {7, bytes({0x01, 0x00, 0x00, 0x00}), fatal,
        "Error: Link Aggregation TLV is too short (orgDefInfoLen=4)"},
   };
   // Give the record some state of every kind a bad TLV could disturb.
   for (const auto& [subtype, info] : valid) ASSERT_EQ(parse(subtype, info), TlvParseResultOk);
   const std::string before = snapshot(*remote_);
   for (const auto& c : cases) {
      SCOPED_TRACE("subtype " + std::to_string(c.subtype) + ", " + std::to_string(c.info.size()) +
                   " bytes");
      EXPECT_EQ(parse(c.subtype, c.info), c.result);
      EXPECT_EQ(snapshot(*remote_), before);
      EXPECT_TRUE(!c.trace || traced(c.trace, 0));
   }
   // Every prefix of a valid TLV, in a buffer of exactly its size so that a read past it
   // shows under a memory checker, is rejected without a change.
   for (const auto& [subtype, full] : valid) {
      for (size_t len = 0; len < full.size(); ++len) {
         const Bytes exact(full.begin(), full.begin() + long(len));
         EXPECT_NE(parseExtDot1Tlv(subtype, int(len), exact.data(), remote_), TlvParseResultOk);
         EXPECT_EQ(snapshot(*remote_), before) << "subtype " << subtype << " len " << len;
      }
   }
   // The PVID range edge that is allowed.
   EXPECT_EQ(parse(1, bytes({0x00, 0x00})), TlvParseResultOk);
   EXPECT_EQ(remote_->portVlanId().value(), 0);
}

TEST_F(LldpExtDot1Test, BytePathDoesNotAllocate) {
   Vel::Trace::configure("");
   TestSupport::ScopedToggle toggle("LldpTxVlanNames", true);
   localPort_->portVlanIdIs(100);
   addVlanNames({1, 2, 3, 4, 5, 6, 7, 8});
   // A second identity, an unknown subtype, and two errors.
   const std::pair<int, Bytes> others[] = {{4, bytes({0x01, 0x01})},
                                           {9, bytes({})},
                                           {1, bytes({0x0f, 0xff})},
                                           {3, bytes({0x00, 0x01, 0x05, 'x'})}};
   auto roundOnce = [&] {
      pos_ = frame_;
      remote_->resetAttrs();
      EXPECT_TRUE(addPvid(1000));
      EXPECT_TRUE(addNames(1000));
      EXPECT_EQ(parseWritten(), 9);
      for (const auto& [subtype, b] : valid) parse(subtype, b);
      for (const auto& [subtype, b] : others) parse(subtype, b);
   };
   roundOnce();  // the collections and the toggle warm up here
   TestSupport::AllocScope scope;
   roundOnce();
   EXPECT_EQ(scope.count(), 0u);
   EXPECT_EQ(remote_->vlanName().size(), 8u + 1u);
   EXPECT_EQ(remote_->protocolIdentityInfo().size(), 2u);
}

}  // namespace

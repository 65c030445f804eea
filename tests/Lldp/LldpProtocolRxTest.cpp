// The receive processor: mandatory TLV checks, shutdown frames, decoding of the basic
// optional TLVs, creation and reconciliation of remote systems, counters and logs.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Framework/Log.h"
#include "Framework/Toggle.h"
#include "Lldp/LldpProtocol.h"
#include "Lldp/LldpProtocolSm.h"
#include "Lldp/LldpToggles.h"
#include "tests/Support/AllocCounter.h"
#include "tests/Support/Frames.h"
#include "tests/Support/ScopedToggle.h"

using TestSupport::Bytes;
using TestSupport::bytes;

namespace {

Vel::Seconds fakeNow = 1000;
Vel::Seconds fakeClock() {
   return fakeNow;
}

// Builds an LLDPDU TLV by TLV.
class Pdu {
public:
   Pdu& tlv(int type, std::string_view info) {
      const size_t len = info.size();
      b_.push_back(char((type << 1) | int(len >> 8)));
      b_.push_back(char(len & 0xff));
      b_.insert(b_.end(), info.begin(), info.end());
      return *this;
   }
   Pdu& tlv(int type, const Bytes& info) {
      return tlv(type, std::string_view(info.data(), info.size()));
   }
   Pdu& id(int type, int subtype, std::string_view value) {
      return tlv(type, std::string(1, char(subtype)) + std::string(value));
   }
   Pdu& ttl(int seconds) { return tlv(3, bytes({seconds >> 8, seconds & 0xff})); }
   Pdu& org(uint32_t oui, int subtype, const Bytes& content) {
      Bytes info = bytes({int(oui >> 16), int((oui >> 8) & 0xff), int(oui & 0xff), subtype});
      info.insert(info.end(), content.begin(), content.end());
      return tlv(127, info);
   }
   Pdu& end() { return tlv(0, ""); }
   Pdu& raw(const Bytes& more) {
      b_.insert(b_.end(), more.begin(), more.end());
      return *this;
   }
   Pdu& cut(size_t n) {
      b_.resize(b_.size() - n);
      return *this;
   }
   Bytes& data() { return b_; }

private:
   Bytes b_;
};

std::string chassisName(int n) {
   return "chassis" + std::to_string(n);
}
std::string portName(int n) {
   return "port" + std::to_string(n);
}

// Chassis ID and Port ID (both locally assigned) and TTL of neighbour `n`.
Pdu neighbour(int n = 1, int ttl = 120) {
   return Pdu().id(1, 7, chassisName(n)).id(2, 7, portName(n)).ttl(ttl);
}

Lldp::Msap msapOf(int n) {
   Lldp::Msap m;
   m.chassisIdentifierIs(Lldp::ChassisIdentifier({.subtype = 7, .value = chassisName(n)}));
   m.portIdentifierIs(Lldp::PortIdentifier({.subtype = 7, .value = portName(n)}));
   return m;
}

// The information string of an IPv4 Management Address TLV.
Bytes mgmtAddr(std::vector<int> addr, uint32_t ifNumber, const Bytes& oid) {
   Bytes b = bytes({int(addr.size()) + 1, 1});
   for (int a : addr) b.push_back(char(a));
   b.push_back(2);
   for (int s : {24, 16, 8, 0}) b.push_back(char(ifNumber >> s));
   b.push_back(char(oid.size()));
   b.insert(b.end(), oid.begin(), oid.end());
   return b;
}
Lldp::ManagementAddress::Key ipv4Key(int a, int b, int c, int d) {
   const char addr[4] = {char(a), char(b), char(c), char(d)};
   return Lldp::ManagementAddress::Key({.subtype = 1, .address = std::string_view(addr, 4)});
}
// The MAC address 00:1c:73:00:00:01 as identifier bytes.
const std::string macId("\x00\x1c\x73\x00\x00\x01", 6);

// 1.3.6.1.4.1.30065 in BER.
const Bytes enterpriseOid = bytes({0x2b, 0x06, 0x01, 0x04, 0x01, 0x81, 0xea, 0x71});

constexpr uint32_t ouiDot1 = 0x0080c2;
constexpr uint32_t ouiDot3 = 0x00120f;
constexpr uint32_t ouiTia = 0x0012bb;
constexpr uint32_t ouiZorven = 0x027e51;

template <class Entity>
std::string snapshot(const Entity& r) {
   std::ostringstream os;
   os << r;
   return os.str();
}

class LldpProtocolRxTest : public ::testing::Test {
protected:
   void SetUp() override {
      Vel::Trace::textTraceIs("-");
      Vel::Trace::configure("LldpProtocol/*");
      Vel::Trace::ringClear();
      fakeNow = 1000;
      Lldp::clockIs(fakeClock);
      Vel::Log::sinkIs([this](const Vel::Log::Message& m) { logs.push_back(m); });
      config = Vel::make<Lldp::PortConfig>(Wire::IntfId("Ethernet1"));
      status = Vel::make<Lldp::Status>();
      port = status->portStatusIs(Wire::IntfId("Ethernet1"), 0.0);
      localPort = Vel::make<Lldp::LocalPort>(Wire::IntfId("Ethernet1"));
      pamSm = Vel::make<Lldp::Agent::Protocol::LldpPamSm>(Wire::IntfId("Ethernet1"));
   }
   void TearDown() override {
      Vel::Trace::configure("");
      Lldp::clockIs(nullptr);
      Vel::Log::sinkIs(nullptr);
   }

   Lldp::RemoteSystem::PtrConst rx(Bytes& frame) {
      return processRxLldpdu(frame.data(), frame.data() + frame.size(), config, status, port,
                             localPort, pamSm, mac);
   }
   Lldp::RemoteSystem::PtrConst rx(Bytes&& frame) { return rx(frame); }
   Lldp::RemoteSystem::PtrConst rx(Pdu& pdu) { return rx(pdu.data()); }
   Lldp::RemoteSystem::PtrConst rx(Pdu&& pdu) { return rx(pdu.data()); }
   Lldp::RemoteSystem::PtrConst stored(int n = 1) { return port->remoteSystemByMsap(msapOf(n)); }
   // Position of the first trace line with exactly this text; npos when absent.
   static size_t traceAt(std::string_view text) {
      auto ring = Vel::Trace::ringSnapshot();
      for (size_t i = 0; i < ring.size(); ++i) {
         if (ring[i].text == text) return i;
      }
      return std::string::npos;
   }
   static bool traced(std::string_view text) { return traceAt(text) != std::string::npos; }

   Lldp::PortConfig::Ptr config;
   Lldp::Status::Ptr status;
   Lldp::PortStatus::Ptr port;
   Lldp::LocalPort::Ptr localPort;
   Vel::Ptr<Lldp::Agent::Protocol::LldpPamSm> pamSm;
   Wire::EthAddr mac = *Wire::EthAddr::parse("00:1c:73:aa:bb:cc");
   std::vector<Vel::Log::Message> logs;
};

// ---------------------------------------------------------------------------------------
// Mandatory TLVs and whole-frame discards.

TEST_F(LldpProtocolRxTest, ThreeMandatoryTlvsMakeANeighbour) {
   auto r = rx(neighbour(1, 90));
   ASSERT_TRUE(r);
   EXPECT_EQ(r, stored(1));
   EXPECT_EQ(r->index(), 1);
   EXPECT_EQ(r->ttl(), 90);
   EXPECT_EQ(r->ethAddr(), mac);
   EXPECT_EQ(r->creationTime(), 1000);
   EXPECT_EQ(r->lastChangeTime(), 1000);
   EXPECT_EQ(r->lastRefreshTime(), 1000);
   EXPECT_EQ(r->expiryTime(), 1090);
   EXPECT_EQ(port->rxFramesTotal(), 1u);
   EXPECT_EQ(port->rxFramesErrors(), 0u);
   EXPECT_EQ(status->remTablesInserts(), 1u);
   EXPECT_EQ(status->remTablesLastChangeTime(), 1000);
   EXPECT_EQ(status->lastPacketParsedTime(), 1000);
}

TEST_F(LldpProtocolRxTest, IdentifierSubtypesAndTtlLength) {
   // Subtypes above 7 are kept as 8, 0 stays 0; TTL bytes past the first two are ignored.
   auto r = rx(Pdu().id(1, 9, "c").id(2, 0, "p").tlv(3, bytes({0, 30, 0x7f, 0xff})));
   ASSERT_TRUE(r);
   EXPECT_EQ(r->msap().chassisIdentifier().subtype(), 8);
   EXPECT_EQ(r->msap().chassisIdentifier().value().value(), "c");
   EXPECT_EQ(r->msap().portIdentifier().subtype(), 0);
   EXPECT_EQ(r->ttl(), 30);
   EXPECT_TRUE(traced("Unknown chassid ID subtype 9"));
   auto p = rx(Pdu().id(1, 0, "c").id(2, 200, "p").ttl(30));
   ASSERT_TRUE(p);
   EXPECT_EQ(p->msap().chassisIdentifier().subtype(), 0);
   EXPECT_EQ(p->msap().portIdentifier().subtype(), 8);
   EXPECT_TRUE(traced("Unknown port ID subtype 200"));
   EXPECT_EQ(port->rxFramesErrors(), 0u);
   EXPECT_EQ(port->remoteSystem().size(), 2u);
}

// Each frame is sent by a known neighbour, whose record must not move, and by an unknown
// one, which must not be created. Only the port's frame counters change.
TEST_F(LldpProtocolRxTest, FatalFramesTouchNothingButPortCounters) {
   auto named = [](int n) { return neighbour(n).tlv(5, "new-name"); };
   Bytes mgmtShortOid = mgmtAddr({10, 0, 0, 1}, 3, bytes({0x2b, 0x06, 0x01}));
   mgmtShortOid.resize(mgmtShortOid.size() - 2);
   const std::vector<std::pair<const char*, std::function<Pdu(int)>>> cases = {
       {"empty", [](int) { return Pdu(); }},
       {"port ID first", [](int n) { return Pdu().id(2, 7, portName(n)).ttl(9); }},
       {"chassis ID of 1 byte",
        [](int n) { return Pdu().tlv(1, "\x07").id(2, 7, portName(n)).ttl(9); }},
       {"chassis ID of 257 bytes",
        [](int n) { return Pdu().id(1, 7, std::string(256, 'c')).id(2, 7, portName(n)).ttl(9); }},
       {"no port ID", [](int n) { return Pdu().id(1, 7, chassisName(n)).ttl(9); }},
       {"TTL of 1 byte",
        [](int n) { return Pdu().id(1, 7, chassisName(n)).id(2, 7, portName(n)).tlv(3, "\x01"); }},
       {"TTL cut short", [](int n) { return neighbour(n).cut(1); }},
       {"second chassis ID", [&](int n) { return named(n).id(1, 7, chassisName(n)); }},
       {"second TTL", [&](int n) { return named(n).ttl(5); }},
       {"system capabilities of 3 bytes",
        [&](int n) {
           return named(n).tlv(7, bytes({0, 4, 0}));
        }},
       {"management address of 8 bytes",
        [&](int n) {
           return named(n).tlv(8, bytes({5, 1, 10, 0, 0, 1, 2, 0}));
        }},
       {"management address shorter than its address",
        [&](int n) {
           return named(n).tlv(8, bytes({32, 1, 10, 0, 0, 1, 2, 0, 0}));
        }},
       {"management address shorter than its OID",
        [&](int n) { return named(n).tlv(8, mgmtShortOid); }},
       {"organizationally specific of 3 bytes",
        [&](int n) {
           return named(n).tlv(127, bytes({0x00, 0x80, 0xc2}));
        }},
       {"fatal result of a family decoder",
        [&](int n) { return named(n).org(ouiDot1, 1, bytes({0})); }},
   };
   ASSERT_TRUE(rx(neighbour(1).tlv(5, "old-name")));
   fakeNow = 2000;
   const std::string before = snapshot(*stored(1));
   const std::string statusBefore = snapshot(*status);
   uint32_t frames = port->rxFramesTotal();
   for (const auto& [what, frame] : cases) {
      for (int n : {1, 2}) {
         SCOPED_TRACE(std::string(what) + (n == 1 ? ", known neighbour" : ", new neighbour"));
         const uint32_t discarded = port->rxFramesDiscardedTotal();
         const uint32_t errors = port->rxFramesErrors();
         EXPECT_FALSE(rx(frame(n)));
         EXPECT_EQ(port->rxFramesTotal(), ++frames);
         EXPECT_EQ(port->rxFramesDiscardedTotal(), discarded + 1);
         EXPECT_EQ(port->rxFramesErrors(), errors + 1);
         EXPECT_EQ(port->remoteSystem().size(), 1u);
         EXPECT_EQ(port->remoteSystemByMsap().size(), 1u);
         EXPECT_EQ(snapshot(*stored(1)), before);
         EXPECT_EQ(snapshot(*status), statusBefore);
      }
   }
   EXPECT_TRUE(traced("Error in first mandatory TLV"));
   EXPECT_TRUE(traced("Error in second mandatory TLV"));
   EXPECT_TRUE(traced("Error in third mandatory TLV"));
   EXPECT_TRUE(traced("Error: frame contains duplicate TLV of type 1"));
   EXPECT_TRUE(traced("Error: System Capabilities TLV is too short (infoLen=3)"));
   EXPECT_TRUE(traced("Error: Management Address TLV is too short (infoLen=8)"));
   EXPECT_TRUE(
       traced("Error: Management Address TLV is too short (infoLen=9, manAddrStringLen=32)"));
   EXPECT_TRUE(
       traced("Error: Management Address TLV is too short (infoLen=13, "
              "manAddrStringLen=5, oidStringLen=3)"));
   EXPECT_TRUE(traced("Error: Organizationally Specific TLV is too short (infoLen=3)"));
   EXPECT_TRUE(traced("Frame had a fatal error -- discarding"));
}

// ---------------------------------------------------------------------------------------
// Shutdown LLDPDUs.

// A shutdown LLDPDU: its optional TLVs are never read (those here would make the frame
// fatal); a known neighbour goes at once, an unknown one changes nothing but the count.
TEST_F(LldpProtocolRxTest, ShutdownRemovesKnownNeighbourAndIgnoresUnknownOnes) {
   ASSERT_TRUE(rx(Pdu().id(1, 4, macId).id(2, 5, "Ethernet7").ttl(120)));
   ASSERT_TRUE(rx(neighbour(2)));
   fakeNow = 1500;
   logs.clear();
   const std::string statusBefore = snapshot(*status);
   EXPECT_FALSE(rx(neighbour(1, 0).tlv(5, "x").tlv(7, "")));
   EXPECT_EQ(snapshot(*status), statusBefore);
   EXPECT_TRUE(traced("Received shutdown frame from unknown MSAP: " + snapshot(msapOf(1))));
   EXPECT_FALSE(rx(Pdu().id(1, 4, macId).id(2, 5, "Ethernet7").ttl(0).tlv(99, "x").tlv(7, "")));
   EXPECT_EQ(port->remoteSystem().size(), 1u);
   EXPECT_EQ(port->remoteSystemByMsap().size(), 1u);
   EXPECT_EQ(port->remoteSystem(2).ptr(), stored(2).ptr());
   EXPECT_EQ(status->remTablesDeletes(), 1u);
   EXPECT_EQ(status->remTablesLastChangeTime(), 1500);
   EXPECT_EQ(port->rxFramesTotal(), 4u);
   EXPECT_EQ(port->rxFramesDiscardedTotal() + port->rxFramesErrors() +
                 port->rxTLVsDiscardedTotal() + port->rxTLVsUnrecognizedTotal(),
             0u);
   ASSERT_EQ(logs.size(), 1u);
   EXPECT_EQ(logs[0].key, "LLDP_NEIGHBOR_GONE");
   EXPECT_EQ(logs[0].text,
             "Received a shutdown frame from LLDP neighbor with chassisId 00:1c:73:00:00:01 and "
             "portId Ethernet7 on interface Ethernet1");
   EXPECT_TRUE(traced("Deleting RemoteSystem"));
}

// ---------------------------------------------------------------------------------------
// Basic optional TLVs.

TEST_F(LldpProtocolRxTest, BasicTlvsDecode) {
   auto r = rx(neighbour()
                   .tlv(4, std::string(300, 'd'))
                   .tlv(5, "first")
                   .tlv(6, "a switch")
                   .tlv(5, "second")
                   .tlv(7, bytes({0x00, 0x14, 0x00, 0x04}))
                   .tlv(9, "nine")
                   .tlv(126, "x")
                   .tlv(9, "again")
                   .tlv(0, "junk")  // the End TLV's length is not examined
                   .tlv(1, "not read"));
   ASSERT_TRUE(r);
   EXPECT_EQ(r->portDesc().value(), std::string(255, 'd'));
   EXPECT_EQ(r->sysName().value(), "second");
   EXPECT_EQ(r->sysDesc().value(), "a switch");
   EXPECT_EQ(r->systemCapabilities().supported().value(), 0x14);
   EXPECT_TRUE(r->systemCapabilities().enabled().bridge());
   EXPECT_FALSE(r->systemCapabilities().enabled().router());
   ASSERT_EQ(r->unknownTlv().size(), 2u);
   EXPECT_EQ(r->unknownTlv(uint8_t(9))->value().value(), "again");
   EXPECT_EQ(r->unknownTlv(uint8_t(126))->value().value(), "x");
   EXPECT_EQ(port->rxTLVsUnrecognizedTotal(), 3u);
   EXPECT_EQ(port->rxFramesErrors(), 0u);
   EXPECT_EQ(port->rxTLVsDiscardedTotal(), 0u);
   EXPECT_TRUE(traced("End of LLDPDU"));
}

TEST_F(LldpProtocolRxTest, BadOptionalTlvsAreDroppedAndTheRestKept) {
   // Enabled bits that are not supported: that TLV goes, the frame stays.
   auto r = rx(neighbour().tlv(7, bytes({0x00, 0x04, 0x00, 0x14})).tlv(5, "kept"));
   ASSERT_TRUE(r);
   EXPECT_EQ(r->systemCapabilities(), Lldp::SystemCapabilitiesTlv());
   EXPECT_EQ(r->sysName().value(), "kept");
   EXPECT_EQ(port->rxTLVsDiscardedTotal(), 1u);
   EXPECT_EQ(port->rxFramesErrors(), 1u);
   EXPECT_EQ(port->rxFramesDiscardedTotal(), 0u);
   EXPECT_TRUE(
       traced("Error: Supported and enabled capabilities are inconsistent "
              "(supported=0x4, enabled=0x14)"));

   // A frame that ends inside an optional TLV keeps what came before it.
   r = rx(neighbour(2).tlv(5, "before").tlv(6, "cut").cut(2));
   ASSERT_TRUE(r);
   EXPECT_EQ(r->sysName().value(), "before");
   EXPECT_TRUE(r->sysDesc().empty());
   EXPECT_EQ(port->rxTLVsDiscardedTotal(), 2u);
   EXPECT_EQ(port->rxFramesErrors(), 2u);
   EXPECT_TRUE(traced("Error: frame ended during optional TLV"));
   EXPECT_TRUE(traced("Frame had an error"));
}

TEST_F(LldpProtocolRxTest, ManagementAddresses) {
   auto r = rx(neighbour()
                   .tlv(8, mgmtAddr({10, 0, 0, 1}, 7, enterpriseOid))
                   .tlv(8, mgmtAddr({10, 0, 0, 2}, 8, {}))
                   .tlv(8, mgmtAddr({10, 0, 0, 3}, 9, bytes({0x2b, 0x81})))  // ends mid-identifier
                   .tlv(8, mgmtAddr({10, 0, 0, 2}, 10, {})));  // replaces the second one
   ASSERT_TRUE(r);
   ASSERT_EQ(r->managementAddress().size(), 3u);
   const auto* a = r->managementAddress(ipv4Key(10, 0, 0, 1));
   ASSERT_NE(a, nullptr);
   EXPECT_EQ(a->ifNumberingSubtype(), 2);
   EXPECT_EQ(a->ifNumber(), 7u);
   EXPECT_EQ(a->oid().stringValue(), "1.3.6.1.4.1.30065");
   EXPECT_EQ(r->managementAddress(ipv4Key(10, 0, 0, 2))->ifNumber(), 10u);
   const auto* bad = r->managementAddress(ipv4Key(10, 0, 0, 3));
   ASSERT_NE(bad, nullptr);
   EXPECT_TRUE(bad->oid().empty());
   EXPECT_TRUE(traced("Valid OID string"));
   EXPECT_TRUE(traced("Empty OID string"));
   EXPECT_TRUE(traced("Invalid OID string"));
   EXPECT_EQ(port->rxFramesErrors(), 0u);

   // String lengths 1 and 33 and an OID length of 129 drop only their own TLV.
   Bytes longOid = mgmtAddr({10, 0, 0, 4}, 1, Bytes(129, 1));
   r = rx(neighbour(2)
              .tlv(8, bytes({1, 1, 2, 0, 0, 0, 1, 0, 0}))
              .tlv(8,
                   [] {
                      Bytes b = bytes({33, 1});
                      b.resize(33 + 7, 0);
                      return b;
                   }())
              .tlv(8, longOid)
              .tlv(5, "rest"));
   ASSERT_TRUE(r);
   EXPECT_TRUE(r->managementAddress().empty());
   EXPECT_EQ(r->sysName().value(), "rest");
   EXPECT_EQ(port->rxTLVsDiscardedTotal(), 3u);
   EXPECT_EQ(port->rxFramesErrors(), 1u);
   EXPECT_TRUE(
       traced("Error: Value of management address string length field is out of range "
              "(manAddrStringLen=1)"));
   EXPECT_TRUE(
       traced("Error: Value of management address string length field is out of range "
              "(manAddrStringLen=33)"));
   EXPECT_TRUE(
       traced("Error: Value of OID string length field is out of range (oidStringLen=129)"));
}

// ---------------------------------------------------------------------------------------
// Organizationally specific TLVs.

TEST_F(LldpProtocolRxTest, OrgSpecificTlvsGoToTheirDecoders) {
   auto r = rx(neighbour()
                   .org(ouiDot1, 1, bytes({0x00, 0x64}))       // port VLAN ID 100
                   .org(ouiDot3, 4, bytes({0x05, 0xee}))       // maximum frame size 1518
                   .org(ouiTia, 1, bytes({0x00, 0x01, 0x03}))  // LLDP-MED capabilities
                   .org(0x334455, 44, bytes({'a'}))
                   .org(0x334455, 44, bytes({'b'}))
                   .org(0x334455, 45, bytes({'c'}))
                   .org(ouiDot1, 0, bytes({1, 2})));  // subtype 0 is an Error
   ASSERT_TRUE(r);
   EXPECT_TRUE(r->portVlanIdTlvReceived());
   EXPECT_EQ(r->portVlanId(), 100);
   EXPECT_EQ(r->maximumFrameSizeInfo().maxFrameSize(), 1518);
   EXPECT_TRUE(r->medCapabilitiesTlvReceived());
   using Key = Lldp::UnknownOrgDefTlv::Key;
   const Lldp::Oui oui(0x334455);
   ASSERT_EQ(r->unknownOrgDefTlv().size(), 3u);
   EXPECT_EQ(r->unknownOrgDefTlv(Key({.oui = oui, .subtype = 44, .index = 1}))->value().value(),
             "a");
   EXPECT_EQ(r->unknownOrgDefTlv(Key({.oui = oui, .subtype = 44, .index = 2}))->value().value(),
             "b");
   EXPECT_EQ(r->unknownOrgDefTlv(Key({.oui = oui, .subtype = 45, .index = 1}))->value().value(),
             "c");
   EXPECT_EQ(port->rxTLVsUnrecognizedTotal(), 3u);
   EXPECT_EQ(port->rxTLVsDiscardedTotal(), 1u);
   EXPECT_TRUE(
       traced("Error: Organizationally Specific TLV has invalid subtype of 0 (oui=00-80-c2)"));

   // Next frame carries only the first of the pair: index 2 goes, index 1 stays.
   Vel::Trace::ringClear();
   r = rx(neighbour().org(0x334455, 44, bytes({'a'})));
   ASSERT_EQ(r->unknownOrgDefTlv().size(), 1u);
   EXPECT_TRUE(r->unknownOrgDefTlv(Key({.oui = oui, .subtype = 44, .index = 1})));
   EXPECT_FALSE(r->portVlanIdTlvReceived());
   EXPECT_EQ(r->portVlanId(), 0);
   EXPECT_TRUE(
       traced("Member UnknownOrgDefTlvKey(oui=33-44-55, subtype=44, index=2) of "
              "collection unknownOrgDefTlv deleted"));
}

TEST_F(LldpProtocolRxTest, ZtpBootVlanWithToggleOn) {
   TestSupport::ScopedToggle toggle("LldpBootVlanTlv", true);
   // The top four bits are not part of the VLAN.
   auto r = rx(neighbour().org(ouiZorven, 1, bytes({0xf0, 0x64, 0, 0, 0, 0, 0, 0})));
   ASSERT_TRUE(r);
   EXPECT_EQ(r->ztpBootVlan(), 100);
   EXPECT_TRUE(r->unknownOrgDefTlv().empty());

   r = rx(neighbour().org(ouiZorven, 1, bytes({0x0f, 0xff})).org(ouiZorven, 2, bytes({0, 5})));
   EXPECT_EQ(r->ztpBootVlan(), 0);
   EXPECT_TRUE(r->unknownOrgDefTlv().empty());
   EXPECT_EQ(port->rxTLVsDiscardedTotal(), 1u);
   EXPECT_EQ(port->rxTLVsUnrecognizedTotal(), 1u);
   EXPECT_TRUE(traced("Error: ZTP boot VLAN is invalid (ztpBootVlan=4095)"));
   EXPECT_TRUE(traced("Unrecognized ZORVEN OUI TLV (subtype=2)"));

   EXPECT_FALSE(rx(neighbour().org(ouiZorven, 1, bytes({0x01}))));
   EXPECT_TRUE(traced("Error: ZTP boot vlan TLV is too short (orgDefInfoLen=)1)"));

   auto scratch = Vel::make<Lldp::RemoteSystem>(1, Lldp::Msap());
   const char zero[2] = {0, 0};
   EXPECT_EQ(parseZtpBootVlanTlv(1, 2, zero, scratch), TlvParseResultError);
   EXPECT_EQ(parseZtpBootVlanTlv(1, 0, nullptr, scratch), TlvParseResultFatalError);
}

TEST_F(LldpProtocolRxTest, ZtpBootVlanWithToggleOffIsAnUnknownTlv) {
   TestSupport::ScopedToggle toggle("LldpBootVlanTlv", false);
   auto r = rx(neighbour().org(ouiZorven, 1, bytes({0x00, 0x64})));
   ASSERT_TRUE(r);
   EXPECT_EQ(r->ztpBootVlan(), 0);
   ASSERT_EQ(r->unknownOrgDefTlv().size(), 1u);
   EXPECT_EQ(r->unknownOrgDefTlv().begin()->first.oui(), Lldp::ouiZorven);
   EXPECT_EQ(port->rxTLVsUnrecognizedTotal(), 1u);
}

// ---------------------------------------------------------------------------------------
// Updates of a known neighbour.

TEST_F(LldpProtocolRxTest, WhatTheNeighbourStopsSendingIsCleared) {
   rx(neighbour().tlv(4, "uplink").tlv(8, mgmtAddr({10, 0, 0, 1}, 1, {})));
   fakeNow = 1030;
   Vel::Trace::ringClear();
   auto r = rx(neighbour().tlv(8, mgmtAddr({10, 0, 0, 2}, 1, {})));
   EXPECT_TRUE(r->portDesc().empty());
   ASSERT_EQ(r->managementAddress().size(), 1u);
   EXPECT_TRUE(r->managementAddress(ipv4Key(10, 0, 0, 2)));
   EXPECT_EQ(r->lastChangeTime(), 1030);
   EXPECT_EQ(status->remTablesLastChangeTime(), 1030);
   EXPECT_TRUE(traced("Attribute portDesc changed (was: uplink, now: )"));
   // Within a collection, removals come before additions; attributes keep their order.
   const std::string prefix = "Member ManagementAddressKey(subtype=1, address=\\x0a\\x00\\x00\\x0";
   const size_t deleted = traceAt(prefix + "1) of collection managementAddress deleted");
   const size_t added = traceAt(prefix + "2) of collection managementAddress added/updated");
   ASSERT_NE(deleted, std::string::npos);
   ASSERT_NE(added, std::string::npos);
   EXPECT_LT(traceAt("Attribute portDesc changed (was: uplink, now: )"), deleted);
   EXPECT_LT(deleted, added);
   EXPECT_TRUE(traced("Something changed -- updating lastChangeTime to 1030"));
}

// ---------------------------------------------------------------------------------------
// Creation: index, limit and the neighbour log.

TEST_F(LldpProtocolRxTest, NewNeighbourIsLogged) {
   rx(Pdu().id(1, 4, macId).id(2, 5, "Ethernet7").ttl(120));
   ASSERT_EQ(logs.size(), 1u);
   EXPECT_EQ(logs[0].key, "LLDP_NEIGHBOR_NEW");
   EXPECT_EQ(logs[0].text,
             "LLDP neighbor with chassisId 00:1c:73:00:00:01 and portId Ethernet7 added on "
             "interface Ethernet1");
   rx(Pdu().id(1, 4, macId).id(2, 5, "Ethernet7").ttl(120));
   EXPECT_EQ(logs.size(), 1u);  // an update logs nothing
}

TEST_F(LldpProtocolRxTest, IndexWrapsToOne) {
   port->nextRemoteSystemIndexIs(INT32_MAX - 1);
   EXPECT_EQ(rx(neighbour(1))->index(), INT32_MAX);
   auto r = rx(neighbour(2));
   ASSERT_TRUE(r);
   EXPECT_EQ(r->index(), 1);
   EXPECT_EQ(port->nextRemoteSystemIndex(), 1u);
   EXPECT_EQ(port->remoteSystem(1).ptr(), stored(2).ptr());
   EXPECT_TRUE(traced("Index for RemoteSystem tables has wrapped"));
}

// A full table refuses new neighbours (counted, logged once a minute) and still updates
// the ones it holds; raised, it holds a flood of distinct neighbours, each frame either
// stored or counted.
TEST_F(LldpProtocolRxTest, NeighbourLimitRefusesCountsAndLogsOnce) {
   Vel::Trace::configure("");               // thousands of frames
   Vel::Log::clockIs(+[] { return 2e9; });  // a fixed time: every refusal in one minute
   config->remoteSystemLimitIs(2);
   ASSERT_TRUE(rx(neighbour(1)));
   ASSERT_TRUE(rx(neighbour(2)));
   logs.clear();
   for (int n = 3; n < 10; ++n) EXPECT_FALSE(rx(neighbour(n).tlv(7, bytes({0, 4, 0, 0x14}))));
   EXPECT_FALSE(stored(3));
   EXPECT_EQ(port->remoteSystem().size(), 2u);
   EXPECT_EQ(port->rxNeighborsRefused(), 7u);
   EXPECT_EQ(port->rxFramesDiscardedTotal(), 7u);
   EXPECT_EQ(port->rxFramesErrors(), 0u);
   EXPECT_EQ(status->remTablesInserts(), 2u);
   ASSERT_EQ(logs.size(), 1u);
   EXPECT_EQ(logs[0].text,
             "LLDP neighbor table full on interface Ethernet1 (limit 2 neighbors): new neighbor "
             "refused");
   auto r = rx(neighbour(1).tlv(5, "still updated"));
   ASSERT_TRUE(r);
   EXPECT_EQ(r->sysName().value(), "still updated");

   config->remoteSystemLimitIs(5000);
   const uint32_t framesBefore = port->rxFramesTotal();
   for (int n = 1000; n < 4000; ++n) rx(neighbour(n));
   EXPECT_EQ(port->remoteSystem().size(), 3002u);
   EXPECT_EQ(port->remoteSystemByMsap().size(), 3002u);
   EXPECT_EQ(port->rxFramesTotal() - framesBefore, 3000u);
   EXPECT_EQ(port->rxNeighborsRefused(), 7u);
   config->remoteSystemLimitIs(3100);
   for (int n = 5000; n < 5200; ++n) rx(neighbour(n));
   EXPECT_EQ(port->remoteSystem().size(), 3100u);
   EXPECT_EQ(port->rxNeighborsRefused(), 7u + 102u);
   EXPECT_EQ(std::count_if(logs.begin(), logs.end(),
                           [](const auto& m) { return m.key == "LLDP_NEIGHBOR_LIMIT"; }),
             1);  // within the minute
   Vel::Log::clockIs(nullptr);
}

// ---------------------------------------------------------------------------------------
// A changed power request hurries the next transmission.

TEST_F(LldpProtocolRxTest, PowerRequestChangeNudgesTransmitMachine) {
   using Lldp::Agent::Protocol::txFsmIdle;
   using Lldp::Agent::Protocol::txFsmTxDelay;
   auto request = [](int power) {  // IEEE 802.3at Power via MDI from a PD
      return neighbour().org(ouiDot3, 2,
                             bytes({0x00, 0x01, 0x04, 0x53, power >> 8, power & 0xff, 0, 0}));
   };
   config->poeAllocatedPowerFallbackIs(15400);
   pamSm->txFsmStateIs(txFsmIdle);
   rx(request(130));
   EXPECT_EQ(pamSm->txFsmState(), txFsmIdle);  // no PoE record on the port yet

   auto poe = localPort->initilizeLocalPortPoeInfo();
   rx(request(130));
   EXPECT_EQ(pamSm->txFsmState(), txFsmIdle);  // same request
   rx(request(140));
   EXPECT_EQ(pamSm->txFsmState(), txFsmTxDelay);

   pamSm->txFsmStateIs(txFsmIdle);
   poe->poePortStatusIs(Environment::Power::PoePortStatus::PortStatus({.state = 4}));
   rx(request(150));
   EXPECT_EQ(pamSm->txFsmState(), txFsmIdle);  // the port is in fault

   poe->poePortStatusIs(Environment::Power::PoePortStatus::PortStatus({.state = 3}));
   config->poeAllocatedPowerFallbackIs(0);
   rx(request(160));
   EXPECT_EQ(pamSm->txFsmState(), txFsmIdle);  // no fallback configured

   config->poeAllocatedPowerFallbackIs(15400);
   rx(request(170));
   EXPECT_EQ(pamSm->txFsmState(), txFsmTxDelay);
}

// ---------------------------------------------------------------------------------------
// Captures from real devices.

TEST_F(LldpProtocolRxTest, InteropCaptures) {
   auto replay = [&](const char* file) {
      auto frame = TestSupport::readPcapFrame(TestSupport::interopDir() + "/" + file);
      EXPECT_FALSE(frame.empty()) << file;
      return rx(TestSupport::lldpduOf(frame));
   };
   // Ethernet trailer after End of LLDPDU.
   auto r = replay("connectx.pcap");
   ASSERT_TRUE(r);
   EXPECT_EQ(r->msap().chassisIdentifier().stringValue(), "50:6b:4b:f6:1e:b3");
   EXPECT_EQ(r->ttl(), 48);
   EXPECT_EQ(r->portDesc().value(), "ConnectX-4 Lx, 25G/10G/1G SFP");
   EXPECT_EQ(port->rxFramesErrors(), 0u);

   r = replay("8023bt.pcap");
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
   EXPECT_EQ(r->unknownOrgDefTlv().begin()->first.oui(), Lldp::Oui(0x000142));

   r = replay("reference-rich.pcap");
   ASSERT_TRUE(r);
   EXPECT_EQ(r->sysName().value(), "vm");
   EXPECT_EQ(r->sysDesc().value(), "peer-one");
   EXPECT_EQ(r->portDesc().value(), "v1");
   ASSERT_EQ(r->managementAddress().size(), 1u);
   EXPECT_EQ(r->managementAddress().begin()->first.stringValue(), "fe80::e4b5:c7ff:fe60:ff37");
   ASSERT_EQ(r->unknownOrgDefTlv().size(), 1u);
   EXPECT_EQ(r->unknownOrgDefTlv().begin()->second.value().value(), "EEEEE");

   r = replay("sg200.pcap");
   ASSERT_TRUE(r);
   EXPECT_EQ(r->msap().portIdentifier().value().value(), "g1");
   EXPECT_EQ(r->ttl(), 120);
   EXPECT_EQ(port->rxFramesErrors(), 0u);
   EXPECT_EQ(port->rxTLVsDiscardedTotal(), 0u);

   // The civic location runs past its TLV: the frame is discarded.
   EXPECT_FALSE(replay("med-loc-malformed.pcap"));
   EXPECT_EQ(port->rxFramesDiscardedTotal(), 1u);
   EXPECT_EQ(port->remoteSystem().size(), 4u);
}

// ---------------------------------------------------------------------------------------
// Refreshing a known neighbour must not touch the heap.

TEST_F(LldpProtocolRxTest, RefreshDoesNotAllocate) {
   Vel::Trace::configure("");
   Bytes frame = neighbour()
                     .tlv(4, "uplink")
                     .tlv(5, "switch")
                     .tlv(6, "a switch")
                     .tlv(7, bytes({0, 0x14, 0, 0x04}))
                     .tlv(8, mgmtAddr({10, 0, 0, 1}, 7, enterpriseOid))
                     .tlv(9, "nine")
                     .org(ouiDot1, 1, bytes({0x00, 0x64}))
                     .org(ouiDot3, 4, bytes({0x05, 0xee}))
                     .org(ouiTia, 1, bytes({0x00, 0x01, 0x03}))
                     .org(0x334455, 44, bytes({'a'}))
                     .org(0x334455, 44, bytes({'b'}))
                     .end()
                     .data();
   auto capture = TestSupport::readPcapFrame(TestSupport::interopDir() + "/8023bt.pcap");
   Bytes bt = TestSupport::lldpduOf(capture);
   ASSERT_TRUE(rx(frame));
   ASSERT_TRUE(rx(bt));
   {
      TestSupport::AllocScope scope;
      rx(frame);
      rx(bt);
      EXPECT_EQ(scope.count(), 0u);
   }
   EXPECT_EQ(port->rxFramesErrors(), 0u);
   EXPECT_EQ(port->remoteSystem().size(), 2u);
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Repeated LLDPDUs. With the decoders' traces off, a known neighbour that sends the same
// optional TLVs again is not decoded; these check that the outcome is what a full decode
// gives, frame after frame.

namespace {

// Counts the notifications of a record's attributes and collections.
struct RemoteSystemWatcher : Lldp::RemoteSystem::Notifiee {
   int ttl = 0;
   int sysName = 0;
   int ztpBootVlan = 0;
   int unknownOrgDefTlv = 0;
   void ttlChanged() override { ++ttl; }
   void sysNameChanged() override { ++sysName; }
   void ztpBootVlanChanged() override { ++ztpBootVlan; }
   void unknownOrgDefTlvChanged(const Lldp::UnknownOrgDefTlv::Key&) override { ++unknownOrgDefTlv; }
};

}  // namespace

// A refresh with the same optional TLVs, decoded in full (decoders traced) or taken as
// repeated (traces off): the times, the source MAC and the TTL move, nothing else does.
TEST_F(LldpProtocolRxTest, RepeatedLldpduRefreshesWithoutChange) {
   for (const bool decoded : {true, false}) {
      SCOPED_TRACE(decoded ? "decoded" : "repeated");
      Vel::Trace::configure(decoded ? "LldpProtocol/*" : "");
      const int n = decoded ? 1 : 2;
      auto frame = [n](int ttl) {
         return neighbour(n, ttl)
             .tlv(5, "switch")
             .tlv(8, mgmtAddr({10, 0, 0, 1}, 1, {}))
             .org(0x334455, 44, bytes({'a'}))
             .end();
      };
      fakeNow = 1000;
      auto r = rx(frame(120));
      ASSERT_TRUE(r);
      RemoteSystemWatcher watcher;
      watcher.notifierIs(r);
      const uint32_t unrecognized = port->rxTLVsUnrecognizedTotal();
      fakeNow = 1030;
      Vel::Trace::ringClear();
      mac = *Wire::EthAddr::parse(decoded ? "00:1c:73:00:00:09" : "00:1c:73:00:00:0a");
      EXPECT_EQ(rx(frame(60)), r);
      EXPECT_EQ(r->lastRefreshTime(), 1030);
      EXPECT_EQ(r->expiryTime(), 1090);
      EXPECT_EQ(r->ttl(), 60);  // a new TTL is not a change
      EXPECT_EQ(r->ethAddr(), mac);
      EXPECT_EQ(r->lastChangeTime(), 1000);
      EXPECT_EQ(r->creationTime(), 1000);
      EXPECT_EQ(r->sysName().value(), "switch");
      EXPECT_EQ(r->managementAddress().size(), 1u);
      EXPECT_EQ(status->remTablesLastChangeTime(), 1000);
      EXPECT_EQ(status->lastPacketParsedTime(), 1030);
      EXPECT_EQ(status->remTablesInserts(), uint32_t(n));
      EXPECT_EQ(watcher.ttl, 1);
      EXPECT_EQ(watcher.sysName + watcher.unknownOrgDefTlv, 0);
      // Unknown TLVs are counted on every frame, as a decode counts them.
      EXPECT_EQ(port->rxTLVsUnrecognizedTotal(), unrecognized + 1);
      EXPECT_EQ(port->rxFramesErrors(), 0u);
      EXPECT_EQ(traced("System Name: switch"), decoded);
      EXPECT_EQ(traced("Updating RemoteSystem"), decoded);
   }
}

TEST_F(LldpProtocolRxTest, AlternatingLldpdusAreEachAppliedInFull) {
   Vel::Trace::configure("");
   auto a = [] { return neighbour().tlv(5, "alpha").tlv(4, "uplink").end(); };
   auto b = [] { return neighbour().tlv(5, "bravo").end(); };
   auto r = rx(a());
   ASSERT_TRUE(r);
   for (int round = 1; round <= 3; ++round) {
      fakeNow = 1000 + 10 * round;
      rx(b());
      EXPECT_EQ(r->sysName().value(), "bravo");
      EXPECT_TRUE(r->portDesc().empty());
      EXPECT_EQ(r->lastChangeTime(), fakeNow);
      rx(b());  // repeated: nothing changes
      EXPECT_EQ(r->lastChangeTime(), fakeNow);
      fakeNow += 5;
      rx(a());
      EXPECT_EQ(r->sysName().value(), "alpha");
      EXPECT_EQ(r->portDesc().value(), "uplink");
      EXPECT_EQ(r->lastChangeTime(), fakeNow);
   }
   // A neighbour that left and came back is a new record, filled from its frame.
   rx(neighbour(1, 0));
   ASSERT_FALSE(stored(1));
   auto back = rx(a());
   ASSERT_TRUE(back);
   EXPECT_NE(back, r);
   EXPECT_EQ(back->sysName().value(), "alpha");
   EXPECT_EQ(back->portDesc().value(), "uplink");
}

TEST_F(LldpProtocolRxTest, RepeatedLldpduWithABadTlvCountsTheErrorEachTime) {
   Vel::Trace::configure("");
   // System Capabilities with an enabled capability that is not supported.
   auto frame = [] { return neighbour().tlv(5, "switch").tlv(7, bytes({0, 0x04, 0, 0x14})).end(); };
   for (uint32_t n = 1; n <= 3; ++n) {
      auto r = rx(frame());
      ASSERT_TRUE(r);
      EXPECT_EQ(r->sysName().value(), "switch");
      EXPECT_EQ(port->rxTLVsDiscardedTotal(), n);
      EXPECT_EQ(port->rxFramesErrors(), n);
   }
}

TEST_F(LldpProtocolRxTest, RepeatedLldpduFollowsTheBootVlanToggle) {
   Vel::Trace::configure("");
   auto frame = [] { return neighbour().org(ouiZorven, 1, bytes({0x00, 0x64})).end(); };
   Lldp::RemoteSystem::PtrConst r;
   {
      TestSupport::ScopedToggle on("LldpBootVlanTlv", true);
      r = rx(frame());
      rx(frame());
      ASSERT_TRUE(r);
      EXPECT_EQ(r->ztpBootVlan(), 100);
      EXPECT_EQ(port->rxTLVsUnrecognizedTotal(), 0u);
   }
   {
      TestSupport::ScopedToggle off("LldpBootVlanTlv", false);
      rx(frame());
      EXPECT_EQ(r->ztpBootVlan(), 0);
      EXPECT_EQ(r->unknownOrgDefTlv().size(), 1u);
      EXPECT_EQ(port->rxTLVsUnrecognizedTotal(), 1u);
      rx(frame());
      EXPECT_EQ(port->rxTLVsUnrecognizedTotal(), 2u);
   }
}

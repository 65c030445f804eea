// Framework value types: bounded strings, sorted maps, interface IDs and addresses.
#include <gtest/gtest.h>

#include <sstream>

#include "Framework/Bridging/VlanId.h"
#include "Framework/Vel/Ptr.h"
#include "Framework/Vel/Types.h"
#include "Framework/Wire/Addr.h"
#include "Framework/Wire/IntfId.h"
#include "tests/Support/AllocCounter.h"

namespace {

// The bound's text is checked with the records that use it.
TEST(FixedString, FailedAssignKeepsTheValue) {
   Vel::FixedString<4> s("abcd");
   EXPECT_THROW(s.assign("12345", 5), Vel::RangeException);
   EXPECT_EQ(s.value(), "abcd");
}

TEST(FixedString, ComparesBytesAndPrintsNonPrintableEscaped) {
   Vel::FixedString<8> a(std::string_view("a\0b", 3)), b("a");
   EXPECT_LT(b, a);
   EXPECT_NE(a, b);
   std::ostringstream os;
   os << a;
   EXPECT_EQ(os.str(), "a\\x00b");
}

TEST(FlatMap, KeepsKeyOrderReplacesAndKeepsCapacityOnClear) {
   Vel::FlatMap<int, std::string> m;
   m.set(3, "c");
   m.set(1, "a");
   m.set(2, "b");
   m.set(1, "A");
   ASSERT_EQ(m.size(), 3u);
   std::string order;
   for (auto& [k, v] : m) order += v;
   EXPECT_EQ(order, "Abc");
   EXPECT_TRUE(m.erase(2));
   EXPECT_FALSE(m.erase(2));
   EXPECT_EQ(m.find(2), nullptr);

   Vel::FlatMap<int, int> n;
   for (int i = 0; i < 8; ++i) n.set(i, i);
   n.clear();
   TestSupport::AllocScope scope;
   for (int i = 0; i < 8; ++i) n.set(7 - i, i);
   EXPECT_EQ(scope.count(), 0u);
}

TEST(IntfId, ParsesSwitchNamesAndKeepsLinuxNames) {
   Wire::IntfId e("Ethernet3/1/2");
   EXPECT_TRUE(e.isEthernet());
   EXPECT_EQ(e.numberCount(), 3u);
   EXPECT_EQ(e.number(0), 3u);
   EXPECT_EQ(e.number(2), 2u);
   EXPECT_EQ(Wire::IntfId("Port-Channel10").kind(), Wire::IntfKind::intfKindPortChannel);
   EXPECT_EQ(Wire::IntfId("Management1/1").kind(), Wire::IntfKind::intfKindManagement);
   EXPECT_EQ(Wire::IntfId("Vlan100").number(0), 100u);
   EXPECT_EQ(Wire::IntfId("Loopback0").kind(), Wire::IntfKind::intfKindLoopback);
   // Not a switch name: kept whole, kind Other; the platform can give it a kind.
   EXPECT_EQ(Wire::IntfId("Ethernetx").kind(), Wire::IntfKind::intfKindOther);
   auto veth = Wire::IntfId::linux("veth-lab1", Wire::IntfKind::intfKindEthernet);
   EXPECT_TRUE(veth.isEthernet());
   EXPECT_EQ(veth.stringValue(), "veth-lab1");
   std::ostringstream os;
   os << e;
   EXPECT_EQ(os.str(), "Ethernet3/1/2");
}

TEST(IntfId, OrdersNumericallyWithinAKind) {
   EXPECT_LT(Wire::IntfId("Ethernet2"), Wire::IntfId("Ethernet10"));
   EXPECT_LT(Wire::IntfId("Ethernet1/2"), Wire::IntfId("Ethernet1/10"));
   EXPECT_LT(Wire::IntfId("Ethernet48"), Wire::IntfId("Management1"));
   EXPECT_LT(Wire::IntfId("eth2"), Wire::IntfId("eth10"));
   EXPECT_EQ(Wire::IntfId("Ethernet5"), Wire::IntfId("Ethernet5"));
}

TEST(Addr, ParseAndPrint) {
   auto mac = Wire::EthAddr::parse("00:1C:73:aa:bb:0f");
   ASSERT_TRUE(mac);
   EXPECT_EQ(mac->stringValue(), "00:1c:73:aa:bb:0f");
   EXPECT_FALSE(Wire::EthAddr::parse("00:1c:73:aa:bb"));
   EXPECT_FALSE(Wire::EthAddr::parse("00:1c:73:aa:bb:zz"));
   EXPECT_EQ(Wire::IpAddr::parse("10.1.2.3")->stringValue(), "10.1.2.3");
   EXPECT_FALSE(Wire::IpAddr::parse("10.1.2"));
   auto v6 = Wire::Ip6Addr::parse("fe80::1");
   ASSERT_TRUE(v6);
   EXPECT_TRUE(v6->isLinkLocal());
   EXPECT_EQ(v6->stringValue(), "fe80::1");
   EXPECT_EQ(Wire::IpAddrWithMask(*Wire::IpAddr::parse("10.0.0.1"), 24).stringValue(),
             "10.0.0.1/24");
}

TEST(VlanId, Bounds) {
   EXPECT_EQ(Bridging::VlanId(4094).value(), 4094);
   EXPECT_THROW(Bridging::VlanId(0), Vel::RangeException);
   EXPECT_THROW(Bridging::VlanId(4095), Vel::RangeException);
   EXPECT_EQ(Bridging::VlanIdOrNone(0).value(), 0);
   EXPECT_THROW(Bridging::VlanIdOrNone(4095), Vel::RangeException);
}

struct Counted : Vel::RefCounted {
   explicit Counted(int* d) : dtors(d) {}
   ~Counted() override { ++*dtors; }
   int* dtors;
};

TEST(Ptr, SharesAndReleasesOnce) {
   int dtors = 0;
   {
      auto a = Vel::make<Counted>(&dtors);
      Vel::PtrConst<Counted> b = a;
      EXPECT_EQ(a->refCount(), 2u);
      Vel::Ptr<Counted> c = std::move(a);
      EXPECT_FALSE(a);
      EXPECT_EQ(c->refCount(), 2u);
   }
   EXPECT_EQ(dtors, 1);
}

}  // namespace

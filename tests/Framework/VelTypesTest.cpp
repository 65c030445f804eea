// Framework value types: bounded strings, shared byte strings, sorted maps, interface IDs
// and addresses.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Framework/Bridging/VlanId.h"
#include "Framework/Vel/IntSet.h"
#include "Framework/Vel/Ptr.h"
#include "Framework/Vel/SharedBytes.h"
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

// Long values live on the heap, short ones inline; a string keeps the room it grew to, so
// refilling it (a decoder's scratch value) stops allocating; moves hand the buffer over.
TEST(FixedString, LongValuesKeepTheirRoomAndMovesHandItOver) {
   const std::string longText(200, 'x');
   Vel::FixedString<255> s(longText);
   EXPECT_EQ(s.value(), longText);
   EXPECT_GE(s.heapBytes(), 200u);
   EXPECT_EQ(sizeof(s), 16u);  // a record pays 16 bytes for an absent or short value
   {
      TestSupport::AllocScope scope;
      s = Vel::FixedString<255>("short");
      s.assign(longText.data(), 150);
      EXPECT_EQ(scope.count(), 0u);
   }
   EXPECT_EQ(s.value(), longText.substr(0, 150));
   s.assign(s.data() + 100, 50);  // from its own bytes
   EXPECT_EQ(s.value(), longText.substr(0, 50));
   Vel::FixedString<255> t(std::move(s));
   EXPECT_EQ(t.value(), longText.substr(0, 50));
   EXPECT_TRUE(s.empty());
   Vel::FixedString<255> u(t);
   EXPECT_EQ(u, t);
   EXPECT_EQ(Vel::FixedString<255>().heapBytes(), 0u);
   EXPECT_EQ(Vel::FixedString<255>(std::string(15, 'a')).heapBytes(), 0u);
   EXPECT_GT(Vel::FixedString<255>(std::string(16, 'a')).heapBytes(), 0u);
   EXPECT_EQ(Vel::FixedString<31>(std::string(23, 'a')).heapBytes(), 0u);  // interface names
   EXPECT_THROW(t.assign(longText.data(), 256), std::range_error);
   EXPECT_EQ(t.value(), longText.substr(0, 50));
}

// Holders of equal bytes share one copy, which goes when its last holder does; a sole
// holder whose bytes change rewrites its copy in place and keeps it to itself.
TEST(SharedBytes, EqualValuesShareOneCopy) {
   const size_t before = Vel::SharedBytes::distinctValues();
   {
      Vel::SharedBytes a, b, c;
      a.assign("optional tlvs one");
      b.assign("optional tlvs one");
      EXPECT_EQ(a.value().data(), b.value().data());
      EXPECT_EQ(Vel::SharedBytes::distinctValues(), before + 1);
      c = a;
      b.assign("optional tlvs two");
      EXPECT_EQ(Vel::SharedBytes::distinctValues(), before + 2);
      a.assign("optional tlvs two");  // now shares b's, c keeps the first value
      EXPECT_EQ(a.value().data(), b.value().data());
      EXPECT_EQ(c, std::string_view("optional tlvs one"));
      {
         TestSupport::AllocScope scope;
         c.assign("optional tlvs 1");  // c alone holds the first value: rewritten in place
         EXPECT_EQ(scope.count(), 0u);
      }
      EXPECT_EQ(Vel::SharedBytes::distinctValues(), before + 1);
      EXPECT_EQ(c, std::string_view("optional tlvs 1"));
      b.assign("optional tlvs 1");  // c's copy is its own: b gets another
      EXPECT_NE(b.value().data(), c.value().data());
      EXPECT_EQ(Vel::SharedBytes::distinctValues(), before + 2);
      EXPECT_EQ(a, std::string_view("optional tlvs two"));
      Vel::SharedBytes d = c;
      c.clear();
      EXPECT_EQ(d, std::string_view("optional tlvs 1"));
   }
   EXPECT_EQ(Vel::SharedBytes::distinctValues(), before);
}

// Inserts and erasures against a model, with keys that crowd into the same probe runs
// (erasure must move later members back without losing one) and negative keys.
TEST(IntSet, MatchesAModelThroughInsertsAndErasures) {
   Vel::IntSet s;
   // Before its first member the set holds nothing at all.
   s.clear();
   EXPECT_FALSE(s.contains(0));
   EXPECT_FALSE(s.erase(0));
   std::set<int> model;
   uint32_t r = 12345;
   for (int i = 0; i < 20000; ++i) {
      r = r * 1103515245u + 12345u;
      const int k = int((r >> 8) % 700) - 100;
      if ((r >> 4) % 3 == 0) {
         EXPECT_EQ(s.erase(k), model.erase(k) == 1);
      } else {
         EXPECT_EQ(s.insert(k), model.insert(k).second);
      }
      ASSERT_EQ(s.size(), model.size());
   }
   for (int k = -100; k < 600; ++k) EXPECT_EQ(s.contains(k), model.count(k) == 1) << k;
   s.clear();
   EXPECT_TRUE(s.empty());
   EXPECT_FALSE(s.contains(1));
   EXPECT_FALSE(s.erase(1));
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
   {
      TestSupport::AllocScope scope;
      for (int i = 0; i < 8; ++i) n.set(7 - i, i);
      EXPECT_EQ(scope.count(), 0u);
   }
   // Copies, comparison and erasure against a model, with values that own memory.
   Vel::FlatMap<int, std::string> a;
   std::map<int, std::string> model;
   for (int i = 0; i < 300; ++i) {
      const int k = (i * 37) % 101;
      if (i % 4 == 3) {
         EXPECT_EQ(a.erase(k), model.erase(k) == 1);
      } else {
         a.set(k, std::string(size_t(20 + k), char('a' + k % 26)));
         model[k] = std::string(size_t(20 + k), char('a' + k % 26));
      }
   }
   ASSERT_EQ(a.size(), model.size());
   auto it = model.begin();
   for (const auto& [k, v] : a) {
      EXPECT_EQ(k, it->first);
      EXPECT_EQ(v, it->second);
      ++it;
   }
   Vel::FlatMap<int, std::string> b = a;
   EXPECT_EQ(b, a);
   b.slot(model.begin()->first) += "!";
   EXPECT_NE(b, a);
   EXPECT_LT(a, b);
   b = a;
   EXPECT_EQ(b, a);
   EXPECT_EQ(sizeof(a), sizeof(void*));
}

namespace {
struct Named {
   std::string name;
   int n = 0;
   std::string key() const { return name; }
   bool operator==(const Named&) const = default;
   auto operator<=>(const Named&) const = default;
};
}  // namespace

// Values that name themselves are stored alone and still read as (key, value) items.
TEST(FlatKeyedMap, OrdersByTheValuesKeyReplacesAndErasesWithoutStoringTheKey) {
   Vel::FlatKeyedMap<std::string, Named> m;
   m.set("c", {"c", 3});
   m.set("a", {"a", 1});
   m.set("b", {"b", 2});
   EXPECT_EQ(m.set("a", {"a", 10}).n, 10);
   ASSERT_EQ(m.size(), 3u);
   std::string keys;
   int sum = 0;
   for (const auto& [k, v] : m) {
      keys += k;
      sum += v.n;
   }
   EXPECT_EQ(keys, "abc");
   EXPECT_EQ(sum, 15);
   EXPECT_EQ(m.begin()->first, "a");
   EXPECT_EQ(std::prev(m.end())->second.n, 3);
   EXPECT_EQ((m.begin() + 1)->first, "b");
   ASSERT_NE(m.find("b"), nullptr);
   EXPECT_EQ(m.find("b")->n, 2);
   EXPECT_TRUE(m.erase("b"));
   EXPECT_FALSE(m.erase("b"));
   EXPECT_FALSE(m.contains("b"));
   Vel::FlatKeyedMap<std::string, Named> copy = m;
   EXPECT_EQ(copy, m);
   copy.set("d", {"d", 4});
   EXPECT_NE(copy, m);
   EXPECT_LT(m, copy);
   EXPECT_EQ(sizeof(m), sizeof(void*));
   m.clear();
   EXPECT_TRUE(m.empty());
   EXPECT_EQ(m.begin(), m.end());
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

// Numbers of any size read and order exactly; names past the inline bytes survive copies.
TEST(IntfId, LargeNumbersAndLongNamesKeepTheirValueAndOrder) {
   EXPECT_EQ(Wire::IntfId("tap70000").number(0), 70000u);
   EXPECT_EQ(Wire::IntfId("Ethernet1/65535").number(1), 65535u);
   EXPECT_EQ(Wire::IntfId("Vlan4294967295").number(0), 4294967295u);
   const std::vector<Wire::IntfId> ascending = {
       "Ethernet1/2",     "Ethernet1/65534", "Ethernet1/65535",
       "Ethernet1/65536", "Ethernet1/70000", "Ethernet2/1",
       "Ethernet70000/1", "Ethernet70001/0", "tap9",
       "tap65535",        "tap65536",        "tap100000"};
   for (size_t i = 0; i + 1 < ascending.size(); ++i) {
      EXPECT_LT(ascending[i], ascending[i + 1]) << ascending[i] << " " << ascending[i + 1];
      EXPECT_GT(ascending[i + 1], ascending[i]) << ascending[i + 1] << " " << ascending[i];
   }
   // Two names with the same large number order by name, as small ones do.
   EXPECT_LT(Wire::IntfId("a70000"), Wire::IntfId("b70000"));
   EXPECT_EQ(Wire::IntfId("tap70000"), Wire::IntfId("tap70000"));
   // Past the 15 bytes kept inline: whole, equal to itself, copied and moved intact.
   const std::string longName = "Port-Channel12345678/1/1";
   Wire::IntfId a(longName);
   Wire::IntfId b = a;
   Wire::IntfId c = std::move(b);
   EXPECT_EQ(a.name(), longName);
   EXPECT_EQ(c, a);
   EXPECT_EQ(c.kind(), Wire::IntfKind::intfKindPortChannel);
   EXPECT_EQ(c.number(0), 12345678u);
   Wire::IntfId d = Wire::IntfId::linux("veth1", Wire::IntfKind::intfKindEthernet);
   d = a;  // inline over heap and back, keeping each one's kind
   EXPECT_EQ(d, a);
   EXPECT_EQ(d.kind(), Wire::IntfKind::intfKindPortChannel);
   d = Wire::IntfId::linux("veth2", Wire::IntfKind::intfKindEthernet);
   EXPECT_EQ(d.name(), "veth2");
   EXPECT_TRUE(d.isEthernet());
   c = std::move(d);
   EXPECT_EQ(c.name(), "veth2");
   EXPECT_TRUE(c.isEthernet());
   EXPECT_EQ(Wire::IntfId(std::string(40, 'x')).name().size(), Wire::IntfId::maxNameLen);
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

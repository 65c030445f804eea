// The MIB tree over records in a private state database: index order, GETNEXT from any
// point, TimeFilter, ports coming later, augmenting tables' rows, and the hold multiplier
// mapping.
#include <gtest/gtest.h>

#include "Framework/Vel/StateDb.h"
#include "Snmp/LldpMibSource.h"
#include "Snmp/MibTree.h"

namespace {

using Snmp::Oid;
using Snmp::Value;

const Oid remSysName{1, 0, 8802, 1, 1, 2, 1, 4, 1, 1, 9};

Oid with(Oid o, std::initializer_list<uint32_t> tail) {
   for (uint32_t i : tail) o.push(i);
   return o;
}

class MibTreeTest : public ::testing::Test {
protected:
   MibTreeTest() {
      status = db.mount<Lldp::AllStatus>("l2discovery/lldp/status/all");
      intfs = db.mount<Interface::AllIntfStatusDir>("interface/status/all");
      config = db.mount<Lldp::Config>("l2discovery/lldp/config");
   }
   // A port with neighbours 1..n, each changed at `changed` seconds (the origin is 0).
   void port(const char* name, uint32_t ifIndex, int n, double changed = 0) {
      intfs->intfStatusIs(Wire::IntfId(name))->ifIndexIs(ifIndex);
      auto ps = Vel::make<Lldp::PortStatus>(Wire::IntfId(name), 0.0);
      for (int i = 1; i <= n; ++i) {
         Lldp::Msap msap(
             {.chassisIdentifier = Lldp::ChassisIdentifier({.subtype = 7, .value = name}),
              .portIdentifier = Lldp::PortIdentifier({.subtype = 7, .value = std::to_string(i)})});
         auto rs = ps->remoteSystemIs(i, msap);
         rs->sysNameIs(std::string(name) + "/" + std::to_string(i));
         rs->lastChangeTimeIs(changed);
      }
      status->portStatusIs(Wire::IntfId(name), ps);
   }
   std::string next(const Oid& from, Oid* name = nullptr) {
      Oid n;
      Value v;
      if (!tree.getNext(from, n, v)) return "<end>";
      if (name) *name = n;
      return n.startsWith(remSysName) ? std::string(v.bytes()) : n.str();
   }

   Vel::StateDb db;
   Lldp::AllStatus::Ptr status;
   Interface::AllIntfStatusDir::Ptr intfs;
   Lldp::Config::Ptr config;
   Snmp::LldpMibSource src{db, 0};
   Snmp::MibTree tree{src};
};

TEST_F(MibTreeTest, WalksNeighboursByIfindexAndResumesAnywhere) {
   port("Ethernet2", 7, 2);
   port("Ethernet10", 5, 1);  // sorts after Ethernet2 by name, before it by ifindex
   Oid at;
   EXPECT_EQ(next(remSysName, &at), "Ethernet10/1");
   EXPECT_EQ(at, with(remSysName, {0, 5, 1}));
   EXPECT_EQ(next(at), "Ethernet2/1");
   EXPECT_EQ(next(with(remSysName, {0, 7, 1})), "Ethernet2/2");
   // Between rows, on an index that is not there, past a port's last neighbour.
   EXPECT_EQ(next(with(remSysName, {0, 6})), "Ethernet2/1");
   EXPECT_EQ(next(with(remSysName, {0, 5, 99})), "Ethernet2/1");
   // After the column's last row: the next column's first row.
   next(with(remSysName, {0, 7, 2}), &at);
   EXPECT_EQ(at, with(Oid{1, 0, 8802, 1, 1, 2, 1, 4, 1, 1, 10}, {0, 5, 1}));

   // A port that comes later is found in its place.
   port("Ethernet3", 6, 1);
   EXPECT_EQ(next(with(remSysName, {0, 5, 1})), "Ethernet3/1");
   Value v;
   EXPECT_TRUE(tree.get(with(remSysName, {0, 6, 1}), v));
   EXPECT_FALSE(tree.get(with(remSysName, {0, 6, 2}), v));
   EXPECT_FALSE(tree.get(with(remSysName, {0, 6}), v));
}

TEST_F(MibTreeTest, TimeMarkShowsOnlyWhatChangedSince) {
   port("Ethernet1", 1, 1, 10.0);  // changed at 1000 ticks
   port("Ethernet2", 2, 1, 20.0);  // changed at 2000 ticks
   Value v;
   EXPECT_TRUE(tree.get(with(remSysName, {1000, 1, 1}), v));
   EXPECT_FALSE(tree.get(with(remSysName, {1001, 1, 1}), v));
   EXPECT_EQ(next(with(remSysName, {1500})), "Ethernet2/1");
   Oid at;
   next(with(remSysName, {1500, 2, 1}), &at);  // leaves the time mark for the next column
   EXPECT_EQ(at, with(Oid{1, 0, 8802, 1, 1, 2, 1, 4, 1, 1, 10}, {0, 1, 1}));
}

// lldpXdot1ConfigVlanNameTable augments lldpXdot1LocVlanNameTable: the same rows, even
// for a port that has VLAN names but no configuration (it sends none: false).
TEST_F(MibTreeTest, VlanNameConfigRowsAreTheLocalVlanNameRows) {
   const Oid locName{1, 0, 8802, 1, 1, 2, 1, 5, 32962, 1, 2, 3, 1, 2, 4, 10};
   const Oid txEnable{1, 0, 8802, 1, 1, 2, 1, 5, 32962, 1, 1, 2, 1, 1, 4, 10};
   intfs->intfStatusIs(Wire::IntfId("Ethernet1"))->ifIndexIs(4);
   auto ps = Vel::make<Lldp::PortStatus>(Wire::IntfId("Ethernet1"), 0.0);
   ps->vlanNameIs(Lldp::VlanName({.vlanId = 10, .name = "users"}));
   status->portStatusIs(Wire::IntfId("Ethernet1"), ps);
   Value v;
   ASSERT_TRUE(tree.get(locName, v));
   EXPECT_EQ(v.bytes(), "users");
   ASSERT_TRUE(tree.get(txEnable, v));
   EXPECT_EQ(v.num, 2);
   config->portConfigIs(Wire::IntfId("Ethernet1"))->vlanNameTxEnableIs(true);
   ASSERT_TRUE(tree.get(txEnable, v));
   EXPECT_EQ(v.num, 1);
}

TEST_F(MibTreeTest, HoldMultiplierReachesTheTimeToLiveWithinTheMibRange) {
   const Oid mult{1, 0, 8802, 1, 1, 2, 1, 1, 2, 0};
   Value v;
   for (auto [interval, hold, want] :
        {std::tuple{30u, 120u, 4}, {30u, 100u, 4}, {30u, 30u, 2}, {5u, 3600u, 10}}) {
      config->messageTxIntervalIs(interval);
      config->messageTxHoldTimeIs(hold);
      ASSERT_TRUE(tree.get(mult, v));
      EXPECT_EQ(v.num, want) << interval << " s, hold " << hold << " s";
   }
   Oid n;
   EXPECT_FALSE(tree.getNext(Oid{1, 0, 8802, 1, 1, 3}, n, v));  // past our subtree
}

}  // namespace

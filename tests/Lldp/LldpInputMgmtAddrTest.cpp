// Which management addresses the agent advertises, in what order: the platform's address
// records as the Linux platform writes them, and the local system's priority map as the
// judge (it is what the transmit builder walks).
#include "tests/Lldp/LldpAgentFixture.h"

using namespace LldpAgentTests;

namespace {

IntfId linux(const char* name, IntfKind kind) {
   return IntfId::linux(name, kind);
}

uint32_t priorityOf(const IntfId& intf, Bridging::VlanIdOrNone* vlan = nullptr) {
   Bridging::VlanIdOrNone v;
   Lldp::ManAddrPriority p;
   intfNameToVlanIdAndManAddrPriority(intf, vlan ? vlan : &v, &p);
   return p.primaryPriority();
}

TEST(ManAddrPriority, KindsRankBeforeNumbersForSwitchAndLinuxNames) {
   Bridging::VlanIdOrNone vlan;
   EXPECT_EQ(priorityOf(IntfId("Loopback0")), 2u);
   EXPECT_EQ(priorityOf(IntfId("Management1")), 2104u);
   EXPECT_EQ(priorityOf(IntfId("Ethernet1")), 3394u);
   EXPECT_EQ(priorityOf(IntfId("Ethernet1/1/0")), 7490u);  // module 1, port 1, lane 0
   EXPECT_EQ(priorityOf(IntfId("Port-Channel1")), 531780u);
   EXPECT_EQ(priorityOf(IntfId("Vlan1"), &vlan), 1531780u);
   EXPECT_EQ(vlan, 1);
   // Linux names by the kind the platform gave them and the number they end in.
   EXPECT_EQ(priorityOf(linux("lo", IntfKind::intfKindLoopback)), 2u);
   EXPECT_EQ(priorityOf(linux("mgmt0", IntfKind::intfKindManagement)), 2104u);
   EXPECT_EQ(priorityOf(linux("eth0", IntfKind::intfKindEthernet)), 3394u);
   EXPECT_EQ(priorityOf(linux("eth1", IntfKind::intfKindEthernet)), 3426u);
   EXPECT_EQ(priorityOf(linux("bond0", IntfKind::intfKindPortChannel)), 531780u);
   EXPECT_EQ(priorityOf(linux("eth0.100", IntfKind::intfKindVlan), &vlan), 1531879u);
   EXPECT_EQ(vlan, 100);
   EXPECT_EQ(priorityOf(linux("br0", IntfKind::intfKindVlan)), 1531780u);  // the SVI
   // Linux numbers fill the modules in turn: ens160 is module 1, port 33.
   EXPECT_EQ(priorityOf(linux("ens160", IntfKind::intfKindEthernet)), 3394u + 32 * (128 + 32));
   EXPECT_EQ(priorityOf(linux("mgmt12", IntfKind::intfKindManagement)), 2103u + 10 + 3);
   // VLANs outside 1..4094 rank 0, with no VLAN; numbers outside a kind's range stop the
   // agent, each check in its turn.
   EXPECT_EQ(priorityOf(IntfId("Vlan4095"), &vlan), 0u);
   EXPECT_EQ(vlan, 0);
   EXPECT_DEATH(priorityOf(IntfId("Loopback2101")),
                "manAddrPriority->primaryPriority\\(\\) < managementPriorityBase");
   EXPECT_DEATH(priorityOf(IntfId("Management130/1")),
                "manAddrPriority->primaryPriority\\(\\) < ethernetPriorityBase");
   EXPECT_DEATH(priorityOf(IntfId("Management1/11")), "port <= mgmtIntfPerSlot");
   EXPECT_DEATH(priorityOf(IntfId("Ethernet130/1/0")),
                "manAddrPriority->primaryPriority\\(\\) < portChannelPriorityBase");
   EXPECT_DEATH(priorityOf(IntfId("Ethernet129/1/0")), "slotId <= maxSlotId");
   EXPECT_DEATH(priorityOf(IntfId("Ethernet1/129/0")), "port <= phyIntfPerSlot");
   EXPECT_DEATH(priorityOf(IntfId("Port-Channel1000000")),
                "manAddrPriority->primaryPriority\\(\\) < vlanPriorityBase");
   // A Linux name never does: past the last module it starts over.
   EXPECT_EQ(priorityOf(linux("eth16512", IntfKind::intfKindEthernet)), 3394u);
   EXPECT_EQ(priorityOf(linux("enx00e04c680001", IntfKind::intfKindEthernet)),
             3394u + 32 * (128 * (680001 % 16512 / 128) + 680001 % 128));
   // What the platform lets through never trips them.
   for (const char* name : {"Loopback2100", "Management128/10", "Ethernet128/128/31",
                            "Port-Channel999999", "Vlan4094"}) {
      EXPECT_TRUE(Interface::intfNumbersInRange(IntfId(name))) << name;
      EXPECT_GT(priorityOf(IntfId(name)), 0u) << name;
   }
   for (const char* name : {"Loopback2101", "Management1/11", "Ethernet129/1/0", "Ethernet0"}) {
      EXPECT_FALSE(Interface::intfNumbersInRange(IntfId(name))) << name;
   }
}

class MgmtAddrTest : public LldpAgentTest {
protected:
   void mountPlatform() override {
      LldpAgentTest::mountPlatform();
      portUp("eth1");
      ip = db.mount<Ip::Status>("ip/status");
      ip6 = db.mount<Ip6::Status>("ip6/status");
      intf(eth("eth1"), 11);
      intf(eth("eth2"), 12);
      intf(linux("lo", IntfKind::intfKindLoopback), 1);
   }
   void intf(const IntfId& id, uint32_t ifIndex, const std::string& vrf = {}) {
      auto s = allIntf->intfStatusIs(id);
      s->ifIndexIs(ifIndex);
      s->vrfIs(vrf);
      allIntf->intfStatusTouched(id);  // as the platform does
   }
   static Wire::IpAddrWithMask v4(const char* text) {
      return Wire::IpAddrWithMask(*Wire::IpAddr::parse(text), 24);
   }
   Ip::IpIntfStatus::Ptr addr(const IntfId& id, const char* primary, const std::string& vrf = {}) {
      auto s = ip->ipIntfStatusIs(id);
      s->vrfIs(vrf);
      s->activeAddrWithMaskIs(v4(primary));
      return s;
   }
   // The advertised order: "address@interface" for each priority-map entry.
   std::vector<std::string> order() {
      std::vector<std::string> out;
      for (const auto& [prio, key] : local->managementAddressPrio()) {
         std::string s = key.stringValue();
         if (const auto* a = local->managementAddress(key); a && a->ifNumber()) {
            s.append("#").append(std::to_string(a->ifNumber()));
         }
         out.push_back(s);
      }
      return out;
   }

   Ip::Status::Ptr ip;
   Ip6::Status::Ptr ip6;
};

TEST_F(MgmtAddrTest, FallbackPriorityOrderSecondariesAndModes) {
   // Nothing but the bridge MAC, under the zero priority.
   EXPECT_EQ(order(), V{"02:00:00:00:aa:01"});
   EXPECT_EQ(local->managementAddressPrio().begin()->first, zeroManAddrPriority);

   // The first real address displaces it; it is numbered by its interface's index.
   auto eth2 = addr(eth("eth2"), "192.0.2.2");
   EXPECT_EQ(order(), V{"192.0.2.2#12"});
   const Lldp::ManagementAddress* a = local->managementAddress(ipv4Key(v4("192.0.2.2").address()));
   ASSERT_TRUE(a);
   EXPECT_EQ(a->ifNumberingSubtype(), Lldp::ifNumberingIfIndex);

   // Loopback before Ethernet; a lower-numbered port before a higher one; secondaries
   // right after their primary, in address order.
   auto eth1 = addr(eth("eth1"), "192.0.2.1");
   eth1->secondaryWithMaskIs(v4("203.0.113.9"), true);
   eth1->secondaryWithMaskIs(v4("198.51.100.7"), true);
   addr(linux("lo", IntfKind::intfKindLoopback), "198.51.100.1");
   EXPECT_EQ(order(), (V{"198.51.100.1#1", "192.0.2.1#11", "198.51.100.7#11", "203.0.113.9#11",
                         "192.0.2.2#12"}));
   EXPECT_EQ(config->maxTxMgmtAddrs(), 1u);

   agent->cliConfig()->mgmtAddrTxModeIs(Lldp::mgmtAddrTxModeAll);
   EXPECT_EQ(config->maxTxMgmtAddrs(), 4294967295u);

   // Interface-name mode: the named interface's address first, alone on the wire.
   agent->cliConfig()->mgmtAddrTxIntfIs(IntfId("eth2"));
   agent->cliConfig()->mgmtAddrTxModeIs(Lldp::mgmtAddrTxModeIntfName);
   EXPECT_EQ(config->maxTxMgmtAddrs(), 1u);
   EXPECT_EQ(order().front(), "192.0.2.2#12");
   EXPECT_EQ(local->managementAddressPrio().begin()->first.primaryPriority(), 1u);
   // Back to the best address: the interface named last keeps its place.
   agent->cliConfig()->mgmtAddrTxModeIs(Lldp::mgmtAddrTxModeBest);
   EXPECT_EQ(config->maxTxMgmtAddrs(), 1u);
   EXPECT_EQ(order().front(), "192.0.2.2#12");
   EXPECT_EQ(local->managementAddressPrio().begin()->first.primaryPriority(), 1u);

   // A secondary goes; the primary changes; the last address goes: the fallback is back.
   eth1->secondaryWithMaskDel(v4("203.0.113.9"));
   eth1->activeAddrWithMaskIs(v4("192.0.2.11"));
   EXPECT_EQ(order(), (V{"192.0.2.2#12", "198.51.100.1#1", "192.0.2.11#11", "198.51.100.7#11"}));
   ip->ipIntfStatusDel(linux("lo", IntfKind::intfKindLoopback));
   ip->ipIntfStatusDel(eth("eth1"));
   EXPECT_EQ(order(), V{"192.0.2.2#12"});
   eth2->activeAddrWithMaskIs({});
   EXPECT_EQ(order(), V{"02:00:00:00:aa:01"});
   // The bridge MAC stands in whatever it is.
   bridging->bridgeMacAddrIs({});
   EXPECT_EQ(order(), V{"00:00:00:00:00:00"});
}

TEST_F(MgmtAddrTest, DuplicateAddressIsTakenOverWithoutAGap) {
   intf(eth("eth3"), 13);
   addr(eth("eth1"), "192.0.2.1");
   auto eth3 = addr(eth("eth3"), "192.0.2.1");
   auto eth2 = addr(eth("eth2"), "192.0.2.1");
   EXPECT_EQ(order(), V{"192.0.2.1#11"});
   EXPECT_EQ(agent->inputRoot()->skippedAddr().begin()->second.size(), 2u);

   // Watch every change of the map: the fallback must not step in meanwhile.
   struct Watch : Lldp::LocalSystem::Notifiee {
      Lldp::LocalSystem* local;
      bool gap = false;
      void managementAddressPrioChanged(const Lldp::ManAddrPriority& p) override {
         gap |= p == zeroManAddrPriority;
      }
   } watch;
   watch.local = local.ptr();
   watch.notifierIs(local);
   ip->ipIntfStatusDel(eth("eth1"));
   // The lowest-named of the others takes over.
   EXPECT_EQ(order(), V{"192.0.2.1#12"});
   EXPECT_FALSE(watch.gap);
   eth2->activeAddrWithMaskIs(v4("192.0.2.20"));
   EXPECT_EQ(order(), (V{"192.0.2.20#12", "192.0.2.1#13"}));
   EXPECT_TRUE(agent->inputRoot()->skippedAddr().empty());
   watch.notifierIs(nullptr);
   (void)eth3;
}

TEST_F(MgmtAddrTest, OnlyTheManagementVrfAndListedInterfacesAreAdvertised) {
   intf(eth("eth2"), 12, "red");
   addr(eth("eth1"), "192.0.2.1");
   auto eth2 = addr(eth("eth2"), "192.0.2.2", "red");
   EXPECT_EQ(order(), V{"192.0.2.1#11"});
   agent->cliConfig()->mgmtAddrVrfIs("red");
   EXPECT_EQ(order(), V{"192.0.2.2#12"});
   EXPECT_EQ(agent->lldpStatusLocal()->mgmtAddrVrf().value(), "red");
   eth2->vrfIs("");  // the interface leaves the VRF
   EXPECT_EQ(order(), V{"02:00:00:00:aa:01"});
   agent->cliConfig()->mgmtAddrVrfIs("");
   EXPECT_EQ(order(), (V{"192.0.2.1#11", "192.0.2.2#12"}));
   // An address of an interface the platform no longer lists is dropped.
   allIntf->intfStatusDel(eth("eth1"));
   EXPECT_EQ(order(), V{"192.0.2.2#12"});
   intf(eth("eth1"), 21);  // back, under a new index
   EXPECT_EQ(order(), (V{"192.0.2.1#21", "192.0.2.2#12"}));
}

TEST_F(MgmtAddrTest, OneStableIpv6Address) {
   const auto six = [](const char* text) { return *Wire::Ip6Addr::parse(text); };
   const auto advertised = [&] { return local->ip6ManagementAddress().key().stringValue(); };
   auto eth2 = ip6->intfIs(eth("eth2"));
   eth2->addrIs(six("fe80::2"), 64);  // link-local: never
   EXPECT_EQ(local->ip6ManagementAddress(), Lldp::ManagementAddress());
   eth2->addrIs(six("2001:db8::20"), 64);
   EXPECT_EQ(advertised(), "2001:db8::20");
   EXPECT_EQ(local->ip6ManagementAddress().ifNumber(), 12u);
   // A lower address, or a better interface, does not move it while it exists.
   eth2->addrIs(six("2001:db8::10"), 64);
   ip6->intfIs(linux("lo", IntfKind::intfKindLoopback))->addrIs(six("2001:db8::1"), 128);
   EXPECT_EQ(advertised(), "2001:db8::20");
   eth2->addrDel(six("2001:db8::20"));
   EXPECT_EQ(advertised(), "2001:db8::1");
   ip6->intfDel(linux("lo", IntfKind::intfKindLoopback));
   EXPECT_EQ(advertised(), "2001:db8::10");
   ip6->intfDel(eth("eth2"));
   EXPECT_EQ(local->ip6ManagementAddress(), Lldp::ManagementAddress());
   EXPECT_TRUE(traced("ipv6 management address removed "));
}

}  // namespace

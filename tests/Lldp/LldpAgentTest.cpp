// The agent in virtual time: port records, admin status, VLANs, identity, the status it
// publishes, operator TLVs and port-authentication bypass, and the clear request.
#include "tests/Lldp/LldpAgentFixture.h"

using namespace LldpAgentTests;

namespace {

TEST(InputRules, TxDelayIntervalSystemNameAndCapableKinds) {
   // Intervals 1 and 5 are checked where the global settings reach the ports.
   EXPECT_EQ(txDelayFor(0), 0u);
   EXPECT_EQ(txDelayFor(2), 2u);
   EXPECT_EQ(systemNameOf(std::string(300, 'h'), "d").size(), 255u);
   EXPECT_TRUE(lldpCapable(Wire::IntfId("Ethernet3/1")));
   EXPECT_TRUE(lldpCapable(Wire::IntfId("Management1")));
   for (const char* other : {"Port-Channel1", "Vlan10", "Loopback0"}) {
      EXPECT_FALSE(lldpCapable(Wire::IntfId(other))) << other;
   }
   EXPECT_TRUE(isLocalMgmtIntf(IntfId("Management1/2"), 1));
   EXPECT_FALSE(isLocalMgmtIntf(IntfId("Management2/1"), 1));
   // An Ethernet interface without a front-panel port.
   EXPECT_FALSE(lldpCapable(IntfId::linux("UnconnectedEthernet1", IntfKind::intfKindEthernet)));
}

TEST_F(LldpAgentTest, PortGetsItsRecordsAndPacketAccessWhileItTakesPart) {
   auto eth1 = addPort("eth1", 1);
   const Wire::IntfId intf = eth("eth1");
   ASSERT_TRUE(portConfig("eth1"));
   auto lp = local->localPort(intf);
   ASSERT_TRUE(lp);
   EXPECT_EQ(lp->portIdentifier().subtype(), 5);
   EXPECT_EQ(lp->portIdentifier().value().value(), "eth1");
   EXPECT_TRUE(lp->localPortPoeInfo());
   EXPECT_TRUE(agent->lldpStatusLocal()->portStatus(intf));
   EXPECT_TRUE(agent->protocolRoot()->protocolSm()->lldpPamSmHas(intf));
   EXPECT_EQ(lp->linkAggregationInfo().status().capable(), true);
   EXPECT_EQ(lp->maximumFrameSizeInfo().maxFrameSize(), 1518);
   // Each port's own largest frame where the platform knows it, else the bridge's, at
   // most what the TLV carries.
   addPort("eth2", 2);
   bridging->maxFrameSizeIs(9018);
   bridging->intfMaxFrameSizeIs(intf, 1518);
   auto frameOf = [&](const char* p) {
      return local->localPort(eth(p))->maximumFrameSizeInfo().maxFrameSize();
   };
   EXPECT_EQ(frameOf("eth1"), 1518);
   EXPECT_EQ(frameOf("eth2"), 9018);
   bridging->intfMaxFrameSizeIs(eth("eth2"), 70000);
   EXPECT_EQ(frameOf("eth2"), 65535);
   bridging->intfMaxFrameSizeDel(intf);
   EXPECT_EQ(frameOf("eth1"), 9018);
   phyDir->intfStatusDel(eth("eth2"));

   // Identity: chassis ID is the bridge MAC (the management address tests find it also
   // advertised as the address while there is no other).
   EXPECT_EQ(local->chassisIdentifier().subtype(), 4);
   EXPECT_EQ(local->chassisIdentifier().value().value(), std::string("\x02\0\0\0\xaa\x01", 6));
   EXPECT_EQ(local->sysName().value(), "sw1.example.test");
   netStatus->domainNameIs("");
   EXPECT_EQ(local->sysName().value(), "sw1");
   agent->cliConfig()->sysNameIs("configured-name");
   EXPECT_EQ(local->sysName().value(), "configured-name");
   EXPECT_TRUE(local->sysCapSupported().bridge() && local->sysCapSupported().router());
   // Of the enabled capabilities the input side owns the router bit alone.
   auto routing = db.entityAs<Routing::Config>("routing/config");
   routing->ipRoutingIs(true);
   switchport(intf, Bridging::switchportModeAccess, 10);
   EXPECT_EQ(local->sysCapEnabled().value(), 0x10);
   routing->ipRoutingIs(false);
   EXPECT_EQ(local->sysCapEnabled().value(), 0);

   // A port whose forwarding model no longer lets LLDP run loses everything.
   eth1->forwardingModelIs(Interface::forwardingModelDiscarded);
   EXPECT_FALSE(portConfig("eth1"));
   EXPECT_FALSE(local->localPort(intf));
   EXPECT_FALSE(agent->lldpStatusLocal()->portStatus(intf));
   EXPECT_EQ(agent->protocolRoot()->pamCollection()->intfPams(), 0u);
   eth1->forwardingModelIs(Interface::forwardingModelBridged);
   EXPECT_TRUE(portConfig("eth1"));

   // Other kinds never get a port.
   phyDir->intfStatusIs(Wire::IntfId("Port-Channel5"))->forwardingModelIs(4);
   EXPECT_FALSE(portConfig("Port-Channel5"));
   // The management port's frame size is its largest MTU plus header and check sequence,
   // whatever MTU it runs with.
   const Wire::IntfId mgmt = Wire::IntfId::linux("mgmt0", Wire::IntfKind::intfKindManagement);
   auto s = phyDir->intfStatusIs(mgmt);
   s->mtuIs(1500);
   s->maxMtuIs(1500);
   s->forwardingModelIs(Interface::forwardingModelRouted);
   auto frameSize = [&] { return local->localPort(mgmt)->maximumFrameSizeInfo().maxFrameSize(); };
   EXPECT_EQ(frameSize(), 1518);
   s->maxMtuIs(9000);
   EXPECT_EQ(frameSize(), 9018);
   s->mtuIs(1400);
   EXPECT_EQ(frameSize(), 9018);
   s->maxMtuIs(65535);
   EXPECT_EQ(frameSize(), 65535);
}

TEST_F(LldpAgentTest, AdminStatusFollowsGlobalSwitchCliAndSwitchportMode) {
   addPort("eth1", 1);
   addPort("eth2", 2);
   addPort("eth3", 3);
   auto cli = agent->cliConfig();
   cli->cliPortConfigIs(eth("eth2"))->adminStatusIs(Lldp::adminStatusRxOnly);
   EXPECT_EQ(admin("eth1"), 3);
   EXPECT_EQ(admin("eth2"), 2);

   cli->enabledIs(false);
   for (const char* p : {"eth1", "eth2", "eth3"}) EXPECT_EQ(admin(p), 4) << p;
   cli->enabledIs(true);
   EXPECT_EQ(admin("eth1"), 3);
   EXPECT_EQ(admin("eth2"), 2);

   // Tunnel, tap and tool ports must not transmit.
   cli->cliPortConfigIs(eth("eth3"))->adminStatusIs(Lldp::adminStatusTxOnly);
   switchport(eth("eth1"), Bridging::switchportModeTap);
   switchport(eth("eth3"), Bridging::switchportModeDot1qTunnel);
   EXPECT_EQ(admin("eth1"), 2);
   EXPECT_EQ(admin("eth3"), 4);
   switchport(eth("eth1"), Bridging::switchportModeAccess, 10);
   EXPECT_EQ(admin("eth1"), 3);
   EXPECT_EQ(local->localPort(eth("eth1"))->portVlanId(), 10);
   switchport(eth("eth1"), Bridging::switchportModeRouted);
   EXPECT_EQ(local->localPort(eth("eth1"))->portVlanId(), 0);

   // A member follows its aggregate's switchport, not its own.
   switchport(eth("eth2"), Bridging::switchportModeAccess, 20);
   switchport(bond1, Bridging::switchportModeTool, 30);
   allIntf->intfStatusIs(bond1)->ifIndexIs(77);
   lagDir->intfStatusIs(bond1)->memberIs(eth("eth2"), true);
   EXPECT_EQ(admin("eth2"), 2);  // receive-only asked; a tool port allows that
   auto lp2 = local->localPort(eth("eth2"));
   EXPECT_EQ(lp2->portVlanId(), 30);
   EXPECT_TRUE(lp2->linkAggregationInfo().status().enabled());
   EXPECT_EQ(lp2->linkAggregationInfo().aggregatedPortId(), 77u);
   cli->cliPortConfigDel(eth("eth2"));  // back to transmit and receive, suppressed
   EXPECT_EQ(admin("eth2"), 2);
   // In two aggregates at once the lower one governs; leaving it hands the port back.
   const IntfId bond0 = IntfId::linux("bond0", IntfKind::intfKindPortChannel);
   switchport(bond0, Bridging::switchportModeAccess, 40);
   allIntf->intfStatusIs(bond0)->ifIndexIs(76);
   lagDir->intfStatusIs(bond0)->memberIs(eth("eth2"), true);
   const auto* lags = agent->inputRoot()->portToLagsMap(eth("eth2"));
   ASSERT_TRUE(lags);
   EXPECT_EQ(lags->lagId(), (Wire::IntfSet{bond0, bond1}));
   EXPECT_EQ(agent->inputRoot()->portToLag(eth("eth2")), bond0);
   EXPECT_EQ(lp2->portVlanId(), 40);
   EXPECT_EQ(lp2->linkAggregationInfo().aggregatedPortId(), 76u);
   EXPECT_EQ(admin("eth2"), 3);
   lagDir->intfStatusIs(bond0)->memberDel(eth("eth2"));
   EXPECT_EQ(lp2->portVlanId(), 30);
   EXPECT_EQ(lp2->linkAggregationInfo().aggregatedPortId(), 77u);
   lagDir->intfStatusDel(bond1);
   EXPECT_FALSE(agent->inputRoot()->portToLagsMap(eth("eth2")));
   EXPECT_EQ(admin("eth2"), 3);
   EXPECT_EQ(lp2->portVlanId(), 20);
   EXPECT_FALSE(lp2->linkAggregationInfo().status().enabled());
   // Its own switchport goes and comes back: no VLAN in between.
   bridging->switchIntfConfigDel(eth("eth2"));
   EXPECT_EQ(lp2->portVlanId(), 0);
   switchport(eth("eth2"), Bridging::switchportModeAccess, 21);
   EXPECT_EQ(lp2->portVlanId(), 21);

   // The operator's settings for a port go: admin status back to transmit and receive even
   // with LLDP off, and its network policies stay until the port is synced again.
   auto port3 = cli->cliPortConfigIs(eth("eth3"));
   port3->networkPolicyConfigIs(policy(1, 100));
   EXPECT_EQ(portConfig("eth3")->networkPolicyConfig().size(), 1u);
   cli->enabledIs(false);
   switchport(eth("eth3"), Bridging::switchportModeAccess);
   EXPECT_EQ(admin("eth3"), 4);
   cli->cliPortConfigDel(eth("eth3"));
   EXPECT_EQ(admin("eth3"), 3);
   EXPECT_EQ(portConfig("eth3")->networkPolicyConfig().size(), 1u);
}

TEST_F(LldpAgentTest, VlanNamesFollowMembershipNamesAggregatesAndTheSwitch) {
   addPort("eth1", 1);
   addPort("eth2", 2);
   auto status = agent->lldpStatusLocal();
   auto names = [&](const char* port) {
      std::map<int, std::string> out;
      for (const auto& [vlan, n] : status->portStatus(eth(port))->vlanName()) {
         out[vlan.value()] = std::string(n.name().value());
      }
      return out;
   };
   using Names = std::map<int, std::string>;
   auto v10 = bridging->vlanConfigIs(Bridging::VlanId(10));
   v10->nameIs("voice");
   v10->memberIs(eth("eth1"), true);
   auto v20 = bridging->vlanConfigIs(Bridging::VlanId(20));
   v20->nameIs("data");
   v20->memberIs(eth("eth1"), true);
   v20->memberIs(eth("eth2"), true);
   EXPECT_EQ(names("eth1"), (Names{{10, "voice"}, {20, "data"}}));
   EXPECT_EQ(names("eth2"), (Names{{20, "data"}}));
   EXPECT_TRUE(status->portStatus(eth("eth1"))->vlanNamesChanged());
   // A name one byte too long for the TLV is refused, also in place of a good one.
   v10->nameIs(std::string(33, 'n'));
   EXPECT_EQ(names("eth1"), (Names{{20, "data"}}));
   v10->nameIs("voice");
   EXPECT_EQ(names("eth1"), (Names{{10, "voice"}, {20, "data"}}));
   // A port the bridge promoted into the VLAN on its own is left as it is.
   v20->promotedPortIs(eth("eth3"), true);
   v20->memberIs(eth("eth3"), true);
   addPort("eth3", 3);
   EXPECT_TRUE(names("eth3").empty());
   EXPECT_TRUE(traced(" because it is promotedPort"));
   v20->memberDel(eth("eth3"));
   phyDir->intfStatusDel(eth("eth3"));

   // A rename reaches every port carrying the VLAN; leaving it or the VLAN going removes it.
   v20->nameIs("bulk");
   EXPECT_EQ(names("eth2"), (Names{{20, "bulk"}}));
   v10->memberDel(eth("eth1"));
   EXPECT_EQ(names("eth1"), (Names{{20, "bulk"}}));
   bridging->vlanConfigDel(Bridging::VlanId(20));
   EXPECT_TRUE(names("eth1").empty());
   EXPECT_TRUE(names("eth2").empty());

   // A port carries what its aggregate carries, and a port that comes later gets the names.
   v10->memberIs(bond1, true);
   lagDir->intfStatusIs(bond1)->memberIs(eth("eth2"), true);
   EXPECT_EQ(names("eth2"), (Names{{10, "voice"}}));
   lagDir->intfStatusDel(bond1);
   EXPECT_TRUE(names("eth2").empty());
   v10->memberIs(eth("eth3"), true);
   addPort("eth3", 3);
   EXPECT_EQ(names("eth3"), (Names{{10, "voice"}}));

   // The VLAN name switch: off drops every name, on brings them back.
   agent->cliConfig()->vlanNameTxIs(false);
   EXPECT_TRUE(names("eth3").empty());
   agent->cliConfig()->vlanNameTxIs(true);
   EXPECT_EQ(names("eth3"), (Names{{10, "voice"}}));
}

TEST_F(LldpAgentTest, GlobalSettingsReachThePortsAndCleanupLeavesNothing) {
   addPort("eth1", 1);
   auto cli = agent->cliConfig();
   cli->messageTxIntervalIs(1);
   EXPECT_EQ(config->messageTxInterval(), 1u);
   EXPECT_EQ(config->txDelay(), 1u);
   cli->messageTxIntervalIs(5);
   EXPECT_EQ(config->txDelay(), 2u);
   cli->messageTxHoldTimeIs(20);
   EXPECT_EQ(config->messageTxHoldTime(), 20u);
   cli->portDescriptionTxIs(false);
   cli->linkAggregationTxIs(false);
   EXPECT_FALSE(portConfig("eth1")->enabledTlvs().portDescription());
   EXPECT_TRUE(portConfig("eth1")->enabledTlvs().systemName());
   EXPECT_FALSE(portConfig("eth1")->dot3EnabledTlvs().linkAggregation());
   EXPECT_TRUE(portConfig("eth1")->dot3EnabledTlvs().maxFrameSize());
   auto port = cli->cliPortConfigIs(eth("eth1"));
   port->ztpBootVlanIs(42);
   port->rxRateLimitEnabledIs(false);
   EXPECT_EQ(portConfig("eth1")->ztpBootVlan(), 42);
   EXPECT_FALSE(portConfig("eth1")->rxRateLimitEnabled());
   EXPECT_EQ(local->localPort(eth("eth1"))->ztpBootVlan(), 42);
   // The neighbour limit: the global one, the port's own over it, the global one again.
   cli->remoteSystemLimitIs(500);
   EXPECT_EQ(portConfig("eth1")->remoteSystemLimit(), 500u);
   port->remoteSystemLimitIs(7);
   cli->remoteSystemLimitIs(600);
   EXPECT_EQ(portConfig("eth1")->remoteSystemLimit(), 7u);
   cli->cliPortConfigDel(eth("eth1"));
   EXPECT_EQ(portConfig("eth1")->remoteSystemLimit(), 600u);

   agent->doCleanup();
   EXPECT_TRUE(config->portConfig().empty());
   EXPECT_TRUE(local->localPort().empty());
   EXPECT_TRUE(local->managementAddress().empty());
   EXPECT_TRUE(db.entityAs<Lldp::Status>("l2discovery/lldp/status/local")->portStatus().empty());
   EXPECT_TRUE(db.entityAs<Interface::PamDesiredIntfDir>("interface/pam/lldp/desiredIntf")
                   ->intfDesired()
                   .empty());
   agent = nullptr;
}

TEST_F(LldpAgentTest, StatusAccumulatorAddsThePeerAndTakesTheLaterChange) {
   auto local = agent->lldpStatusLocal();
   auto all = db.entityAs<Lldp::AllStatus>("l2discovery/lldp/status/all");
   local->remTablesInsertsIs(7);
   EXPECT_EQ(all->remTablesInserts(), 7u);
   auto peer = Vel::make<Lldp::Status>();
   peer->remTablesInsertsIs(5);
   peer->remTablesLastChangeTimeIs(100.0);
   local->remTablesLastChangeTimeIs(100.0);
   agent->statusAccumulatorSm()->lldpStatusRemoteIs(peer);
   EXPECT_EQ(all->remTablesInserts(), 12u);
   EXPECT_EQ(all->remTablesLastChangeTime(), 100.0);
   peer->remTablesLastChangeTimeIs(101.5);
   EXPECT_EQ(all->remTablesLastChangeTime(), 101.5);
   peer->remTablesAgeoutsIs(uint32_t(-1));
   local->remTablesAgeoutsIs(2);
   EXPECT_EQ(all->remTablesAgeouts(), 1u);  // unsigned 32-bit sum
   agent->statusAccumulatorSm()->lldpStatusRemoteIs(nullptr);
   EXPECT_EQ(all->remTablesInserts(), 7u);

   // Port statuses are published while they exist.
   addPort("eth1", 1);
   EXPECT_TRUE(all->portStatus(eth("eth1")));
   phyDir->intfStatusDel(eth("eth1"));
   EXPECT_FALSE(all->portStatus(eth("eth1")));
}

TEST_F(LldpAgentTest, ClientsTlvsReachTheirPortsAndLeaveWithTheClient) {
   portUp("eth1", Interface::forwardingModelRouted);
   // A TLV for a port that does not exist yet waits for it.
   client("a",
          {{eth("eth1"), {tlv(1, "one"), tlv(1, "one-again", 1)}}, {eth("eth2"), {tlv(2, "two")}}});
   client("b", {{eth("eth1"), {tlv(9, "bee")}}});
   EXPECT_EQ(tlvs("eth1"), (V{"one", "one-again", "bee"}));
   portUp("eth2", Interface::forwardingModelRouted);
   EXPECT_EQ(tlvs("eth2"), V{"two"});

   // The same TLV again changes nothing; new information replaces it in place.
   struct Count : Lldp::LocalPort::Notifiee {
      int changes = 0;
      void unknownOrgDefTlvChanged(const Lldp::UnknownOrgDefTlv::Key&) override { ++changes; }
   } count;
   count.notifierIs(local->localPort(eth("eth2")));
   client("a",
          {{eth("eth1"), {tlv(1, "one"), tlv(1, "one-again", 1)}}, {eth("eth2"), {tlv(2, "two")}}});
   EXPECT_EQ(count.changes, 0);
   client("a", {{eth("eth1"), {tlv(1, "one")}}, {eth("eth2"), {tlv(2, "TWO")}}});
   EXPECT_EQ(count.changes, 1);
   EXPECT_EQ(tlvs("eth2"), V{"TWO"});
   EXPECT_EQ(tlvs("eth1"), (V{"one", "bee"}));
   count.notifierIs(nullptr);

   // A client that goes takes all of its TLVs with it, from every port.
   externalTlvs->entryDel("a");
   EXPECT_EQ(tlvs("eth1"), V{"bee"});
   EXPECT_TRUE(tlvs("eth2").empty());
}

TEST_F(LldpAgentTest, BypassLetsHeldPortsRun802dot1xForAllMacsecPerPort) {
   portUp("eth1", Interface::forwardingModelDataLink);  // held by port authentication
   portUp("eth2", Interface::forwardingModelDataLink);
   EXPECT_FALSE(local->localPort(eth("eth1")));
   macsec->bypassLldpIs(eth("eth2"), true);  // this port alone
   EXPECT_FALSE(local->localPort(eth("eth1")));
   EXPECT_TRUE(local->localPort(eth("eth2")));
   dot1x->lldpBypassIs(true);  // every port at once
   EXPECT_TRUE(local->localPort(eth("eth1")));
   dot1x->lldpBypassIs(false);
   EXPECT_FALSE(local->localPort(eth("eth1")));
   EXPECT_TRUE(local->localPort(eth("eth2")));
   macsec->bypassLldpDel(eth("eth2"));
   EXPECT_FALSE(local->localPort(eth("eth2")));
   // Below "data link" nothing runs, bypass or not.
   dot1x->lldpBypassIs(true);
   portUp("eth1", Interface::forwardingModelDiscarded);
   EXPECT_FALSE(local->localPort(eth("eth1")));
}

// A standby supervisor only wants packet access on its LLDP-capable ports.
TEST(StandbyPorts, OnlyCapablePortsAreWantedAndNothingStaysBehind) {
   auto root = Vel::make<Root>();
   auto desired = Vel::make<Interface::PamDesiredIntfDir>();
   root->desiredIntfDirIs(desired);
   auto phy = Vel::make<Interface::EthPhyIntfStatusDir>();
   phy->intfStatusIs(IntfId("Ethernet1"));
   phy->intfStatusIs(IntfId::linux("UnconnectedEthernet2", IntfKind::intfKindEthernet));
   root->standbyEthIntfStatusDirSmIs(phy);
   EXPECT_EQ(desired->intfDesired().size(), 1u);
   phy->intfStatusIs(IntfId("Management1/1"));
   EXPECT_TRUE(desired->intfDesired(IntfId("Management1/1")));
   phy->intfStatusDel(IntfId("Ethernet1"));
   EXPECT_FALSE(desired->intfDesired(IntfId("Ethernet1")));
   root->doClose();
   EXPECT_TRUE(desired->intfDesired().empty());
}

// The operator's request to empty the neighbour tables: served once per request time,
// across every port, and logged with who asked and from where.
TEST(RemTablesClearRequest, ServesEachRequestOnceOnEveryPort) {
   std::vector<Vel::Log::Message> logs;
   Vel::Log::sinkIs([&](const Vel::Log::Message& m) { logs.push_back(m); });
   auto root = Vel::make<Root>();
   root->statusIs(Vel::make<Lldp::Status>());
   root->remTablesStatusIs(Vel::make<Lldp::RemTablesStatus>());
   auto fill = [&] {
      for (const char* name : {"Ethernet1", "Ethernet2"}) {
         auto port = root->status()->portStatusIs(Wire::IntfId(name), 0.0);
         for (int i = 1; i <= 3; ++i) {
            auto r = port->remoteSystemIs(
                i, Lldp::Msap(
                       {.chassisIdentifier = Lldp::ChassisIdentifier(
                            {.subtype = 7, .value = std::string("c").append(std::to_string(i))})}));
            port->remoteSystemByMsapIs(r);
         }
      }
   };
   fill();
   auto request = Vel::make<Lldp::RemTablesCliConfig>();
   root->remTablesClearRequestSmIs(request);
   // No request yet (time 0): nothing happens at start.
   EXPECT_EQ(root->status()->portStatus(Wire::IntfId("Ethernet1"))->remoteSystem().size(), 3u);

   request->clearRequestedByIs(Lldp::BoundedString255("alice"));
   request->clearRequestedOnIs(Lldp::BoundedString255("/dev/pts/3"));
   request->clearRequestTimeIs(50);
   for (const auto& [intf, port] : root->status()->portStatus()) {
      EXPECT_TRUE(port->remoteSystem().empty()) << intf;
      EXPECT_TRUE(port->remoteSystemByMsap().empty()) << intf;
   }
   EXPECT_EQ(root->remTablesStatus()->remTablesLastClearTime(), 50);
   ASSERT_EQ(logs.size(), 1u);
   EXPECT_EQ(logs[0].key, "LLDP_REMOTE_TABLES_CLEARED");
   EXPECT_EQ(logs[0].text, "LLDP neighbor table cleared by alice on /dev/pts/3");

   // The same request seen again (a restarted machine) or an older one clears nothing.
   fill();
   root->remTablesClearRequestSmDel();
   root->remTablesClearRequestSmIs(request);
   request->clearRequestTimeIs(40);
   EXPECT_EQ(root->status()->portStatus(Wire::IntfId("Ethernet2"))->remoteSystem().size(), 3u);
   EXPECT_EQ(logs.size(), 1u);
   root->doClose();
   Vel::Log::sinkIs(nullptr);
}

}  // namespace

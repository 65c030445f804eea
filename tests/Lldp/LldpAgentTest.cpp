// The agent with its input side, in virtual time: the platform's records are written the
// way the Linux platform writes them, packet access is in memory, and the test checks
// what the agent makes of them: port records, admin status, identity, and the status it
// publishes.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "tests/Support/AgentInVirtualTime.h"

namespace {

using namespace Lldp::Agent::Input;

class LldpAgentTest : public TestSupport::AgentInVirtualTime {
protected:
   void mountPlatform() override {
      netStatus = db.mount<System::NetStatus>("sys/net/status");
      netStatus->hostnameIs("sw1");
      netStatus->domainNameIs("example.test");
      lagDir = db.mount<Interface::EthLagIntfStatusDir>("interface/status/eth/lag");
      allIntf = db.mount<Interface::AllIntfStatusDir>("interface/status/all");
   }
   // A port as the platform reports it, with its MAC address, ifIndex and MTU.
   Interface::EthPhyIntfStatus::Ptr portUp(const std::string& name, uint8_t macLast) {
      allIntf->intfStatusIs(eth(name))->ifIndexIs(macLast);
      auto s = phyDir->intfStatusIs(eth(name));
      const uint8_t mac[6] = {0x02, 0, 0, 0, 1, macLast};
      s->addrIs(Wire::EthAddr::fromBytes(mac));
      s->mtuIs(1500);
      return AgentInVirtualTime::portUp(name);
   }
   Lldp::PortConfig::Ptr portConfig(const std::string& name) {
      return config->portConfig(eth(name));
   }
   uint8_t admin(const std::string& name) { return portConfig(name)->adminStatus(); }
   void switchport(const Wire::IntfId& intf, uint8_t mode, uint16_t nativeVlan = 1) {
      auto sw = bridging->switchIntfConfigIs(intf);
      sw->switchportModeIs(mode);
      sw->nativeVlanIs(nativeVlan);
   }

   System::NetStatus::Ptr netStatus;
   Interface::EthLagIntfStatusDir::Ptr lagDir;
   Interface::AllIntfStatusDir::Ptr allIntf;
};

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
}

TEST_F(LldpAgentTest, PortGetsItsRecordsAndPacketAccessWhileItTakesPart) {
   auto eth1 = portUp("eth1", 1);
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

   // Identity: chassis ID is the bridge MAC, which is also the advertised management
   // address while there is no other.
   EXPECT_EQ(local->chassisIdentifier().subtype(), 4);
   EXPECT_EQ(local->chassisIdentifier().value().value(), std::string("\x02\0\0\0\xaa\x01", 6));
   ASSERT_EQ(local->managementAddressPrio().size(), 1u);
   EXPECT_EQ(local->managementAddressPrio().begin()->second.subtype(), Lldp::addrFamilyMac);
   EXPECT_EQ(local->sysName().value(), "sw1.example.test");
   netStatus->domainNameIs("");
   EXPECT_EQ(local->sysName().value(), "sw1");
   agent->cliConfig()->sysNameIs("configured-name");
   EXPECT_EQ(local->sysName().value(), "configured-name");
   EXPECT_TRUE(local->sysCapSupported().bridge() && local->sysCapSupported().router());

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
   // The management port's frame size follows its MTU.
   const Wire::IntfId mgmt = Wire::IntfId::linux("mgmt0", Wire::IntfKind::intfKindManagement);
   auto s = phyDir->intfStatusIs(mgmt);
   s->mtuIs(1500);
   s->maxMtuIs(65535);
   s->forwardingModelIs(Interface::forwardingModelRouted);
   auto frameSize = [&] { return local->localPort(mgmt)->maximumFrameSizeInfo().maxFrameSize(); };
   EXPECT_EQ(frameSize(), 1518);
   s->mtuIs(9000);
   EXPECT_EQ(frameSize(), 9018);
}

TEST_F(LldpAgentTest, AdminStatusFollowsGlobalSwitchCliAndSwitchportMode) {
   portUp("eth1", 1);
   portUp("eth2", 2);
   portUp("eth3", 3);
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
   const Wire::IntfId bond1 = Wire::IntfId::linux("bond1", Wire::IntfKind::intfKindPortChannel);
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
   lagDir->intfStatusDel(bond1);
   EXPECT_EQ(admin("eth2"), 3);
   EXPECT_EQ(lp2->portVlanId(), 20);
   EXPECT_FALSE(lp2->linkAggregationInfo().status().enabled());
}

TEST_F(LldpAgentTest, VlanNamesFollowMembershipNamesAggregatesAndTheSwitch) {
   portUp("eth1", 1);
   portUp("eth2", 2);
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

   // A rename reaches every port carrying the VLAN; leaving it or the VLAN going removes it.
   v20->nameIs("bulk");
   EXPECT_EQ(names("eth2"), (Names{{20, "bulk"}}));
   v10->memberDel(eth("eth1"));
   EXPECT_EQ(names("eth1"), (Names{{20, "bulk"}}));
   bridging->vlanConfigDel(Bridging::VlanId(20));
   EXPECT_TRUE(names("eth1").empty());
   EXPECT_TRUE(names("eth2").empty());

   // A port carries what its aggregate carries, and a port that comes later gets the names.
   const Wire::IntfId bond1 = Wire::IntfId::linux("bond1", Wire::IntfKind::intfKindPortChannel);
   v10->memberIs(bond1, true);
   lagDir->intfStatusIs(bond1)->memberIs(eth("eth2"), true);
   EXPECT_EQ(names("eth2"), (Names{{10, "voice"}}));
   lagDir->intfStatusDel(bond1);
   EXPECT_TRUE(names("eth2").empty());
   v10->memberIs(eth("eth3"), true);
   portUp("eth3", 3);
   EXPECT_EQ(names("eth3"), (Names{{10, "voice"}}));

   // The VLAN name switch: off drops every name, on brings them back.
   agent->cliConfig()->vlanNameTxIs(false);
   EXPECT_TRUE(names("eth3").empty());
   agent->cliConfig()->vlanNameTxIs(true);
   EXPECT_EQ(names("eth3"), (Names{{10, "voice"}}));

   // To LLDP-MED endpoints every port is network connectivity equipment; network policy
   // only where one is configured.
   const auto med = local->localPort(eth("eth3"))->medCapabilities();
   EXPECT_EQ(med.deviceType(), 4);
   EXPECT_TRUE(med.capabilities().lldpMedCapabilities());
   EXPECT_FALSE(med.capabilities().networkPolicy());
   EXPECT_FALSE(med.capabilities().inventory());
}

TEST_F(LldpAgentTest, GlobalSettingsReachThePortsAndCleanupLeavesNothing) {
   portUp("eth1", 1);
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
   EXPECT_TRUE(agent->lldpStatusLocal()->portStatus().empty());
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
   portUp("eth1", 1);
   EXPECT_TRUE(all->portStatus(eth("eth1")));
   phyDir->intfStatusDel(eth("eth1"));
   EXPECT_FALSE(all->portStatus(eth("eth1")));
}

}  // namespace

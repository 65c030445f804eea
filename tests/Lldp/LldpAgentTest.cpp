// The agent with its input side, in virtual time: the platform's records are written the
// way the Linux platform writes them, the records of other programs (power agents, external
// TLV clients, port authentication) the way the daemon writes them, a neighbour's TLVs the
// way the receive processor records them; packet access is in memory. The test checks what
// the agent makes of them: port records, admin status, identity, the status it publishes,
// and what the ports advertise (the local port records the transmit builder walks).
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "Framework/Log.h"
#include "tests/Support/AgentInVirtualTime.h"

namespace {

using namespace Lldp::Agent::Input;
using Lldp::PowerViaMdiInfo;
using Wire::IntfId;
using Wire::IntfKind;
using PortStatus = Environment::Power::PoePortStatus::PortStatus;

// A powered device asking for `tenths` of a watt in the 802.3at form (type 2 PD).
PowerViaMdiInfo pdRequest(uint16_t tenths) {
   return PowerViaMdiInfo({.form = PowerViaMdiInfo::formDot3at,
                           .mdiPowerSupport = 0x02,
                           .powerClass = 5,
                           .typeSourcePriority = 0x40 | 0x10 | 0x2,
                           .pdRequestedPower = tenths});
}

Lldp::NetworkPolicyConfig policy(uint8_t app, uint16_t vlan, uint8_t prio = 5, uint8_t dscp = 46) {
   return Lldp::NetworkPolicyConfig(
       {.appType = app, .tagged = true, .vlanId = vlan, .priority = prio, .dscp = dscp});
}

Lldp::UnknownOrgDefTlv tlv(uint8_t subtype, const std::string& info, int index = 0) {
   return Lldp::UnknownOrgDefTlv(
       {.key = Lldp::UnknownOrgDefTlvKey(
            {.oui = Lldp::Oui(0x334466), .subtype = subtype, .index = index}),
        .value = info});
}

class LldpAgentTest : public TestSupport::AgentInVirtualTime {
protected:
   void mountPlatform() override {
      netStatus = db.mount<System::NetStatus>("sys/net/status");
      netStatus->hostnameIs("sw1");
      netStatus->domainNameIs("example.test");
      lagDir = db.mount<Interface::EthLagIntfStatusDir>("interface/status/eth/lag");
      allIntf = db.mount<Interface::AllIntfStatusDir>("interface/status/all");
      powerAgents = db.mount<Vel::Dir>("environment/power/status/poePort");
      requests = db.mount<Lldp::PowerRequestStatus>("l2discovery/lldp/status/powerRequest");
      externalTlvs = db.mount<Vel::Dir>("l2discovery/lldp/externalTlvs");
      dot1x = db.mount<Identity::Dot1x::Status>("identity/dot1x/status");
      macsec = db.mount<Identity::Macsec::Status>("identity/macsec/status");
   }
   // A port as the platform reports it, with its MAC address, ifIndex and MTU.
   Interface::EthPhyIntfStatus::Ptr addPort(const std::string& name, uint8_t macLast) {
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

   Lldp::LocalPortPoeInfo& poe() { return *local->localPort(eth("eth1"))->localPortPoeInfo(); }
   // A neighbour's Power via MDI TLV as the receive processor records it.
   void neighbour(int index, uint8_t macLast, const PowerViaMdiInfo& p, Vel::Seconds changed = 0) {
      auto ps = agent->lldpStatusLocal()->portStatus(eth("eth1"));
      auto r = ps->remoteSystemIs(
          index, Lldp::Msap({.chassisIdentifier = Lldp::ChassisIdentifier(
                                 {.subtype = 7, .value = "pd" + std::to_string(index)})}));
      r->ethAddrIs(Wire::EthAddr({2, 0, 0, 0, 0, macLast}));
      r->expiryTimeIs(1e9);
      r->lastChangeTimeIs(changed);
      r->powerViaMdiTlvReceivedIs(p.form() != PowerViaMdiInfo::formNone);
      r->powerViaMdiInfoIs(p);
      ps->remoteSystemTouched(index);
   }
   int chosen() { return poe().remoteSystem() ? poe().remoteSystem()->index() : 0; }
   void publish(const std::string& name, const PortStatus& s) {
      auto a = powerAgents->entryAs<Environment::Power::PoePortStatus>(name);
      if (!a) powerAgents->entryIs(name, a = Vel::make<Environment::Power::PoePortStatus>(name));
      a->portStatusIs(eth("eth1"), s);
   }

   Lldp::LocalPort::Ptr port() { return local->localPort(eth("eth1")); }
   Lldp::PortStatus::Ptr portStatus() { return agent->lldpStatusLocal()->portStatus(eth("eth1")); }
   // The applications the port advertises.
   std::vector<int> advertised() {
      std::vector<int> apps;
      for (const auto& [app, tlv] : port()->localNetworkPolicyTlv()) apps.push_back(app);
      return apps;
   }
   // A phone asking for its policy, as the receive processor records it.
   void phoneAsks(bool asks) {
      auto ps = portStatus();
      if (!asks) {
         ps->remoteSystemDel(1);
         return;
      }
      auto r = ps->remoteSystemIs(1, Lldp::Msap());
      r->expiryTimeIs(1e9);
      r->networkPolicyTlvIs(Lldp::NetworkPolicyTlv({.appType = 1, .unknown = true}));
      ps->remoteSystemTouched(1);
   }
   Lldp::ExternalTlvConfig::Ptr client(const std::string& name, const Lldp::ExternalTlvSet& set) {
      auto c = externalTlvs->entryAs<Lldp::ExternalTlvConfig>(name);
      if (!c) c = Vel::make<Lldp::ExternalTlvConfig>(name);
      Lldp::externalTlvConfigIs(*c, set);
      externalTlvs->entryIs(name, c);
      return c;
   }
   // The information of each TLV on a port, in key order.
   std::vector<std::string> tlvs(const char* name) {
      std::vector<std::string> out;
      if (auto lp = local->localPort(eth(name))) {
         for (const auto& [k, t] : lp->unknownOrgDefTlv()) out.push_back(t.value().stringValue());
      }
      return out;
   }
   using V = std::vector<std::string>;

   System::NetStatus::Ptr netStatus;
   Interface::EthLagIntfStatusDir::Ptr lagDir;
   Interface::AllIntfStatusDir::Ptr allIntf;
   Vel::Dir::Ptr powerAgents;
   Lldp::PowerRequestStatus::Ptr requests;
   Vel::Dir::Ptr externalTlvs;
   Identity::Dot1x::Status::Ptr dot1x;
   Identity::Macsec::Status::Ptr macsec;
   const IntfId bond1 = IntfId::linux("bond1", IntfKind::intfKindPortChannel);
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
   lagDir->intfStatusDel(bond1);
   EXPECT_EQ(admin("eth2"), 3);
   EXPECT_EQ(lp2->portVlanId(), 20);
   EXPECT_FALSE(lp2->linkAggregationInfo().status().enabled());
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
   addPort("eth1", 1);
   EXPECT_TRUE(all->portStatus(eth("eth1")));
   phyDir->intfStatusDel(eth("eth1"));
   EXPECT_FALSE(all->portStatus(eth("eth1")));
}

TEST_F(LldpAgentTest, TheRequestAnsweredIsTheNewestOfOneDeviceAndNoneOfTwo) {
   portUp("eth1");
   neighbour(1, 1, {});  // no Power via MDI at all
   EXPECT_EQ(chosen(), 0);
   EXPECT_TRUE(traced("PowerViaMdiInfo not received"));
   neighbour(1, 1, PowerViaMdiInfo({.form = PowerViaMdiInfo::formDot3af, .mdiPowerSupport = 2}));
   EXPECT_EQ(chosen(), 0);
   EXPECT_TRUE(traced("Ignoring PowerViaMdiInfo because it was received but @ 802.3af"));
   PowerViaMdiInfo fromPse = pdRequest(255);
   fromPse.typeSourcePriorityIs(0x10);  // type 2 PSE
   neighbour(1, 1, fromPse);
   EXPECT_EQ(chosen(), 0);
   EXPECT_TRUE(traced("Ignoring PowerViaMdiInfo because it was received from PSE"));
   EXPECT_TRUE(requests->request().empty());

   neighbour(1, 1, pdRequest(255), 10);
   EXPECT_EQ(chosen(), 1);
   EXPECT_TRUE(traced(": found RemoteSystem with power request from 02:00:00:00:00:01"));
   ASSERT_TRUE(requests->request(eth("eth1")));
   EXPECT_EQ(requests->request(eth("eth1"))->powerViaMdiInfo().pdRequestedPower(), 255);
   EXPECT_EQ(requests->request(eth("eth1"))->remoteIndex(), 1);

   // The same device under a new identity: its newer record wins, whatever the index.
   neighbour(2, 1, pdRequest(130), 20);
   EXPECT_EQ(chosen(), 2);
   EXPECT_TRUE(
       traced(": found more recent RemoteSystem from 02:00:00:00:00:01 => replacing 1 with 2"));
   neighbour(1, 1, pdRequest(255), 30);
   EXPECT_EQ(chosen(), 1);
   EXPECT_EQ(requests->request(eth("eth1"))->powerViaMdiInfo().pdRequestedPower(), 255);

   // Another device on the port: neither can be preferred, nothing is answered.
   neighbour(3, 9, pdRequest(40), 40);
   EXPECT_EQ(chosen(), 0);
   EXPECT_FALSE(requests->request(eth("eth1")));
   EXPECT_TRUE(
       traced(": found 2 RemoteSystems with requested power 255 and 40 from different src "
              "addresses ( 02:00:00:00:00:01 and 02:00:00:00:00:09 ) => can not choose one"));
   agent->lldpStatusLocal()->portStatus(eth("eth1"))->remoteSystemDel(3);
   EXPECT_EQ(chosen(), 1);
   agent->lldpStatusLocal()->portStatus(eth("eth1"))->remoteSystemDelAll();
   EXPECT_EQ(chosen(), 0);
   EXPECT_TRUE(requests->request().empty());
}

TEST_F(LldpAgentTest, PowerAgentsReportsReachThePortFirstAgentByNameWins) {
   portUp("eth1");
   const PortStatus a({.state = PortStatus::stateDelivering, .pseType = 2, .allocatedPower = 255});
   const PortStatus b({.state = PortStatus::stateSearching, .pseType = 3});
   EXPECT_FALSE(poe().readyToSendTlv());
   publish("b-agent", b);
   EXPECT_EQ(poe().poePortStatus(), b);
   publish("a-agent", a);
   EXPECT_EQ(poe().poePortStatus(), a);
   EXPECT_TRUE(traced("Interface eth1 is allowed to use 25.5 W"));
   publish("b-agent", PortStatus({.state = PortStatus::stateFault}));
   EXPECT_EQ(poe().poePortStatus(), a);

   // A port that comes back gets the report at once; an agent that goes hands over to the
   // next, and the last one leaves the port without PoE data.
   portUp("eth1", Interface::forwardingModelDataLink);
   portUp("eth1");
   EXPECT_EQ(poe().poePortStatus(), a);
   powerAgents->entryDel("a-agent");
   EXPECT_EQ(poe().poePortStatus().state(), PortStatus::stateFault);
   powerAgents->entryDel("b-agent");
   EXPECT_FALSE(poe().readyToSendTlv());
   EXPECT_TRUE(traced("PoeSm::handlePowerAgentDelete reset localPort PoE info for eth1"));

   // Something else than a power agent's report in the directory is ignored.
   powerAgents->entryIs("stray", Vel::make<Vel::Dir>("stray"));
   EXPECT_FALSE(poe().readyToSendTlv());
}

TEST_F(LldpAgentTest, AdvertisedOnlyOnRequestWhileSelectedWithoutRedundantSignaling) {
   portUp("eth1");
   // To LLDP-MED endpoints every port is network connectivity equipment, without inventory;
   // network policy only where one is configured.
   const auto med = port()->medCapabilities();
   EXPECT_EQ(med.deviceType(), 4);
   EXPECT_FALSE(med.capabilities().inventory());
   EXPECT_FALSE(med.capabilities().networkPolicy());
   auto cli = agent->cliConfig()->cliPortConfigIs(eth("eth1"));
   cli->networkPolicyConfigIs(policy(1, 100));  // voice
   cli->networkPolicyConfigIs(policy(2, 100));  // voice signalling, same as voice
   cli->networkPolicyConfigIs(policy(6, 200));  // video conferencing
   cli->networkPolicyConfigIs(policy(8, 201));  // video signalling, its own VLAN
   cli->networkPolicyConfigIs(policy(9, 300));  // reserved type
   EXPECT_TRUE(port()->medCapabilities().capabilities().networkPolicy());

   // Nobody asked yet.
   EXPECT_TRUE(advertised().empty());
   EXPECT_TRUE(traced("Not adding LLDP-MED Network Policy TLV - no request received in intf eth1"));

   phoneAsks(true);
   EXPECT_EQ(advertised(), (std::vector<int>{1, 6, 8}));
   EXPECT_EQ(*port()->localNetworkPolicyTlv(1), policy(1, 100).toNetworkPolicyTlv());
   EXPECT_TRUE(traced("Skipping unsupported LLDP-MED Network Policy app 9 in intf eth1"));
   EXPECT_TRUE(traced("Skipping signaling application 2 because policy " +
                      (std::ostringstream() << policy(2, 100)).str() +
                      " equivalent to corresponding streaming application in intf eth1"));

   // The phone refreshing changes nothing the port advertises.
   struct Count : Lldp::LocalPort::Notifiee {
      int changes = 0;
      void localNetworkPolicyTlvChanged(const uint8_t&) override { ++changes; }
   } count;
   count.notifierIs(port());
   phoneAsks(true);
   EXPECT_EQ(count.changes, 0);
   count.notifierIs(nullptr);

   // The TLV switched off withdraws them all, at once; on brings them back.
   agent->cliConfig()->medNetworkPolicyTxIs(false);
   EXPECT_TRUE(advertised().empty());
   EXPECT_TRUE(
       traced("Not adding LLDP-MED Network Policy TLV - TLV disabled in CLI for intf eth1"));
   agent->cliConfig()->medNetworkPolicyTxIs(true);
   EXPECT_EQ(advertised(), (std::vector<int>{1, 6, 8}));

   // Without voice of its own, voice signalling stands alone; different from it, both go.
   cli->networkPolicyConfigDel(1);
   EXPECT_EQ(advertised(), (std::vector<int>{2, 6, 8}));
   cli->networkPolicyConfigIs(policy(1, 100, 6));
   EXPECT_EQ(advertised(), (std::vector<int>{1, 2, 6, 8}));

   // The phone gone, nothing is advertised; the operator's settings gone, no capability.
   phoneAsks(false);
   EXPECT_TRUE(advertised().empty());
   agent->cliConfig()->cliPortConfigDel(eth("eth1"));
   EXPECT_TRUE(port()->medCapabilities().capabilities().lldpMedCapabilities());
   EXPECT_FALSE(port()->medCapabilities().capabilities().networkPolicy());
   EXPECT_TRUE(config->portConfig(eth("eth1"))->networkPolicyConfig().empty());
}

TEST_F(LldpAgentTest, APolicyChangeIsSentAtOnceAndAPortComingBackAdvertisesAgain) {
   portUp("eth1");
   agent->cliConfig()->messageTxIntervalIs(1000);
   agent->cliConfig()->cliPortConfigIs(eth("eth1"))->networkPolicyConfigIs(policy(1, 100));
   phoneAsks(true);
   loop().advanceBy(30);  // past the fast transmissions a new LLDP-MED neighbour gets
   const uint32_t sent = portStatus()->txFramesTotal();
   agent->cliConfig()->cliPortConfig(eth("eth1"))->networkPolicyConfigIs(policy(1, 101));
   loop().advanceBy(2.5);
   EXPECT_EQ(portStatus()->txFramesTotal(), sent + 1);
   EXPECT_EQ(port()->localNetworkPolicyTlv(1)->vlanId(), 101);

   // The port goes down to the data link and comes back: fresh records, the same policy
   // once the phone asks again.
   phyDir->intfStatus(eth("eth1"))->forwardingModelIs(Interface::forwardingModelDataLink);
   EXPECT_FALSE(port());
   phyDir->intfStatus(eth("eth1"))->forwardingModelIs(Interface::forwardingModelRouted);
   EXPECT_TRUE(port()->medCapabilities().capabilities().networkPolicy());
   EXPECT_TRUE(advertised().empty());
   phoneAsks(true);
   EXPECT_EQ(advertised(), std::vector<int>{1});
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

// Which management addresses the agent advertises, in what order: the platform's address
// records as the Linux platform writes them, and the local system's priority map as the
// judge (it is what the transmit builder walks).
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
   // Numbers beyond a kind's range stay inside it rather than stop the agent.
   EXPECT_EQ(priorityOf(linux("eth4000", IntfKind::intfKindEthernet)), 3394u + 32 * 127);
   EXPECT_LT(priorityOf(IntfId("Loopback999999")), managementPriorityBase);
   EXPECT_LT(priorityOf(IntfId("Ethernet0")), portChannelPriorityBase);
   EXPECT_GE(priorityOf(IntfId("Ethernet0")), ethernetPriorityBase);
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
            s += "#" + std::to_string(a->ifNumber());
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
   // Back to the best address: eth2's entry returns to its own place.
   agent->cliConfig()->mgmtAddrTxModeIs(Lldp::mgmtAddrTxModeBest);
   EXPECT_EQ(order().front(), "198.51.100.1#1");
   EXPECT_EQ(order().back(), "192.0.2.2#12");

   // A secondary goes; the primary changes; the last address goes: the fallback is back.
   eth1->secondaryWithMaskDel(v4("203.0.113.9"));
   eth1->activeAddrWithMaskIs(v4("192.0.2.11"));
   EXPECT_EQ(order(), (V{"198.51.100.1#1", "192.0.2.11#11", "198.51.100.7#11", "192.0.2.2#12"}));
   ip->ipIntfStatusDel(linux("lo", IntfKind::intfKindLoopback));
   ip->ipIntfStatusDel(eth("eth1"));
   EXPECT_EQ(order(), V{"192.0.2.2#12"});
   eth2->activeAddrWithMaskIs({});
   EXPECT_EQ(order(), V{"02:00:00:00:aa:01"});
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
                i, Lldp::Msap({.chassisIdentifier = Lldp::ChassisIdentifier(
                                   {.subtype = 7, .value = "c" + std::to_string(i)})}));
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

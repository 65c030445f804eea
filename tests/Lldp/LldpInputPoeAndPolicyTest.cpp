// PoE and LLDP-MED network policy with the agent in virtual time: power requests and
// power agents' reports, and the policies a port advertises on request.
#include "tests/Lldp/LldpAgentFixture.h"

using namespace LldpAgentTests;

namespace {

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

   // The phone gone, nothing is advertised. The operator's settings gone, the policies stay
   // until the port is synced again (LLDP switched off here); then no capability.
   phoneAsks(false);
   EXPECT_TRUE(advertised().empty());
   agent->cliConfig()->cliPortConfigDel(eth("eth1"));
   EXPECT_FALSE(config->portConfig(eth("eth1"))->networkPolicyConfig().empty());
   agent->cliConfig()->enabledIs(false);
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

}  // namespace

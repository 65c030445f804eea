// LLDP-MED network policy with the agent in virtual time: the operator's policies are
// written as the configuration language writes them, a neighbour's request as the receive
// processor publishes it, and the local port records (what the builder sends) judge.
#include <gtest/gtest.h>

#include <sstream>

#include "Framework/Trace.h"
#include "tests/Support/AgentInVirtualTime.h"

namespace {

Lldp::NetworkPolicyConfig policy(uint8_t app, uint16_t vlan, uint8_t prio = 5, uint8_t dscp = 46) {
   return Lldp::NetworkPolicyConfig(
       {.appType = app, .tagged = true, .vlanId = vlan, .priority = prio, .dscp = dscp});
}

class NetworkPolicyTest : public TestSupport::AgentInVirtualTime {
protected:
   void SetUp() override {
      Vel::Trace::configure("LldpAgent/0-6");
      AgentInVirtualTime::SetUp();
      portUp("eth1");
      loop().advanceBy(0);
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
};

TEST_F(NetworkPolicyTest, AdvertisedOnlyOnRequestWhileSelectedWithoutRedundantSignaling) {
   EXPECT_FALSE(port()->medCapabilities().capabilities().networkPolicy());
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
   auto config = db.entityAs<Lldp::Config>("l2discovery/lldp/config");
   EXPECT_TRUE(config->portConfig(eth("eth1"))->networkPolicyConfig().empty());
}

TEST_F(NetworkPolicyTest, APolicyChangeIsSentAtOnceAndAPortComingBackAdvertisesAgain) {
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

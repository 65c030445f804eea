// PoE with the agent in virtual time: power agents publish their ports in the power agents'
// directory as the daemon's power-agent operation does, neighbours' Power via MDI TLVs are
// recorded as the receive processor records them, and the port's PoE record and the
// published power requests judge.
#include <gtest/gtest.h>

#include "Framework/Trace.h"
#include "tests/Support/AgentInVirtualTime.h"

namespace {

using Lldp::PowerViaMdiInfo;
using PortStatus = Environment::Power::PoePortStatus::PortStatus;

// A powered device asking for `tenths` of a watt in the 802.3at form (type 2 PD).
PowerViaMdiInfo pdRequest(uint16_t tenths) {
   return PowerViaMdiInfo({.form = PowerViaMdiInfo::formDot3at,
                           .mdiPowerSupport = 0x02,
                           .powerClass = 5,
                           .typeSourcePriority = 0x40 | 0x10 | 0x2,
                           .pdRequestedPower = tenths});
}

class PoeTest : public TestSupport::AgentInVirtualTime {
protected:
   void SetUp() override {
      Vel::Trace::configure("LldpAgent/0-8");
      AgentInVirtualTime::SetUp();
      portUp("eth1");
   }
   void mountPlatform() override {
      agents = db.mount<Vel::Dir>("environment/power/status/poePort");
      requests = db.mount<Lldp::PowerRequestStatus>("l2discovery/lldp/status/powerRequest");
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
      auto a = agents->entryAs<Environment::Power::PoePortStatus>(name);
      if (!a) agents->entryIs(name, a = Vel::make<Environment::Power::PoePortStatus>(name));
      a->portStatusIs(eth("eth1"), s);
   }

   Vel::Dir::Ptr agents;
   Lldp::PowerRequestStatus::Ptr requests;
};

TEST_F(PoeTest, TheRequestAnsweredIsTheNewestOfOneDeviceAndNoneOfTwo) {
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

TEST_F(PoeTest, PowerAgentsReportsReachThePortFirstAgentByNameWins) {
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
   agents->entryDel("a-agent");
   EXPECT_EQ(poe().poePortStatus().state(), PortStatus::stateFault);
   agents->entryDel("b-agent");
   EXPECT_FALSE(poe().readyToSendTlv());
   EXPECT_TRUE(traced("PoeSm::handlePowerAgentDelete reset localPort PoE info for eth1"));

   // Something else than a power agent's report in the directory is ignored.
   agents->entryIs("stray", Vel::make<Vel::Dir>("stray"));
   EXPECT_FALSE(poe().readyToSendTlv());
}

}  // namespace

// A standby agent and its takeover, in virtual time: the standby sends nothing and
// publishes nothing while the active agent lives, takes over only once that agent is
// proven gone, and then keeps the neighbours mirrored from it (indices, creation and
// expiry times), with every counter carrying on from where the active agent left it.
// The mirrored status is filled by hand here, as the mirror would leave it.
#include "tests/Lldp/LldpAgentFixture.h"
#include "tests/Support/Frames.h"
#include "tests/Support/PamFrames.h"

using namespace LldpAgentTests;

namespace {

using Reason = Lldp::SwitchoverReasonNames;

struct FarEndPam {
   Vel::Ptr<Wire::InMemoryPam> end;
};
// The neighbour's end of a port's cable: what the agent sends arrives here.
struct FarEnd final : FarEndPam, TestSupport::PamReader {
   explicit FarEnd(Vel::Ptr<Wire::InMemoryPam> p) : FarEndPam{std::move(p)}, PamReader(end.ptr()) {}
   void send(const std::string& chassis, uint16_t ttl) {
      const TestSupport::Bytes f = TestSupport::lldpFrame(chassis, ttl);
      end->txPktIs(TestSupport::pktOf(std::string(f.begin(), f.end())));
   }
};

class LldpStandbyTest : public LldpAgentTest {
protected:
   Lldp::Agent::Agent::Options agentOptions() override {
      Lldp::Agent::Agent::Options o{links.factory()};
      o.standby = true;
      o.activeGone = [this] {
         ++probes;
         return activeGone;
      };
      return o;
   }
   void mountPlatform() override {
      LldpAgentTest::mountPlatform();
      cells = db.mount<Vel::Dir>(Lldp::lldpStatusDirPath);
      logsKept = true;
      Vel::Log::sinkIs([this](const Vel::Log::Message& m) { logs.push_back(m.key); });
   }
   void TearDown() override {
      far.reset();
      LldpAgentTest::TearDown();
      Vel::Log::sinkIs(nullptr);
   }
   // The active agent's status (cell 1) as the mirror keeps it: eth1 with neighbours 3
   // (expiring at 105) and 7 (at 130), its counters, and the remote-table counters.
   Lldp::Status::Ptr mirrorActive() {
      auto s = Vel::make<Lldp::Status>();
      // Named as the stream names it: by the name alone, without the platform's kind.
      auto ps = s->portStatusIs(IntfId("eth1"), 20.0);
      for (auto [index, created, expiry] : {std::tuple{3, 50.0, 105.0}, {7, 60.0, 130.0}}) {
         auto r = Vel::make<Lldp::RemoteSystem>(
             index, Lldp::Msap({.chassisIdentifier = Lldp::ChassisIdentifier(
                                    {.subtype = 7, .value = "nb" + std::to_string(index)})}));
         r->creationTimeIs(created);
         r->expiryTimeIs(expiry);
         r->ttlIs(uint16_t(expiry - 90));
         ps->remoteSystemByMsapIs(r);
         ps->remoteSystemIs(index, r);
      }
      ps->nextRemoteSystemIndexIs(5);  // behind the table: 7 came in from a wrapped counter
      ps->rxFramesTotalIs(40);
      ps->txFramesTotalIs(20);
      ps->rxAgeoutsTotalIs(4);
      s->remTablesInsertsIs(9);
      s->remTablesDeletesIs(2);
      s->remTablesAgeoutsIs(1);
      s->remTablesLastChangeTimeIs(90);
      cells->entryIs(Lldp::lldpStatusDirName(1), Vel::Ptr<Vel::Entity>(s));
      return s;
   }
   Lldp::AllStatus::Ptr published() {
      return db.entityAs<Lldp::AllStatus>("l2discovery/lldp/status/all");
   }
   Lldp::RedundancyStatus::Ptr role() {
      return db.entityAs<Lldp::RedundancyStatus>(Lldp::redundancyStatusPath);
   }
   std::vector<int> indices(const Lldp::PortStatus::PtrConst& ps) {
      std::vector<int> out;
      for (const auto& [i, r] : ps->remoteSystem()) out.push_back(i);
      return out;
   }

   Vel::Dir::Ptr cells;
   bool activeGone = false;
   int probes = 0;
   bool logsKept = false;
   std::vector<std::string> logs;
   std::unique_ptr<FarEnd> far;
};

TEST_F(LldpStandbyTest, SilentUntilTheActiveIsGoneThenKeepsItsNeighboursAndCounters) {
   addPort("eth1", 1);
   addPort("eth2", 2);
   mirrorActive();
   auto sm = agent->redundancyStatusSm();
   sm->handlePeerCellId(1);
   loop().advanceBy(10);

   // A standby opens no packet access and publishes neither ports nor neighbours.
   EXPECT_EQ(links.made, 0);
   EXPECT_TRUE(config->portConfig().empty());
   EXPECT_TRUE(local->localPort().empty());
   EXPECT_TRUE(published()->portStatus().empty());
   EXPECT_EQ(published()->remTablesInserts(), 0u);
   EXPECT_EQ(agent->cellInfo()->cellId(), 2u);
   EXPECT_EQ(role()->role().value(), Lldp::RedundancyRoleNames::roleStandby);

   // A broken connection alone is no proof: the active agent still holds on.
   sm->handlePeerConnectionLost(Lldp::Agent::PeerLoss::connectionBroken);
   loop().advanceBy(2);
   EXPECT_TRUE(sm->standby());
   EXPECT_GT(probes, 10);
   // Back in with the active agent: no more probing, even once the probe would say gone.
   sm->handlePeerConnected();
   activeGone = true;
   const int probed = probes;
   loop().advanceBy(2);
   EXPECT_EQ(probes, probed);
   EXPECT_TRUE(sm->standby());
   EXPECT_EQ(links.made, 0);

   // The active agent dies (t = 114): the neighbour that expired meanwhile (3, at 105) is
   // aged at once, as it would have been; 7 stays with its times.
   far = std::make_unique<FarEnd>(links.far(eth("eth1")));
   sm->handlePeerConnectionLost(Lldp::Agent::PeerLoss::connectionBroken);
   const Vel::Seconds takeover = loop().now();
   EXPECT_FALSE(sm->standby());
   EXPECT_EQ(role()->lastSwitchoverReason().value(), Reason::switchoverPeerDied);
   EXPECT_EQ(role()->lastSwitchoverTime(), takeover);
   loop().advanceBy(0);
   auto ps = agent->lldpStatusLocal()->portStatus(eth("eth1"));
   ASSERT_TRUE(ps);
   EXPECT_EQ(indices(ps), std::vector<int>{7});
   EXPECT_EQ(ps->remoteSystem(7)->creationTime(), 60.0);
   EXPECT_EQ(ps->remoteSystem(7)->expiryTime(), 130.0);
   EXPECT_EQ(ps->creationTime(), 20.0);
   EXPECT_EQ(ps->rxAgeoutsTotal(), 5u);
   EXPECT_EQ(published()->portStatus(eth("eth1"))->ptr(), ps.ptr());
   // The former active agent's counters count on as the peer cell's.
   EXPECT_EQ(published()->remTablesInserts(), 9u);
   EXPECT_EQ(published()->remTablesAgeouts(), 2u);
   EXPECT_EQ(published()->remTablesDeletes(), 3u);
   EXPECT_EQ(agent->statusAccumulatorSm()->lldpStatusRemote(),
             cells->entryAs<Lldp::Status>(Lldp::lldpStatusDirName(1)));
   EXPECT_EQ(logs, std::vector<std::string>({"LLDP_SUPERVISOR_TAKEOVER", "LLDP_NEIGHBOR_TIMEOUT"}));

   // The first LLDPDU leaves within the transmit delay of the takeover.
   loop().advanceTo(takeover + double(config->txDelay()));
   EXPECT_FALSE(far->frames.empty());
   EXPECT_GE(ps->txFramesTotal(), 21u);

   // A new neighbour gets an index above every mirrored one; the counters go on.
   far->send("newcomer", 120);
   loop().advanceBy(0);
   EXPECT_EQ(indices(ps), (std::vector<int>{7, 8}));
   EXPECT_EQ(ps->rxFramesTotal(), 41u);
   EXPECT_EQ(published()->remTablesInserts(), 10u);

   // Neighbour 7, silent since before the switch, ages out at its mirrored time.
   loop().advanceTo(129.9);
   EXPECT_EQ(indices(ps), (std::vector<int>{7, 8}));
   loop().advanceTo(130.01);
   EXPECT_EQ(indices(ps), std::vector<int>{8});
   EXPECT_EQ(published()->remTablesAgeouts(), 3u);
}

TEST_F(LldpStandbyTest, TakeoverWithoutMirrorCreatesPeerEntryAndCleanupRemovesWhatEachPublished) {
   addPort("eth1", 1);
   auto desired = db.entityAs<Interface::PamDesiredIntfDir>("interface/pam/lldp/desiredIntf");
   ASSERT_TRUE(desired);
   // The standby only wants packet access; the switch stays off.
   EXPECT_TRUE(desired->intfDesired(eth("eth1")));
   EXPECT_EQ(links.made, 0);

   // A handover: the active agent exits soon after saying so.
   auto sm = agent->redundancyStatusSm();
   sm->handlePeerConnectionLost(Lldp::Agent::PeerLoss::handedOver);
   sm->handlePeerConnectionLost(Lldp::Agent::PeerLoss::peerStopping);
   sm->handlePeerConnectionLost(Lldp::Agent::PeerLoss::connectionBroken);
   loop().advanceBy(0.5);
   EXPECT_TRUE(sm->standby());
   activeGone = true;
   loop().advanceBy(0.05);
   ASSERT_FALSE(sm->standby());
   EXPECT_EQ(role()->lastSwitchoverReason().value(), Reason::switchoverOperatorRequest);
   // Nothing was mirrored: the peer cell's entry is made, empty, so counters still add.
   EXPECT_TRUE(traced(" Creating lldpStatusDir entity for cell:2"));
   EXPECT_TRUE(cells->entryAs<Lldp::Status>("2"));
   EXPECT_TRUE(config->portConfig(eth("eth1")));
   EXPECT_TRUE(published()->portStatus(eth("eth1")));
   EXPECT_EQ(links.made, 1);

   // An entry someone else made is theirs: clean-up removes only what this agent made.
   cells->entryIs("7", Vel::Ptr<Vel::Entity>(Vel::make<Lldp::Status>()));
   agent->doCleanup();
   agent = nullptr;
   EXPECT_FALSE(cells->entry("2"));
   EXPECT_TRUE(cells->entry("7"));
   EXPECT_TRUE(published()->portStatus().empty());
   EXPECT_TRUE(desired->intfDesired().empty());
   EXPECT_TRUE(config->portConfig().empty());
   EXPECT_TRUE(local->localPort().empty());
}

}  // namespace

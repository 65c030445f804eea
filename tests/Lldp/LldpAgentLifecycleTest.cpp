// The agent's life: what it mounts and through what, the records it finds from an earlier
// run, the ring log it names, and a clean-up that gives everything back so the agent can
// start again.
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/Lldp/LldpAgentFixture.h"

using namespace LldpAgentTests;

namespace {

const IntfId bond5 = IntfId::linux("bond5", IntfKind::intfKindPortChannel);
const IntfId vlan10 = IntfId("Vlan10");
const IntfId lo0 = IntfId("Loopback0");

// Records an earlier run (or another writer) left in the database before the agent
// starts: entries of interfaces that must not run LLDP, and a port with TLVs and
// addresses nobody asks for any more.
class LldpAgentRestartTest : public LldpAgentTest {
protected:
   void mountPlatform() override {
      LldpAgentTest::mountPlatform();
      auto cfg = db.mount<Lldp::Config>("l2discovery/lldp/config");
      auto status = db.mount<Lldp::Status>("l2discovery/lldp/status/local");
      auto ls = db.mount<Lldp::LocalSystem>("l2discovery/lldp/localSystem");
      for (const IntfId& intf : {bond5, vlan10, lo0, eth("eth9")}) {
         cfg->portConfigIs(intf);
         status->portStatusIs(intf, 1.0);
         ls->localPortIs(intf)->unknownOrgDefTlvIs(tlv(1, "stale"));
      }
      ls->localPortIs(eth("eth9"))->unknownOrgDefTlvIs(tlv(2, "stale too"));
   }
};

TEST_F(LldpAgentRestartTest, LeftoverRecordsKeepOnlyCapablePortsAndNoOrphanTlvs) {
   for (const IntfId& gone : {bond5, vlan10, lo0}) {
      EXPECT_FALSE(config->portConfig(gone)) << gone;
      EXPECT_FALSE(agent->lldpStatusLocal()->portStatus(gone)) << gone;
      EXPECT_FALSE(local->localPort(gone)) << gone;
   }
   // A capable port keeps its entries, but not TLVs that no client publishes.
   ASSERT_TRUE(local->localPort(eth("eth9")));
   EXPECT_TRUE(config->portConfig(eth("eth9")));
   EXPECT_TRUE(tlvs("eth9").empty());
   // The published status follows the cleaned table.
   auto all = db.entityAs<Lldp::AllStatus>("l2discovery/lldp/status/all");
   EXPECT_FALSE(all->portStatus(bond5));
   EXPECT_TRUE(all->portStatus(eth("eth9")));
   // A client that still publishes gets its TLV back.
   client("c", {{eth("eth9"), {tlv(3, "live")}}});
   EXPECT_EQ(tlvs("eth9"), V{"live"});
}

TEST_F(LldpAgentTest, MountsInOrderDirectoriesThroughTheMounterAndAllGivenBack) {
   const std::vector<std::string> expected = {
       "l2discovery/lldp/cliConfig",
       "l2discovery/lldp/remTablesCliConfig",
       "l2discovery/lldp/remTablesStatus",
       "l2discovery/lldp/externalTlvs",
       "l2discovery/lldp/config",
       "l2discovery/lldp/status/local",
       "hardware/cellInfo",
       "l2discovery/lldp/status/all",
       "l2discovery/lldp/localSystem",
       "bridging/config",
       "bridging/hwcapabilities",
       "ip/status",
       "ip6/status",
       "routing/config",
       "sys/net/status",
       "hardware/entmib",
       "environment/power/status/poePort",
       "l2discovery/lldp/status/powerRequest",
       "identity/nbrClassification/status",
       "identity/nbrClassification/cliConfig",
       "identity/dot1x/status",
       "identity/macsec/status",
       "interface/status/all",
       "interface/status/local",
       "interface/status/eth/phy/all",
       "interface/config/eth/phy/all",
       "interface/status/eth/lag",
       "interface/pam/lldp/desiredIntf",
       "l2discovery/lldp/status/cell",
   };
   std::vector<std::string> paths;
   for (const auto& m : agent->mounts()) paths.push_back(m.path);
   EXPECT_EQ(paths, expected);
   EXPECT_EQ(agent->mounts()[2].mode, "wf");
   EXPECT_EQ(agent->mounts()[5].mode, "wif");

   // The interface directories are attached by name to the interface-index mounter.
   ASSERT_TRUE(agent->intfDirMounter());
   EXPECT_EQ(agent->intfDirMounter()->name(), "diim");
   std::vector<std::string> names;
   for (const auto& a : agent->intfDirMounter()->attachments()) names.push_back(a.localName);
   EXPECT_EQ(names, (V{"AllIntfStatusDir", "AllIntfStatusLocalDir", "AllEthPhyIntfStatusDir",
                       "AllEthPhyIntfConfigDir", "EthLagIntfStatusDir"}));
   EXPECT_EQ(agent->intfDirMounter()->attachments()[1].typeName, "AllIntfStatusLocalDir");
   EXPECT_TRUE(db.entityAs<Interface::AllIntfStatusLocalDir>("interface/status/local"));

   // The system description comes from the hardware inventory's status.
   auto entmib = db.entityAs<EntityMib::Status>("hardware/entmib");
   ASSERT_TRUE(entmib);
   entmib->sysDescr()->descriptionIs("a switch, by its inventory");
   EXPECT_EQ(local->sysDesc().value(), "a switch, by its inventory");

   // Clean-up gives every mount back; what others wrote stays in the database.
   addPort("eth1", 1);
   agent->cliConfig()->messageTxIntervalIs(7);
   agent->doCleanup();
   for (const std::string& p : expected) EXPECT_EQ(db.mountCount(p), 0) << p;
   EXPECT_TRUE(agent->mounts().empty());
   EXPECT_FALSE(agent->intfDirMounter());
   EXPECT_FALSE(agent->lldpStatusLocal());
   EXPECT_FALSE(agent->cliConfig());
   EXPECT_EQ(db.entityAs<Lldp::CliConfig>("l2discovery/lldp/cliConfig")->messageTxInterval(), 7u);
   EXPECT_TRUE(config->portConfig().empty());

   // An agent cleaned up before its mounts completed never creates its roots.
   auto early =
       Vel::make<Lldp::Agent::Agent>("early", Lldp::Agent::Agent::Options{links.factory()}, db);
   early->doInit();
   EXPECT_EQ(db.mountCount("l2discovery/lldp/config"), 1);
   early->doCleanup();
   loop().advanceBy(0);
   EXPECT_FALSE(early->protocolRoot());
   EXPECT_FALSE(early->inputRoot());
   EXPECT_EQ(db.mountCount("l2discovery/lldp/config"), 0);
   EXPECT_TRUE(config->portConfig().empty());

   // The same agent starts again on what the database holds.
   agent->doInit();
   loop().advanceBy(0);
   ASSERT_TRUE(agent->mountsComplete());
   EXPECT_EQ(db.mountCount("l2discovery/lldp/config"), 1);
   EXPECT_EQ(config->messageTxInterval(), 7u);
   EXPECT_TRUE(portConfig("eth1"));
   EXPECT_TRUE(agent->protocolRoot()->protocolSm()->lldpPamSmHas(eth("eth1")));
   EXPECT_EQ(local->sysDesc().value(), "a switch, by its inventory");
}

// The ring log takes the agent's name, and the process ID as well where no RINGLOGDIR
// says where it goes.
TEST_F(LldpAgentTest, RingLogIsNamedAfterTheAgentAndItsProcessWithoutRingLogDir) {
   const std::string pid = std::to_string(::getpid());
   const auto dir = std::filesystem::temp_directory_path() / ("ringlog-" + pid);
   std::filesystem::create_directories(dir);
   auto restart = [&] {
      agent->doCleanup();
      agent->doInit();
      loop().advanceBy(0);
   };

   ::unsetenv("RINGLOGDIR");
   restart();
   EXPECT_EQ(Vel::Trace::ringLogName(), "lldp-agent-" + pid);
   EXPECT_EQ(Vel::Trace::ringLogPath(), "");

   ::setenv("RINGLOGDIR", dir.c_str(), 1);
   restart();
   EXPECT_EQ(Vel::Trace::ringLogName(), "lldp-agent");
   EXPECT_EQ(Vel::Trace::ringLogPath(), (dir / "lldp-agent").string());
   std::ifstream file(dir / "lldp-agent");
   std::stringstream text;
   text << file.rdbuf();
   EXPECT_NE(text.str().find("LldpAgent 4 Agent::doMountsComplete()"), std::string::npos)
       << text.str();

   // Set but empty is still set: the name stays plain, and the ring stays in memory.
   ::setenv("RINGLOGDIR", "", 1);
   restart();
   EXPECT_EQ(Vel::Trace::ringLogName(), "lldp-agent");
   EXPECT_EQ(Vel::Trace::ringLogPath(), "");

   ::unsetenv("RINGLOGDIR");
   Vel::Trace::ringLogIs("");
   std::filesystem::remove_all(dir);
}

}  // namespace

// Two switches' protocol engines on the two ends of a veth, in network namespaces,
// discover each other in real time through Linux packet access: the same engine the
// virtual-time tests drive over in-memory links.
#include <gtest/gtest.h>
#include <unistd.h>

#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Platform/Linux/LinuxPam.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/NetNs.h"
#include "tests/Support/Switch.h"

namespace {

using Platform::Linux::LinuxPam;
using TestSupport::Switch;

// A port whose interface was down when packet access opened, and one that goes down and
// comes back while the agent runs: the first LLDPDU after link up leaves txDelay later,
// not one transmit interval later. A frame the kernel refuses (the interface is down
// before the link status says so) stays counted as sent, with its time, and is counted as
// a transmit error beside.
TEST(LldpEngineVeth, TwoSwitchesDiscoverEachOtherAndSendTxDelayAfterLinkUp) {
   if (geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces";
   Vel::Trace::textTraceIs("-");
   Vel::Log::syslogIs(false);
   auto& loop = Vel::EventLoop::instance();
   loop.virtualTimeIs(false);
   TestSupport::NetNsPair ns;
   ASSERT_TRUE(ns.ok()) << ns.error();
   const std::string intf = ns.intfA();
   auto link = [&](bool up) {
      ASSERT_TRUE(TestSupport::ipIn(ns.nsA(), "link set " + intf + (up ? " up" : " down")));
   };
   {
      Switch a("left", 1, LinuxPam::factory()), b("right", 2, LinuxPam::factory());
      a.config->txDelayIs(1);
      a.config->reinitDelayIs(1);
      a.config->messageTxIntervalIs(20);  // a frame one interval late is unmistakable
      b.config->txDelayIs(0);
      a.start();
      b.start();
      link(false);
      // Packet access opens when a port is added: each side in its own namespace.
      {
         TestSupport::NetNsScope in(ns.nsA());
         a.portIs(intf, 1);
      }
      {
         TestSupport::NetNsScope in(ns.nsB());
         b.portIs(ns.intfB(), 2);
      }
      ASSERT_TRUE(a.sm(intf)) << a.root->pamMan()->failed().begin()->second;
      ASSERT_TRUE(b.sm(ns.intfB())) << b.root->pamMan()->failed().begin()->second;
      auto status = a.intfStatusDir->intfStatus(Wire::IntfId(intf));
      status->linkStatusIs(Interface::linkStatusDown);
      auto heard = b.portStatus(ns.intfB());
      // Up (interface, then the link status the platform would report), and the time the
      // first frame takes to reach b; generous bounds for a loaded machine.
      auto upAndFirstFrame = [&](const char* when) {
         link(true);
         const Vel::Seconds up = loop.now();
         status->linkStatusIs(Interface::linkStatusUp);
         const uint32_t before = heard->rxFramesTotal();
         ASSERT_TRUE(loop.runUntil([&] { return heard->rxFramesTotal() > before; }, 15))
             << "no LLDPDU within 15 s of link up " << when;
         const Vel::Seconds took = loop.now() - up;
         EXPECT_GT(took, 0.9) << when;
         EXPECT_LT(took, 4) << when << ": the first LLDPDU came " << took << " s after link up";
      };
      loop.runUntil([] { return false; }, 1.5);  // past reinitDelay, down
      EXPECT_EQ(heard->rxFramesTotal(), 0u);
      upAndFirstFrame("when down at start");

      // b's own first frame went nowhere; a local change sends at once.
      b.localSystem->sysNameIs("right-renamed");
      EXPECT_TRUE(loop.runUntil(
          [&] { return a.neighbours(intf) == 1 && b.neighbours(ns.intfB()) == 1; }, 5))
          << "A sees " << a.neighbours(intf) << ", B sees " << b.neighbours(ns.intfB());
      ASSERT_EQ(b.neighbours(ns.intfB()), 1u);
      auto seen = heard->remoteSystem().begin()->second;
      EXPECT_EQ(seen->sysName().value(), "left");
      EXPECT_EQ(seen->msap().portIdentifier().value().value(), intf);
      EXPECT_EQ(a.portStatus(intf)->rxFramesErrors(), 0u);

      // Flap while running.
      link(false);
      status->linkStatusIs(Interface::linkStatusDown);
      loop.runUntil([] { return false; }, 1.5);
      upAndFirstFrame("after a flap");
      auto port = a.portStatus(intf);
      EXPECT_EQ(port->txFramesErrors(), 0u);
      const uint32_t sent = port->txFramesTotal();
      const Vel::Seconds lastTx = port->lastTxTime();

      // The interface goes down before the platform says so: the kernel refuses the next
      // frame (a local change sends at once); the timers go on.
      loop.runUntil([&] { return a.sm(intf)->txFsmState() == Lldp::Agent::Protocol::txFsmIdle; },
                    5);
      link(false);
      a.localSystem->sysNameIs("left-renamed");
      loop.runUntil([&] { return port->txFramesErrors() > 0; }, 5);
      EXPECT_EQ(port->txFramesErrors(), 1u);
      EXPECT_EQ(port->txFramesTotal(), sent + 1);
      EXPECT_GT(port->lastTxTime(), lastTx);
      EXPECT_NE(a.sm(intf)->txClock().timeMin(), Vel::never);

      // LLDP off on A: its socket closes and its neighbours go.
      a.cliConfig->enabledIs(false);
      EXPECT_EQ(a.pamCollection->intfPams(), 0u);
      EXPECT_EQ(a.neighbours(intf), 0u);
   }
   Wire::PktMan::instance().dataSizeIs(Wire::PktMan::defaultDataSize);
   Vel::Log::syslogIs(true);
}

}  // namespace

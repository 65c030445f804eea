// Two switches' protocol engines on the two ends of a veth, in network namespaces,
// discover each other in real time through Linux packet access: the same engine the
// virtual-time tests drive over in-memory links.
#include <gtest/gtest.h>
#include <unistd.h>

#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Platform/Linux/LinuxPam.h"
#include "tests/Support/NetNs.h"
#include "tests/Support/Switch.h"

namespace {

using Platform::Linux::LinuxPam;
using TestSupport::Switch;

TEST(LldpEngineVeth, TwoSwitchesDiscoverEachOtherInRealTime) {
   if (geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces";
   Vel::Trace::textTraceIs("-");
   Vel::Log::syslogIs(false);
   Vel::EventLoop::instance().virtualTimeIs(false);
   TestSupport::NetNsPair ns;
   ASSERT_TRUE(ns.ok()) << ns.error();
   {
      Switch a("left", 1, LinuxPam::factory()), b("right", 2, LinuxPam::factory());
      for (auto* sw : {&a, &b}) {
         sw->config->txDelayIs(0);  // first frames at once: the test waits milliseconds
         sw->start();
      }
      // Packet access opens when a port is added: each side in its own namespace.
      {
         TestSupport::NetNsScope in(ns.nsA());
         a.portIs(ns.intfA(), 1);
      }
      {
         TestSupport::NetNsScope in(ns.nsB());
         b.portIs(ns.intfB(), 2);
      }
      ASSERT_TRUE(a.sm(ns.intfA())) << a.root->pamMan()->failed().begin()->second;
      ASSERT_TRUE(b.sm(ns.intfB())) << b.root->pamMan()->failed().begin()->second;

      auto& loop = Vel::EventLoop::instance();
      EXPECT_TRUE(loop.runUntil(
          [&] { return a.neighbours(ns.intfA()) == 1 && b.neighbours(ns.intfB()) == 1; }, 5))
          << "A sees " << a.neighbours(ns.intfA()) << ", B sees " << b.neighbours(ns.intfB());
      ASSERT_EQ(b.neighbours(ns.intfB()), 1u);
      auto seen = b.portStatus(ns.intfB())->remoteSystem().begin()->second;
      EXPECT_EQ(seen->sysName().value(), "left");
      EXPECT_EQ(seen->msap().portIdentifier().value().value(), ns.intfA());
      EXPECT_EQ(a.portStatus(ns.intfA())->rxFramesErrors(), 0u);

      // LLDP off on A: its socket closes; B keeps the neighbour until the TTL runs out.
      a.cliConfig->enabledIs(false);
      EXPECT_EQ(a.pamCollection->intfPams(), 0u);
      EXPECT_EQ(a.neighbours(ns.intfA()), 0u);
   }
   Wire::PktMan::instance().dataSizeIs(Wire::PktMan::defaultDataSize);
   Vel::Log::syslogIs(true);
}

}  // namespace

// Two per-port machines on the two ends of a veth, in network namespaces, discover each
// other in real time through the Linux packet access.
#include <gtest/gtest.h>
#include <unistd.h>

#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Platform/Linux/LinuxPam.h"
#include "tests/Support/LldpPort.h"
#include "tests/Support/NetNs.h"

namespace {

using Platform::Linux::LinuxPam;

TEST(LldpPamSmVeth, TwoMachinesDiscoverEachOtherInRealTime) {
   if (geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces";
   Vel::Trace::textTraceIs("-");
   Vel::Log::syslogIs(false);
   TestSupport::NetNsPair ns;
   ASSERT_TRUE(ns.ok()) << ns.error();
   Vel::Ptr<LinuxPam> pamA, pamB;
   std::string error;
   {
      TestSupport::NetNsScope in(ns.nsA());
      pamA = LinuxPam::open(Wire::IntfId(ns.intfA()), &error);
   }
   ASSERT_TRUE(pamA) << error;
   {
      TestSupport::NetNsScope in(ns.nsB());
      pamB = LinuxPam::open(Wire::IntfId(ns.intfB()), &error);
   }
   ASSERT_TRUE(pamB) << error;

   TestSupport::LldpPort a(ns.intfA(), pamA, 1), b(ns.intfB(), pamB, 2);
   for (auto* side : {&a, &b}) {
      side->config->txDelayIs(0);  // first frames at once: the test waits milliseconds
      side->sm->handleInitialized();
   }
   auto& loop = Vel::EventLoop::instance();
   EXPECT_TRUE(loop.runUntil([&] { return a.neighbours() == 1 && b.neighbours() == 1; }, 5))
       << "A sees " << a.neighbours() << ", B sees " << b.neighbours();
   ASSERT_EQ(b.neighbours(), 1u);
   auto seen = b.portStatus->remoteSystem().begin()->second;
   EXPECT_EQ(seen->sysName().value(), std::string("sw-").append(ns.intfA()));
   EXPECT_EQ(seen->msap().portIdentifier().value().value(), ns.intfA());
   EXPECT_EQ(a.portStatus->rxFramesErrors(), 0u);
   a.sm->doClose();
   b.sm->doClose();
   Vel::Log::syslogIs(true);
}

}  // namespace

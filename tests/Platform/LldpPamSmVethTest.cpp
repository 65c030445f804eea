// Two switches' protocol engines on the two ends of a veth, in network namespaces,
// discover each other in real time through Linux packet access: the same engine the
// virtual-time tests drive over in-memory links.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>

#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Platform/Linux/LinuxPam.h"
#include "tests/Support/IpCmd.h"
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

// The far end of a link: a plain packet socket that notes when LLDPDUs arrive.
class FarEnd {
public:
   FarEnd(const std::string& ns, const std::string& intf) {
      TestSupport::NetNsScope in(ns);
      fd_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, htons(0x88cc));
      sockaddr_ll sll{};
      sll.sll_family = AF_PACKET;
      sll.sll_protocol = htons(0x88cc);
      sll.sll_ifindex = int(::if_nametoindex(intf.c_str()));
      if (fd_ >= 0 && ::bind(fd_, reinterpret_cast<sockaddr*>(&sll), sizeof(sll)) != 0) {
         ::close(std::exchange(fd_, -1));
      }
   }
   ~FarEnd() {
      if (fd_ >= 0) ::close(fd_);
   }
   bool ok() const { return fd_ >= 0; }
   // Frames arrived so far (read now), and the time the first of them came.
   int frames() {
      char buf[2048];
      while (::recv(fd_, buf, sizeof(buf), 0) > 0) {
         if (frames_++ == 0) first_ = now();
      }
      return frames_;
   }
   double first() const { return first_; }
   void reset() { frames_ = 0; }
   static double now() {
      return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
          .count();
   }

private:
   int fd_ = -1;
   int frames_ = 0;
   double first_ = 0;
};

// Runs the loop in short turns (the far end is not on the loop) until `done` or the timeout.
bool runFor(const std::function<bool()>& done, double timeout) {
   const double end = FarEnd::now() + timeout;
   while (!done()) {
      if (FarEnd::now() >= end) return false;
      Vel::EventLoop::instance().runOnce(0.01);
   }
   return true;
}

// A port whose interface was down when packet access opened, and one that goes down and
// comes back while the agent runs: the first LLDPDU after link up leaves txDelay later,
// not one transmit interval later. A frame the kernel refuses (the interface is down
// before the link status says so) counts as a transmit error, not as sent.
TEST(LldpEngineVeth, FirstFrameAfterLinkUpLeavesTxDelayLater) {
   if (geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces";
   Vel::Trace::textTraceIs("-");
   Vel::Log::syslogIs(false);
   auto& loop = Vel::EventLoop::instance();
   loop.virtualTimeIs(false);
   TestSupport::NetNsPair ns;
   ASSERT_TRUE(ns.ok()) << ns.error();
   FarEnd far(ns.nsB(), ns.intfB());
   ASSERT_TRUE(far.ok());
   const std::string intf = ns.intfA();
   auto link = [&](bool up) {
      ASSERT_TRUE(TestSupport::ipIn(ns.nsA(), "link set " + intf + (up ? " up" : " down")));
   };
   {
      Switch a("left", 1, LinuxPam::factory());
      a.config->txDelayIs(1);
      a.config->reinitDelayIs(1);
      // A frame one interval late is unmistakable.
      a.config->messageTxIntervalIs(20);
      a.start();
      link(false);
      {
         TestSupport::NetNsScope in(ns.nsA());
         a.portIs(intf, 1);
      }
      ASSERT_TRUE(a.sm(intf));
      auto status = a.intfStatusDir->intfStatus(Wire::IntfId(intf));
      status->linkStatusIs(Interface::linkStatusDown);
      // Up (interface, then the link status the platform would report), and the time
      // the first frame takes; generous bounds for a loaded machine.
      auto upAndFirstFrame = [&](double* took) {
         link(true);
         const double up = FarEnd::now();
         status->linkStatusIs(Interface::linkStatusUp);
         far.reset();
         runFor([&] { return far.frames() > 0; }, 15);
         ASSERT_GT(far.frames(), 0) << "no LLDPDU within 15 s of link up";
         *took = far.first() - up;
      };
      runFor([] { return false; }, 1.5);  // past reinitDelay, down
      EXPECT_EQ(far.frames(), 0);
      double took = 0;
      upAndFirstFrame(&took);
      EXPECT_GT(took, 0.9);
      EXPECT_LT(took, 4) << "down at start: the first LLDPDU came " << took << " s after link up";
      // Flap while running.
      link(false);
      status->linkStatusIs(Interface::linkStatusDown);
      runFor([] { return false; }, 1.5);
      upAndFirstFrame(&took);
      EXPECT_GT(took, 0.9);
      EXPECT_LT(took, 4) << "after a flap: the first LLDPDU came " << took << " s after link up";
      auto port = a.portStatus(intf);
      EXPECT_EQ(port->txFramesErrors(), 0u);
      const uint32_t sent = port->txFramesTotal();

      // The interface goes down before the platform says so: the kernel refuses the next
      // frame (a local change sends at once); the timers go on.
      runFor([&] { return a.sm(intf)->txFsmState() == Lldp::Agent::Protocol::txFsmIdle; }, 5);
      link(false);
      a.localSystem->sysNameIs("left-renamed");
      runFor([&] { return port->txFramesErrors() > 0; }, 5);
      EXPECT_EQ(port->txFramesErrors(), 1u);
      EXPECT_EQ(port->txFramesTotal(), sent);
      EXPECT_NE(a.sm(intf)->txClock().timeMin(), Vel::never);
   }
   Wire::PktMan::instance().dataSizeIs(Wire::PktMan::defaultDataSize);
   Vel::Log::syslogIs(true);
}

}  // namespace

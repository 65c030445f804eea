// The interoperation tests' fixture: two network namespaces joined by veths, our daemon
// on the "ia..." side and the peer on the "ib..." side.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <utility>

#include "Daemon/ControlSocket.h"
#include "tests/Interop/InteropPeers.h"
#include "tests/Support/NetNs.h"

namespace Interop {

class LldpdInterop : public ::testing::Test {
protected:
   void SetUp() override {
      if (::geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces";
      for (const char* p : {"lldpd", "lldpcli", "tshark", "ip"}) {
         if (!Interop::haveProgram(p)) GTEST_SKIP() << p << " is not installed";
      }
      ns_ = std::make_unique<TestSupport::NetNsPair>();
      ASSERT_TRUE(ns_->ok()) << ns_->error();
      tag_ = std::to_string(::getpid() % 100000);
   }

   // Another veth between the two namespaces: ours is "ia<tag>x<n>" in namespace A, the
   // peer's "ib<tag>x<n>" in B, both up.
   std::pair<std::string, std::string> addLink() {
      const std::string n = std::to_string(links_++);
      const std::string a = "ia" + tag_ + "x" + n, b = "ib" + tag_ + "x" + n;
      EXPECT_TRUE(TestSupport::runCmd("ip link add " + a + " netns " + ns_->nsA() +
                                      " type veth peer name " + b + " netns " + ns_->nsB()));
      EXPECT_TRUE(TestSupport::ipIn(ns_->nsA(), "link set " + a + " up"));
      EXPECT_TRUE(TestSupport::ipIn(ns_->nsB(), "link set " + b + " up"));
      return {a, b};
   }
   // Our port in a bridge of its own, so that it has a port VLAN and a VLAN to name (a
   // bridge without VLAN filtering carries everything untagged as VLAN 1).
   bool bridge(const std::string& ours) {
      const std::string br = "br" + tag_ + "x" + std::to_string(bridges_++);
      return TestSupport::ipIn(ns_->nsA(), "link add " + br + " type bridge") &&
             TestSupport::ipIn(ns_->nsA(), "link set " + ours + " master " + br) &&
             TestSupport::ipIn(ns_->nsA(), "link set " + br + " up");
   }
   // One request to our agent's control socket: the reply, or {"failed": why} when the
   // exchange itself failed.
   static Json control(const Agent& agent, const Json& request) {
      Json reply;
      std::string error;
      return Daemon::request(agent.socket(), request, &reply, &error) ? reply
                                                                      : Json{{"failed", error}};
   }
   std::string ourPorts() const { return "ia" + tag_ + "x*"; }
   std::string peerPorts() const { return "ib" + tag_ + "x*"; }

   std::unique_ptr<TestSupport::NetNsPair> ns_;
   std::string tag_;
   int links_ = 0, bridges_ = 0;
};

// Short timers everywhere keep the whole binary within seconds.
inline const std::string agentTimers =
    "lldp timer 1\nlldp hold-time 4\nlldp timer reinitialization 1\n";

}  // namespace Interop

using Interop::LldpdInterop;

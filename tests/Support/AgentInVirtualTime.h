// The agent with its input side on one switch, in virtual time: the platform's records are
// mounted the way the Linux platform mounts them, packet access is in memory (eth1..eth3,
// each linked to peer-ethN), and a test writes records and checks what the agent makes of
// them. A test mounts the records only it needs in `mountPlatform`, before the agent starts.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "Lldp/LldpAgent.h"
#include "tests/Support/Switch.h"

namespace TestSupport {

class AgentInVirtualTime : public ::testing::Test {
protected:
   void SetUp() override;
   void TearDown() override;
   virtual void mountPlatform() {}

   static Vel::EventLoop& loop() { return Vel::EventLoop::instance(); }
   static Wire::IntfId eth(const std::string& name) {
      return Wire::IntfId::linux(name, Wire::IntfKind::intfKindEthernet);
   }
   // Whether some trace line in the ring ends with `text`.
   static bool traced(std::string_view text);
   // A port as the platform reports it when its link is up.
   Interface::EthPhyIntfStatus::Ptr portUp(
       const std::string& name, uint8_t forwardingModel = Interface::forwardingModelRouted);

   Vel::StateDb db;
   InMemoryLinks links;
   Bridging::Config::Ptr bridging;
   Interface::EthPhyIntfStatusDir::Ptr phyDir;
   Vel::Ptr<Lldp::Agent::Agent> agent;
   Lldp::LocalSystem::Ptr local;
   Lldp::Config::Ptr config;
};

}  // namespace TestSupport

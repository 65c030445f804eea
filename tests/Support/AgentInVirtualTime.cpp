#include "tests/Support/AgentInVirtualTime.h"

#include "Framework/Log.h"
#include "Framework/Trace.h"

namespace TestSupport {

void AgentInVirtualTime::SetUp() {
   Vel::Trace::textTraceIs("-");
   Vel::Trace::ringClear();
   Vel::Trace::configure("LldpAgent/0-8");  // for `traced`
   Vel::Log::syslogIs(false);
   loop().virtualTimeIs(true, 100);
   for (const char* p : {"eth1", "eth2", "eth3"})
      links.linkIs(eth(p), eth(std::string("peer-") + p));
   bridging = db.mount<Bridging::Config>("bridging/config");
   bridging->bridgeMacAddrIs(*Wire::EthAddr::parse("02:00:00:00:aa:01"));
   phyDir = db.mount<Interface::EthPhyIntfStatusDir>("interface/status/eth/phy/all");
   mountPlatform();
   agent = Vel::make<Lldp::Agent::Agent>("lldp-agent", Lldp::Agent::Agent::Options{links.factory()},
                                         db);
   agent->doInit();
   loop().advanceBy(0);  // mounts complete from the loop
   local = db.entityAs<Lldp::LocalSystem>("l2discovery/lldp/localSystem");
   config = db.entityAs<Lldp::Config>("l2discovery/lldp/config");
}

void AgentInVirtualTime::TearDown() {
   if (agent) agent->doCleanup();
   agent = nullptr;
   loop().advanceBy(0);
   loop().virtualTimeIs(false);
   Vel::Log::syslogIs(true);
   Vel::Trace::configure("");
   // The protocol engine enlarges packet buffers for the whole process.
   Wire::PktMan::instance().dataSizeIs(Wire::PktMan::defaultDataSize);
}

bool AgentInVirtualTime::traced(std::string_view text) {
   for (const auto& e : Vel::Trace::ringSnapshot()) {
      if (e.text.ends_with(text)) return true;
   }
   return false;
}

Interface::EthPhyIntfStatus::Ptr AgentInVirtualTime::portUp(const std::string& name,
                                                            uint8_t forwardingModel) {
   auto s = phyDir->intfStatusIs(eth(name));
   s->linkStatusIs(Interface::linkStatusUp);
   s->forwardingModelIs(forwardingModel);
   return s;
}

}  // namespace TestSupport

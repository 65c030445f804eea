// lldp-agent as an AgentX subagent of the host's SNMP master agent: serves the LLDP-MIB
// and its extensions (MibTree) read-only and sends lldpRemTablesChange. net-snmp's agent
// library does the protocol; its descriptors and timers run on our event loop, with no
// thread of its own. It connects when the master is there, keeps trying every second
// while it is not, and registers again when the master restarts.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/ModuleObject.h"
#include "Framework/Vel/StateDb.h"
#include "Snmp/LldpMibSource.h"
#include "Snmp/MibTree.h"
#include "Snmp/RemTablesNotifier.h"
#include "Snmp/SubagentOptions.h"

namespace Snmp {

class AgentxSubagent : public Vel::ModuleObject {
public:
   // Starts net-snmp's agent library in subagent mode and registers the MIB tree; the
   // connection follows from the loop. One per process.
   static std::unique_ptr<AgentxSubagent> start(const SubagentOptions& options, Vel::StateDb& db);
   ~AgentxSubagent() override;
   AgentxSubagent(const AgentxSubagent&) = delete;
   AgentxSubagent& operator=(const AgentxSubagent&) = delete;

   const MibTree& tree() const { return *tree_; }

private:
   AgentxSubagent(const SubagentOptions& options, Vel::StateDb& db);
   void doSync();
   void scheduleSync();
   void handleReadable(int fd);
   void handleTimeout();
   void doSendNotification(uint32_t inserts, uint32_t deletes, uint32_t drops, uint32_t ageouts);

   SubagentOptions options_;
   LldpMibSource source_;
   std::unique_ptr<MibTree> tree_;
   std::unique_ptr<RemTablesNotifier> notifier_;
   std::map<int, std::unique_ptr<Vel::FdReactor>> reactors_;
   Vel::Clock timer_;
   bool syncPosted_ = false;
   std::shared_ptr<bool> alive_;
};

}  // namespace Snmp

// Power over Ethernet: what the power agents (the programs that drive the PoE
// controllers) report about each port reaches the port's PoE record, which the Power via
// MDI TLV is built from; and the power request of the powered device on each port is
// handed back to the power agents.
//
// Power agents publish one entity each (Environment::Power::PoePortStatus, their ports'
// status) in the power agents' directory, under a name of their own. When two agents
// report the same port, the one first by name is used.
//
// A port answers one neighbour's request: among the port's neighbours that sent a Power
// via MDI TLV as a powered device in the IEEE 802.3at or 802.3bt form (the 802.3af form
// carries no requested power), the one whose data changed last. That ranking is only
// sound between records of one device (a device that changed its chassis or port ID
// leaves its old record behind until it ages out), so two candidates with different
// source MACs are two devices on one port, whose requests cannot be weighed against each
// other: then no request is answered. The chosen one is the port's PoE record's remote
// system and an entry in the published power requests (PowerRequestStatus).
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>

#include "Framework/Vel/Dir.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Vel/SmallVector.h"
#include "Framework/Wire/IntfMap.h"
#include "Records/Lldp.h"

namespace Lldp::Agent::Input {

class Root;
class PoeSm;

namespace Poe {

// Whether a neighbour's Power via MDI data is a powered device's request.
bool shouldPoeDataFromPowerViaMdiBePublished(const Lldp::RemoteSystem& remote);
// The neighbour whose request the port answers; null for none. `requesting` holds the
// indexes of the port's neighbours that send a request, in index order: the choice looks
// at them alone, however many neighbours the port has.
Vel::Ptr<const Lldp::RemoteSystem> findRemoteSystemWithPowerRequest(
    const Lldp::PortStatus& portStatus, const Vel::SmallVector<int>& requesting);
// The power agent's report of a port becomes the port's PoE record.
void updateLocalPortFromPowerAgent(Lldp::LocalSystem& localSystem, const Wire::IntfId& intf,
                                   const Environment::Power::PoePortStatus::PortStatus& status);

}  // namespace Poe

// One port of one power agent.
class PoeAgentPortSm : public Vel::RefCounted {
public:
   PoeAgentPortSm(PoeSm* sm, Environment::Power::PoePortStatus::PtrConst agent,
                  const Wire::IntfId& intf);
   const Wire::IntfId& intfId() const { return intfId_; }
   void handlePoePortStatus();

private:
   PoeSm* sm_;
   Environment::Power::PoePortStatus::PtrConst agent_;
   Wire::IntfId intfId_;
};

class PoeSm : public Vel::RefCounted {
public:
   PoeSm(Root* root, Vel::Ptr<const Vel::Dir> powerAgentDir,
         Lldp::PowerRequestStatus::Ptr powerRequestStatus);
   ~PoeSm() override;
   Root* root() const { return root_; }
   void handleInitialized();
   void doClose();
   void handlePowerAgentUpdate(const std::string& name);
   void handlePowerAgentDelete(const std::string& name);
   // A port of a power agent came, changed or went.
   void handlePoePortStatus(const std::string& name, const Wire::IntfId& intf);
   // The port's neighbours changed: choose the request to answer again.
   void handleRemoteSystem(const Wire::IntfId& intf);
   // A port's records came or went.
   void handlePortStatus(const Wire::IntfId& intf);
   void handleLocalPort(const Wire::IntfId& intf);
   bool powerAgentHas(const std::string& name) const { return agent_.count(name) != 0; }

private:
   struct DirReactor : Vel::Dir::Notifiee {
      PoeSm* sm;
      void entryChanged(const std::string& name) override;
   };
   struct AgentReactor : Environment::Power::PoePortStatus::Notifiee {
      PoeSm* sm;
      std::string name;
      void portStatusChanged(const Wire::IntfId& intf) override {
         sm->handlePoePortStatus(name, intf);
      }
   };
   struct StatusReactor : Lldp::Status::Notifiee {
      PoeSm* sm;
      void portStatusChanged(const Wire::IntfId& intf) override { sm->handlePortStatus(intf); }
   };
   struct PortStatusReactor : Lldp::PortStatus::Notifiee {
      PoeSm* sm;
      // The neighbours that send a power request, kept one changed neighbour at a time,
      // in index order (a sorted vector: one word on a port where nobody asks).
      Vel::SmallVector<int> requesting;
      void requestingIs(int index);
      void remoteSystemChanged(const int& index) override;
   };
   struct LocalSystemReactor : Lldp::LocalSystem::Notifiee {
      PoeSm* sm;
      void localPortChanged(const Wire::IntfId& intf) override { sm->handleLocalPort(intf); }
   };
   struct Agent {
      Environment::Power::PoePortStatus::PtrConst status;
      std::unique_ptr<AgentReactor> reactor;
      Wire::IntfMap<Vel::Ptr<PoeAgentPortSm>> poeAgentPortSm;
   };
   // The port's PoE record from the first agent (by name) that reports it, or reset.
   void doSyncPortFromAgents(const Wire::IntfId& intf);

   Root* root_;
   Vel::Ptr<const Vel::Dir> powerAgentDir_;
   Lldp::PowerRequestStatus::Ptr powerRequestStatus_;
   std::map<std::string, Agent> agent_;
   Wire::IntfMap<std::unique_ptr<PortStatusReactor>> portStatusReactor_;
   DirReactor dirReactor_;
   StatusReactor statusReactor_;
   LocalSystemReactor localSystemReactor_;
};

}  // namespace Lldp::Agent::Input

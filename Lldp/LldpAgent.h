// The agent: mounts what the LLDP logic reads and writes, creates the protocol root and
// the input root once the mounts are in place, publishes the accumulated status, and
// tears everything down again on clean-up.
//
// An agent is the active supervisor unless it starts as the standby of another agent.
// The active one runs the machines that read platform state, opens packet access and
// publishes its status at once. A standby does none of that: it opens no packet access,
// sends nothing and publishes no ports, while its mirror keeps the active agent's status
// in the peer cells' directory. When it takes over, that status becomes its own (the
// neighbours with their indices and times, each port's counters) and the former active
// agent's remote-table counters stay as the peer cell's, added into what is published.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Framework/Vel/Entity.h"
#include "Framework/Vel/StateDb.h"
#include "Lldp/LldpInputSm.h"
#include "Lldp/LldpProtocolSm.h"
#include "Lldp/LldpRedundancyStatusSm.h"
#include "Lldp/LldpStandbyLldpStatusDirSm.h"

namespace Lldp::Agent {

// Adds the remote-table counters of this supervisor and of its peer (when there is one)
// into the published status, and publishes every port's status.
class StatusAccumulatorSm : public Vel::RefCounted {
public:
   StatusAccumulatorSm(Lldp::Status::PtrConst lldpStatusLocal, Lldp::AllStatus::Ptr allStatus);
   ~StatusAccumulatorSm() override;
   void handleInitialized();
   void doClose();
   // The peer supervisor's status comes and goes with the peer.
   void lldpStatusRemoteIs(Lldp::Status::PtrConst remote);
   const Lldp::Status::PtrConst& lldpStatusRemote() const { return lldpStatusRemote_; }
   // The peer cells' status directory; the peer's status is its entry for the peer cell.
   void lldpStatusDirIs(Vel::Ptr<Vel::Dir> dir);
   // Takes the entry of `cell` as the peer's status, creating it when it is missing.
   void handlePeerLldpStatus(uint32_t cell);

   void handleRemTablesInserts();
   void handleRemTablesDeletes();
   void handleRemTablesDrops();
   void handleRemTablesAgeouts();
   void handleRxFramesDroppedByKernel();
   void handleRemTablesLastChangeTime();
   void handleMgmtAddrVrf();
   void handleLldpStatusRemote();
   void handleIntfId(const Wire::IntfId& intf);

private:
   struct SourceReactor : Lldp::Status::Notifiee {
      StatusAccumulatorSm* sm;
      bool local = false;
      void remTablesInsertsChanged() override { sm->handleRemTablesInserts(); }
      void remTablesDeletesChanged() override { sm->handleRemTablesDeletes(); }
      void remTablesDropsChanged() override { sm->handleRemTablesDrops(); }
      void remTablesAgeoutsChanged() override { sm->handleRemTablesAgeouts(); }
      void rxFramesDroppedByKernelChanged() override { sm->handleRxFramesDroppedByKernel(); }
      void remTablesLastChangeTimeChanged() override { sm->handleRemTablesLastChangeTime(); }
      void mgmtAddrVrfChanged() override {
         if (local) sm->handleMgmtAddrVrf();
      }
      void portStatusChanged(const Wire::IntfId& intf) override {
         if (local) sm->handleIntfId(intf);
      }
   };
   struct DirReactor : Vel::Dir::Notifiee {
      StatusAccumulatorSm* sm;
      void entryChanged(const std::string& name) override { sm->handleLldpStatusDirEntry(name); }
   };
   void handleLldpStatusDirEntry(const std::string& name);
   uint32_t sum(uint32_t (Lldp::StatusBase::*counter)() const) const;
   Lldp::Status::PtrConst lldpStatusLocal_;
   Lldp::Status::PtrConst lldpStatusRemote_;
   Vel::Ptr<Vel::Dir> lldpStatusDir_;
   DirReactor dirReactor_;
   std::string peerEntry_;     // the name of the peer cell's entry, once there is a peer
   std::string createdEntry_;  // the entry this machine created, removed by doClose
   Lldp::AllStatus::Ptr allStatus_;
   SourceReactor localReactor_;
   SourceReactor remoteReactor_;
};

class Agent : public Vel::RefCounted {
public:
   struct Options {
      // Makes each port's packet access; the Linux sockets by default.
      Wire::PamMan::Factory pamFactory;
      // Packet access only on interfaces of the agent's network namespace; on by default
      // with the Linux sockets.
      bool filterByNetNs = false;
      // Start as the standby of another agent; `activeGone` tells when that agent is gone.
      bool standby = false;
      RedundancyStatusSm::ActiveGoneProbe activeGone = nullptr;
   };
   static constexpr uint64_t fdLimit = 1200;

   Agent(std::string name, Options options, Vel::StateDb& db);
   ~Agent() override;

   const std::string& name() const { return name_; }
   // Trace set-up, file descriptor limit, mounts; the roots follow from the event loop.
   void doInit();
   bool mountsComplete() const { return mountsComplete_; }
   void doMountsComplete();
   void doMountsCompleteStep2();
   // The role's reactor. While standby nothing runs that reads platform state. Leaving
   // standby: the mirrored status of the former active agent becomes this agent's, the
   // records as the active supervisor keeps them, then the machines that only an active
   // supervisor runs and packet access. Nothing happens while they run already.
   void handleStandbyMode();
   // Closes the roots, each machine removing what it published, and gives the mounts back.
   void doCleanup();

   const Vel::Ptr<Protocol::Root>& protocolRoot() const { return protocolRoot_; }
   const Vel::Ptr<Input::Root>& inputRoot() const { return inputRoot_; }
   const Vel::Ptr<StatusAccumulatorSm>& statusAccumulatorSm() const { return statusAccumulatorSm_; }
   const Vel::Ptr<RedundancyStatusSm>& redundancyStatusSm() const { return redundancyStatusSm_; }
   const Hardware::CellInfo::Ptr& cellInfo() const { return cellInfo_; }
   const Lldp::RedundancyStatus::Ptr& redundancyStatus() const { return redundancyStatus_; }
   // The standby's copies of the peer cells' status, which its mirror keeps.
   const Vel::Ptr<StandbyLldpStatusDirSm>& standbyLldpStatusDirSm() const {
      return standbyLldpStatusDirSm_;
   }
   const Lldp::CliConfig::Ptr& cliConfig() const { return cliConfig_; }
   const Lldp::RemTablesCliConfig::Ptr& remTablesCliConfig() const { return remTablesCliConfig_; }
   const Lldp::Status::Ptr& lldpStatusLocal() const { return lldpStatusLocal_; }
   // The peer cells' status, one `Lldp::Status` per cell, named by the cell's number.
   const Vel::Ptr<Vel::Dir>& lldpStatusDir() const { return lldpStatusDir_; }
   const Interface::AllIntfStatusLocalDir::Ptr& allIntfStatusLocalDir() const {
      return allIntfStatusLocalDir_;
   }
   // The mounts made by doInit, in order, with their types and access modes; empty once
   // they are released.
   const std::vector<Vel::StateDb::Mount>& mounts() const;
   // The mounter of the interface directories (null once the mounts are released).
   const Vel::StateDb::MountGroup::IntfDirMounter* intfDirMounter() const;

private:
   // Removes the per-port entries of interfaces that must not run LLDP.
   void doRemoveIncapablePorts();
   // Makes the mirrored status of the former active agent (cell `peerCell`) this agent's:
   // every port's status with its neighbours and counters moves to the local status; the
   // remote-table counters stay with the peer cell's entry.
   void doAdoptPeerStatus(uint32_t peerCell);
   void doReleaseMounts();

   std::string name_;
   Options options_;
   Vel::StateDb& db_;
   bool mountsComplete_ = false;
   // The on/off switch of packet access is due: an active agent gets it at once, a
   // standby when it takes over.
   bool onOffSwitchDue_ = false;
   // Packet access through the Linux sockets (the default factory).
   bool linuxSockets_ = false;
   std::unique_ptr<Vel::StateDb::MountGroup> mountGroup_;

   Lldp::CliConfig::Ptr cliConfig_;
   Lldp::RemTablesCliConfig::Ptr remTablesCliConfig_;
   Lldp::RemTablesStatus::Ptr remTablesStatus_;
   Lldp::Config::Ptr config_;
   Lldp::Status::Ptr lldpStatusLocal_;
   Vel::Ptr<Vel::Dir> lldpStatusDir_;
   Lldp::AllStatus::Ptr allStatus_;
   Lldp::LocalSystem::Ptr localSystem_;
   Bridging::Config::Ptr bridgingConfig_;
   Bridging::HwCapabilities::Ptr bridgingHwCapabilities_;
   Hardware::CellInfo::Ptr cellInfo_;
   Routing::Config::Ptr routingConfig_;
   System::NetStatus::Ptr netStatus_;
   Ip::Status::Ptr ipStatus_;
   Ip6::Status::Ptr ip6Status_;
   Vel::Ptr<Vel::Dir> externalTlvsDir_;
   Identity::Dot1x::Status::Ptr identityDot1xStatus_;
   Identity::Macsec::Status::Ptr identityMacsecStatus_;
   Identity::NbrClassification::Status::Ptr nbrClassificationStatus_;
   Identity::NbrClassification::CliConfig::Ptr nbrClassificationCliConfig_;
   Vel::Ptr<Vel::Dir> powerAgentDir_;
   Lldp::PowerRequestStatus::Ptr powerRequestStatus_;
   EntityMib::Status::Ptr entmibStatus_;
   Interface::AllIntfStatusDir::Ptr allIntfStatusDir_;
   Interface::AllIntfStatusLocalDir::Ptr allIntfStatusLocalDir_;
   Interface::EthPhyIntfStatusDir::Ptr ethPhyIntfStatusDir_;
   Interface::EthPhyIntfConfigDir::Ptr ethPhyIntfConfigDir_;
   Interface::EthLagIntfStatusDir::Ptr ethLagIntfStatusDir_;
   Interface::PamDesiredIntfDir::Ptr desiredIntfDir_;
   Wire::PamCollection::Ptr pamCollection_;

   Vel::Ptr<Protocol::Root> protocolRoot_;
   Vel::Ptr<Input::Root> inputRoot_;
   Vel::Ptr<StatusAccumulatorSm> statusAccumulatorSm_;
   Vel::Ptr<RedundancyStatusSm> redundancyStatusSm_;
   Lldp::RedundancyStatus::Ptr redundancyStatus_;
   Vel::Ptr<StandbyLldpStatusDirSm> standbyLldpStatusDirSm_;
};

Vel::Ptr<Agent> agentFactory(const std::string& name);

}  // namespace Lldp::Agent

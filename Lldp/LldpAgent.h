// The agent: mounts what the LLDP logic reads and writes, creates the protocol root and
// the input root once the mounts are in place, publishes the accumulated status, and
// tears everything down again on clean-up.
//
// There is one supervisor here, always active, so the machines that only an active
// supervisor runs start as soon as the roots exist.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Framework/Vel/Entity.h"
#include "Framework/Vel/StateDb.h"
#include "Lldp/LldpInputSm.h"
#include "Lldp/LldpProtocolSm.h"

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
   uint32_t sum(uint32_t (Lldp::StatusBase::*counter)() const) const;
   Lldp::Status::PtrConst lldpStatusLocal_;
   Lldp::Status::PtrConst lldpStatusRemote_;
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
   // Leaving standby: the records as the active supervisor keeps them, then the machines
   // that only an active supervisor runs. Nothing happens while they run already.
   void handleStandbyMode();
   // Closes the roots, each machine removing what it published, and gives the mounts back.
   void doCleanup();

   const Vel::Ptr<Protocol::Root>& protocolRoot() const { return protocolRoot_; }
   const Vel::Ptr<Input::Root>& inputRoot() const { return inputRoot_; }
   const Vel::Ptr<StatusAccumulatorSm>& statusAccumulatorSm() const { return statusAccumulatorSm_; }
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
   void doReleaseMounts();

   std::string name_;
   Options options_;
   Vel::StateDb& db_;
   bool mountsComplete_ = false;
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
};

Vel::Ptr<Agent> agentFactory(const std::string& name);

}  // namespace Lldp::Agent

#include "Lldp/LldpAgent.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>

#include "Framework/Assert.h"
#include "Framework/Vel/EventLoop.h"
#include "Lldp/LldpMirrorCodec.h"
#include "Platform/Linux/LinuxPam.h"
#include "Records/LldpRedundancy.h"

namespace Lldp::Agent {

using Input::traceLldpAgent;

// ---------------------------------------------------------------------------------------
// Status accumulator.

StatusAccumulatorSm::StatusAccumulatorSm(Lldp::Status::PtrConst local, Lldp::AllStatus::Ptr all)
    : lldpStatusLocal_(std::move(local)), allStatus_(std::move(all)) {
   localReactor_.sm = remoteReactor_.sm = this;
   localReactor_.local = true;
   dirReactor_.sm = this;
}

StatusAccumulatorSm::~StatusAccumulatorSm() = default;

void StatusAccumulatorSm::handleInitialized() {
   localReactor_.notifierIs(lldpStatusLocal_);
   remoteReactor_.notifierIs(lldpStatusRemote_);
   handleLldpStatusRemote();
   handleMgmtAddrVrf();
   for (const auto& [intf, ps] : allStatus_->portStatus()) handleIntfId(intf);
   for (const auto& [intf, ps] : lldpStatusLocal_->portStatus()) handleIntfId(intf);
}

void StatusAccumulatorSm::doClose() {
   localReactor_.notifierIs(nullptr);
   remoteReactor_.notifierIs(nullptr);
   dirReactor_.notifierIs(nullptr);
   allStatus_->portStatusDelAll();
   if (!createdEntry_.empty() && lldpStatusDir_) lldpStatusDir_->entryDel(createdEntry_);
   createdEntry_.clear();
}

void StatusAccumulatorSm::lldpStatusDirIs(Vel::Ptr<Vel::Dir> dir) {
   lldpStatusDir_ = std::move(dir);
   dirReactor_.notifierIs(lldpStatusDir_);
}

void StatusAccumulatorSm::handlePeerLldpStatus(uint32_t cell) {
   if (!lldpStatusDir_) return;
   const std::string name = Lldp::lldpStatusDirName(cell);
   Lldp::Status::Ptr peer = lldpStatusDir_->entryAs<Lldp::Status>(name);
   if (!peer) {
      VEL_TRACE(traceLldpAgent, 4, " Creating lldpStatusDir entity for cell:" << cell);
      peer = Vel::make<Lldp::Status>();
      createdEntry_ = name;
      lldpStatusDir_->entryIs(name, Vel::Ptr<Vel::Entity>(peer));
   }
   peerEntry_ = name;
   lldpStatusRemoteIs(peer);
}

// The peer's entry replaced or removed by its owner: the peer's status follows it.
void StatusAccumulatorSm::handleLldpStatusDirEntry(const std::string& name) {
   if (name != peerEntry_) return;
   lldpStatusRemoteIs(lldpStatusDir_->entryAs<Lldp::Status>(name));
}

void StatusAccumulatorSm::lldpStatusRemoteIs(Lldp::Status::PtrConst remote) {
   if (remote == lldpStatusRemote_) return;
   lldpStatusRemote_ = std::move(remote);
   remoteReactor_.notifierIs(lldpStatusRemote_);
   handleLldpStatusRemote();
}

// This supervisor's count plus the peer's, in unsigned 32-bit arithmetic as published.
uint32_t StatusAccumulatorSm::sum(uint32_t (Lldp::StatusBase::*counter)() const) const {
   uint32_t v = (*lldpStatusLocal_.*counter)();
   if (lldpStatusRemote_) v = uint32_t(v + (*lldpStatusRemote_.*counter)());
   return v;
}

void StatusAccumulatorSm::handleRemTablesInserts() {
   allStatus_->remTablesInsertsIs(sum(&Lldp::StatusBase::remTablesInserts));
}

void StatusAccumulatorSm::handleRemTablesDeletes() {
   allStatus_->remTablesDeletesIs(sum(&Lldp::StatusBase::remTablesDeletes));
}

void StatusAccumulatorSm::handleRemTablesDrops() {
   allStatus_->remTablesDropsIs(sum(&Lldp::StatusBase::remTablesDrops));
}

void StatusAccumulatorSm::handleRemTablesAgeouts() {
   allStatus_->remTablesAgeoutsIs(sum(&Lldp::StatusBase::remTablesAgeouts));
}

void StatusAccumulatorSm::handleRxFramesDroppedByKernel() {
   allStatus_->rxFramesDroppedByKernelIs(sum(&Lldp::StatusBase::rxFramesDroppedByKernel));
}

void StatusAccumulatorSm::handleRemTablesLastChangeTime() {
   Vel::Seconds t = lldpStatusLocal_->remTablesLastChangeTime();
   // The later of the two; on a tie the local value.
   if (lldpStatusRemote_ && lldpStatusRemote_->remTablesLastChangeTime() > t) {
      t = lldpStatusRemote_->remTablesLastChangeTime();
   }
   allStatus_->remTablesLastChangeTimeIs(t);
}

void StatusAccumulatorSm::handleMgmtAddrVrf() {
   allStatus_->mgmtAddrVrfIs(lldpStatusLocal_->mgmtAddrVrf());
}

void StatusAccumulatorSm::handleLldpStatusRemote() {
   VEL_TRACE(traceLldpAgent, 8,
             "StatusAccumulatorSm::handleLldpStatusRemote(): "
                 << (lldpStatusRemote_ ? "peer status attached" : "no peer status"));
   handleRemTablesInserts();
   handleRemTablesDeletes();
   handleRemTablesDrops();
   handleRemTablesAgeouts();
   handleRxFramesDroppedByKernel();
   handleRemTablesLastChangeTime();
}

void StatusAccumulatorSm::handleIntfId(const Wire::IntfId& intf) {
   if (auto ps = lldpStatusLocal_->portStatus(intf)) {
      allStatus_->portStatusIs(intf, ps);
   } else {
      allStatus_->portStatusDel(intf);
   }
}

// ---------------------------------------------------------------------------------------
// Agent.

Agent::Agent(std::string name, Options options, Vel::StateDb& db)
    : name_(std::move(name)), options_(std::move(options)), db_(db) {
   if (!options_.pamFactory) {
      options_.pamFactory = Platform::Linux::LinuxPam::factory();
      options_.filterByNetNs = true;
      linuxSockets_ = true;
   }
}

Agent::~Agent() = default;

void Agent::doInit() {
   VEL_TRACE(traceLldpAgent, 4, "Agent::doInit() " << name_);
   // The ring log is named after the agent; without RINGLOGDIR the name carries the
   // process ID as well.
   std::string ringLog = name_;
   if (!std::getenv("RINGLOGDIR")) ringLog += "-%d";
   Vel::Trace::ringLogIs(ringLog);
   // One socket per port and one per client: raise the limit if it is lower.
   rlimit lim{};
   if (::getrlimit(RLIMIT_NOFILE, &lim) == 0 && lim.rlim_cur < fdLimit) {
      lim.rlim_cur = std::min<rlim_t>(fdLimit, lim.rlim_max);
      if (::setrlimit(RLIMIT_NOFILE, &lim) != 0) {
         VEL_TRACE(traceLldpAgent, 0, "Cannot raise the file descriptor limit to " << fdLimit);
      }
   }

   mountGroup_ = std::make_unique<Vel::StateDb::MountGroup>(db_);
   Vel::StateDb::MountGroup& group = *mountGroup_;
   // In the order of the table of mounts; the interface directories follow.
   cliConfig_ = group.mount<Lldp::CliConfig>("l2discovery/lldp/cliConfig", "r");
   remTablesCliConfig_ =
       group.mount<Lldp::RemTablesCliConfig>("l2discovery/lldp/remTablesCliConfig", "r");
   remTablesStatus_ = group.mount<Lldp::RemTablesStatus>("l2discovery/lldp/remTablesStatus", "wf");
   externalTlvsDir_ = group.mount<Vel::Dir>("l2discovery/lldp/externalTlvs", "ri");
   config_ = group.mount<Lldp::Config>("l2discovery/lldp/config", "w");
   lldpStatusLocal_ = group.mount<Lldp::Status>("l2discovery/lldp/status/local", "wif");
   cellInfo_ = group.mount<Hardware::CellInfo>("hardware/cellInfo", "r");
   allStatus_ = group.mount<Lldp::AllStatus>("l2discovery/lldp/status/all", "w");
   localSystem_ = group.mount<Lldp::LocalSystem>("l2discovery/lldp/localSystem", "wi");
   bridgingConfig_ = group.mount<Bridging::Config>("bridging/config", "r");
   bridgingHwCapabilities_ = group.mount<Bridging::HwCapabilities>("bridging/hwcapabilities", "r");
   ipStatus_ = group.mount<Ip::Status>("ip/status", "r");
   ip6Status_ = group.mount<Ip6::Status>("ip6/status", "r");
   routingConfig_ = group.mount<Routing::Config>("routing/config", "r");
   netStatus_ = group.mount<System::NetStatus>("sys/net/status", "r");
   entmibStatus_ = group.mount<EntityMib::Status>("hardware/entmib", "r");
   // Power agents' port status, one entry per agent; the power requests answered for them.
   powerAgentDir_ = group.mount<Vel::Dir>("environment/power/status/poePort", "r");
   powerRequestStatus_ =
       group.mount<Lldp::PowerRequestStatus>("l2discovery/lldp/status/powerRequest", "w");
   nbrClassificationStatus_ =
       group.mount<Identity::NbrClassification::Status>("identity/nbrClassification/status", "w");
   nbrClassificationCliConfig_ = group.mount<Identity::NbrClassification::CliConfig>(
       "identity/nbrClassification/cliConfig", "r");
   identityDot1xStatus_ = group.mount<Identity::Dot1x::Status>("identity/dot1x/status", "r");
   identityMacsecStatus_ = group.mount<Identity::Macsec::Status>("identity/macsec/status", "r");

   auto& diim = group.intfDirMounterIs("diim");
   allIntfStatusDir_ =
       diim.dirIs<Interface::AllIntfStatusDir>("interface/status/all", "AllIntfStatusDir");
   allIntfStatusLocalDir_ = diim.dirIs<Interface::AllIntfStatusLocalDir>("interface/status/local",
                                                                         "AllIntfStatusLocalDir");
   ethPhyIntfStatusDir_ = diim.dirIs<Interface::EthPhyIntfStatusDir>("interface/status/eth/phy/all",
                                                                     "AllEthPhyIntfStatusDir");
   ethPhyIntfConfigDir_ = diim.dirIs<Interface::EthPhyIntfConfigDir>("interface/config/eth/phy/all",
                                                                     "AllEthPhyIntfConfigDir");
   ethLagIntfStatusDir_ = diim.dirIs<Interface::EthLagIntfStatusDir>("interface/status/eth/lag",
                                                                     "EthLagIntfStatusDir");
   // Where the agent asks the packet access manager for ports.
   desiredIntfDir_ =
       group.mount<Interface::PamDesiredIntfDir>("interface/pam/lldp/desiredIntf", "w");
   // The status of the peer cells, one entry per cell (a standby mirrors the active's).
   lldpStatusDir_ = group.mount<Vel::Dir>(Lldp::lldpStatusDirPath, "wi");
   pamCollection_ = Vel::make<Wire::PamCollection>();
   Vel::Ptr<Agent> self(this);
   group.closeWith([self] { self->doMountsComplete(); });
}

const std::vector<Vel::StateDb::Mount>& Agent::mounts() const {
   static const std::vector<Vel::StateDb::Mount> none;
   return mountGroup_ ? mountGroup_->mounts() : none;
}

const Vel::StateDb::MountGroup::IntfDirMounter* Agent::intfDirMounter() const {
   return mountGroup_ ? mountGroup_->intfDirMounter() : nullptr;
}

void Agent::doMountsComplete() {
   VEL_TRACE(traceLldpAgent, 4, "Agent::doMountsComplete()");
   VEL_ASSERT(lldpStatusLocal_, "lldpStatusLocal()");
   mountsComplete_ = true;
   if (linuxSockets_) {
      // Frames the kernel could not queue for us are counted too, for the whole agent:
      // the receive ring is shared by every port, so the kernel cannot say whose they were.
      Platform::Linux::LinuxPam::kernelDropsHandlerIs([status = lldpStatusLocal_](uint64_t n) {
         status->rxFramesDroppedByKernelInc(unsigned(n));
      });
   }
   doMountsCompleteStep2();
   // The peer cells' copies a standby's mirror keeps.
   standbyLldpStatusDirSm_ = Vel::make<StandbyLldpStatusDirSm>(lldpStatusDir_);
}

void Agent::doMountsCompleteStep2() {
   // The protocol root first: packet access exists before any port asks for it.
   protocolRoot_ = Protocol::rootFactory(name_);
   protocolRoot_->configIs(config_);
   protocolRoot_->cliConfigIs(cliConfig_);
   protocolRoot_->statusIs(lldpStatusLocal_);
   protocolRoot_->localSystemIs(localSystem_);
   protocolRoot_->ethPhyIntfStatusDirIs(ethPhyIntfStatusDir_);
   protocolRoot_->deviceIntfStatusDirIs(ethPhyIntfStatusDir_);
   protocolRoot_->intfStatusManagerRootIs(&db_);
   protocolRoot_->filterByNetNsIs(options_.filterByNetNs);
   protocolRoot_->desiredIntfDirIs(desiredIntfDir_);
   protocolRoot_->pamCollectionIs(pamCollection_);
   protocolRoot_->doInitializePamMan(options_.pamFactory);
   protocolRoot_->protocolSmIs();

   inputRoot_ = Vel::make<Input::Root>();
   inputRoot_->localSystemIs(localSystem_);
   inputRoot_->configIs(config_);
   inputRoot_->statusIs(lldpStatusLocal_);
   inputRoot_->remTablesStatusIs(remTablesStatus_);
   inputRoot_->bridgingConfigIs(bridgingConfig_);
   inputRoot_->allIntfStatusDirIs(allIntfStatusDir_);
   inputRoot_->desiredIntfDirIs(desiredIntfDir_);
   inputRoot_->remTablesClearRequestSmIs(remTablesCliConfig_);
   inputRoot_->identityDot1xStatusIs(identityDot1xStatus_);
   inputRoot_->identityMacsecStatusIs(identityMacsecStatus_);

   // The role: its reactor runs handleStandbyMode() now and again on leaving standby.
   redundancyStatus_ = db_.mount<Lldp::RedundancyStatus>(Lldp::redundancyStatusPath);
   Vel::Ptr<Agent> self(this);
   redundancyStatusSm_ = Vel::make<RedundancyStatusSm>(
       cellInfo_, redundancyStatus_,
       RedundancyStatusSm::Options{.standby = options_.standby, .activeGone = options_.activeGone},
       [self] { self->handleStandbyMode(); });
   redundancyStatusSm_->handleInitialized();
   // Packet access is switched on once active: at once, or when a standby takes over.
   onOffSwitchDue_ = true;
   if (!redundancyStatusSm_->standby()) {
      protocolRoot_->onOffSwitchSmIs();
   } else {
      // A standby only marks the capable interfaces wanted for packet access; with the
      // switch off, nothing opens on them.
      inputRoot_->standbyEthIntfStatusDirSmIs(ethPhyIntfStatusDir_);
   }
}

void Agent::handleStandbyMode() {
   if (statusAccumulatorSm_ || !redundancyStatusSm_) return;  // already active, or closed
   if (redundancyStatusSm_->standby()) {
      VEL_TRACE(traceLldpAgent, 4,
                "Agent::handleStandbyMode(): standby, cell " << cellInfo_->cellId());
      return;
   }
   VEL_TRACE(traceLldpAgent, 4, "Agent::handleStandbyMode(): active, cell " << cellInfo_->cellId());
   // A standby taking over: the former active agent's status, mirrored, becomes ours.
   const bool tookOver = options_.standby;
   uint32_t peerCell = redundancyStatus_->peerCellId();
   if (tookOver && peerCell == 0) peerCell = cellInfo_->cellId() == 1 ? 2 : 1;
   if (tookOver) doAdoptPeerStatus(peerCell);
   // Records left by an earlier run keep only what the active supervisor publishes.
   doRemoveIncapablePorts();
   for (const auto& [intf, localPort] : localSystem_->localPort()) {
      localPort->unknownOrgDefTlvDelAll();
   }
   // What the input machines compute afresh.
   Lldp::SystemCapabilitiesMap supported;
   supported.bridgeIs(true);
   supported.routerIs(true);
   localSystem_->sysCapSupportedIs(supported);
   localSystem_->sysCapEnabledIs({});
   localSystem_->managementAddressPrioDelAll();
   localSystem_->managementAddressDelAll();

   statusAccumulatorSm_ = Vel::make<StatusAccumulatorSm>(lldpStatusLocal_, allStatus_);
   statusAccumulatorSm_->lldpStatusDirIs(lldpStatusDir_);
   // The former active agent's counters count on as the peer cell's.
   if (tookOver) statusAccumulatorSm_->handlePeerLldpStatus(peerCell);
   statusAccumulatorSm_->handleInitialized();
   inputRoot_->inputSmIs({.cliConfig = cliConfig_,
                          .ethPhyIntfConfigDir = ethPhyIntfConfigDir_,
                          .routingConfig = routingConfig_,
                          .sysDescr = entmibStatus_->sysDescr(),
                          .netStatus = netStatus_,
                          .ipStatus = ipStatus_,
                          .ip6Status = ip6Status_,
                          .externalTlvsDir = externalTlvsDir_});
   inputRoot_->poeSmIs(powerAgentDir_, powerRequestStatus_);
   inputRoot_->standbyEthIntfStatusDirSmDel();
   inputRoot_->activeEthIntfStatusDirSmIs(ethPhyIntfStatusDir_, ethLagIntfStatusDir_);
   inputRoot_->identityDot1xStatusSmIs();
   inputRoot_->identityMacsecStatusSmIs();
   inputRoot_->nbrClassificationSmIs(nbrClassificationStatus_, nbrClassificationCliConfig_);
   inputRoot_->networkPolicySmIs();
   // A standby taking over: packet access now, the ports' machines with it.
   if (onOffSwitchDue_) protocolRoot_->onOffSwitchSmIs();
}

void Agent::doAdoptPeerStatus(uint32_t peerCell) {
   Lldp::Status::Ptr peer =
       lldpStatusDir_ ? lldpStatusDir_->entryAs<Lldp::Status>(Lldp::lldpStatusDirName(peerCell))
                      : nullptr;
   if (!peer) {
      VEL_TRACE(traceLldpAgent, 2,
                "Agent::doAdoptPeerStatus(): nothing mirrored from cell " << peerCell);
      return;
   }
   std::vector<Wire::IntfId> ports;
   for (const auto& [intf, ps] : peer->portStatus()) ports.push_back(intf);
   size_t neighbours = 0;
   for (const Wire::IntfId& intf : ports) {
      Lldp::PortStatus::Ptr ps = peer->portStatus(intf);
      peer->portStatusDel(intf);
      if (lldpStatusLocal_->portStatus(intf)) continue;  // ours already (never on a standby)
      // New neighbours take indices above every one in use, as they would have.
      const auto& remotes = ps->remoteSystem();
      if (!remotes.empty() && ps->nextRemoteSystemIndex() < uint32_t(remotes.rbegin()->first)) {
         ps->nextRemoteSystemIndexIs(uint32_t(remotes.rbegin()->first));
      }
      neighbours += remotes.size();
      // The stream names a port by its name alone: keyed here as the platform knows it
      // (its kind decides whether it runs LLDP). A port record carries its own key, so
      // one the platform knows under another kind is made again under the platform's
      // key, its neighbours moved over.
      const auto& known = ethPhyIntfStatusDir_->intfStatus();
      if (auto it = known.find(intf); it != known.end() && it->first.kind() != intf.kind()) {
         auto rekeyed = Vel::make<Lldp::PortStatus>(it->first, ps->creationTime());
         Mirror::copyAttrs(*ps, *rekeyed);
         for (const auto& [index, r] : remotes) {
            rekeyed->remoteSystemByMsapIs(r);
            rekeyed->remoteSystemIs(index, r);
         }
         ps = rekeyed;
      }
      lldpStatusLocal_->portStatusIs(ps->intfId(), ps);
   }
   VEL_TRACE(traceLldpAgent, 4,
             "Agent::doAdoptPeerStatus(): cell " << peerCell << ", " << ports.size() << " ports, "
                                                 << neighbours << " neighbours");
}

// Removes every entry of an interface that must not run LLDP from one per-port collection.
template <class Owner, class Entries, class Del>
static void removeIncapable(Owner& owner, const Entries& entries, Del del) {
   std::vector<Wire::IntfId> gone;
   for (const auto& [intf, entry] : entries) {
      if (!Input::lldpCapable(intf)) gone.push_back(intf);
   }
   for (const Wire::IntfId& intf : gone) {
      VEL_TRACE(traceLldpAgent, 2, "Agent::doRemoveIncapablePorts(): removing " << intf);
      (owner.*del)(intf);
   }
   for (const auto& i : entries) {
      VEL_ASSERT(Input::lldpCapable(i.first), "Lldp::Agent::Input::lldpCapable( i.key() )");
   }
}

void Agent::doRemoveIncapablePorts() {
   removeIncapable(*config_, config_->portConfig(), &Lldp::Config::portConfigDel);
   removeIncapable(*lldpStatusLocal_, lldpStatusLocal_->portStatus(), &Lldp::Status::portStatusDel);
   removeIncapable(*localSystem_, localSystem_->localPort(), &Lldp::LocalSystem::localPortDel);
}

void Agent::doCleanup() {
   VEL_TRACE(traceLldpAgent, 4, "Agent::doCleanup()");
   // Frames stop first; then the ports' records go, and with them their machines and
   // neighbours.
   if (protocolRoot_) protocolRoot_->onOffSwitchSmDel();
   if (redundancyStatusSm_) redundancyStatusSm_->doClose();
   if (inputRoot_) inputRoot_->doClose();
   if (protocolRoot_) protocolRoot_->doClose();
   if (statusAccumulatorSm_) statusAccumulatorSm_->doClose();
   if (standbyLldpStatusDirSm_) standbyLldpStatusDirSm_->doClose();
   statusAccumulatorSm_ = nullptr;
   standbyLldpStatusDirSm_ = nullptr;
   redundancyStatusSm_ = nullptr;
   redundancyStatus_ = nullptr;
   onOffSwitchDue_ = false;
   inputRoot_ = nullptr;
   protocolRoot_ = nullptr;
   mountsComplete_ = false;
   if (linuxSockets_) Platform::Linux::LinuxPam::kernelDropsHandlerIs(nullptr);
   doReleaseMounts();
}

void Agent::doReleaseMounts() {
   if (mountGroup_) mountGroup_->release();
   mountGroup_.reset();
   cliConfig_ = nullptr;
   remTablesCliConfig_ = nullptr;
   remTablesStatus_ = nullptr;
   config_ = nullptr;
   lldpStatusLocal_ = nullptr;
   lldpStatusDir_ = nullptr;
   allStatus_ = nullptr;
   localSystem_ = nullptr;
   bridgingConfig_ = nullptr;
   bridgingHwCapabilities_ = nullptr;
   cellInfo_ = nullptr;
   routingConfig_ = nullptr;
   netStatus_ = nullptr;
   ipStatus_ = nullptr;
   ip6Status_ = nullptr;
   externalTlvsDir_ = nullptr;
   identityDot1xStatus_ = nullptr;
   identityMacsecStatus_ = nullptr;
   nbrClassificationStatus_ = nullptr;
   nbrClassificationCliConfig_ = nullptr;
   powerAgentDir_ = nullptr;
   powerRequestStatus_ = nullptr;
   entmibStatus_ = nullptr;
   allIntfStatusDir_ = nullptr;
   allIntfStatusLocalDir_ = nullptr;
   ethPhyIntfStatusDir_ = nullptr;
   ethPhyIntfConfigDir_ = nullptr;
   ethLagIntfStatusDir_ = nullptr;
   desiredIntfDir_ = nullptr;
   pamCollection_ = nullptr;
}

Vel::Ptr<Agent> agentFactory(const std::string& name) {
   return Vel::make<Agent>(name, Agent::Options(), Vel::StateDb::instance());
}

}  // namespace Lldp::Agent

#include "Lldp/LldpInputNetworkPolicy.h"

#include <vector>

#include "Lldp/LldpInputSm.h"

namespace Lldp::Agent::Input {

namespace NetworkPolicy {

bool supportedApplication(uint8_t appType) {
   return appType >= appVoice && appType <= appVideoSignaling;
}

uint8_t streamingApplicationOf(uint8_t appType) {
   switch (appType) {
      case appVoiceSignaling:
         return appVoice;
      case appGuestVoiceSignaling:
         return appGuestVoice;
      case appVideoSignaling:
         return appVideoConferencing;
   }
   return 0;
}

bool shouldSkipSignalingApplication(const Lldp::PortConfig& portConfig,
                                    const Lldp::NetworkPolicyConfig& config) {
   const uint8_t streaming = streamingApplicationOf(config.appType());
   if (streaming == 0) return false;
   const Lldp::NetworkPolicyConfig* media = portConfig.networkPolicyConfig(streaming);
   return media && config.equivalent(*media);
}

void doSyncLocalNetworkPolicy(const Wire::IntfId& intf, const Lldp::PortConfig* portConfig,
                              const Lldp::PortStatus* portStatus, Lldp::LocalPort* localPort) {
   if (!portConfig || !portStatus || !localPort) return;
   // What the port should advertise, worked out first and then brought in place: a
   // policy that stays is not withdrawn and re-added, which would make the port send.
   std::vector<Lldp::NetworkPolicyTlv> wanted;
   if (!portConfig->tiaEnabledTlvs().networkPolicy()) {
      VEL_TRACE(traceLldpAgent, 6,
                "Not adding LLDP-MED Network Policy TLV - TLV disabled in CLI for intf " << intf);
   } else if (!portStatus->networkPolicyTlvReceived()) {
      VEL_TRACE(traceLldpAgent, 6,
                "Not adding LLDP-MED Network Policy TLV - no request received in intf " << intf);
   } else {
      for (const auto& [app, config] : portConfig->networkPolicyConfig()) {
         if (!supportedApplication(app)) {
            VEL_TRACE(traceLldpAgent, 6,
                      "Skipping unsupported LLDP-MED Network Policy app " << int(app) << " in intf "
                                                                          << intf);
            continue;
         }
         if (shouldSkipSignalingApplication(*portConfig, config)) {
            VEL_TRACE(traceLldpAgent, 6,
                      "Skipping signaling application "
                          << int(app) << " because policy " << config
                          << " equivalent to corresponding streaming application in intf " << intf);
            continue;
         }
         VEL_TRACE(traceLldpAgent, 6,
                   "Add application " << int(app) << " to list with config " << config);
         wanted.push_back(config.toNetworkPolicyTlv());
      }
   }
   std::vector<uint8_t> gone;
   for (const auto& [app, tlv] : localPort->localNetworkPolicyTlv()) {
      bool keep = false;
      for (const auto& w : wanted) keep = keep || w.appType() == app;
      if (!keep) gone.push_back(app);
   }
   for (uint8_t app : gone) localPort->localNetworkPolicyTlvDel(app);
   for (const auto& w : wanted) localPort->localNetworkPolicyTlvIs(w);
}

}  // namespace NetworkPolicy

void syncMedNetworkPolicyCapability(Lldp::LocalPort& localPort, bool anyPolicy) {
   Lldp::MedCapabilitiesInfo med = localPort.medCapabilities();
   Lldp::MedCapability caps = med.capabilities();
   caps.networkPolicyIs(anyPolicy);
   med.capabilitiesIs(caps);
   localPort.medCapabilitiesIs(med);
}

void syncPortConfigNetworkPolicy(Lldp::PortConfig& portConfig, const Lldp::CliPortConfig* cli,
                                 Root& root) {
   const Wire::IntfId& intf = portConfig.intfId();
   VEL_TRACE(traceLldpAgent, 8, "InputSm::doSyncPortConfigNetworkPolicy( " << intf << " )");
   // Entries the CLI no longer has go; the others are written, unchanged ones silently.
   std::vector<uint8_t> gone;
   for (const auto& [app, c] : portConfig.networkPolicyConfig()) {
      if (!cli || !cli->networkPolicyConfig(app)) gone.push_back(app);
   }
   for (uint8_t app : gone) portConfig.networkPolicyConfigDel(app);
   if (cli) {
      for (const auto& [app, c] : cli->networkPolicyConfig()) portConfig.networkPolicyConfigIs(c);
   }
   if (auto lp = root.localSystem()->localPort(intf)) {
      syncMedNetworkPolicyCapability(*lp, !portConfig.networkPolicyConfig().empty());
   }
}

void InputSm::doSyncPortConfigNetworkPolicy(Lldp::PortConfig& portConfig) {
   syncPortConfigNetworkPolicy(portConfig, cliPortConfigOf(portConfig.intfId()), *root_);
}

// ---------------------------------------------------------------------------------------
// NetworkPolicyPortStatusSm.

NetworkPolicyPortStatusSm::NetworkPolicyPortStatusSm(NetworkPolicySm* sm,
                                                     Lldp::PortStatus::PtrConst portStatus)
    : sm_(sm) {
   PortStatusReactor::notifierIs(portStatus);
}

void NetworkPolicyPortStatusSm::handleInitialized() {
   asking_.clear();
   for (const auto& [index, remote] : status().remoteSystem()) {
      if (!remote->networkPolicyTlv().empty()) asking_.insert(index);
   }
   requested_ = !asking_.empty();
}

void NetworkPolicyPortStatusSm::doClose() {
   PortStatusReactor::notifierIs(nullptr);
   PortConfigReactor::notifierIs(nullptr);
}

void NetworkPolicyPortStatusSm::portConfigIs(Lldp::PortConfig::PtrConst portConfig) {
   if (PortConfigReactor::notifier() != portConfig) PortConfigReactor::notifierIs(portConfig);
}

void NetworkPolicyPortStatusSm::remoteSystemChanged(const int& index) {
   const Lldp::RemoteSystem* remote = status().remoteSystemAt(index);
   if (remote && !remote->networkPolicyTlv().empty()) {
      asking_.insert(index);
   } else {
      asking_.erase(index);
   }
   handleNetworkPolicyRequest(status().intfId());
}

void NetworkPolicyPortStatusSm::networkPolicyConfigChanged(const uint8_t&) {
   sm_->handleNetworkPolicyConfig(status().intfId());
}

void NetworkPolicyPortStatusSm::tiaEnabledTlvsChanged() {
   sm_->handleNetworkPolicyConfig(status().intfId());
}

void NetworkPolicyPortStatusSm::handleNetworkPolicyRequest(const Wire::IntfId& intf) {
   // Neighbours come, refresh and go far more often than they start or stop asking.
   const bool requested = !asking_.empty();
   if (requested == requested_) return;
   requested_ = requested;
   VEL_TRACE(traceLldpAgent, 8,
             "NetworkPolicyPortStatusSm::handleNetworkPolicyRequest( "
                 << intf << " ) requested: " << requested);
   Root& root = *sm_->root();
   NetworkPolicy::doSyncLocalNetworkPolicy(intf, root.config()->portConfig(intf).ptr(), &status(),
                                           root.localSystem()->localPort(intf).ptr());
}

// ---------------------------------------------------------------------------------------
// NetworkPolicySm.

NetworkPolicySm::NetworkPolicySm(Root* root) : root_(root) {
   configReactor_.sm = statusReactor_.sm = localSystemReactor_.sm = this;
}

NetworkPolicySm::~NetworkPolicySm() = default;

void NetworkPolicySm::handleInitialized() {
   VEL_TRACE(traceLldpAgent, 8, "NetworkPolicySm::handleInitialized()");
   configReactor_.notifierIs(root_->config());
   statusReactor_.notifierIs(root_->status());
   localSystemReactor_.notifierIs(root_->localSystem());
   for (const auto& [intf, ps] : root_->status()->portStatus()) handleNetworkPolicyPortStatus(intf);
}

void NetworkPolicySm::doClose() {
   configReactor_.notifierIs(nullptr);
   statusReactor_.notifierIs(nullptr);
   localSystemReactor_.notifierIs(nullptr);
   Wire::closeAll(networkPolicyPortStatusSm_);
   for (const auto& [intf, lp] : root_->localSystem()->localPort()) {
      lp->localNetworkPolicyTlvDelAll();
   }
}

void NetworkPolicySm::handleNetworkPolicyConfig(const Wire::IntfId& intf) {
   VEL_TRACE(traceLldpAgent, 8, "NetworkPolicySm::handleNetworkPolicyConfig( " << intf << " )");
   auto pc = root_->config()->portConfig(intf);
   auto it = networkPolicyPortStatusSm_.find(intf);
   if (it != networkPolicyPortStatusSm_.end()) it->second->portConfigIs(pc);
   NetworkPolicy::doSyncLocalNetworkPolicy(intf, pc.ptr(), root_->status()->portStatus(intf).ptr(),
                                           root_->localSystem()->localPort(intf).ptr());
}

void NetworkPolicySm::handleNetworkPolicyPortStatus(const Wire::IntfId& intf) {
   auto ps = root_->status()->portStatus(intf);
   auto it = networkPolicyPortStatusSm_.find(intf);
   if (it != networkPolicyPortStatusSm_.end() && it->second->portStatus() != ps) {
      VEL_TRACE(traceLldpAgent, 6,
                "NetworkPolicySm::handleNetworkPolicyPortStatus( " << intf << " ) removing SM");
      const auto sm = it->second;
      networkPolicyPortStatusSm_.erase(it);
      sm->doClose();
      it = networkPolicyPortStatusSm_.end();
   }
   if (ps && it == networkPolicyPortStatusSm_.end()) {
      VEL_TRACE(traceLldpAgent, 6,
                "NetworkPolicySm::handleNetworkPolicyPortStatus( " << intf << " ) creating SM");
      auto sm = Vel::make<NetworkPolicyPortStatusSm>(this, ps);
      networkPolicyPortStatusSm_.add(sm);
      sm->handleInitialized();
   }
   handleNetworkPolicyConfig(intf);
}

}  // namespace Lldp::Agent::Input

#include "Lldp/LldpInputBypass.h"

#include "Lldp/LldpInputSm.h"

namespace Lldp::Agent::Input {

bool lldpBypass(const Root& root, const Wire::IntfId& intf) {
   if (root.identityDot1xStatus() && root.identityDot1xStatus()->lldpBypass()) return true;
   if (!root.identityMacsecStatus()) return false;
   const bool* bypass = root.identityMacsecStatus()->bypassLldp(intf);
   return bypass && *bypass;
}

IdentityDot1xStatusSm::IdentityDot1xStatusSm(Root* root, Identity::Dot1x::Status::PtrConst s)
    : root_(root), status_(std::move(s)) {}

void IdentityDot1xStatusSm::handleInitialized() {
   notifierIs(status_);
}

void IdentityDot1xStatusSm::doClose() {
   notifierIs(nullptr);
}

void IdentityDot1xStatusSm::handleLldpBypass() {
   VEL_TRACE(traceLldpAgent, 8,
             "IdentityDot1xStatusSm::handleLldpBypass() " << status_->lldpBypass());
   const auto& dir = root_->activeEthIntfStatusDirSm();
   if (!dir) return;
   // A port that opens or closes changes the set being walked.
   std::vector<Vel::Ptr<EthPhyIntfStatusSm>> ports;
   for (const auto& [intf, sm] : dir->ethPhyIntfStatusSm()) ports.push_back(sm);
   for (const auto& sm : ports) sm->handleForwardingModel();
}

IdentityMacsecStatusSm::IdentityMacsecStatusSm(Root* root, Identity::Macsec::Status::PtrConst s)
    : root_(root), status_(std::move(s)) {}

void IdentityMacsecStatusSm::handleInitialized() {
   notifierIs(status_);
}

void IdentityMacsecStatusSm::doClose() {
   notifierIs(nullptr);
}

void IdentityMacsecStatusSm::handleBypassLldp(const Wire::IntfId& intf) {
   VEL_TRACE(traceLldpAgent, 8, "IdentityMacsecStatusSm::handleBypassLldp( " << intf << " )");
   const auto& dir = root_->activeEthIntfStatusDirSm();
   if (!dir) return;
   auto it = dir->ethPhyIntfStatusSm().find(intf);
   if (it != dir->ethPhyIntfStatusSm().end()) it->second->handleForwardingModel();
}

}  // namespace Lldp::Agent::Input

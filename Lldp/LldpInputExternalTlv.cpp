#include "Lldp/LldpInputExternalTlv.h"

#include <vector>

#include "Framework/Assert.h"
#include "Lldp/LldpInputSm.h"

namespace Lldp::Agent::Input {

void InputSm::handleExternalTlvsEntityPtr(const std::string& name) {
   if (!initialized_) return;
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleExternalTlvsEntityPtr( " << name << " )");
   const auto entity = externalTlvsDir_->entryAs<Lldp::ExternalTlvConfig>(name);
   auto it = externalTlvConfigSm_.find(name);
   if (it != externalTlvConfigSm_.end() && it->second->externalTlvConfig() != entity) {
      const auto sm = it->second;
      externalTlvConfigSm_.erase(it);
      sm->doClose();
      it = externalTlvConfigSm_.end();
   }
   if (entity && it == externalTlvConfigSm_.end()) {
      VEL_ASSERT(!externalTlvConfigSmHas(name), "!externalTlvConfigSmHas( name )");
      auto sm = Vel::make<ExternalTlvConfigSm>(root_, entity);
      externalTlvConfigSm_[name] = sm;
      sm->handleInitialized();
   }
}

ExternalTlvConfigSm::ExternalTlvConfigSm(Root* root, Lldp::ExternalTlvConfig::PtrConst c)
    : root_(root), externalTlvConfig_(std::move(c)) {}

void ExternalTlvConfigSm::handleInitialized() {
   VEL_TRACE(traceLldpAgent, 8, "ExternalTlvConfigSm::handleInitialized()");
   notifierIs(externalTlvConfig_);
   for (const auto& [intf, p] : externalTlvConfig_->portConfig()) doSyncLocalPort(intf);
}

void ExternalTlvConfigSm::doClose() {
   VEL_TRACE(traceLldpAgent, 8, "ExternalTlvConfigSm::doClose()");
   notifierIs(nullptr);
   for (const auto& [intf, keys] : unknownOrgDefTlvList_) {
      for (const auto& key : keys) doRemoveTlv(intf, key);
   }
   unknownOrgDefTlvList_.clear();
}

void ExternalTlvConfigSm::handleExternalTlvPortConfig(const Wire::IntfId& intf) {
   doSyncLocalPort(intf);
}

void ExternalTlvConfigSm::doSyncLocalPort(const Wire::IntfId& intf) {
   const auto port = externalTlvConfig_->portConfig(intf);
   std::set<Lldp::UnknownOrgDefTlv::Key>& written = unknownOrgDefTlvList_[intf];
   std::set<Lldp::UnknownOrgDefTlv::Key> listed;
   if (port) {
      for (const auto& [key, tlv] : port->tlv()) {
         doAddTlv(intf, tlv);
         listed.insert(key);
      }
   }
   for (const auto& key : written) {
      if (!listed.count(key)) doRemoveTlv(intf, key);
   }
   // Only what reached a port counts as written; the rest comes with the port.
   if (root_->localSystem()->localPort(intf)) {
      written = std::move(listed);
   } else {
      written.clear();
   }
   if (written.empty()) unknownOrgDefTlvList_.erase(intf);
}

bool ExternalTlvConfigSm::doAddTlv(const Wire::IntfId& intf, const Lldp::UnknownOrgDefTlv& tlv) {
   VEL_TRACE(traceLldpAgent, 8, "ExternalTlvConfigSm::doAddTlv(" << intf << ", " << tlv << ")");
   auto localPort = root_->localSystem()->localPort(intf);
   if (!localPort) {
      VEL_TRACE(traceLldpAgent, 8, "Localport does not exist. Returning");
      return false;
   }
   const Lldp::UnknownOrgDefTlv* held = localPort->unknownOrgDefTlv(tlv.key());
   if (held && held->value() == tlv.value()) return false;
   VEL_ASSERT(!held || held->value() != tlv.value(),
              "!localPort->unknownOrgDefTlv( tlv.key() ) || localPort->unknownOrgDefTlv( "
              "tlv.key() ).orgDefInfo() != tlv.orgDefInfo()");
   localPort->unknownOrgDefTlvIs(tlv);
   return true;
}

void ExternalTlvConfigSm::doRemoveTlv(const Wire::IntfId& intf,
                                      const Lldp::UnknownOrgDefTlv::Key& key) {
   auto localPort = root_->localSystem()->localPort(intf);
   if (!localPort) {
      VEL_TRACE(traceLldpAgent, 8, "Localport does not exist. Returning");
      return;
   }
   localPort->unknownOrgDefTlvDel(key);
}

}  // namespace Lldp::Agent::Input

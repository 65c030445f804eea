// Organizationally specific TLVs that other programs ask the agent to advertise: one
// machine per client copies the client's TLVs into each port's local record and takes
// them out again when the client withdraws them.
#pragma once

#include <map>
#include <set>

#include "Framework/Vel/Entity.h"
#include "Records/Lldp.h"
#include "Records/LldpExternalTlv.h"

namespace Lldp::Agent::Input {

class Root;

class ExternalTlvConfigSm : public Vel::RefCounted, private Lldp::ExternalTlvConfig::Notifiee {
public:
   ExternalTlvConfigSm(Root* root, Lldp::ExternalTlvConfig::PtrConst externalTlvConfig);
   const std::string& name() const { return externalTlvConfig_->name(); }
   const Lldp::ExternalTlvConfig::PtrConst& externalTlvConfig() const { return externalTlvConfig_; }
   void handleInitialized();
   void doClose();
   void handleExternalTlvPortConfig(const Wire::IntfId& intf);
   // Brings one port's local record in line with what the client lists for it.
   void doSyncLocalPort(const Wire::IntfId& intf);
   // True when the local port changed.
   bool doAddTlv(const Wire::IntfId& intf, const Lldp::UnknownOrgDefTlv& tlv);
   void doRemoveTlv(const Wire::IntfId& intf, const Lldp::UnknownOrgDefTlv::Key& key);
   // The TLVs this machine wrote, per port.
   const std::map<Wire::IntfId, std::set<Lldp::UnknownOrgDefTlv::Key>>& unknownOrgDefTlvList()
       const {
      return unknownOrgDefTlvList_;
   }

private:
   void portConfigChanged(const Wire::IntfId& intf) override { handleExternalTlvPortConfig(intf); }
   Root* root_;
   Lldp::ExternalTlvConfig::PtrConst externalTlvConfig_;
   std::map<Wire::IntfId, std::set<Lldp::UnknownOrgDefTlv::Key>> unknownOrgDefTlvList_;
};

}  // namespace Lldp::Agent::Input

// LLDP bypass: whether LLDP may run on a port that port authentication holds closed
// (forwarding only link-local frames). 802.1X says it once for the whole switch, MACsec
// per port; either lets a port at forwarding model "data link" take part.
#pragma once

#include "Framework/Vel/Entity.h"
#include "Records/Identity.h"

namespace Lldp::Agent::Input {

class Root;

// Whether LLDP bypass is on for a port.
bool lldpBypass(const Root& root, const Wire::IntfId& intf);

class IdentityDot1xStatusSm : public Vel::RefCounted, private Identity::Dot1x::Status::Notifiee {
public:
   IdentityDot1xStatusSm(Root* root, Identity::Dot1x::Status::PtrConst status);
   void handleInitialized();
   void doClose();
   // Every port is decided again.
   void handleLldpBypass();

private:
   void lldpBypassChanged() override { handleLldpBypass(); }
   Root* root_;
   Identity::Dot1x::Status::PtrConst status_;
};

class IdentityMacsecStatusSm : public Vel::RefCounted, private Identity::Macsec::Status::Notifiee {
public:
   IdentityMacsecStatusSm(Root* root, Identity::Macsec::Status::PtrConst status);
   void handleInitialized();
   void doClose();
   // That port alone is decided again.
   void handleBypassLldp(const Wire::IntfId& intf);

private:
   void bypassLldpChanged(const Wire::IntfId& intf) override { handleBypassLldp(intf); }
   Root* root_;
   Identity::Macsec::Status::PtrConst status_;
};

}  // namespace Lldp::Agent::Input

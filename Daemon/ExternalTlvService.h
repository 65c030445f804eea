// What the daemon publishes for the agent on behalf of others: organizationally specific
// TLVs from other programs (the control socket's "external-tlvs" operation) and from the
// operator (`lldp tlv oui ...` lines), each a client of the external TLV directory, and
// the LLDP bypass settings that port authentication would publish on a switch
// (`dot1x lldp bypass`, `macsec lldp bypass`).
//
//    {"op":"external-tlvs","client":NAME,
//     "tlvs":{INTERFACE:[{"oui":"33-44-66","subtype":7,"info":"HEX"}...]...}}
// replaces the client's whole set; "tlvs":null withdraws it. The client "config" is the
// operator's and cannot be written this way. A client's TLVs stay until it withdraws them
// (or the daemon stops): a program that restarts publishes its set again, replacing it.
// A set larger than the client limits (ClientLimits: TLVs per client, and all clients'
// TLVs together, each client counting at least one) is refused whole, with the reason,
// and counted; the client's previous set stays.
#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "Daemon/ControlSocket.h"
#include "Framework/Vel/Dir.h"
#include "Framework/Vel/StateDb.h"
#include "Records/Identity.h"
#include "Records/LldpConfig.h"
#include "Records/LldpExternalTlv.h"

namespace Daemon {

class ExternalTlvService : private Lldp::CliConfig::Notifiee {
public:
   // The operator's own client entry in the directory.
   static constexpr const char* configClient = "config";
   static constexpr size_t maxClientName = 64;

   ExternalTlvService(ControlSocket& socket, Vel::StateDb& db, Vel::Ptr<Lldp::CliConfig> config);
   ~ExternalTlvService();

   // Replaces (or, with a null set, withdraws) a client's TLVs; says what is wrong, or "".
   std::string clientIs(const std::string& client, const Vel::Json& tlvs);

private:
   // One configured port: its TLVs and its MACsec bypass follow the operator's lines.
   class PortWatch : public Vel::RefCounted, private Lldp::CliPortConfig::Notifiee {
   public:
      PortWatch(ExternalTlvService* service, Lldp::CliPortConfig::PtrConst port);
      ~PortWatch() override { notifierIs(nullptr); }

   private:
      void externalTlvChanged(const Lldp::UnknownOrgDefTlv::Key&) override;
      void macsecLldpBypassChanged() override;
      ExternalTlvService* service_;
      Lldp::CliPortConfig::PtrConst port_;
   };

   void cliPortConfigChanged(const Wire::IntfId& intf) override;
   void dot1xLldpBypassChanged() override;
   void syncConfigTlvs(const Wire::IntfId& intf);
   void syncMacsecBypass(const Wire::IntfId& intf);

   Vel::Ptr<Lldp::CliConfig> config_;
   ClientLimits::Ptr limits_;
   // What each client published counts against the limits: its TLVs, at least one.
   std::map<std::string, size_t> cost_;
   size_t totalCost_ = 0;
   Vel::Dir::Ptr dir_;
   Identity::Dot1x::Status::Ptr dot1x_;
   Identity::Macsec::Status::Ptr macsec_;
   std::map<Wire::IntfId, Vel::Ptr<PortWatch>> ports_;
};

}  // namespace Daemon

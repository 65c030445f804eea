// The daemon's side of neighbour classification:
//  - publishes the operator's classifications (`lldp classification mac ...` lines, in
//    Lldp::CliConfig) as the agent reads them, at identity/nbrClassification/cliConfig;
//  - control-socket operations for the command line:
//    {"op":"show-classification","interface":NAME}                     (read)
//        {"classifications":[{"intfId","ethAddr","nbrClass","source","since","age",
//          "neighbor","bypass"}...],"fdbWrites":N,"fdbWritesRefused":N}; an unknown
//        interface is an error
//    {"op":"clear-classification","mac":MAC,"interface":NAME,"user":WHO,"terminal":WHERE}
//        (root only) forgets the learnt classifications of that address, that port, both
//        or (neither given) all; logged with who asked, as the neighbour-table clear is.
//        Replies {"classificationsCleared": N}. Configured classifications stay.
//    {"op":"watch-classification"}                                       (read)
//        {"ok":true} at once, then one line per station classified, reclassified or
//        unclassified (Cli/NbrClassificationWatch.h) until the client hangs up
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "Daemon/ControlSocket.h"
#include "Daemon/WatchFanout.h"
#include "Framework/Vel/StateDb.h"
#include "Records/Identity.h"
#include "Records/LldpConfig.h"

namespace Cli {
class NbrClassificationWatch;
}

namespace Daemon {

class NbrClassificationService : private Lldp::CliConfig::Notifiee {
public:
   NbrClassificationService(ControlSocket& socket, Vel::StateDb& db,
                            Vel::Ptr<Lldp::CliConfig> config);
   ~NbrClassificationService() override;

   Vel::Json show(const Vel::Json& request) const;
   Vel::Json clear(const Vel::Json& request, const Peer& peer);
   Vel::Json watch(const Vel::Ptr<ControlConnection>& connection);

private:
   using EntryKey = Identity::NbrClassification::EntryKey;
   struct PortWatch : Lldp::CliPortConfig::Notifiee {
      NbrClassificationService* service;
      Wire::IntfId intf;
      void nbrClassificationChanged(const Wire::EthAddr& mac) override {
         service->syncPort(intf, mac);
      }
   };
   void nbrClassificationChanged(const Wire::EthAddr& mac) override;
   void cliPortConfigChanged(const Wire::IntfId& intf) override;
   void syncPort(const Wire::IntfId& intf, const Wire::EthAddr& mac);
   bool knownInterface(const Wire::IntfId& intf) const;

   Vel::StateDb& db_;
   Vel::Ptr<Lldp::CliConfig> config_;
   Identity::NbrClassification::CliConfig::Ptr classConfig_;
   std::map<Wire::IntfId, std::unique_ptr<PortWatch>> ports_;
   WatchFanout<Cli::NbrClassificationWatch> watch_;
};

}  // namespace Daemon

// The operator's requests to clear the neighbour tables.
#pragma once

#include "Framework/Vel/Entity.h"
#include "Records/Lldp.h"

namespace Lldp::Agent::Input {

class Root;

// Empties every port's neighbour table when the operator asks for it. A request is
// served once: only a request time later than the last clear counts.
class RemTablesClearRequestSm : public Vel::RefCounted, private Lldp::RemTablesCliConfig::Notifiee {
public:
   RemTablesClearRequestSm(Root* root, Lldp::RemTablesCliConfig::PtrConst remTablesCliConfig);
   void handleInitialized();
   void handleRemTablesClearRequest();
   void doClose();

private:
   void clearRequestTimeChanged() override { handleRemTablesClearRequest(); }
   Root* root_;
   Lldp::RemTablesCliConfig::PtrConst remTablesCliConfig_;
};

}  // namespace Lldp::Agent::Input

#include "Lldp/LldpInputRemTables.h"

#include "Framework/Vel/EventLoop.h"
#include "Lldp/LldpEvents.h"
#include "Lldp/LldpInputSm.h"

namespace Lldp::Agent::Input {

RemTablesClearRequestSm::RemTablesClearRequestSm(Root* root,
                                                 Lldp::RemTablesCliConfig::PtrConst cliConfig)
    : root_(root), remTablesCliConfig_(std::move(cliConfig)) {}

void RemTablesClearRequestSm::handleInitialized() {
   notifierIs(remTablesCliConfig_);
   handleRemTablesClearRequest();
}

void RemTablesClearRequestSm::doClose() {
   notifierIs(nullptr);
}

void RemTablesClearRequestSm::handleRemTablesClearRequest() {
   const Vel::Seconds requestTime = remTablesCliConfig_->clearRequestTime();
   const Vel::Seconds lastClearTime = root_->remTablesStatus()->remTablesLastClearTime();
   const Vel::Seconds now = Vel::EventLoop::instance().now();
   VEL_TRACE(traceLldpAgent, 4,
             "handleRemTablesClearRequest() at " << now << ": handling request from " << requestTime
                                                 << ", because last clear time is " << lastClearTime
                                                 << ".");
   if (!(lastClearTime < requestTime)) return;
   root_->remTablesStatus()->remTablesLastClearTimeIs(requestTime);
   for (const auto& [intf, portStatus] : root_->status()->portStatus()) {
      // The index first, so that no record is ever in it without being in the table.
      portStatus->remoteSystemByMsapDelAll();
      portStatus->remoteSystemDelAll();
   }
   root_->status()->remTablesLastChangeTimeIs(now);
   Lldp::LLDP_REMOTE_TABLES_CLEARED.log(remTablesCliConfig_->clearRequestedBy(),
                                        remTablesCliConfig_->clearRequestedOn());
}

}  // namespace Lldp::Agent::Input

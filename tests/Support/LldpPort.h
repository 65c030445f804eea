// One end of a link for engine tests: the records of one port on its own switch and the
// port's protocol machine over a given packet access object (not yet initialised).
#pragma once

#include <string>

#include "Lldp/LldpProtocolSm.h"
#include "tests/Support/PortRecords.h"

namespace TestSupport {

struct LldpPort : PortRecords {
   LldpPort(const std::string& name, Vel::Ptr<Wire::Pam> pam, uint8_t macLast)
       : PortRecords(name, macOf(macLast), std::string("sw-").append(name)) {
      intfStatus = Vel::make<Interface::EthPhyIntfStatus>(intf);
      intfStatus->addrIs(Wire::EthAddr::fromBytes(macOf(macLast).data()));
      intfStatus->linkStatusIs(Interface::linkStatusUp);
      sm = Vel::make<Lldp::Agent::Protocol::LldpPamSm>(intf, pam, root, intfStatus, portConfig,
                                                       portStatus, localPort, localSystem);
   }
   ~LldpPort() {
      if (sm->initialized()) sm->doClose();
   }
   static std::string macOf(uint8_t last) { return std::string("\x02\0\0\0\0", 5) + char(last); }
   uint32_t sent() const { return portStatus->txFramesTotal(); }
   size_t neighbours() const { return portStatus->remoteSystem().size(); }

   Interface::EthPhyIntfStatus::Ptr intfStatus;
   Vel::Ptr<Lldp::Agent::Protocol::LldpPamSm> sm;
};

}  // namespace TestSupport

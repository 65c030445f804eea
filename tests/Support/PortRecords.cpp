#include "tests/Support/PortRecords.h"

namespace TestSupport {

PortRecords::PortRecords(const std::string& intfName, const std::string& chassisMac,
                         const std::string& sysName)
    : intf(intfName),
      config(Vel::make<Lldp::Config>()),
      localSystem(Vel::make<Lldp::LocalSystem>()),
      status(Vel::make<Lldp::Status>()) {
   localSystem->chassisIdentifierIs(Lldp::ChassisIdentifier({.subtype = 4, .value = chassisMac}));
   localSystem->sysNameIs(sysName);
   localPort = localSystem->localPortIs(intf);
   localPort->portIdentifierIs(Lldp::PortIdentifier({.subtype = 5, .value = intfName}));
   portConfig = config->portConfigIs(intf);
   portStatus = status->portStatusIs(intf, 0.0);
   root = Vel::make<Lldp::Agent::Protocol::Root>(config, localSystem, status);
}

}  // namespace TestSupport

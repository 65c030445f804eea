// One end of a link for engine tests: the records of one port on its own switch and the
// port's protocol machine over a given packet access object (not yet initialised).
#pragma once

#include <string>

#include "Lldp/LldpProtocolSm.h"

namespace TestSupport {

// One side of the link: its records and its machine.
struct LldpPort {
   LldpPort(const std::string& name, Vel::Ptr<Wire::Pam> pam, uint8_t macLast) : intf(name) {
      config = Vel::make<Lldp::Config>();
      localSystem = Vel::make<Lldp::LocalSystem>();
      const char mac[6] = {0x02, 0, 0, 0, 0, char(macLast)};
      localSystem->chassisIdentifierIs(
          Lldp::ChassisIdentifier({.subtype = 4, .value = std::string(mac, 6)}));
      localSystem->sysNameIs("sw-" + name);
      localPort = localSystem->localPortIs(intf);
      localPort->portIdentifierIs(Lldp::PortIdentifier({.subtype = 5, .value = name}));
      portConfig = config->portConfigIs(intf);
      status = Vel::make<Lldp::Status>();
      portStatus = status->portStatusIs(intf, 0.0);
      intfStatus = Vel::make<Interface::EthPhyIntfStatus>(intf);
      intfStatus->addrIs(Wire::EthAddr::fromBytes(mac));
      intfStatus->linkStatusIs(Interface::linkStatusUp);
      root = Vel::make<Lldp::Agent::Protocol::Root>(config, localSystem, status);
      sm = Vel::make<Lldp::Agent::Protocol::LldpPamSm>(intf, pam, root, intfStatus, portConfig,
                                                       portStatus, localPort, localSystem);
   }
   ~LldpPort() {
      if (sm->initialized()) sm->doClose();
   }
   uint32_t sent() const { return portStatus->txFramesTotal(); }
   size_t neighbours() const { return portStatus->remoteSystem().size(); }

   Wire::IntfId intf;
   Lldp::Config::Ptr config;
   Lldp::LocalSystem::Ptr localSystem;
   Lldp::LocalPort::Ptr localPort;
   Lldp::PortConfig::Ptr portConfig;
   Lldp::Status::Ptr status;
   Lldp::PortStatus::Ptr portStatus;
   Interface::EthPhyIntfStatus::Ptr intfStatus;
   Vel::Ptr<Lldp::Agent::Protocol::Root> root;
   Vel::Ptr<Lldp::Agent::Protocol::LldpPamSm> sm;
};

}  // namespace TestSupport
